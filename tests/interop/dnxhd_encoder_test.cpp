// Frames of the encoder in the hands of an independent decoder, FFmpeg's, run as a program: it has
// to take every frame of every id that it knows without a word, and to make the same samples of it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/external_program.h"
#include "tests/support/seed.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/encoder/encoder_core.h"

namespace zel::dnxhd {
namespace {

using test::AlignedBytes;
using test::DnxhdPlanes;
using test::DnxhdPlanesSource;
using test::fileContents;
using test::SampleDifference;
using test::sampleDifference;

struct Id {
  uint32_t id;
  const char* pixels;
};
constexpr Id kIds[] = {
    {1235, "yuv422p10le"}, {1237, "yuv422p"}, {1238, "yuv422p"}, {1241, "yuv422p10le"},
    {1242, "yuv422p"},     {1243, "yuv422p"}, {1244, "yuv422p"}, {1250, "yuv422p10le"},
    {1251, "yuv422p"},     {1252, "yuv422p"}, {1253, "yuv422p"}, {1256, "yuv444p10le"},
    {1258, "yuv422p"},     {1259, "yuv422p"}, {1260, "yuv422p"},
};

void fillNoise(DnxhdPlanes& planes, int low, int high) {
  std::mt19937_64 random(test::testSeed());
  for (size_t plane = 0; plane < 3; ++plane) {
    for (int& sample : planes.plane(plane)) {
      sample = low + static_cast<int>(random() % static_cast<uint64_t>(high - low + 1));
    }
  }
}

// Nothing but the two ends of the range.
void fillExtremeNoise(DnxhdPlanes& planes) {
  std::mt19937_64 random(test::testSeed());
  for (size_t plane = 0; plane < 3; ++plane) {
    for (int& sample : planes.plane(plane)) {
      sample = (random() & 1) != 0 ? (1 << planes.depth()) - 1 : 0;
    }
  }
}

void fillFlat(DnxhdPlanes& planes, int luma) {
  std::fill(planes.plane(0).begin(), planes.plane(0).end(), luma);
  for (const size_t plane : {size_t{1}, size_t{2}}) {
    std::fill(planes.plane(plane).begin(), planes.plane(plane).end(), 1 << (planes.depth() - 1));
  }
}

// Blocks that are black and white by turns: the longest DC codes.
void fillBlockwise(DnxhdPlanes& planes) {
  for (size_t plane = 0; plane < 3; ++plane) {
    const size_t width = planes.width(plane);
    for (size_t i = 0; i < planes.plane(plane).size(); ++i) {
      const bool white = (i % width / 8 + i / width / 8) % 2 != 0;
      planes.plane(plane)[i] = white ? (1 << planes.depth()) - 1 : 0;
    }
  }
}

constexpr size_t kExtremes = 4;

size_t samplesBeyond(const std::vector<int>& a, const std::vector<int>& b, int bound) {
  size_t count = 0;
  for (size_t i = 0; i < a.size(); ++i) count += std::abs(a[i] - b[i]) > bound ? 1 : 0;
  return count;
}

class DnxhdEncoder : public testing::TestWithParam<int> {};

TEST_P(DnxhdEncoder, FramesDecodeAlikeElsewhere) {
  const std::string ffmpeg = test::programPath("ffmpeg");
  if (ffmpeg.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const Id& one = kIds[GetParam()];
  const VCIDEntry& entry = *FindEntry(one.id);
  const test::ScratchFolder folder;

  std::vector<DnxhdPlanes> sources(6, DnxhdPlanes(entry));
  const std::string sourceFile = folder.file("source.yuv");
  const test::ProgramResult made = test::runProgram(
      ffmpeg, {"-v", "error", "-f", "lavfi", "-i",
               "testsrc2=size=" + std::to_string(entry.width) + "x" + std::to_string(entry.lines),
               "-vf", "noise=alls=12:allf=t", "-pix_fmt", one.pixels, "-frames:v", "1", "-f",
               "rawvideo", sourceFile});
  ASSERT_EQ(made.exitCode, 0) << made.output;
  const std::vector<char> raw = fileContents(sourceFile);
  ASSERT_EQ(raw.size(), sources[0].rawSize());
  const int top = (1 << entry.depth) - 1;
  sources[0].readRaw(raw.data());
  fillFlat(sources[1], 0);
  fillNoise(sources[2], 0, top);
  fillNoise(sources[3], top / 2 - top / 40, top / 2 + top / 40);
  fillExtremeNoise(sources[kExtremes]);
  fillBlockwise(sources[5]);

  EncoderCore encoder;
  ASSERT_EQ(encoder.RebuildJobs(2), kSuccessful);
  ASSERT_EQ(encoder.Configure(entry, std::make_unique<DnxhdPlanesSource>()), kSuccessful);
  const std::string file = folder.file("frames.dnxhd");
  const AlignedBytes frames(entry.frameBytes * sources.size());
  std::fill(frames.bytes().begin(), frames.bytes().end(), uint8_t{0xA5});
  for (size_t i = 0; i < sources.size(); ++i) {
    const auto frame = frames.bytes().subspan(i * entry.frameBytes, entry.frameBytes);
    ASSERT_EQ(encoder.EncodeFrame(&sources[i], frame), kSuccessful) << "picture " << i;
    EXPECT_TRUE(std::equal(kEndMark.begin(), kEndMark.end(), frame.end() - 4));
    EXPECT_EQ(CheckFrame(one.id, frame), kSuccessful) << "picture " << i;
  }

  // The other program takes two frames of 1260 for one where nothing but the bytes tell them apart.
  const size_t together = one.id == 1260 ? 1 : sources.size();
  std::vector<char> decodedRaw;
  for (size_t first = 0; first < sources.size(); first += together) {
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(frames.bytes().data()) + first * entry.frameBytes,
               static_cast<std::streamsize>(together * entry.frameBytes));
    const std::string decodedFile = folder.file("decoded.yuv");
    const test::ProgramResult decoded = test::runProgram(
        ffmpeg, {"-v", "error", "-y", "-f", "dnxhd", "-i", file, "-f", "rawvideo", decodedFile});
    EXPECT_EQ(decoded.exitCode, 0);
    EXPECT_EQ(decoded.output, "");
    const std::vector<char> part = fileContents(decodedFile);
    decodedRaw.insert(decodedRaw.end(), part.begin(), part.end());
  }
  ASSERT_EQ(decodedRaw.size(), sources.size() * sources[0].rawSize());

  SerialRowRunner runner;
  FrameDecoder ownWay(entry, 1, runner);
  FrameDecoder peersWay(entry, 1, runner, Reconstruction::kThreeQuarters);
  for (size_t i = 0; i < sources.size(); ++i) {
    const auto frame = frames.bytes().subspan(i * entry.frameBytes, entry.frameBytes);
    DnxhdPlanes ours(entry);
    DnxhdPlanes same(entry);
    DnxhdPlanes peer(entry);
    ASSERT_EQ(ownWay.Decode(frame, Pictures::kAll, ours), kSuccessful);
    ASSERT_EQ(peersWay.Decode(frame, Pictures::kAll, same), kSuccessful);
    peer.readRaw(decodedRaw.data() + i * peer.rawSize());
    // With the peer's reconstruction of levels nothing but the rounding of transforms differs.
    const SampleDifference rounding = sampleDifference(same.samples(), peer.samples(), entry.depth);
    // But in 10 bits: its transform, between its passes, cuts off what passes white by much or
    // little, which moves whole columns of a block. That takes noise of the full range.
    const bool extremes = i == kExtremes;
    if (entry.depth == 8) {
      EXPECT_LE(rounding.largest, 1) << "picture " << i;
    } else if (!extremes) {
      EXPECT_LE(samplesBeyond(same.samples(), peer.samples(), 2), same.samples().size() / 200000)
          << "picture " << i;
    }
    EXPECT_GT(rounding.psnr, extremes ? 50.0 : 60.0) << "picture " << i;
    const SampleDifference rule = sampleDifference(ours.samples(), peer.samples(), entry.depth);
    const SampleDifference loss =
        sampleDifference(ours.samples(), sources[i].samples(), entry.depth);
    std::printf(
        "%u picture %zu: loss %.2f dB; same rule: at most %d, %.2f dB; own rule: at most %d, "
        "%.2f dB\n",
        one.id, i, loss.psnr, rounding.largest, rounding.psnr, rule.largest, rule.psnr);
  }
}

INSTANTIATE_TEST_SUITE_P(Ids, DnxhdEncoder, testing::Range(0, static_cast<int>(std::size(kIds))),
                         [](const auto& one) { return "Id" + std::to_string(kIds[one.param].id); });

}  // namespace
}  // namespace zel::dnxhd
