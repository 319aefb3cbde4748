#include "zel/mux/engine/pcm/pcm_input.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "tests/unit/mux/engine/pcm/wave_bytes.h"

namespace zel::mux {
namespace {

using test::plainWave;
using test::WaveBytes;

TEST(ReadSample, ByteOrders) {
  const uint8_t bytes[] = {0x12, 0x34, 0x56};
  EXPECT_EQ(read_sample(bytes, {3, 24, true, false, false}), 0x563412);
  EXPECT_EQ(read_sample(bytes, {3, 24, true, true, false}), 0x123456);
  EXPECT_EQ(read_sample(bytes, {2, 16, true, true, false}), 0x1234);
}

TEST(ReadSample, Justification) {
  const uint8_t bytes[] = {0xF0, 0xFF, 0x8F};  // little-endian 8FFFF0
  EXPECT_EQ(read_sample(bytes, {3, 20, true, false, false}), -0x70001);
  EXPECT_EQ(read_sample(bytes, {3, 20, false, false, false}), -0x10);
  const uint8_t wide[] = {0x00, 0x01, 0x02, 0x83};
  EXPECT_EQ(read_sample(wide, {4, 24, true, false, false}), int32_t(0xFF830201));
  EXPECT_EQ(read_sample(wide, {4, 24, false, false, false}), 0x020100);
}

TEST(ReadSample, BitsReversed) {
  const uint8_t bytes[] = {0x01, 0x80};  // big-endian 0180: reversed 0180
  EXPECT_EQ(read_sample(bytes, {2, 16, true, true, true}), 0x0180);
  const uint8_t one[] = {0x01, 0x00};
  EXPECT_EQ(read_sample(one, {2, 16, true, true, true}), 0x0080);
  EXPECT_EQ(read_sample(one, {2, 16, true, false, true}), -0x8000);
}

TEST(ReadSample, SignsOfAllWidths) {
  const uint8_t bytes[] = {0xFF, 0xFF, 0xFF, 0xFF};
  for (int size = 1; size <= 4; ++size) {
    EXPECT_EQ(read_sample(bytes, {size, 8 * size, true, false, false}), -1) << size;
    EXPECT_EQ(read_sample(bytes, {size, 8, true, false, false}), -1) << size;
  }
}

TEST(ResizedSample, LosesLowBitsOnly) {
  EXPECT_EQ(resized_sample(0x1234, 16, 24), 0x123400);
  EXPECT_EQ(resized_sample(-1, 16, 20), -16);
  EXPECT_EQ(resized_sample(0x123456, 24, 16), 0x1234);
  EXPECT_EQ(resized_sample(-1, 24, 20), -1);
  EXPECT_EQ(resized_sample(-0x800000, 24, 16), -0x8000);
}

/// Gives its bytes `piece` at a time.
class pieces : public stream_source {
 public:
  pieces(std::vector<uint8_t> bytes, int32_t piece) : bytes_(std::move(bytes)), piece_(piece) {}
  int32_t read(uint8_t* to, int32_t room) override {
    const auto left = static_cast<int32_t>(bytes_.size() - at_);
    const int32_t count = std::min({room, piece_, left});
    std::copy_n(bytes_.begin() + static_cast<long>(at_), count, to);
    at_ += static_cast<size_t>(count);
    return count;
  }

 private:
  std::vector<uint8_t> bytes_;
  int32_t piece_;
  size_t at_ = 0;
};

constexpr wave_messages kMessages = {147, 148, 157, 158, 141};

struct PcmInput : testing::Test {
  PcmInput() {
    reports.deliver_to(
        [](void* user, int fatal, int32_t code, const char*) {
          static_cast<std::vector<int>*>(user)->push_back(fatal != 0 ? -code : code);
        },
        &told);
    reports.stop_on(false, false);
  }

  /// All samples of the stream, asked for in odd pieces; `capacity` bytes of buffer.
  std::vector<int32_t> readAll(std::vector<uint8_t> bytes, int32_t piece, int32_t capacity = 257) {
    input = {};
    input.bytes().open(capacity, 1000, std::make_unique<pieces>(std::move(bytes), piece));
    input.set_raw({2, 16, true, false, false}, 2);
    input.open(kMessages, 0x100, reports);
    std::vector<int32_t> all;
    const auto channels = static_cast<size_t>(input.channels());
    while (true) {
      std::vector<int32_t> some(13 * channels);
      size_t count = 0;
      const auto result = input.read(some.data(), channels, 13, count);
      all.insert(all.end(), some.begin(), some.begin() + static_cast<long>(count * channels));
      if (result == pcm_input::result::ended) return all;
      EXPECT_EQ(count, 13u);
    }
  }

  std::vector<int32_t> readAnyWay(const std::vector<uint8_t>& bytes) {
    const std::vector<int32_t> whole = readAll(bytes, 1000, 100'000);
    const std::vector<int> messages = std::exchange(told, {});
    for (const int32_t piece : {1, 3, 64}) {
      told.clear();
      EXPECT_EQ(readAll(bytes, piece), whole) << piece;
      EXPECT_EQ(told, messages) << piece;
    }
    return whole;
  }

  tsm_time now;
  Morvalen::Zel::tsm_stats stats;
  reporting reports{stats, now};
  std::vector<int> told;  // fatal ones negative
  pcm_input input;
};

std::vector<uint8_t> randomBytes(size_t count, uint64_t salt) {
  std::mt19937_64 random(test::testSeed() + salt);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& each : bytes) each = static_cast<uint8_t>(random());
  return bytes;
}

std::vector<int32_t> samplesOf(const std::vector<uint8_t>& bytes, int size, int bits) {
  std::vector<int32_t> all;
  for (size_t at = 0; at + size <= bytes.size(); at += size) {
    int64_t value = 0;
    for (int i = 0; i < size; ++i) value |= int64_t{bytes[at + i]} << (8 * i);
    if (value >= int64_t{1} << (8 * size - 1)) value -= int64_t{1} << (8 * size);
    all.push_back(static_cast<int32_t>(value >> (8 * size - bits)));
  }
  return all;
}

TEST_F(PcmInput, RawSamples) {
  const auto bytes = randomBytes(4 * 100, 1);
  EXPECT_EQ(readAnyWay(bytes), samplesOf(bytes, 2, 16));
  EXPECT_FALSE(input.is_wave());
  EXPECT_TRUE(told.empty());
}

TEST_F(PcmInput, APartialFrameAtTheEndIsDropped) {
  auto bytes = randomBytes(4 * 10, 2);
  const auto samples = samplesOf(bytes, 2, 16);
  bytes.insert(bytes.end(), {1, 2, 3});
  EXPECT_EQ(readAnyWay(bytes), samples);
}

TEST_F(PcmInput, FewerBytesThanAFilesMarkAreRaw) {
  const auto bytes = randomBytes(8, 3);
  EXPECT_EQ(readAnyWay(bytes), samplesOf(bytes, 2, 16));
  EXPECT_TRUE(readAnyWay({}).empty());
  EXPECT_TRUE(told.empty());
}

TEST_F(PcmInput, WaveFilesOfEveryDepth) {
  for (const int bits : {16, 20, 24}) {
    for (int size = (bits + 7) / 8; size <= 4; ++size) {
      for (const int channels : {1, 2, 6, 8}) {
        const auto data = randomBytes(static_cast<size_t>(60 * channels * size), 4);
        const auto bytes = WaveBytes()
                               .file("RIFF", 0)
                               .extensible(channels, 48000, size, bits)
                               .chunk("data", data)
                               .closed();
        EXPECT_EQ(readAnyWay(bytes.bytes()), samplesOf(data, size, bits))
            << bits << " bits of " << size << " bytes, " << channels << " channels";
        EXPECT_EQ(input.wave(), (wave_format{true, channels, 48000, size, bits}));
        EXPECT_TRUE(told.empty());
      }
    }
  }
}

TEST_F(PcmInput, FilesOneBehindTheOther) {
  const auto first = randomBytes(4 * 33, 5);
  const auto second = randomBytes(4 * 21, 6);
  const auto bytes = WaveBytes()
                         .raw(plainWave(2, 2, first))
                         .file("RIFF", 0)
                         .chunk("bext", std::vector<uint8_t>(603))
                         .format(2, 48000, 2, 16)
                         .chunk("data", second)
                         .closed();
  auto samples = samplesOf(first, 2, 16);
  const auto more = samplesOf(second, 2, 16);
  samples.insert(samples.end(), more.begin(), more.end());
  EXPECT_EQ(readAnyWay(bytes.bytes()), samples);
  EXPECT_TRUE(told.empty());
}

TEST_F(PcmInput, LaterFilesHaveToBeLikeTheFirst) {
  const auto data = randomBytes(4 * 3 * 7, 7);
  struct Case {
    std::vector<uint8_t> second;
    int message;
  };
  const Case cases[] = {{plainWave(2, 3, data), -157},
                        {plainWave(4, 2, data), -158},
                        {plainWave(2, 2, data, 16, 44100), -141}};
  for (const Case& each : cases) {
    told.clear();
    const auto bytes = WaveBytes().raw(plainWave(2, 2, data)).raw(each.second).bytes();
    EXPECT_EQ(readAll(bytes, 1000, 10'000), samplesOf(data, 2, 16));
    EXPECT_EQ(told, (std::vector<int>{each.message}));
  }
}

TEST_F(PcmInput, WhatFollowsAFileAndIsNoneIsDiscarded) {
  const auto data = randomBytes(4 * 9, 8);
  for (const char* rest : {"no Wave file, but a long enough text", "short"}) {
    told.clear();
    const auto bytes = WaveBytes().raw(plainWave(2, 2, data)).text(rest).bytes();
    EXPECT_EQ(readAll(bytes, 1000, 10'000), samplesOf(data, 2, 16));
    EXPECT_EQ(told, (std::vector<int>{147})) << rest;
  }
}

TEST_F(PcmInput, ACorruptedFirstFileIsRaw) {
  const auto data = randomBytes(4 * 9, 9);
  const auto bytes = WaveBytes().file("RIFF", 0).chunk("data", data).closed().bytes();
  // The parser gave up in front of the chunk: its eight bytes are two frames.
  auto raw = std::vector<uint8_t>(bytes.begin() + 12, bytes.end());
  EXPECT_EQ(readAll(bytes, 1000, 10'000), samplesOf(raw, 2, 16));
  EXPECT_FALSE(input.is_wave());
  EXPECT_EQ(told, (std::vector<int>{148}));
}

int load_nothing_first(void* user, cbuf* buffer) {
  auto& calls = *static_cast<int*>(user);
  if (++calls % 2 != 0) return 0;
  *buffer->write = 7;
  buffer->write = cbuf_forward(*buffer, buffer->write, 1);
  return calls >= 40 ? 1 : 0;
}

TEST_F(PcmInput, ASourceThatHasNothingJustNowIsAskedAgain) {
  int calls = 0;
  input.bytes().open(100, load_nothing_first, &calls);
  input.set_raw({2, 16, true, false, false}, 2);
  input.open(kMessages, 0x100, reports);
  int later = 0;
  size_t frames = 0;
  for (int round = 0; round < 1000; ++round) {
    int32_t samples[2 * 8];
    size_t count = 0;
    const auto result = input.read(samples, 2, 8, count);
    frames += count;
    if (result == pcm_input::result::ended) break;
    later += result == pcm_input::result::later ? 1 : 0;
  }
  EXPECT_EQ(frames, 5u);
  EXPECT_GT(later, 10);
}

}  // namespace
}  // namespace zel::mux
