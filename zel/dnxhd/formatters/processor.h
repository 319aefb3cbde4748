#pragma once

#include <type_traits>

#include "zel/dnxhd/formatters/color_conversion.h"
#include "zel/dnxhd/formatters/frame_format.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

namespace zel::dnxhd {

/// The definition, or what the machine does best: the CBase and the COpt classes.
enum class Processor { kBase, kOpt };

template <Processor Cpu>
YCbCrKernels YCbCrKernelsOf() {
  return Cpu == Processor::kBase ? ScalarYCbCrKernels() : VectorYCbCrKernels();
}
template <Processor Cpu>
RgbKernels RgbKernelsOf() {
  return Cpu == Processor::kBase ? ScalarRgbKernels() : VectorRgbKernels();
}
template <Processor Cpu>
using ColorConversionOf =
    std::conditional_t<Cpu == Processor::kBase, BaseColorConversion, OptColorConversion>;

/// Where the samples of a pixel of four stand. Format word 8 is what applications call BGRA in
/// bytes and ARGB in wider words; 4 is RGBA in both.
constexpr RgbOrder OrderOf(uint32_t formatWord, uint32_t sampleType) {
  if (formatWord == 4) return {0, 1, 2, 3};
  if (sampleType == kSamples8) return {2, 1, 0, 3};
  return {1, 2, 3, 0};
}

}  // namespace zel::dnxhd
