// Frames of an independent encoder, FFmpeg's, run as a program: every macroblock row of them has to
// read to its end, and the samples to be those of its own decoder.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <span>
#include <string>
#include <vector>

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

// 4:2:2 planes of 16-bit samples, lines of two fields interleaved.
class PlanarFrame : public RowTaker {
 public:
  explicit PlanarFrame(const VCIDEntry& entry) : geometry_(GeometryOf(entry)), depth_(entry.depth) {
    size_t at = 0;
    for (size_t plane = 0; plane < 3; ++plane) {
      planeAt_[plane] = at;
      at += width(plane) * geometry_.lines * geometry_.pictures;
    }
    samples_.resize(at);
  }

  const std::vector<int>& samples() const { return samples_; }

  ResultWord TakeRow(const DecodedRow& row) override {
    constexpr size_t kBlockAt[3][4] = {{0, 64, 128, 192}, {256, 320}, {384, 448}};
    for (size_t column = 0; column < row.mbCols; ++column) {
      const int16_t* const macroblock = row.samples + column * row.blocks * 64;
      for (size_t plane = 0; plane < 3; ++plane) {
        const size_t across = plane == 0 ? 2 : 1;
        for (size_t block = 0; block < 2 * across; ++block) {
          put(row, plane, (column * across + block % across) * 8, row.row * 16 + block / across * 8,
              macroblock + kBlockAt[plane][block]);
        }
      }
    }
    return kSuccessful;
  }

 private:
  size_t width(size_t plane) const { return plane == 0 ? geometry_.width : geometry_.width / 2; }

  void put(const DecodedRow& row, size_t plane, size_t x0, size_t y0, const int16_t* block) {
    for (size_t y = y0; y < std::min<size_t>(y0 + 8, geometry_.lines); ++y) {
      const size_t line = y * geometry_.pictures + row.picture;
      int* const out = samples_.data() + planeAt_[plane] + line * width(plane) + x0;
      for (size_t x = 0; x < 8; ++x) {
        const int centred = block[8 * (y - y0) + x];
        out[x] = std::clamp(centred + (1 << (depth_ - 1)), 0, (1 << depth_) - 1);
      }
    }
  }

  const PictureGeometry geometry_;
  const int depth_;
  size_t planeAt_[3] = {};
  std::vector<int> samples_;
};

struct Difference {
  int largest = 0;
  double psnr = 0;
};

Difference differenceOf(const std::vector<int>& a, const std::vector<int>& b, int depth) {
  Difference difference;
  double squares = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const int error = std::abs(a[i] - b[i]);
    difference.largest = std::max(difference.largest, error);
    squares += double{1} * error * error;
  }
  const double peak = (1 << depth) - 1;
  difference.psnr = 10 * std::log10(peak * peak * static_cast<double>(a.size()) / (squares + 1e-9));
  return difference;
}

std::vector<char> contentsOf(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<int> samplesOf(const char* bytes, size_t count, int depth) {
  std::vector<int> samples(count);
  for (size_t i = 0; i < count; ++i) {
    const auto byte = [&](size_t at) { return static_cast<int>(static_cast<uint8_t>(bytes[at])); };
    samples[i] = depth == 8 ? byte(i) : byte(2 * i) | byte(2 * i + 1) << 8;
  }
  return samples;
}

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

  const std::vector<char> all = contentsOf(file);
  const VCIDEntry& entry = *FindEntry(one.id);
  ASSERT_EQ(all.size(), size_t{2} * entry.frameBytes);
  const std::string pictures = folder.file("pictures.yuv");
  const test::ProgramResult decoded = test::runProgram(
      ffmpeg, {"-v", "error", "-f", "dnxhd", "-i", file, "-f", "rawvideo", pictures});
  ASSERT_EQ(decoded.exitCode, 0) << decoded.output;
  const std::vector<char> raw = contentsOf(pictures);
  const size_t pictureSamples = size_t{2} * entry.width * entry.lines;
  const size_t pictureBytes = pictureSamples * (entry.depth == 8 ? 1 : 2);
  ASSERT_EQ(raw.size(), 2 * pictureBytes);

  SerialRowRunner runner;
  FrameDecoder decoder(entry, 1, runner);
  FrameDecoder peersWay(entry, 1, runner, Reconstruction::kThreeQuarters);
  AlignedFrame frame(entry.frameBytes);
  for (size_t at = 0; at < all.size(); at += entry.frameBytes) {
    std::copy_n(all.begin() + static_cast<ptrdiff_t>(at), entry.frameBytes, frame.bytes().begin());
    EXPECT_EQ(frame.bytes()[42] * 256u + frame.bytes()[43], one.id);
    EXPECT_EQ(CheckFrame(one.id, frame.bytes()), kSuccessful);

    const std::vector<int> peer =
        samplesOf(raw.data() + at / entry.frameBytes * pictureBytes, pictureSamples, entry.depth);
    // With the peer's reconstruction of levels nothing but the rounding of transforms differs.
    PlanarFrame same(entry);
    ASSERT_EQ(peersWay.Decode(frame.bytes(), Pictures::kAll, same), kSuccessful);
    const Difference rounding = differenceOf(same.samples(), peer, entry.depth);
    EXPECT_LE(rounding.largest, 1);
    EXPECT_GT(rounding.psnr, 60.0);
    // With ours a quarter of a step lies between the two, which shows, but not to the eye.
    PlanarFrame ours(entry);
    ASSERT_EQ(decoder.Decode(frame.bytes(), Pictures::kAll, ours), kSuccessful);
    const Difference rule = differenceOf(ours.samples(), peer, entry.depth);
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
