#include "zel/base/bit_writer.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "tests/support/slow_bits.h"
#include "zel/base/bit_reader.h"

namespace zel::base {

using test::SlowBits;

namespace {

uint64_t lowBits(uint64_t value, int count) {
  return count == 0 ? 0 : value & (~uint64_t{0} >> (64 - count));
}

void step(std::mt19937_64& random, BitWriter& writer, SlowBits& slow) {
  switch (random() % 6) {
    case 0: {
      const int count = static_cast<int>(random() % 33);
      const uint64_t value = lowBits(random(), count);
      writer.write(value, count);
      slow.write(value, count);
      break;
    }
    case 1: {
      const int count = static_cast<int>(random() % 65);
      const uint64_t value = lowBits(random(), count);
      writer.writeLong(value, count);
      slow.write(value, count);
      break;
    }
    case 2: {
      const bool flag = random() % 2 != 0;
      writer.writeFlag(flag);
      slow.write(flag, 1);
      break;
    }
    case 3: {
      const bool ones = random() % 2 != 0;
      const int count = static_cast<int>(-slow.size() & 7);
      writer.align(ones);
      slow.write(ones ? lowBits(~uint64_t{0}, count) : 0, count);
      break;
    }
    case 4: {
      if (!writer.aligned()) break;
      std::vector<uint8_t> bytes(random() % 12);
      for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
      writer.writeBytes(bytes);
      for (const uint8_t byte : bytes) slow.write(byte, 8);
      break;
    }
    default:
      if (random() % 4 == 0) writer.finish();
  }
}

}  // namespace

TEST(BitWriter, AgreesWithBitByBitWriting) {
  std::mt19937_64 random(test::testSeed());
  for (int round = 0; round < 3000; ++round) {
    const size_t room = random() % 100;
    std::vector<uint8_t> buffer(room + 16, 0xEE);
    BitWriter writer(std::span<uint8_t>(buffer).first(room));
    SlowBits slow;
    const int steps = static_cast<int>(random() % 60);
    for (int i = 0; i < steps; ++i) {
      step(random, writer, slow);
      ASSERT_EQ(writer.position(), slow.size());
      ASSERT_EQ(writer.failed(), slow.size() > room * 8);
    }
    std::vector<uint8_t> expected = slow.bytes();
    expected.resize(std::min(expected.size(), room));
    const auto written = writer.finish();
    ASSERT_EQ(std::vector<uint8_t>(written.begin(), written.end()), expected) << round;
    for (size_t i = room; i < buffer.size(); ++i) ASSERT_EQ(buffer[i], 0xEE) << "past the end";
  }
}

TEST(BitWriter, TouchesNothingBehindWhatItWrote) {
  std::array<uint8_t, 12> buffer;
  buffer.fill(0xEE);
  BitWriter writer(buffer);
  writer.write(0x155, 9);
  EXPECT_EQ(writer.finish().size(), 2u);
  EXPECT_EQ(buffer[0], 0xAA);
  EXPECT_EQ(buffer[1], 0x80);
  EXPECT_EQ(buffer[2], 0xEE);
}

TEST(BitWriter, FailsWithTheFirstBitTooMany) {
  std::array<uint8_t, 1> buffer{};
  BitWriter writer(buffer);
  writer.write(0xFF, 8);
  EXPECT_FALSE(writer.failed());
  writer.writeFlag(true);
  EXPECT_TRUE(writer.failed());
  EXPECT_EQ(writer.finish().size(), 1u);
  EXPECT_EQ(writer.position(), 9u);
}

TEST(BitWriter, AnEmptyOneCountsBits) {
  BitWriter writer;
  EXPECT_FALSE(writer.failed());
  for (int i = 0; i < 5; ++i) writer.write(0xFFFFFFFF, 32);
  EXPECT_EQ(writer.position(), 160u);
  EXPECT_TRUE(writer.failed());
  EXPECT_TRUE(writer.finish().empty());
}

TEST(BitWriter, ExpGolombCodesComeBack) {
  std::vector<uint32_t> values;
  for (uint32_t value = 0; value < 300; ++value) values.push_back(value);
  for (int bit = 8; bit < 32; ++bit) {
    for (const int64_t near : {-2, -1, 0, 1}) {
      values.push_back(static_cast<uint32_t>((int64_t{1} << bit) + near));
    }
  }
  values.push_back(0xFFFFFFFE);
  std::vector<uint8_t> buffer(values.size() * 16);
  BitWriter writer(buffer);
  for (const uint32_t value : values) writer.writeUe(value);
  for (const uint32_t value : values) {
    const auto asSigned = static_cast<int32_t>(value);
    if (asSigned != INT32_MIN) writer.writeSe(asSigned);
  }
  BitReader reader(writer.finish());
  for (const uint32_t value : values) ASSERT_EQ(reader.readUe(), value);
  for (const uint32_t value : values) {
    const auto asSigned = static_cast<int32_t>(value);
    if (asSigned == INT32_MIN) continue;
    ASSERT_EQ(reader.readSe(), asSigned);
  }
  EXPECT_FALSE(reader.failed());
  EXPECT_FALSE(writer.failed());
}

TEST(BitWriter, SignedFieldsComeBack) {
  std::array<uint8_t, 64> buffer{};
  BitWriter writer(buffer);
  for (const int count : {1, 2, 7, 31, 32}) {
    writer.writeSigned(static_cast<int32_t>(-(int64_t{1} << (count - 1))), count);
    writer.writeSigned(static_cast<int32_t>((int64_t{1} << (count - 1)) - 1), count);
    writer.writeSigned(-1, count);
  }
  BitReader reader(writer.finish());
  for (const int count : {1, 2, 7, 31, 32}) {
    EXPECT_EQ(reader.readSigned(count), -(int64_t{1} << (count - 1)));
    EXPECT_EQ(reader.readSigned(count), (int64_t{1} << (count - 1)) - 1);
    EXPECT_EQ(reader.readSigned(count), -1);
  }
}

}  // namespace zel::base
