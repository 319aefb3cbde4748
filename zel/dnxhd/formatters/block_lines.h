#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zel/dnxhd/formatters/pixel_kernels.h"

// Between lines and the blocks of a macroblock row, as they are stored: luma first, so that a
// macroblock of 8 has four blocks of luma and two of each chroma component; one of 12 has two of
// each component, for its upper and then for its lower half.

namespace zel::dnxhd {

struct BlockRow {
  size_t mbCols;
  size_t blocks;     // of a macroblock: 8 or 12
  size_t blockSize;  // 8, or 4 or 2 of reduced blocks, which still lie 64 samples apart
  size_t LumaSamples() const { return 2 * blockSize * mbCols; }
  size_t ChromaSamples() const { return LumaSamples() / (blocks == 12 ? 1 : 2); }
  size_t Lines() const { return 2 * blockSize; }
};

/// Line `line` of the row.
void GatherLine(const int16_t* samples, const BlockRow& row, size_t line, PlanarLine& out);

/// Lines `line` (which is even) and the one below it: blocks are read half as often.
void GatherLines(const int16_t* samples, const BlockRow& row, size_t line,
                 std::array<PlanarLine, 2>& out);

/// Where the components of a line begin in a row of blocks of 8, in its first macroblock.
std::array<int16_t*, 3> LinePlaces(int16_t* samples, const BlockRow& row, size_t line);
std::array<const int16_t*, 3> LinePlaces(const int16_t* samples, const BlockRow& row, size_t line);

/// How many pixels of a row of 8 blocks a macroblock are worked on at once, line by line: blocks
/// and lines then stay in the nearest cache.
inline constexpr size_t kPixelsAtOnce = 128;

/// Puts a line into blocks of 8.
void SpreadLine(const PlanarLine& in, const BlockRow& row, size_t line, int16_t* samples);

/// Fills the last `missing` of the row's 16 lines so that they cost the fewest bits. What hangs
/// over inside of a block mirrors the block's lines: of a block mirrored at its middle every other
/// vertical frequency is zero. Blocks of nothing else are flat, with the mean of the block that
/// their DC is predicted from.
void FillMissingLines(int16_t* samples, const BlockRow& row, size_t missing);

}  // namespace zel::dnxhd
