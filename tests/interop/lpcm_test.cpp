// Linear PCM of the HDMV form out of the multiplexer, decoded by an independent program.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/interop/pcm_decoding.h"
#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::test {
namespace {

using namespace Morvalen::Zel;

struct Shape {
  int bits;
  int channels;
  int rate;
};

class LpcmInterop : public testing::TestWithParam<Shape> {};

TEST_P(LpcmInterop, DecodesToTheSamplesOfTheWaveFile) {
  const std::string ffmpeg = programPath("ffmpeg");
  if (ffmpeg.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const auto [bits, channels, rate] = GetParam();
  const PcmDecoding decoding(bits, channels, rate);

  EngineRun run;
  tsm_program* const program = run.addProgram();
  program->pcrPid = 0x1001;
  program->pcrPer = 40;
  // Readers take stream types from 80 on for this form's where the program says so.
  const uint8_t registration[] = {5, 4, 'H', 'D', 'M', 'V'};
  tarn_array_append_bytes(&program->descriptors, registration);
  tsm_lpcm* const record = tsm_add_lpcm(program);
  record->pid = 0x1100;
  tarn_array_append_text(&record->files, decoding.wave());
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");

  decoding.expectIn(run.bytes, ffmpeg);
}

std::string nameOf(const testing::TestParamInfo<Shape>& info) {
  return std::to_string(info.param.bits) + "bits" + std::to_string(info.param.channels) +
         "channels" + std::to_string(info.param.rate);
}

INSTANTIATE_TEST_SUITE_P(Shapes, LpcmInterop,
                         // The decoder has no 20 bits.
                         testing::Values(Shape{16, 2, 48000}, Shape{24, 2, 96000},
                                         Shape{24, 6, 48000}, Shape{16, 6, 48000},
                                         Shape{24, 8, 48000}, Shape{16, 8, 192000}),
                         nameOf);

}  // namespace
}  // namespace zel::test
