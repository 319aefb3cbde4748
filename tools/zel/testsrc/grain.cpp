#include "tools/zel/testsrc/grain.h"

#include <algorithm>

#include "tools/zel/testsrc/colour.h"
#include "tools/zel/testsrc/fixed_math.h"

namespace zel::testsrc {
namespace {

// The pattern is large enough that blocks cut out of it at random places don't show as the same.
constexpr int kBlockColumns = 64;
constexpr int kBlockRows = 32;
constexpr int kPlaces = 256;  // in either direction
constexpr int kColumns = kPlaces + kBlockColumns;
constexpr int kRows = kPlaces + kBlockRows;

}  // namespace

Grain::Grain(uint64_t seed) : seed_(mix64(seed, 0x6772616E)) {
  // Sums of eight random numbers come near enough to the normal distribution.
  std::vector<int> raw(size_t{kColumns + 2} * (kRows + 2));
  for (size_t i = 0; i < raw.size(); ++i) {
    uint64_t bytes = mix64(seed_, i);
    for (int j = 0; j < 8; ++j, bytes >>= 8) raw[i] += static_cast<int>(bytes & 0xFF) - 128;
  }
  // Blurred by 1 2 1 in both directions, then brought to a deviation of 32 of a possible 127.
  pattern_.resize(size_t{kColumns} * kRows);
  for (int y = 0; y < kRows; ++y) {
    for (int x = 0; x < kColumns; ++x) {
      int sum = 0;
      for (int dy = 0; dy < 3; ++dy) {
        for (int dx = 0; dx < 3; ++dx) {
          const int weight = (dx == 1 ? 2 : 1) * (dy == 1 ? 2 : 1);
          sum += weight * raw[static_cast<size_t>(y + dy) * (kColumns + 2) + x + dx];
        }
      }
      // A raw deviation is 209, the blur takes it to 209 * 6 with its sixteen parts.
      pattern_[static_cast<size_t>(y) * kColumns + x] =
          static_cast<int8_t>(std::clamp(sum * 32 / 1254, -127, 127));
    }
  }
}

void Grain::add(uint64_t frame, uint32_t salt, int row, int strength, int count,
                int16_t* levels) const {
  const int within32 = row % kBlockRows;
  const auto slope = static_cast<int16_t>(strength << 5);
  const uint64_t rowSeed = mix64(seed_, frame, salt, static_cast<uint64_t>(row / kBlockRows));
  for (int begin = 0; begin < count; begin += kBlockColumns) {
    const uint64_t place = mix64(rowSeed, static_cast<uint64_t>(begin));
    const size_t top = within(place, kPlaces);
    const size_t left = within(place << 20, kPlaces);
    const int8_t* const pattern = &pattern_[(top + within32) * kColumns + left];
    int16_t* const out = levels + begin;
    const int n = std::min(kBlockColumns, count - begin);
    for (int i = 0; i < n; ++i) {
      // Level times its distance from white, 0 at the ends, 4064 in the middle, and a part of it
      // for everywhere; in products of 16 bits. The gain comes out as 32 to 254 at full strength.
      const int16_t level = out[i];
      const auto up = static_cast<int16_t>(level << 3);
      const auto down = static_cast<int16_t>((4080 - level) << 3);
      const auto middle = static_cast<int16_t>((int32_t{up} * down) >> 16);
      const auto shaped = static_cast<int16_t>((512 + middle - (middle >> 3)) << 3);
      const auto gain = static_cast<int16_t>(((int32_t{shaped} * slope) >> 16) >> 4);
      out[i] = static_cast<int16_t>(level + (pattern[i] * gain >> 8));
    }
  }
}

void limitLevels(int count, int16_t* levels) {
  for (int i = 0; i < count; ++i) {
    levels[i] = std::clamp<int16_t>(levels[i], kLowest, kHighest);
  }
}

}  // namespace zel::testsrc
