#include <cstddef>

#include "zel/dnxhd/rate_control/rate_search.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/dnxhd/rate_control/rate_search_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

// A lane is a macroblock. This file is compiled without contraction of products and sums, so that
// costs are those of the definition to the last bit, ties included.

HWY_BEFORE_NAMESPACE();
namespace zel::dnxhd::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

SearchTotals EvaluateTable(const SearchTable& table, double lambda) {
  const hn::CappedTag<double, 8> d;
  const hn::Rebind<float, decltype(d)> df;
  const size_t lanes = hn::Lanes(d);
  static_assert(SearchTable::kPadding % 8 == 0);
  const auto price = hn::Set(d, lambda);
  auto bits = hn::Zero(d);
  auto distortion = hn::Zero(d);
  for (size_t i = 0; i < table.count; i += lanes) {
    auto best = hn::Set(d, kWorstCost);
    auto bestRate = hn::Zero(d);
    auto bestDistortion = hn::Zero(d);
    const float* rates = table.rates.data() + i;
    for (size_t level = 0; level < table.levels; ++level, rates += table.stride) {
      const auto rate = hn::PromoteTo(d, hn::LoadU(df, rates));
      const auto ofLevel = hn::Set(d, table.distortion[level]);
      const auto cost = hn::Add(ofLevel, hn::Mul(rate, price));
      const auto better = hn::Lt(cost, best);
      best = hn::IfThenElse(better, cost, best);
      bestRate = hn::IfThenElse(better, rate, bestRate);
      bestDistortion = hn::IfThenElse(better, ofLevel, bestDistortion);
    }
    bits = hn::Add(bits, bestRate);
    if (i + lanes > table.count) {
      const auto real = hn::FirstN(d, table.count - i);
      bestDistortion = hn::IfThenElseZero(real, bestDistortion);
    }
    distortion = hn::Add(distortion, bestDistortion);
  }
  return {hn::GetLane(hn::SumOfLanes(d, bits)), hn::GetLane(hn::SumOfLanes(d, distortion))};
}

}  // namespace

SearchTotals VectorEvaluate(const SearchTable& table, double lambda) {
  return EvaluateTable(table, lambda);
}

}  // namespace zel::dnxhd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::dnxhd {

HWY_EXPORT(VectorEvaluate);

const SearchKernels& VectorSearchKernels() {
  static constexpr SearchKernels kKernels = {[](const SearchTable& table, double lambda) {
    return HWY_DYNAMIC_DISPATCH(VectorEvaluate)(table, lambda);
  }};
  return kKernels;
}

}  // namespace zel::dnxhd
#endif
