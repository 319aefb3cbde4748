// Sums of two products, for each target: included by vector files inside of what HWY_TARGET_INCLUDE
// includes again, so that this has no guard of its own but Highway's.

#if defined(ZEL_DNXHD_FORMATTERS_PAIR_PRODUCTS) == defined(HWY_TARGET_TOGGLE)
#ifdef ZEL_DNXHD_FORMATTERS_PAIR_PRODUCTS
#undef ZEL_DNXHD_FORMATTERS_PAIR_PRODUCTS
#else
#define ZEL_DNXHD_FORMATTERS_PAIR_PRODUCTS
#endif

#include <hwy/highway.h>

#if HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR
HWY_BEFORE_NAMESPACE();
namespace zel::dnxhd::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using D16 = hn::FixedTag<int16_t, 8>;
using D16Half = hn::FixedTag<int16_t, 4>;
using D32 = hn::FixedTag<int32_t, 4>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;

// Two weights, for the lanes of a pair.
HWY_INLINE V16 Weights(int16_t first, int16_t second) {
  const auto both = static_cast<uint32_t>(static_cast<uint16_t>(first)) |
                    static_cast<uint32_t>(static_cast<uint16_t>(second)) << 16;
  return hn::BitCast(D16(), hn::Set(D32(), static_cast<int32_t>(both)));
}

// Of each pair of lanes, the sum of the products.
HWY_INLINE V32 PairSums(V16 a, V16 b) {
  const D32 d;
  V32 rest = hn::Zero(d);
  const V32 sums = hn::ReorderWidenMulAccumulate(d, a, b, hn::Zero(d), rest);
  return hn::RearrangeToOddPlusEven(sums, rest);
}

// Sums for eight samples of a line.
struct Wide {
  V32 low;
  V32 high;
};

// a * first + b * second, `weights` being that pair.
HWY_INLINE Wide Products(V16 a, V16 b, V16 weights) {
  const D16 d;
  return {PairSums(hn::InterleaveLower(d, a, b), weights),
          PairSums(hn::InterleaveUpper(d, a, b), weights)};
}
HWY_INLINE Wide operator+(const Wide& a, const Wide& b) {
  return {hn::Add(a.low, b.low), hn::Add(a.high, b.high)};
}

HWY_INLINE V16 Narrowed(V32 low, V32 high) {
  const D16Half half;
  return hn::Combine(D16(), hn::DemoteTo(half, high), hn::DemoteTo(half, low));
}

// Rounded half up, limited to 16 bits.
template <int Shift>
HWY_INLINE V16 Rounded(const Wide& sums) {
  const V32 half = hn::Set(D32(), 1 << (Shift - 1));
  return Narrowed(hn::ShiftRight<Shift>(hn::Add(sums.low, half)),
                  hn::ShiftRight<Shift>(hn::Add(sums.high, half)));
}

}  // namespace zel::dnxhd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#endif
