// What a configuration asks for is done, even where receivers by ISO/IEC 13818-1 must mind it. Each
// such case is pinned with who complains of what, and how often: the multiplexer by its messages,
// the judge by its findings. Random multiplexes leave them out.

#include <map>
#include <random>
#include <sstream>
#include <string>

#include "tests/support/random_streams.h"
#include "tests/unit/mux/engine/engine_fixture.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct AskedFor : EngineFixture {
  static constexpr int kSoundPid = 0x210;
  static constexpr int kOtherPid = 0x211;

  void addSound(AudioFrames kind, int pid, double seconds = 4) {
    inputs.push_back({audioFrames(kind, seconds)});
    tsm_audio& audio = *tsm_add_audio(program);
    audio.pid = pid;
    audio.pesNau = 1;
    audio.user = &inputs.back();
  }
  /// Each code of a message and each fault, with how many there were.
  std::string complaints(const JudgeOptions& options = {}) {
    run.said.clear();
    run.bytes.clear();
    EXPECT_GT(multiplex(), 0) << run.texts;
    std::map<std::string, int> counts;
    std::istringstream said(run.said);
    for (std::string code; said >> code;) ++counts[code];
    for (const Finding& finding : judge(options).findings) ++counts[faultName(finding.fault)];
    std::string all;
    for (const auto& [name, count] : counts) all += name + " x " + std::to_string(count) + ", ";
    return all;
  }
};

// No tables, and no clock, as long as nothing begins.
TEST_F(AskedFor, ALeaderLongerThanTablesMayBeAway) {
  run.config->leader = 54'000;
  addData(2e5, 300);
  EXPECT_EQ(complaints(), "PAT interval x 1, PMT interval x 1, ");
}

// The rate of sound allows for PCRs every PCRper, not for one in each PES packet.
TEST_F(AskedFor, AClockInEachPesPacketOfSound) {
  program->pcrPid = kSoundPid;
  program->pcrPer = 80;
  addSound(AudioFrames::kDts, kSoundPid, 20);
  EXPECT_EQ(complaints(), "");
  program->pcrPes = true;
  EXPECT_EQ(complaints(), "W1 x 11, underflow x 42, ");
}

// A PES packet of a told length ends with stuffing, of which the stream's rate counts a part.
TEST_F(AskedFor, ShortPesPacketsOfVideoAtItsFullRate) {
  std::mt19937_64 random(7);
  inputs.push_back({randomMpeg2Video(random, 3'000'000, 20)});
  tsm_video& video = *tsm_add_video(program);
  video.pid = 0x220;
  video.user = &inputs.back();
  EXPECT_EQ(complaints(), "");
  video.maxPesLen = 600;
  EXPECT_EQ(complaints(), "W0 x 83, underflow x 50, ");
  // PES packets a second: those that are full, and one that isn't of each picture.
  video.rateAdjustment = (3'000'000 / 8 / 600 + 25) * 1'504;
  EXPECT_EQ(complaints(), "");
}

// bit_rate all ones, which is what encoders write where nothing limits the rate.
std::vector<uint8_t> withoutRate(std::vector<uint8_t> video) {
  for (size_t at = 0; at + 11 < video.size(); ++at) {
    if (video[at] != 0 || video[at + 1] != 0 || video[at + 2] != 1 || video[at + 3] != 0xB3)
      continue;
    video[at + 8] = video[at + 9] = 0xFF;
    video[at + 10] |= 0xC0;
  }
  return video;
}

// A stream that tells no rate gets 3 Mbit/s, whatever it is; RateAdjustment comes on top.
TEST_F(AskedFor, ARateForVideoThatTellsNone) {
  std::mt19937_64 random(7);
  inputs.push_back({withoutRate(randomMpeg2Video(random, 4'000'000, 20))});
  tsm_video& video = *tsm_add_video(program);
  video.pid = 0x220;
  video.user = &inputs.back();
  EXPECT_EQ(complaints(), "W0 x 150, underflow x 50, ");
  video.rateAdjustment = 500'000;
  EXPECT_EQ(complaints(), "W0 x 57, underflow x 50, ");
  video.rateAdjustment = 1'000'000;
  EXPECT_EQ(complaints(), "");
  video.rateAdjustment = 3'000'000;
  EXPECT_EQ(complaints(), "") << "more than it needs does no harm";
  const int32_t most = run.rate;
  video.rateAdjustment = -1'000'000;
  EXPECT_EQ(complaints(), "W0 x 480, underflow x 50, ");
  EXPECT_LT(run.rate, most - 4'000'000);
  // A rate that is none isn't taken: the stream would go on for years.
  video.rateAdjustment = -4'000'000;
  EXPECT_EQ(complaints(), "W0 x 150, underflow x 50, ");
}

// Without its null packets a stream of constant rate doesn't tell time by its packets any more.
TEST_F(AskedFor, NullPacketsLeftAwayBehindTimeStamps) {
  run.config->pktTs = true;
  run.config->pktTsBytes = 4;
  run.config->pktSize = 192;
  run.config->rate = 1e6;
  addData(2e5, 100);
  EXPECT_EQ(complaints({.packetBytes = 192}), "");
  run.config->pktTsDropNull = true;
  EXPECT_EQ(complaints({.packetBytes = 192}), "PCR accuracy x 19, ");
}

// Its PCRs go alone until it begins, so that what comes earlier comes at times that are told.
TEST_F(AskedFor, ADelayedClockOfAVariableRate) {
  run.config->vbr = true;
  run.config->rate = 6e6;
  program->pcrPid = kSoundPid;
  addSound(AudioFrames::kAc3, kSoundPid);
  addSound(AudioFrames::kLayer2, kOtherPid);
  program->audio[0]->streamDelay = 45'000;
  EXPECT_EQ(complaints({.constantRate = false}), "W10 x 1, ");
}

// Forced PCRs take what the streams' rates don't know of.
TEST_F(AskedFor, AVariableRateWithoutRoom) {
  run.config->vbr = true;
  addSound(AudioFrames::kAc3, kSoundPid);
  addSound(AudioFrames::kDts, kOtherPid);
  EXPECT_EQ(complaints({.constantRate = false}),
            "PAT interval x 2, PMT interval x 2, W1 x 46, underflow x 46, ");
}

}  // namespace
}  // namespace zel::mux
