#include "zel/base/media_clock.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/seed.h"

namespace zel::base {

TEST(MediaClock, WrapsIntoTheRange) {
  EXPECT_EQ(wrap90k(0), 0);
  EXPECT_EQ(wrap90k(kWrap90k), 0);
  EXPECT_EQ(wrap90k(kWrap90k - 1), kWrap90k - 1);
  EXPECT_EQ(wrap90k(-1), kWrap90k - 1);
  EXPECT_EQ(wrap90k(INT64_MIN), 0);
  EXPECT_EQ(wrap27M(0), 0);
  EXPECT_EQ(wrap27M(2576980377600), 0);
  EXPECT_EQ(wrap27M(-1), 2576980377599);
  EXPECT_EQ(wrap(-7, 7), 0);
  EXPECT_EQ(wrap(INT64_MIN, 10), 2);
}

TEST(MediaClock, DifferencesGoTheShortWayRound) {
  EXPECT_EQ(difference90k(5, 3), 2);
  EXPECT_EQ(difference90k(3, 5), -2);
  EXPECT_EQ(difference90k(1, kWrap90k - 1), 2);
  EXPECT_EQ(difference90k(kWrap90k - 1, 1), -2);
  EXPECT_EQ(difference90k(kWrap90k / 2, 0), -kWrap90k / 2);
  EXPECT_EQ(difference90k(kWrap90k / 2 - 1, 0), kWrap90k / 2 - 1);
  EXPECT_EQ(difference27M(0, kWrap27M - 300), 300);
  EXPECT_EQ(difference27M(kWrap27M / 2, 0), -kWrap27M / 2);
}

TEST(MediaClock, UnwrapFindsTheCountNearTheReference) {
  std::mt19937_64 random(test::testSeed());
  for (int i = 0; i < 20000; ++i) {
    const auto reference = static_cast<int64_t>(random() >> 20) - (int64_t{1} << 43);
    const auto apart = static_cast<int64_t>(random() % kWrap90k) - kWrap90k / 2;
    ASSERT_EQ(unwrap90k(wrap90k(reference + apart), reference), reference + apart);
    const auto apart27 = static_cast<int64_t>(random() % kWrap27M) - kWrap27M / 2;
    ASSERT_EQ(unwrap27M(wrap27M(reference + apart27), reference), reference + apart27);
  }
}

TEST(MediaClock, RescalesExactly) {
  EXPECT_EQ(rescaleFloor(1, 27000000, 90000), 300);
  EXPECT_EQ(rescaleFloor(7, 1, 2), 3);
  EXPECT_EQ(rescaleFloor(-7, 1, 2), -4);
  EXPECT_EQ(rescaleFloor(-8, 1, 2), -4);
  EXPECT_EQ(rescaleNearest(7, 1, 2), 4);
  EXPECT_EQ(rescaleNearest(-7, 1, 2), -3);
  EXPECT_EQ(rescaleNearest(-8, 1, 3), -3);
  EXPECT_EQ(rescaleNearest(-7, 1, 3), -2);
  // Where 64 bits in between wouldn't do: a hundred years of 27 MHz in 90 kHz, and back.
  const int64_t century = kClock27M * 86400 * 36525;
  EXPECT_EQ(rescaleFloor(century, kClock90k, kClock27M), century / 300);
  EXPECT_EQ(rescaleFloor(INT64_MAX, INT64_MAX, INT64_MAX), INT64_MAX);
  EXPECT_EQ(rescaleFloor(INT64_MIN, INT64_MAX, INT64_MAX), INT64_MIN);
  EXPECT_EQ(rescaleNearest(INT64_MAX, kClock27M, kClock27M), INT64_MAX);
  EXPECT_EQ(rescaleNearest(INT64_MIN, kClock27M, kClock27M), INT64_MIN);
}

TEST(MediaClock, NearestIsWithinHalfAStep) {
  std::mt19937_64 random(test::testSeed());
  for (int i = 0; i < 20000; ++i) {
    const auto value = static_cast<int64_t>(random() % 2000001) - 1000000;
    const auto numerator = static_cast<int64_t>(random() % 1001);
    const auto denominator = 1 + static_cast<int64_t>(random() % 1000);
    const int64_t product = value * numerator;
    const int64_t twiceError =
        2 * (rescaleNearest(value, numerator, denominator) * denominator - product);
    ASSERT_LE(twiceError, denominator);
    ASSERT_GT(twiceError, -denominator);
    const int64_t below = product - rescaleFloor(value, numerator, denominator) * denominator;
    ASSERT_GE(below, 0);
    ASSERT_LT(below, denominator);
  }
}

TEST(MediaClock, PcrFieldsComeBack) {
  EXPECT_EQ(pcrFields(0), (PcrFields{0, 0}));
  EXPECT_EQ(pcrFields(299), (PcrFields{0, 299}));
  EXPECT_EQ(pcrFields(300), (PcrFields{1, 0}));
  EXPECT_EQ(pcrFields(kWrap27M - 1), (PcrFields{kWrap90k - 1, 299}));
  EXPECT_EQ(pcrFields(kWrap27M), (PcrFields{0, 0}));
  EXPECT_EQ(pcrFields(-1), (PcrFields{kWrap90k - 1, 299}));
  for (int64_t ticks = 0; ticks < kWrap27M; ticks += 1234567891) {
    ASSERT_EQ(pcrTicks(pcrFields(ticks)), ticks);
  }
}

static_assert(difference90k(0, kWrap90k - 1) == 1);

}  // namespace zel::base
