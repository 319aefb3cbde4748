#include "zel/mux/engine/audio/sustaining_rate.h"

#include <gtest/gtest.h>

#include <vector>

namespace zel::mux {
namespace {

constexpr double kPeriod = 540'000;  // 20 ms: a byte a frame is 400 bit/s

TEST(SustainingRate, OfOneSizeIsNeverAboveTheAverage) {
  for (const int64_t buffer : {0, 1, 500, 501, 10'000}) {
    const double rate = sustaining_rate(std::vector<int32_t>(100, 500), kPeriod, buffer);
    EXPECT_TRUE(buffer < 500 || rate <= 500 * 400.0) << buffer;
  }
  // Nothing can stand in the buffer before: two frames have to come within one period.
  EXPECT_EQ(sustaining_rate(std::vector<int32_t>{500, 500}, kPeriod, 0), 1'000 * 400.0);
}

TEST(SustainingRate, ALoudPassageThatTheBufferHoldsCostsNothing) {
  std::vector<int32_t> sizes(100, 100);
  sizes[50] = sizes[51] = 800;
  EXPECT_LE(sustaining_rate(sizes, kPeriod, 1'600), 100 * 400.0);
}

TEST(SustainingRate, WhatTheBufferDoesntHoldComesWhileThePassageLasts) {
  std::vector<int32_t> sizes(100, 100);
  for (int i = 40; i < 51; ++i) sizes[static_cast<size_t>(i)] = 800;
  // 8,800 bytes, of which 2,800 were there, in ten periods.
  EXPECT_EQ(sustaining_rate(sizes, kPeriod, 2'800), 600 * 400.0);
}

TEST(SustainingRate, OfFewerThanTwoFramesIsUnknown) {
  EXPECT_EQ(sustaining_rate({}, kPeriod, 100), 0);
  EXPECT_EQ(sustaining_rate(std::vector<int32_t>{500}, kPeriod, 100), 0);
  EXPECT_EQ(sustaining_rate(std::vector<int32_t>{500, 500}, 0, 100), 0);
}

}  // namespace
}  // namespace zel::mux
