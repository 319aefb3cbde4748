#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/bitstream/coefficient_kernels.h"
#include "zel/dnxhd/bitstream/vcid_table.h"

// What an id's weights become for quantising. A level is a coefficient in the scale of the
// orthonormal transform times d / (weight * step), where d is 32 for 8-bit and 4:4:4 ids and 8 for
// the rest; coefficients of 8-bit pictures come from the transform with two more bits.

namespace zel::dnxhd {

inline constexpr std::array<uint16_t, 16> kQuantiserSteps = {1,  2,  3,  4,  5,  6,  7,  8,
                                                             10, 12, 16, 20, 24, 32, 64, 128};

/// By place in the scan, with 16 fraction bits: d / weight. The first, DC's, is 0.
using InverseWeights = std::array<uint32_t, 64>;
InverseWeights InverseWeightsOf(const VCIDEntry& entry, const std::array<uint32_t, 64>& weights);

/// Factors of 16 bits for each step, which a coefficient is multiplied by and shifted right by 16.
struct QuantTables {
  struct Step {
    std::array<uint16_t, 64> luma;
    std::array<uint16_t, 64> chroma;
  };
  std::array<Step, kQuantiserSteps.size()> steps{};
  /// Factors of 4:4:4 ids would pass 16 bits: they are this many bits less, and the coefficients
  /// are shifted left instead.
  uint32_t preShift = 0;

  explicit QuantTables(const VCIDEntry& entry);
};

/// How the luma (first component) or the chroma of an id is weighed, at step 1.
Weighing LumaWeighing(const VCIDEntry& entry);
Weighing ChromaWeighing(const VCIDEntry& entry);

}  // namespace zel::dnxhd
