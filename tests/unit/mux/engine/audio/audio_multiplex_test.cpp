// Whole multiplexes of one audio stream, told over by a judge that shares nothing with the engine:
// packets, tables, clocks, time stamps and the decoder's buffers.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/audio_frames.h"
#include "tests/support/engine_run.h"
#include "tests/support/seed.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct codec {
  const char* name;
  AudioBytes frames;  // of one round
  int rounds;
  double period;  // seconds a frame
  int framesARound;
  int streamType;
  AudioBufferModel model = AudioBufferModel::kStandard;
};

std::vector<codec> codecs() {
  return {
      {"layer I", mpegFrame(0xFF, 4, 1, 128), 500, 0.008, 1, 3},
      {"layer II", layer2Frame(10, 1, 576), 200, 0.024, 1, 3},
      {"layer II at 44.1 kHz",
       (mpegFrame(0xFD, 10, 0, 626) + mpegFrame(0xFD, 10, 0, 627, 1) * 15) * 2, 8, 1152 / 44100.0,
       32, 3},
      {"layer II, low rates", mpegFrame(0xF5, 8, 1, 384), 200, 0.048, 1, 3},
      {"layer II of 32 kbit/s", layer2Frame(1, 1, 96), 300, 0.024, 1, 3},
      {"layer III", mpegFrame(0xFB, 9, 1, 384), 200, 0.024, 1, 4},
      {"ADTS", adtsFrame(300) + adtsFrame(420) + adtsFrame(371), 80, 1024 / 48000.0, 3, 15},
      {"ADTS of eight channels", adtsFrame(1400, 3, 7), 200, 1024 / 48000.0, 1, 15},
      {"LATM", latmFrame(310, 3, 2) + sameLatmFrame(290) * 3, 60, 1024 / 48000.0, 4, 17},
      {"AC-3", ac3Frame(0, 20, 768), 150, 0.032, 1, 129},
      {"AC-3 of 448 kbit/s", ac3Frame(0, 30, 1792), 150, 0.032, 1, 129},
      {"AC-3 at 44.1 kHz", ac3Frame(1, 20, 834) + ac3Frame(1, 21, 836), 75, 1536 / 44100.0, 2, 129},
      {"E-AC-3", eac3Frame(0, 0, 768), 150, 0.032, 1, 135},
      {"E-AC-3 with dependent substreams",
       eac3Frame(0, 0, 1024, 7, 1) + eac3Frame(1, 0, 512) + eac3Frame(1, 1, 256) +
           eac3Frame(1, 2, 128),
       150, 0.032, 1, 135},
      {"DTS", dtsFrame(16, 1006), 400, 512 / 48000.0, 1, 6},
      {"DTS with an extension", dtsFrame(16, 1006) + dtsExtension(0, 2200), 400, 512 / 48000.0, 1,
       6},
  };
}

struct shape {
  const char* name;
  int pesNau;
  bool aligned;
  bool lowLatency;
  bool clockOfItsOwn;  // the PCR comes in a PID of its own, not with the audio
};
constexpr shape kShapes[] = {
    {"two frames", 2, false, false, false},  {"one frame", 1, false, false, true},
    {"five frames", 5, false, false, false}, {"aligned", 2, true, false, false},
    {"low latency", 1, false, true, true},
};

class AudioMultiplex : public ::testing::Test {
 protected:
  static constexpr int kPid = 0x24;

  static void judge(const codec& kind, const shape& form, double rate = 0) {
    SCOPED_TRACE(std::string(kind.name) + ", " + form.name);
    const AudioBytes bytes = kind.frames * kind.rounds;
    EngineRun run;
    tsm_program* const program = run.addProgram();
    tsm_audio* const record = tsm_add_audio(program);
    MemoryInput input{bytes};
    record->user = &input;
    record->pid = kPid;
    record->pesNau = form.pesNau;
    record->pesAlign = form.aligned;
    record->lowLatency = form.lowLatency;
    program->pcrPid = form.clockOfItsOwn ? 0x1F0 : kPid;
    program->pcrPer = 40;
    run.config->rate = rate;
    ASSERT_GT(run.multiplex(), 0) << run.texts;
    EXPECT_EQ(run.said, "") << run.texts;
    const Verdict verdict = judgeTransportStream(run.bytes, {.audioBuffers = kind.model});
    EXPECT_TRUE(verdict.clean()) << verdict.text();
    EXPECT_TRUE(elementaryStream(run.bytes, kPid) == bytes);
    ASSERT_EQ(verdict.streams.size(), 1u);
    const StreamVerdict& stream = verdict.streams[0];
    EXPECT_EQ(stream.units, kind.rounds * kind.framesARound);
    EXPECT_NEAR(stream.lastDecode - stream.firstDecode,
                static_cast<double>(stream.units - 1) * kind.period, 1e-4);
  }
};

TEST_F(AudioMultiplex, EveryCodingInEveryShapePassesTheJudge) {
  for (const codec& kind : codecs()) {
    for (const shape& form : kShapes) judge(kind, form);
  }
}

TEST_F(AudioMultiplex, FastChannelsOverrunNoTransportBuffer) {
  for (const codec& kind : codecs()) judge(kind, kShapes[0], 20e6);
}

// Streams that aren't what they should be, where the run goes on after a fatal message. What comes
// out is whole in itself, and holds no byte that wasn't in a frame.
class BadAudio : public ::testing::Test {
 protected:
  void run(const AudioBytes& bytes, bool stopOnError = false) {
    MemoryInput input{bytes};
    tsm_program* const program = run_.addProgram();
    tsm_audio* const record = tsm_add_audio(program);
    record->user = &input;
    record->pid = 0x24;
    program->pcrPid = 0x1F0;
    program->pcrPer = 40;
    run_.config->stopOnError = stopOnError;
    result_ = run_.multiplex();
    elementary_ = elementaryStream(run_.bytes, 0x24);
  }
  Verdict judge() const { return judgeTransportStream(run_.bytes); }

  EngineRun run_;
  int32_t result_ = 0;
  AudioBytes elementary_;
};

TEST_F(BadAudio, AnEmptyInputIsNeverAcquired) {
  run({}, true);
  EXPECT_EQ(result_, -2);
  EXPECT_EQ(run_.said, "F19 ");
}

TEST_F(BadAudio, AnEmptyInputBesideOthersLeavesThemAlone) {
  run({});
  EXPECT_EQ(run_.said.substr(0, 4), "F19 ");
  EXPECT_TRUE(elementary_.empty());
}

TEST_F(BadAudio, AnotherKindOfFileStopsAtItsFirstByte) {
  // A sequence header of video.
  run(audioFrame(10'000, {{0x000001B3, 32}, {0x2D0240, 24}}), true);
  EXPECT_EQ(result_, -2);
  EXPECT_EQ(run_.said, "F16 ");
  EXPECT_NE(run_.texts.find("First byte = 0x00."), std::string::npos);
}

TEST_F(BadAudio, ATruncatedStreamEndsWithItsLastWholeFrame) {
  const AudioBytes whole = ac3Frame(0, 20, 768) * 40;
  run({whole.begin(), whole.end() - 100});
  EXPECT_EQ(run_.said, "");
  EXPECT_TRUE(elementary_ == (ac3Frame(0, 20, 768) * 39));
  const Verdict verdict = judge();
  EXPECT_TRUE(verdict.clean()) << verdict.text();
}

TEST_F(BadAudio, JunkBetweenFramesIsLeftOut) {
  const AudioBytes frames = adtsFrame(400) * 30;
  run(frames + AudioBytes(777, 0x55) + frames + AudioBytes{0xFF, 0xF1} + frames);
  EXPECT_EQ(run_.said, "F15 F18 ");
  EXPECT_TRUE(elementary_ == frames * 3);
  const Verdict verdict = judge();
  EXPECT_TRUE(verdict.clean()) << verdict.text();
}

TEST_F(BadAudio, RandomBytesEndTheRunInOrder) {
  std::mt19937 random(static_cast<unsigned>(testSeed()));
  for (int round = 0; round < 20; ++round) {
    AudioBytes bytes(20'000);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    // Chance finds headers in it that claim frames of any rate.
    if (round % 2 == 1) bytes = layer2Frame(10, 1, 576) * 5 + bytes + layer2Frame(10, 1, 576) * 5;
    EngineRun engine;
    MemoryInput input{bytes};
    tsm_program* const program = engine.addProgram();
    tsm_audio* const record = tsm_add_audio(program);
    record->user = &input;
    record->pid = program->pcrPid = 0x24;
    engine.config->stopOnError = false;
    engine.multiplex();
    EXPECT_NE(engine.said.find('F'), std::string::npos);
    EXPECT_EQ(engine.bytes.size() % 188, 0u);
  }
}

}  // namespace
}  // namespace zel::mux
