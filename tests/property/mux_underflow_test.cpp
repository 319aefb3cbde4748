// A transport rate that is too low: the multiplexer tells of each decoder that runs dry, and when.
// The judge finds the same in the finished stream.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <regex>

#include "tests/support/engine_run.h"
#include "tests/support/random_streams.h"
#include "tests/support/seed.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::test {
namespace {

using namespace Morvalen::Zel;

constexpr int kPid = 0x101;
constexpr double kPictureSeconds = 0.04;

// Seconds of the underflow messages of a PID.
std::vector<double> toldTimes(const std::string& texts, int pid) {
  char label[16];
  std::snprintf(label, sizeof label, "0x%04X", static_cast<unsigned>(pid));
  const std::regex pattern("PID = " + std::string(label) +
                           ", time = ([0-9.]+)s\\n[A-Za-z]+ decoder underflow by");
  std::vector<double> times;
  for (std::sregex_iterator each(texts.begin(), texts.end(), pattern), end; each != end; ++each)
    times.push_back(std::stod((*each)[1]));
  return times;
}

std::vector<double> foundTimes(const Verdict& verdict, int pid) {
  std::vector<double> times;
  for (const Finding& finding : verdict.of(Fault::kUnderflow))
    if (finding.pid == pid) times.push_back(finding.seconds);
  return times;
}

// Each message of a PID has an underflow of the judge near it, the first one that of the first.
void expectSameUnderflows(const EngineRun& run, int pid, double unitSeconds) {
  const std::vector<double> told = toldTimes(run.texts, pid);
  const Verdict verdict = judgeTransportStream(run.bytes);
  const std::vector<double> found = foundTimes(verdict, pid);
  ASSERT_FALSE(told.empty()) << run.texts;
  ASSERT_FALSE(found.empty()) << verdict.text();
  EXPECT_NEAR(told.front(), found.front(), 0.02);
  // Behind the first one the multiplexer's level goes on below zero, while the judge counts each
  // unit by itself: a message may come with the next unit.
  for (size_t i = 0; i < std::min(told.size(), size_t{12}); ++i) {
    const bool near = std::any_of(found.begin(), found.end(), [&](double each) {
      return std::abs(each - told[i]) <= unitSeconds + 0.005;
    });
    EXPECT_TRUE(near) << "nothing near " << told[i] << " s\n" << run.texts << verdict.text();
  }
}

TEST(MuxUnderflow, OfVideoIsToldWhenTheJudgeFindsIt) {
  for (int round = 0; round < 10; ++round) {
    SCOPED_TRACE(round);
    std::mt19937_64 random(testSeed() + static_cast<uint64_t>(round));
    MemoryInput video{randomMpeg2Video(random, 2'000'000, 6)};
    EngineRun run;
    run.config->rate = 1'000'000 + 35'000 * round;
    tsm_program* const program = run.addProgram();
    program->pcrPer = 40;
    tsm_video* const record = tsm_add_video(program);
    record->pid = kPid;
    record->user = &video;
    ASSERT_GT(run.multiplex(), 0) << run.texts;
    expectSameUnderflows(run, kPid, kPictureSeconds);
  }
}

TEST(MuxUnderflow, OfSoundIsToldWhenTheJudgeFindsIt) {
  struct Sound {
    AudioFrames kind;
    double rate, frameSeconds;
  };
  const Sound sounds[] = {{AudioFrames::kLayer2, 128'000, 0.024},
                          {AudioFrames::kLayer3, 128'000, 0.024},
                          {AudioFrames::kAdts, 144'000, 0.0214},
                          {AudioFrames::kAc3, 192'000, 0.032},
                          {AudioFrames::kDts, 768'000, 0.0107}};
  for (const Sound& sound : sounds) {
    for (const double share : {0.7, 0.85, 0.95}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(sound.kind) << " at " << share);
      MemoryInput frames{audioFrames(sound.kind, 6)};
      EngineRun run;
      // The stream's own rate is the one that's too low: at such a rate of the whole a slot would
      // be as long as half a frame, and at its begin or its end is a difference.
      run.config->rate = 3'000'000;
      tsm_program* const program = run.addProgram();
      program->pcrPer = 40;
      tsm_audio* const record = tsm_add_audio(program);
      record->pid = kPid;
      record->user = &frames;
      record->rate = sound.rate * share;
      ASSERT_GT(run.multiplex(), 0) << run.texts;
      expectSameUnderflows(run, kPid, sound.frameSeconds);
    }
  }
}

}  // namespace
}  // namespace zel::test
