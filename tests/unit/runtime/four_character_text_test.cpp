#include "zel/runtime/four_character_text.h"

#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/seed.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {
namespace {

std::string textOf(uint32_t code) {
  char text[kFourCharacterTextSize];
  std::fill(std::begin(text), std::end(text), 'x');
  FourCharacterText(code, text);
  return text;
}

TEST(FourCharacterText, WritesGraphicBytesAsTheyAre) {
  EXPECT_EQ(textOf(0x6D703476), "mp4v");
  EXPECT_EQ(textOf(0x6C693C3E), "li<>");
  EXPECT_EQ(textOf(0x217E2121), "!~!!");
}

TEST(FourCharacterText, EscapesTheRest) {
  EXPECT_EQ(textOf(0), "%00%00%00%00");
  EXPECT_EQ(textOf(0x64762020), "dv%20%20");
  EXPECT_EQ(textOf(0x2509FF7F), "%25%09%FF%7F");
  EXPECT_EQ(textOf(0xABCDEF80), "%AB%CD%EF%80");
}

TEST(FourCharacterText, FillsTheBufferWithNul) {
  char text[kFourCharacterTextSize];
  std::fill(std::begin(text), std::end(text), 'x');
  FourCharacterText(0x6D703476, text);
  EXPECT_EQ(std::string(text, sizeof(text)), std::string("mp4v\0\0\0\0\0\0\0\0\0", 13));
}

TEST(FourCharacterText, ReadsBackToTheSameCode) {
  std::mt19937_64 random(zel::test::testSeed());
  for (int i = 0; i < 2000; ++i) {
    const auto code = static_cast<uint32_t>(random());
    EXPECT_EQ(String(textOf(code).c_str())->ToFour(), code);
  }
  for (uint32_t byte = 0; byte < 256; ++byte) {
    const uint32_t code = byte << 24 | byte << 16 | byte << 8 | byte;
    EXPECT_EQ(String(textOf(code).c_str())->ToFour(), code);
  }
}

}  // namespace
}  // namespace Morvalen::Zel
