#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// What the vector kernels of the text conversion look up, computed from the rules that it stands
// for.

namespace zel::platform {

// Two bytes in a row, by the upper and lower half of the first and the upper half of the second,
// are ill-formed if all three lie in the sets of one rule. The Unicode Standard, table 3-7.
struct PairRule {
  uint16_t firstHigh, firstLow, secondHigh;  // sets of halves: bit n for the value n
  uint8_t flag;
};

// The sets of upper halves that mean a kind of byte, and the one that means any.
inline constexpr uint16_t kAscii = 0x00FF;
inline constexpr uint16_t kContinuation = 0x0F00;
inline constexpr uint16_t kLead = 0xF000;
inline constexpr uint16_t kNoContinuation = 0xF0FF;
inline constexpr uint16_t kAny = 0xFFFF;
// No error by itself: the second may be the third or fourth byte of a character.
inline constexpr uint8_t kTwoContinuations = 0x80;

inline constexpr PairRule kPairRules[] = {
    // first high, low, second high
    {kLead, kAny, kNoContinuation, 0x01},     // a sequence ends early
    {kAscii, kAny, kContinuation, 0x02},      // continuation of nothing
    {1 << 0xE, 1 << 0, 0x0300, 0x04},         // overlong: E0 80..9F
    {1 << 0xE, 1 << 0xD, 0x0C00, 0x08},       // surrogates: ED A0..BF
    {1 << 0xC, 0x0003, kContinuation, 0x10},  // overlong: C0, C1
    {1 << 0xF, 0xFFF0, 0x0E00, 0x20},         // beyond U+10FFFF: F4 90..BF, F5.. 90..BF
    {1 << 0xF, 0xFFE1, 0x0100, 0x40},         // overlong: F0 80..8F; beyond: F5.. 80..8F
    {kContinuation, kAny, kContinuation, kTwoContinuations},
};

enum class PairTable { FirstHigh, FirstLow, SecondHigh };

constexpr std::array<uint8_t, 16> pairTable(PairTable which) {
  std::array<uint8_t, 16> table{};
  for (const PairRule& rule : kPairRules) {
    const uint16_t halves = which == PairTable::FirstHigh  ? rule.firstHigh
                            : which == PairTable::FirstLow ? rule.firstLow
                                                           : rule.secondHigh;
    for (size_t value = 0; value < 16; ++value) {
      if (halves >> value & 1) table[value] = static_cast<uint8_t>(table[value] | rule.flag);
    }
  }
  return table;
}
alignas(16) inline constexpr std::array<uint8_t, 16> kFirstHigh = pairTable(PairTable::FirstHigh);
alignas(16) inline constexpr std::array<uint8_t, 16> kFirstLow = pairTable(PairTable::FirstLow);
alignas(16) inline constexpr std::array<uint8_t, 16> kSecondHigh = pairTable(PairTable::SecondHigh);

// Shuffles that keep those of eight 16-bit lanes whose bits are set in the index, in front.
struct KeepTable {
  std::array<uint8_t, 16> shuffle[256];
};
constexpr KeepTable makeKeepTable() {
  KeepTable table{};
  for (unsigned index = 0; index < 256; ++index) {
    size_t to = 0;
    for (unsigned lane = 0; lane < 8; ++lane) {
      if ((index >> lane & 1) == 0) continue;
      table.shuffle[index][to++] = static_cast<uint8_t>(2 * lane);
      table.shuffle[index][to++] = static_cast<uint8_t>(2 * lane + 1);
    }
  }
  return table;
}
alignas(16) inline constexpr KeepTable kKeep = makeKeepTable();

// Shuffles that pack four lanes of four bytes, of which the first one, two or three count. The
// index has a bit for each lane with two bytes or more, and above these one for each with three.
struct PackTable {
  std::array<uint8_t, 16> shuffle[256];
};
constexpr PackTable makePackTable() {
  PackTable table{};
  for (unsigned index = 0; index < 256; ++index) {
    size_t to = 0;
    for (unsigned lane = 0; lane < 4; ++lane) {
      const unsigned bytes = 1 + (index >> lane & 1) + (index >> (lane + 4) & 1);
      for (unsigned byte = 0; byte < bytes; ++byte) {
        table.shuffle[index][to++] = static_cast<uint8_t>(4 * lane + byte);
      }
    }
  }
  return table;
}
alignas(16) inline constexpr PackTable kPack = makePackTable();

}  // namespace zel::platform
