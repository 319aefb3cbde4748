#include "zel/dnxhd/bitstream/coefficient_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
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

TEST(CoefficientKernels, PairingIsTheSameInVectors) {
  const std::vector<int16_t> in = blocksUpTo(4096);
  for (const uint32_t shift : {0u, 1u, 3u, 9u, 15u}) {
    std::vector<BlockPairs> expected(kBlocks);
    ScalarCoefficientKernels().pair(in.data(), kBlocks, shift, expected.data());
    test::forEachVectorTarget([&](const char* target) {
      std::vector<BlockPairs> pairs(kBlocks);
      VectorCoefficientKernels().pair(in.data(), kBlocks, shift, pairs.data());
      for (size_t i = 0; i < kBlocks; ++i) {
        ASSERT_EQ(pairs[i].count, expected[i].count) << target << " block " << i;
        EXPECT_EQ(pairs[i].withEscapes, expected[i].withEscapes) << target << " block " << i;
        EXPECT_TRUE(std::equal(pairs[i].indices.begin(), pairs[i].indices.begin() + pairs[i].count,
                               expected[i].indices.begin()))
            << target << " block " << i;
      }
    });
  }
}

TEST(CoefficientKernels, PairsTellDistanceMagnitudeAndSign) {
  std::vector<int16_t> block(64);
  block[0] = 500;  // DC is none of them
  block[1] = 5;
  block[4] = -7;
  block[40] = 1;  // 0 after the shift
  block[62] = -128;
  block[63] = 2;
  BlockPairs pairs;
  ScalarCoefficientKernels().pair(block.data(), 1, 1, &pairs);
  ASSERT_EQ(pairs.count, 4u);
  EXPECT_EQ(pairs.withEscapes, 3u);  // the last of them is the third
  EXPECT_EQ(pairs.indices[0], WriteCodes::PairIndex(1, 2, false));
  EXPECT_EQ(pairs.indices[1], WriteCodes::PairIndex(3, 3, true));
  EXPECT_EQ(pairs.indices[2], WriteCodes::PairIndex(58, 0, true));
  EXPECT_EQ(pairs.indices[3], WriteCodes::PairIndex(1, 1, false));
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
