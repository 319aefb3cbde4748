#include <algorithm>
#include <cstdlib>

#include "zel/dnxhd/bitstream/block_order.h"
#include "zel/dnxhd/bitstream/coefficient_kernels.h"
#include "zel/dnxhd/tables/weights.h"

namespace zel::dnxhd {

namespace {

uint32_t MagnitudeOf(int16_t value) {
  return static_cast<uint32_t>(std::abs(int{value}));
}

void Weigh(const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing) {
  const int half = weighing.dcShift == 0 ? 0 : 1 << (weighing.dcShift - 1);
  for (size_t block = 0; block < count; ++block, blocks += 64, out += 64) {
    out[0] = static_cast<int16_t>(std::clamp((blocks[0] + half) >> weighing.dcShift,
                                             -weighing.largestDc - 1, int{weighing.largestDc}));
    for (size_t k = 1; k < kBlockCoefficients; ++k) {
      const int16_t value = blocks[kScan[k]];
      const uint32_t scaled = MagnitudeOf(value) << weighing.preShift & 0xFFFF;
      const int level =
          static_cast<int>(std::min<uint32_t>(scaled * weighing.scales[k] >> 16, weighing.largest));
      out[k] = static_cast<int16_t>(value < 0 ? -level : level);
    }
  }
}

void Split(const int16_t* blocks, size_t count, uint32_t shift, uint16_t* magnitudes,
           BlockMasks* masks) {
  for (size_t block = 0; block < count; ++block, blocks += 64, magnitudes += 64) {
    BlockMasks& mask = masks[block];
    mask = {};
    for (size_t k = 0; k < kBlockCoefficients; ++k) {
      const uint32_t magnitude = MagnitudeOf(blocks[k]) >> shift;
      magnitudes[k] = static_cast<uint16_t>(magnitude);
      if (k == 0) continue;
      mask.nonzero |= uint64_t{magnitude != 0} << k;
      mask.negative |= uint64_t{blocks[k] < 0} << k;
    }
  }
}

uint32_t BlockAcBits(const int16_t* block, const BitCost& cost, uint32_t level) {
  uint32_t bits = 0;
  uint32_t zeros = 0;
  for (size_t k = 1; k < kBlockCoefficients; ++k) {
    const uint32_t magnitude = MagnitudeOf(block[k]) >> level;
    if (magnitude == 0) {
      ++zeros;
      continue;
    }
    bits += cost.Coefficient(magnitude, zeros);
    zeros = 0;
  }
  return bits;
}

void AcBits(const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first, uint32_t last,
            uint32_t* bits) {
  for (size_t block = 0; block < count; ++block) {
    for (uint32_t level = first; level <= last; ++level) {
      bits[level - first] += BlockAcBits(blocks + 64 * block, cost, level);
    }
  }
}

}  // namespace

const CoefficientKernels& ScalarCoefficientKernels() {
  static constexpr CoefficientKernels kKernels = {Weigh, Split, AcBits};
  return kKernels;
}

}  // namespace zel::dnxhd
