#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/bitstream/write_codes.h"

// What the encoder does with all coefficients of a frame. Behind the transform, a block is 64
// values in the order of the scan: DC first, which is coded as it stands, then the AC coefficients
// weighed, that is, as levels of the quantiser of step 1. A step of 1 << n gives the levels
// magnitude >> n.

namespace zel::dnxhd {

/// How the coefficients of a component are weighed. All in the order of the scan.
struct Weighing {
  /// level = (magnitude << preShift) * scale >> 16.
  std::array<uint16_t, 64> scales{};
  uint32_t preShift = 0;
  uint32_t dcShift = 0;  // DC is rounded off by this many bits
  // What the codes have room for; no picture's coefficients pass it.
  uint16_t largest = 0;      // magnitude of AC
  int16_t largestDc = 4095;  // the smallest is -largestDc - 1
};

/// The AC coefficients of a block that are not 0 at a step, in the order of the scan, as
/// WriteCodes::PairIndex makes them.
struct BlockPairs {
  alignas(64) std::array<uint16_t, 64> indices;  // vectors may write behind `count`
  uint32_t count;
  /// Those too large for a pair of codes have the indices of the magnitude 0. The last of them is
  /// the last of this many; 0 if there is none.
  uint32_t withEscapes;
};

struct CoefficientKernels {
  /// From `count` blocks of the transform, in raster order, to blocks in scan order.
  void (*weigh)(const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing);
  /// `count` blocks at a step of 1 << shift, shift at most 15.
  void (*pair)(const int16_t* blocks, size_t count, uint32_t shift, BlockPairs* pairs);
  /// Adds the bits of the AC coefficients of `count` blocks, without ends of blocks, at the steps
  /// 1 << first to 1 << last, eight steps at most and last at most 15, to bits[0] and on.
  /// Magnitudes are at most 4096.
  void (*acBits)(const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first,
                 uint32_t last, uint32_t* bits);
};

const CoefficientKernels& ScalarCoefficientKernels();  // the definition
const CoefficientKernels& VectorCoefficientKernels();  // the best that this machine runs

}  // namespace zel::dnxhd
