#pragma once

#include <array>
#include <cstdint>

namespace zel::dnxhd {

// cos(i * pi / 16) / 2 with 16 fraction bits, but for the first two, which are those of i = 4: what
// the basis of frequency 0 has.
inline constexpr int16_t kC0 = 23170;
inline constexpr int16_t kC1 = 32138;
inline constexpr int16_t kC2 = 30274;
inline constexpr int16_t kC3 = 27246;
inline constexpr int16_t kC4 = 23170;
inline constexpr int16_t kC5 = 18205;
inline constexpr int16_t kC6 = 12540;
inline constexpr int16_t kC7 = 6393;

// Row k is the basis function of frequency k at the sample 0 to 7.
using TransformBasis = std::array<std::array<int16_t, 8>, 8>;
inline constexpr TransformBasis kBasis = {{
    {kC0, kC0, kC0, kC0, kC0, kC0, kC0, kC0},
    {kC1, kC3, kC5, kC7, -kC7, -kC5, -kC3, -kC1},
    {kC2, kC6, -kC6, -kC2, -kC2, -kC6, kC6, kC2},
    {kC3, -kC7, -kC1, -kC5, kC5, kC1, kC7, -kC3},
    {kC4, -kC4, -kC4, kC4, kC4, -kC4, -kC4, kC4},
    {kC5, -kC1, kC7, kC3, -kC3, -kC7, kC1, -kC5},
    {kC6, -kC2, kC2, -kC6, -kC6, kC2, -kC2, kC6},
    {kC7, -kC5, kC3, -kC1, kC1, -kC3, kC5, -kC7},
}};

inline constexpr int kBasisFraction = 16;
inline constexpr int kForwardFraction = 3;  // between the passes of the forward transform
inline constexpr int kForward8Scale = 2;    // from samples of 8 bits to those of 10

}  // namespace zel::dnxhd
