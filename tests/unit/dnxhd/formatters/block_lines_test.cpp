#include "zel/dnxhd/formatters/block_lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "zel/dnxhd/bitstream/transform.h"

namespace zel::dnxhd {
namespace {

TEST(BlockLines, LinesStandInTheBlocksOfTheirPlace) {
  std::vector<int16_t> samples(size_t{3} * 12 * 64);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<int16_t>(i);
  PlanarLine line;
  // Macroblock 1 of 8 blocks, line 9: the second row of the lower blocks.
  GatherLine(samples.data(), {2, 8, 8}, 9, line);
  EXPECT_EQ(line[0][16], 512 + 128 + 8);
  EXPECT_EQ(line[0][24], 512 + 192 + 8);
  EXPECT_EQ(line[1][8], 512 + 320 + 8);
  EXPECT_EQ(line[2][8], 512 + 448 + 8);
  // And of 12: each component two blocks wide.
  GatherLine(samples.data(), {2, 12, 8}, 9, line);
  EXPECT_EQ(line[0][16], 768 + 384 + 8);
  EXPECT_EQ(line[1][16], 768 + 512 + 8);
  EXPECT_EQ(line[2][31], 768 + 704 + 15);
  // Reduced blocks hold their samples at their start.
  GatherLine(samples.data(), {2, 8, 4}, 5, line);
  EXPECT_EQ(line[0][8], 512 + 128 + 4);
  EXPECT_EQ(line[0][12], 512 + 192 + 4);
  EXPECT_EQ(line[2][7], 512 + 448 + 7);
  GatherLine(samples.data(), {2, 8, 2}, 3, line);
  EXPECT_EQ(line[0][7], 512 + 192 + 3);
}

TEST(BlockLines, SpreadingIsTheOtherWayRound) {
  std::mt19937_64 random(test::testSeed());
  for (const size_t blocks : {size_t{8}, size_t{12}}) {
    const BlockRow row = {5, blocks, 8};
    std::vector<int16_t> samples(row.mbCols * blocks * 64);
    for (int16_t& sample : samples) sample = static_cast<int16_t>(random());
    std::vector<int16_t> back(samples.size());
    PlanarLine line;
    for (size_t i = 0; i < row.Lines(); ++i) {
      GatherLine(samples.data(), row, i, line);
      SpreadLine(line, row, i, back.data());
    }
    EXPECT_EQ(samples, back);
  }
}

// About what a block costs: bits of its DC difference and of the coefficients that are not 0.
double costOf(const int16_t* block, int& predictor, int step) {
  alignas(16) int16_t own[64];
  std::copy_n(block, 64, own);
  ScalarTransformKernels().forward(own, 1);
  double bits = 3 + 2 * std::log2(1 + std::abs(own[0] - predictor));
  predictor = own[0];
  for (size_t i = 1; i < 64; ++i) {
    const int level = std::abs(own[i]) / step;
    if (level != 0) bits += 5 + 2 * std::log2(level);
  }
  return bits;
}

double costOfRow(const std::vector<int16_t>& samples, const BlockRow& row, int step) {
  double bits = 0;
  int predictors[3] = {};
  for (size_t column = 0; column < row.mbCols; ++column) {
    const int16_t* const macroblock = samples.data() + column * 512;
    constexpr struct {
      size_t at;
      size_t component;
    } kOrder[] = {{0, 0}, {64, 0}, {256, 1}, {384, 2}, {128, 0}, {192, 0}, {320, 1}, {448, 2}};
    for (const auto& block : kOrder) {
      bits += costOf(macroblock + block.at, predictors[block.component], step);
    }
  }
  return bits;
}

std::vector<int16_t> picture(const BlockRow& row, std::mt19937_64& random) {
  // Edges, waves and a little noise.
  std::vector<int16_t> samples(row.mbCols * 512);
  PlanarLine line;
  for (size_t y = 0; y < 16; ++y) {
    for (size_t c = 0; c < 3; ++c) {
      for (size_t x = 0; x < 16 * row.mbCols; ++x) {
        const double wave = 60 * std::sin(static_cast<double>(x) / 9) *
                            std::cos(double{1} * static_cast<double>(y) / 3);
        const int edge = (x / 23 + y / 3) % 2 == 0 ? 60 : 5;
        line[c][x] = static_cast<int16_t>(wave + edge + static_cast<int>(random() % 7) - 3);
      }
    }
    SpreadLine(line, row, y, samples.data());
  }
  return samples;
}

enum class Filling { kOwn, kRepeatLast, kGrey, kAsBefore };

std::vector<int16_t> filled(std::vector<int16_t> samples, const BlockRow& row, size_t missing,
                            Filling filling) {
  if (filling == Filling::kOwn) {
    FillMissingLines(samples.data(), row, missing);
    return samples;
  }
  PlanarLine last;
  GatherLine(samples.data(), row, 15 - missing, last);
  if (filling == Filling::kGrey) last = PlanarLine{};
  for (size_t y = 16 - missing; y < 16; ++y) {
    if (filling == Filling::kAsBefore) GatherLine(samples.data(), row, y - (16 - missing), last);
    SpreadLine(last, row, y, samples.data());
  }
  return samples;
}

// The two heights that there are: 1080 lines of a picture, 540 of a field.
TEST(MissingLines, CostLessThanAnythingSimpler) {
  std::mt19937_64 random(test::testSeed());
  const BlockRow row = {30, 8, 8};
  for (const size_t missing : {size_t{8}, size_t{4}}) {
    const std::vector<int16_t> samples = picture(row, random);
    for (const int step : {2, 4, 8, 16}) {
      const double own = costOfRow(filled(samples, row, missing, Filling::kOwn), row, step);
      const double repeat =
          costOfRow(filled(samples, row, missing, Filling::kRepeatLast), row, step);
      const double grey = costOfRow(filled(samples, row, missing, Filling::kGrey), row, step);
      const double before = costOfRow(filled(samples, row, missing, Filling::kAsBefore), row, step);
      std::printf(
          "%zu lines missing, step %d: %.0f bits; last line repeated %.0f, grey %.0f, "
          "first lines again %.0f\n",
          missing, step, own, repeat, grey, before);
      EXPECT_LT(own, 0.99 * repeat);
      EXPECT_LT(own, 0.99 * grey);
      EXPECT_LT(own, 0.99 * before);
    }
  }
}

TEST(MissingLines, PresentOnesStayAsTheyAre) {
  std::mt19937_64 random(test::testSeed());
  for (const size_t blocks : {size_t{8}, size_t{12}}) {
    const BlockRow row = {4, blocks, 8};
    std::vector<int16_t> samples(row.mbCols * blocks * 64);
    for (int16_t& sample : samples) sample = static_cast<int16_t>(random() % 1024 - 512);
    for (size_t missing = 0; missing < 16; ++missing) {
      std::vector<int16_t> own = samples;
      FillMissingLines(own.data(), row, missing);
      PlanarLine before, after;
      for (size_t y = 0; y < 16 - missing; ++y) {
        GatherLine(samples.data(), row, y, before);
        GatherLine(own.data(), row, y, after);
        for (size_t c = 0; c < 3; ++c) {
          const size_t count = c == 0 ? row.LumaSamples() : row.ChromaSamples();
          ASSERT_TRUE(std::equal(before[c], before[c] + count, after[c])) << missing << " " << y;
        }
      }
    }
  }
}

TEST(MissingLines, AMirroredBlockHasNoOddVerticalFrequencies) {
  std::mt19937_64 random(test::testSeed());
  std::vector<int16_t> samples(512);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(random() % 256 - 128);
  FillMissingLines(samples.data(), {1, 8, 8}, 4);
  alignas(16) int16_t block[64];
  std::copy_n(samples.data() + 128, 64, block);
  ScalarTransformKernels().forward(block, 1);
  for (size_t v = 1; v < 8; v += 2) {
    for (size_t u = 0; u < 8; ++u) EXPECT_LE(std::abs(block[8 * v + u]), 1);
  }
}

TEST(MissingLines, BlocksOfNothingElseFollowTheirPredictor) {
  std::mt19937_64 random(test::testSeed());
  std::vector<int16_t> samples(512);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(random() % 256 - 128);
  FillMissingLines(samples.data(), {1, 8, 8}, 8);
  alignas(16) int16_t blocks[512];
  std::copy_n(samples.data(), 512, blocks);
  ScalarTransformKernels().forward(blocks, 8);
  // Luma follows the block at the upper right, chroma its own upper one; a sample's rounding is 4.
  EXPECT_NEAR(blocks[128], blocks[64], 5);
  EXPECT_EQ(blocks[192], blocks[128]);
  EXPECT_NEAR(blocks[320], blocks[256], 5);
  EXPECT_NEAR(blocks[448], blocks[384], 5);
  for (const size_t block : {128, 192, 320, 448}) {
    for (size_t i = 1; i < 64; ++i) EXPECT_EQ(blocks[block + i], 0);
  }
}

}  // namespace
}  // namespace zel::dnxhd
