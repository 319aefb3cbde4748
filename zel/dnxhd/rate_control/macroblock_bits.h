#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/bitstream/block_order.h"
#include "zel/dnxhd/bitstream/coefficient_kernels.h"
#include "zel/dnxhd/bitstream/write_codes.h"

// True bits of a macroblock, its header apart.

namespace zel::dnxhd {

/// The macroblocks of a picture, as stage 1 leaves them.
struct MacroblockPlane {
  const int16_t* coefficients = nullptr;
  /// By macroblock, the last DC value of each component: what the next one is predicted from.
  const uint16_t* dcValues = nullptr;
  uint32_t mbCols = 0;
  CodingMode mode = kMode422;

  const int16_t* Macroblock(size_t index) const {
    return coefficients + index * BlocksOf(mode) * kBlockCoefficients;
  }
};

class MacroblockBits {
 public:
  MacroblockBits(const MacroblockPlane& plane, const BitCost& cost) : plane_(plane), cost_(cost) {}

  /// DC differences and ends of blocks: what every level takes.
  uint32_t Fixed(size_t index) const;
  /// At the levels `first` to `last`, at most kMaxCountedLevels of them, to bits[0] and on.
  void AtLevels(size_t index, uint32_t first, uint32_t last, uint32_t* bits) const;
  /// At any step from 1 on.
  uint32_t AtStep(size_t index, uint32_t step) const;
  /// Largest magnitude of an AC coefficient, at step 1.
  uint32_t Largest(size_t index) const;

 private:
  const MacroblockPlane& plane_;
  const BitCost& cost_;
};

}  // namespace zel::dnxhd
