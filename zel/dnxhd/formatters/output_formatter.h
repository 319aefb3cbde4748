#pragma once

#include "zel/dnxhd/formatters/color_conversion.h"
#include "zel/dnxhd/formatters/formatter_info.h"
#include "zel/dnxhd/formatters/processor.h"
#include "zel/dnxhd/formatters/resampler.h"

namespace zel::dnxhd {

/// What all output formatters have in common: everything but the samples.
class LineOutputFormatter : public CDCTOutputFormatter {
 public:
  int Configure(const FormatterInfo_t& info) override;
  int WriteRow(const int16_t* samples, const BlockRow& row, const RowLines<uint8_t>& destination,
               size_t count) const override;
  int WriteLines(PlanarLine& line, const RowLines<uint8_t>& destination, size_t at) const override;

 protected:
  explicit LineOutputFormatter(int depth) : depth_(depth) {}
  const FormatterInfo_t& Info() const { return info_; }

  /// Codes of Info().LineDepth() bits or samples that may lie outside of them; as wide as the
  /// application's raster.
  virtual void WriteLine(PlanarLine& line, uint8_t* out, uint8_t* low) const = 0;

  /// What takes lines straight from blocks, and the bytes that it makes of a pixel. None in most.
  struct BlockWriter {
    PackYCbCr pack = nullptr;
    size_t bytesPerPixel = 0;
  };
  virtual BlockWriter WriterFromBlocks() const { return {}; }

 private:
  void WriteFromBlocks(const BlockWriter& writer, const int16_t* samples, const BlockRow& row,
                       const RowLines<uint8_t>& destination, size_t count) const;

  const int depth_;  // of the compressions that the class is for
  FormatterInfo_t info_{};
};

/// Y, Cb and Cr. Of 4:4:4 macroblocks chroma is brought to half the width.
template <Processor Cpu, YCbCrSamples Samples, int Depth, size_t Blocks>
class YCbCrOutputFormatter : public LineOutputFormatter {
 public:
  YCbCrOutputFormatter() : LineOutputFormatter(Depth), kernels_(YCbCrKernelsOf<Cpu>()) {}
  int Configure(const FormatterInfo_t& info) override {
    conversion_.SetTentFilter(info.tentFilter != 0);
    return LineOutputFormatter::Configure(info);
  }

 protected:
  void WriteLine(PlanarLine& line, uint8_t* out, uint8_t* low) const override {
    const size_t width = Info().width;
    if constexpr (Blocks == 12) {
      conversion_.Limit(line, width, width, Info().LineDepth());
      conversion_.To422(line, width);
    }
    const auto& kernels = Info().LineDepth() == 10 ? kernels_.depth10 : kernels_.depth8;
    kernels.pack[static_cast<size_t>(Samples)](line[0], line[1], line[2], out, low, width);
  }
  BlockWriter WriterFromBlocks() const override {
    if constexpr (Blocks == 12 || Samples == YCbCrSamples::kV210) {
      return {};
    } else {
      const auto& kernels = Info().LineDepth() == 10 ? kernels_.depth10 : kernels_.depth8;
      return {kernels.packFromBlocks[static_cast<size_t>(Samples)], 2 * BytesOfSample(Samples)};
    }
  }

 private:
  const YCbCrKernels kernels_;
  ColorConversionOf<Cpu> conversion_;
};

/// RGB, from either kind of macroblocks.
template <Processor Cpu, RgbSamples Samples, int Depth, size_t Blocks>
class RgbOutputFormatter : public LineOutputFormatter {
 public:
  RgbOutputFormatter() : LineOutputFormatter(Depth), kernels_(RgbKernelsOf<Cpu>()) {}
  int Configure(const FormatterInfo_t& info) override {
    conversion_.SetTentFilter(info.tentFilter != 0);
    order_ = OrderOf(info.samples.formatWord, info.samples.sampleType);
    return LineOutputFormatter::Configure(info);
  }

 protected:
  void WriteLine(PlanarLine& line, uint8_t* out, uint8_t*) const override {
    const size_t width = Info().width;
    PlanarLine rgb;
    if constexpr (Blocks == 12) {
      conversion_.ToRgb(line, rgb, width, Info().LineDepth());
    } else {
      conversion_.Limit(line, width, width / 2, Info().LineDepth());
      conversion_.ToRgbFrom422(line, rgb, width, Info().LineDepth());
    }
    kernels_.pack[static_cast<size_t>(Samples)](rgb[0], rgb[1], rgb[2], order_, out, width);
  }

 private:
  const RgbKernels kernels_;
  ColorConversionOf<Cpu> conversion_;
  RgbOrder order_{};
};

}  // namespace zel::dnxhd
