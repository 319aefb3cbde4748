#include <random>
#include <thread>

#include "tests/support/plain_transport_stream.h"
#include "tests/support/random_streams.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/engine_fixture.h"
#include "tests/unit/mux/engine/video/avc_bytes.h"
#include "zel/mux/engine/stream/stream.h"

// Pictures and sound from elementary streams to transport stream, judged by a model that isn't the
// engine's own.

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct WholeRun : testing::Test {
  static constexpr int kVideoPid = 33;
  static constexpr int kAudioPid = 36;

  explicit WholeRun(double seconds = 6) : plain(makePlainTransportStream({.seconds = seconds})) {
    program = run.addProgram();
    run.config->outPkts = 0;
  }
  tsm_video* addVideo() {
    inputs.push_back({plain.video});
    tsm_video* record = tsm_add_video(program);
    record->pid = kVideoPid;
    record->user = &inputs.back();
    return record;
  }
  tsm_audio* addAudio(int pid = kAudioPid) {
    inputs.push_back({plain.audio});
    tsm_audio* record = tsm_add_audio(program);
    record->pid = pid;
    record->user = &inputs.back();
    return record;
  }
  int32_t multiplex() {
    for (MemoryInput& input : inputs) input.place = 0;
    return run.multiplex();
  }
  Verdict judge(const JudgeOptions& options = {}) const {
    return judgeTransportStream(run.bytes, options);
  }
  void expectClean(const JudgeOptions& options = {}) {
    const Verdict verdict = judge(options);
    EXPECT_TRUE(verdict.clean()) << verdict.text();
    EXPECT_EQ(elementaryStream(run.bytes, kVideoPid, options.packetBytes), plain.video);
    EXPECT_EQ(elementaryStream(run.bytes, kAudioPid, options.packetBytes), plain.audio);
  }

  PlainStream plain;
  EngineRun run;
  tsm_program* program;
  std::deque<MemoryInput> inputs;
};

TEST_F(WholeRun, PicturesAndSoundPassTheJudgeAndArriveWhole) {
  addVideo();
  addAudio();
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  expectClean();
}

TEST_F(WholeRun, AtAVariableRateToo) {
  run.config->vbr = true;
  run.config->rate = 8e6;
  addVideo();
  addAudio();
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  EXPECT_EQ(run.packetsOf(0x1FFF), 0);
  expectClean({.constantRate = false});
}

TEST_F(WholeRun, WithTheClockOnAPidOfItsOwn) {
  program->pcrPid = 0x1F0;
  addVideo();
  addAudio();
  ASSERT_GT(multiplex(), 0) << run.texts;
  expectClean();
  EXPECT_GT(run.packetsOf(0x1F0), 50);
}

TEST_F(WholeRun, WithTheClockInTheSound) {
  program->pcrPid = kAudioPid;
  program->pcrPer = 60;  // a late packet of sound makes it some more
  addVideo();
  addAudio();
  ASSERT_GT(multiplex(), 0) << run.texts;
  expectClean();
}

TEST_F(WholeRun, WithSoundThatOutlivesItsClocksPictures) {
  plain.video.resize(plain.video.size() / 2);
  addVideo();
  addAudio();
  ASSERT_GT(multiplex(), 0) << run.texts;
  expectClean();
  run.config->vbr = true;
  run.config->rate = 8e6;
  run.bytes.clear();
  ASSERT_GT(multiplex(), 0) << run.texts;
  expectClean({.constantRate = false});
}

TEST_F(WholeRun, OverTheWrapOfTheClock) {
  run.config->pcri = 2'576'980'377'600.0 - 2 * 2.7e7;
  addVideo();
  addAudio();
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  expectClean();
}

TEST_F(WholeRun, InPiecesOfAnySizeFromTheLoader) {
  addVideo();
  addAudio();
  ASSERT_GT(multiplex(), 0) << run.texts;
  const std::vector<uint8_t> whole = std::move(run.bytes);
  for (const size_t size : {1'000, 9'973}) {
    for (MemoryInput& input : inputs) input.mostAtOnce = size;
    run.bytes.clear();
    ASSERT_GT(multiplex(), 0) << run.texts;
    EXPECT_TRUE(run.bytes == whole) << size;
  }
}

// An analyser asks for more bytes of a slice than a skipped picture has, and the end of the input
// is told only after that.
TEST_F(WholeRun, WithALastPictureOfAFewBytes) {
  AvcBytes stream;
  constexpr uint32_t kPictures = 500;
  for (uint32_t i = 0; i < kPictures; ++i) {
    if (i == 0) stream.sets();
    AvcPicture picture;
    picture.idr = i == 0;
    picture.type = i == 0 ? 'I' : 'P';
    picture.frameNum = i % 256;
    picture.poc = i * 2 % 256;
    picture.bytes = i + 1 == kPictures ? 2 : 600;
    stream.picture(picture);
  }
  plain.video = stream.bytes;
  addVideo();
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(elementaryStream(run.bytes, kVideoPid).size(), plain.video.size());
}

TEST_F(WholeRun, WithPesPacketsOfToldLengthAndSeveralUnitsForEachTimeStamp) {
  tsm_video* video = addVideo();
  addAudio();
  video->maxPesLen = 4000;
  for (const int units : {1, 2, 5}) {
    video->pesNau = units;
    run.bytes.clear();
    ASSERT_GT(multiplex(), 0) << run.texts;
    expectClean();
  }
}

TEST_F(WholeRun, WithPesAlignmentAndAccessPointsMarked) {
  tsm_video* video = addVideo();
  video->pesAlign = video->rai = true;
  tsm_audio* audio = addAudio();
  audio->pesAlign = true;
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  expectClean();
}

// Packets whose adaptation field is its length byte alone.
int lengthBytesAlone(const std::vector<uint8_t>& bytes) {
  int count = 0;
  for (size_t at = 0; at < bytes.size(); at += 188)
    count += (bytes[at + 3] & 0x20) != 0 && bytes[at + 4] == 0 ? 1 : 0;
  return count;
}

std::vector<uint8_t> withoutZeros(const std::vector<uint8_t>& bytes) {
  std::vector<uint8_t> out;
  for (const uint8_t byte : bytes)
    if (byte != 0) out.push_back(byte);
  return out;
}

TEST_F(WholeRun, NoEmptyAfLeavesNoFieldOfALengthByteAlone) {
  // Units of every length, each with a packet of its own at its end.
  std::mt19937_64 random(testSeed());
  plain.video = randomMpeg2Video(random, 2'000'000, 20);
  tsm_video* video = addVideo();
  tsm_audio* audio = addAudio();
  video->pesAlign = audio->pesAlign = true;
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_GT(lengthBytesAlone(run.bytes), 0);

  run.config->noEmptyAf = true;
  run.bytes.clear();
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  EXPECT_EQ(lengthBytesAlone(run.bytes), 0);
  EXPECT_TRUE(judge().clean()) << judge().text();
  EXPECT_EQ(elementaryStream(run.bytes, kAudioPid), plain.audio);
  // A zero byte stands behind a unit here and there, where no decoder minds it.
  const std::vector<uint8_t> back = elementaryStream(run.bytes, kVideoPid);
  EXPECT_GT(back.size(), plain.video.size());
  EXPECT_EQ(withoutZeros(back), withoutZeros(plain.video));
}

TEST_F(WholeRun, OnTwoThreadsEachGivesWhatItGivesAlone) {
  const auto make = [&](double rate, std::vector<uint8_t>& out) {
    EngineRun own;
    own.config->rate = rate;
    tsm_program* const one = own.addProgram();
    MemoryInput pictures{plain.video};
    MemoryInput sound{plain.audio};
    tsm_add_video(one)->user = &pictures;
    tsm_add_audio(one)->user = &sound;
    EXPECT_GT(own.multiplex(), 0) << own.texts;
    EXPECT_EQ(own.said, "");
    out = own.bytes;
  };
  constexpr double kRates[] = {15e6, 20e6};
  std::vector<uint8_t> alone[2];
  std::vector<uint8_t> together[2];
  for (int i = 0; i < 2; ++i) make(kRates[i], alone[i]);
  std::thread threads[2];
  for (int i = 0; i < 2; ++i) threads[i] = std::thread([&, i] { make(kRates[i], together[i]); });
  for (std::thread& each : threads) each.join();
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(alone[i].empty());
    EXPECT_TRUE(together[i] == alone[i]);
  }
}

TEST_F(WholeRun, StoppingWithTheFirstOfSoundAndPictures) {
  plain.audio.resize(plain.audio.size() / 2);
  addVideo();
  addAudio();
  run.config->stopOnAv = 1;
  ASSERT_GT(multiplex(), 0);
  const double half = judge().seconds;
  EXPECT_GT(half, 2.8);
  EXPECT_LT(half, 4);
  run.config->stopOnAv = 2;
  run.bytes.clear();
  ASSERT_GT(multiplex(), 0);
  EXPECT_GT(judge().seconds, half + 2);
}

TEST_F(WholeRun, WarnsOfAStreamThatEndsEarly) {
  plain.audio.resize(plain.audio.size() / 2);
  addVideo();
  addAudio();
  run.config->warnIfEndEarly = 1;
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "W145 ");
  EXPECT_TRUE(run.saidText("PID = 0x0024")) << run.texts;
}

TEST_F(WholeRun, AShortageOfRateIsToldAsAnUnderflow) {
  addVideo();
  addAudio();
  run.config->rate = 1.6e6;
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.said.substr(0, 4), "W11 ");
  EXPECT_TRUE(run.saidText("Video decoder underflow by ")) << run.texts.substr(0, 500);
  // All of it is sent all the same.
  EXPECT_EQ(elementaryStream(run.bytes, kVideoPid), plain.video);
}

TEST_F(WholeRun, TerminationEndsAtItsPacketWithTheClockDrawnToTheFrames) {
  addVideo();
  addAudio();
  run.config->rate = 3e6;
  run.config->terminate = true;
  run.config->overlap = 10;
  run.config->duration = {1, 0, 0, 0, 4, 3, 0};
  ASSERT_GT(multiplex(), 0) << run.texts;
  // 103 frames of 40 ms.
  const auto packets = static_cast<int>((103 * 0.04 * 3e6 + 750.2) / 1504);
  EXPECT_EQ(run.packets(), packets);
  const Verdict verdict = judge();
  EXPECT_FALSE(verdict.has(Fault::kPcrAccuracy)) << verdict.text();
  EXPECT_FALSE(verdict.has(Fault::kUnderflow)) << verdict.text();
}

TEST_F(WholeRun, EventBytesTellOfClocksAndTables) {
  run.config->eventNotify = true;
  run.config->pktSize = 190;
  addVideo()->rai = true;
  addAudio();
  ASSERT_GT(multiplex(), 0) << run.texts;
  int tables = 0;
  int clocks = 0;
  int accessPoints = 0;
  for (size_t at = 0; at < run.bytes.size(); at += 190) {
    const uint8_t* packet = run.bytes.data() + at;
    const int pid = (packet[1] & 0x1F) << 8 | packet[2];
    const int events = packet[188];
    EXPECT_EQ((events & kEventPat) != 0, pid == 0);
    EXPECT_EQ((events & kEventPsi) != 0, pid == 32);
    const bool hasField = (packet[3] & 0x20) != 0 && packet[4] > 0;
    const bool hasPcr = hasField && (packet[5] & 0x10) != 0;
    EXPECT_EQ((events & kEventPcr) != 0, hasPcr);
    tables += pid == 0 ? 1 : 0;
    clocks += hasPcr ? 1 : 0;
    accessPoints += (events & kEventAccessPoint) != 0 ? 1 : 0;
  }
  EXPECT_GT(tables, 50);
  EXPECT_GT(clocks, 50);
  EXPECT_GT(accessPoints, 5);
}

TEST_F(WholeRun, TwoProgramsInOneStream) {
  addVideo();
  addAudio();
  program = tsm_add_program(run.config);
  addVideo()->pid = 0x41;
  addAudio(0x44);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  expectClean();
  EXPECT_EQ(elementaryStream(run.bytes, 0x41), plain.video);
}

}  // namespace
}  // namespace zel::mux
