#include "zel/base/zero_search.h"

namespace zel::base {

namespace {

size_t findZeroZero(const uint8_t* bytes, size_t size, uint8_t last) {
  for (size_t i = 0; i + 3 <= size; ++i) {
    if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == last) return i;
  }
  return size;
}

}  // namespace

const ZeroSearchKernels& scalarZeroSearch() {
  static constexpr ZeroSearchKernels kKernels = {findZeroZero};
  return kKernels;
}

}  // namespace zel::base
