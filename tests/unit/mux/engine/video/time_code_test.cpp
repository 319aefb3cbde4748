#include "zel/mux/engine/video/time_code.h"

#include <gtest/gtest.h>

namespace zel::mux {
namespace {

video_time_code code(int hours, int minutes, int seconds, int frames, bool dropFrame = false) {
  return {static_cast<uint8_t>(hours),
          static_cast<uint8_t>(minutes),
          static_cast<uint8_t>(seconds),
          static_cast<uint8_t>(frames),
          dropFrame,
          true};
}

bool same(const video_time_code& a, const video_time_code& b) {
  return a.hours == b.hours && a.minutes == b.minutes && a.seconds == b.seconds &&
         a.frames == b.frames && a.dropFrame == b.dropFrame;
}

TEST(TimeCode, MovesOnAroundMidnight) {
  EXPECT_TRUE(same(advanced(code(23, 59, 59, 24), 1, 25), code(0, 0, 0, 0)));
  EXPECT_TRUE(same(advanced(code(0, 0, 0, 0), -1, 25), code(23, 59, 59, 24)));
  EXPECT_TRUE(same(advanced(code(1, 2, 3, 4), 25 * 60, 25), code(1, 3, 3, 4)));
}

TEST(TimeCode, DropFrameLeavesNumbersOutButForEveryTenthMinute) {
  EXPECT_TRUE(same(advanced(code(0, 0, 59, 29, true), 1, 30), code(0, 1, 0, 2, true)));
  EXPECT_TRUE(same(advanced(code(0, 9, 59, 29, true), 1, 30), code(0, 10, 0, 0, true)));
  EXPECT_TRUE(same(advanced(code(0, 1, 0, 2, true), -1, 30), code(0, 0, 59, 29, true)));
  EXPECT_TRUE(same(advanced(code(0, 0, 59, 59, true), 1, 60), code(0, 1, 0, 4, true)));
  EXPECT_TRUE(same(advanced(code(0, 0, 0, 0, true), 17982, 30), code(0, 10, 0, 0, true)));
  EXPECT_TRUE(same(advanced(code(0, 0, 59, 24, true), 1, 25), code(0, 1, 0, 0, true)))
      << "a rate without drop frame";
}

// One step at a time reaches every number of the day, and no number that is left out.
TEST(TimeCode, ADayOfDropFrameHasAllItsFrames) {
  video_time_code now = code(0, 0, 0, 0, true);
  int frames = 0;
  do {
    now = advanced(now, 1, 30);
    ASSERT_FALSE(now.seconds == 0 && now.frames < 2 && now.minutes % 10 != 0);
    ++frames;
  } while (!same(now, code(0, 0, 0, 0, true)));
  EXPECT_EQ(frames, 24 * 6 * 17982);
}

TEST(TimeCode, UnknownStaysUnknown) {
  video_time_code unknown;
  EXPECT_FALSE(advanced(unknown, 5, 25).known);
  EXPECT_TRUE(same(advanced(code(1, 2, 3, 4), 5, 0), code(1, 2, 3, 4)));
}

TEST(TimeCode, ComparesByItsDigits) {
  Morvalen::Zel::tsm_time_code time{1, 0, 10, 20, 30, 12, 0};
  EXPECT_TRUE(is_before(code(10, 20, 30, 11), time));
  EXPECT_FALSE(is_before(code(10, 20, 30, 12), time));
  EXPECT_FALSE(is_before(code(11, 0, 0, 0), time));
  EXPECT_TRUE(is_before(code(10, 19, 59, 24), time));
  EXPECT_TRUE(is_before(code(10, 20, 29, 24), time));
}

}  // namespace
}  // namespace zel::mux
