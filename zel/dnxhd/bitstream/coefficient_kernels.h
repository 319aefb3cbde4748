#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/dnxhd/bitstream/block_order.h"
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

/// What a list of a macroblock's codes takes: 63 for the coefficients of a block at most, since an
/// escaped one behind a run has two codes for two places at least; and what vectors may write
/// behind the list.
inline constexpr size_t kMostCodes = kMaxBlocks * (1 + 63 + 1);
inline constexpr size_t kCodesBehind = 64;

struct CoefficientKernels {
  /// From `count` blocks of the transform, in raster order, to blocks in scan order.
  void (*weigh)(const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing);
  /// Lists the codes of a macroblock whose blocks are at `places`, in their order, at a step of
  /// 1 << shift, shift at most 15: indices of WriteCodes, to `out`, which has room for kMostCodes +
  /// kCodesBehind. `predictors`, by component, move on. @return how many.
  size_t (*list)(const int16_t* macroblock, std::span<const BlockPlace> places, uint32_t shift,
                 int32_t* predictors, uint16_t* out);
  /// Adds the bits of the AC coefficients of `count` blocks, without ends of blocks, at the steps
  /// 1 << first to 1 << last, eight steps at most and last at most 15, to bits[0] and on.
  /// Magnitudes are at most 4096.
  void (*acBits)(const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first,
                 uint32_t last, uint32_t* bits);
};

/// The coefficients of a block behind DC up to place `last`, whatever they are. @return the end of
/// the list.
uint16_t* ListCoefficients(const int16_t* block, uint32_t last, uint32_t shift, uint16_t* out);

const CoefficientKernels& ScalarCoefficientKernels();  // the definition
const CoefficientKernels& VectorCoefficientKernels();  // the best that this machine runs

}  // namespace zel::dnxhd
