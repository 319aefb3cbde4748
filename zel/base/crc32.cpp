#include "zel/base/crc32.h"

#include <array>

#include "zel/base/byte_order.h"

// Eight bytes a step: the CRC is linear, so each byte's effect on the state after the step is
// looked up in a table for its distance from the end, and the eight are added.

namespace zel::base {

namespace {

using Tables = std::array<std::array<uint32_t, 256>, 8>;

// kTables[d][b]: what byte b, followed by d zero bytes, does to a state of zero.
constexpr Tables kTables = [] {
  constexpr uint32_t kPolynomial = 0x04C11DB7;
  Tables tables{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t state = byte << 24;
    for (int bit = 0; bit < 8; ++bit) {
      state = state << 1 ^ ((state & 0x80000000) != 0 ? kPolynomial : 0);
    }
    tables[0][byte] = state;
  }
  for (size_t distance = 1; distance != tables.size(); ++distance) {
    for (uint32_t byte = 0; byte < 256; ++byte) {
      const uint32_t state = tables[distance - 1][byte];
      tables[distance][byte] = state << 8 ^ tables[0][state >> 24];
    }
  }
  return tables;
}();

}  // namespace

uint32_t crc32(std::span<const uint8_t> bytes, uint32_t crc) {
  const uint8_t* at = bytes.data();
  size_t left = bytes.size();
  for (; left >= 8; left -= 8, at += 8) {
    const uint64_t word = loadBig64(at) ^ uint64_t { crc } << 32;
    crc = 0;
    for (size_t distance = 0; distance < 8; ++distance) {
      crc ^= kTables[distance][word >> 8 * distance & 0xFF];
    }
  }
  for (; left > 0; --left, ++at) crc = crc << 8 ^ kTables[0][crc >> 24 ^ *at];
  return crc;
}

}  // namespace zel::base
