#include "zel/mux/engine/pcm/aes3_sets.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/support/bytes_source.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/input/multiplex_bytes.h"
#include "tests/unit/mux/engine/pcm/pcm_run.h"
#include "zel/mux/engine/input/open_input.h"
#include "zel/mux/engine/pcm/open_smpte302m.h"

namespace zel::mux {
namespace {

using test::append;
using test::Bytes;

Bytes randomSet(int channels, int wordSize, size_t frames, uint64_t salt) {
  std::mt19937_64 random(test::testSeed() + salt);
  const aes3_layout layout{channels, wordSize, 0, false};
  aes3_packer packer(layout);
  std::vector<int32_t> samples(frames * static_cast<size_t>(channels));
  for (int32_t& each : samples) each = static_cast<int32_t>(random()) >> (32 - wordSize);
  Bytes bytes(aes3_payload_size(layout, frames));
  packer.pack(samples, bytes);
  return bytes;
}

TEST(Aes3Header, EveryLayout) {
  for (const int channels : {2, 4, 6, 8}) {
    for (const int wordSize : {16, 20, 24}) {
      const Bytes set = randomSet(channels, wordSize, 100, 1);
      aes3_header header;
      ASSERT_TRUE(read_aes3_header(std::span<const uint8_t, 4>(set.data(), 4), header));
      EXPECT_EQ(header.channels, channels);
      EXPECT_EQ(header.wordSize, wordSize);
      EXPECT_EQ(header.frames(), 100u);
    }
  }
  aes3_header header;
  const uint8_t reserved[4] = {0, 5, 0, 0x30};
  EXPECT_FALSE(read_aes3_header(reserved, header));
  const uint8_t part[4] = {0, 6, 0, 0};
  EXPECT_FALSE(read_aes3_header(part, header));
  const uint8_t none[4] = {0, 0, 0, 0};
  EXPECT_FALSE(read_aes3_header(none, header));
}

struct Aes3Sets : testing::Test {
  Aes3Sets() {
    reports.deliver_to(
        [](void* user, int fatal, int32_t code, const char*) {
          static_cast<std::vector<int>*>(user)->push_back(fatal != 0 ? -code : code);
        },
        &told);
    reports.stop_on(false, false);
  }

  /// All units of the stream, whose bytes come `piece` at a time.
  std::vector<Bytes> unitsOf(const Bytes& stream, size_t piece) {
    told.clear();
    elementary_input input;
    input.open(300'000, 5'000, std::make_unique<test::BytesSource>(stream, piece));
    aes3_sets sets(input, 0x100, reports);
    std::vector<Bytes> all;
    if (!sets.read_ahead()) return all;
    most = sets.most_bytes();
    rate = sets.units_per_second();
    Bytes out(kMostUnit);
    pcm_unit unit;
    while (sets.next(out, unit) == pcm_units::result::ready) {
      all.emplace_back(out.begin(), out.begin() + static_cast<long>(unit.bytes));
    }
    return all;
  }

  tsm_time now;
  Morvalen::Zel::tsm_stats stats;
  reporting reports{stats, now};
  std::vector<int> told;
  size_t most = 0;
  double rate = 0;
};

TEST_F(Aes3Sets, PassBitForBit) {
  Bytes stream;
  std::vector<Bytes> sets;
  const size_t frames[] = {1602, 1601, 1602, 1601, 1602};
  for (size_t i = 0; i < 20; ++i) {
    sets.push_back(randomSet(4, 20, frames[i % 5], i));
    append(stream, sets.back());
  }
  for (const size_t piece : {77, 5'000}) {
    EXPECT_TRUE(unitsOf(stream, piece) == sets);
    EXPECT_TRUE(told.empty());
    EXPECT_EQ(most, 4u + 1602 * 12);
    EXPECT_DOUBLE_EQ(rate, 48'000 / 1601.6);
  }
}

TEST_F(Aes3Sets, DamageIsToldAndPassedOver) {
  Bytes stream;
  std::vector<Bytes> sets;
  for (size_t i = 0; i < 12; ++i) {
    const Bytes set = randomSet(2, 24, 960, i);
    // One has lost its end.
    append(stream, i == 5 ? Bytes(set.begin(), set.begin() + 3'000) : set);
    if (i != 5 && i != 6) sets.push_back(set);
  }
  const auto units = unitsOf(stream, 5'000);
  EXPECT_FALSE(told.empty());
  for (const int each : told) EXPECT_EQ(each, 61);
  // All that stand whole behind it come; the damaged one takes at most the next along.
  ASSERT_GE(units.size(), 10u);
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(units[i], sets[i]) << i;
  for (size_t i = 1; i <= 5; ++i) EXPECT_EQ(units[units.size() - i], sets[sets.size() - i]) << i;
}

TEST_F(Aes3Sets, AChangeOfLayoutIsTold) {
  Bytes stream;
  std::vector<Bytes> sets;
  for (size_t i = 0; i < 6; ++i) {
    sets.push_back(randomSet(i < 3 ? 2 : 4, i < 3 ? 16 : 24, 960, i));
    append(stream, sets.back());
  }
  EXPECT_TRUE(unitsOf(stream, 5'000) == sets);
  EXPECT_EQ(told, (std::vector<int>{45}));
}

TEST_F(Aes3Sets, ACutLastSetIsLeftOut) {
  Bytes stream;
  std::vector<Bytes> sets;
  for (size_t i = 0; i < 4; ++i) {
    sets.push_back(randomSet(2, 16, 960, i));
    append(stream, sets.back());
  }
  stream.resize(stream.size() - 100);
  sets.pop_back();
  EXPECT_TRUE(unitsOf(stream, 5'000) == sets);
  EXPECT_TRUE(told.empty());
}

TEST_F(Aes3Sets, WhatHasNoneIsNone) {
  EXPECT_TRUE(unitsOf({}, 100).empty());
  EXPECT_TRUE(unitsOf(Bytes(5'000, 0xFF), 100).empty());
}

class Smpte302mSource : public test::PcmRun {};

TEST_F(Smpte302mSource, AStreamOfAnotherMultiplexPassesWithItsPlaceBesideThePictures) {
  using namespace Morvalen::Zel;
  test::TsPackets sound(0x21);
  test::TsPackets pictures(0x20);
  Bytes multiplex;
  std::vector<Bytes> sets;
  for (size_t i = 0; i < 30; ++i) {
    sets.push_back(randomSet(2, 24, 1920, i));
    const auto time = static_cast<int64_t>(i * 3'600);
    append(multiplex, pictures.whole(test::pes(0xE0, test::pattern(100, 1), {90'000 + time})));
    append(multiplex, sound.whole(test::pes(0xBD, sets.back(), {91'800 + time})));
  }
  const std::string name = file("in.ts", multiplex);

  tsm_video pictureRecord{};
  pictureRecord.sourceTsPid = 0x20;
  tarn_array_append_text(&pictureRecord.files, name);
  addVideo(0x101, 1'080'000, 13'500'000);
  auto& video = static_cast<video_state&>(*mux.streams.back()->state);
  video.config = &pictureRecord;
  input_request request;
  request.record = &pictureRecord;
  request.bufferSize = 10'000;
  ASSERT_TRUE(open_input(video.input, request, mux.reports));
  ASSERT_TRUE(video.input.load());

  tsm_smpte302m* const record = tsm_add_smpte302m(program);
  record->pid = 0x102;
  record->sourceTsPid = 0x21;
  tarn_array_append_text(&record->pairFiles[0], name);
  ASSERT_NE(add(*record, open_smpte302m, start_smpte302m), nullptr);
  run();
  const auto all = pesOf(0x102);
  ASSERT_EQ(all.size(), sets.size());
  for (size_t i = 0; i < sets.size(); ++i) {
    EXPECT_EQ(all[i].payload, sets[i]) << i;
    // 20 ms behind the first picture, as they were.
    EXPECT_EQ(all[i].pts, 45'000 + 1'800 + static_cast<double>(i) * 3'600) << i;
  }
  EXPECT_TRUE(told.empty());
  tarn_array_free_strings(&pictureRecord.files);
}

TEST_F(Smpte302mSource, OnlyOneStreamCanBeTakenOut) {
  using namespace Morvalen::Zel;
  tsm_smpte302m* const record = tsm_add_smpte302m(program);
  record->pid = 0x102;
  record->sourceTsPid = 0x21;
  tarn_array_append_text(&record->pairFiles[0], file("a", {}));
  tarn_array_append_text(&record->pairFiles[1], file("b", {}));
  EXPECT_EQ(add(*record, open_smpte302m, start_smpte302m), nullptr);
  EXPECT_EQ(told, (std::vector<int>{-81}));
}

}  // namespace
}  // namespace zel::mux
