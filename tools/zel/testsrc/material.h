#pragma once

// Surfaces for the moving pictures: stone, fields, clouds... Each is a square that repeats without
// a seam, made out of a seed once and then sampled at any place, scale and angle.

#include <cstdint>
#include <memory>
#include <vector>

namespace zel::testsrc {

/// A square of 8-bit values that repeats, to be read between its points too.
class TileMap {
 public:
  /// `values` are 2^bits rows of 2^bits.
  TileMap(int bits, const std::vector<uint8_t>& values);

  /// Reads `count` values along a line: from (u, v) on, in steps of (du, dv), all in points times
  /// 65536. Each is the mean of the four points around, by distance, times 16.
  void sample(uint32_t u, uint32_t v, uint32_t du, uint32_t dv, int count, int16_t* out) const;

 private:
  int bits_;
  // Each point with its neighbours to the right, below, and below right, a byte each from the
  // lowest on: one load gives all that an interpolation takes.
  std::vector<uint32_t> quads_;
};

enum class Surface : uint8_t { kCobbles, kFarmland, kClouds, kRock, kFabric, kGrass };
constexpr int kSurfaces = 6;

constexpr int kMaterialBits = 10;  // of the luma map; those of chroma are half as large

struct Material {
  TileMap luma;
  TileMap cb;
  TileMap cr;
};

std::unique_ptr<Material> makeMaterial(Surface surface, uint64_t seed);

}  // namespace zel::testsrc
