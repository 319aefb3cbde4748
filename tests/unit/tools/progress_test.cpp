#include "tools/zel/progress.h"

#include <gtest/gtest.h>

#include "tests/unit/tools/captured_console.h"

namespace zel::tool {
namespace {

TEST(Progress, TellsDoneRateAndTimeLeft) {
  EXPECT_EQ(progressText({100, 250, 4}), "100 of 250 frames (40 %), 25.0 frames/s, 0:06 left");
}

TEST(Progress, LeavesOutWhatIsNotKnown) {
  EXPECT_EQ(progressText({0, 250, 1}), "0 of 250 frames (0 %)");
  EXPECT_EQ(progressText({100, std::nullopt, 4}), "100 frames, 25.0 frames/s");
  EXPECT_EQ(progressText({1, std::nullopt, 0}), "1 frame");
}

TEST(Progress, ATotalThatProvedWrongIsDropped) {
  EXPECT_EQ(progressText({300, 250, 4}), "300 frames, 75.0 frames/s");
  EXPECT_EQ(progressText({3, 0, 4}), "3 frames, 0.8 frames/s");
}

TEST(Progress, Durations) {
  EXPECT_EQ(durationText(-1), "0:00");
  EXPECT_EQ(durationText(59.6), "1:00");
  EXPECT_EQ(durationText(3723), "1:02:03");
}

TEST(Progress, RewritesOneLineAndTakesItAway) {
  CapturedConsole captured;
  captured.console.pretendTerminal(true);
  {
    Progress progress(captured.console, 2);
    progress.update(0);
    progress.update(1);  // too soon to be shown
  }
  EXPECT_EQ(captured.err(), "\r0 of 2 frames (0 %)\x1b[K\r\x1b[K");
}

TEST(Progress, IsSilentWithoutATerminal) {
  CapturedConsole captured;
  {
    Progress progress(captured.console, 2);
    progress.update(1);
  }
  EXPECT_EQ(captured.err(), "");
}

}  // namespace
}  // namespace zel::tool
