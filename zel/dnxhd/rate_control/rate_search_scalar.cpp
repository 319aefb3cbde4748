#include "zel/dnxhd/rate_control/rate_search.h"

namespace zel::dnxhd {

namespace {

SearchTotals Evaluate(const SearchTable& table, double lambda) {
  SearchTotals totals{};
  for (size_t i = 0; i < table.count; ++i) {
    double best = kWorstCost;
    double bits = 0;
    double distortion = 0;
    for (size_t level = 0; level < table.levels; ++level) {
      const double rate = double{table.rates[level * table.stride + i]};
      const double cost = table.distortion[level] + rate * lambda;
      if (cost < best) {
        best = cost;
        bits = rate;
        distortion = table.distortion[level];
      }
    }
    totals.bits += bits;
    totals.distortion += distortion;
  }
  return totals;
}

}  // namespace

void SearchTable::Resize(size_t macroblocks) {
  count = macroblocks;
  stride = (macroblocks + kPadding - 1) / kPadding * kPadding;
  rates.assign(levels * stride, 0.0F);
}

const SearchKernels& ScalarSearchKernels() {
  static constexpr SearchKernels kKernels = {Evaluate};
  return kKernels;
}

}  // namespace zel::dnxhd
