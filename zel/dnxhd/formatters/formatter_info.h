#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/formatters/block_lines.h"
#include "zel/dnxhd/formatters/frame_format.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

// The classes between lines of an application's pixels and macroblock rows, by what they do. Each
// combination of samples has a class of its own, which the factory picks once.

namespace zel::dnxhd {

class CResampler;

/// Words of the application's description that decide about samples.
struct SampleDescription {
  uint32_t pixelLayout;
  uint32_t formatWord;
  uint32_t sampleType;
  uint32_t fieldLayout;
  uint32_t rasterWord;
};

/// What an output formatter is made for.
struct FormatterInfo_t {
  SampleDescription samples;
  int32_t rowBytes;
  int32_t fieldGap;
  int32_t depth;   // of the compression
  uint32_t lines;  // of a picture, at the resolution
  uint32_t width;  // of the application's raster
  uint32_t mbRows;
  uint32_t mbCols;
  struct Limits {
    uint32_t black;
    uint32_t white;
  };
  /// Of the codes of lines: 0 and 2^depth - 1; 0 and 1023 behind a resampler, whose lines are in
  /// the scale of 10 bits.
  std::array<Limits, 3> limits;
  uint32_t seven;
  uint32_t tentFilter;
  uint32_t bottomPad;  // lines of a picture's last macroblock row that are below it, at full size

  int LineDepth() const { return limits[0].white == 255 ? 8 : 10; }
};

/// The like for the input side.
struct InputFormatterResource : FormatterInfo_t {
  const CResampler* resampler;  // shrinks thin rasters; null without one
};

/// Gets macroblock rows. Both calls return 0, kMissingResource or kMissingMemory.
class CDCTInputFormatter {
 public:
  virtual ~CDCTInputFormatter() = default;
  /// The 16 lines of a row into blocks of 8, in samples; `source` has their step from line to line.
  /// `lastRowFlag`: the last `bottomPad` lines are not there.
  virtual int FormatRow(const RowLines<const uint8_t>& source, int16_t* destination,
                        bool lastRowFlag) const = 0;
  virtual int Configure(const InputFormatterResource& info) = 0;
};

/// Writes macroblock rows.
class CDCTOutputFormatter {
 public:
  virtual ~CDCTOutputFormatter() = default;
  virtual int Configure(const FormatterInfo_t& info) = 0;
  virtual void BeginFrame() {}  // nothing to do: no formatter keeps anything of a frame
  virtual void EndFrame() {}
  /// The first `count` lines of a row of blocks.
  virtual int WriteRow(const int16_t* samples, const BlockRow& row,
                       const RowLines<uint8_t>& destination, size_t count) const = 0;
  /// A line of planes; line `line` of the destination. Uses the planes up.
  virtual int WriteLines(PlanarLine& line, const RowLines<uint8_t>& destination,
                         size_t at) const = 0;
};

}  // namespace zel::dnxhd
