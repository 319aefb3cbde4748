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

constexpr int kVideoPid = 0x101;
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

TEST(MuxUnderflow, IsToldWhenTheJudgeFindsIt) {
  for (int round = 0; round < 10; ++round) {
    std::mt19937_64 random(testSeed() + static_cast<uint64_t>(round));
    MemoryInput video{randomMpeg2Video(random, 2'000'000, 6)};
    EngineRun run;
    run.config->rate = 1'000'000 + 35'000 * round;
    tsm_program* const program = run.addProgram();
    program->pcrPer = 40;
    tsm_video* const record = tsm_add_video(program);
    record->pid = kVideoPid;
    record->user = &video;
    ASSERT_GT(run.multiplex(), 0) << run.texts;

    const std::vector<double> told = toldTimes(run.texts, kVideoPid);
    const Verdict verdict = judgeTransportStream(run.bytes);
    const std::vector<double> found = foundTimes(verdict, kVideoPid);
    ASSERT_FALSE(told.empty()) << run.texts;
    ASSERT_FALSE(found.empty()) << verdict.text();
    EXPECT_NEAR(told.front(), found.front(), 0.02) << "round " << round;
    // Behind the first one the multiplexer's level goes on below zero, while the judge counts each
    // unit by itself: a message may come with the next unit.
    for (size_t i = 0; i < std::min(told.size(), size_t{12}); ++i) {
      const bool near = std::any_of(found.begin(), found.end(), [&](double each) {
        return std::abs(each - told[i]) <= kPictureSeconds + 0.005;
      });
      EXPECT_TRUE(near) << "round " << round << ": nothing near " << told[i] << " s\n"
                        << run.texts << verdict.text();
    }
  }
}

}  // namespace
}  // namespace zel::test
