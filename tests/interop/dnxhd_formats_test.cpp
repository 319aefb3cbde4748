// What the formatters make of decoded frames, beside what an independent program, FFmpeg, makes of
// the same frames in the same layouts.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/formatters/frame_formatter.h"

namespace zel::dnxhd {
namespace {

struct Case {
  uint32_t id;
  const char* bitRate;
  const char* size;
  const char* pixels;
  bool interlaced;
  uint32_t sampleType;
};

constexpr Case kCases[] = {
    {1237, "120M", "1920x1080", "yuv422p", false, kSamples8},
    {1242, "120M", "1920x1080", "yuv422p", true, kSamples8},
    {1252, "60M", "1280x720", "yuv422p", false, kSamples8},
    {1244, "120M", "1440x1080", "yuv422p", true, kSamples8},
    {1258, "42M", "960x720", "yuv422p", false, kSamples8},
    {1259, "84M", "1440x1080", "yuv422p", false, kSamples8},
    {1235, "185M", "1920x1080", "yuv422p10", false, kSamplesV210},
    {1241, "185M", "1920x1080", "yuv422p10", true, kSamplesV210},
    {1250, "90M", "1280x720", "yuv422p10", false, kSamplesV210},
};

// Codes of a line: Cb, Y, Cr, Y.
std::vector<int> codesOf(const uint8_t* line, uint32_t sampleType, size_t pixels) {
  std::vector<int> codes;
  for (size_t i = 0; i < 2 * pixels; ++i) {
    if (sampleType == kSamples8) {
      codes.push_back(line[i]);
      continue;
    }
    uint32_t word = 0;
    std::memcpy(&word, line + i / 3 * 4, 4);
    // The peer keeps out of the codes that serial interfaces reserve.
    codes.push_back(std::clamp(static_cast<int>(word >> (10 * (i % 3)) & 1023), 4, 1019));
  }
  return codes;
}

struct Difference {
  int largest = 0;
  double squares = 0;
  size_t samples = 0;
  double psnr(double peak) const {
    return 10 * std::log10(peak * peak * static_cast<double>(samples) / (squares + 1e-9));
  }
};

Difference differenceOf(const uint8_t* a, const uint8_t* b, const FrameRaster& raster,
                        uint32_t sampleType) {
  Difference difference;
  for (size_t y = 0; y < raster.lines; ++y) {
    const size_t at = y * static_cast<size_t>(raster.rowBytes);
    const std::vector<int> first = codesOf(a + at, sampleType, raster.width);
    const std::vector<int> second = codesOf(b + at, sampleType, raster.width);
    for (size_t i = 0; i < first.size(); ++i) {
      const int error = std::abs(first[i] - second[i]);
      difference.largest = std::max(difference.largest, error);
      difference.squares += double{1} * error * error;
    }
    difference.samples += first.size();
  }
  return difference;
}

class DnxhdFormats : public testing::TestWithParam<size_t> {
 protected:
  // Two frames of the case; false where that could not be made.
  void encode(const Case& one) {
    file_ = folder_.file("frames.dnxhd");
    std::vector<std::string> arguments = {
        "-v",        "error",
        "-f",        "lavfi",
        "-i",        std::string("testsrc2=rate=25:size=") + one.size,
        "-vf",       "noise=alls=12:allf=t",
        "-pix_fmt",  one.pixels,
        "-c:v",      "dnxhd",
        "-b:v",      one.bitRate,
        "-frames:v", "2"};
    if (one.interlaced) arguments.insert(arguments.end(), {"-flags", "+ildct"});
    arguments.insert(arguments.end(), {"-f", "rawvideo", file_});
    const test::ProgramResult run = test::runProgram(test::programPath("ffmpeg"), arguments);
    ASSERT_EQ(run.exitCode, 0) << run.output;
    frames_ = test::fileBytes(file_);
    ASSERT_EQ(frames_.size(), size_t{2} * FindEntry(one.id)->frameBytes);
  }

  std::vector<uint8_t> peers(const Case& one, const std::string& filter) {
    const std::string out = folder_.file("pictures.raw");
    std::vector<std::string> arguments = {"-v", "error", "-y", "-f", "dnxhd", "-i", file_};
    if (!filter.empty()) arguments.insert(arguments.end(), {"-vf", filter});
    if (one.sampleType == kSamplesV210) {
      arguments.insert(arguments.end(), {"-c:v", "v210"});
    } else {
      arguments.insert(arguments.end(), {"-pix_fmt", "uyvy422"});
    }
    arguments.insert(arguments.end(), {"-f", "rawvideo", out});
    const test::ProgramResult run = test::runProgram(test::programPath("ffmpeg"), arguments);
    EXPECT_EQ(run.exitCode, 0) << run.output;
    return test::fileBytes(out);
  }

  // The frames one behind the other, in buffers of the format.
  std::vector<uint8_t> decoded(const Case& one, const FrameFormat& format) {
    const VCIDEntry& entry = *FindEntry(one.id);
    SerialRowRunner runner;
    FrameDecoder decoder(entry, format.resolution, runner, Reconstruction::kThreeQuarters);
    std::unique_ptr<DecodeFormatter> formatter;
    EXPECT_EQ(DecodeFormatter::Make(entry, format, formatter), kSuccessful);
    const size_t size = BufferBytes(entry, format);
    std::vector<uint8_t> out(2 * size);
    for (size_t i = 0; i < 2; ++i) {
      FrameTaker taker(*formatter, out.data() + i * size);
      EXPECT_EQ(decoder.Decode(std::span(frames_).subspan(i * entry.frameBytes, entry.frameBytes),
                               WantedPictures(format), taker),
                kSuccessful);
    }
    return out;
  }

  const test::ScratchFolder folder_;
  std::string file_;
  std::vector<uint8_t> frames_;
};

TEST_P(DnxhdFormats, PicturesAreThoseOfAnotherDecoder) {
  if (test::programPath("ffmpeg").empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const Case& one = kCases[GetParam()];
  ASSERT_NO_FATAL_FAILURE(encode(one));
  FrameFormat format;
  format.sampleType = one.sampleType;
  format.rasterWord = 4;
  const FrameRaster raster = RasterOf(*FindEntry(one.id), format);
  const std::vector<uint8_t> peer = peers(one, "");
  const std::vector<uint8_t> ours = decoded(one, format);
  ASSERT_EQ(peer.size(), ours.size());
  const size_t size = ours.size() / 2;
  for (size_t i = 0; i < 2; ++i) {
    const Difference difference =
        differenceOf(ours.data() + i * size, peer.data() + i * size, raster, one.sampleType);
    EXPECT_LE(difference.largest, 1);
    EXPECT_GT(difference.psnr(one.sampleType == kSamples8 ? 255 : 1023), 60);
  }
}

class DnxhdThinRasters : public DnxhdFormats {};

// Stretched by our filter and by one of the peer's. Both are good ones, so that they differ little.
TEST_P(DnxhdThinRasters, ThinRastersAreStretchedAsOthersStretchThem) {
  const Case& one = kCases[GetParam()];
  const VCIDEntry& entry = *FindEntry(one.id);
  if (test::programPath("ffmpeg").empty()) GTEST_SKIP() << "ffmpeg is not installed";
  ASSERT_NO_FATAL_FAILURE(encode(one));
  FrameFormat format;
  const FrameRaster raster = RasterOf(entry, format);
  ASSERT_EQ(raster.width, FullWidthOf(entry));
  const std::vector<uint8_t> ours = decoded(one, format);
  const std::vector<uint8_t> peer =
      peers(one, "scale=" + std::to_string(raster.width) + ":" + std::to_string(raster.lines) +
                     ":flags=lanczos+accurate_rnd");
  ASSERT_EQ(peer.size(), ours.size());
  const Difference difference = differenceOf(ours.data(), peer.data(), raster, kSamples8);
  std::printf("%u: %.2f dB between the two\n", one.id, difference.psnr(255));
  EXPECT_GT(difference.psnr(255), 40);
}

class DnxhdPreviews : public DnxhdFormats {};

// Previews beside the peer's reduction of its full picture.
TEST_P(DnxhdPreviews, PreviewsAreThePictureMadeSmall) {
  if (test::programPath("ffmpeg").empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const Case& one = kCases[GetParam()];
  ASSERT_NO_FATAL_FAILURE(encode(one));
  const VCIDEntry& entry = *FindEntry(one.id);
  for (const uint32_t resolution : {2u, 4u}) {
    FrameFormat format;
    format.resolution = resolution;
    const FrameRaster raster = RasterOf(entry, format);
    const std::vector<uint8_t> ours = decoded(one, format);
    const std::string interlaced = one.interlaced ? ":interl=1" : "";
    const std::vector<uint8_t> peer =
        peers(one, "scale=" + std::to_string(raster.width) + ":" + std::to_string(raster.lines) +
                       ":flags=area" + interlaced);
    ASSERT_EQ(peer.size(), ours.size());
    const Difference difference = differenceOf(ours.data(), peer.data(), raster, kSamples8);
    std::printf("%u at 1/%u: %.2f dB between the two\n", one.id, resolution, difference.psnr(255));
    EXPECT_GT(difference.psnr(255), 35);
  }
}

std::string nameOf(const testing::TestParamInfo<size_t>& info) {
  return "Id" + std::to_string(kCases[info.param].id);
}

INSTANTIATE_TEST_SUITE_P(All, DnxhdFormats, testing::Range(size_t{0}, std::size(kCases)), nameOf);
INSTANTIATE_TEST_SUITE_P(Thin, DnxhdThinRasters, testing::Range(size_t{3}, size_t{6}), nameOf);
INSTANTIATE_TEST_SUITE_P(Bytes, DnxhdPreviews, testing::Range(size_t{0}, size_t{6}), nameOf);

}  // namespace
}  // namespace zel::dnxhd
