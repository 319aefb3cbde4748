#pragma once

#include <cstdint>

// ITU-R BT.709-6: E'Y = 0.2126 E'R + 0.7152 E'G + 0.0722 E'B, E'CB = (E'B - E'Y) / 1.8556,
// E'CR = (E'R - E'Y) / 1.5748; codes of n bits are 219 * 2^(n-8) E'Y + 2^(n-4) and
// 224 * 2^(n-8) E'C + 2^(n-1). Fixed point signals have 14 fraction bits.

namespace zel::dnxhd {

inline constexpr int16_t kFixedOne = 16384;

// From signals to codes: times 2^19 at 10 bits, 2^21 at 8 bits.
constexpr int ToCodeShift(int depth) {
  return depth == 10 ? 19 : 21;
}
inline constexpr int16_t kLumaRed = 5960;  // 0.2126 * 876 * 2^5
inline constexpr int16_t kLumaGreen = 20048;
inline constexpr int16_t kLumaBlue = 2024;
inline constexpr int16_t kCbRed = -3285;  // -0.2126 / 1.8556 * 896 * 2^5
inline constexpr int16_t kCbGreen = -11051;
inline constexpr int16_t kCbBlue = 14336;
inline constexpr int16_t kCrRed = 14336;
inline constexpr int16_t kCrGreen = -13021;
inline constexpr int16_t kCrBlue = -1315;
static_assert(kLumaRed + kLumaGreen + kLumaBlue == 876 << 5, "white is white");
static_assert(kCbRed + kCbGreen + kCbBlue == 0 && kCrRed + kCrGreen + kCrBlue == 0, "grey is grey");

// From codes to signals: times 2^9 at 10 bits, 2^7 at 8 bits.
constexpr int ToSignalShift(int depth) {
  return depth == 10 ? 9 : 7;
}
inline constexpr int16_t kLumaToAll = 9576;  // 16384 / 876 * 2^9
inline constexpr int16_t kCrToRed = 14744;   // 1.5748 * 16384 / 896 * 2^9
inline constexpr int16_t kCbToGreen = -1754;
inline constexpr int16_t kCrToGreen = -4383;
inline constexpr int16_t kCbToBlue = 17373;

/// The code of black, less the middle that planes are centred on.
constexpr int16_t BlackOf(int depth) {
  return static_cast<int16_t>(depth == 10 ? 64 - 512 : 16 - 128);
}
constexpr int16_t LowestOf(int depth) {
  return static_cast<int16_t>(-(1 << (depth - 1)));
}
constexpr int16_t HighestOf(int depth) {
  return static_cast<int16_t>((1 << (depth - 1)) - 1);
}

// Codes in a signal of 1: of Y, and of Cb and Cr.
constexpr int16_t LumaSpan(int depth) {
  return depth == 10 ? 876 : 219;
}
constexpr int16_t ChromaSpan(int depth) {
  return depth == 10 ? 896 : 224;
}

// One code in fixed point signals, times 2^14 at 10 bits and 2^12 at 8 bits.
constexpr int CodeToFixedShift(int depth) {
  return depth == 10 ? 14 : 12;
}
inline constexpr int32_t kLumaCodeToFixed = 306433;    // 2^28 / 876
inline constexpr int32_t kChromaCodeToFixed = 299593;  // 2^28 / 896

}  // namespace zel::dnxhd
