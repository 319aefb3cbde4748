#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/bitstream/vcid_table.h"

// The uncompressed side of a frame, as the application describes it, and where each line of it
// lies.

namespace zel::dnxhd {

/// How samples are stored. All words are in the byte order of the machine.
enum SampleType : uint32_t {
  kSamples8 = 1,          // bytes
  kSamples16 = 2,         // 16-bit words; sizes are known, but there is no formatter
  kSamples10_6 = 4,       // 16-bit words, the value in the top 10 bits
  kSamples2_14 = 8,       // 16-bit fixed point: signed, 14 fraction bits
  kSamplesSigned16 = 16,  // 16-bit words, signed: 32767 is white
  kSamplesFloat = 32,     // 32-bit floating point
  kSamples10_2_8 = 64,    // a plane of the low 2 bits, four samples a byte, then one of the top 8
  kSamplesV210 = 1024,    // 6 pixels in 16 bytes
};

enum PixelLayout : uint32_t {
  kLayoutRgb = 2,     // four samples a pixel
  kLayoutYCbCr4 = 4,  // Cb Y Cr Y
  kLayoutYCbCr = 8,   // the same
};

/// How the two fields of a frame lie in the buffer; `fieldLayout` holds one bit of these.
inline constexpr uint32_t kFieldsInterleaved = 1 | 2 | 64;
inline constexpr uint32_t kFieldsStacked = 4 | 128;  // the first field on top
inline constexpr uint32_t kFieldsSwapped = 8 | 256;  // the second field on top
inline constexpr uint32_t kFirstFieldOnly = 16 | 512;
inline constexpr uint32_t kSecondFieldOnly = 32;

/// Words of the application's description of its frames, and what was set beside them.
struct FrameFormat {
  uint32_t pixelLayout = kLayoutYCbCr;
  /// Of RGB samples: 8 is B G R A in bytes and A R G B in wider samples, 4 is R G B A.
  uint32_t formatWord = 2;
  uint32_t resolution = 1;  // 1, 2 or 4: full, half or quarter size; decoding only
  uint32_t sampleType = kSamples8;
  uint32_t fieldLayout = 64;
  uint32_t rasterWord = 1;  // 4: the buffer has a thin compression's own width; else the full one
  /// From a line of the buffer to the next, of the 8-bit plane where there are two; negative where
  /// the picture stands on its head. 0: what follows from the width.
  int32_t rowBytes = 0;
  int32_t fieldGap = 0;  // bytes between stacked fields
  bool tentFilter = false;
  bool useReference = false;  // the classes that define what the others do: for tests
};

/// Bytes of a pixel, without the plane of low bits. 0 where layout and sample type are none that
/// the codec knows, and for V210, which has no whole number of them.
uint32_t BytesPerPixel(uint32_t pixelLayout, uint32_t sampleType);

/// The width that an application sees: thin rasters are four thirds as wide as they are coded.
uint32_t FullWidthOf(const VCIDEntry& entry);

/// The application's picture.
struct FrameRaster {
  uint32_t width;     // in pixels, at the resolution
  uint32_t lines;     // of the buffer, all fields of it
  int32_t rowBytes;   // as given, or as follows from the width
  bool resampled;     // lines are stretched or shrunk between the coded raster and this one
  uint32_t pictures;  // of the compressed frame
};
FrameRaster RasterOf(const VCIDEntry& entry, const FrameFormat& format);

/// Bytes of a line that formatters touch.
uint32_t LineBytes(const VCIDEntry& entry, const FrameFormat& format);

/// Bytes that the buffer of a frame has to have (with a negative `rowBytes` it begins as many bytes
/// before the first line as lie behind it otherwise).
size_t BufferBytes(const VCIDEntry& entry, const FrameFormat& format);

/// Which pictures of a compressed frame a buffer of this format takes.
Pictures WantedPictures(const FrameFormat& format);

/// The lines of a macroblock row in a buffer: line i is `stride` * (i / 2) behind `even` or `odd`.
/// A null `odd` (or `even`) says that the buffer has no such lines.
template <typename Byte>
struct RowLines {
  Byte* even;
  Byte* odd;
  Byte* lowEven;  // the plane of low bits, a quarter as wide; null without one
  Byte* lowOdd;
  ptrdiff_t stride;
  Byte* Line(size_t i) const { return At(i, even, odd, stride); }
  Byte* Low(size_t i) const { return At(i, lowEven, lowOdd, stride / 4); }

 private:
  static Byte* At(size_t i, Byte* evens, Byte* odds, ptrdiff_t step) {
    Byte* const first = i % 2 == 0 ? evens : odds;
    return first == nullptr ? nullptr : first + static_cast<ptrdiff_t>(i / 2) * step;
  }
};

/// Where rows lie in the buffers of a format.
class FrameLayout {
 public:
  FrameLayout(const VCIDEntry& entry, const FrameFormat& format);
  const FrameRaster& Raster() const { return raster_; }
  size_t LinesOfRow() const { return rowLines_; }

  /// Macroblock row `row` of picture 0 or 1. A frame that is one picture has the lines of both
  /// fields in turns, however they lie in the buffer. Where the buffer has one field only, the
  /// other's lines are null; or the same as its, if `both` says so.
  template <typename Byte>
  RowLines<Byte> Row(Byte* frame, size_t picture, size_t row, bool both) const {
    const auto first = static_cast<ptrdiff_t>(row * rowLines_);
    RowLines<Byte> lines{};
    if (raster_.pictures == 1) {
      Put(frame, 0, first / 2, both, lines.even, lines.lowEven);
      Put(frame, 1, first / 2, both, lines.odd, lines.lowOdd);
      lines.stride = step_;
    } else {
      Put(frame, picture, first, both, lines.even, lines.lowEven);
      Put(frame, picture, first + 1, both, lines.odd, lines.lowOdd);
      lines.stride = 2 * step_;
    }
    return lines;
  }

 private:
  struct Field {
    bool present = false;
    ptrdiff_t high = 0;  // of its first line in the buffer; of the plane of 8 bits where there are
    ptrdiff_t low = 0;   // two, and of the one of low bits
  };

  template <typename Byte>
  void Put(Byte* frame, size_t field, ptrdiff_t line, bool both, Byte*& high, Byte*& low) const {
    if (!fields_[field].present && !both) return;
    const Field& place = fields_[fields_[field].present ? field : 1 - field];
    high = frame + place.high + line * step_;
    low = twoPlanes_ ? frame + place.low + line * (step_ / 4) : nullptr;
  }

  FrameRaster raster_;
  size_t rowLines_;
  ptrdiff_t step_ = 0;  // from a line of a field to the next
  bool twoPlanes_ = false;
  std::array<Field, 2> fields_{};
};

}  // namespace zel::dnxhd
