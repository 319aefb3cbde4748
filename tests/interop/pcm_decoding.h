#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/pcm/wave_bytes.h"

namespace zel::test {

/// A Wave file of random samples, and an independent program that decodes them out of a transport
/// stream.
class PcmDecoding {
 public:
  /// Makes half a second of the file.
  PcmDecoding(int bits, int channels, int rate) {
    const int size = (bits + 7) / 8;
    std::mt19937_64 random(testSeed());
    std::vector<uint8_t> samples;
    for (int i = 0; i < channels * rate / 2; ++i) {
      const auto value = static_cast<uint32_t>(random()) >> (32 - bits) << (32 - bits);
      for (int byte = 0; byte < 4; ++byte) {
        const auto each = static_cast<uint8_t>(value >> (8 * byte));
        expected_.push_back(each);
        if (byte >= 4 - size) samples.push_back(each);
      }
    }
    writeFile(wave(), WaveBytes()
                          .file("RIFF", 0)
                          .extensible(channels, static_cast<uint32_t>(rate), size, bits)
                          .chunk("data", samples)
                          .closed()
                          .bytes());
  }

  std::string wave() const { return folder_.file("in.wav"); }

  /// Expects the file's samples, and no complaint.
  void expectIn(std::span<const uint8_t> transportStream, const std::string& ffmpeg) const {
    const std::string in = folder_.file("out.ts");
    const std::string out = folder_.file("out.raw");
    writeFile(in, transportStream);
    const ProgramResult result =
        runProgram(ffmpeg, {"-v", "warning", "-xerror", "-y", "-i", in, "-map", "0:a:0", "-f",
                            "s32le", "-c:a", "pcm_s32le", out});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(fileBytes(out) == expected_);
  }

 private:
  ScratchFolder folder_;
  std::vector<uint8_t> expected_;  // left-justified in 32 bits, little-endian
};

}  // namespace zel::test
