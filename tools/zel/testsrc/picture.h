#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "tools/zel/testsrc/colour.h"
#include "tools/zel/testsrc/font.h"
#include "tools/zel/testsrc/options.h"

namespace zel::testsrc {

/// One plane of a frame in memory. Samples take one byte at depth 8, otherwise two, native order.
struct Plane {
  uint8_t* data = nullptr;
  int width = 0;
  int height = 0;
  int bytesPerSample = 1;

  size_t stride() const { return static_cast<size_t>(width) * bytesPerSample; }
  uint8_t* row(int y) const { return data + stride() * y; }
};

/// A frame that a renderer draws into; the memory is the caller's.
struct Picture {
  std::array<Plane, 3> planes;
  int depth = 8;
  int horizontalShift = 0;  // of chroma
  int verticalShift = 0;
  Scan scan = Scan::kProgressive;

  int width() const { return planes[0].width; }
  int height() const { return planes[0].height; }
};

/// The planes of a frame of these options, one behind the other without padding.
Picture pictureOver(const PictureOptions& options, std::span<uint8_t> frame);
size_t frameBytesOf(const PictureOptions& options);

/// Half frames from the start to the instant at which a row of any plane is sampled. In 4:2:0,
/// chroma rows belong to the fields in turn, as luma rows do.
uint64_t halfFrameOfRow(Scan scan, uint64_t frame, int row);

/// Rounds a row of 12-bit levels to the plane's depth. The levels lie within kLowest to kHighest.
void storeRow(const Plane& plane, int depth, int y, const int16_t* levels);

/// Sets samples `begin` to before `end` of a row, all within it, to one level.
void fillSpan(const Plane& plane, int depth, int y, int begin, int end, int level);

/// Where luma positions `begin` to before `end` lie in a row or column of `limit` chroma samples:
/// those whose own luma position is among them.
struct Extent {
  int begin;
  int end;
};
Extent subsampled(int begin, int end, int shift, int limit);

/// Fills a rectangle, as far as it lies within the picture.
void fillRectangle(const Picture& picture, int x, int y, int width, int height, Colour colour);

/// Draws letters with the top left corner of the first there, in one colour over what is there;
/// what lies outside of the picture is left out.
void drawText(const Picture& picture, int x, int y, const Font& font, std::string_view text,
              Colour colour);

}  // namespace zel::testsrc
