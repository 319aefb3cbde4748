#include "zel/dnxhd/rate_control/macroblock_bits.h"

#include <algorithm>
#include <cstdlib>

#include "zel/dnxhd/bitstream/row_writer.h"

namespace zel::dnxhd {

uint32_t MacroblockBits::Fixed(size_t index) const {
  std::array<int32_t, 3> predictors{};
  if (index % plane_.mbCols != 0) {
    for (size_t component = 0; component < predictors.size(); ++component) {
      predictors[component] = static_cast<int16_t>(plane_.dcValues[3 * (index - 1) + component]);
    }
  }
  return cost_.endOfBlocks +
         DcBits(plane_.Macroblock(index), plane_.mode, cost_, predictors.data());
}

void MacroblockBits::AtLevels(size_t index, uint32_t first, uint32_t last, uint32_t* bits) const {
  std::fill_n(bits, last - first + 1, Fixed(index));
  VectorCoefficientKernels().acBits(plane_.Macroblock(index), BlocksOf(plane_.mode), cost_, first,
                                    last, bits);
}

uint32_t MacroblockBits::AtStep(size_t index, uint32_t step) const {
  // Dividing twice rounds down to what dividing once by the product does.
  std::array<int16_t, kMaxBlocks * kBlockCoefficients> divided;
  const size_t count = BlocksOf(plane_.mode) * kBlockCoefficients;
  const int16_t* const macroblock = plane_.Macroblock(index);
  for (size_t i = 0; i < count; ++i) {
    divided[i] = static_cast<int16_t>(macroblock[i] / static_cast<int32_t>(step));
  }
  uint32_t bits = Fixed(index);
  VectorCoefficientKernels().acBits(divided.data(), BlocksOf(plane_.mode), cost_, 0, 0, &bits);
  return bits;
}

uint32_t MacroblockBits::Largest(size_t index) const {
  int largest = 0;
  const int16_t* const macroblock = plane_.Macroblock(index);
  for (size_t i = 0; i < BlocksOf(plane_.mode) * kBlockCoefficients; ++i) {
    if (i % kBlockCoefficients != 0) largest = std::max(largest, std::abs(int{macroblock[i]}));
  }
  return static_cast<uint32_t>(largest);
}

}  // namespace zel::dnxhd
