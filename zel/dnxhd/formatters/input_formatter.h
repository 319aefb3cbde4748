#pragma once

#include <type_traits>

#include "zel/dnxhd/formatters/color_conversion.h"
#include "zel/dnxhd/formatters/formatter_info.h"
#include "zel/dnxhd/formatters/processor.h"

namespace zel::dnxhd {

/// What all input formatters have in common: everything but the samples.
class LineInputFormatter : public CDCTInputFormatter {
 public:
  int Configure(const InputFormatterResource& info) override;
  int FormatRow(const RowLines<const uint8_t>& source, int16_t* destination,
                bool lastRowFlag) const override;

 protected:
  explicit LineInputFormatter(size_t blocks) : blocks_(blocks) {}
  const InputFormatterResource& Info() const { return info_; }

  /// Codes of Info().LineDepth() bits, as wide as the application's raster.
  virtual void ReadLine(const uint8_t* in, const uint8_t* low, PlanarLine& out) const = 0;

  /// What takes lines straight into blocks, and the bytes that it takes for a pixel. None in most.
  struct BlockReader {
    UnpackYCbCr unpack = nullptr;
    size_t bytesPerPixel = 0;
  };
  virtual BlockReader ReaderToBlocks() const { return {}; }

 private:
  void ReadToBlocks(const BlockReader& reader, const RowLines<const uint8_t>& source,
                    const BlockRow& row, size_t lines, int16_t* destination) const;

  class RowSource;
  class BlockSink;

  const size_t blocks_;  // of a macroblock
  InputFormatterResource info_{};
};

/// Y, Cb and Cr, into 8 blocks.
template <Processor Cpu, YCbCrSamples Samples>
class YCbCrInputFormatter : public LineInputFormatter {
 public:
  YCbCrInputFormatter() : LineInputFormatter(8), kernels_(YCbCrKernelsOf<Cpu>()) {}

 protected:
  void ReadLine(const uint8_t* in, const uint8_t* low, PlanarLine& out) const override {
    const auto& kernels = Info().LineDepth() == 10 ? kernels_.depth10 : kernels_.depth8;
    kernels.unpack[static_cast<size_t>(Samples)](in, low, out[0], out[1], out[2], Info().width);
  }
  BlockReader ReaderToBlocks() const override {
    if constexpr (Samples == YCbCrSamples::kV210) {
      return {};
    } else {
      const auto& kernels = Info().LineDepth() == 10 ? kernels_.depth10 : kernels_.depth8;
      return {kernels.unpackToBlocks[static_cast<size_t>(Samples)], 2 * BytesOfSample(Samples)};
    }
  }

 private:
  const YCbCrKernels kernels_;
};

/// RGB: into 12 blocks of the 4:4:4 family, or into 8 with chroma of half the width.
template <Processor Cpu, RgbSamples Samples, size_t Blocks>
class RgbInputFormatter : public LineInputFormatter {
 public:
  RgbInputFormatter() : LineInputFormatter(Blocks), kernels_(RgbKernelsOf<Cpu>()) {}
  int Configure(const InputFormatterResource& info) override {
    conversion_.SetTentFilter(info.tentFilter != 0);
    order_ = OrderOf(info.samples.formatWord, info.samples.sampleType);
    return LineInputFormatter::Configure(info);
  }

 protected:
  void ReadLine(const uint8_t* in, const uint8_t*, PlanarLine& out) const override {
    PlanarLine rgb;
    kernels_.unpack[static_cast<size_t>(Samples)](in, order_, rgb[0], rgb[1], rgb[2], Info().width);
    if constexpr (Blocks == 12) {
      conversion_.FromRgb(rgb, out, Info().width, Info().LineDepth());
    } else {
      conversion_.FromRgbTo422(rgb, out, Info().width, Info().LineDepth());
    }
  }

 private:
  const RgbKernels kernels_;
  ColorConversionOf<Cpu> conversion_;
  RgbOrder order_{};
};

}  // namespace zel::dnxhd
