#include "tools/zel/pattern.h"

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

TEST(Pattern, PlainTextIsFoundAnywhereInEitherCase) {
  EXPECT_TRUE(Pattern("x265").matches("X265Preset"));
  EXPECT_TRUE(Pattern("PRESET").matches("x265_compressor.preset"));
  EXPECT_FALSE(Pattern("x264").matches("X265Preset"));
}

TEST(Pattern, WildcardsMatchTheWhole) {
  EXPECT_TRUE(Pattern("aja.*").matches("aja.fifo.size"));
  EXPECT_FALSE(Pattern("fifo*").matches("aja.fifo.size"));
  EXPECT_TRUE(Pattern("X26?Preset").matches("x264preset"));
  EXPECT_TRUE(Pattern("X26[45]Preset").matches("X265Preset"));
  EXPECT_FALSE(Pattern("X26[45]Preset").matches("X262Preset"));
}

TEST(Pattern, TheEmptyOneMatchesAll) {
  EXPECT_TRUE(Pattern("").matches("anything"));
  EXPECT_TRUE(Pattern("").matches(""));
}

}  // namespace
}  // namespace zel::tool
