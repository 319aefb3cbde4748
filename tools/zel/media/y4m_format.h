#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zel/media/rational.h"

namespace zel::media {

/// One value of the C parameter: how the samples of a frame are stored. Planes follow one another
/// without padding: Y, Cb, Cr, then alpha. Samples deeper than 8 bits take two bytes, low byte
/// first, value in the low bits.
struct Y4mChroma {
  std::string_view tag;     // what stands after C
  std::string_view subtag;  // what stands after XYSCSS= ; empty where none is in use
  uint8_t depth;            // bits of a sample
  uint8_t horizontalShift;  // log2 of how many luma samples share one chroma sample, across
  uint8_t verticalShift;    // and down
  uint8_t planes;           // 1: luma only; 3; 4: with alpha
  std::string_view name;    // for people
};

/// Every layout that the reader and the writer know.
std::span<const Y4mChroma> y4mChromas();

/// The table's row, null when there is none.
const Y4mChroma* findY4mChroma(std::string_view tag);

/// The row that a plain planar format is written with: 4:2:0 (shifts 1, 1) of 8 bits gives
/// 420mpeg2, whose chroma sits where MPEG-2 and later standards put it. Null when there is none.
const Y4mChroma* chooseY4mChroma(int depth, int horizontalShift, int verticalShift, int planes);

enum class Y4mInterlace : char {
  kUnknown = '?',
  kProgressive = 'p',
  kTopFirst = 't',
  kBottomFirst = 'b',
  kMixed = 'm',  // each frame says for itself
};

enum class Y4mRange : uint8_t { kUnknown, kLimited, kFull };

/// What the line at the start of the stream says.
struct Y4mHeader {
  uint32_t width = 0;
  uint32_t height = 0;
  Rational rate;    // frames a second, 0/0 unknown
  Rational aspect;  // of a sample, 0/0 unknown
  Y4mInterlace interlace = Y4mInterlace::kUnknown;
  const Y4mChroma* chroma = nullptr;  // a row of y4mChromas()
  Y4mRange range = Y4mRange::kUnknown;
  std::vector<std::string> comments;  // other X parameters, without the X
  std::vector<std::string> ignored;   // parameters that nothing here knows, as found
};

/// The I parameter of a frame in a mixed stream, other frames leave the defaults.
struct Y4mFrameParameters {
  char presentation = '?';  // t T b B: interlaced, 1 2 3: progressive, shown once to three times
  char temporal = '?';      // p: sampled at one instant, i: two
  char spatial = '?';       // p: chroma of whole frames, i: of fields
  std::vector<std::string> comments;
};

/// One plane within the bytes of a frame. Rows follow without padding.
struct Y4mPlane {
  size_t offset = 0;  // of its first byte
  size_t bytes = 0;
  uint32_t width = 0;  // in samples
  uint32_t height = 0;
};

struct Y4mLayout {
  std::array<Y4mPlane, 4> planes;
  uint32_t planeCount = 0;
  uint32_t bytesPerSample = 0;
  size_t frameBytes = 0;
};

/// Sizes beyond these are refused: no picture is that large, a damaged header is.
struct Y4mLimits {
  uint32_t maxDimension = 65535;
  uint64_t maxFrameBytes = uint64_t{1} << 30;
  size_t maxHeaderBytes = 4096;  // of either header line
};

/// The layout of a frame whose header has passed the reader or the writer. Odd sizes round chroma
/// up, as the format's writers do.
Y4mLayout y4mLayout(const Y4mHeader& header);

/// What is wrong with the sizes or the layout of `header`; empty when it is sound.
std::string y4mFault(const Y4mHeader& header, const Y4mLimits& limits);

/// The stream's header line, with its newline.
std::string y4mHeaderLine(const Y4mHeader& header);

}  // namespace zel::media
