// SMPTE 302M streams out of the multiplexer, decoded by an independent program.

#include <gtest/gtest.h>

#include <string>

#include "tests/interop/pcm_decoding.h"
#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::test {
namespace {

using namespace Morvalen::Zel;

struct Shape {
  int bits;
  int channels;
};

class Smpte302mInterop : public testing::TestWithParam<Shape> {};

TEST_P(Smpte302mInterop, DecodesToTheSamplesOfTheWaveFile) {
  const std::string ffmpeg = programPath("ffmpeg");
  if (ffmpeg.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const auto [bits, channels] = GetParam();
  const PcmDecoding decoding(bits, channels, 48'000);

  EngineRun run;
  tsm_program* const program = run.addProgram();
  program->pcrPid = 0x1F0;
  program->pcrPer = 40;
  tsm_smpte302m* const record = tsm_add_smpte302m(program);
  record->pid = 0x102;
  tarn_array_append_text(&record->pairFiles[0], decoding.wave());
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "W85 ");
  const Verdict verdict = judgeTransportStream(run.bytes);
  EXPECT_TRUE(verdict.clean()) << verdict.text();

  decoding.expectIn(run.bytes, ffmpeg);
}

std::string nameOf(const testing::TestParamInfo<Shape>& info) {
  return std::to_string(info.param.bits) + "bits" + std::to_string(info.param.channels) +
         "channels";
}

INSTANTIATE_TEST_SUITE_P(Shapes, Smpte302mInterop,
                         testing::Values(Shape{16, 2}, Shape{16, 4}, Shape{16, 6}, Shape{16, 8},
                                         Shape{20, 2}, Shape{20, 4}, Shape{20, 6}, Shape{20, 8},
                                         Shape{24, 2}, Shape{24, 4}, Shape{24, 6}, Shape{24, 8}),
                         nameOf);

}  // namespace
}  // namespace zel::test
