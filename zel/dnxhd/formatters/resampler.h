#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zel/dnxhd/formatters/filter_description.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

// Stretches and shrinks the lines of thin rasters. Lines are planes in the scale of 10 bits
// whatever the depth, which is 8 wherever a raster is thin: results are multiples of 4.

namespace zel::dnxhd {

/// Gives the lines of a macroblock row, one at a time.
class LineSource {
 public:
  virtual ~LineSource() = default;
  virtual void GetLine(size_t line, PlanarLine& out) = 0;
};

/// Takes lines, which it may write on.
class LineSink {
 public:
  virtual ~LineSink() = default;
  virtual void TakeLine(size_t line, PlanarLine& in) = 0;
};

struct LineRange {
  size_t first;
  size_t count;
};

/// What a resampler is made for. Chroma planes are half as wide.
struct ResamplerInfo {
  uint32_t inputWidth;
  uint32_t outputWidth;
  bool offset;  // samples are codes from 0 to 1023; else they are centred on 0
};

/// The codes of formatters and transforms, resamplers among them.
inline constexpr int kMissingResource = -1;
inline constexpr int kMissingMemory = -2;

class CResampler {
 public:
  virtual ~CResampler() = default;

  /// @return 0; kMissingResource where there is no filter for the two widths.
  virtual int Configure(const ResamplerInfo& info) = 0;

  /// Fetches each line of `range`, filters Y, Cb and Cr, and hands the line on: `destination` is
  /// where it then stands. May be called by several threads at once, each with its own arguments.
  int ProcessLines(LineSource& source, PlanarLine& destination, LineSink& sink,
                   LineRange range) const;

  /// All groups of a line that is extended already. `out` gets `groups` times phaseCount samples,
  /// and may get a few more groups.
  virtual void FilterStep(const int16_t* extended, const FilterDescription& filter, int16_t* out,
                          size_t groups) const = 0;

  // The line filters: of lines that are centred, of lines of codes, and of lines of bytes that
  // nothing has brought to the scale of 10 bits. What a form has no filter for says so.
  virtual int FilterCentredY(const int16_t*, int16_t*) const { return kMissingResource; }
  virtual int FilterCentredCb(const int16_t*, int16_t*) const { return kMissingResource; }
  virtual int FilterCentredCr(const int16_t*, int16_t*) const { return kMissingResource; }
  virtual int FilterOffsetY(const int16_t*, int16_t*) const { return kMissingResource; }
  virtual int FilterOffsetCb(const int16_t*, int16_t*) const { return kMissingResource; }
  virtual int FilterOffsetCr(const int16_t*, int16_t*) const { return kMissingResource; }
  virtual int FilterBytesY(const int16_t*, int16_t*) const { return kMissingResource; }
  virtual int FilterBytesCb(const int16_t*, int16_t*) const { return kMissingResource; }
  virtual int FilterBytesCr(const int16_t*, int16_t*) const { return kMissingResource; }

 protected:
  ResamplerInfo info_{};
};

/// What the two forms do with a whole line. Vectors may read 8 groups more than the line has.
struct ResampleKernels {
  /// Brings samples to the scale of 8 bits, times 4; `offset` says that they are codes.
  void (*reduce)(const int16_t* in, int16_t* out, size_t samples, bool offset);
  /// CResampler::FilterStep of each form.
  void (*quality)(const int16_t* extended, const FilterDescription& filter, int16_t* out,
                  size_t groups);
  void (*draft)(const int16_t* extended, const FilterDescription& filter, int16_t* out,
                size_t groups);
};
const ResampleKernels& ScalarResampleKernels();  // the definition
ResampleKernels VectorResampleKernels();         // the best that this machine runs

/// The long filters: 24 taps to shrink 4 to 3, 16 to stretch 3 to 4; chroma has its own, as it
/// stands on every other luma sample and not between them. Samples are brought to 8 bits first.
class CBaseQualityPolyLine : public CResampler {
 public:
  int Configure(const ResamplerInfo& info) override;
  void FilterStep(const int16_t* extended, const FilterDescription& filter, int16_t* out,
                  size_t groups) const override;
  int FilterCentredY(const int16_t* in, int16_t* out) const override;
  int FilterCentredCb(const int16_t* in, int16_t* out) const override;
  int FilterCentredCr(const int16_t* in, int16_t* out) const override;
  int FilterOffsetY(const int16_t* in, int16_t* out) const override;
  int FilterOffsetCb(const int16_t* in, int16_t* out) const override;
  int FilterOffsetCr(const int16_t* in, int16_t* out) const override;

 protected:
  virtual const ResampleKernels& Kernels() const;

 private:
  int FilterLine(const FilterDescription* filter, const int16_t* in, int16_t* out, size_t samples,
                 bool offset) const;

  const FilterDescription* luma_ = nullptr;
  const FilterDescription* chroma_ = nullptr;
};

/// The same in vectors.
class COptQualityPolyLine : public CBaseQualityPolyLine {
 public:
  COptQualityPolyLine() : kernels_(VectorResampleKernels()) {}

 protected:
  const ResampleKernels& Kernels() const override { return kernels_; }

 private:
  const ResampleKernels kernels_;
};

/// Short filters for previews: 3 to 4, 3 to 2, 3 to 1, 2 to 1 and 4 to 1, on bytes, one for luma
/// and chroma. The definition lets a line run through a delay line.
class CBaseDraftPolyLine : public CResampler {
 public:
  int Configure(const ResamplerInfo& info) override;
  void FilterStep(const int16_t* extended, const FilterDescription& filter, int16_t* out,
                  size_t groups) const override;
  int FilterCentredY(const int16_t* in, int16_t* out) const override;
  int FilterCentredCb(const int16_t* in, int16_t* out) const override;
  int FilterCentredCr(const int16_t* in, int16_t* out) const override;
  int FilterBytesY(const int16_t* in, int16_t* out) const override;
  int FilterBytesCb(const int16_t* in, int16_t* out) const override;
  int FilterBytesCr(const int16_t* in, int16_t* out) const override;

 protected:
  /// A line of bytes, one a sample.
  virtual int FilterLine(const int16_t* in, int16_t* out, size_t samples) const;
  const FilterDescription* filter_ = nullptr;

 private:
  int FilterCentred(const int16_t* in, int16_t* out, size_t samples) const;
};

class COptiDraftPolyLine : public CBaseDraftPolyLine {
 public:
  COptiDraftPolyLine() : kernels_(VectorResampleKernels()) {}
  void FilterStep(const int16_t* extended, const FilterDescription& filter, int16_t* out,
                  size_t groups) const override;

 protected:
  int FilterLine(const int16_t* in, int16_t* out, size_t samples) const override;

 private:
  const ResampleKernels kernels_;
};

enum class ResamplerForm { kQuality, kDraft };

/// A resampler of the form for lines of these widths; null where there is none.
std::unique_ptr<CResampler> MakeResampler(ResamplerForm form, bool useReference,
                                          const ResamplerInfo& info);

}  // namespace zel::dnxhd
