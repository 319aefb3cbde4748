#include "zel/dnxhd/formatters/block_lines.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>

#include "zel/dnxhd/bitstream/row_reader.h"

namespace zel::dnxhd {

namespace {

// The two blocks of a component that a line runs through, in the upper half of a macroblock; one
// of a chroma component that is half as wide.
struct ComponentPlace {
  uint16_t first;
  uint16_t count;
  uint16_t lowerHalf;  // from there to the lower half
};
using MacroblockPlaces = std::array<ComponentPlace, 3>;
constexpr MacroblockPlaces kPlaces8 = {{{0, 2, 128}, {256, 1, 64}, {384, 1, 64}}};
constexpr MacroblockPlaces kPlaces12 = {{{0, 2, 384}, {128, 2, 384}, {256, 2, 384}}};

const MacroblockPlaces& PlacesOf(const BlockRow& row) {
  return row.blocks == 12 ? kPlaces12 : kPlaces8;
}

// `Lines` neighbouring lines of a component.
template <size_t BlockSize, size_t Count, size_t Lines>
void Gather(const int16_t* block, size_t macroblock, size_t mbCols,
            std::array<int16_t*, Lines> out) {
  for (size_t column = 0; column < mbCols; ++column) {
    for (size_t i = 0; i < Count; ++i) {
      for (size_t line = 0; line < Lines; ++line) {
        std::memcpy(out[line], block + i * kBlockCoefficients + line * BlockSize,
                    BlockSize * sizeof(int16_t));
        out[line] += BlockSize;
      }
    }
    block += macroblock;
  }
}

template <size_t BlockSize, size_t Lines>
void GatherOf(const int16_t* samples, const BlockRow& row, size_t line, PlanarLine* out) {
  const size_t macroblock = row.blocks * kBlockCoefficients;
  for (size_t component = 0; component < 3; ++component) {
    const ComponentPlace& place = PlacesOf(row)[component];
    const int16_t* const block = samples + place.first + (line < BlockSize ? 0 : place.lowerHalf) +
                                 line % BlockSize * BlockSize;
    std::array<int16_t*, Lines> to;
    for (size_t i = 0; i < Lines; ++i) to[i] = out[i][component];
    if (place.count == 2) {
      Gather<BlockSize, 2>(block, macroblock, row.mbCols, to);
    } else {
      Gather<BlockSize, 1>(block, macroblock, row.mbCols, to);
    }
  }
}

template <size_t Lines>
void GatherFrom(const int16_t* samples, const BlockRow& row, size_t line, PlanarLine* out) {
  switch (row.blockSize) {
    case 8:
      return GatherOf<8, Lines>(samples, row, line, out);
    case 4:
      return GatherOf<4, Lines>(samples, row, line, out);
    default:
      return GatherOf<2, Lines>(samples, row, line, out);
  }
}

constexpr size_t kSize = 8;

int MeanOf(const int16_t* block) {
  int sum = 0;
  for (size_t i = 0; i < kBlockCoefficients; ++i) sum += block[i];
  return (sum + 32) >> 6;
}

void Mirror(int16_t* block, size_t present) {
  for (size_t line = present; line < kSize; ++line) {
    // Back and forth, where fewer lines are there than are missing.
    const size_t around = line % (2 * present);
    const size_t from = around < present ? around : 2 * present - 1 - around;
    std::copy_n(block + kSize * from, kSize, block + kSize * line);
  }
}

}  // namespace

void GatherLine(const int16_t* samples, const BlockRow& row, size_t line, PlanarLine& out) {
  GatherFrom<1>(samples, row, line, &out);
}

void GatherLines(const int16_t* samples, const BlockRow& row, size_t line,
                 std::array<PlanarLine, 2>& out) {
  assert(line % 2 == 0);
  GatherFrom<2>(samples, row, line, out.data());
}

namespace {

template <typename Sample>
std::array<Sample*, 3> PlacesOfLine(Sample* samples, const BlockRow& row, size_t line) {
  std::array<Sample*, 3> places;
  for (size_t component = 0; component < 3; ++component) {
    const ComponentPlace& place = PlacesOf(row)[component];
    places[component] =
        samples + place.first + (line < kSize ? 0 : place.lowerHalf) + line % kSize * kSize;
  }
  return places;
}

}  // namespace

std::array<int16_t*, 3> LinePlaces(int16_t* samples, const BlockRow& row, size_t line) {
  return PlacesOfLine(samples, row, line);
}

std::array<const int16_t*, 3> LinePlaces(const int16_t* samples, const BlockRow& row, size_t line) {
  return PlacesOfLine(samples, row, line);
}

void SpreadLine(const PlanarLine& in, const BlockRow& row, size_t line, int16_t* samples) {
  const std::array<int16_t*, 3> places = LinePlaces(samples, row, line);
  for (size_t component = 0; component < 3; ++component) {
    const ComponentPlace& place = PlacesOf(row)[component];
    const int16_t* from = in[component];
    int16_t* to = places[component];
    for (size_t column = 0; column < row.mbCols; ++column) {
      for (size_t i = 0; i < place.count; ++i) {
        std::memcpy(to + i * kBlockCoefficients, from, kSize * sizeof(int16_t));
        from += kSize;
      }
      to += row.blocks * kBlockCoefficients;
    }
  }
}

void FillMissingLines(int16_t* samples, const BlockRow& row, size_t missing) {
  assert(missing < 2 * kSize);
  if (missing == 0) return;
  for (size_t column = 0; column < row.mbCols; ++column) {
    for (const ComponentPlace& place : PlacesOf(row)) {
      int16_t* const upper = samples + column * row.blocks * kBlockCoefficients + place.first;
      for (size_t i = 0; i < place.count; ++i) {
        int16_t* const above = upper + i * kBlockCoefficients;
        int16_t* const below = above + place.lowerHalf;
        if (missing < kSize) {
          Mirror(below, kSize - missing);
          continue;
        }
        if (missing > kSize) Mirror(above, 2 * kSize - missing);
      }
      if (missing < kSize) continue;
      // The DC of the lower blocks follows that of the last one above.
      const int mean = MeanOf(upper + (place.count - 1u) * kBlockCoefficients);
      for (size_t i = 0; i < place.count; ++i) {
        std::fill_n(upper + place.lowerHalf + i * kBlockCoefficients, kBlockCoefficients,
                    static_cast<int16_t>(mean));
      }
    }
  }
}

}  // namespace zel::dnxhd
