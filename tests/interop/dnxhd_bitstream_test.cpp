// Frames of an independent encoder, FFmpeg's, run as a program: every macroblock row of them has to
// read to its end, and the samples to be those of its own decoder.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tests/support/dnxhd_exact.h"
#include "tests/support/dnxhd_peer.h"
#include "tests/support/dnxhd_planes.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/formatters/frame_formatter.h"

namespace zel::dnxhd {
namespace {

using test::AlignedBytes;
using test::DnxhdPeer;
using test::DnxhdPeerId;
using test::dnxhdPeerIds;
using test::DnxhdPlanes;
using test::SampleDifference;
using test::sampleDifference;

// Macroblock decision modes. In the last it tries every step for every macroblock, which takes tens
// of seconds a frame unless it is kept to the steps that are of use.
struct Decision {
  const char* name;
  const char* coarsest;  // step
  bool gaps;             // rows may end before the next begins
};
constexpr Decision kDecisions[] = {
    {"simple", "1024", false}, {"bits", "1024", false}, {"rd", "64", true}};

// 1254 is the one whose peer's frames have to fit half of their room.
std::string sourceFor(uint32_t id) {
  const std::string drawn = "testsrc2=size=1920x1080:rate=25";
  return drawn + (id == 1254 ? ",gblur=sigma=16" : ",noise=alls=12:allf=t");
}

class DnxhdBitStream : public testing::TestWithParam<size_t> {
 protected:
  // What has to hold for a frame of the peer's.
  void judge(const VCIDEntry& entry, const Decision& decision, std::span<const uint8_t> bytes,
             const std::vector<int>& theirs) {
    AlignedBytes frame(entry.frameBytes);
    std::copy(bytes.begin(), bytes.end(), frame.bytes().begin());
    EXPECT_EQ(frame.bytes()[42] * 256u + frame.bytes()[43], entry.compressionId);
    // In 4:4:4, too, it leaves zeros behind every row: 16 bits a macroblock.
    const ResultWord checked = CheckFrame(entry.compressionId, frame.bytes());
    if (decision.gaps || IsRgbFamily(entry)) {
      EXPECT_TRUE(checked == kSuccessful || checked == kErrorInMacroblockIndices) << checked;
    } else {
      EXPECT_EQ(checked, kSuccessful);
    }

    // With the peer's reconstruction of levels nothing but the rounding of transforms differs: by
    // one, where the exact value is the middle between two codes or close to it.
    SerialRowRunner runner;
    FrameDecoder peersWay(entry, 1, runner, Reconstruction::kThreeQuarters);
    DnxhdPlanes same(entry);
    ASSERT_EQ(peersWay.Decode(frame.bytes(), Pictures::kAll, same), kSuccessful);
    const test::ExactJudgement judged = test::judgeBesidePeer(
        same.samples(), theirs,
        test::exactPlanes(entry, frame.bytes(), Reconstruction::kThreeQuarters), entry.depth);
    EXPECT_LE(judged.ownError, entry.depth == 8 ? 0.55 : 0.66);
    EXPECT_LE(judged.largest, 1);
    EXPECT_LE(judged.fromHalf, entry.depth == 8 ? 0.1 : 0.16);
    const SampleDifference rounding = sampleDifference(same.samples(), theirs, entry.depth);
    EXPECT_GT(rounding.psnr, 60.0);
    // With ours a quarter of a step lies between the two, which shows, but not to the eye.
    DnxhdPlanes ours(entry);
    FrameDecoder decoder(entry, 1, runner);
    ASSERT_EQ(decoder.Decode(frame.bytes(), Pictures::kAll, ours), kSuccessful);
    const SampleDifference rule = sampleDifference(ours.samples(), theirs, entry.depth);
    EXPECT_GT(rule.psnr, 40.0);
    EXPECT_LT(rule.psnr, rounding.psnr);
    std::printf(
        "%u %s: same rule: at most %d, %.2f dB, %zu samples by one, %.3f from a half, %zu crowded; "
        "own rule: at most %d, %.2f dB\n",
        entry.compressionId, decision.name, rounding.largest, rounding.psnr, judged.differing,
        judged.fromHalf, judged.crowded, rule.largest, rule.psnr);

    // A row table that is off by a word is found out.
    frame.bytes()[368 + 4 * 7 + 3] ^= 4;
    EXPECT_NE(CheckFrame(entry.compressionId, frame.bytes()), kSuccessful);
    EXPECT_EQ(CheckFrame(77, frame.bytes()), kErrorIdNotInList);
    EXPECT_EQ(CheckFrame(entry.compressionId, frame.bytes().subspan(1)), kErrorInputUnaligned);
  }
};

TEST_P(DnxhdBitStream, AnotherEncodersFramesDecodeAsItDecodesThem) {
  const DnxhdPeer peer;
  if (!peer.installed()) GTEST_SKIP() << "ffmpeg is not installed";
  const DnxhdPeerId& one = dnxhdPeerIds()[GetParam()];
  const VCIDEntry& entry = *FindEntry(one.id);
  std::vector<std::vector<uint8_t>> frames;
  for (const Decision& decision : kDecisions) {
    SCOPED_TRACE(decision.name);
    const std::vector<uint8_t> frame =
        peer.encode(one, sourceFor(one.id), 1, {"-mbd", decision.name, "-qmax", decision.coarsest});
    ASSERT_EQ(frame.size(), entry.frameBytes);
    // Modes may come to the same.
    if (std::find(frames.begin(), frames.end(), frame) != frames.end()) {
      std::printf("%u %s: a frame that was judged already\n", one.id, decision.name);
      continue;
    }
    frames.push_back(frame);
    const std::vector<DnxhdPlanes> pictures = peer.decode(entry, frame);
    ASSERT_EQ(pictures.size(), 1u);
    ASSERT_NO_FATAL_FAILURE(judge(entry, decision, frame, pictures[0].samples()));
  }
}

std::string nameOf(const testing::TestParamInfo<size_t>& info) {
  return "Id" + std::to_string(dnxhdPeerIds()[info.param].id);
}

INSTANTIATE_TEST_SUITE_P(Ids, DnxhdBitStream, testing::Range(size_t{0}, dnxhdPeerIds().size()),
                         nameOf);

// The dequantiser leaves its rounding term out where weight times step is the divisor, the peer
// where the weight alone is. That is set apart here from all else that differs: by itself it moves
// a coefficient by one at most, and only in blocks that hold one of weight 32; the others stay as
// the peer has them.
class DnxhdException : public testing::TestWithParam<size_t> {};

TEST_P(DnxhdException, MovesCoefficientsOfOneWeightByOne) {
  const DnxhdPeer peer;
  if (!peer.installed()) GTEST_SKIP() << "ffmpeg is not installed";
  const DnxhdPeerId& one = dnxhdPeerIds()[GetParam()];
  const VCIDEntry& entry = *FindEntry(one.id);
  const std::vector<uint8_t> frame = peer.encode(one, sourceFor(one.id), 1, {});
  ASSERT_EQ(frame.size(), entry.frameBytes);
  const std::vector<DnxhdPlanes> pictures = peer.decode(entry, frame);
  ASSERT_EQ(pictures.size(), 1u);
  const std::vector<int> theirs = pictures[0].samples();
  const test::OwnException own = test::exactWithOwnException(entry, frame);
  const double top = (1 << entry.depth) - 1;
  const double room = (1 << (entry.depth - 1)) * 2.8284272;
  size_t touched = 0;
  double farthest = 0;  // of exact samples from the peer's, in touched blocks,
  double rest = 0;      // and in the others
  for (size_t i = 0; i < theirs.size(); ++i) {
    // What doesn't fit the peer in 10 bits is another matter.
    if (entry.depth == 10 && own.planes.between[i] > room) continue;
    const double error = std::abs(std::clamp(own.planes.samples[i], 0.0, top) - theirs[i]);
    touched += own.touched[i] ? 1 : 0;
    double& worst = own.touched[i] ? farthest : rest;
    worst = std::max(worst, error);
  }
  std::printf(
      "%u: of %zu levels %zu are reconstructed otherwise, in blocks of %.2f %% of the samples; "
      "there at most %.3f from the peer's, elsewhere %.3f\n",
      one.id, own.levels, own.changed,
      100.0 * static_cast<double>(touched) / static_cast<double>(theirs.size()), farthest, rest);
  EXPECT_LE(rest, 0.61);
  // Each moves its block's samples by a quarter at most, and few blocks have several.
  EXPECT_LE(farthest, rest + (entry.depth == 8 ? 0.5 : 1.5));
  // It takes a weight of 32 where 32 is the divisor: not in 4:2:2 of 10 bits, where that is 8.
  const bool divisor32 = entry.depth == 8 || IsRgbFamily(entry);
  if (!divisor32) {
    EXPECT_EQ(own.changed, 0u);
  }
  if (one.id == 1237 || one.id == 1238 || one.id == 1243 || one.id == 1256) {
    EXPECT_GT(own.changed, 0u);
  }
  EXPECT_LE(own.changed, own.levels / (IsRgbFamily(entry) ? 5 : 20));
}

INSTANTIATE_TEST_SUITE_P(Ids, DnxhdException, testing::Range(size_t{0}, dnxhdPeerIds().size()),
                         nameOf);

// Macroblocks of 4:4:4 whose colour flag is clear are G, B and R, those with the flag set are Y, Cb
// and Cr: what the peer's encoder writes for each, and how its decoder reads it.
TEST(DnxhdColourFlag, IsClearInFramesOfGreenBlueAndRed) {
  const DnxhdPeer peer;
  if (!peer.installed()) GTEST_SKIP() << "ffmpeg is not installed";
  const auto ids = dnxhdPeerIds();
  const DnxhdPeerId& id =
      *std::find_if(ids.begin(), ids.end(), [](const DnxhdPeerId& one) { return one.id == 1256; });
  const VCIDEntry& entry = *FindEntry(1256);
  // Saturated colours: components are nowhere alike.
  const std::string bars = "smptehdbars=size=1920x1080:rate=25,format=yuv444p10le";
  FrameFormat words;
  words.pixelLayout = kLayoutRgb;
  words.formatWord = 4;  // R, G, B, A
  words.sampleType = kSamples10_6;
  std::vector<std::vector<uint16_t>> shown;
  for (const bool rgb : {true, false}) {
    const std::vector<uint8_t> frame =

        peer.encode(id, rgb ? bars + ",scale=in_color_matrix=bt709,format=gbrp10le" : bars, 1, {},
                    rgb ? "gbrp10le" : "yuv444p10le");
    ASSERT_EQ(frame.size(), entry.frameBytes);
    EXPECT_EQ(frame[kHeaderBytes + 1] >> 4 & 1, rgb ? 0 : 1);
    // The planes as coded are the peer's own, in its order G, B, R.
    const std::vector<DnxhdPlanes> theirs = peer.decode(entry, frame);
    ASSERT_EQ(theirs.size(), 1u);
    SerialRowRunner runner;
    DnxhdPlanes ours(entry);
    FrameDecoder peersWay(entry, 1, runner, Reconstruction::kThreeQuarters);
    ASSERT_EQ(peersWay.Decode(frame, Pictures::kAll, ours), kSuccessful);
    EXPECT_GT(sampleDifference(ours.samples(), theirs[0].samples(), 10).psnr, 60.0);
    // And what is shown of it.
    std::unique_ptr<DecodeFormatter> formatter;
    ASSERT_EQ(DecodeFormatter::Make(entry, words, formatter), kSuccessful);
    shown.emplace_back(BufferBytes(entry, words) / 2);
    FrameTaker taker(*formatter, shown.back().data());
    ASSERT_EQ(FrameDecoder(entry, 1, runner).Decode(frame, Pictures::kAll, taker), kSuccessful);
    if (!rgb) continue;
    std::vector<int> planes;
    for (const size_t plane : {size_t{2}, size_t{0}, size_t{1}}) {
      const std::vector<int>& one = theirs[0].plane(plane);
      planes.insert(planes.end(), one.begin(), one.end());
    }
    std::vector<int> pixels(planes.size());
    for (size_t i = 0; i < planes.size(); ++i) {
      const size_t pixel = i % (planes.size() / 3);
      pixels[i] = shown.back()[4 * pixel + i / (planes.size() / 3)] >> 6;
    }
    // Through Y, Cb and Cr of 10 bits, as all of 4:4:4 goes.
    EXPECT_GT(sampleDifference(pixels, planes, 10).psnr, 50.0);
  }
  // Both forms of the same bars look the same.
  std::vector<int> first, second;
  for (size_t i = 0; i < shown[0].size(); ++i) {
    first.push_back(shown[0][i] >> 6);
    second.push_back(shown[1][i] >> 6);
  }
  const double alike = sampleDifference(first, second, 10).psnr;
  std::printf("both forms: %.2f dB between them\n", alike);
  EXPECT_GT(alike, 40.0);
}

}  // namespace
}  // namespace zel::dnxhd
