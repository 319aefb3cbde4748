#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "tests/unit/mux/engine/pcm/pcm_run.h"
#include "tests/unit/mux/engine/pcm/wave_bytes.h"
#include "zel/mux/engine/pcm/lpcm_units.h"
#include "zel/mux/engine/pcm/open_lpcm.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using test::plainWave;
using test::SentPes;
using test::WaveBytes;

constexpr int kPid = 0x1100;

std::vector<uint8_t> randomBytes(size_t count, uint64_t salt) {
  std::mt19937_64 random(test::testSeed() + salt);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& each : bytes) each = static_cast<uint8_t>(random());
  return bytes;
}

class Lpcm : public test::PcmRun {
 protected:
  Lpcm() : record(tsm_add_lpcm(program)) { record->pid = kPid; }

  void give(const std::vector<uint8_t>& bytes) {
    tarn_array_free_strings(&record->files);
    tarn_array_append_text(&record->files, file("in", bytes));
  }
  tsm_stream* start() {
    startAnew();
    return add(*record, open_lpcm, start_lpcm);
  }

  tsm_lpcm* record;
};

TEST_F(Lpcm, HdmvPiecesOfFiveMilliseconds) {
  const auto samples = randomBytes(2 * 2 * 600, 1);
  give(plainWave(2, 2, samples));
  ASSERT_NE(start(), nullptr);
  EXPECT_EQ(mux.streams.back()->pmt.streamType, 0x80);
  run();
  const auto all = pesOf(kPid);
  ASSERT_EQ(all.size(), 3u);
  std::vector<uint8_t> sent;
  for (size_t i = 0; i < all.size(); ++i) {
    const std::vector<uint8_t>& payload = all[i].payload;
    ASSERT_EQ(payload.size(), 4u + 960);
    EXPECT_EQ(payload[0] << 8 | payload[1], 960);
    EXPECT_EQ(payload[2], 0x31);  // stereo, 48 kHz
    EXPECT_EQ(payload[3], 0x40);  // 16 bits
    EXPECT_EQ(all[i].streamId, 0xBD);
    EXPECT_EQ(all[i].pts, all[0].pts + static_cast<double>(i) * 450);
    sent.insert(sent.end(), payload.begin() + 4, payload.end());
  }
  // Most significant byte first, and silence behind the end.
  std::vector<uint8_t> expected(2880, 0);
  for (size_t i = 0; i < samples.size(); ++i) expected[i ^ 1] = samples[i];
  EXPECT_EQ(sent, expected);
  EXPECT_TRUE(told.empty());
}

// Statistics and traces show it, and a variable rate goes by it.
TEST_F(Lpcm, TheDecodersBufferIsKnownToTheStream) {
  give(plainWave(2, 2, randomBytes(2 * 2 * 600, 1)));
  const tsm_stream* const stream = start();
  ASSERT_NE(stream, nullptr);
  ASSERT_NE(stream->buffer, nullptr);
  EXPECT_GT(stream->buffer->limit, 960 + 4);
  run();
  EXPECT_TRUE(stream->buffer->lowestKnown);
}

TEST_F(Lpcm, HdmvRatesDepthsAndChannels) {
  struct Row {
    int channels, bits, rate;
    uint8_t third, fourth;
    size_t payload;
  };
  const Row rows[] = {{2, 24, 96'000, 0x34, 0xC0, 480u * 2 * 3},
                      {6, 20, 48'000, 0x91, 0x80, 240u * 6 * 3},
                      {8, 16, 192'000, 0xB5, 0x40, 960u * 8 * 2},
                      {4, 16, 48'000, 0x71, 0x40, 240u * 4 * 2}};
  for (const Row& row : rows) {
    const int size = (row.bits + 7) / 8;
    give(WaveBytes()
             .file("RIFF", 0)
             .extensible(row.channels, static_cast<uint32_t>(row.rate), size, row.bits)
             .chunk("data", randomBytes(static_cast<size_t>(row.channels * size) * 2'000, 2))
             .closed()
             .bytes());
    ASSERT_NE(start(), nullptr);
    run();
    const auto all = pesOf(kPid);
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all[0].payload.size(), 4 + row.payload);
    EXPECT_EQ(all[0].payload[2], row.third);
    EXPECT_EQ(all[0].payload[3], row.fourth);
    EXPECT_TRUE(told.empty());
  }
}

TEST_F(Lpcm, TheFormOfIeee1394) {
  record->pid = 0x50;
  record->pesLpcmType = 1;
  const auto samples = randomBytes(2 * 2 * 480, 3);
  give(plainWave(2, 2, samples));
  ASSERT_NE(start(), nullptr);
  EXPECT_EQ(mux.streams.back()->pmt.streamType, 0x83);
  run();
  const auto all = pesOf(0x50);
  ASSERT_EQ(all.size(), 1u);
  const std::vector<uint8_t>& payload = all[0].payload;
  ASSERT_EQ(payload.size(), 4u + 1'920);
  EXPECT_EQ(payload[0], 0xA0);
  EXPECT_EQ(payload[1], 6);
  EXPECT_EQ(payload[2], 0);
  EXPECT_EQ(payload[3], 0x11);  // 16 bits, 48 kHz, two channels
  for (size_t i = 0; i < samples.size(); ++i) EXPECT_EQ(payload[4 + (i ^ 1)], samples[i]);
}

TEST_F(Lpcm, RawSamplesAreToldByKeys) {
  const auto samples = randomBytes(3 * 2 * 240, 4);
  give(samples);
  const auto expectFault = [&](int code) {
    EXPECT_EQ(start(), nullptr);
    EXPECT_EQ(told, (std::vector<int>{code}));
  };
  expectFault(-159);
  record->nChannels = 2;
  expectFault(-160);
  record->samplingFrequency = 48'000;
  expectFault(-161);
  record->wordSize = 24;
  record->bigEndian = true;
  ASSERT_NE(start(), nullptr);
  run();
  const auto all = pesOf(kPid);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(std::vector<uint8_t>(all[0].payload.begin() + 4, all[0].payload.end()), samples);

  record->truncate24To20 = true;
  ASSERT_NE(start(), nullptr);
  run();
  const auto truncated = pesOf(kPid);
  ASSERT_EQ(truncated.size(), 1u);
  EXPECT_EQ(truncated[0].payload[3], 0x80);
  for (size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(truncated[0].payload[4 + i], i % 3 == 2 ? samples[i] & 0xF0 : samples[i]);
  }
}

TEST_F(Lpcm, WhatTheFormsDontHave) {
  struct Row {
    int type, channels, rate, bits, message;
  };
  const Row rows[] = {{0, 2, 44'100, 16, -162},  {0, 2, 48'000, 18, -163}, {0, 3, 48'000, 16, -164},
                      {0, 10, 48'000, 16, -165}, {1, 2, 96'000, 16, -166}, {1, 2, 48'000, 24, -167},
                      {1, 4, 48'000, 16, -168}};
  record->pid = 0x1105;
  give(randomBytes(100, 5));
  for (const Row& row : rows) {
    record->pesLpcmType = row.type;
    record->nChannels = row.channels;
    record->samplingFrequency = row.rate;
    record->wordSize = row.bits;
    EXPECT_EQ(start(), nullptr);
    EXPECT_EQ(told, (std::vector<int>{row.message}));
  }
}

TEST_F(Lpcm, PidsOutsideTheFormsRanges) {
  give(plainWave(2, 2, randomBytes(960, 6)));
  record->pid = 0x10FF;
  EXPECT_NE(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{150}));
  record->pesLpcmType = 1;
  record->pid = 0x3F;
  EXPECT_NE(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{151}));
}

TEST_F(Lpcm, ChannelsAreReordered) {
  std::vector<uint8_t> samples;
  for (int frame = 0; frame < 240; ++frame) {
    for (uint8_t channel = 1; channel <= 6; ++channel) samples.insert(samples.end(), {0, channel});
  }
  const auto channelsOf = [&] {
    run();
    const auto all = pesOf(kPid);
    std::vector<int> first;
    for (size_t i = 0; i < 6 && !all.empty(); ++i) first.push_back(all[0].payload[4 + 2 * i]);
    return first;
  };
  give(plainWave(6, 2, samples));
  ASSERT_NE(start(), nullptr);
  // A Wave file has the low frequencies fourth, the form last.
  EXPECT_EQ(channelsOf(), (std::vector<int>{1, 2, 3, 5, 6, 4}));
  record->channelRemapping = 654321;
  ASSERT_NE(start(), nullptr);
  EXPECT_EQ(channelsOf(), (std::vector<int>{6, 5, 4, 3, 2, 1}));
  for (const auto& [remapping, warning] :
       {std::pair(654329, 154), std::pair(111111, 154), std::pair(21, 155)}) {
    record->channelRemapping = remapping;
    ASSERT_NE(start(), nullptr);
    EXPECT_EQ(told, (std::vector<int>{warning})) << remapping;
    EXPECT_EQ(channelsOf(), (std::vector<int>{1, 2, 3, 5, 6, 4}));
  }
}

TEST_F(Lpcm, LaterFilesHaveToBeLikeTheFirst) {
  const auto data = randomBytes(2 * 2 * 3 * 100, 7);
  struct Row {
    std::vector<uint8_t> second;
    int message;
  };
  const Row rows[] = {{plainWave(2, 3, data), -169},
                      {plainWave(4, 2, data), -170},
                      {{'n', 'o', ' ', 'W', 'a', 'v', 'e'}, 152}};
  for (const Row& row : rows) {
    give(plainWave(2, 2, data));
    tarn_array_append_text(&record->files, file("second", row.second));
    ASSERT_NE(start(), nullptr);
    run();
    EXPECT_EQ(told, (std::vector<int>{row.message}));
    EXPECT_EQ(pesOf(kPid).size(), 2u);
  }
}

TEST_F(Lpcm, ACorruptedFirstFileIsRaw) {
  record->nChannels = 2;
  record->samplingFrequency = 48'000;
  record->wordSize = 16;
  give(WaveBytes().file("RIFF", 0).chunk("data", randomBytes(960, 8)).closed().bytes());
  ASSERT_NE(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{153}));
}

}  // namespace
}  // namespace zel::mux
