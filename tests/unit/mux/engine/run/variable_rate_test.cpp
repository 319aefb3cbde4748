#include "zel/mux/engine/run/variable_rate.h"

#include <random>

#include "tests/support/random_streams.h"
#include "tests/unit/mux/engine/engine_fixture.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct VariableRate : EngineFixture {
  VariableRate() {
    run.config->vbr = true;
    run.config->rate = 2e6;
  }
};

TEST_F(VariableRate, HasNoStuffingAndATimeLineAllTheSame) {
  addData(2e5, 1'000);
  EXPECT_EQ(multiplex(), 2'000'000) << run.texts;
  EXPECT_EQ(run.said, "");
  EXPECT_EQ(run.packetsOf(0x1FFF), 0);
  EXPECT_EQ(run.packetsOf(kDataPid), 1'000);
  EXPECT_EQ(run.stats.packetsWritten, run.packets());
  EXPECT_NEAR(static_cast<double>(run.stats.packetsCounted), 1'000 * 10, 50);
  const Verdict verdict = judge({.constantRate = false});
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  EXPECT_NEAR(verdict.seconds, 1'000 * 1504 / 2e5, 0.1);
}

TEST_F(VariableRate, ProgressFollowsTheTimeLine) {
  run.config->progressPeriod = 100;
  addData(2e5, 1'000);
  ASSERT_GT(multiplex(), 0);
  EXPECT_NEAR(run.progressCalls, static_cast<double>(run.stats.packetsCounted) / 100, 2);
  run.stopAtProgress = 20;
  run.progressCalls = 0;
  ASSERT_GT(multiplex(), 0);
  EXPECT_NEAR(static_cast<double>(run.stats.packetsCounted), 2'000, 1);
}

TEST_F(VariableRate, TakesOneProgram) {
  addData(2e5, 10);
  tsm_add_program(run.config)->pcrPid = 0x1FFF;
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "W9 F116 ");
}

TEST_F(VariableRate, NeedsAClock) {
  program->pcrPid = 0x1FFF;
  addData(2e5, 10);
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F119 ");
}

TEST_F(VariableRate, HasNoBursts) {
  run.config->burstNulls = true;
  run.config->burstNullsCount = run.config->burstNullsSpacing = 5;
  addData(2e5, 100);
  EXPECT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "W103 ");
  EXPECT_EQ(run.packetsOf(0x1FFF), 0);
}

TEST_F(VariableRate, StampsFollowTheRate) {
  run.config->pktTs = true;
  run.config->pktTsPre = true;
  run.config->pktTsBytes = 4;
  run.config->pktSize = 192;
  addData(2e5, 1'000);
  ASSERT_GT(multiplex(), 0);
  JudgeOptions options;
  options.constantRate = false;
  options.packetBytes = 192;
  options.stampBefore = 4;
  EXPECT_TRUE(judge(options).clean()) << judge(options).text();
  // Between PCRs 40 ms apart the stamps advance by as much.
  int64_t stampAtPcr = -1;
  int intervals = 0;
  for (size_t at = 0; at < run.bytes.size(); at += 192) {
    const uint8_t* packet = run.bytes.data() + at;
    if (((packet[5] & 0x1F) << 8 | packet[6]) != kPcrPid) continue;
    const int64_t stamp = int64_t{packet[0]} << 24 | packet[1] << 16 | packet[2] << 8 | packet[3];
    if (stampAtPcr >= 0) {
      EXPECT_NEAR(static_cast<double>(stamp - stampAtPcr), 27e6 * 0.04, 27e6 * 0.001);
      ++intervals;
    }
    stampAtPcr = stamp;
  }
  EXPECT_GT(intervals, 100);
}

// Each PCR takes bytes of its stream's packets away, and one that goes alone a whole packet's turn.
TEST_F(VariableRate, SoundThatCarriesTheClockDoesntComeLate) {
  program->pcrPid = kDataPid;
  for (const AudioFrames kind : {AudioFrames::kDts, AudioFrames::kAc3, AudioFrames::kLayer2}) {
    inputs.clear();
    inputs.push_back({audioFrames(kind, 4)});
    inputs.push_back({std::vector<uint8_t>(2 * 2 * 48'000)});
    if (program->audio[0] == nullptr) tsm_add_audio(program)->pid = kDataPid;
    if (program->lpcm[0] == nullptr) tsm_add_lpcm(program)->pid = 0x1100;
    program->audio[0]->user = &inputs[0];
    tsm_lpcm& pcm = *program->lpcm[0];
    pcm.user = &inputs[1];
    pcm.nChannels = 2;
    pcm.wordSize = 16;
    pcm.samplingFrequency = 48'000;
    run.config->rate = 6e6;
    run.bytes.clear();
    ASSERT_GT(multiplex(), 0) << run.texts;
    EXPECT_EQ(run.said, "");
    const Verdict verdict = judge({.constantRate = false});
    EXPECT_TRUE(verdict.clean()) << verdict.text();
  }
}

struct VariableRateOfSoundAndPictures : VariableRate {
  static constexpr int kPcmPid = 0x210;

  void addVideo(int rate) {
    std::mt19937_64 random(7);
    inputs.push_back({randomMpeg2Video(random, rate, 4)});
    tsm_video& video = *tsm_add_video(program);
    video.pid = kDataPid;
    video.user = &inputs.back();
  }
  void addAudio(AudioFrames kind, int pid = kDataPid) {
    inputs.push_back({audioFrames(kind, 4)});
    tsm_audio& audio = *tsm_add_audio(program);
    audio.pid = pid;
    audio.user = &inputs.back();
  }
  /// Units of 40 ms, the packets of each one after another as fast as they may.
  void addPcm() {
    tsm_smpte302m& pcm = *tsm_add_smpte302m(program);
    pcm.pid = kPcmPid;
    pcm.streamCount = 3;
    pcm.bytesPerWord = 2;
    pcm.wordSize = 16;
    for (int pair = 0; pair < pcm.streamCount; ++pair) {
      inputs.push_back({std::vector<uint8_t>(4 * 2 * 2 * 48'000)});
      pcm.pairUser[pair] = &inputs.back();
    }
  }
  void expectClean(double rate) {
    run.config->rate = rate;
    ASSERT_GT(multiplex(), 0) << run.texts;
    EXPECT_EQ(run.said, program->video[0] == nullptr ? "W85 " : "") << run.texts;
    const Verdict verdict = judge({.constantRate = false});
    EXPECT_TRUE(verdict.clean()) << verdict.text();
  }
};

// A PCR every ten slots, each a whole packet for the transport buffer, is 4 Mbit/s here; it leaks
// two.
TEST_F(VariableRateOfSoundAndPictures, ClocksDontOverflowTheTransportBufferOfTheirSound) {
  program->pcrPid = kDataPid;
  addAudio(AudioFrames::kLayer2);
  addPcm();
  expectClean(40e6);
}

// Streams whose buffers are full wait for what the next PCR credits them with. Where the units of
// several leave at about one time, each of them would have one.
TEST_F(VariableRateOfSoundAndPictures, StreamsThatWaitForAClockLetItWaitForItsBuffer) {
  program->pcrPid = kDataPid;
  program->pcrPer = 55;
  addAudio(AudioFrames::kDts);
  addAudio(AudioFrames::kAdts, 0x221);
  addAudio(AudioFrames::kAdts, 0x222);
  program->audio[2]->pesNau = 2;
  addPcm();
  for (const double rate : {16e6, 18e6, 22e6, 24e6}) {
    SCOPED_TRACE(rate);
    run.bytes.clear();
    run.said.clear();
    expectClean(rate);
  }
}

// The packets that a PCR goes with are no more than the stream's rate: here 1.5 Mbit/s, where a PCR
// every ten slots would take 4.
TEST_F(VariableRateOfSoundAndPictures, VideoWithTheClockKeepsItsRate) {
  program->pcrPid = kDataPid;
  addVideo(1'500'000);
  addPcm();
  expectClean(40e6);
  struct Clock {
    double seconds;
    int sent;
  };
  std::vector<Clock> clocks;
  int sent = 0;
  for (int i = 0; i < run.packets(); ++i) {
    if (pidOf(i) != kDataPid) continue;
    const uint8_t* const bytes = packet(i);
    sent += (bytes[3] & 0x10) != 0 ? 1 : 0;
    if ((bytes[3] & 0x20) == 0 || bytes[4] == 0 || (bytes[5] & 0x10) == 0) continue;
    const int64_t base = int64_t{bytes[6]} << 25 | bytes[7] << 17 | bytes[8] << 9 | bytes[9] << 1;
    clocks.push_back({static_cast<double>(base) / 9e4, sent});
  }
  ASSERT_GT(clocks.size(), 2'000U);
  // Headers, and the PCRs themselves, come to less than an eighth.
  constexpr double kMost = 1.5e6 * 1.125 / (8 * 184);
  for (size_t i = 40; i < clocks.size(); ++i) {
    const Clock& before = clocks[i - 40];
    EXPECT_LE(clocks[i].sent - before.sent, 3 + (clocks[i].seconds - before.seconds) * kMost);
  }
}

// Receivers take packets to come evenly up to the next PCR. Whether a unit that came since the last
// one is whole in time is certain only where the next comes before the unit's time.
TEST_F(VariableRateOfSoundAndPictures, AUnitHasAClockBetweenItsEndAndItsTime) {
  program->pcrPer = 80;
  addAudio(AudioFrames::kDts);
  run.config->rate = 2e6;
  ASSERT_GT(multiplex(), 0) << run.texts;
  // A frame lasts 10.7 ms, and the next is begun before it leaves.
  const Verdict verdict = judge({.constantRate = false, .longestPcrInterval = 0.022});
  EXPECT_TRUE(verdict.clean()) << verdict.text();
}

// A stream of nothing but PCRs counts its period from the last one that was forced, be it by video
// that has ended meanwhile.
TEST_F(VariableRateOfSoundAndPictures, AForcedClockDoesntMakeTheNextLate) {
  addVideo(1'500'000);
  addData(program, 0x220, 2e5, 800);
  for (const int period : {60, 70, 80, 90}) {
    program->pcrPer = period;
    run.bytes.clear();
    expectClean(4e6);
  }
}

TEST_F(VariableRate, TheEndIsPaddedWhereAskedFor) {
  run.config->pktCountMultiple = 50;
  addData(2e5, 333);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.packets() % 50, 0);
  EXPECT_EQ(run.packetsOf(kDataPid), 333);
}

// PCRs a minute apart: more packets come between two of them than the store holds.
TEST_F(VariableRate, AStoreThatRunsFullIsFatal) {
  program->pcrPer = 60'000;
  addData(1.9e6, 50'000);
  EXPECT_LT(multiplex(), 0);
  EXPECT_EQ(run.said, "F152 ");
}

TEST_F(VariableRate, WhatIsHeldGoesOutWhereARunIsEndedFromOutside) {
  addData(2e5, 1'000);
  ASSERT_TRUE(run.open());
  tsm_set_packets_per_call(run.handle, 100);
  run.runOnce();
  tsm_set_control(run.handle, kTsmControlEnd);
  run.runOnce();
  EXPECT_EQ(run.stats.packetsWritten, run.packets());
  EXPECT_GE(run.packets(), 100);
}

TEST(SmoothingStore, SpreadsWhatIsRare) {
  smoothing_store store;
  const auto add = [&](int pid, uint8_t number) {
    tsm_packet packet{};
    packet.bytes[1] = static_cast<uint8_t>(pid >> 8);
    packet.bytes[2] = static_cast<uint8_t>(pid);
    packet.bytes[3] = number;
    ASSERT_TRUE(store.add(packet));
  };
  // 4 of one PID in a row, then 2 of another, then 40 of a third.
  for (uint8_t i = 0; i < 4; ++i) add(0x101, i);
  for (uint8_t i = 0; i < 2; ++i) add(0x102, i);
  for (uint8_t i = 0; i < 42; ++i) add(0x103, i);
  store.spread();

  std::vector<uint8_t> out;
  const auto write = [](void* user, const uint8_t* data, int32_t size, int32_t) {
    auto& bytes = *static_cast<std::vector<uint8_t>*>(user);
    bytes.insert(bytes.end(), data, data + size);
    return 0;
  };
  output_writer writer({}, {}, write, &out);
  tsm_stats stats;
  stats.packetsCounted = 77;
  ASSERT_TRUE(store.release(writer, stats));
  EXPECT_EQ(stats.packetsWritten, 48);
  EXPECT_EQ(stats.packetsCounted, 77);
  EXPECT_EQ(store.size(), 0u);
  std::vector<int> placesOfFirst;
  uint8_t next[3] = {};
  for (int i = 0; i < 48; ++i) {
    const int which = out[static_cast<size_t>(i) * 188 + 2] - 1;
    EXPECT_EQ(out[static_cast<size_t>(i) * 188 + 3], next[which]++) << "order within a PID stays";
    if (which == 0) placesOfFirst.push_back(i);
  }
  EXPECT_EQ(placesOfFirst, (std::vector<int>{0, 12, 24, 36}));
}

}  // namespace
}  // namespace zel::mux
