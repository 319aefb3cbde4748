#include "tools/zel/testsrc/sprite.h"

#include <algorithm>
#include <optional>

#include "tools/zel/testsrc/fixed_math.h"

namespace zel::testsrc {
namespace {

constexpr int kSurfaceMiddle = 128 * 16;

// Where a row cuts a shape: columns times 256.
struct Cut {
  int64_t left;
  int64_t right;
};

std::optional<Cut> cutEllipse(const Sprite& sprite, int64_t dy) {
  if (dy <= -sprite.radiusY || dy >= sprite.radiusY) return std::nullopt;
  const auto inside = static_cast<uint64_t>(sprite.radiusY * sprite.radiusY - dy * dy);
  const int64_t half = sprite.radiusX * squareRoot(inside) / sprite.radiusY;
  return Cut{sprite.x - half, sprite.x + half};
}

// The columns at which |x a + y b| is within a half width, a and b times 2^14.
std::optional<Cut> cutSlab(int64_t a, int64_t b, int64_t dy, int64_t half) {
  const int64_t offset = dy * b >> 14;
  if (a == 0) {
    if (offset < -half || offset > half) return std::nullopt;
    return Cut{INT32_MIN, INT32_MAX};
  }
  const int64_t one = (-half - offset) * 16384 / a;
  const int64_t other = (half - offset) * 16384 / a;
  return Cut{std::min(one, other), std::max(one, other)};
}

std::optional<Cut> cutBox(const Sprite& sprite, int64_t dy) {
  const int64_t c = cosine(sprite.angle) >> 16;
  const int64_t s = sine(sprite.angle) >> 16;
  const auto across = cutSlab(c, s, dy, sprite.radiusX);
  const auto along = cutSlab(-s, c, dy, sprite.radiusY);
  if (!across || !along) return std::nullopt;
  const Cut cut = {sprite.x + std::max(across->left, along->left),
                   sprite.x + std::min(across->right, along->right)};
  if (cut.left >= cut.right) return std::nullopt;
  return cut;
}

// How much of the sample at `position` a cut covers, of 256.
int coverage(const Cut& cut, int64_t position, int64_t width) {
  const int64_t covered = std::min(cut.right, position + width) - std::max(cut.left, position);
  return static_cast<int>(std::clamp<int64_t>(covered, 0, width) * 256 / width);
}

int16_t blended(int16_t under, int16_t over, int share) {
  return static_cast<int16_t>(under + ((over - under) * share >> 8));
}

void shade(int count, int16_t* levels) {
  for (int i = 0; i < count; ++i) {
    levels[i] = static_cast<int16_t>(kBlack + (levels[i] - kBlack) * 5 / 8);
  }
}

// Brings a surface's levels to the sprite's tone.
void tone(const Sprite& sprite, const RowSpot& spot, int64_t dy, int count, int16_t* levels) {
  int base = levelOf(sprite.tone, spot.plane);
  const int contrast = sprite.contrast;
  if (spot.plane == 0) {
    base -= static_cast<int>(dy * sprite.light / std::max<int64_t>(1, sprite.radiusY));
  }
  for (int i = 0; i < count; ++i) {
    const int level = base + ((levels[i] - kSurfaceMiddle) * contrast >> 8);
    levels[i] = static_cast<int16_t>(std::clamp(level, kLowest, kHighest));
  }
}

}  // namespace

void sampleMaterial(const Material& material, const RowSpot& spot, const MaterialLine& line,
                    int count, int16_t* out) {
  // Chroma maps have half as many points a side.
  const int half = spot.plane == 0 ? 0 : 1;
  mapOf(material, spot.plane)
      .sample(static_cast<uint32_t>(line.u >> half), static_cast<uint32_t>(line.v >> half),
              static_cast<uint32_t>(line.du * spot.step >> half),
              static_cast<uint32_t>(line.dv * spot.step >> half), count, out);
}

void paintSprite(const Sprite& sprite, const RowSpot& spot, int16_t* levels, int16_t* scratch) {
  const int64_t dy = spot.y - sprite.y;
  const int64_t reach = sprite.radiusX + sprite.radiusY;
  if (dy < -reach || dy > reach) return;
  if (sprite.material == nullptr && spot.plane != 0) return;
  const auto cut =
      sprite.shape == Sprite::Shape::kEllipse ? cutEllipse(sprite, dy) : cutBox(sprite, dy);
  if (!cut) return;
  const int64_t width = int64_t{256} * spot.step;
  const int64_t begin = std::max<int64_t>(0, cut->left >> (spot.step == 2 ? 9 : 8));
  const int64_t end =
      std::min<int64_t>(spot.count, (cut->right + width - 1) >> (spot.step == 2 ? 9 : 8));
  if (begin >= end) return;
  const auto count = static_cast<int>(end - begin);
  int16_t* const out = levels + begin;

  if (sprite.material == nullptr) {
    std::copy_n(out, count, scratch);
    shade(count, scratch);
  } else {
    const int64_t c = (cosine(sprite.angle) >> 14) * sprite.scale >> 16;
    const int64_t s = (sine(sprite.angle) >> 14) * sprite.scale >> 16;
    const int64_t dx = begin * width - sprite.x;
    const MaterialLine line = {(dx * c + dy * s) >> 8, (dy * c - dx * s) >> 8, c, -s};
    sampleMaterial(*sprite.material, spot, line, count, scratch);
    tone(sprite, spot, dy, count, scratch);
  }
  // Full inside, by their share at the two ends.
  const int first = coverage(*cut, begin * width, width);
  const int last = coverage(*cut, (end - 1) * width, width);
  const int16_t left = blended(out[0], scratch[0], first);
  const int16_t right = blended(out[count - 1], scratch[count - 1], last);
  std::copy_n(scratch, count, out);
  out[count - 1] = right;
  out[0] = left;
}

}  // namespace zel::testsrc
