#pragma once

// Levels within the generator: 12-bit video, that is, an 8-bit code times 16, so that 8 and 10-bit
// pictures are the same levels rounded. Black is 256, white 3760, no colour 2048.

#include <cstdint>

namespace zel::testsrc {

constexpr int kBlack = 256;
constexpr int kWhite = 3760;
constexpr int kNeutral = 2048;
// Serial interfaces reserve the outermost codes (ITU-R BT.656, BT.1120); pictures keep clear of
// them at both depths.
constexpr int kLowest = 16;
constexpr int kHighest = 4064;

struct Colour {
  int16_t y = kBlack;
  int16_t cb = kNeutral;
  int16_t cr = kNeutral;

  friend constexpr bool operator==(const Colour&, const Colour&) = default;
};

/// The luma share of red and blue, in ten thousandths.
struct ColourMatrix {
  int red;
  int blue;
};

constexpr ColourMatrix kBt601 = {2990, 1140};
constexpr ColourMatrix kBt709 = {2126, 722};

/// A colour of R'G'B' in ten thousandths of white; values outside of 0 to 10000 are possible as far
/// as the levels go.
constexpr Colour fromRgb(const ColourMatrix& matrix, int red, int green, int blue) {
  const auto rounded = [](int64_t value, int64_t by) {
    return static_cast<int>((value + (value < 0 ? -by / 2 : by / 2)) / by);
  };
  // Luma times 10^8; the differences span 2 (1 - share) of it.
  const int64_t luma = int64_t{matrix.red} * red + int64_t{matrix.blue} * blue +
                       int64_t{10000 - matrix.red - matrix.blue} * green;
  const int64_t blueLess = int64_t{10000} * blue - luma;
  const int64_t redLess = int64_t{10000} * red - luma;
  constexpr int kChromaRange = 2 * 112 * 16;
  return {static_cast<int16_t>(kBlack + rounded(luma * (kWhite - kBlack), 100000000)),
          static_cast<int16_t>(
              kNeutral + rounded(blueLess * kChromaRange, int64_t{20000} * (10000 - matrix.blue))),
          static_cast<int16_t>(
              kNeutral + rounded(redLess * kChromaRange, int64_t{20000} * (10000 - matrix.red)))};
}

/// A gray of so many ten thousandths of white.
constexpr Colour gray(int share) {
  return fromRgb(kBt709, share, share, share);
}

}  // namespace zel::testsrc
