#include "tools/zel/media/y4m_format.h"

#include <algorithm>
#include <cassert>

namespace zel::media {
namespace {

// The first row of a kind is the one that chooseY4mChroma gives. The three 8-bit 4:2:0 rows store
// the same; they differ in where a chroma sample lies: beside the left luma column half way down
// (mpeg2), amid four luma samples (jpeg), or on luma lines with Cb and Cr alternating (paldv).
constexpr Y4mChroma kChromas[] = {
    // tag, subtag, depth, horizontal and vertical shift, planes, name
    {"420mpeg2", "420MPEG2", 8, 1, 1, 3, "4:2:0 8-bit, MPEG-2 siting"},
    {"420jpeg", "420JPEG", 8, 1, 1, 3, "4:2:0 8-bit, JPEG siting"},
    {"420paldv", "420PALDV", 8, 1, 1, 3, "4:2:0 8-bit, PAL DV siting"},
    {"420", "420", 8, 1, 1, 3, "4:2:0 8-bit"},
    {"420p9", "420P9", 9, 1, 1, 3, "4:2:0 9-bit"},
    {"420p10", "420P10", 10, 1, 1, 3, "4:2:0 10-bit"},
    {"420p12", "420P12", 12, 1, 1, 3, "4:2:0 12-bit"},
    {"420p14", "420P14", 14, 1, 1, 3, "4:2:0 14-bit"},
    {"420p16", "420P16", 16, 1, 1, 3, "4:2:0 16-bit"},
    {"411", "411", 8, 2, 0, 3, "4:1:1 8-bit"},
    {"422", "422", 8, 1, 0, 3, "4:2:2 8-bit"},
    {"422p9", "422P9", 9, 1, 0, 3, "4:2:2 9-bit"},
    {"422p10", "422P10", 10, 1, 0, 3, "4:2:2 10-bit"},
    {"422p12", "422P12", 12, 1, 0, 3, "4:2:2 12-bit"},
    {"422p14", "422P14", 14, 1, 0, 3, "4:2:2 14-bit"},
    {"422p16", "422P16", 16, 1, 0, 3, "4:2:2 16-bit"},
    {"444", "444", 8, 0, 0, 3, "4:4:4 8-bit"},
    {"444p9", "444P9", 9, 0, 0, 3, "4:4:4 9-bit"},
    {"444p10", "444P10", 10, 0, 0, 3, "4:4:4 10-bit"},
    {"444p12", "444P12", 12, 0, 0, 3, "4:4:4 12-bit"},
    {"444p14", "444P14", 14, 0, 0, 3, "4:4:4 14-bit"},
    {"444p16", "444P16", 16, 0, 0, 3, "4:4:4 16-bit"},
    {"444alpha", "444ALPHA", 8, 0, 0, 4, "4:4:4 8-bit with alpha"},
    {"mono", "", 8, 0, 0, 1, "luma only, 8-bit"},
    {"mono9", "", 9, 0, 0, 1, "luma only, 9-bit"},
    {"mono10", "", 10, 0, 0, 1, "luma only, 10-bit"},
    {"mono12", "", 12, 0, 0, 1, "luma only, 12-bit"},
    {"mono14", "", 14, 0, 0, 1, "luma only, 14-bit"},
    {"mono16", "", 16, 0, 0, 1, "luma only, 16-bit"},
};

constexpr bool tagsDiffer() {
  for (size_t i = 0; i < std::size(kChromas); ++i) {
    for (size_t j = i + 1; j < std::size(kChromas); ++j) {
      if (kChromas[i].tag == kChromas[j].tag) return false;
    }
  }
  return true;
}
static_assert(tagsDiffer());

uint64_t subsampled(uint32_t size, uint8_t shift) {
  return (uint64_t{size} + (uint64_t{1} << shift) - 1) >> shift;
}

uint64_t frameBytes(const Y4mHeader& header) {
  const Y4mChroma& chroma = *header.chroma;
  const uint64_t luma = uint64_t{header.width} * header.height;
  uint64_t samples = luma;
  if (chroma.planes >= 3) {
    samples += 2 * subsampled(header.width, chroma.horizontalShift) *
               subsampled(header.height, chroma.verticalShift);
  }
  if (chroma.planes == 4) samples += luma;
  return samples * (chroma.depth > 8 ? 2 : 1);
}

}  // namespace

std::span<const Y4mChroma> y4mChromas() {
  return kChromas;
}

const Y4mChroma* findY4mChroma(std::string_view tag) {
  const auto* const found =
      std::ranges::find_if(kChromas, [&](const Y4mChroma& row) { return row.tag == tag; });
  return found == std::end(kChromas) ? nullptr : found;
}

const Y4mChroma* chooseY4mChroma(int depth, int horizontalShift, int verticalShift, int planes) {
  const auto* const found = std::ranges::find_if(kChromas, [&](const Y4mChroma& row) {
    return row.depth == depth && row.planes == planes &&
           (planes == 1 ||
            (row.horizontalShift == horizontalShift && row.verticalShift == verticalShift));
  });
  return found == std::end(kChromas) ? nullptr : found;
}

Y4mLayout y4mLayout(const Y4mHeader& header) {
  assert(header.chroma != nullptr);
  const Y4mChroma& chroma = *header.chroma;
  Y4mLayout layout;
  layout.planeCount = chroma.planes;
  layout.bytesPerSample = chroma.depth > 8 ? 2 : 1;
  for (uint32_t i = 0; i < layout.planeCount; ++i) {
    const bool isChroma = i == 1 || i == 2;
    Y4mPlane& plane = layout.planes[i];
    plane.offset = layout.frameBytes;
    plane.width = static_cast<uint32_t>(
        subsampled(header.width, isChroma ? chroma.horizontalShift : uint8_t{0}));
    plane.height = static_cast<uint32_t>(
        subsampled(header.height, isChroma ? chroma.verticalShift : uint8_t{0}));
    plane.bytes = size_t{plane.width} * plane.height * layout.bytesPerSample;
    layout.frameBytes += plane.bytes;
  }
  return layout;
}

std::string y4mFault(const Y4mHeader& header, const Y4mLimits& limits) {
  const std::string size = std::to_string(header.width) + "x" + std::to_string(header.height);
  if (header.width == 0 || header.height == 0) {
    return "picture size " + size + ": width and height must be given and above zero";
  }
  if (header.width > limits.maxDimension || header.height > limits.maxDimension) {
    return "picture size " + size + " is beyond " + std::to_string(limits.maxDimension);
  }
  if (header.chroma == nullptr) return "no chroma format";
  if (const uint64_t bytes = frameBytes(header); bytes > limits.maxFrameBytes) {
    return "a frame of " + size + " takes " + std::to_string(bytes) + " bytes, more than the " +
           std::to_string(limits.maxFrameBytes) + " allowed";
  }
  return {};
}

std::string y4mHeaderLine(const Y4mHeader& header) {
  assert(header.chroma != nullptr);
  const auto ratio = [](Rational value) {
    return std::to_string(value.numerator) + ":" + std::to_string(value.denominator);
  };
  std::string line = "YUV4MPEG2 W" + std::to_string(header.width) + " H" +
                     std::to_string(header.height) + " F" + ratio(header.rate) + " I" +
                     static_cast<char>(header.interlace) + " A" + ratio(header.aspect) + " C" +
                     std::string(header.chroma->tag);
  if (!header.chroma->subtag.empty()) line += " XYSCSS=" + std::string(header.chroma->subtag);
  if (header.range == Y4mRange::kLimited) line += " XCOLORRANGE=LIMITED";
  if (header.range == Y4mRange::kFull) line += " XCOLORRANGE=FULL";
  for (const std::string& comment : header.comments) line += " X" + comment;
  return line + "\n";
}

}  // namespace zel::media
