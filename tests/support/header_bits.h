#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "zel/base/bit_writer.h"

/// Writes a header's bits for tests of parsers, and draws random values for its fields.

namespace zel::test {

class HeaderBits {
 public:
  HeaderBits() : writer_(buffer_) {}

  void u(int count, uint64_t value) { writer_.writeLong(value, count); }
  void flag(bool value) { writer_.writeFlag(value); }
  void ue(uint32_t value) { writer_.writeUe(value); }
  void se(int32_t value) { writer_.writeSe(value); }
  void signedBits(int count, int32_t value) { writer_.writeSigned(value, count); }

  /// rbsp_trailing_bits() and the bytes.
  std::vector<uint8_t> rbsp() {
    writer_.writeFlag(true);
    return bytes();
  }
  std::vector<uint8_t> bytes() {
    const auto done = writer_.finish();
    return {done.begin(), done.end()};
  }

 private:
  std::array<uint8_t, 65536> buffer_{};
  base::BitWriter writer_;
};

class RandomFields {
 public:
  explicit RandomFields(uint64_t salt) : engine_(testSeed() + salt) {}
  uint32_t upTo(uint32_t largest) {
    return std::uniform_int_distribution<uint32_t>(0, largest)(engine_);
  }
  uint32_t bits(int count) {
    return count == 0 ? 0 : upTo(count >= 32 ? 0xFFFFFFFF : (uint32_t{1} << count) - 1);
  }
  int32_t between(int32_t low, int32_t high) {
    return std::uniform_int_distribution<int32_t>(low, high)(engine_);
  }
  bool flag() { return (engine_() >> 13 & 1) != 0; }

 private:
  std::mt19937_64 engine_;
};

}  // namespace zel::test
