#include "zel/base/zero_search.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/base/zero_search_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace zel::base::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// Whether one of the vector's places begins the pattern: which one, or negative. A load for each of
// the pattern's three bytes is cheaper than to shift lanes, and looks at data that is in the cache.
template <class D, class V>
HWY_INLINE intptr_t findIn(D d, const uint8_t* HWY_RESTRICT at, V last) {
  const V zeros = hn::Or(hn::LoadU(d, at), hn::LoadU(d, at + 1));
  const V differs = hn::Or(zeros, hn::Xor(hn::LoadU(d, at + 2), last));
  return hn::FindFirstTrue(d, hn::Eq(differs, hn::Zero(d)));
}

size_t FindZeroZero(const uint8_t* HWY_RESTRICT bytes, size_t size, uint8_t lastByte) {
  const hn::ScalableTag<uint8_t> d;
  const size_t lanes = hn::Lanes(d);
  if (size < lanes + 2) return scalarZeroSearch().findZeroZero(bytes, size, lastByte);
  const auto last = hn::Set(d, lastByte);
  const size_t end = size - lanes - 2;  // the last place where a whole vector can be tried
  for (size_t i = 0; i < end; i += lanes) {
    const intptr_t found = findIn(d, bytes + i, last);
    if (found >= 0) return i + static_cast<size_t>(found);
  }
  // The tail is a whole vector as well, which looks at some places twice.
  const intptr_t found = findIn(d, bytes + end, last);
  return found >= 0 ? end + static_cast<size_t>(found) : size;
}

}  // namespace zel::base::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::base {

HWY_EXPORT(FindZeroZero);

const ZeroSearchKernels& vectorZeroSearch() {
  static constexpr ZeroSearchKernels kKernels = {
      [](const uint8_t* bytes, size_t size, uint8_t last) {
        return HWY_DYNAMIC_DISPATCH(FindZeroZero)(bytes, size, last);
      }};
  return kKernels;
}

}  // namespace zel::base
#endif
