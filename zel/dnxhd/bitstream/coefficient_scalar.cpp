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

size_t List(const int16_t* macroblock, std::span<const BlockPlace> places, uint32_t shift,
            int32_t* predictors, uint16_t* out) {
  const uint16_t* const begin = out;
  for (const BlockPlace& place : places) {
    const int16_t* const block = macroblock + place.offset;
    const int32_t dc = block[0];
    const int32_t difference = dc - predictors[place.component];
    *out++ = static_cast<uint16_t>(WriteCodes::DcCodeIndex(difference));
    predictors[place.component] = dc;
    out = ListCoefficients(block, kBlockCoefficients - 1, shift, out);
    *out++ = WriteCodes::kEndOfBlock;
  }
  return static_cast<size_t>(out - begin);
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

uint16_t* ListCoefficients(const int16_t* block, uint32_t last, uint32_t shift, uint16_t* out) {
  uint32_t before = 0;
  for (uint32_t k = 1; k <= last; ++k) {
    const uint32_t magnitude = MagnitudeOf(block[k]) >> shift;
    if (magnitude == 0) continue;
    const uint32_t distance = k - before;
    const bool negative = block[k] < 0;
    before = k;
    if (magnitude < kEscapeMagnitude) {
      *out++ = static_cast<uint16_t>(WriteCodes::PairIndex(distance, magnitude, negative));
      continue;
    }
    *out++ = static_cast<uint16_t>(WriteCodes::EscapeIndex(magnitude, distance > 1, negative));
    if (distance > 1) *out++ = static_cast<uint16_t>(WriteCodes::RunIndex(distance - 1));
  }
  return out;
}

const CoefficientKernels& ScalarCoefficientKernels() {
  static constexpr CoefficientKernels kKernels = {Weigh, List, AcBits};
  return kKernels;
}

}  // namespace zel::dnxhd
