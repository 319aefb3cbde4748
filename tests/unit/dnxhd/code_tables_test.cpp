#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <set>
#include <vector>

#include "zel/base/crc32.h"
#include "zel/dnxhd/tables/ac_codes.h"
#include "zel/dnxhd/tables/dc_codes.h"
#include "zel/dnxhd/tables/run_codes.h"
#include "zel/dnxhd/tables/weights.h"

// The digests are those of the published tables, taken when the tables were transcribed: CRC-32 of
// the rows' fields, one after the other, codes as two bytes where they can have more than eight
// bits.

namespace zel::dnxhd {
namespace {

struct Code {
  uint32_t code;
  int length;
};

template <typename Rows>
std::vector<Code> codesOf(const Rows& rows) {
  std::vector<Code> codes;
  for (const auto& row : rows) codes.push_back({row.code, row.length});
  return codes;
}

// The share of all bit strings that the codes cover, in units of 2^-16: 65536 is all of them.
uint32_t coverage(const std::vector<Code>& codes) {
  uint32_t sum = 0;
  for (const Code& code : codes) sum += 1u << (16 - code.length);
  return sum;
}

bool prefixFree(const std::vector<Code>& codes) {
  for (const Code& a : codes) {
    for (const Code& b : codes) {
      if (&a != &b && a.length <= b.length && b.code >> (b.length - a.length) == a.code) {
        return false;
      }
    }
  }
  return true;
}

template <typename Rows>
void expectWholeCode(const Rows& rows) {
  EXPECT_TRUE(prefixFree(codesOf(rows)));
  EXPECT_EQ(coverage(codesOf(rows)), 65536u);
}

uint32_t acDigest(const AcCodes& rows) {
  std::vector<uint8_t> bytes;
  for (const AcCode& row : rows) {
    bytes.insert(bytes.end(), {static_cast<uint8_t>(row.code >> 8), static_cast<uint8_t>(row.code),
                               row.length, row.level, static_cast<uint8_t>(row.kind)});
  }
  return base::crc32(bytes);
}

uint32_t runDigest(const RunCodes& rows) {
  std::vector<uint8_t> bytes;
  for (const RunCode& row : rows) {
    bytes.insert(bytes.end(), {static_cast<uint8_t>(row.code >> 8), static_cast<uint8_t>(row.code),
                               row.length, row.run});
  }
  return base::crc32(bytes);
}

template <typename Rows>
uint32_t dcDigest(const Rows& rows) {
  std::vector<uint8_t> bytes;
  for (const DcCode& row : rows) bytes.insert(bytes.end(), {row.code, row.length});
  return base::crc32(bytes);
}

constexpr std::array<const AcCodes*, 6> kAllAcCodes = {&kAcCodes1235, &kAcCodes1237, &kAcCodes1238,
                                                       &kAcCodes1250, &kAcCodes1251, &kAcCodes1252};
constexpr std::array<const RunCodes*, 4> kAllRunCodes = {&kRunCodes1235, &kRunCodes1237,
                                                         &kRunCodes1238, &kRunCodes1250};

TEST(CodeTables, AcCodesArePrefixFreeAndComplete) {
  for (const AcCodes* codes : kAllAcCodes) expectWholeCode(*codes);
}

TEST(CodeTables, AcCodesHoldEveryLevelInEveryKindAndOneEnd) {
  for (const AcCodes* codes : kAllAcCodes) {
    std::set<std::pair<int, int>> seen;
    for (const AcCode& row : *codes) seen.emplace(row.kind, row.level);
    EXPECT_EQ(seen.size(), codes->size());
    for (int kind = kPlain; kind <= kEscapeRun; ++kind) {
      for (int level = 1; level <= 64; ++level) EXPECT_TRUE(seen.contains({kind, level}));
    }
    EXPECT_TRUE(seen.contains({kEndOfBlock, 0}));
  }
}

TEST(CodeTables, RunCodesArePrefixFreeAndCompleteAndHoldEveryRunOnce) {
  for (const RunCodes* codes : kAllRunCodes) {
    expectWholeCode(*codes);
    std::set<int> runs;
    for (const RunCode& row : *codes) runs.insert(row.run);
    EXPECT_EQ(runs.size(), 62u);
    EXPECT_EQ(*runs.begin(), 1);
    EXPECT_EQ(*runs.rbegin(), 62);
  }
}

TEST(CodeTables, DcCodesArePrefixFreeAndComplete) {
  expectWholeCode(kDcCodes1235);
  expectWholeCode(kDcCodes1237);
}

TEST(CodeTables, ScanIsTheZigzag) {
  // From one antidiagonal to the next, every other one upwards.
  size_t at = 0;
  for (int sum = 0; sum <= 14; ++sum) {
    for (int i = 0; i <= sum; ++i) {
      const int row = sum % 2 == 0 ? sum - i : i;
      const int column = sum - row;
      if (row > 7 || column > 7) continue;
      EXPECT_EQ(kScan[at], row * 8 + column) << "position " << at;
      ++at;
    }
  }
  EXPECT_EQ(at, kScan.size());
}

TEST(CodeTables, CodesAreThePublishedOnes) {
  EXPECT_EQ(acDigest(kAcCodes1235), 0x3FA11339u);
  EXPECT_EQ(acDigest(kAcCodes1237), 0x83B30C7Fu);
  EXPECT_EQ(acDigest(kAcCodes1238), 0x79B900FDu);
  EXPECT_EQ(acDigest(kAcCodes1250), 0xDA7CAD87u);
  EXPECT_EQ(acDigest(kAcCodes1251), 0xBB1CF873u);
  EXPECT_EQ(acDigest(kAcCodes1252), 0x6766E2E0u);
  EXPECT_EQ(runDigest(kRunCodes1235), 0x3F7D48C7u);
  EXPECT_EQ(runDigest(kRunCodes1237), 0x43080067u);
  EXPECT_EQ(runDigest(kRunCodes1238), 0x11BFA646u);
  EXPECT_EQ(runDigest(kRunCodes1250), 0xC758820Au);
  EXPECT_EQ(dcDigest(kDcCodes1235), 0x7A10F575u);
  EXPECT_EQ(dcDigest(kDcCodes1237), 0xE0571CF5u);
  EXPECT_EQ(base::crc32(kScan), 0x573EB87Au);
}

TEST(CodeTables, WeightsAreThePublishedOnes) {
  struct Row {
    const Weights* weights;
    uint32_t digest;
  };
  constexpr std::array<Row, 20> kRows = {{
      {&kLumaWeights1235, 0x1C662F27}, {&kChromaWeights1235, 0x27E99E46},
      {&kLumaWeights1237, 0xB8F20F1F}, {&kChromaWeights1237, 0xC158E6F1},
      {&kLumaWeights1238, 0xFEF79CBD}, {&kChromaWeights1238, 0xB402D5A9},
      {&kLumaWeights1241, 0x6928563F}, {&kChromaWeights1241, 0xB574127D},
      {&kLumaWeights1242, 0xE927D9EC}, {&kChromaWeights1242, 0x237D8AF7},
      {&kLumaWeights1243, 0x3A6CC5CF}, {&kChromaWeights1243, 0x79CB7753},
      {&kLumaWeights1250, 0x65A32554}, {&kChromaWeights1250, 0x332347F4},
      {&kLumaWeights1251, 0xB0D78824}, {&kChromaWeights1251, 0x936276A4},
      {&kLumaWeights1252, 0xD08CCF12}, {&kChromaWeights1252, 0x8DFC345D},
      {&kLumaWeights1260, 0x7AB6B30},  {&kChromaWeights1260, 0x4121BB4C},
  }};
  for (const Row& row : kRows) {
    EXPECT_EQ(base::crc32(*row.weights), row.digest) << "table " << &row - kRows.data();
    EXPECT_EQ((*row.weights)[0], 0);
    for (size_t k = 1; k < 64; ++k) EXPECT_GE((*row.weights)[k], 31);
  }
}

}  // namespace
}  // namespace zel::dnxhd
