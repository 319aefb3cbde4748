#include "zel/dnxhd/bitstream/row_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "zel/base/bit_reader.h"
#include "zel/dnxhd/bitstream/row_reader.h"
#include "zel/dnxhd/tables/weights.h"

// What is written has to read back, and to be as long as its cost tells.

namespace zel::dnxhd {
namespace {

constexpr uint8_t kGuard = 0xA5;

struct Row {
  std::vector<int16_t> coefficients;
  std::vector<uint16_t> steps;
  std::vector<uint32_t> color;
  std::vector<uint32_t> field;

  RowInput input(bool shifts) const {
    return {coefficients.data(), steps.data(), shifts, color.data(), field.data()};
  }
};

class RandomRow {
 public:
  explicit RandomRow(const VCIDEntry& entry)
      : entry_(entry), random_(test::testSeed() + entry.compressionId) {}

  Row make(bool shifts) {
    const size_t columns = GeometryOf(entry_).mbCols;
    const size_t blocks = BlocksOf(CodingModeOf(entry_));
    Row row;
    for (size_t column = 0; column < columns; ++column) {
      row.steps.push_back(static_cast<uint16_t>(shifts ? below(10) : 1 + below(1023)));
      row.color.push_back(below(2));
      row.field.push_back(below(2));
      for (size_t block = 0; block < blocks; ++block) appendBlock(row.coefficients);
    }
    return row;
  }

 private:
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }

  // Blocks of all densities, with magnitudes from small to the largest there is a code for.
  void appendBlock(std::vector<int16_t>& out) {
    const int dcRange = 1 << (entry_.depth + 2);
    out.push_back(static_cast<int16_t>(static_cast<int>(below(2 * dcRange)) - dcRange));
    const uint32_t oneIn = 1 + below(40);
    const uint32_t largest = 64u << (entry_.depth - 4);
    const uint32_t bits = 1 + below(12);
    for (size_t k = 1; k < 64; ++k) {
      if (below(oneIn) != 0) {
        out.push_back(0);
        continue;
      }
      const uint32_t magnitude = below(30) == 0 ? largest : std::min(below(1u << bits), largest);
      out.push_back(
          static_cast<int16_t>(below(2) != 0 ? -static_cast<int>(magnitude) : int(magnitude)));
    }
  }

  const VCIDEntry& entry_;
  std::mt19937_64 random_;
};

int dequantised(const VCIDEntry& entry, int component, size_t k, int level, int64_t step) {
  const int64_t w = int64_t{component == 0 ? entry.lumaWeights[k] : entry.chromaWeights[k]} * step;
  const int64_t d = IsRgbFamily(entry) ? 32 : 1 << (13 - entry.depth);
  const int64_t magnitude = (std::abs(level) * w + (w >> 1) + (w == d ? 0 : d >> 1)) / d;
  return static_cast<int>((level < 0 ? -1 : 1) * std::min<int64_t>(magnitude, 32767));
}

std::vector<int16_t> expectedOf(const VCIDEntry& entry, const Row& row, bool shifts) {
  const size_t blocks = BlocksOf(CodingModeOf(entry));
  std::vector<int16_t> expected(row.coefficients.size());
  for (size_t column = 0; column < row.steps.size(); ++column) {
    const int step = shifts ? 1 << row.steps[column] : row.steps[column];
    for (const BlockPlace& place : PlacesOf(CodingModeOf(entry))) {
      const size_t at = column * blocks * 64 + place.offset;
      expected[at] = row.coefficients[at];
      for (size_t k = 1; k < 64; ++k) {
        const int level = row.coefficients[at + k] / step;
        if (level == 0) continue;
        expected[at + kScan[k]] =
            static_cast<int16_t>(dequantised(entry, place.component, k, level, step));
      }
    }
  }
  return expected;
}

uint32_t costOf(const VCIDEntry& entry, const Row& row) {
  const CodingMode mode = CodingModeOf(entry);
  const BitCost cost(entry);
  std::array<int32_t, 3> predictors{};
  uint32_t total = 0;
  for (size_t column = 0; column < row.steps.size(); ++column) {
    const int16_t* const macroblock = row.coefficients.data() + column * BlocksOf(mode) * 64;
    total += kMacroblockHeaderBits + cost.endOfBlocks;
    total += DcBits(macroblock, mode, cost, predictors.data());
    uint32_t ac = 0;
    ScalarCoefficientKernels().acBits(macroblock, BlocksOf(mode), cost, row.steps[column],
                                      row.steps[column], &ac);
    total += ac;
  }
  return total;
}

TEST(RowWriter, WhatIsWrittenReadsBackAndIsAsLongAsItsCost) {
  for (const VCIDEntry& entry : VCIDTable) {
    SCOPED_TRACE(entry.compressionId);
    RandomRow random(entry);
    const RowWriter writer(entry);
    RowReader reader(entry);
    for (const bool shifts : {true, true, false}) {
      const Row row = random.make(shifts);
      std::vector<uint8_t> bytes(row.steps.size() * 4000, kGuard);
      size_t written = 0;
      ASSERT_EQ(writer.Write(row.input(shifts), bytes, written), kSuccessful);
      if (shifts) {
        EXPECT_EQ(written, (costOf(entry, row) + 31) / 32 * 4);
      }
      EXPECT_TRUE(std::all_of(bytes.begin() + static_cast<ptrdiff_t>(written), bytes.end(),
                              [](uint8_t byte) { return byte == kGuard; }));

      // Exactly the room that it takes is enough, a word less is not, and nothing passes the end.
      std::vector<uint8_t> exact(written + 64, kGuard);
      size_t again = 0;
      ASSERT_EQ(writer.Write(row.input(shifts), std::span(exact).first(written), again),
                kSuccessful);
      EXPECT_TRUE(std::equal(exact.begin(), exact.begin() + static_cast<ptrdiff_t>(written),
                             bytes.begin()));
      std::fill(exact.begin(), exact.end(), kGuard);
      EXPECT_EQ(writer.Write(row.input(shifts), std::span(exact).first(written - 4), again),
                kErrorEncodeBufferOverflow);
      EXPECT_TRUE(std::all_of(exact.begin() + static_cast<ptrdiff_t>(written - 4), exact.end(),
                              [](uint8_t byte) { return byte == kGuard; }));

      std::vector<int16_t> read(row.coefficients.size());
      std::vector<MacroblockFlags> flags(row.steps.size());
      size_t end = 0;
      ASSERT_EQ(reader.Read(std::span(bytes).first(written), 0, {read.data(), flags.data()}, end),
                kSuccessful);
      EXPECT_EQ(end, written);
      EXPECT_EQ(read, expectedOf(entry, row, shifts));
      for (size_t column = 0; column < flags.size(); ++column) {
        EXPECT_EQ(flags[column].field, HasFieldFlag(entry) && row.field[column] != 0);
        EXPECT_EQ(flags[column].color, IsRgbFamily(entry) && row.color[column] == 0);
      }
    }
  }
}

// A row of macroblocks without coefficients, but for one in the first block.
Row flatRow(const VCIDEntry& entry, int16_t coefficient) {
  Row row;
  const size_t columns = GeometryOf(entry).mbCols;
  row.coefficients.resize(columns * BlocksOf(CodingModeOf(entry)) * 64);
  row.coefficients[1] = coefficient;
  row.steps.resize(columns);
  row.color.resize(columns, 1);
  row.field.resize(columns);
  return row;
}

TEST(RowWriter, LevelsFrom64OnTakeEscapeBits) {
  const VCIDEntry& entry = *FindEntry(1237);
  const RowWriter writer(entry);
  for (const int level : {63, 64, 65, -64, 1024}) {
    const Row row = flatRow(entry, static_cast<int16_t>(level));
    std::vector<uint8_t> bytes(100000);
    size_t written = 0;
    ASSERT_EQ(writer.Write(row.input(true), bytes, written), kSuccessful);
    base::BitReader in(bytes);
    in.read(12);                                    // the header
    in.read(static_cast<int>(entry.dcLengths[0]));  // no difference
    const auto magnitude = static_cast<uint32_t>(std::abs(level));
    const size_t kind = magnitude < 64 ? 0 : 1;
    const size_t k = (magnitude - 1) % 64;
    EXPECT_EQ(in.read(static_cast<int>(entry.acLengths[kind][k])), entry.acCodes[kind][k]);
    EXPECT_EQ(in.readFlag(), level < 0);
    if (kind == 1) {
      EXPECT_EQ(in.read(entry.depth - 4), (magnitude - 1) / 64);
    }
    EXPECT_EQ(in.read(static_cast<int>(entry.endOfBlockLength)), entry.endOfBlockCode);
  }
}

TEST(RowWriter, HeadersFollowTheFamily) {
  struct Case {
    uint32_t id;
    uint32_t color;
    uint32_t field;
    uint32_t header;  // at level 2
  };
  for (const Case& one :
       {Case{1237, 0, 1, 4 << 1}, Case{1256, 0, 1, 4 << 1 | 1}, Case{1256, 7, 0, 4 << 1},
        Case{1259, 0, 1, 4 << 1}, Case{1260, 0, 1, 1 << 11 | 4 << 1}, Case{1260, 0, 0, 4 << 1}}) {
    const VCIDEntry& entry = *FindEntry(one.id);
    Row row = flatRow(entry, 0);
    std::fill(row.steps.begin(), row.steps.end(), uint16_t{2});
    std::fill(row.color.begin(), row.color.end(), one.color);
    std::fill(row.field.begin(), row.field.end(), one.field);
    std::vector<uint8_t> bytes(100000);
    size_t written = 0;
    ASSERT_EQ(RowWriter(entry).Write(row.input(true), bytes, written), kSuccessful);
    EXPECT_EQ(base::BitReader(bytes).read(12), one.header) << one.id;
  }
}

TEST(BitCost, IsTheTablesLengths) {
  const VCIDEntry& entry = *FindEntry(1235);
  const BitCost cost(entry);
  EXPECT_EQ(cost.endOfBlocks, entry.endOfBlockLength * 8);
  EXPECT_EQ(BitCost(*FindEntry(1256)).endOfBlocks, FindEntry(1256)->endOfBlockLength * 12);
  EXPECT_EQ(cost.Coefficient(1, 0), entry.acLengths[0][0] + 1);
  EXPECT_EQ(cost.Coefficient(63, 0), entry.acLengths[0][62] + 1);
  EXPECT_EQ(cost.Coefficient(64, 0), entry.acLengths[1][63] + 1 + 6);
  EXPECT_EQ(cost.Coefficient(65, 0), entry.acLengths[1][0] + 1 + 6);
  EXPECT_EQ(cost.Coefficient(3, 5), entry.acLengths[2][2] + 1 + entry.runLengths[5]);
  EXPECT_EQ(cost.Coefficient(4096, 62), entry.acLengths[3][63] + 1 + 6 + entry.runLengths[62]);
  EXPECT_EQ(cost.Dc(0), entry.dcLengths[0]);
  EXPECT_EQ(cost.Dc(-8191), entry.dcLengths[13] + 13);
}

}  // namespace
}  // namespace zel::dnxhd
