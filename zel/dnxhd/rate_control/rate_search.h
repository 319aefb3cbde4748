#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

// The inner loop of the rate-distortion search: for a price of a bit, the cheapest level of every
// macroblock, and what all of them come to.

namespace zel::dnxhd {

inline constexpr size_t kMaxLevels = 8;

/// Rates of a job's macroblocks, level by level, for vectors. Levels that a macroblock must not
/// take have an infinite rate.
struct SearchTable {
  size_t levels = 0;
  size_t stride = 0;         // macroblocks of a level, padded with copies of nothing: all rates 0
  size_t count = 0;          // macroblocks
  std::vector<float> rates;  // levels * stride; whole numbers below 2^16
  std::array<double, kMaxLevels> distortion{};

  /// A multiple of this many macroblocks.
  static constexpr size_t kPadding = 16;
  void Resize(size_t macroblocks);
};

/// Sums over the macroblocks, which hold exactly.
struct SearchTotals {
  double bits;
  double distortion;
};

struct SearchKernels {
  /// The cost of a level is distortion + rate * lambda in 64-bit floating point, rounded twice. The
  /// cheapest wins, the lower one of equals; a macroblock none of whose levels costs less than 1e27
  /// adds nothing.
  SearchTotals (*evaluate)(const SearchTable& table, double lambda);
};

const SearchKernels& ScalarSearchKernels();  // the definition
const SearchKernels& VectorSearchKernels();  // the best that this machine runs

/// What a macroblock's search starts from: more than any level costs.
inline constexpr double kWorstCost = 1e27;

}  // namespace zel::dnxhd
