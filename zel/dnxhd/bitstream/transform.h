#pragma once

#include <cstddef>
#include <cstdint>

// The 8 by 8 transforms, in the scale of the orthonormal DCT. Blocks are 64 values in raster order,
// aligned to 16 bytes; samples are centred on 0.
//
// Both directions are two passes of exact integer products with constants of 16 fraction bits. What
// is between the passes has `fraction` more bits than the samples and is limited to 16 bits. Sums
// are taken modulo 2^32, which no block that comes of a picture ever notices, and makes the result
// of any other the same everywhere.

namespace zel::dnxhd {

/// Fraction bits between the passes of the inverse transform: what 16 bits leave room for.
constexpr int InverseFraction(int depth) {
  return depth == 10 ? 3 : 5;
}

struct TransformKernels {
  /// `count` blocks that lie one behind the other, in place.
  void (*inverse)(int16_t* blocks, size_t count, int fraction);
  /// The inverse at half or quarter size: `size` 4 or 2. Each block's first size * size values are
  /// then its samples, row by row; they come of its lowest frequencies only.
  void (*inverseReduced)(int16_t* blocks, size_t count, int fraction, int size);
  /// The forward transform. Samples are within -512 to 511; of others the result is not defined.
  void (*forward)(int16_t* blocks, size_t count);
  /// The same of samples of 8 bits, -128 to 127, which come out in the scale of 10 bits.
  void (*forward8)(int16_t* blocks, size_t count);
};

const TransformKernels& ScalarTransformKernels();  // the definition
const TransformKernels& VectorTransformKernels();  // the best that this machine runs

}  // namespace zel::dnxhd
