#include "tools/zel/dnxhd/frame_range.h"

#include <limits>

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

constexpr uint64_t kAll = std::numeric_limits<uint64_t>::max();

TEST(FrameRange, EitherEndMayBeLeftOut) {
  const auto range = parseFrameRange("100:200");
  ASSERT_TRUE(range.has_value());
  EXPECT_EQ(range->begin, 100u);
  EXPECT_EQ(range->end, 200u);
  EXPECT_EQ(range->count(), 100u);
  EXPECT_EQ(parseFrameRange("7:")->begin, 7u);
  EXPECT_EQ(parseFrameRange("7:")->end, kAll);
  EXPECT_EQ(parseFrameRange(":7")->begin, 0u);
  EXPECT_EQ(parseFrameRange(":7")->end, 7u);
}

TEST(FrameRange, OtherTextIsNone) {
  for (const char* text :
       {"", ":", "5", "5:5", "6:5", "-1:5", "a:5", "5:b", "1:2:3", " 1:2", "1.5:2", ":0"})
    EXPECT_FALSE(parseFrameRange(text).has_value()) << text;
}

TEST(FrameRange, CountsWhatAnInputHasOfIt) {
  const FrameRange range{10, 20};
  EXPECT_EQ(range.countOf(0), 0u);
  EXPECT_EQ(range.countOf(10), 0u);
  EXPECT_EQ(range.countOf(15), 5u);
  EXPECT_EQ(range.countOf(100), 10u);
  EXPECT_EQ(FrameRange{}.countOf(9), 9u);
}

}  // namespace
}  // namespace zel::tool
