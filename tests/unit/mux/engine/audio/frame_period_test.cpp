#include "zel/mux/engine/audio/frame_period.h"

#include <gtest/gtest.h>

namespace zel::mux {
namespace {

TEST(AudioFramePeriod, GoesByTheRate) {
  EXPECT_DOUBLE_EQ(audio_frame_period(1536, 48000), 864000);
  EXPECT_NEAR(audio_frame_period(1536, 44100), 940408.163, 0.001);
  EXPECT_DOUBLE_EQ(audio_frame_period(1536, 32000), 1296000);
  EXPECT_NEAR(audio_frame_period(1152, 44100), 705306.122, 0.001);
  EXPECT_NEAR(audio_frame_period(384, 44100), 235102.041, 0.001);
  EXPECT_NEAR(audio_frame_period(1536, 22050), 1880816.327, 0.001);
  EXPECT_EQ(audio_frame_period(1536, 0), 0);
}

}  // namespace
}  // namespace zel::mux
