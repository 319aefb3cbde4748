#include "zel/dnxhd/encoder/quant_tables.h"

#include "zel/dnxhd/bitstream/frame_header.h"

namespace zel::dnxhd {

namespace {

// Coefficients come in the scale of 10 bits whatever the depth.
constexpr uint32_t kTransformDepth = 10;
constexpr uint32_t kPreShift444 = 2;

uint16_t Factor(uint32_t inverse, uint32_t depth, uint32_t step, uint32_t preShift) {
  const uint32_t factor = ((inverse >> (kTransformDepth - depth)) + (step >> 1)) / step;
  return static_cast<uint16_t>(factor >> preShift);
}

Weighing MakeWeighing(const VCIDEntry& entry, bool luma) {
  const QuantTables tables(entry);
  Weighing weighing;
  weighing.scales = luma ? tables.steps[0].luma : tables.steps[0].chroma;
  weighing.preShift = tables.preShift;
  weighing.dcShift = kTransformDepth - entry.depth;
  weighing.largest = static_cast<uint16_t>(64u << (entry.depth - 4));
  weighing.largestDc = static_cast<int16_t>((1 << (entry.depth + 2)) - 1);
  return weighing;
}

}  // namespace

InverseWeights InverseWeightsOf(const VCIDEntry& entry, const std::array<uint32_t, 64>& weights) {
  const bool eighths = entry.depth == 10 && !IsRgbFamily(entry);
  InverseWeights inverse{};
  for (size_t k = 1; k < inverse.size(); ++k) {
    const uint32_t w = weights[k];
    inverse[k] = ((w >> 1) + 65536) / w << (eighths ? 3 : 5);
  }
  return inverse;
}

QuantTables::QuantTables(const VCIDEntry& entry)
    : preShift(CodingModeOf(entry) == kMode444 ? kPreShift444 : 0) {
  const InverseWeights luma = InverseWeightsOf(entry, entry.lumaWeights);
  const InverseWeights chroma = InverseWeightsOf(entry, entry.chromaWeights);
  for (size_t i = 0; i < steps.size(); ++i) {
    for (size_t k = 0; k < luma.size(); ++k) {
      steps[i].luma[k] = Factor(luma[k], entry.depth, kQuantiserSteps[i], preShift);
      steps[i].chroma[k] = Factor(chroma[k], entry.depth, kQuantiserSteps[i], preShift);
    }
  }
}

Weighing LumaWeighing(const VCIDEntry& entry) {
  return MakeWeighing(entry, true);
}

Weighing ChromaWeighing(const VCIDEntry& entry) {
  return MakeWeighing(entry, false);
}

}  // namespace zel::dnxhd
