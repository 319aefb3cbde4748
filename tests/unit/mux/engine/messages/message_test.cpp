#include "zel/mux/engine/messages/message.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "zel/mux/engine/messages/configuration_messages.h"
#include "zel/mux/engine/messages/fatal_messages.h"
#include "zel/mux/engine/messages/warning_messages.h"

namespace zel::mux {
namespace {

std::string fatal(int code, const message_argument& argument) {
  const message* row = find_message(kFatalMessages, code);
  return row == nullptr ? "none" : format_message(row->text, argument);
}
std::string warning(int code, const message_argument& argument) {
  const message* row = find_message(kWarningMessages, code);
  return row == nullptr ? "none" : format_message(row->text, argument);
}

TEST(Message, GapsHaveNoText) {
  for (const int code : {-1, 37, 38, 63, 64, 174}) EXPECT_EQ(fatal(code, {}), "none") << code;
  for (const int code : {-1, 44, 161}) EXPECT_EQ(warning(code, {}), "none") << code;
  EXPECT_EQ(std::size(kFatalMessages), 170u);
  EXPECT_EQ(std::size(kWarningMessages), 160u);
}

TEST(Message, FormsTakeTheirArgument) {
  EXPECT_EQ(warning(0, int64_t{-7}), "Video decoder underflow by -7 bytes.\n");
  EXPECT_EQ(warning(17, int64_t{0x1FF}), "PMT PID = 0x01FF, illegal value\n");
  EXPECT_EQ(warning(27, int64_t{12}), "Demultiplexer issued warning # 12\n");
  EXPECT_EQ(warning(115, int64_t{0xBD}),
            "Private_stream with stream_id BD will not be synchronized to video\n");
  EXPECT_EQ(warning(145, 2.5), "Stream ended 2.500 seconds early, in excess of threshold.\n");
  EXPECT_EQ(fatal(104, 25.0),
            "Private_stream SyncVideoTC and video frame rate (25.000000) mismatch.\n");
  EXPECT_EQ(fatal(30, std::string_view("a%s.ts")), "Output file open error.  Filename = a%s.ts.\n");
  EXPECT_EQ(fatal(35, {}), "Out of Memory.\n");
}

TEST(Message, ArgumentsOfAnotherKindAreConverted) {
  EXPECT_EQ(warning(145, int64_t{3}),
            "Stream ended 3.000 seconds early, in excess of threshold.\n");
  EXPECT_EQ(warning(0, 1e300), "Video decoder underflow by 2147483647 bytes.\n");
  EXPECT_EQ(fatal(30, {}), "Output file open error.  Filename = .\n");
}

TEST(Message, EveryTextHasAtMostOneConversionAndTakesAnything) {
  const auto check = [](std::span<const message> rows) {
    for (const message& row : rows) {
      EXPECT_LE(std::count(row.text.begin(), row.text.end(), '%'), 1) << row.text;
      for (const message_argument& each :
           {message_argument(), message_argument(int64_t{1}), message_argument(1.0),
            message_argument(std::string_view("x"))})
        EXPECT_EQ(format_message(row.text, each).find('%'), std::string::npos) << row.text;
    }
  };
  check(kFatalMessages);
  check(kWarningMessages);
  check(kConfigurationErrors);
  check(kConfigurationWarnings);
}

TEST(Message, WhatIsNoConversionStays) {
  EXPECT_EQ(format_message("100 % of %q", int64_t{1}), "100 % of %q");
  EXPECT_EQ(format_message("%", int64_t{1}), "%");
  EXPECT_EQ(format_message("%99999999999d", int64_t{1}), "%99999999999d");
}

}  // namespace
}  // namespace zel::mux
