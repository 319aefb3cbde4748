#include "zel/base/bit_reader.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "tests/support/slow_bits.h"

namespace zel::base {

using test::SlowBits;

namespace {

// In memory of its own size, so that a read past the end is seen by the sanitizers.
struct Exact {
  explicit Exact(std::vector<uint8_t> from)
      : size(from.size()), memory(std::make_unique<uint8_t[]>(size)) {
    std::copy(from.begin(), from.end(), memory.get());
  }
  std::span<const uint8_t> bytes() const { return {memory.get(), size}; }
  size_t size;
  std::unique_ptr<uint8_t[]> memory;
};

std::vector<uint8_t> randomBytes(std::mt19937_64& random, size_t size) {
  std::vector<uint8_t> bytes(size);
  // Runs of zeros and ones bring the long codes about.
  const unsigned kind = random() % 4;
  for (uint8_t& byte : bytes) {
    byte = kind == 0 ? 0 : kind == 1 ? 0xFF : static_cast<uint8_t>(random());
    if (kind < 2 && random() % 8 == 0) byte = static_cast<uint8_t>(random());
  }
  return bytes;
}

// One operation on both readers, which have to agree on everything that can be seen.
void step(std::mt19937_64& random, BitReader& reader, SlowBits& slow) {
  switch (random() % 7) {
    case 0: {
      const int count = static_cast<int>(random() % 33);
      ASSERT_EQ(reader.peek(count), BitReader(reader).read(count));
      ASSERT_EQ(reader.read(count), slow.read(count)) << count;
      break;
    }
    case 1: {
      const int count = static_cast<int>(random() % 65);
      ASSERT_EQ(reader.readLong(count), slow.read(count)) << count;
      break;
    }
    case 2:
      ASSERT_EQ(reader.readFlag(), slow.read(1) != 0);
      break;
    case 3: {
      const uint32_t value = reader.readUe();
      const uint32_t expected = slow.readUe();
      ASSERT_EQ(reader.failed(), slow.failed());
      if (!slow.failed()) {
        ASSERT_EQ(value, expected);
      }
      break;
    }
    case 4: {
      const uint64_t count = random() % 40;
      reader.skip(count);
      slow.skip(count);
      break;
    }
    case 5: {
      const int count = 1 + static_cast<int>(random() % 32);
      const uint64_t raw = slow.read(count);
      const int64_t expected = static_cast<int64_t>(raw << (64 - count)) >> (64 - count);
      ASSERT_EQ(reader.readSigned(count), expected);
      break;
    }
    default:
      ASSERT_EQ(reader.moreRbspData(), slow.moreRbspData());
  }
  ASSERT_EQ(reader.failed(), slow.failed());
  if (slow.failed()) return;
  ASSERT_EQ(reader.position(), slow.position());
  ASSERT_EQ(reader.bitsLeft(), slow.size() - slow.position());
}

}  // namespace

TEST(BitReader, AgreesWithBitByBitReading) {
  std::mt19937_64 random(test::testSeed());
  for (int round = 0; round < 4000; ++round) {
    const Exact data(randomBytes(random, random() % 40));
    BitReader reader(data.bytes());
    SlowBits slow(data.bytes());
    for (int i = 0; i < 60; ++i) {
      ASSERT_NO_FATAL_FAILURE(step(random, reader, slow)) << "round " << round << " step " << i;
    }
  }
}

TEST(BitReader, EveryWidthAtEveryOffsetOfEverySize) {
  std::mt19937_64 random(test::testSeed());
  for (size_t size = 0; size <= 18; ++size) {
    std::vector<uint8_t> bytes(size);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    const Exact data(bytes);
    for (unsigned offset = 0; offset <= size * 8; ++offset) {
      for (int count = 0; count <= 32; ++count) {
        BitReader reader(data.bytes());
        SlowBits slow(data.bytes());
        reader.skip(offset);
        slow.skip(offset);
        ASSERT_EQ(reader.read(count), slow.read(count)) << size << ' ' << offset << ' ' << count;
        ASSERT_EQ(reader.failed(), slow.failed()) << size << ' ' << offset << ' ' << count;
      }
    }
  }
}

TEST(BitReader, PastTheEndComeTheBitsLeftThenZeros) {
  const std::array<uint8_t, 2> bytes = {0xFF, 0xFF};
  BitReader reader(bytes);
  EXPECT_EQ(reader.read(12), 0xFFFu);
  EXPECT_EQ(reader.bitsLeft(), 4u);
  EXPECT_FALSE(reader.failed());
  EXPECT_EQ(reader.read(8), 0xF0u);
  EXPECT_TRUE(reader.failed());
  EXPECT_EQ(reader.bitsLeft(), 0u);
  EXPECT_EQ(reader.read(32), 0u);
  EXPECT_EQ(reader.readSigned(5), 0);
  EXPECT_FALSE(reader.readFlag());
  EXPECT_EQ(reader.readLong(64), 0u);
  EXPECT_EQ(reader.readUe(), 0u);
  EXPECT_EQ(reader.readSe(), 0);
  reader.align();
  EXPECT_TRUE(reader.readBytes(1).empty());
  EXPECT_TRUE(reader.failed());
}

TEST(BitReader, TheLastBitIsNotPastTheEnd) {
  const std::array<uint8_t, 1> bytes = {0x01};
  BitReader reader(bytes);
  EXPECT_EQ(reader.read(8), 1u);
  EXPECT_FALSE(reader.failed());
  EXPECT_EQ(reader.read(0), 0u);
  EXPECT_FALSE(reader.failed());
  EXPECT_FALSE(reader.readFlag());
  EXPECT_TRUE(reader.failed());
}

TEST(BitReader, AnEmptyOneFailsAtTheFirstBit) {
  BitReader reader;
  EXPECT_EQ(reader.peek(32), 0u);
  EXPECT_FALSE(reader.failed());
  EXPECT_FALSE(reader.moreRbspData());
  EXPECT_TRUE(reader.readBytes(0).empty());
  EXPECT_FALSE(reader.failed());
  EXPECT_EQ(reader.read(1), 0u);
  EXPECT_TRUE(reader.failed());
}

TEST(BitReader, SkippingAnyDistanceEndsOnePastTheEnd) {
  const std::array<uint8_t, 3> bytes = {1, 2, 3};
  BitReader reader(bytes);
  reader.skip(24);
  EXPECT_FALSE(reader.failed());
  for (int i = 0; i < 3; ++i) {
    reader.skip(UINT64_MAX);
    EXPECT_TRUE(reader.failed());
    EXPECT_EQ(reader.read(8), 0u);
  }
}

TEST(BitReader, ReadsExpGolombCodes) {
  // 1, 010, 011, 00100, 00101, 00110, 00111, 0001000: the values 0 to 7.
  const std::array<uint8_t, 5> bytes = {0b10100110, 0b01000010, 0b10011000, 0b11100010, 0};
  BitReader reader(bytes);
  for (uint32_t value = 0; value < 8; ++value) EXPECT_EQ(reader.readUe(), value);
  EXPECT_EQ(reader.position(), 1u + 3 + 3 + 5 * 4 + 7);

  BitReader twice(bytes);
  for (const int32_t value : {0, 1, -1, 2, -2, 3, -3, 4}) EXPECT_EQ(twice.readSe(), value);
}

TEST(BitReader, ReadsTheLongestExpGolombCodes) {
  for (int shift = 0; shift < 8; ++shift) {
    for (int zeros = 26; zeros <= 31; ++zeros) {
      for (const uint64_t value : {(uint64_t{1} << zeros) - 1, (uint64_t{2} << zeros) - 2}) {
        SlowBits code;
        code.write(0, shift);
        code.write(0, zeros);
        code.write(value + 1, zeros + 1);
        const std::vector<uint8_t> bytes = code.bytes();
        BitReader reader(bytes);
        reader.skip(static_cast<unsigned>(shift));
        EXPECT_EQ(reader.readUe(), value) << zeros;
        EXPECT_FALSE(reader.failed());
        EXPECT_EQ(reader.position(), static_cast<unsigned>(shift + 2 * zeros + 1));
        BitReader asSigned(bytes);
        asSigned.skip(static_cast<unsigned>(shift));
        const auto half = static_cast<int64_t>((value + 1) / 2);
        EXPECT_EQ(asSigned.readSe(), value % 2 != 0 ? half : -half);
      }
    }
  }
}

TEST(BitReader, ACodeOfThirtyTwoZerosFails) {
  const std::array<uint8_t, 16> bytes = {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  BitReader reader(bytes);
  EXPECT_EQ(reader.readUe(), 0u);
  EXPECT_TRUE(reader.failed());
  EXPECT_EQ(reader.read(8), 0u);
}

TEST(BitReader, ReadsTruncatedExpGolombCodes) {
  const std::array<uint8_t, 1> bytes = {0b01011000};
  BitReader reader(bytes);
  EXPECT_EQ(reader.readTe(1), 1u);
  EXPECT_EQ(reader.readTe(1), 0u);
  EXPECT_EQ(reader.readTe(2), 2u);
}

TEST(BitReader, AlignsAndTakesBytes) {
  const std::array<uint8_t, 5> bytes = {0x80, 1, 2, 3, 4};
  BitReader reader(bytes);
  reader.align();
  EXPECT_EQ(reader.position(), 0u);
  EXPECT_TRUE(reader.readFlag());
  EXPECT_FALSE(reader.aligned());
  reader.align();
  EXPECT_EQ(reader.position(), 8u);
  const auto view = reader.readBytes(2);
  EXPECT_EQ(view.data(), bytes.data() + 1);
  EXPECT_EQ(view.size(), 2u);
  EXPECT_EQ(BitReader(reader).readBytes(2).size(), 2u);
  EXPECT_TRUE(reader.readBytes(3).empty());
  EXPECT_TRUE(reader.failed());
}

TEST(BitReader, MoreDataStandsBeforeTheStopBit) {
  const std::array<uint8_t, 4> bytes = {0xA0, 0x80, 0, 0};  // ... 1 and trailing zeros
  BitReader reader(bytes);
  for (int i = 0; i < 8; ++i) {
    EXPECT_TRUE(reader.moreRbspData());
    reader.readFlag();
  }
  EXPECT_FALSE(reader.moreRbspData());
  reader.readFlag();
  EXPECT_FALSE(reader.moreRbspData());
  const std::array<uint8_t, 2> none = {0, 0};
  EXPECT_FALSE(BitReader(none).moreRbspData());
}

TEST(BitReader, AMarkedFailureSticks) {
  const std::array<uint8_t, 4> bytes = {0xFF, 0xFF, 0xFF, 0xFF};
  BitReader reader(bytes);
  reader.fail();
  EXPECT_TRUE(reader.failed());
  EXPECT_EQ(reader.read(8), 0u);
  reader.align();
  EXPECT_TRUE(reader.failed());
}

TEST(BitReader, WorksAtCompileTime) {
  static constexpr std::array<uint8_t, 3> kBytes = {0x12, 0x34, 0x56};
  static_assert([] {
    BitReader reader(kBytes);
    return reader.read(4) == 1 && reader.readUe() == 3 && !reader.failed();
  }());
}

}  // namespace zel::base
