#include "zel/base/crc32.h"

#include <gtest/gtest.h>

#include <random>
#include <string_view>
#include <vector>

#include "tests/support/seed.h"
#include "zel/base/byte_order.h"

namespace zel::base {

namespace {

std::span<const uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// The shift register of ISO/IEC 13818-1, Annex A, one bit at a time.
uint32_t slowCrc(std::span<const uint8_t> bytes, uint32_t state = kCrc32Start) {
  for (const uint8_t byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) {
      const bool feedback = (state >> 31 != 0) != ((byte >> bit & 1) != 0);
      state = state << 1 ^ (feedback ? 0x04C11DB7 : 0);
    }
  }
  return state;
}

}  // namespace

TEST(Crc32, CheckValue) {
  EXPECT_EQ(crc32(bytesOf("123456789")), 0x0376E6E7u);
}

TEST(Crc32, OfNothingIsTheStart) {
  EXPECT_EQ(crc32({}), 0xFFFFFFFFu);
  EXPECT_EQ(crc32({}, 5), 5u);
}

TEST(Crc32, ASectionWithItsCrcGivesZero) {
  // A program association section: one program, 1, on PID 0x1000.
  std::vector<uint8_t> section = {0x00, 0xB0, 0x0D, 0x00, 0x01, 0xC1, 0x00, 0x00,
                                  0x00, 0x01, 0xF0, 0x00, 0,    0,    0,    0};
  const uint32_t crc = crc32(std::span(section).first(12));
  EXPECT_EQ(crc, 0x2AB104B2u);
  storeBig32(&section[12], crc);
  EXPECT_EQ(crc32(section), 0u);
  section[5] ^= 0x20;
  EXPECT_NE(crc32(section), 0u);
}

TEST(Crc32, AgreesWithTheShiftRegisterAtEverySizeAndAlignment) {
  std::mt19937_64 random(test::testSeed());
  std::vector<uint8_t> bytes(300);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  for (size_t from = 0; from < 8; ++from) {
    for (size_t size = 0; from + size <= bytes.size(); size += size < 40 ? 1 : 13) {
      const auto piece = std::span<const uint8_t>(bytes).subspan(from, size);
      ASSERT_EQ(crc32(piece), slowCrc(piece)) << from << ' ' << size;
    }
  }
}

TEST(Crc32, PiecesGiveTheSameAsTheWhole) {
  std::mt19937_64 random(test::testSeed());
  std::vector<uint8_t> bytes(1000);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  const std::span<const uint8_t> whole(bytes);
  for (size_t cut = 0; cut <= whole.size(); cut += 7) {
    ASSERT_EQ(crc32(whole.subspan(cut), crc32(whole.first(cut))), crc32(whole));
  }
}

}  // namespace zel::base
