#include "tools/zel/testsrc/material.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/tile_kernels.h"

namespace zel::testsrc {
namespace {

constexpr int kSize = 1 << kMaterialBits;

// Values of 0 to 255 on a coarse lattice of 2^latticeBits points a side, smoothly between them.
class ValueNoise {
 public:
  ValueNoise(uint64_t seed, int latticeBits) : bits_(latticeBits) {
    const int points = 1 << bits_;
    values_.resize(size_t{1} << (2 * bits_));
    for (size_t i = 0; i < values_.size(); ++i) {
      values_[i] = static_cast<uint8_t>(mix64(seed, i, static_cast<uint64_t>(points)));
    }
    for (int x = 0; x < cellSize(); ++x) shares_.push_back(smooth((x << 8) / cellSize()));
    column_.resize(static_cast<size_t>(points) + 1);
  }

  /// Writes a row of kSize values.
  void row(int y, int* out) {
    const int shift = kMaterialBits - bits_;
    const int share = shares_[static_cast<size_t>(y & (cellSize() - 1))];
    for (size_t i = 0; i < column_.size(); ++i) {
      const int column = static_cast<int>(i);
      column_[i] = between(point(column, y >> shift), point(column, (y >> shift) + 1), share);
    }
    for (size_t i = 0; i + 1 < column_.size(); ++i) {
      for (const int across : shares_) *out++ = between(column_[i], column_[i + 1], across) >> 16;
    }
  }

 private:
  // 3 t^2 - 2 t^3 of a share of 256.
  static int smooth(int t) { return (t * t * (768 - 2 * t)) >> 16; }
  static int between(int a, int b, int share) { return a * 256 + (b - a) * share; }

  int cellSize() const { return 1 << (kMaterialBits - bits_); }
  int point(int column, int row) const {
    const int mask = (1 << bits_) - 1;
    return values_[static_cast<size_t>((row & mask) << bits_ | (column & mask))];
  }

  int bits_;
  std::vector<uint8_t> values_;
  std::vector<int> shares_;  // of the next lattice point, at each place between two
  std::vector<int> column_;  // the lattice at the row's height, times 256
};

// Octaves of noise, each twice as fine as the one before and weaker by `falloff` of 256.
std::vector<uint8_t> octaves(uint64_t seed, int firstBits, int lastBits, int falloff,
                             bool ridged = false) {
  std::vector<int> sums(size_t{kSize} * kSize);
  std::array<int, kSize> row;
  int weight = 256;
  int total = 0;
  for (int bits = firstBits; bits <= lastBits; ++bits, weight = weight * falloff >> 8) {
    ValueNoise noise(seed, bits);
    for (int y = 0; y < kSize; ++y) {
      noise.row(y, row.data());
      int* const sum = &sums[static_cast<size_t>(y) * kSize];
      for (int x = 0; x < kSize; ++x) {
        const int shaped = ridged ? 255 - std::abs(2 * row[x] - 255) : row[x];
        sum[x] += shaped * weight;
      }
    }
    total += weight;
  }
  std::vector<uint8_t> out(sums.size());
  for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<uint8_t>(sums[i] / total);
  return out;
}

// Which of a lattice's scattered points is nearest, and how far it is to the border between the
// two nearest.
class Cells {
 public:
  Cells(uint64_t seed, int latticeBits) : bits_(latticeBits) {
    const int size = 1 << (kMaterialBits - bits_);
    for (int row = 0; row < 1 << bits_; ++row) {
      for (int column = 0; column < 1 << bits_; ++column) {
        const uint64_t id = mix64(seed, static_cast<uint64_t>(column), static_cast<uint64_t>(row));
        points_.push_back({id, static_cast<int>(within(id, static_cast<uint32_t>(size))),
                           static_cast<int>(within(id << 20, static_cast<uint32_t>(size)))});
      }
    }
  }

  struct Place {
    uint64_t id;
    int border;  // the two distances' difference, times 16
  };

  Place at(int x, int y) const {
    const int shift = kMaterialBits - bits_;
    const int mask = (1 << bits_) - 1;
    int64_t nearest = INT64_MAX;
    int64_t second = INT64_MAX;
    uint64_t id = 0;
    for (int row = (y >> shift) - 1; row <= (y >> shift) + 1; ++row) {
      for (int column = (x >> shift) - 1; column <= (x >> shift) + 1; ++column) {
        const Point& point = points_[static_cast<size_t>((row & mask) << bits_ | (column & mask))];
        const int64_t dx = column * (1 << shift) + point.x - x;
        const int64_t dy = row * (1 << shift) + point.y - y;
        const int64_t distance = dx * dx + dy * dy;
        if (distance < nearest) {
          second = nearest;
          nearest = distance;
          id = point.id;
        } else if (distance < second) {
          second = distance;
        }
      }
    }
    return {id, static_cast<int>(squareRoot(static_cast<uint64_t>(second) << 8) -
                                 squareRoot(static_cast<uint64_t>(nearest) << 8))};
  }

 private:
  struct Point {
    uint64_t id;
    int x;  // within its cell
    int y;
  };

  int bits_;
  std::vector<Point> points_;
};

struct Texel {
  int y;
  int cb;
  int cr;
};

// What a generator may draw on at a point: broad and fine noise of 0 to 255.
struct Grounds {
  std::vector<uint8_t> broad;
  std::vector<uint8_t> fine;
};

Texel cobbles(const Cells& cells, int x, int y, int broad, int fine) {
  const Cells::Place place = cells.at(x, y);
  const int stone =
      80 + static_cast<int>(within(place.id, 90)) + (fine - 128) / 3 + (broad - 128) / 4;
  const int joint = std::min(place.border, 64);  // four points wide
  const int warmth = static_cast<int>(within(place.id << 8, 9)) - 3;
  return {45 + (stone - 45) * joint / 64, 126 - warmth, 129 + warmth};
}

struct Crop {
  Texel colour;
  int furrows;  // how strongly the rows show
};

constexpr std::array<Crop, 8> kCrops = {{{{110, 104, 118}, 26},
                                         {{140, 96, 128}, 18},
                                         {{92, 110, 112}, 34},
                                         {{160, 90, 136}, 10},
                                         {{100, 118, 142}, 30},
                                         {{78, 112, 110}, 12},
                                         {{124, 100, 120}, 40},
                                         {{134, 108, 140}, 22}}};

Texel farmland(const Cells& cells, int x, int y, int broad, int fine) {
  const Cells::Place place = cells.at(x, y);
  if (place.border < 40) return {172 + (fine - 128) / 6, 122, 130};  // lanes
  const Crop& crop = kCrops[within(place.id, kCrops.size())];
  // Furrows in a direction of the field's own, 5 to 12 points apart.
  const uint32_t angle = static_cast<uint32_t>(place.id >> 8);
  const int64_t across = (int64_t{x} * cosine(angle) + int64_t{y} * sine(angle)) >> 14;
  const int64_t phase = across * 65536 / (5 + within(place.id << 16, 8));
  const int wave = (sine(static_cast<uint32_t>(phase)) >> 22) * crop.furrows >> 8;
  return {crop.colour.y + wave + (fine - 128) / 5 + (broad - 128) / 5, crop.colour.cb,
          crop.colour.cr};
}

Texel clouds(int broad) {
  const int cover = std::clamp((broad - 96) * 3, 0, 255);
  return {112 + cover * 110 / 255, 158 - cover * 30 / 255, 104 + cover * 24 / 255};
}

Texel rock(int broad, int fine) {
  const int level = 40 + broad * 5 / 8 + (fine - 128) / 3;
  return {level, 122 - (broad >> 5), 130 + (broad >> 5)};
}

Texel fabric(int x, int y, int fine) {
  // Threads of eight points over and under each other, in the colours of a broad check.
  const bool over = (((x >> 3) + (y >> 3)) & 1) != 0;
  const auto along = static_cast<uint32_t>(over ? x : y) << 29;
  const int thread = 90 + (sine(along) >> 24) / 3;
  const int stripe = over ? y >> 6 : x >> 6;
  constexpr std::array<Texel, 4> kDyes = {
      {{20, 100, 170}, {50, 150, 110}, {90, 118, 132}, {-10, 120, 120}}};
  const Texel& dye = kDyes[static_cast<size_t>(stripe * 7 + stripe / 4) & 3];
  return {thread + dye.y + (fine - 128) / 6, dye.cb, dye.cr};
}

Texel grass(int broad, int fine) {
  return {70 + (broad - 128) / 5 + (fine - 128) / 2, 102 + (broad - 128) / 16, 112};
}

std::vector<Texel> texelsOf(Surface surface, uint64_t seed) {
  const std::vector<uint8_t> broad = surface == Surface::kRock
                                         ? octaves(mix64(seed, 1), 3, 8, 150, true)
                                         : octaves(mix64(seed, 1), 2, 7, 135);
  const std::vector<uint8_t> fine = octaves(mix64(seed, 2), 7, 9, 200);
  const Cells cells(mix64(seed, 3), surface == Surface::kFarmland ? 3 : 5);
  std::vector<Texel> texels(size_t{kSize} * kSize);
  for (int y = 0; y < kSize; ++y) {
    for (int x = 0; x < kSize; ++x) {
      const size_t at = static_cast<size_t>(y) * kSize + x;
      Texel& texel = texels[at];
      switch (surface) {
        case Surface::kCobbles:
          texel = cobbles(cells, x, y, broad[at], fine[at]);
          break;
        case Surface::kFarmland:
          texel = farmland(cells, x, y, broad[at], fine[at]);
          break;
        case Surface::kClouds:
          texel = clouds(broad[at]);
          break;
        case Surface::kRock:
          texel = rock(broad[at], fine[at]);
          break;
        case Surface::kFabric:
          texel = fabric(x, y, fine[at]);
          break;
        case Surface::kGrass:
          texel = grass(broad[at], fine[at]);
          break;
      }
    }
  }
  return texels;
}

uint8_t clipped(int value) {
  return static_cast<uint8_t>(std::clamp(value, 16, 240));
}

TileMap lumaMap(const std::vector<Texel>& texels) {
  std::vector<uint8_t> values(texels.size());
  for (size_t i = 0; i < values.size(); ++i) values[i] = clipped(texels[i].y);
  return {kMaterialBits, values};
}

// Half as many points a side, each the mean of four.
TileMap chromaMap(const std::vector<Texel>& texels, int Texel::*component) {
  constexpr int kHalf = kSize / 2;
  std::vector<uint8_t> values(size_t{kHalf} * kHalf);
  for (int y = 0; y < kHalf; ++y) {
    for (int x = 0; x < kHalf; ++x) {
      const Texel* const at = &texels[static_cast<size_t>(2 * y) * kSize + 2 * x];
      const int sum =
          at[0].*component + at[1].*component + at[kSize].*component + at[kSize + 1].*component;
      values[static_cast<size_t>(y) * kHalf + x] = clipped((sum + 2) >> 2);
    }
  }
  return {kMaterialBits - 1, values};
}

}  // namespace

TileMap::TileMap(int bits, const std::vector<uint8_t>& values) : bits_(bits) {
  assert(values.size() == size_t{1} << (2 * bits));
  const uint32_t mask = (1u << bits) - 1;
  quads_.resize(values.size());
  for (uint32_t y = 0; y <= mask; ++y) {
    for (uint32_t x = 0; x <= mask; ++x) {
      const auto point = [&](uint32_t px, uint32_t py) {
        return uint32_t{values[(py & mask) << bits | (px & mask)]};
      };
      quads_[y << bits | x] =
          point(x, y) | point(x + 1, y) << 8 | point(x, y + 1) << 16 | point(x + 1, y + 1) << 24;
    }
  }
}

void TileMap::sample(uint32_t u, uint32_t v, uint32_t du, uint32_t dv, int count,
                     int16_t* out) const {
  sampleTileVector({quads_.data(), bits_, u, v, du, dv}, count, out);
}

std::unique_ptr<Material> makeMaterial(Surface surface, uint64_t seed) {
  const std::vector<Texel> texels = texelsOf(surface, mix64(seed, static_cast<uint64_t>(surface)));
  return std::make_unique<Material>(
      Material{lumaMap(texels), chromaMap(texels, &Texel::cb), chromaMap(texels, &Texel::cr)});
}

}  // namespace zel::testsrc
