#include <algorithm>
#include <cstring>

#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/renderer.h"

// Random samples over all codes of the depth: nothing to predict, nothing to transform, the most
// bits that a picture can cost.

namespace zel::testsrc {
namespace {

// Four generators side by side, one a lane, so that the compiler can keep them in vectors
// (xorshift of 32 bits each, Marsaglia 2003; its whole state is mixed anew for every row).
class RowNoise {
 public:
  explicit RowNoise(uint64_t seed) {
    for (size_t lane = 0; lane < kLanes; ++lane) {
      state_[lane] = static_cast<uint32_t>(mix64(seed, lane)) | 1;
    }
  }

  static constexpr size_t kLanes = 16;

  // The lanes' next values, as they lie in memory on a little-endian machine.
  const uint32_t* next() {
    for (size_t lane = 0; lane < kLanes; ++lane) {
      uint32_t value = state_[lane];
      value ^= value << 13;
      value ^= value >> 17;
      value ^= value << 5;
      state_[lane] = value;
      // The bare sequence is linear; the product is not.
      out_[lane] = (value * 0x9E3779B1u) ^ (value >> 15);
    }
    return out_;
  }

 private:
  uint32_t state_[kLanes];
  uint32_t out_[kLanes];
};

class Noise : public Renderer {
 public:
  explicit Noise(const PictureOptions& options) : seed_(options.seed) {}

  void render(uint64_t frame, const Picture& picture) override {
    for (size_t i = 0; i < picture.planes.size(); ++i) {
      const Plane& plane = picture.planes[i];
      for (int y = 0; y < plane.height; ++y) {
        RowNoise noise(mix64(seed_, frame, i, static_cast<uint64_t>(y)));
        fillRow(plane, y, noise);
        if (picture.depth > 8) keepTenBits(plane, y);
      }
    }
  }

 private:
  static void fillRow(const Plane& plane, int y, RowNoise& noise) {
    constexpr size_t kBlock = RowNoise::kLanes * sizeof(uint32_t);
    uint8_t* const row = plane.row(y);
    for (size_t at = 0; at < plane.stride(); at += kBlock) {
      std::memcpy(row + at, noise.next(), std::min(kBlock, plane.stride() - at));
    }
  }

  static void keepTenBits(const Plane& plane, int y) {
    auto* const row = static_cast<uint16_t*>(static_cast<void*>(plane.row(y)));
    for (int x = 0; x < plane.width; ++x) row[x] = row[x] & 0x3FF;
  }

  uint64_t seed_;
};

}  // namespace

std::unique_ptr<Renderer> makeNoise(const PictureOptions& options) {
  return std::make_unique<Noise>(options);
}

}  // namespace zel::testsrc
