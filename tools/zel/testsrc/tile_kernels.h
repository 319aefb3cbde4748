#pragma once

#include <cstdint>

namespace zel::testsrc {

/// A line across a tile map (see material.h): `quads` are 2^bits rows of 2^bits points, each with
/// its neighbours to the right, below and below right, a byte each from the lowest on. Place and
/// steps are points times 65536, modulo the map. Each of `count` values written is the mean of
/// four points by distance, times 16 and rounded down.
struct TileLine {
  const uint32_t* quads;
  int bits;
  uint32_t u;
  uint32_t v;
  uint32_t du;
  uint32_t dv;
};

void sampleTileScalar(const TileLine& line, int count, int16_t* out);  // the definition
void sampleTileVector(const TileLine& line, int count, int16_t* out);  // the best of this machine

}  // namespace zel::testsrc
