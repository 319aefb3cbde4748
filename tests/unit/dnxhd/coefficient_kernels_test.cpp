#include "zel/dnxhd/bitstream/coefficient_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "tests/support/vector_targets.h"
#include "zel/dnxhd/encoder/quant_tables.h"

namespace zel::dnxhd {
namespace {

constexpr size_t kBlocks = 600;
constexpr int16_t kGuard = 0x5A5A;

// Blocks of all densities and sizes, extremes, single coefficients, nothing.
std::vector<int16_t> blocksUpTo(int largest) {
  std::mt19937_64 random(test::testSeed());
  std::vector<int16_t> all(64 * kBlocks);
  for (size_t block = 0; block < kBlocks; ++block) {
    const size_t kind = block % 6;
    const uint64_t oneIn = 1 + random() % 30;
    const int limit = kind == 0 ? 15 : kind == 1 ? 70 : kind == 2 ? 300 : largest;
    for (size_t k = 0; k < 64; ++k) {
      int16_t& value = all[64 * block + k];
      const uint64_t r = random();
      if (r % oneIn == 0) {
        value = static_cast<int16_t>(static_cast<int>(r / 64 % static_cast<uint64_t>(limit + 1)) *
                                     ((r & 32) != 0 ? -1 : 1));
      }
      if (kind == 4) value = static_cast<int16_t>((r & 32) != 0 ? largest : -largest);
      if (kind == 5) value = static_cast<int16_t>(k == block / 6 % 64 ? -limit : 0);
    }
  }
  return all;
}

TEST(CoefficientKernels, WeighingIsTheSameInVectors) {
  for (const uint32_t id : {1235u, 1237u, 1256u}) {
    const VCIDEntry& entry = *FindEntry(id);
    std::vector<int16_t> in = blocksUpTo(32767);
    in[0] = in[65] = -32768;
    for (const Weighing& weighing : {LumaWeighing(entry), ChromaWeighing(entry)}) {
      std::vector<int16_t> expected(in.size());
      ScalarCoefficientKernels().weigh(in.data(), expected.data(), kBlocks, weighing);
      test::forEachVectorTarget([&](const char* target) {
        std::vector<int16_t> out(in.size() + 64, kGuard);
        VectorCoefficientKernels().weigh(in.data(), out.data(), kBlocks, weighing);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), out.begin())) << target;
        EXPECT_TRUE(std::all_of(out.end() - 64, out.end(), [](int v) { return v == kGuard; }));
      });
    }
  }
}

TEST(CoefficientKernels, WeighedCoefficientsAreTheWholeSteps) {
  const VCIDEntry& entry = *FindEntry(1237);
  std::vector<int16_t> block(64);
  std::vector<int16_t> out(64);
  for (const int level : {0, 1, 2, 5, 40}) {
    // In the middle of the level's interval; the first AC place is weighed with 32, a step of 1.
    block[0] = 42;
    block[1] = static_cast<int16_t>(4 * level + 2);
    block[8] = static_cast<int16_t>(-(4 * level + 2));
    ScalarCoefficientKernels().weigh(block.data(), out.data(), 1, LumaWeighing(entry));
    EXPECT_EQ(out[0], 11);  // 42 / 4, rounded
    EXPECT_EQ(out[1], level);
    EXPECT_LE(-out[2], level);  // weighed with 33
    EXPECT_GE(-out[2], level - 2);
  }
}

using Codes = std::vector<uint16_t>;

Codes listOf(const CoefficientKernels& kernels, const int16_t* macroblock, CodingMode mode,
             uint32_t shift, std::array<int32_t, 3>& predictors) {
  Codes codes(kMostCodes + kCodesBehind + 1, kGuard);
  const size_t count =
      kernels.list(macroblock, PlacesOf(mode), shift, predictors.data(), codes.data());
  EXPECT_LE(count, kMostCodes);
  EXPECT_EQ(codes.back(), kGuard);
  codes.resize(count);
  return codes;
}

TEST(CoefficientKernels, ListingIsTheSameInVectors) {
  const std::vector<int16_t> in = blocksUpTo(4096);
  for (const CodingMode mode : {kMode422, kMode444}) {
    for (const uint32_t shift : {0u, 1u, 3u, 9u, 15u}) {
      for (size_t at = 0; at + BlocksOf(mode) <= kBlocks; at += BlocksOf(mode)) {
        const int16_t* const macroblock = in.data() + 64 * at;
        std::array<int32_t, 3> before{100, -2000, 7};
        const Codes expected = listOf(ScalarCoefficientKernels(), macroblock, mode, shift, before);
        test::forEachVectorTarget([&](const char* target) {
          std::array<int32_t, 3> predictors{100, -2000, 7};
          const Codes codes =
              listOf(VectorCoefficientKernels(), macroblock, mode, shift, predictors);
          EXPECT_EQ(codes, expected) << target << " block " << at;
          EXPECT_EQ(predictors, before) << target << " block " << at;
        });
      }
    }
  }
}

TEST(CoefficientKernels, ListsTellDifferencesDistancesMagnitudesAndSigns) {
  using W = WriteCodes;
  std::vector<int16_t> macroblock(8 * 64);
  macroblock[0] = 500;
  macroblock[1] = 5;
  macroblock[4] = -7;
  macroblock[40] = 1;  // 0 after the shift
  macroblock[62] = -128;
  macroblock[63] = 2;
  macroblock[64] = 490;  // the next block of luma
  macroblock[65] = 8191;
  std::array<int32_t, 3> predictors{};
  const Codes codes =
      listOf(ScalarCoefficientKernels(), macroblock.data(), kMode422, 1, predictors);
  const uint32_t end = W::kEndOfBlock;
  const std::vector<uint32_t> expected = {W::DcCodeIndex(500),
                                          W::PairIndex(1, 2, false),
                                          W::PairIndex(3, 3, true),
                                          W::EscapeIndex(64, true, true),
                                          W::RunIndex(57),
                                          W::PairIndex(1, 1, false),
                                          end,
                                          W::DcCodeIndex(-10),
                                          W::EscapeIndex(4095, false, false),
                                          end,
                                          W::DcCodeIndex(0),  // Cb
                                          end,
                                          W::DcCodeIndex(0),  // Cr
                                          end,
                                          W::DcCodeIndex(-490),
                                          end,
                                          W::DcCodeIndex(0),
                                          end,
                                          W::DcCodeIndex(0),
                                          end,
                                          W::DcCodeIndex(0),
                                          end};
  EXPECT_EQ(std::vector<uint32_t>(codes.begin(), codes.end()), expected);
  EXPECT_EQ(predictors, (std::array<int32_t, 3>{}));
}

// The longest list there can be, and the longest that escapes can make.
TEST(CoefficientKernels, NoListIsLongerThanItsRoom) {
  for (const int16_t value : {int16_t{1}, int16_t{4096}}) {
    for (const size_t every : {size_t{1}, size_t{2}}) {
      std::vector<int16_t> macroblock(12 * 64);
      for (size_t i = 1; i < macroblock.size(); i += every) macroblock[i] = value;
      test::forEachVectorTarget([&](const char* target) {
        std::array<int32_t, 3> predictors{};
        const Codes codes =
            listOf(VectorCoefficientKernels(), macroblock.data(), kMode444, 0, predictors);
        const size_t coefficients = every == 1 ? 63 : value == 1 ? 32 : 63;
        EXPECT_EQ(codes.size(), 12 * (coefficients + 2)) << target;
      });
    }
  }
}

TEST(CoefficientKernels, BitsAreTheSameInVectors) {
  const std::vector<int16_t> in = blocksUpTo(4096);
  for (const uint32_t id : {1235u, 1237u, 1238u, 1250u, 1252u}) {
    const BitCost cost(*FindEntry(id));
    struct Levels {
      uint32_t first;
      uint32_t last;
    };
    for (const Levels levels : {Levels{0, 7}, Levels{2, 4}, Levels{9, 9}, Levels{8, 15}}) {
      for (const size_t count : {size_t{1}, size_t{8}, size_t{12}}) {
        for (size_t at = 0; at + count <= kBlocks; at += 5 * count) {
          std::vector<uint32_t> expected(8, 7);
          ScalarCoefficientKernels().acBits(in.data() + 64 * at, count, cost, levels.first,
                                            levels.last, expected.data());
          test::forEachVectorTarget([&](const char* target) {
            std::vector<uint32_t> bits(8, 7);
            VectorCoefficientKernels().acBits(in.data() + 64 * at, count, cost, levels.first,
                                              levels.last, bits.data());
            EXPECT_EQ(bits, expected) << target << " id " << id << " block " << at;
          });
        }
      }
    }
  }
}

}  // namespace
}  // namespace zel::dnxhd
