#pragma once

#include <cstdint>
#include <memory>

#include "zel/dnxhd/formatters/color_conversion.h"
#include "zel/dnxhd/formatters/formatter_info.h"
#include "zel/dnxhd/formatters/resampler.h"
#include "zel/dnxhd/formatters/transform_classes.h"

namespace zel::dnxhd {

/// Picks the class for each combination of samples, depth and resolution. What has none gives null.
class Formatter {
 public:
  virtual ~Formatter() = default;

  uint32_t useReference = 0;  // 1: the CBase classes, which define what the COpt ones do
  uint32_t rgbCoded = 0;      // 1: the compression is 4:4:4

  std::unique_ptr<CDCTInputFormatter> MakeInput(const SampleDescription& samples) const;
  std::unique_ptr<CDCTOutputFormatter> MakeOutput(const SampleDescription& samples,
                                                  int depth) const;
  std::unique_ptr<CForwardDCT> MakeForward(int depth) const;
  /// `alwaysFull` is for interlaced thin rasters (1260), whose transform is never reduced.
  std::unique_ptr<CInverseDCT> MakeInverse(int depth, uint32_t resolution, bool alwaysFull) const;
  std::unique_ptr<CResampler> MakeResampler(ResamplerForm form, const ResamplerInfo& info) const;
  /// Null but for 4:4:4.
  std::unique_ptr<ColorConversionDCT> MakeColorConversion() const;
};

}  // namespace zel::dnxhd
