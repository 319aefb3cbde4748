#include "tools/zel/four_character_argument.h"

#include <gtest/gtest.h>

#include "tools/zel/failure.h"
#include "zel/runtime/vocabulary.h"

namespace zel::tool {
namespace {

TEST(FourCharacterArgument, ReadsBackWhatItShows) {
  for (const auto& each : Morvalen::Zel::GetVideoFormatConstants())
    EXPECT_EQ(parseCode(codeText(each.code)), each.code) << each.name;
  for (const auto& each : Morvalen::Zel::GetAudioFormatConstants())
    EXPECT_EQ(parseCode(codeText(each.code)), each.code) << each.name;
  for (const auto& row : Morvalen::Zel::GetVideoFormatRows())
    EXPECT_EQ(parseCode(codeText(row.format)), row.format);
}

TEST(FourCharacterArgument, ShowsWhatCannotBeTypedInHexadecimal) {
  EXPECT_EQ(codeText(0x64762020), "dv%20%20");
  EXPECT_EQ(codeText(0x00000020), "%00%00%00%20");
  EXPECT_EQ(codeText(0x25FF7F41), "%25%FF%7FA");
}

TEST(FourCharacterArgument, BlanksMayBeTypedToo) {
  EXPECT_EQ(parseCode("dv  "), 0x64762020u);
}

TEST(FourCharacterArgument, RefusesWhatIsNoCode) {
  for (const char* bad : {"", "dv", "avc12", "%2", "%zz123", "a%2",
                          "\xC3\xA9"
                          "123",
                          "dv \t"})
    EXPECT_THROW(parseCode(bad), WrongUsage) << bad;
}

TEST(FourCharacterArgument, HintsAtTheBlanksOfAShortCode) {
  try {
    parseCode("dv");
    FAIL();
  } catch (const WrongUsage& error) {
    EXPECT_STREQ(error.what(),
                 "CODE is \"dv\"; it takes four characters, any of which may be % and two "
                 "hexadecimal digits; with blanks at the end it is dv%20%20");
  }
}

}  // namespace
}  // namespace zel::tool
