#include "zel/dnxhd/rate_control/rate_search.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "tests/support/seed.h"
#include "tests/support/vector_targets.h"

namespace zel::dnxhd {
namespace {

constexpr float kForbidden = std::numeric_limits<float>::infinity();

SearchTable randomTable(size_t macroblocks, std::mt19937_64& random) {
  SearchTable table;
  table.levels = kMaxLevels;
  table.Resize(macroblocks);
  for (size_t level = 0; level < kMaxLevels; ++level) {
    table.distortion[level] = static_cast<double>(uint64_t{1} << (2 * level));
    for (size_t i = 0; i < macroblocks; ++i) {
      float& rate = table.rates[level * table.stride + i];
      rate = static_cast<float>(random() % (random() % 2 != 0 ? 65536 : 5));
      if (random() % 9 == 0) rate = kForbidden;
      if (i % 7 == 0) rate = kForbidden;  // a macroblock without any level
    }
  }
  return table;
}

TEST(SearchKernels, VectorsGiveTheDefinitionsSumsToTheLastBit) {
  std::mt19937_64 random(test::testSeed());
  test::forEachVectorTarget([&](const char* target) {
    for (const size_t macroblocks : {size_t{1}, size_t{7}, size_t{16}, size_t{17}, size_t{1021}}) {
      const SearchTable table = randomTable(macroblocks, random);
      for (const double lambda :
           {0.0, 1e8, 1.0, 3.0, 0.1, 1.0 / 3, static_cast<double>(random()) / 1e17}) {
        const SearchTotals scalar = ScalarSearchKernels().evaluate(table, lambda);
        const SearchTotals vector = VectorSearchKernels().evaluate(table, lambda);
        EXPECT_EQ(scalar.bits, vector.bits) << target;
        EXPECT_EQ(scalar.distortion, vector.distortion) << target;
      }
    }
  });
}

TEST(SearchKernels, ATieGoesToTheLowerLevel) {
  SearchTable table;
  table.levels = 2;
  table.Resize(1);
  table.distortion = {1, 4};
  table.rates[0] = 4;
  table.rates[table.stride] = 1;
  // 1 + 4 * 1 is 4 + 1 * 1.
  for (const SearchKernels* kernels : {&ScalarSearchKernels(), &VectorSearchKernels()}) {
    EXPECT_EQ(kernels->evaluate(table, 1.0).bits, 4);
    EXPECT_EQ(kernels->evaluate(table, 1.0).distortion, 1);
    EXPECT_EQ(kernels->evaluate(table, 1.001).bits, 1);
  }
}

}  // namespace
}  // namespace zel::dnxhd
