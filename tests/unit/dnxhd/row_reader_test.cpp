#include "zel/dnxhd/bitstream/row_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "zel/base/bit_writer.h"
#include "zel/dnxhd/tables/ac_codes.h"
#include "zel/dnxhd/tables/weights.h"

// Rows are written here by the letter of the format, code by code, and have to read back.

namespace zel::dnxhd {
namespace {

struct Coefficient {
  int run;
  int level;
};

// A macroblock as it is coded: blocks in the order of the entries.
struct Macroblock {
  uint32_t q = 1;
  bool color = false;
  bool field = false;
  std::vector<int> dc;
  std::vector<std::vector<Coefficient>> ac;
};

struct Order {
  std::vector<int> component;
  std::vector<size_t> offset;
};

Order orderOf(CodingMode mode) {
  if (mode == kMode444) {
    Order order{{0, 0, 1, 1, 2, 2, 0, 0, 1, 1, 2, 2}, {}};
    for (size_t block = 0; block < 12; ++block) order.offset.push_back(64 * block);
    return order;
  }
  return {{0, 0, 1, 2, 0, 0, 1, 2}, {0, 64, 256, 384, 128, 192, 320, 448}};
}

void writeDc(base::BitWriter& out, const VCIDEntry& entry, int difference) {
  uint32_t size = 0;
  while (std::abs(difference) >> size != 0) ++size;
  ASSERT_NE(entry.dcLengths[size], 0u);
  out.write(entry.dcCodes[size], static_cast<int>(entry.dcLengths[size]));
  const int bits = difference < 0 ? difference + (1 << size) - 1 : difference;
  out.write(static_cast<uint32_t>(bits), static_cast<int>(size));
}

void writeAc(base::BitWriter& out, const VCIDEntry& entry, Coefficient coefficient, bool escape64) {
  const int amplitude = std::abs(coefficient.level);
  const bool escape = amplitude > 64 || (amplitude == 64 && escape64);
  const auto kind = static_cast<size_t>((escape ? kEscape : 0) | (coefficient.run > 0 ? kRun : 0));
  const auto k = static_cast<size_t>((amplitude - 1) % 64);
  out.write(entry.acCodes[kind][k], static_cast<int>(entry.acLengths[kind][k]));
  out.writeFlag(coefficient.level < 0);
  if (escape) out.write(static_cast<uint32_t>(amplitude - 1) / 64, entry.depth - 4);
  if (coefficient.run > 0) {
    const auto run = static_cast<size_t>(coefficient.run);
    out.write(entry.runCodes[run], static_cast<int>(entry.runLengths[run]));
  }
}

void writeMacroblock(base::BitWriter& out, const VCIDEntry& entry, const Macroblock& macroblock,
                     std::array<int, 3>& predictors, bool escape64) {
  const Order order = orderOf(CodingModeOf(entry));
  if (HasFieldFlag(entry)) out.writeFlag(macroblock.field);
  out.write(macroblock.q, HasFieldFlag(entry) ? 10 : 11);
  out.writeFlag(macroblock.color);
  for (size_t block = 0; block < order.component.size(); ++block) {
    int& predictor = predictors[static_cast<size_t>(order.component[block])];
    writeDc(out, entry, macroblock.dc[block] - predictor);
    predictor = macroblock.dc[block];
    for (const Coefficient& coefficient : macroblock.ac[block]) {
      writeAc(out, entry, coefficient, escape64);
    }
    out.write(entry.endOfBlockCode, static_cast<int>(entry.endOfBlockLength));
  }
}

std::vector<uint8_t> writtenRow(const VCIDEntry& entry, const std::vector<Macroblock>& row,
                                bool escape64 = false) {
  std::vector<uint8_t> bytes(row.size() * 4096);
  base::BitWriter out(bytes);
  std::array<int, 3> predictors{};
  for (const Macroblock& macroblock : row) {
    writeMacroblock(out, entry, macroblock, predictors, escape64);
  }
  bytes.resize(out.finish().size());
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

// The value of a level, by the definition.
int dequantised(const VCIDEntry& entry, int component, size_t k, int level, uint32_t q) {
  const int64_t w = int64_t{component == 0 ? entry.lumaWeights[k] : entry.chromaWeights[k]} * q;
  const int64_t d = IsRgbFamily(entry) ? 32 : 1 << (13 - entry.depth);
  const int64_t magnitude = (std::abs(level) * w + (w >> 1) + (w == d ? 0 : d >> 1)) / d;
  return static_cast<int>((level < 0 ? -1 : 1) * std::min<int64_t>(magnitude, 32767));
}

std::vector<int16_t> expectedRow(const VCIDEntry& entry, const std::vector<Macroblock>& row) {
  const Order order = orderOf(CodingModeOf(entry));
  const size_t size = order.component.size() * 64;
  std::vector<int16_t> all(row.size() * size);
  for (size_t column = 0; column < row.size(); ++column) {
    const Macroblock& macroblock = row[column];
    for (size_t block = 0; block < order.component.size(); ++block) {
      int16_t* const out = all.data() + column * size + order.offset[block];
      out[0] = static_cast<int16_t>(macroblock.dc[block]);
      size_t k = 0;
      for (const Coefficient& coefficient : macroblock.ac[block]) {
        k += static_cast<size_t>(coefficient.run) + 1;
        out[kScan[k]] = static_cast<int16_t>(
            dequantised(entry, order.component[block], k, coefficient.level, macroblock.q));
      }
    }
  }
  return all;
}

class RandomRows {
 public:
  explicit RandomRows(const VCIDEntry& entry)
      : entry_(entry), random_(test::testSeed() + entry.compressionId) {}

  std::vector<Macroblock> make(size_t columns) {
    std::vector<Macroblock> row(columns);
    for (Macroblock& macroblock : row) {
      macroblock.q = HasFieldFlag(entry_) ? below(1024) : below(2048);
      if (below(2) != 0) macroblock.q = 1 + below(8);
      macroblock.color = below(2) != 0;
      macroblock.field = HasFieldFlag(entry_) && below(2) != 0;
      for (size_t block = 0; block < BlocksOf(CodingModeOf(entry_)); ++block) {
        // Differences of the full range that the sizes of the depth have.
        const int range = entry_.depth == 10 ? 4095 : 1023;
        macroblock.dc.push_back(static_cast<int>(below(static_cast<uint32_t>(2 * range + 1))) -
                                range);
        macroblock.ac.push_back(block_());
      }
    }
    return row;
  }

 private:
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }

  std::vector<Coefficient> block_() {
    std::vector<Coefficient> coefficients;
    const uint32_t density = below(4);
    const int highest = entry_.depth == 10 ? 4096 : 1024;
    for (int k = 0;;) {
      int run = 0;
      if (density < 3 && below(2) != 0) run = static_cast<int>(below(density == 0 ? 62 : 5));
      k += run + 1;
      if (k > 63 || below(40) == 0) return coefficients;
      int level = 1 + static_cast<int>(below(3));
      if (below(4) == 0) level = 1 + static_cast<int>(below(66));
      if (below(16) == 0) level = 1 + static_cast<int>(below(static_cast<uint32_t>(highest)));
      coefficients.push_back({run, below(2) != 0 ? level : -level});
    }
  }

  const VCIDEntry& entry_;
  std::mt19937_64 random_;
};

struct ReadRow {
  ResultWord result;
  size_t end = 0;
  std::vector<int16_t> coefficients;
  std::vector<MacroblockFlags> flags;
};

ReadRow readRow(const VCIDEntry& entry, std::span<const uint8_t> data, size_t offset) {
  const size_t columns = GeometryOf(entry).mbCols;
  ReadRow row;
  row.coefficients.assign(columns * BlocksOf(CodingModeOf(entry)) * 64, 99);
  row.flags.resize(columns);
  RowReader reader(entry);
  row.result = reader.Read(data, offset, {row.coefficients.data(), row.flags.data()}, row.end);
  size_t end = 0;
  EXPECT_EQ(reader.Check(data, offset, end), row.result);
  EXPECT_EQ(end, row.end);
  return row;
}

TEST(RowReader, RandomRowsOfEveryIdReadBack) {
  for (const VCIDEntry& entry : VCIDTable) {
    RandomRows rows(entry);
    for (const bool escape64 : {false, true}) {
      const std::vector<Macroblock> row = rows.make(GeometryOf(entry).mbCols);
      std::vector<uint8_t> bytes = writtenRow(entry, row, escape64);
      const size_t written = bytes.size();
      const ReadRow read = readRow(entry, bytes, 0);
      ASSERT_EQ(read.result, kSuccessful) << entry.compressionId;
      EXPECT_EQ(read.end, written);
      EXPECT_EQ(read.coefficients, expectedRow(entry, row)) << entry.compressionId;
      for (size_t column = 0; column < row.size(); ++column) {
        EXPECT_EQ(read.flags[column].color, row[column].color);
        EXPECT_EQ(read.flags[column].field, row[column].field);
      }
      // With other bytes before and behind it is the same.
      bytes.insert(bytes.begin(), 16, 0xA5);
      bytes.insert(bytes.end(), 20000, 0x5A);
      const ReadRow within = readRow(entry, bytes, 16);
      EXPECT_EQ(within.result, kSuccessful);
      EXPECT_EQ(within.end, written + 16);
      EXPECT_EQ(within.coefficients, read.coefficients);
    }
  }
}

// One coefficient of each level in each kind goes through every code of the id.
TEST(RowReader, EveryCodeReadsBack) {
  for (const VCIDEntry& entry : VCIDTable) {
    const size_t blocks = BlocksOf(CodingModeOf(entry));
    const size_t columns = GeometryOf(entry).mbCols;
    const int highest = entry.depth == 10 ? 4096 : 1024;
    int level = 0;
    int run = 0;
    bool done = false;
    while (!done) {
      std::vector<Macroblock> row(columns);
      for (Macroblock& macroblock : row) {
        macroblock.dc.assign(blocks, 0);
        for (size_t block = 0; block < blocks; ++block) {
          level = level % highest + 1;
          done = done || level == highest;
          run = run % 62 + 1;
          macroblock.ac.push_back({{run, level}});
          if (run < 62) macroblock.ac.back().push_back({0, -level});
        }
      }
      const ReadRow read = readRow(entry, writtenRow(entry, row), 0);
      ASSERT_EQ(read.result, kSuccessful);
      ASSERT_EQ(read.coefficients, expectedRow(entry, row)) << entry.compressionId;
    }
  }
}

// The bias of half a divisor is left out where weight times quantiser is the divisor.
TEST(RowReader, TheDequantisersException) {
  const VCIDEntry& entry = *FindEntry(1237);
  ASSERT_EQ(entry.lumaWeights[1], 32u);
  std::vector<Macroblock> row(GeometryOf(entry).mbCols);
  for (size_t column = 0; column < row.size(); ++column) {
    row[column].q = column == 0 ? 1 : 2;
    row[column].dc.assign(8, 0);
    row[column].ac.assign(8, {{0, 3}});
  }
  const ReadRow read = readRow(entry, writtenRow(entry, row), 0);
  EXPECT_EQ(read.coefficients[1], (3 * 32 + 16) / 32);
  EXPECT_EQ(read.coefficients[512 + 1], (3 * 64 + 32 + 16) / 32);
}

TEST(RowReader, RunsPastTheBlockAreRefused) {
  const VCIDEntry& entry = *FindEntry(1238);
  for (const std::vector<Coefficient>& block :
       {std::vector<Coefficient>{{62, 1}, {0, 1}}, std::vector<Coefficient>{{62, 1}, {62, 70}},
        std::vector<Coefficient>(64, {0, 1}), std::vector<Coefficient>(64, {0, -90})}) {
    std::vector<Macroblock> row(GeometryOf(entry).mbCols);
    for (Macroblock& macroblock : row) {
      macroblock.dc.assign(8, 0);
      macroblock.ac.assign(8, {});
    }
    row[60].ac[5] = block;
    EXPECT_EQ(readRow(entry, writtenRow(entry, row), 0).result, kErrorInHuffmanDecode);
  }
}

TEST(RowReader, CutRowsAreRefusedWithoutReadingPastTheEnd) {
  const VCIDEntry& entry = *FindEntry(1235);
  RandomRows rows(entry);
  const std::vector<uint8_t> bytes = writtenRow(entry, rows.make(GeometryOf(entry).mbCols));
  for (size_t size = 1; size + 4 < bytes.size(); size += 97) {
    // A buffer of its own, so that the address sanitizer sees a read past it.
    const std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
    EXPECT_EQ(readRow(entry, cut, 0).result, kErrorInHuffmanDecode) << size;
  }
  EXPECT_EQ(readRow(entry, bytes, bytes.size()).result, kErrorInMacroblockIndices);
  EXPECT_EQ(readRow(entry, bytes, ~size_t{0}).result, kErrorInMacroblockIndices);
}

TEST(RowReader, RandomBytesEndOneWayOrTheOther) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t id : {1235u, 1237u, 1253u, 1256u, 1260u}) {
    const VCIDEntry& entry = *FindEntry(id);
    for (int round = 0; round < 50; ++round) {
      std::vector<uint8_t> bytes(1 + random() % 30000);
      for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
      const ReadRow read = readRow(entry, bytes, random() % bytes.size());
      if (read.result == kSuccessful) {
        EXPECT_LE(read.end, bytes.size() + 3);
      }
    }
  }
}

}  // namespace
}  // namespace zel::dnxhd
