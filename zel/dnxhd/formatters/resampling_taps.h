#pragma once

#include <array>
#include <cstdint>

#include "zel/dnxhd/formatters/filter_description.h"

// Written by scripts/resampling_filters.py, which a test runs again. The taps of a phase sum up
// to 2048; they are in the order of the samples.

namespace zel::dnxhd {

// clang-format off

inline constexpr std::array<int16_t, 72> kShrinkLumaTaps = {
    1, -9, 17, -11, -20, 59, -66, 0, 138, -277, 264, 1439, 737, -287, 26, 95, -97, 40, 12, -29, 19, -3, -4, 4,
    4, -9, 8, 9, -35, 45, -10, -74, 156, -140, -105, 1175, 1175, -105, -140, 156, -74, -10, 45, -35, 9, 8, -9, 4,
    4, -4, -3, 19, -29, 12, 40, -97, 95, 26, -287, 737, 1439, 264, -277, 138, 0, -66, 59, -20, -11, 17, -9, 1,
};
inline constexpr FilterDescription kShrinkLuma = {
    .phaseCount = 3,
    .phases = {{{0, 24, 0}, {1, 24, 24}, {2, 24, 48}}},
    .advance = 4,
    .edge = 11,
    .taps = kShrinkLumaTaps.data(),
};

inline constexpr std::array<int16_t, 72> kShrinkChromaTaps = {
    0, -8, 19, -16, -13, 58, -78, 24, 118, -295, 377, 1466, 616, -301, 61, 72, -93, 48, 3, -25, 20, -5, -3, 3,
    3, -10, 10, 5, -34, 51, -24, -60, 161, -181, -28, 1262, 1077, -169, -98, 147, -85, 5, 38, -36, 13, 5, -8, 4,
    4, -6, -1, 18, -33, 21, 30, -96, 115, -14, -260, 855, 1396, 158, -251, 152, -22, -53, 59, -26, -5, 15, -10, 2,
};
inline constexpr FilterDescription kShrinkChroma = {
    .phaseCount = 3,
    .phases = {{{0, 24, 0}, {1, 24, 24}, {2, 24, 48}}},
    .advance = 4,
    .edge = 11,
    .taps = kShrinkChromaTaps.data(),
};

inline constexpr std::array<int16_t, 64> kExpandLumaTaps = {
    -5, 15, -32, 59, -97, 149, -224, 401, 1859, -81, -20, 44, -44, 35, -22, 11,
    -2, 9, -25, 56, -108, 196, -369, 996, 1538, -343, 140, -56, 17, 0, -5, 4,
    4, -5, 0, 17, -56, 140, -343, 1538, 996, -369, 196, -108, 56, -25, 9, -2,
    11, -22, 35, -44, 44, -20, -81, 1859, 401, -224, 149, -97, 59, -32, 15, -5,
};
inline constexpr FilterDescription kExpandLuma = {
    .phaseCount = 4,
    .phases = {{{0, 16, 0}, {1, 16, 16}, {2, 16, 32}, {3, 16, 48}}},
    .advance = 3,
    .edge = 8,
    .taps = kExpandLumaTaps.data(),
};

inline constexpr std::array<int16_t, 64> kExpandChromaTaps = {
    -5, 14, -31, 55, -87, 126, -174, 265, 1891, 22, -70, 72, -60, 43, -26, 13,
    -3, 11, -29, 60, -111, 193, -345, 846, 1645, -301, 108, -35, 3, 9, -9, 6,
    2, -1, -8, 30, -75, 165, -370, 1418, 1144, -382, 193, -101, 49, -21, 6, -1,
    10, -18, 26, -28, 16, 28, -169, 1807, 545, -271, 168, -105, 62, -32, 14, -5,
};
inline constexpr FilterDescription kExpandChroma = {
    .phaseCount = 4,
    .phases = {{{0, 16, 0}, {1, 16, 16}, {2, 16, 32}, {3, 16, 48}}},
    .advance = 3,
    .edge = 8,
    .taps = kExpandChromaTaps.data(),
};

inline constexpr std::array<int16_t, 16> kDraft3To4Taps = {
    -14, 186, 1974, -98,
    -90, 798, 1490, -150,
    -150, 1490, 798, -90,
    -98, 1974, 186, -14,
};
inline constexpr FilterDescription kDraft3To4 = {
    .phaseCount = 4,
    .phases = {{{0, 4, 0}, {1, 4, 4}, {2, 4, 8}, {3, 4, 12}}},
    .advance = 3,
    .edge = 2,
    .taps = kDraft3To4Taps.data(),
};

inline constexpr std::array<int16_t, 8> kDraft3To2Taps = {
    51, 1499, 498, 0,
    498, 1499, 51, 0,
};
inline constexpr FilterDescription kDraft3To2 = {
    .phaseCount = 2,
    .phases = {{{0, 4, 0}, {2, 4, 4}}},
    .advance = 3,
    .edge = 1,
    .taps = kDraft3To2Taps.data(),
};

inline constexpr std::array<int16_t, 6> kDraft3To1Taps = {
    228, 455, 683, 455, 227, 0,
};
inline constexpr FilterDescription kDraft3To1 = {
    .phaseCount = 1,
    .phases = {{{0, 6, 0}}},
    .advance = 3,
    .edge = 1,
    .taps = kDraft3To1Taps.data(),
};

inline constexpr std::array<int16_t, 4> kDraft2To1Taps = {
    256, 768, 768, 256,
};
inline constexpr FilterDescription kDraft2To1 = {
    .phaseCount = 1,
    .phases = {{{0, 4, 0}}},
    .advance = 2,
    .edge = 1,
    .taps = kDraft2To1Taps.data(),
};

inline constexpr std::array<int16_t, 8> kDraft4To1Taps = {
    64, 192, 320, 448, 448, 320, 192, 64,
};
inline constexpr FilterDescription kDraft4To1 = {
    .phaseCount = 1,
    .phases = {{{0, 8, 0}}},
    .advance = 4,
    .edge = 2,
    .taps = kDraft4To1Taps.data(),
};

// clang-format on

}  // namespace zel::dnxhd
