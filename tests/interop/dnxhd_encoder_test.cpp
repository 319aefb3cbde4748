// Frames of the encoder in the hands of an independent decoder, FFmpeg's, run as a program: it has
// to take every frame of every id without a word, and to make the same samples of it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "tests/support/dnxhd_exact.h"
#include "tests/support/dnxhd_peer.h"
#include "tests/support/dnxhd_planes.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
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
using test::fileBytes;
using test::SampleDifference;
using test::sampleDifference;

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

constexpr size_t kPictures = 6;

// Pictures of all kinds. The first is the peer's test pattern with noise.
std::vector<DnxhdPlanes> sourcesFor(const VCIDEntry& entry, const char* pixels) {
  std::vector<DnxhdPlanes> sources(kPictures, DnxhdPlanes(entry));
  const test::ScratchFolder folder;
  const std::string file = folder.file("source.yuv");
  const test::ProgramResult made = test::runProgram(
      test::programPath("ffmpeg"),
      {"-v", "error", "-f", "lavfi", "-i",
       "testsrc2=size=" + std::to_string(entry.width) + "x" + std::to_string(entry.lines), "-vf",
       "noise=alls=12:allf=t", "-pix_fmt", pixels, "-frames:v", "1", "-f", "rawvideo", file});
  EXPECT_EQ(made.exitCode, 0) << made.output;
  const std::vector<uint8_t> raw = fileBytes(file);
  EXPECT_EQ(raw.size(), sources[0].rawSize());
  if (raw.size() == sources[0].rawSize()) sources[0].readRaw(raw.data());
  const int top = (1 << entry.depth) - 1;
  fillFlat(sources[1], 0);
  fillNoise(sources[2], 0, top);
  fillNoise(sources[3], top / 2 - top / 40, top / 2 + top / 40);
  fillExtremeNoise(sources[4]);
  fillBlockwise(sources[5]);
  return sources;
}

// Frames of all sources, one behind the other.
void encodeAll(const VCIDEntry& entry, const std::vector<DnxhdPlanes>& sources,
               std::span<uint8_t> frames) {
  EncoderCore encoder;
  ASSERT_EQ(encoder.RebuildJobs(2), kSuccessful);
  ASSERT_EQ(encoder.Configure(entry, std::make_unique<DnxhdPlanesSource>()), kSuccessful);
  std::fill(frames.begin(), frames.end(), uint8_t{0xA5});
  for (size_t i = 0; i < sources.size(); ++i) {
    const auto frame = frames.subspan(i * entry.frameBytes, entry.frameBytes);
    ASSERT_EQ(encoder.EncodeFrame(&sources[i], frame), kSuccessful) << "picture " << i;
    EXPECT_TRUE(std::equal(kEndMark.begin(), kEndMark.end(), frame.end() - 4));
    EXPECT_EQ(CheckFrame(entry.compressionId, frame), kSuccessful) << "picture " << i;
  }
}

class DnxhdEncoder : public testing::TestWithParam<size_t> {};

// All seventeen ids, two of them in the house of another: see DnxhdPeer.
TEST_P(DnxhdEncoder, FramesDecodeAlikeElsewhere) {
  const test::DnxhdPeer peer;
  if (!peer.installed()) GTEST_SKIP() << "ffmpeg is not installed";
  const test::DnxhdPeerId& one = test::dnxhdPeerIds()[GetParam()];
  const VCIDEntry& entry = *FindEntry(one.id);
  const std::vector<DnxhdPlanes> sources = sourcesFor(entry, one.pixels);
  const AlignedBytes frames(entry.frameBytes * sources.size());
  ASSERT_NO_FATAL_FAILURE(encodeAll(entry, sources, frames.bytes()));
  const std::vector<DnxhdPlanes> peers = peer.decode(entry, frames.bytes());
  ASSERT_EQ(peers.size(), sources.size());

  SerialRowRunner runner;
  FrameDecoder ownWay(entry, 1, runner);
  FrameDecoder peersWay(entry, 1, runner, Reconstruction::kThreeQuarters);
  for (size_t i = 0; i < sources.size(); ++i) {
    SCOPED_TRACE("picture " + std::to_string(i));
    const auto frame = frames.bytes().subspan(i * entry.frameBytes, entry.frameBytes);
    DnxhdPlanes ours(entry);
    DnxhdPlanes same(entry);
    ASSERT_EQ(ownWay.Decode(frame, Pictures::kAll, ours), kSuccessful);
    ASSERT_EQ(peersWay.Decode(frame, Pictures::kAll, same), kSuccessful);
    const std::vector<int> theirs = peers[i].samples();

    // With the peer's reconstruction of levels nothing but the rounding of transforms differs: by
    // one, where the exact value is the middle between two codes or close to it.
    const test::ExactJudgement judged = test::judgeBesidePeer(
        same.samples(), theirs, test::exactPlanes(entry, frame, Reconstruction::kThreeQuarters),
        entry.depth);
    EXPECT_LE(judged.ownError, entry.depth == 8 ? 0.55 : 0.66);
    EXPECT_LE(judged.largest, 1);
    EXPECT_LE(judged.fromHalf, entry.depth == 8 ? 0.1 : 0.16);
    // Noise of black and white alone, coarsely quantised, is full of exact halves; and it is what
    // doesn't fit the peer in 10 bits.
    const bool extremes = i == 4;
    const SampleDifference rounding = sampleDifference(same.samples(), theirs, entry.depth);
    EXPECT_GT(rounding.psnr, extremes ? 50.0 : 60.0);
    EXPECT_LE(judged.crowded, same.samples().size() / (extremes ? 15 : 5000));

    // By our own rule the samples are as exact.
    if (i % 2 == 0) {
      const test::ExactJudgement own = test::judgeBesidePeer(
          ours.samples(), ours.samples(), test::exactPlanes(entry, frame, Reconstruction::kHalfway),
          entry.depth);
      EXPECT_LE(own.ownError, entry.depth == 8 ? 0.55 : 0.66);
    }
    const SampleDifference rule = sampleDifference(ours.samples(), theirs, entry.depth);
    const SampleDifference loss =
        sampleDifference(ours.samples(), sources[i].samples(), entry.depth);
    std::printf(
        "%u picture %zu: loss %.2f dB; same rule: at most %d, %.2f dB, %zu samples by one, %.3f "
        "from a half, %zu crowded; own rule: at most %d, %.2f dB\n",
        one.id, i, loss.psnr, rounding.largest, rounding.psnr, judged.differing, judged.fromHalf,
        judged.crowded, rule.largest, rule.psnr);
  }
}

INSTANTIATE_TEST_SUITE_P(Ids, DnxhdEncoder, testing::Range(size_t{0}, test::dnxhdPeerIds().size()),
                         [](const auto& one) {
                           return "Id" + std::to_string(test::dnxhdPeerIds()[one.param].id);
                         });

}  // namespace
}  // namespace zel::dnxhd
