#include "zel/dnxhd/rate_control/rd_opt_controller.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "zel/dnxhd/result_words.h"

namespace zel::dnxhd {
namespace {

constexpr uint16_t kUntouched = 0xBEEF;

struct Outcome {
  int32_t result;
  std::vector<uint16_t> levels;
  std::vector<uint16_t> bits;

  uint32_t sum() const { return std::accumulate(bits.begin(), bits.end(), 0u); }
};

// One row of macroblocks, searched by one job.
Outcome searchRow(const std::vector<uint16_t>& rates, uint32_t target,
                  const std::vector<uint8_t>& ranges = {}) {
  const size_t count = rates.size() / kMaxLevels;
  Outcome outcome{0, std::vector<uint16_t>(count), std::vector<uint16_t>(count)};
  RDOptController controller;
  controller.SetBudget(target, static_cast<uint32_t>(count), 1, static_cast<uint16_t>(count));
  EXPECT_EQ(controller.SetQuantisers(kMaxLevels, kLevelSteps), kSuccessful);
  EXPECT_EQ(controller.SetRates(rates.data(), 1), kSuccessful);
  EXPECT_EQ(controller.SetDistortionType(1), kSuccessful);
  if (!ranges.empty()) {
    EXPECT_EQ(controller.SetRanges(ranges.data()), kSuccessful);
  }
  outcome.result = controller.Run(outcome.levels.data(), outcome.bits.data(), 0, 0);
  return outcome;
}

// Rates that fall from level to level, as those of pictures do.
std::vector<uint16_t> fallingRates(size_t count, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<uint16_t> rates;
  for (size_t i = 0; i < count; ++i) {
    double rate = 200 + static_cast<double>(random() % 3000);
    for (size_t level = 0; level < kMaxLevels; ++level) {
      rates.push_back(static_cast<uint16_t>(rate));
      rate *= 0.4 + static_cast<double>(random() % 60) / 100;
    }
  }
  return rates;
}

uint32_t sumAt(const std::vector<uint16_t>& rates, size_t level) {
  uint32_t sum = 0;
  for (size_t i = level; i < rates.size(); i += kMaxLevels) sum += rates[i];
  return sum;
}

TEST(RDOptController, APictureThatFitsAtLevel0TakesIt) {
  const std::vector<uint16_t> rates = fallingRates(50, test::testSeed());
  const Outcome outcome = searchRow(rates, sumAt(rates, 0) + 1);
  EXPECT_EQ(outcome.result, kSuccessful);
  EXPECT_EQ(outcome.levels, std::vector<uint16_t>(50, 0));
  EXPECT_EQ(outcome.sum(), sumAt(rates, 0));
}

TEST(RDOptController, OfLevelsThatCostTheSameTheLowestWins) {
  const std::vector<uint16_t> rates(kMaxLevels * 20, 100);
  // Both ends cost the same, so that there is no slope to follow.
  const Outcome exact = searchRow(rates, 2000);
  EXPECT_EQ(exact.result, kSuccessful);
  EXPECT_EQ(exact.levels, std::vector<uint16_t>(20, 0));
  const Outcome over = searchRow(rates, 1999);
  EXPECT_EQ(over.result, kErrorInBitCost);
  EXPECT_EQ(over.levels, std::vector<uint16_t>(20, 0));
}

TEST(RDOptController, ABudgetThatIsMetExactlyIsUsed) {
  // Two levels count: 1000 and 400 bits; of ten macroblocks all have to go up together.
  std::vector<uint16_t> rates;
  for (size_t i = 0; i < 10; ++i) {
    rates.insert(rates.end(), {1000, 400, 400, 400, 400, 400, 400, 400});
  }
  const Outcome outcome = searchRow(rates, 4000);
  EXPECT_EQ(outcome.result, kSuccessful);
  EXPECT_EQ(outcome.levels, std::vector<uint16_t>(10, 1));
  EXPECT_EQ(outcome.sum(), 4000u);
}

// With so few bits no choice but the exact one is within the tolerance. Meeting the budget is no
// reason to stop, and none to lose what meets it: the low end has moved there.
TEST(RDOptController, ABudgetThatAChoiceMeetsToTheBitKeepsIt) {
  size_t between = 0;
  for (uint64_t round = 0; round < 200; ++round) {
    const std::vector<uint16_t> rates = fallingRates(3, test::testSeed() + 10 + round);
    const uint32_t finest = sumAt(rates, 0);
    const uint32_t coarsest = sumAt(rates, kMaxLevels - 1);
    ASSERT_LT(finest, 10000u);
    const Outcome first = searchRow(rates, (finest + coarsest) / 2);
    ASSERT_EQ(first.result, kSuccessful);
    between += first.sum() > coarsest ? 1 : 0;
    const Outcome exact = searchRow(rates, first.sum());
    EXPECT_EQ(exact.result, kSuccessful);
    EXPECT_EQ(exact.levels, first.levels);
    const Outcome less = searchRow(rates, first.sum() - 1);
    EXPECT_LT(less.sum(), first.sum());
    EXPECT_EQ(less.result, first.sum() > coarsest ? kSuccessful : kErrorInBitCost);
  }
  EXPECT_GT(between, 100u);
}

TEST(RDOptController, FillsTheBudgetAndKeepsIt) {
  const std::vector<uint16_t> rates = fallingRates(4000, test::testSeed() + 1);
  for (const double share : {0.9, 0.5, 0.3, 0.1}) {
    const auto target =
        static_cast<uint32_t>(share * sumAt(rates, 0) + (1 - share) * sumAt(rates, kMaxLevels - 1));
    const Outcome outcome = searchRow(rates, target);
    EXPECT_EQ(outcome.result, kSuccessful);
    EXPECT_LE(outcome.sum(), target);
    EXPECT_GT(outcome.sum(), target - target / 500);
  }
}

TEST(RDOptController, WhatFitsAtNoLevelIsToldAndWrittenAtTheCoarsest) {
  std::vector<uint16_t> rates;
  for (size_t i = 0; i < 30; ++i) {
    rates.insert(rates.end(), {800, 700, 600, 500, 400, 300, 200, 100});
  }
  const Outcome outcome = searchRow(rates, 2999);
  EXPECT_EQ(outcome.result, kErrorInBitCost);
  EXPECT_EQ(outcome.levels, std::vector<uint16_t>(30, 7));
  EXPECT_EQ(outcome.sum(), 3000u);
}

TEST(RDOptController, RangesLimitTheChoice) {
  const std::vector<uint16_t> rates = fallingRates(100, test::testSeed() + 2);
  std::vector<uint8_t> ranges;
  for (size_t i = 0; i < 100; ++i) {
    ranges.insert(ranges.end(), {static_cast<uint8_t>(i % 5), static_cast<uint8_t>(i % 5 + 2)});
  }
  for (const uint32_t target : {0u, sumAt(rates, 2), sumAt(rates, 0) * 2}) {
    const Outcome outcome = searchRow(rates, target, ranges);
    for (size_t i = 0; i < 100; ++i) {
      EXPECT_GE(outcome.levels[i], ranges[2 * i]);
      EXPECT_LE(outcome.levels[i], ranges[2 * i + 1]);
    }
    EXPECT_EQ(outcome.result, outcome.sum() > target ? kErrorInBitCost : kSuccessful);
  }
}

TEST(RDOptController, AnEmptyRangeRepeatsTheLevelBefore) {
  const std::vector<uint16_t> rates = fallingRates(3, test::testSeed() + 3);
  const Outcome outcome = searchRow(rates, 60000, {5, 5, 4, 3, 2, 2});
  EXPECT_EQ(outcome.levels, (std::vector<uint16_t>{5, 5, 2}));
  EXPECT_EQ(outcome.bits[1], rates[kMaxLevels + 5]);
}

TEST(RDOptController, SetUpIsChecked) {
  const std::vector<uint16_t> rates(kMaxLevels * 16, 10);
  std::vector<uint16_t> levels(16, kUntouched);
  std::vector<uint16_t> bits(16, kUntouched);
  RDOptController controller;
  controller.SetBudget(1000, 16, 1, 16);
  EXPECT_EQ(controller.Run(levels.data(), bits.data(), 0, 0), kErrorNoInitialization);
  EXPECT_EQ(controller.SetDistortionType(1), kErrorInitializationFailed);
  EXPECT_EQ(controller.SetQuantisers(8, nullptr), kErrorNoInitialization);
  EXPECT_EQ(controller.SetQuantisers(0, kLevelSteps), kErrorInvalidQuantLevel);
  EXPECT_EQ(controller.SetQuantisers(9, kLevelSteps), kErrorInvalidQuantLevel);
  EXPECT_EQ(controller.SetQuantisers(8, kLevelSteps), kSuccessful);
  EXPECT_EQ(controller.SetRates(nullptr, 1), kErrorNoInitialization);
  EXPECT_EQ(controller.SetRates(rates.data(), 3), kErrorInvalidMbStride);
  EXPECT_EQ(controller.SetRates(rates.data(), 0), kErrorInvalidMbStride);
  EXPECT_EQ(controller.SetRates(rates.data(), 2), kSuccessful);
  EXPECT_EQ(controller.SetRanges(nullptr), kErrorNoInitialization);
  EXPECT_EQ(controller.SetDistortionType(1), kSuccessful);
  EXPECT_EQ(controller.Run(nullptr, bits.data(), 0, 0), kErrorNoInitialization);
  EXPECT_EQ(controller.Run(levels.data(), nullptr, 0, 0), kErrorNoInitialization);
  EXPECT_EQ(controller.Run(levels.data(), bits.data(), 0, 2), kErrorInvalidMbStride);
  EXPECT_EQ(controller.SetDistortionType(2), kErrorDistortionTypeNotSupported);
  EXPECT_EQ(controller.Run(levels.data(), bits.data(), 0, 0), kErrorInitializationFailed);
  EXPECT_EQ(levels, std::vector<uint16_t>(16, kUntouched));
  EXPECT_EQ(bits, std::vector<uint16_t>(16, kUntouched));
}

TEST(RDOptController, JobsWriteTheirOwnSharesAndAllOfThePicture) {
  constexpr uint16_t kRows = 20;
  constexpr uint16_t kCols = 90;
  const std::vector<uint16_t> rates = fallingRates(kRows * kCols, test::testSeed() + 4);
  for (const uint32_t jobs : {1u, 2u, 4u, 8u}) {
    std::vector<uint32_t> writers(kRows * kCols);
    for (uint32_t job = 0; job < jobs; ++job) {
      std::vector<uint16_t> levels(kRows * kCols, kUntouched);
      std::vector<uint16_t> bits(kRows * kCols, kUntouched);
      RDOptController controller;
      controller.SetBudget(sumAt(rates, 3) / jobs, kRows * kCols / jobs, kRows, kCols);
      ASSERT_EQ(controller.SetQuantisers(kMaxLevels, kLevelSteps), kSuccessful);
      ASSERT_EQ(controller.SetRates(rates.data(), jobs), kSuccessful);
      ASSERT_EQ(controller.SetDistortionType(1), kSuccessful);
      controller.Run(levels.data(), bits.data(), 0, static_cast<int32_t>(job));
      for (size_t i = 0; i < writers.size(); ++i) {
        EXPECT_EQ(levels[i] == kUntouched, bits[i] == kUntouched);
        if (levels[i] == kUntouched) continue;
        ++writers[i];
        EXPECT_EQ(bits[i], rates[kMaxLevels * i + levels[i]]);
      }
    }
    EXPECT_EQ(writers, std::vector<uint32_t>(kRows * kCols, 1)) << jobs;
  }
}

}  // namespace
}  // namespace zel::dnxhd
