#pragma once

#include <cstddef>
#include <cstdint>

/// Finds two zero bytes followed by a given one: what start codes (00 00 01) and emulation
/// prevention (00 00 03) of MPEG video come down to. It runs over every byte of every elementary
/// stream, so it has a vector form.

namespace zel::base {

struct ZeroSearchKernels {
  /// The place of the first 00 00 `last` in `bytes`, or `size` if there is none.
  size_t (*findZeroZero)(const uint8_t* bytes, size_t size, uint8_t last);
};

const ZeroSearchKernels& scalarZeroSearch();  // the definition
const ZeroSearchKernels& vectorZeroSearch();  // the best that this machine runs

}  // namespace zel::base
