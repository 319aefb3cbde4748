#include "tools/zel/testsrc/frame_mark.h"

#include <algorithm>

namespace zel::testsrc {
namespace {

constexpr int kPayloadBits = 34;
constexpr int kCrcBits = 12;
constexpr uint64_t kSecondBit = 2;  // of the payload; bit 0 is kept for later
constexpr int kFlashColumns = 4;
constexpr int kFlashRows = 2;

uint32_t crc12(uint64_t payload) {
  uint32_t crc = 0xFFF;
  for (int bit = kPayloadBits - 1; bit >= 0; --bit) {
    const uint32_t out = (crc >> 11 ^ static_cast<uint32_t>(payload >> bit)) & 1;
    crc = (crc << 1 & 0xFFF) ^ (out != 0 ? 0x80F : 0);
  }
  return crc;
}

// The cells in order, cell 0 in the highest of 48 bits.
uint64_t cellsOf(const FrameMark& mark) {
  const uint64_t payload = uint64_t{mark.counter} << 2 | (mark.second ? kSecondBit : 0);
  return uint64_t{1} << (kMarkCells - 1) | payload << kCrcBits | crc12(payload);
}

// The mean of a cell's inner half: codecs smear cells into one another at their edges.
uint64_t cellLevel(const LumaView& luma, const MarkLayout& layout, int cell) {
  const int left = cell % layout.columns * layout.cellWidth + layout.cellWidth / 4;
  const int top = cell / layout.columns * layout.cellHeight + layout.cellHeight / 4;
  const int width = std::max(1, layout.cellWidth / 2);
  const int height = std::max(1, layout.cellHeight / 2);
  uint64_t sum = 0;
  for (int y = top; y < top + height; ++y) {
    const uint8_t* const row = luma.data + luma.stride * y;
    for (int x = left; x < left + width; ++x) {
      sum +=
          luma.depth == 8 ? row[x] : static_cast<const uint16_t*>(static_cast<const void*>(row))[x];
    }
  }
  return sum / (static_cast<uint64_t>(width) * height);
}

}  // namespace

MarkLayout markLayout(int pictureWidth) {
  const int share = pictureWidth / kMarkCells & ~7;
  const int cell = share >= 8 ? share : 4;
  const int columns = std::clamp(pictureWidth / cell, 1, kMarkCells);
  return {cell, cell, columns, (kMarkCells + columns - 1) / columns};
}

MarkLayout markLayoutOfField(int pictureWidth) {
  MarkLayout layout = markLayout(pictureWidth);
  layout.cellHeight /= 2;
  return layout;
}

void drawFrameMark(const Picture& picture, const FrameMark& mark) {
  const MarkLayout layout = markLayout(picture.width());
  const uint64_t cells = cellsOf(mark);
  for (int cell = 0; cell < kMarkCells; ++cell) {
    const bool white = (cells >> (kMarkCells - 1 - cell) & 1) != 0;
    fillRectangle(picture, cell % layout.columns * layout.cellWidth,
                  cell / layout.columns * layout.cellHeight, layout.cellWidth, layout.cellHeight,
                  gray(white ? 10000 : 0));
  }
  fillRectangle(picture, 0, layout.rows * layout.cellHeight, kFlashColumns * layout.cellWidth,
                kFlashRows * layout.cellHeight, gray(mark.second ? 10000 : 0));
}

std::optional<FrameMark> readFrameMark(const LumaView& luma) {
  return readFrameMark(luma, markLayout(luma.width));
}

std::optional<FrameMark> readFrameMark(const LumaView& luma, const MarkLayout& layout) {
  if (layout.columns * layout.cellWidth > luma.width ||
      layout.rows * layout.cellHeight > luma.height) {
    return std::nullopt;
  }
  const uint64_t white = cellLevel(luma, layout, 0);
  const uint64_t black = cellLevel(luma, layout, 1);
  // An eighth of the range is far less contrast than any picture keeps that was meant to be seen.
  if (white < black + (uint64_t{1} << (luma.depth - 3))) return std::nullopt;

  uint64_t cells = 0;
  for (int cell = 0; cell < kMarkCells; ++cell) {
    cells = cells << 1 | (2 * cellLevel(luma, layout, cell) > white + black ? 1 : 0);
  }
  const uint64_t payload = cells >> kCrcBits & ((uint64_t{1} << kPayloadBits) - 1);
  if ((cells & 0xFFF) != crc12(payload)) return std::nullopt;
  return FrameMark{static_cast<uint32_t>(payload >> 2), (payload & kSecondBit) != 0};
}

}  // namespace zel::testsrc
