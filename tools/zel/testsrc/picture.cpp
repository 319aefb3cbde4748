#include "tools/zel/testsrc/picture.h"

#include <algorithm>
#include <cassert>

namespace zel::testsrc {
namespace {

// Rounds at a depth known to the compiler, so that the loop becomes vector code.
template <int depth, typename Sample>
void store(Sample* out, const int16_t* levels, int count) {
  constexpr int kShift = 12 - depth;
  for (int i = 0; i < count; ++i) {
    out[i] = static_cast<Sample>((levels[i] + (1 << (kShift - 1))) >> kShift);
  }
}

}  // namespace

size_t frameBytesOf(const PictureOptions& options) {
  const size_t luma = size_t{options.width} * options.height;
  const size_t chromaWidth =
      options.chroma == Chroma::k444 ? options.width : (size_t{options.width} + 1) / 2;
  const size_t chromaHeight =
      options.chroma == Chroma::k420 ? (size_t{options.height} + 1) / 2 : options.height;
  return (luma + 2 * chromaWidth * chromaHeight) * (options.depth > 8 ? 2 : 1);
}

Picture pictureOver(const PictureOptions& options, std::span<uint8_t> frame) {
  assert(frame.size() == frameBytesOf(options));
  Picture picture;
  picture.depth = options.depth;
  picture.scan = options.scan;
  picture.horizontalShift = options.chroma == Chroma::k444 ? 0 : 1;
  picture.verticalShift = options.chroma == Chroma::k420 ? 1 : 0;
  uint8_t* data = frame.data();
  for (size_t i = 0; i < picture.planes.size(); ++i) {
    Plane& plane = picture.planes[i];
    const int across = i == 0 ? 0 : picture.horizontalShift;
    const int down = i == 0 ? 0 : picture.verticalShift;
    plane.width = (static_cast<int>(options.width) + across) >> across;
    plane.height = (static_cast<int>(options.height) + down) >> down;
    plane.bytesPerSample = options.depth > 8 ? 2 : 1;
    plane.data = data;
    data += plane.stride() * plane.height;
  }
  return picture;
}

uint64_t halfFrameOfRow(Scan scan, uint64_t frame, int row) {
  if (scan == Scan::kProgressive) return 2 * frame;
  const bool bottom = (row & 1) != 0;
  const bool second = bottom == (scan == Scan::kTopFirst);
  return 2 * frame + (second ? 1 : 0);
}

void storeRow(const Plane& plane, int depth, int y, const int16_t* levels) {
  if (depth == 8) {
    store<8>(plane.row(y), levels, plane.width);
    return;
  }
  store<10>(static_cast<uint16_t*>(static_cast<void*>(plane.row(y))), levels, plane.width);
}

void fillSpan(const Plane& plane, int depth, int y, int begin, int end, int level) {
  const int code = (level + (1 << (11 - depth))) >> (12 - depth);
  uint8_t* const row = plane.row(y);
  if (plane.bytesPerSample == 1) {
    std::fill(row + begin, row + end, static_cast<uint8_t>(code));
    return;
  }
  auto* const samples = static_cast<uint16_t*>(static_cast<void*>(row));
  std::fill(samples + begin, samples + end, static_cast<uint16_t>(code));
}

Extent subsampled(int begin, int end, int shift, int limit) {
  const int round = (1 << shift) - 1;
  return {std::clamp((begin + round) >> shift, 0, limit),
          std::clamp((end + round) >> shift, 0, limit)};
}

void fillRectangle(const Picture& picture, int x, int y, int width, int height, Colour colour) {
  const int levels[] = {colour.y, colour.cb, colour.cr};
  for (size_t i = 0; i < picture.planes.size(); ++i) {
    const Plane& plane = picture.planes[i];
    const int across = i == 0 ? 0 : picture.horizontalShift;
    const int down = i == 0 ? 0 : picture.verticalShift;
    const Extent columns = subsampled(x, x + width, across, plane.width);
    const Extent rows = subsampled(y, y + height, down, plane.height);
    for (int row = rows.begin; row < rows.end; ++row) {
      if (columns.begin >= columns.end) break;
      fillSpan(plane, picture.depth, row, columns.begin, columns.end, levels[i]);
    }
  }
}

void drawText(const Picture& picture, int x, int y, const Font& font, std::string_view text,
              Colour colour) {
  for (const char c : text) {
    const GlyphMask& mask = font.glyph(c);
    for (int row = 0; row < mask.height; ++row) {
      for (int begin = 0; begin < mask.width;) {
        int end = begin;
        while (end < mask.width && mask.at(end, row)) ++end;
        if (end > begin) fillRectangle(picture, x + begin, y + row, end - begin, 1, colour);
        begin = end + 1;
      }
    }
    x += font.advance();
  }
}

}  // namespace zel::testsrc
