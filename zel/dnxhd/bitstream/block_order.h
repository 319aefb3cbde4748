#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "zel/dnxhd/bitstream/frame_header.h"

// The order in which the blocks of a macroblock are coded, SMPTE ST 2019-1, and where they are
// kept: luma first, so that an 8-block macroblock has four blocks of luma and two of each chroma
// component.

namespace zel::dnxhd {

inline constexpr size_t kBlockCoefficients = 64;
inline constexpr size_t kMaxBlocks = 12;

/// Blocks of a macroblock: 8, or 12 in 4:4:4.
constexpr size_t BlocksOf(CodingMode mode) {
  return mode == kMode444 ? 12 : 8;
}

/// No coefficient takes more: 16 bits of code, a sign, 6 escape bits and 10 bits of run. Nor do the
/// DC and the end of a block, 22 bits and 6.
inline constexpr size_t kMostBits = 16 + 1 + 6 + 10;
inline constexpr size_t kMostBitsBesides = 22 + 6;
/// More than the longest macroblock takes, and the eight bytes that one load or store does.
inline constexpr size_t kMostMacroblockBytes = 3400;
static_assert((12 + kMaxBlocks * (kMostBitsBesides + 63 * kMostBits)) / 8 + 16 <=
              kMostMacroblockBytes);

/// Where a coded block is stored, counted in coefficients, and whose predictor and weights it has.
struct BlockPlace {
  uint16_t offset;
  uint8_t component;
};
inline constexpr std::array<BlockPlace, 8> kPlaces422 = {
    {{0, 0}, {64, 0}, {256, 1}, {384, 2}, {128, 0}, {192, 0}, {320, 1}, {448, 2}}};
inline constexpr std::array<BlockPlace, 12> kPlaces444 = {{{0, 0},
                                                           {64, 0},
                                                           {128, 1},
                                                           {192, 1},
                                                           {256, 2},
                                                           {320, 2},
                                                           {384, 0},
                                                           {448, 0},
                                                           {512, 1},
                                                           {576, 1},
                                                           {640, 2},
                                                           {704, 2}}};

/// The places of a macroblock's blocks, in the order in which they are coded.
inline std::span<const BlockPlace> PlacesOf(CodingMode mode) {
  if (mode == kMode444) return kPlaces444;
  return kPlaces422;
}

}  // namespace zel::dnxhd
