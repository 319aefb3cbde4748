// Frames of an independent encoder, FFmpeg's, run as a program: every macroblock row of them has to
// read to its end, and the samples to be those of its own decoder.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/external_program.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/bitstream/vcid_table.h"

namespace zel::dnxhd {
namespace {

struct Case {
  uint32_t id;
  const char* bitRate;
  const char* size;
  const char* pixels;
  const char* rate;
  bool interlaced;
};

// What makes the encoder choose each id that it writes.
constexpr Case kCases[] = {
    {1235, "185M", "1920x1080", "yuv422p10", "25", false},
    {1237, "120M", "1920x1080", "yuv422p", "25", false},
    {1238, "185M", "1920x1080", "yuv422p", "25", false},
    {1241, "185M", "1920x1080", "yuv422p10", "25", true},
    {1242, "120M", "1920x1080", "yuv422p", "25", true},
    {1243, "185M", "1920x1080", "yuv422p", "25", true},
    {1250, "90M", "1280x720", "yuv422p10", "25", false},
    {1251, "90M", "1280x720", "yuv422p", "25", false},
    {1252, "60M", "1280x720", "yuv422p", "25", false},
    {1253, "36M", "1920x1080", "yuv422p", "25", false},
};

// Macroblock decision modes. The third, "rd", takes tens of seconds a frame.
constexpr const char* kDecisions[] = {"simple", "bits"};

using test::AlignedBytes;
using test::DnxhdPlanes;
using test::fileContents;
using test::SampleDifference;
using test::sampleDifference;

class DnxhdBitStream : public testing::TestWithParam<int> {};

TEST_P(DnxhdBitStream, EveryRowOfAnotherEncodersFramesReadsToItsEnd) {
  const std::string ffmpeg = test::programPath("ffmpeg");
  if (ffmpeg.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const Case& one = kCases[GetParam() / 2];
  const test::ScratchFolder folder;
  const std::string file = folder.file("frames.dnxhd");
  const std::string source = std::string("testsrc2=size=") + one.size + ":rate=" + one.rate;
  std::vector<std::string> arguments = {
      "-v",        "error",     "-f",   "lavfi",
      "-i",        source,      "-vf",  "noise=alls=12:allf=t",
      "-pix_fmt",  one.pixels,  "-c:v", "dnxhd",
      "-b:v",      one.bitRate, "-mbd", kDecisions[GetParam() % 2],
      "-frames:v", "2"};
  if (one.interlaced) arguments.insert(arguments.end(), {"-flags", "+ildct"});
  arguments.insert(arguments.end(), {"-f", "rawvideo", file});
  const test::ProgramResult run = test::runProgram(ffmpeg, arguments);
  ASSERT_EQ(run.exitCode, 0) << run.output;

  const std::vector<char> all = fileContents(file);
  const VCIDEntry& entry = *FindEntry(one.id);
  ASSERT_EQ(all.size(), size_t{2} * entry.frameBytes);
  const std::string pictures = folder.file("pictures.yuv");
  const test::ProgramResult decoded = test::runProgram(
      ffmpeg, {"-v", "error", "-f", "dnxhd", "-i", file, "-f", "rawvideo", pictures});
  ASSERT_EQ(decoded.exitCode, 0) << decoded.output;
  const std::vector<char> raw = fileContents(pictures);
  const size_t pictureBytes = DnxhdPlanes(entry).rawSize();
  ASSERT_EQ(raw.size(), 2 * pictureBytes);

  SerialRowRunner runner;
  FrameDecoder decoder(entry, 1, runner);
  FrameDecoder peersWay(entry, 1, runner, Reconstruction::kThreeQuarters);
  AlignedBytes frame(entry.frameBytes);
  for (size_t at = 0; at < all.size(); at += entry.frameBytes) {
    std::copy_n(all.begin() + static_cast<ptrdiff_t>(at), entry.frameBytes, frame.bytes().begin());
    EXPECT_EQ(frame.bytes()[42] * 256u + frame.bytes()[43], one.id);
    EXPECT_EQ(CheckFrame(one.id, frame.bytes()), kSuccessful);

    DnxhdPlanes peerPlanes(entry);
    peerPlanes.readRaw(raw.data() + at / entry.frameBytes * pictureBytes);
    const std::vector<int> peer = peerPlanes.samples();
    // With the peer's reconstruction of levels nothing but the rounding of transforms differs.
    DnxhdPlanes same(entry);
    ASSERT_EQ(peersWay.Decode(frame.bytes(), Pictures::kAll, same), kSuccessful);
    const SampleDifference rounding = sampleDifference(same.samples(), peer, entry.depth);
    EXPECT_LE(rounding.largest, 1);
    EXPECT_GT(rounding.psnr, 60.0);
    // With ours a quarter of a step lies between the two, which shows, but not to the eye.
    DnxhdPlanes ours(entry);
    ASSERT_EQ(decoder.Decode(frame.bytes(), Pictures::kAll, ours), kSuccessful);
    const SampleDifference rule = sampleDifference(ours.samples(), peer, entry.depth);
    EXPECT_GT(rule.psnr, 40.0);
    EXPECT_LT(rule.psnr, rounding.psnr);
    std::printf("%u: same rule: at most %d, %.2f dB; own rule: at most %d, %.2f dB\n", one.id,
                rounding.largest, rounding.psnr, rule.largest, rule.psnr);

    // A row table that is off by a word is found out.
    frame.bytes()[368 + 4 * 7 + 3] ^= 4;
    EXPECT_NE(CheckFrame(one.id, frame.bytes()), kSuccessful);
    EXPECT_EQ(CheckFrame(77, frame.bytes()), kErrorIdNotInList);
    EXPECT_EQ(CheckFrame(one.id, frame.bytes().subspan(1)), kErrorInputUnaligned);
  }
}

std::string nameOf(const testing::TestParamInfo<int>& info) {
  return "Id" + std::to_string(kCases[info.param / 2].id) + "_" + kDecisions[info.param % 2];
}

INSTANTIATE_TEST_SUITE_P(Cases, DnxhdBitStream,
                         testing::Range(0, static_cast<int>(std::size(kCases)) * 2), nameOf);

}  // namespace
}  // namespace zel::dnxhd
