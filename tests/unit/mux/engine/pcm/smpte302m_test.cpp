#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "tests/unit/mux/engine/pcm/data_set.h"
#include "tests/unit/mux/engine/pcm/pcm_run.h"
#include "tests/unit/mux/engine/pcm/wave_bytes.h"
#include "zel/mux/engine/pcm/open_smpte302m.h"
#include "zel/mux/engine/pcm/pcm_packets.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using test::DataSet;
using test::plainWave;
using test::SentPes;
using test::unpack;
using test::WaveBytes;

constexpr int kPid = 0x102;

std::vector<int32_t> randomSamples(size_t count, int bits, uint64_t salt) {
  std::mt19937_64 random(test::testSeed() + salt);
  std::vector<int32_t> samples(count);
  for (int32_t& each : samples) each = static_cast<int32_t>(random()) >> (32 - bits);
  return samples;
}

// Left-justified in `size` bytes.
std::vector<uint8_t> bytesOf(const std::vector<int32_t>& samples, int size, int bits,
                             bool bigEndian = false) {
  std::vector<uint8_t> bytes;
  for (const int32_t sample : samples) {
    const auto value = static_cast<uint32_t>(sample) << (8 * size - bits);
    for (int i = 0; i < size; ++i) {
      bytes.push_back(static_cast<uint8_t>(value >> (8 * (bigEndian ? size - 1 - i : i))));
    }
  }
  return bytes;
}

class Smpte302m : public test::PcmRun {
 protected:
  Smpte302m() : record(tsm_add_smpte302m(program)) { record->pid = kPid; }

  void give(int pair, const std::vector<uint8_t>& bytes) {
    const std::string name = file(
        "pair" + std::to_string(pair) + "_" + std::to_string(record->pairFiles[pair].count), bytes);
    tarn_array_append_text(&record->pairFiles[pair], name);
  }
  tsm_stream* start() { return add(*record, open_smpte302m, start_smpte302m); }

  /// Runs, and gives all samples of the stream.
  DataSet sent() {
    DataSet all;
    run();
    for (const SentPes& pes : pesOf(kPid)) {
      const DataSet set = unpack(pes.payload);
      all.channels = set.channels;
      all.bits = set.bits;
      all.samples.insert(all.samples.end(), set.samples.begin(), set.samples.end());
      all.flags.insert(all.flags.end(), set.flags.begin(), set.flags.end());
    }
    return all;
  }

  tsm_smpte302m* record;
};

TEST_F(Smpte302m, EverySampleOfEveryDepthAndChannelComesOutInItsPlace) {
  for (const int bits : {16, 20, 24}) {
    for (const int channels : {2, 4, 6, 8}) {
      for (int pair = 0; pair < 4; ++pair) tarn_array_free_strings(&record->pairFiles[pair]);
      startAnew();
      addVideo(0x101, 900'900, 5'400'000);
      const auto samples = randomSamples(static_cast<size_t>(channels) * 10'007, bits, 11);
      record->bytesPerWord = (bits + 7) / 8;
      record->wordSize = bits;
      record->msJustified = true;
      for (int pair = 0; pair < channels / 2; ++pair) {
        std::vector<int32_t> of;
        for (size_t at = static_cast<size_t>(2 * pair); at < samples.size();
             at += static_cast<size_t>(channels)) {
          of.insert(of.end(), {samples[at], samples[at + 1]});
        }
        give(pair, bytesOf(of, record->bytesPerWord, bits));
      }
      ASSERT_NE(start(), nullptr);
      const DataSet all = sent();
      EXPECT_EQ(all.bits, bits);
      EXPECT_EQ(all.channels, channels);
      EXPECT_EQ(all.samples, samples) << bits << " bits, " << channels << " channels";
      EXPECT_TRUE(told.empty()) << told.front();
    }
  }
}

TEST_F(Smpte302m, PesPacketsGoWithThePicturesAndHalveTheirErrorEach) {
  addVideo(0x101, 900'900, 5'400'000);
  give(0, bytesOf(randomSamples(2 * 16'016, 24, 12), 3, 24));
  ASSERT_NE(start(), nullptr);
  run();
  const auto all = pesOf(kPid);
  ASSERT_EQ(all.size(), 10u);
  const size_t frames[] = {1602, 1601, 1602, 1601, 1602};
  double samples = 0;
  for (size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].payload.size(), 4 + frames[i % 5] * 7) << i;
    EXPECT_EQ(all[i].streamId, 0xBD);
    EXPECT_TRUE(all[i].aligned);
    EXPECT_EQ(all[i].pts, std::floor((5'400'000 + samples * 562.5) / 300)) << i;
    samples += static_cast<double>(frames[i % 5]);
  }
  EXPECT_EQ(mux.streams.back()->firstPts, 5'400'000);
}

TEST_F(Smpte302m, ADataSetIsWholeBeforeItsTimeAndTheDecodersBufferHoldsIt) {
  // The largest there are at a picture's length: 8 channels of 24 bits at 23.976 Hz.
  addVideo(0x101, 1'126'125, 5'400'000);
  for (int pair = 0; pair < 4; ++pair) {
    give(pair, bytesOf(randomSamples(2 * 48'048, 24, 13), 3, 24));
  }
  tsm_stream* const stream = start();
  ASSERT_NE(stream, nullptr);
  run();
  const auto all = pesOf(kPid);
  ASSERT_EQ(all.size(), 24u);
  int64_t level = 0;
  int64_t peak = 0;
  size_t removed = 0;
  for (size_t packet = 0; packet < packets.size() / 188; ++packet) {
    for (; removed < all.size() && all[removed].pts * 300 <= timeOf(packet); ++removed) {
      level -= static_cast<int64_t>(all[removed].payload.size()) + 14;
      EXPECT_LT(timeOf(all[removed].lastPacket + 1), all[removed].pts * 300) << removed;
    }
    const uint8_t* const bytes = packets.data() + packet * 188;
    if (((bytes[1] & 0x1F) << 8 | bytes[2]) != kPid) continue;
    level += (bytes[3] & 0x20) != 0 ? 183 - bytes[4] : 184;
    peak = std::max(peak, level);
  }
  EXPECT_LE(peak, 65'024);
  EXPECT_GT(peak, 56'000);
  EXPECT_TRUE(told.empty());
  // What the stream is offered is what it takes, within a few percent.
  const double taken = static_cast<double>(packetsOf(kPid)) * 1504 / 1.001;
  EXPECT_GT(stream->rate, taken * 0.97);
  EXPECT_LT(stream->rate, taken * 1.03);
}

TEST_F(Smpte302m, AllocatesNothingButBeforeTheRun) {
  addVideo(0x101, 900'900, 5'400'000);
  give(0, bytesOf(randomSamples(2 * 16'016, 24, 12), 3, 24));
  ASSERT_NE(start(), nullptr);
  auto& state = static_cast<pcm_state&>(*mux.streams.back()->state);
  const uint8_t* const payload = state.payload.data();
  run();
  EXPECT_EQ(state.payload.data(), payload);
}

TEST_F(Smpte302m, WithoutVideoItIsWarnedAndCutInto20Milliseconds) {
  give(0, bytesOf(randomSamples(2 * 2'000, 16, 14), 2, 16));
  record->bytesPerWord = 2;
  ASSERT_NE(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{85}));
  run();
  const auto all = pesOf(kPid);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].payload.size(), 4u + 960 * 5);
  EXPECT_EQ(all[2].payload.size(), 4u + 80 * 5);
  EXPECT_EQ(all[1].pts - all[0].pts, 1800);
  EXPECT_EQ(told, (std::vector<int>{85}));  // no underflow: the first is whole in time
}

TEST_F(Smpte302m, TwoBytesMakeWordsOf16BitsWhateverTheWordSize) {
  addVideo(0x101, 1'080'000, 5'400'000);
  const auto samples = randomSamples(2 * 1920, 16, 15);
  record->bytesPerWord = 2;
  give(0, bytesOf(samples, 2, 16));
  ASSERT_NE(start(), nullptr);
  const DataSet all = sent();
  EXPECT_EQ(all.bits, 16);
  EXPECT_EQ(all.samples, samples);
}

TEST_F(Smpte302m, BigEndianSamples) {
  addVideo(0x101, 1'080'000, 5'400'000);
  const auto samples = randomSamples(2 * 1920, 20, 16);
  record->wordSize = 20;
  record->msJustified = true;
  record->byteReversed = true;
  give(0, bytesOf(samples, 3, 20, true));
  ASSERT_NE(start(), nullptr);
  EXPECT_EQ(sent().samples, samples);
}

TEST_F(Smpte302m, AWaveFileBringsItsChannelsAndDepth) {
  addVideo(0x101, 1'080'000, 5'400'000);
  const auto samples = randomSamples(6 * 5'000, 20, 17);
  give(0, WaveBytes()
              .file("RIFF", 0)
              .extensible(6, 48000, 3, 20)
              .chunk("data", bytesOf(samples, 3, 20))
              .closed()
              .bytes());
  ASSERT_NE(start(), nullptr);
  const DataSet all = sent();
  EXPECT_EQ(all.channels, 6);
  EXPECT_EQ(all.bits, 20);
  EXPECT_EQ(all.samples, samples);
  EXPECT_TRUE(told.empty());
}

TEST_F(Smpte302m, WordSizeCutsADeeperWaveFile) {
  addVideo(0x101, 1'080'000, 5'400'000);
  const auto samples = randomSamples(2 * 1'000, 24, 18);
  record->wordSize = 16;
  give(0, plainWave(2, 3, bytesOf(samples, 3, 24)));
  ASSERT_NE(start(), nullptr);
  const DataSet all = sent();
  EXPECT_EQ(all.bits, 16);
  for (size_t i = 0; i < samples.size(); ++i) EXPECT_EQ(all.samples[i], samples[i] >> 8) << i;
}

TEST_F(Smpte302m, AWideFirstWaveFileStandsForAllPairs) {
  addVideo(0x101, 1'080'000, 5'400'000);
  const auto samples = randomSamples(4 * 1'000, 16, 19);
  give(0, plainWave(4, 2, bytesOf(samples, 2, 16)));
  give(1, plainWave(2, 2, bytesOf(samples, 2, 16)));
  ASSERT_NE(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{129}));
  const DataSet all = sent();
  EXPECT_EQ(all.channels, 4);
  EXPECT_EQ(all.samples, samples);
}

TEST_F(Smpte302m, WaveFilesThatCantBe) {
  const auto data = bytesOf(randomSamples(2 * 3 * 4 * 10, 16, 20), 2, 16);
  struct Case {
    std::vector<uint8_t> wave;
    int message;
    int pair = 0;
  };
  const Case cases[] = {
      {plainWave(2, 2, data, 16, 44100), -141},
      {plainWave(3, 2, data), -142},
      {plainWave(1, 2, data), -142},
      {plainWave(10, 2, data), -143},
      {plainWave(2, 1, data), -144},
      {plainWave(2, 4, data), -144},
      {WaveBytes().file("RIFF", 0).format(2, 48000, 4, 32, 3).chunk("data", data).closed().bytes(),
       -144},
      {plainWave(4, 2, data), -145, 1},
  };
  for (const Case& each : cases) {
    for (int pair = 0; pair < 4; ++pair) tarn_array_free_strings(&record->pairFiles[pair]);
    told.clear();
    mux.streams.clear();
    if (each.pair > 0) give(0, plainWave(2, 2, data));
    give(each.pair, each.wave);
    EXPECT_EQ(start(), nullptr);
    EXPECT_EQ(told, (std::vector<int>{each.message}));
  }
}

TEST_F(Smpte302m, OneChannelGoesIntoBothOfAPair) {
  addVideo(0x101, 1'080'000, 5'400'000);
  record->monoToStereo = true;
  const auto samples = randomSamples(1'000, 24, 21);
  give(0, plainWave(1, 3, bytesOf(samples, 3, 24)));
  give(1, bytesOf(samples, 3, 24));  // raw
  ASSERT_NE(start(), nullptr);
  const DataSet all = sent();
  EXPECT_EQ(all.channels, 4);
  ASSERT_EQ(all.samples.size(), 4'000u);
  for (size_t i = 0; i < 4'000; ++i) EXPECT_EQ(all.samples[i], samples[i / 4]) << i;
}

TEST_F(Smpte302m, APairThatEndsEarlyIsSilentFromThereOn) {
  addVideo(0x101, 1'080'000, 5'400'000);
  const auto longer = randomSamples(2 * 4'000, 24, 22);
  const auto shorter = randomSamples(2 * 2'500, 24, 23);
  give(0, bytesOf(longer, 3, 24));
  give(1, bytesOf(shorter, 3, 24));
  ASSERT_NE(start(), nullptr);
  const DataSet all = sent();
  ASSERT_EQ(all.samples.size(), 4u * 4'000);
  for (size_t i = 0; i < all.samples.size(); ++i) {
    const size_t frame = i / 4;
    const size_t channel = i % 4;
    const int32_t expected = channel < 2     ? longer[2 * frame + channel]
                             : frame < 2'500 ? shorter[2 * frame + channel - 2]
                                             : 0;
    ASSERT_EQ(all.samples[i], expected) << i;
  }
}

TEST_F(Smpte302m, ChannelStatusValidityAndIdentification) {
  addVideo(0x101, 1'080'000, 5'400'000);
  record->validity = true;
  record->channelId = 0xA5;
  record->channelStatus[1] = 1;
  record->channelStatus[2] = 2;
  for (int i = 0; i < 24; ++i) record->channelStatusData[2][i] = static_cast<uint8_t>(7 * i + 1);
  give(0, bytesOf(std::vector<int32_t>(2 * 1920), 3, 24));
  give(1, bytesOf(std::vector<int32_t>(2 * 1920), 3, 24));
  ASSERT_NE(start(), nullptr);
  run();
  const auto all = pesOf(kPid);
  ASSERT_FALSE(all.empty());
  const DataSet set = unpack(all[0].payload);
  EXPECT_EQ(set.identification, 0xA5);
  std::array<std::array<uint8_t, 24>, 4> status{};
  for (size_t frame = 0; frame < 192; ++frame) {
    for (size_t channel = 0; channel < 4; ++channel) {
      const unsigned flags = set.flags[frame * 4 + channel];
      EXPECT_EQ(flags & 8, 8u);
      EXPECT_EQ(flags & 1, frame == 0 && channel % 2 == 0 ? 1u : 0u);
      status[channel][frame / 8] |= static_cast<uint8_t>((flags >> 1 & 1) << frame % 8);
    }
  }
  EXPECT_EQ(status[0][0], 0x81);
  EXPECT_EQ(status[0][23], 0xD9);
  EXPECT_EQ(status[1][0], 0x83);
  for (size_t i = 0; i < 24; ++i) EXPECT_EQ(status[2][i], static_cast<uint8_t>(7 * i + 1));
}

TEST_F(Smpte302m, ItsLineInThePmt) {
  addVideo(0x101, 1'080'000, 5'400'000);
  const std::vector<uint8_t> registration = {5, 4, 'B', 'S', 'S', 'D'};
  const std::vector<uint8_t> language = {10, 4, 'e', 'n', 'g', 0};
  tarn_array_append_bytes(&record->descriptors, language);
  give(0, bytesOf(std::vector<int32_t>(2 * 1920), 3, 24));
  tsm_stream* stream = start();
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(stream->pmt.listed);
  EXPECT_EQ(stream->pmt.streamType, 6);
  EXPECT_EQ(stream->pmt.descriptors, (std::vector<std::vector<uint8_t>>{language, registration}));

  // Once is enough.
  tarn_array_append_bytes(&record->descriptors, registration);
  stream = start();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->pmt.descriptors.size(), 2u);

  config->autoDescrMask = 0xFF & ~8;
  tarn_array_free_strings(&record->descriptors);
  stream = start();
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(stream->pmt.descriptors.empty());
}

TEST_F(Smpte302m, ReferencesThatCantBe) {
  give(0, bytesOf(std::vector<int32_t>(2 * 1920), 3, 24));
  record->refVideoPid = 0x101;
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{-73}));
  told.clear();
  mux.streams.clear();
  addVideo(0x101, 0, 5'400'000);
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{-74}));
  for (bool tsm_smpte302m::*key : {&tsm_smpte302m::phaseSync, &tsm_smpte302m::dolbyETiming}) {
    told.clear();
    mux.streams.clear();
    record->refVideoPid = 0;
    record->*key = true;
    EXPECT_EQ(start(), nullptr);
    EXPECT_EQ(told, (std::vector<int>{-68}));
    record->*key = false;
  }
}

TEST_F(Smpte302m, TheReferenceIsTheVideoOfThePidAskedFor) {
  addVideo(0x101, 1'080'000, 5'400'000);
  addVideo(0x103, 900'000, 8'100'000);
  record->refVideoPid = 0x103;
  give(0, bytesOf(std::vector<int32_t>(2 * 3200), 3, 24));
  ASSERT_NE(start(), nullptr);
  run();
  const auto all = pesOf(kPid);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].payload.size(), 4u + 1600 * 7);
  EXPECT_EQ(all[0].pts, 27'000);
}

TEST_F(Smpte302m, PhaseSyncBeginsWithAPicture) {
  addVideo(0x101, 1'080'000, 5'400'000);
  record->delay = 1'000;  // 90 kHz: less than a picture
  give(0, bytesOf(std::vector<int32_t>(2 * 1920), 3, 24));
  tsm_stream* stream = start();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->firstPts, 5'700'000);
  record->phaseSync = true;
  stream = start();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->firstPts, 6'480'000);
}

TEST_F(Smpte302m, SoundFromBeforeTheRunIsLeftOutAndTheRestKeepsItsPlace) {
  addVideo(0x101, 1'080'000, 5'400'000);
  record->delay = -27'000;  // 300 ms, where the first picture comes after 200
  const auto samples = randomSamples(2 * 1920 * 10, 24, 26);
  give(0, bytesOf(samples, 3, 24));
  ASSERT_NE(start(), nullptr);
  const auto all = [&] {
    run();
    return pesOf(kPid);
  }();
  // Three units of 40 ms lie before the run's begin, the last in part.
  ASSERT_EQ(all.size(), 7u);
  EXPECT_EQ(all[0].pts, 18'000 - 27'000 + 3 * 3'600);
  const DataSet set = unpack(all[0].payload);
  EXPECT_EQ(set.samples,
            std::vector<int32_t>(samples.begin() + 3 * 2 * 1920, samples.begin() + 4 * 2 * 1920));
}

TEST_F(Smpte302m, InputsThatArentThere) {
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{-72}));
  told.clear();
  tarn_array_append_text(&record->pairFiles[0], (folder / "absent").string());
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{-36}));
  for (const int bytes : {0, 5}) {
    told.clear();
    record->bytesPerWord = bytes;
    EXPECT_EQ(start(), nullptr);
    EXPECT_EQ(told, (std::vector<int>{-70}));
  }
}

TEST_F(Smpte302m, ADecoderBufferThatHoldsNoDataSet) {
  addVideo(0x101, 1'080'000, 5'400'000);
  record->dbSize = 10'000;
  give(0, bytesOf(std::vector<int32_t>(2 * 1920), 3, 24));
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(told, (std::vector<int>{-146}));
}

TEST_F(Smpte302m, SlowPicturesHaveSeveralDataSets) {
  addVideo(0x101, 27'000'000, 5'400'000);  // one a second
  for (int pair = 0; pair < 4; ++pair) give(pair, bytesOf(std::vector<int32_t>(2 * 48'000), 3, 24));
  ASSERT_NE(start(), nullptr);
  const DataSet all = sent();
  EXPECT_EQ(all.samples.size(), 8u * 48'000);
  for (const SentPes& pes : pesOf(kPid)) EXPECT_LE(pes.payload.size(), 60'000u);
}

struct pair_loader {
  std::vector<uint8_t> bytes;
  size_t at = 0;
};

// One byte a call.
int load_byte(void* user, cbuf* buffer) {
  auto& loader = *static_cast<pair_loader*>(user);
  if (loader.at == loader.bytes.size()) return 1;
  *buffer->write = loader.bytes[loader.at++];
  buffer->write = cbuf_forward(*buffer, buffer->write, 1);
  return 0;
}

TEST_F(Smpte302m, PairsComeFromTheCallersLoaderWithTheirOwnUserValues) {
  addVideo(0x101, 1'080'000, 5'400'000);
  const auto first = randomSamples(2 * 500, 24, 24);
  const auto second = randomSamples(2 * 500, 24, 25);
  pair_loader loaders[] = {{bytesOf(first, 3, 24)}, {plainWave(2, 3, bytesOf(second, 3, 24))}};
  record->streamCount = 2;
  record->pairUser[0] = &loaders[0];
  record->pairUser[1] = &loaders[1];
  ASSERT_NE(add(*record, open_smpte302m, start_smpte302m, load_byte), nullptr);
  const DataSet all = sent();
  ASSERT_EQ(all.samples.size(), 2'000u);
  for (size_t i = 0; i < 2'000; ++i) {
    const size_t frame = i / 4;
    EXPECT_EQ(all.samples[i], i % 4 < 2 ? first[2 * frame + i % 2] : second[2 * frame + i % 2]);
  }
}

TEST_F(Smpte302m, NoEmptyAfKeepsEveryByte) {
  config->noEmptyAf = true;
  // 1,917 frames: 14 + 4 + 13,419 bytes are 73 packets and 5 bytes; every length comes up.
  for (size_t frames = 1'800; frames < 1'990; ++frames) {
    startAnew();
    addVideo(0x101, 1'080'000, 5'400'000);
    tarn_array_free_strings(&record->pairFiles[0]);
    const auto samples = randomSamples(2 * frames, 24, frames);
    give(0, bytesOf(samples, 3, 24));
    ASSERT_NE(start(), nullptr);
    ASSERT_EQ(sent().samples, samples) << frames;
    for (size_t at = 0; at < packets.size(); at += 188) {
      if ((packets[at + 3] & 0x20) != 0) {
        ASSERT_GT(packets[at + 4], 0) << frames;
      }
    }
  }
}

}  // namespace
}  // namespace zel::mux
