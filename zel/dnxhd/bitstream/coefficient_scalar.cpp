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

void Pair(const int16_t* blocks, size_t count, uint32_t shift, BlockPairs* pairs) {
  for (size_t block = 0; block < count; ++block, blocks += 64) {
    BlockPairs& made = pairs[block];
    made.count = 0;
    made.withEscapes = 0;
    size_t before = 0;
    for (size_t k = 1; k < kBlockCoefficients; ++k) {
      const uint32_t magnitude = MagnitudeOf(blocks[k]) >> shift;
      if (magnitude == 0) continue;
      const auto distance = static_cast<uint32_t>(k - before);
      before = k;
      const bool escaped = magnitude >= kEscapeMagnitude;
      made.indices[made.count++] = static_cast<uint16_t>(
          WriteCodes::PairIndex(distance, escaped ? 0 : magnitude, blocks[k] < 0));
      if (escaped) made.withEscapes = made.count;
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
  static constexpr CoefficientKernels kKernels = {Weigh, Pair, AcBits};
  return kKernels;
}

}  // namespace zel::dnxhd
