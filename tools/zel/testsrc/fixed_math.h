#pragma once

// Whole-number arithmetic for everything that reaches a sample: the same bytes on every machine and
// from every compiler. An angle is a 32-bit phase, the whole circle is 2^32.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace zel::testsrc {

/// A well mixed 64-bit number from any other (the finalizer of SplitMix64).
constexpr uint64_t mix64(uint64_t value) {
  value += 0x9E3779B97F4A7C15u;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
  return value ^ (value >> 31);
}

/// One of a family of such numbers, so that no two uses draw the same.
constexpr uint64_t mix64(uint64_t seed, uint64_t a, uint64_t b = 0, uint64_t c = 0) {
  return mix64(mix64(mix64(mix64(seed) ^ a) ^ b) ^ c);
}

/// A number of 0 to below - 1 out of a mixed one.
constexpr uint32_t within(uint64_t mixed, uint32_t below) {
  return static_cast<uint32_t>(((mixed >> 32) * below) >> 32);
}

/// sin of a phase, times 2^30. The error is below five units.
constexpr int32_t sine(uint32_t phase) {
  // Folded into the first quarter, where x is the share of a right angle, times 2^30.
  const bool falling = (phase & 0x40000000u) != 0;
  const bool negative = (phase & 0x80000000u) != 0;
  const int64_t part = phase & 0x3FFFFFFF;
  const int64_t x = falling ? (int64_t{1} << 30) - part : part;
  const int64_t square = (x * x) >> 30;
  // Taylor's series of sin(pi/2 x), coefficients times 2^30, by Horner from the term of x^13.
  constexpr int64_t kTerms[] = {1686629713, -693598668, 85569306, -5026995, 172272, -3864, 61};
  int64_t sum = 0;
  for (size_t i = std::size(kTerms); i-- > 0;) sum = kTerms[i] + ((sum * square) >> 30);
  int64_t value = (sum * x) >> 30;
  if (value > (int64_t{1} << 30)) value = int64_t{1} << 30;
  return static_cast<int32_t>(negative ? -value : value);
}

constexpr int32_t cosine(uint32_t phase) {
  return sine(phase + 0x40000000u);
}

/// An oscillation: `amplitude` times the sine of a phase that starts at `start` and turns so many
/// thousandths of a circle a second. `time` is seconds times 65536.
constexpr int64_t swing(int64_t amplitude, int64_t time, int milliturns, uint32_t start) {
  const auto phase = static_cast<uint32_t>(time * 65536 / 1000 * milliturns) + start;
  return (amplitude * (sine(phase) >> 14)) >> 16;
}

/// The largest whole number whose square is not above `value`.
constexpr uint32_t squareRoot(uint64_t value) {
  uint64_t root = 0;
  const int half = (static_cast<int>(std::bit_width(value)) + 1) / 2;
  for (uint64_t bit = (uint64_t{1} << half) >> 1; bit != 0; bit >>= 1) {
    const uint64_t next = root | bit;
    if (next * next <= value) root = next;
  }
  return static_cast<uint32_t>(root);
}

/// Numbers drawn one after the other out of a seed.
class Draws {
 public:
  explicit constexpr Draws(uint64_t seed) : seed_(seed) {}

  constexpr uint64_t any() { return mix64(seed_, ++count_); }

  /// 0 to below - 1.
  constexpr uint32_t below(uint32_t below) { return within(any(), below); }

  /// low to high, both included.
  constexpr int between(int low, int high) {
    return low + static_cast<int>(below(static_cast<uint32_t>(high - low + 1)));
  }

 private:
  uint64_t seed_;
  uint64_t count_ = 0;
};

}  // namespace zel::testsrc
