#pragma once

// A frame counter that a program reads out of a decoded picture, to check order, repeats and losses
// after any lossy way. It is a strip of 48 square cells at the top left, black or white:
//
//   cell 0       white, cell 1 black: the levels that the others are judged by
//   cells 2-33   the frame's number, highest bit first, a white cell is a one
//   cell 34      one on the frames that carry the mark of a second
//   cell 35      zero
//   cells 36-47  CRC-12 (x^12 + x^11 + x^3 + x^2 + x + 1, from all ones) of cells 2 to 35
//
// A cell is as wide and high as a 48th of the width, in whole multiples of 8, so that cells meet
// the blocks of codecs; below 384 columns it is 4, and the strip breaks into several rows where it
// has to. Below the strip stands a box of four by two cells, white on the frames that carry the
// mark of a second, black on all others: the flash that belongs to the click of the sound.

#include <cstddef>
#include <cstdint>
#include <optional>

#include "tools/zel/testsrc/picture.h"

namespace zel::testsrc {

constexpr int kMarkCells = 48;

struct FrameMark {
  uint32_t counter = 0;  // the frame's number, modulo 2^32
  bool second = false;   // this frame carries the mark of a second

  friend bool operator==(const FrameMark&, const FrameMark&) = default;
};

/// Where the cells stand in a frame of some width.
struct MarkLayout {
  int cellWidth = 0;
  int cellHeight = 0;
  int columns = 0;
  int rows = 0;
};

MarkLayout markLayout(int pictureWidth);

/// The layout within one field of an interlaced frame, taken by itself.
MarkLayout markLayoutOfField(int pictureWidth);

void drawFrameMark(const Picture& picture, const FrameMark& mark);

/// A luma plane to read from. Samples deeper than 8 bits take two bytes, native order.
struct LumaView {
  const uint8_t* data = nullptr;
  size_t stride = 0;  // bytes from row to row
  int width = 0;
  int height = 0;
  int depth = 8;  // 8 to 16
};

/// Reads the mark from a decoded picture, at the size at which it was drawn. Nothing when there is
/// none, it doesn't fit, or it is too damaged to be trusted.
std::optional<FrameMark> readFrameMark(const LumaView& luma);
std::optional<FrameMark> readFrameMark(const LumaView& luma, const MarkLayout& layout);

}  // namespace zel::testsrc
