// Linear PCM of the HDMV form out of the multiplexer, decoded by an independent program.

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/pcm/wave_bytes.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::test {
namespace {

using namespace Morvalen::Zel;

struct Shape {
  int bits;
  int channels;
  int rate;
};

class LpcmInterop : public testing::TestWithParam<Shape> {
 protected:
  std::vector<uint8_t> readFile(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void writeFile(const std::string& name, const std::vector<uint8_t>& bytes) {
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<long>(bytes.size()));
  }
  ScratchFolder folder;
};

TEST_P(LpcmInterop, DecodesToTheSamplesOfTheWaveFile) {
  const std::string ffmpeg = programPath("ffmpeg");
  if (ffmpeg.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const auto [bits, channels, rate] = GetParam();
  const int size = (bits + 7) / 8;
  std::mt19937_64 random(testSeed());
  std::vector<uint8_t> wave;
  std::vector<uint8_t> expected;  // left-justified in 32 bits, little-endian
  for (int i = 0; i < channels * rate / 4; ++i) {
    const auto value = static_cast<uint32_t>(random()) >> (32 - bits) << (32 - bits);
    for (int byte = 0; byte < 4; ++byte) {
      const auto each = static_cast<uint8_t>(value >> (8 * byte));
      expected.push_back(each);
      if (byte >= 4 - size) wave.push_back(each);
    }
  }
  writeFile(folder.file("in.wav"),
            WaveBytes()
                .file("RIFF", 0)
                .extensible(channels, static_cast<uint32_t>(rate), size, bits)
                .chunk("data", wave)
                .closed()
                .bytes());

  EngineRun run;
  tsm_program* const program = run.addProgram();
  program->pcrPid = 0x1001;
  program->pcrPer = 40;
  // Readers take stream types from 80 on for this form's where the program says so.
  const uint8_t registration[] = {5, 4, 'H', 'D', 'M', 'V'};
  tarn_array_append_bytes(&program->descriptors, registration);
  tsm_lpcm* const record = tsm_add_lpcm(program);
  record->pid = 0x1100;
  tarn_array_append_text(&record->files, folder.file("in.wav"));
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");

  writeFile(folder.file("out.ts"), run.bytes);
  const ProgramResult result =
      runProgram(ffmpeg, {"-v", "warning", "-xerror", "-y", "-i", folder.file("out.ts"), "-map",
                          "0:a:0", "-f", "s32le", "-c:a", "pcm_s32le", folder.file("out.raw")});
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(readFile(folder.file("out.raw")) == expected);
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
