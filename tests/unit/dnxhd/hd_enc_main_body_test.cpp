#include "zel/dnxhd/rate_control/hd_enc_main_body.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "zel/dnxhd/result_words.h"

namespace zel::dnxhd {
namespace {

constexpr uint32_t kCols = 12;
constexpr uint32_t kRows = 6;
constexpr size_t kCount = size_t{kCols} * kRows;

// A picture of random macroblocks, and true and estimated tables of it.
class Picture {
 public:
  // Coefficients of magnitudes up to 2^bits; about one in `oneIn` isn't 0.
  Picture(int bits, uint32_t oneIn, double estimate, uint64_t seed = 0)
      : coefficients(kCount * 8 * 64),
        dcValues(kCount * 3),
        trueRates(kCount * kMaxLevels),
        rates(kCount * kMaxLevels),
        ranges(kCount * 2),
        levels(kCount),
        chosenBits(kCount),
        modelA(kCount),
        modelB(kCount),
        quantOut(kCount),
        rateOut(kCount),
        skip(kCount),
        cost(*FindEntry(1237)) {
    std::mt19937_64 random(test::testSeed() + seed);
    for (size_t i = 0; i < coefficients.size(); ++i) {
      if (random() % oneIn != 0) continue;
      const int magnitude = static_cast<int>(random() % (uint64_t{1} << bits));
      coefficients[i] = static_cast<int16_t>((random() & 1) != 0 ? -magnitude : magnitude);
    }
    for (size_t i = 0; i < kCount; ++i) {
      dcValues[3 * i] = static_cast<uint16_t>(coefficients[512 * i + 192]);
      dcValues[3 * i + 1] = static_cast<uint16_t>(coefficients[512 * i + 320]);
      dcValues[3 * i + 2] = static_cast<uint16_t>(coefficients[512 * i + 448]);
    }
    parameters.plane = {coefficients.data(), dcValues.data(), kCols, kMode422};
    parameters.cost = &cost;
    parameters.mbRows = kRows;
    parameters.mbCols = kCols;
    parameters.macroblockCount = kCount;
    parameters.rateTable = rates.data();
    parameters.levelRange = ranges.data();
    parameters.chosenLevel = levels.data();
    parameters.chosenBits = chosenBits.data();
    parameters.model = {modelA.data(), modelB.data(), skip.data(), quantOut.data(), rateOut.data()};
    parameters.longestStep = 2047;
    for (size_t i = 0; i < kCount; ++i) {
      for (uint32_t level = 0; level < kMaxLevels; ++level) {
        trueRates[kMaxLevels * i + level] = static_cast<uint16_t>(bitsAt(i, level));
        rates[kMaxLevels * i + level] =
            static_cast<uint16_t>(estimate * trueRates[kMaxLevels * i + level]);
      }
    }
  }

  uint32_t bitsAt(size_t index, uint32_t level) const {
    uint32_t bits = 0;
    MacroblockBits(parameters.plane, cost).AtLevels(index, level, level, &bits);
    return bits;
  }

  uint32_t sumAt(uint32_t level) const {
    uint32_t sum = 0;
    for (size_t i = 0; i < kCount; ++i) sum += bitsAt(i, level);
    return sum;
  }

  CodecJob run(int32_t index = 0) {
    CodecJob job;
    job.index = index;
    job.parameters = &parameters;
    HDEncMainBody body;
    EXPECT_EQ(body.Execute(&job), job.error);
    return job;
  }

  void expectTrueBits() const {
    for (size_t i = 0; i < kCount; ++i) EXPECT_EQ(chosenBits[i], bitsAt(i, levels[i])) << i;
  }
  uint32_t chosenSum() const { return std::accumulate(chosenBits.begin(), chosenBits.end(), 0u); }

  std::vector<int16_t> coefficients;
  std::vector<uint16_t> dcValues;
  std::vector<uint16_t> trueRates;
  std::vector<uint16_t> rates;
  std::vector<uint8_t> ranges;
  std::vector<uint16_t> levels;
  std::vector<uint16_t> chosenBits;
  std::vector<double> modelA;
  std::vector<double> modelB;
  std::vector<double> quantOut;
  std::vector<double> rateOut;
  std::vector<uint8_t> skip;
  BitCost cost;
  SearchParameters parameters;
};

TEST(HDEncMainBody, AJobWithoutParametersFails) {
  CodecJob job;
  HDEncMainBody body;
  EXPECT_EQ(body.Execute(&job), kErrorNoInitialization);
  EXPECT_EQ(job.status, kJobFailed);
  EXPECT_STREQ(job.text, "HDCODEC ERROR No Initialization");
}

TEST(HDEncMainBody, EstimatesGiveWayToTrueBits) {
  for (const double estimate : {0.8, 1.0, 1.3}) {
    Picture picture(8, 3, estimate);
    picture.parameters.targetBits = picture.sumAt(3);
    const CodecJob job = picture.run();
    EXPECT_EQ(job.error, kSuccessful);
    EXPECT_EQ(job.status, kJobDone);
    picture.expectTrueBits();
    EXPECT_LE(picture.chosenSum(), picture.parameters.targetBits);
    EXPECT_GT(picture.chosenSum(), picture.parameters.targetBits * 9 / 10);
    // Only the levels around the first choice were counted, and some above where that was too low.
    for (size_t i = 0; i < kCount; ++i) {
      EXPECT_LE(picture.ranges[2 * i], picture.levels[i]);
      EXPECT_GE(picture.ranges[2 * i + 1], picture.levels[i]);
      EXPECT_LE(picture.ranges[2 * i + 1] - picture.ranges[2 * i], estimate < 1 ? 4 : 2);
    }
  }
}

TEST(HDEncMainBody, ExactTablesComeToTheSameAsCountingAnew) {
  Picture counted(8, 3, 1.0);
  Picture exact(8, 3, 1.0);
  exact.parameters.ratesAreExact = true;
  counted.parameters.targetBits = exact.parameters.targetBits = counted.sumAt(2);
  counted.run();
  exact.run();
  EXPECT_EQ(counted.levels, exact.levels);
  EXPECT_EQ(counted.chosenBits, exact.chosenBits);
  EXPECT_EQ(counted.rates, exact.rates);
}

TEST(HDEncMainBody, RangesMoveUpWhenTheTrueBitsAreTooMany) {
  // The first search takes level 1 or 2 for enough; level 3 it has to be.
  Picture picture(8, 3, 0.6);
  picture.parameters.targetBits = picture.sumAt(3) + 1;
  const CodecJob job = picture.run();
  EXPECT_EQ(job.error, kSuccessful);
  picture.expectTrueBits();
  EXPECT_LE(picture.chosenSum(), picture.parameters.targetBits);
  bool moved = false;
  for (size_t i = 0; i < kCount; ++i) {
    moved = moved || picture.ranges[2 * i + 1] - picture.ranges[2 * i] > 2;
    EXPECT_LE(picture.ranges[2 * i + 1], 7);
  }
  EXPECT_TRUE(moved);
}

TEST(HDEncMainBody, LevelsPass7WhereNothingElseFits) {
  // Large coefficients all over: not even level 7 fits.
  for (const uint32_t level : {8u, 9u}) {
    Picture picture(10, 2, 1.0);
    picture.parameters.targetBits = picture.sumAt(level);
    ASSERT_LT(picture.parameters.targetBits, picture.sumAt(level - 1));
    const CodecJob job = picture.run();
    EXPECT_EQ(job.error, kSuccessful);
    EXPECT_EQ(picture.levels, std::vector<uint16_t>(kCount, static_cast<uint16_t>(level)));
    picture.expectTrueBits();
  }
}

TEST(HDEncMainBody, WhatFitsNowhereFailsWithItsWord) {
  Picture picture(10, 2, 1.0);
  picture.parameters.targetBits = picture.sumAt(9) - 1;
  const CodecJob job = picture.run();
  EXPECT_EQ(job.error, kErrorInBitCost);
  EXPECT_EQ(job.status, kJobFailed);
  EXPECT_STREQ(job.text, "HDCODEC ERROR In BitCost Computation");
}

TEST(HDEncMainBody, AStrideWithoutAPatternFails) {
  Picture picture(8, 3, 1.0);
  picture.parameters.jobsPerField = 3;
  EXPECT_EQ(picture.run().error, kErrorInvalidMbStride);
}

TEST(HDEncMainBody, JobsKeepToTheirShares) {
  Picture whole(8, 3, 0.9);
  std::vector<uint16_t> untouched(kCount, 0xBEEF);
  for (int32_t job = 0; job < 4; ++job) {
    Picture picture(8, 3, 0.9);
    picture.parameters.jobsPerField = 4;
    picture.parameters.targetBits = picture.sumAt(3) / 4;
    picture.levels = untouched;
    const std::vector<uint16_t> before = picture.rates;
    EXPECT_EQ(picture.run(job).error, kSuccessful);
    for (uint32_t i = 0; i < kCount; ++i) {
      const uint32_t start = FindSharePattern(4)->Start(static_cast<uint32_t>(job), i / kCols);
      const bool mine = i % kCols % 4 == start % 4;
      EXPECT_EQ(picture.levels[i] != 0xBEEF, mine);
      if (!mine) {
        EXPECT_TRUE(std::equal(before.begin() + i * 8, before.begin() + i * 8 + 8,
                               picture.rates.begin() + i * 8));
      }
    }
  }
}

// ---- The model

uint32_t modelBudget(double bits) {
  return static_cast<uint32_t>(bits / 8 + 644 + kRows * 3.875 + kCount * 1.5 + 1);
}

uint32_t sumAtSteps(const Picture& picture) {
  uint32_t sum = 0;
  const MacroblockBits bits(picture.parameters.plane, picture.cost);
  for (size_t i = 0; i < kCount; ++i) sum += bits.AtStep(i, picture.levels[i]);
  return sum;
}

TEST(HDEncMainBodyModel, APictureThatFitsKeepsStep1) {
  Picture picture(8, 3, 1.0);
  picture.parameters.control = kModelControl;
  picture.parameters.pictureBytes = modelBudget(picture.sumAt(0)) + 1;
  EXPECT_EQ(picture.run().error, kSuccessful);
  EXPECT_EQ(picture.levels, std::vector<uint16_t>(kCount, 1));
  for (size_t i = 0; i < kCount; ++i) EXPECT_EQ(picture.chosenBits[i], picture.bitsAt(i, 0));
}

// How near the model comes depends on how well a power of the step fits the picture's rates; those
// of random coefficients it doesn't fit well.
TEST(HDEncMainBodyModel, StepsFollowTheBudget) {
  uint32_t before = UINT32_MAX;
  for (const double share : {0.8, 0.4, 0.2}) {
    Picture picture(8, 3, 1.0);
    picture.parameters.control = kModelControl;
    const double budget = share * picture.sumAt(0);
    picture.parameters.pictureBytes = modelBudget(budget);
    EXPECT_EQ(picture.run().error, kSuccessful);
    EXPECT_GT(*std::max_element(picture.levels.begin(), picture.levels.end()), 1);
    const uint32_t sum = sumAtSteps(picture);
    EXPECT_LT(sum, 1.2 * budget) << share;
    EXPECT_LT(sum, before);
    before = sum;
  }
}

TEST(HDEncMainBodyModel, FlatMacroblocksAreSkippedAndTheirBitsReserved) {
  Picture picture(8, 3, 1.0);
  std::fill_n(picture.coefficients.begin() + 512 * 5, 512, int16_t{0});
  picture.parameters.control = kModelControl;
  picture.parameters.pictureBytes = modelBudget(0.5 * picture.sumAt(0));
  EXPECT_EQ(picture.run().error, kSuccessful);
  for (size_t i = 0; i < kCount; ++i) EXPECT_EQ(picture.skip[i], i == 5 ? 1 : 0);
  EXPECT_EQ(picture.levels[5], 1);
  EXPECT_EQ(picture.modelB[5], 0);
  EXPECT_LT(picture.modelB[4], 0);
}

TEST(HDEncMainBodyModel, StepsStayWithinTheHeadersBits) {
  Picture picture(10, 2, 1.0);
  picture.parameters.control = kModelControl;
  picture.parameters.pictureBytes = modelBudget(1);
  picture.parameters.longestStep = 1023;
  EXPECT_EQ(picture.run().error, kSuccessful);
  for (const uint16_t step : picture.levels) {
    EXPECT_GE(step, 1);
    EXPECT_LE(step, 1023);
  }
}

TEST(HDEncMainBodyModel, TheCorrectionsPlaceInTheListCarriesOver) {
  // A macroblock that asks for a coarse step in front moves where all behind it are measured.
  Picture plain(8, 3, 1.0);
  Picture led(8, 3, 1.0);
  for (Picture* picture : {&plain, &led}) {
    picture->parameters.control = kModelControl;
    picture->parameters.pictureBytes = modelBudget(0.4 * plain.sumAt(0));
  }
  // Its rate falls so slowly that the model has it end at the coarsest step.
  for (size_t i = 0; i < 512; ++i) {
    led.coefficients[i] = static_cast<int16_t>(i % 64 == 1 ? 1000 : 0);
  }
  plain.run();
  led.run();
  size_t changed = 0;
  for (size_t i = 1; i < kCount; ++i) changed += plain.modelB[i] != led.modelB[i] ? 1 : 0;
  EXPECT_GT(changed, kCount / 8);
}

TEST(LLLMController, WantsItsArrays) {
  LLLMController controller;
  EXPECT_EQ(controller.Run(nullptr, nullptr, 1, 0), kErrorNoInitialization);
  EXPECT_EQ(controller.Setup({}), kErrorNoInitialization);
}

TEST(LLLMController, SolvesForTheBudgetWhereTheModelIsALine) {
  // With one slope for all, rates are a straight line in the logarithm of the multiplier.
  constexpr size_t kMacroblocks = 40;
  std::vector<double> a(kMacroblocks);
  std::vector<double> b(kMacroblocks, -0.8);
  std::vector<uint8_t> skip(kMacroblocks);
  std::vector<double> quant(kMacroblocks, -1);
  std::vector<double> rate(kMacroblocks);
  for (size_t i = 0; i < kMacroblocks; ++i) a[i] = 5 + 0.05 * static_cast<double>(i);
  skip[7] = 1;
  LLLMController controller;
  ASSERT_EQ(controller.Setup({a.data(), b.data(), skip.data(), quant.data(), rate.data()}),
            kSuccessful);
  controller.SetBudget(5000, kMacroblocks, 1, kMacroblocks);
  controller.SetReservedBits(300);
  ASSERT_EQ(controller.Run(nullptr, nullptr, 1, 0), kSuccessful);
  EXPECT_EQ(quant[7], -1);
  double sum = 0;
  for (size_t i = 0; i < kMacroblocks; ++i) {
    if (skip[i] != 0) continue;
    sum += rate[i];
    EXPECT_NEAR(rate[i], std::exp(a[i] + b[i] * std::log(quant[i])), 1e-6);
    // The optimum: the derivatives of distortion and rate are in one ratio for all.
    EXPECT_NEAR(2 * quant[i] * quant[i] / rate[i], 2 * quant[0] * quant[0] / rate[0], 1e-6);
  }
  EXPECT_NEAR(sum, 4700, 1e-6);
  // The second pass keeps a margin.
  ASSERT_EQ(controller.Run(nullptr, nullptr, 0, 0), kSuccessful);
  sum = 0;
  for (size_t i = 0; i < kMacroblocks; ++i) sum += skip[i] != 0 ? 0 : rate[i];
  EXPECT_NEAR(sum, 4700 / 1.004, 1e-6);
}

}  // namespace
}  // namespace zel::dnxhd
