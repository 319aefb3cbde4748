#include "zel/mux/engine/clock/tsm_time.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/seed.h"

namespace zel::mux {
namespace {

__extension__ using Wide = unsigned __int128;

constexpr Wide kWrap = (Wide{1} << 33) * kFractionRange;

Wide wide(const tsm_time& time) {
  return ((Wide{time.high()} << 31) + time.low()) * kFractionRange + time.fraction();
}

tsm_time narrow(Wide value) {
  value %= kWrap;
  const auto base = static_cast<uint64_t>(value / kFractionRange);
  return {static_cast<uint32_t>(base >> 31), static_cast<uint32_t>(base & (kLowRange - 1)),
          static_cast<uint32_t>(value % kFractionRange)};
}

/// Times near each carry and borrow as often as anywhere.
tsm_time random_time(std::mt19937_64& random) {
  const auto word = [&](uint32_t range) {
    const auto near = static_cast<uint32_t>(random() % 3);
    switch (random() % 3) {
      case 0:
        return near;
      case 1:
        return range - 1 - near;
      default:
        return static_cast<uint32_t>(random() % range);
    }
  };
  return {static_cast<uint32_t>(random() % 4), word(kLowRange), word(kFractionRange)};
}

TEST(TsmTime, SumsAndDifferencesAreThoseOfWideIntegers) {
  std::mt19937_64 random(zel::test::testSeed());
  for (int i = 0; i < 200000; ++i) {
    const tsm_time a = random_time(random);
    const tsm_time b = random_time(random);
    ASSERT_EQ(add(a, b), narrow(wide(a) + wide(b)));
    ASSERT_EQ(subtract(a, b), narrow(wide(a) + kWrap - wide(b)));
    ASSERT_EQ(add(subtract(a, b), b), a);
  }
}

TEST(TsmTime, ComparesCircularly) {
  std::mt19937_64 random(zel::test::testSeed());
  for (int i = 0; i < 200000; ++i) {
    const tsm_time a = random_time(random);
    const tsm_time b = random_time(random);
    const Wide ahead = (wide(a) + kWrap - wide(b)) % kWrap;
    const int expected = ahead == 0 ? 0 : ahead >= kWrap / 2 ? -1 : 1;
    ASSERT_EQ(compare(a, b), expected);
    ASSERT_EQ(is_before(a, b), expected < 0);
  }
}

TEST(TsmTime, ATimeMoreThanHalfTheRangeAheadCountsAsBehind) {
  const tsm_time start{};
  EXPECT_EQ(compare({1, kLowRange - 1, kFractionRange - 1}, start), 1);
  EXPECT_EQ(compare({2, 0, 0}, start), -1);
  EXPECT_EQ(compare({3, kLowRange - 1, kFractionRange - 1}, start), -1);
}

TEST(TsmTime, TheClockWrapsWithThe33BitTimeStamps) {
  const tsm_time last{3, kLowRange - 1, kFractionRange - 1};
  const tsm_time first = add(last, {0, 0, 1});
  EXPECT_EQ(first, tsm_time{});
  EXPECT_EQ(compare(first, last), 1);
  EXPECT_EQ(compare(last, first), -1);
  EXPECT_EQ(add_ticks(last, 300), (tsm_time{0, 0, kFractionRange - 1}));
}

TEST(TsmTime, WholeTicksSurviveTheWayThroughDoubles) {
  std::mt19937_64 random(zel::test::testSeed());
  for (int i = 0; i < 100000; ++i) {
    const auto ticks = static_cast<double>(random() % 2576980377600u);
    const tsm_time time = time_from_ticks(ticks);
    ASSERT_LT(time.high(), 4u);
    ASSERT_LT(time.low(), kLowRange);
    ASSERT_LT(time.fraction(), kFractionRange);
    // A double of 41 bits has 12 bits below the tick; base / 300 loses some of them.
    ASSERT_NEAR(ticks_of(time), ticks, 0.07) << static_cast<uint64_t>(ticks);
  }
}

TEST(TsmTime, ConvertsWhatTheConstantsSay) {
  EXPECT_EQ(time_from_ticks(0), tsm_time{});
  EXPECT_EQ(time_from_ticks(1), (tsm_time{0, 0, 1048576}));
  EXPECT_EQ(time_from_ticks(300), (tsm_time{0, 1, 0}));
  EXPECT_EQ(time_from_ticks(300.0 * 2147483648.0), (tsm_time{1, 0, 0}));
  EXPECT_EQ(time_from_ticks(timeWrap - 300), (tsm_time{3, kLowRange - 1, 0}));
  EXPECT_EQ(time_from_ticks(timeWrap), tsm_time{});
  EXPECT_EQ(time_from_ticks(-300), (tsm_time{3, kLowRange - 1, 0}));
  EXPECT_EQ(time_from_ticks(kPacketBitTicks / 15e6).low(), 9u);
}

TEST(TsmTime, TheLastFractionsCarryInsteadOfOverflowing) {
  const tsm_time time = time_from_ticks(std::nextafter(300.0, 0.0));
  EXPECT_EQ(time, (tsm_time{0, 1, 0}));
}

TEST(TsmTime, WhatIsNoNumberIsTheStart) {
  EXPECT_EQ(time_from_ticks(std::nan("")), tsm_time{});
  EXPECT_EQ(time_from_ticks(INFINITY), tsm_time{});
}

TEST(TsmTime, DifferenceInTicksDropsTheHighWord) {
  EXPECT_DOUBLE_EQ(difference_ticks({0, 5, 1048576}, {0, 3, 0}), 601.0);
  EXPECT_DOUBLE_EQ(difference_ticks({0, 1, 0}, {3, kLowRange - 1, 0}), 600.0);
  EXPECT_DOUBLE_EQ(difference_ticks({1, 7, 0}, {0, 7, 0}), 0.0);
}

TEST(TsmTime, NormalisesByWholeWraps) {
  EXPECT_EQ(normalise(-1), timeWrap - 1);
  EXPECT_EQ(normalise(timeWrap), 0);
  EXPECT_EQ(normalise(3 * timeWrap + 7), 7);
  EXPECT_EQ(normalise(-2 * timeWrap - 7), timeWrap - 7);
  EXPECT_LT(normalise(-1e-9), timeWrap);
}

TEST(TsmTime, SignedDifferencesTakeTheShortWayRound) {
  EXPECT_EQ(signed_difference(5, timeWrap - 5), 10);
  EXPECT_EQ(signed_difference(timeWrap - 5, 5), -10);
  EXPECT_EQ(signed_difference(100, 40), 60);
}

TEST(TsmTime, ADayOfPacketsLosesNothing) {
  const tsm_time step = time_from_ticks(kPacketBitTicks / 38785317.0);
  tsm_time now{};
  Wide sum = 0;
  for (int i = 0; i < 3000000; ++i) {
    now = add(now, step);
    sum += wide(step);
  }
  EXPECT_EQ(now, narrow(sum));
}

}  // namespace
}  // namespace zel::mux
