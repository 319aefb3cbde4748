#pragma once

// Objects of the moving pictures, painted a row at a time over what is behind them.

#include <cstdint>

#include "tools/zel/testsrc/colour.h"
#include "tools/zel/testsrc/material.h"

namespace zel::testsrc {

/// A row of one plane, as something to paint on. Positions are luma columns and rows times 256.
struct RowSpot {
  int plane = 0;  // 0 luma, 1 Cb, 2 Cr
  int64_t y = 0;
  int step = 1;   // luma columns from one sample to the next
  int count = 0;  // samples
};

constexpr int levelOf(const Colour& colour, int plane) {
  return plane == 0 ? colour.y : plane == 1 ? colour.cb : colour.cr;
}

/// The map of a material that a plane is made from.
inline const TileMap& mapOf(const Material& material, int plane) {
  return plane == 0 ? material.luma : plane == 1 ? material.cb : material.cr;
}

/// A place on a material: points times 65536, and how they change from column to column.
struct MaterialLine {
  int64_t u = 0;
  int64_t v = 0;
  int64_t du = 0;
  int64_t dv = 0;
};

/// Reads a material along a row: `line` is at its first sample, its steps are a luma column each.
void sampleMaterial(const Material& material, const RowSpot& spot, const MaterialLine& line,
                    int count, int16_t* out);

struct Sprite {
  enum class Shape : uint8_t { kEllipse, kBox };

  Shape shape = Shape::kEllipse;
  int64_t x = 0;  // of the centre, luma columns and rows times 256
  int64_t y = 0;
  int64_t radiusX = 0;
  int64_t radiusY = 0;
  uint32_t angle = 0;                  // of the surface, and of the box
  const Material* material = nullptr;  // null: a shadow, which darkens what is there
  int64_t scale = 65536;               // of the surface: points times 65536 a luma column
  int contrast = 256;                  // of the surface, 256 as it is
  Colour tone;                         // what the middle of the surface's levels becomes
  int light = 0;                       // how much lighter the top is than the middle
};

/// Paints what of the sprite falls on the row. `scratch` holds spot.count levels.
void paintSprite(const Sprite& sprite, const RowSpot& spot, int16_t* levels, int16_t* scratch);

}  // namespace zel::testsrc
