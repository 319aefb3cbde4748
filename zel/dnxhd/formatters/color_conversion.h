#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/bitstream/row_reader.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

// Between RGB and Y, Cb and Cr by ITU-R BT.709, for lines of pixels and for rows of macroblocks.
// RGB is full range, Y, Cb and Cr are video range.

namespace zel::dnxhd {

/// Lines. RGB is in fixed point; Y, Cb and Cr are codes of `depth` bits, their chroma at half the
/// width ("422") or at the full one.
///
/// Chroma goes to half its width as the mean of each pair, and back by repeating it; with the tent
/// filter each chroma sample stands on the first luma sample of its pair and is the mean of 1, 2
/// and 1 around it, and those between are the mean of their neighbours.
class ColorConversion {
 public:
  virtual ~ColorConversion() = default;
  void SetTentFilter(bool on) { tentFilter_ = on; }

  void FromRgb(const PlanarLine& rgb, PlanarLine& out, size_t pixels, int depth) const;
  void FromRgbTo422(const PlanarLine& rgb, PlanarLine& out, size_t pixels, int depth) const;
  void ToRgb(const PlanarLine& in, PlanarLine& rgb, size_t pixels, int depth) const;
  void ToRgbFrom422(const PlanarLine& in, PlanarLine& rgb, size_t pixels, int depth) const;
  /// Halves the chroma of a line in place.
  void To422(PlanarLine& line, size_t pixels) const;
  void Limit(PlanarLine& line, size_t lumaSamples, size_t chromaSamples, int depth) const;

 protected:
  explicit ColorConversion(const ColorKernels& kernels) : kernels_(kernels) {}

 private:
  void Halve(const int16_t* in, int16_t* out, size_t samples) const;

  const ColorKernels kernels_;
  bool tentFilter_ = false;
};

class BaseColorConversion final : public ColorConversion {
 public:
  BaseColorConversion() : ColorConversion(ScalarColorKernels()) {}
};

class OptColorConversion final : public ColorConversion {
 public:
  OptColorConversion() : ColorConversion(VectorColorKernels()) {}
};

/// Rows of 4:4:4 macroblocks, in samples of 10 bits, before the forward transform or behind the
/// inverse one. Both are linear: what comes of it is what the conversion of coefficients would
/// give.
///
/// The components of a macroblock are Y, Cb and Cr, or G, B and R in their places. Macroblocks
/// whose flag `color` is clear in the stream are the latter.
class ColorConversionDCT {
 public:
  virtual ~ColorConversionDCT() = default;

  /// Which macroblocks the two below convert: those whose flag is this. False to begin with.
  void SetConverted(bool flagged) { converted_ = flagged; }

  /// From G, B and R to Y, Cb and Cr.
  void ForwardRow(int16_t* blocks, const MacroblockFlags* flags, size_t mbCols) const;
  /// The other way round.
  void InverseRow(int16_t* blocks, const MacroblockFlags* flags, size_t mbCols) const;

 protected:
  ColorConversionDCT(const ColorKernels& colors, const RgbKernels& rgb)
      : colors_(colors), rgb_(rgb) {}

 private:
  const ColorKernels colors_;
  const RgbKernels rgb_;
  bool converted_ = false;
};

class BaseColorConversionDCT final : public ColorConversionDCT {
 public:
  BaseColorConversionDCT() : ColorConversionDCT(ScalarColorKernels(), ScalarRgbKernels()) {}
};

class OptColorConversionDCT final : public ColorConversionDCT {
 public:
  OptColorConversionDCT() : ColorConversionDCT(VectorColorKernels(), VectorRgbKernels()) {}
};

}  // namespace zel::dnxhd
