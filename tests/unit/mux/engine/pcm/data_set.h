#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace zel::test {

/// An AES3 data set taken apart, bit by bit and by the words of SMPTE ST 302 alone.
struct DataSet {
  int channels = 0;
  int bits = 0;
  int identification = 0;
  std::vector<int32_t> samples;  // interleaved
  std::vector<unsigned> flags;   // V U C F of each
};

inline DataSet unpack(const std::vector<uint8_t>& bytes) {
  DataSet set;
  EXPECT_GE(bytes.size(), 4u);
  const size_t size = static_cast<size_t>(bytes[0] << 8 | bytes[1]);
  EXPECT_EQ(size + 4, bytes.size());
  set.channels = 2 + 2 * (bytes[2] >> 6);
  set.identification = (bytes[2] & 0x3F) << 2 | bytes[3] >> 6;
  set.bits = 16 + 4 * (bytes[3] >> 4 & 3);
  EXPECT_EQ(bytes[3] & 15, 0);
  const size_t width = static_cast<size_t>(set.bits + 4);
  EXPECT_EQ(size * 8 % (width * static_cast<size_t>(set.channels)), 0u);
  const auto bit = [&](size_t at) { return bytes[4 + at / 8] >> (7 - at % 8) & 1u; };
  for (size_t at = 0; at + width <= size * 8; at += width) {
    uint32_t value = 0;
    for (int i = 0; i < set.bits; ++i) value |= bit(at + static_cast<size_t>(i)) << i;
    const uint32_t sign = 1u << (set.bits - 1);
    set.samples.push_back(static_cast<int32_t>((value ^ sign) - sign));
    unsigned flags = 0;
    for (size_t i = width - 4; i < width; ++i) flags = flags << 1 | bit(at + i);
    set.flags.push_back(flags);
  }
  return set;
}

}  // namespace zel::test
