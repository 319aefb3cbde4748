// Frames of an independent encoder, FFmpeg's, run as a program: every macroblock row of them has to
// read to its end.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "tests/support/external_program.h"
#include "zel/dnxhd/bitstream/check_frame.h"
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

constexpr std::align_val_t kAlignment{16};

class AlignedFrame {
 public:
  explicit AlignedFrame(size_t size)
      : bytes_(static_cast<uint8_t*>(::operator new(size, kAlignment))), size_(size) {}
  ~AlignedFrame() { ::operator delete(bytes_, kAlignment); }
  AlignedFrame(const AlignedFrame&) = delete;
  AlignedFrame& operator=(const AlignedFrame&) = delete;
  std::span<uint8_t> bytes() const { return {bytes_, size_}; }

 private:
  uint8_t* bytes_;
  size_t size_;
};

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

  std::ifstream in(file, std::ios::binary);
  const std::vector<char> all{std::istreambuf_iterator<char>(in), {}};
  const VCIDEntry& entry = *FindEntry(one.id);
  ASSERT_EQ(all.size(), size_t{2} * entry.frameBytes);
  AlignedFrame frame(entry.frameBytes);
  for (size_t at = 0; at < all.size(); at += entry.frameBytes) {
    std::copy_n(all.begin() + static_cast<ptrdiff_t>(at), entry.frameBytes, frame.bytes().begin());
    EXPECT_EQ(frame.bytes()[42] * 256u + frame.bytes()[43], one.id);
    EXPECT_EQ(CheckFrame(one.id, frame.bytes()), kSuccessful);
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
