// What the encoder writes, judged by a decoder and an analyser that share nothing with it:
// FFmpeg's, run as programs.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/encoder_consumer.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/test_pictures.h"
#include "zel/encoder/x265_encoder_api.h"
#include "zel/runtime/property_keys.h"

namespace Morvalen::Zel {
namespace {

using zel::test::EncoderConsumer;
using zel::test::TestPictures;

constexpr int kCount = 40;
constexpr int64_t kFrameDuration = 1001;
constexpr int64_t kTimeScale = 30000;

enum Method { kAverage = 0, kQuantizer = 1, kRateFactor = 2, kConstant = 3 };

class HevcEncoderInterop : public testing::Test {
 protected:
  void SetUp() override {
    ffmpeg_ = zel::test::programPath("ffmpeg");
    ffprobe_ = zel::test::programPath("ffprobe");
    if (ffmpeg_.empty() || ffprobe_.empty()) GTEST_SKIP() << "ffmpeg and ffprobe are not installed";
    consumer.setNumber(CodeBookProperty::X265Preset, 0);
  }

  void setMethod(int method) {
    consumer.setNumber(CodeBookProperty::X265RateControlMethod, method);
  }
  void setCommandLine(std::string const& line) {
    consumer.setText(CodeBookProperty::X265CommandLine, line);
  }

  // Encodes all pictures and writes the stream to a file.
  void encode(int64_t bitRate = 600000) {
    auto* const encoder = CMorvalenX265EncoderApi::Create(&consumer);
    EXPECT_GT(
        encoder->Begin(pictures.width(), pictures.height(), kFrameDuration, kTimeScale, 2, bitRate),
        0);
    for (int i = 0; i < kCount; ++i) {
      EXPECT_EQ(encoder->Encode(pictures.make(i).data(), nullptr), 0);
    }
    for (int i = 0; i < kCount && consumer.samples.size() < kCount; ++i) {
      EXPECT_EQ(encoder->Encode(nullptr, nullptr), 0);
    }
    encoder->Release();
    ASSERT_EQ(consumer.samples.size(), size_t(kCount));
    std::vector<uint8_t> const bytes = consumer.stream();
    zel::test::writeFile(streamFile(), bytes);
  }

  std::string streamFile() const { return folder_.file("stream.hevc"); }

  std::string run(std::string const& program, std::vector<std::string> const& arguments) const {
    zel::test::ProgramResult const result = zel::test::runProgram(program, arguments);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return result.output;
  }

  // The decoded pictures in presentation order. The decoder must have had nothing to complain of.
  std::vector<std::vector<uint8_t>> decode() const {
    std::string const file = folder_.file("decoded.yuv");
    EXPECT_EQ(run(ffmpeg_, {"-v", "warning", "-err_detect", "explode", "-i", streamFile(), "-f",
                            "rawvideo", "-pix_fmt", "yuv420p", "-fps_mode", "passthrough", file}),
              "");
    std::ifstream in(file, std::ios::binary);
    std::vector<std::vector<uint8_t>> decoded;
    std::vector<uint8_t> picture(pictures.size());
    while (in.read(reinterpret_cast<char*>(picture.data()), std::streamsize(picture.size()))) {
      decoded.push_back(picture);
    }
    EXPECT_EQ(in.gcount(), 0) << "a piece of a picture at the end";
    return decoded;
  }

  // One entry of ffprobe's about the stream.
  std::string streamEntry(std::string const& entry) const {
    std::string const text =
        run(ffprobe_, {"-v", "error", "-show_entries", "stream=" + entry, "-of",
                       "default=noprint_wrappers=1:nokey=1", streamFile()});
    return text.substr(0, text.find('\n'));
  }

  // The picture types in presentation order.
  std::string pictureTypes() const {
    std::istringstream lines(run(ffprobe_, {"-v", "error", "-show_entries", "frame=pict_type",
                                            "-of", "default=noprint_wrappers=1", streamFile()}));
    std::string types;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("pict_type=")) types += line.back();
    }
    return types;
  }

  // All syntax elements outside the slice data, by name.
  std::string headerTrace() const {
    return run(ffmpeg_, {"-v", "verbose", "-i", streamFile(), "-c", "copy", "-bsf:v",
                         "trace_headers", "-f", "null", "-"});
  }

  // Every picture is there once, in order, and looks like its source.
  void expectDecodesTo(double leastPsnr) {
    std::vector<std::vector<uint8_t>> const decoded = decode();
    ASSERT_EQ(decoded.size(), size_t(kCount));
    double worst = 99.0;
    for (int i = 0; i < kCount; ++i) {
      EXPECT_EQ(pictures.readNumber(decoded[size_t(i)]), i);
      worst = std::min(worst, zel::test::psnr(pictures.make(i), decoded[size_t(i)]));
    }
    EXPECT_GT(worst, leastPsnr);
    RecordProperty("worst_psnr", std::to_string(worst));
  }

  void expectTimesAreWhole() {
    std::vector<int64_t> times;
    int64_t decodingTime = 0;
    for (auto const& sample : consumer.samples) {
      EXPECT_EQ(decodingTime + sample.compositionOffset, sample.pts);
      times.push_back(sample.pts);
      decodingTime += kFrameDuration;
    }
    std::sort(times.begin(), times.end());
    for (int i = 0; i < kCount; ++i) EXPECT_EQ(times[size_t(i)], i * kFrameDuration);
  }

  // `dependent` tells the same as the analyser's picture types.
  void expectMarksMatchPictureTypes() {
    std::string const types = pictureTypes();
    ASSERT_EQ(types.size(), size_t(kCount));
    for (auto const& sample : consumer.samples) {
      char const type = types[size_t(sample.pts / kFrameDuration)];
      EXPECT_EQ(sample.dependent, type == 'I' ? 0 : 1)
          << "picture " << sample.pts / kFrameDuration << " is " << type;
    }
  }

  TestPictures const pictures{192, 112};
  EncoderConsumer consumer;

 private:
  zel::test::ScratchFolder folder_;
  std::string ffmpeg_;
  std::string ffprobe_;
};

TEST_F(HevcEncoderInterop, AverageBitRateDecodes) {
  setMethod(kAverage);
  encode();
  expectDecodesTo(40.0);
  expectTimesAreWhole();
  expectMarksMatchPictureTypes();
}

TEST_F(HevcEncoderInterop, ConstantQuantizerDecodes) {
  setMethod(kQuantizer);
  consumer.setNumber(CodeBookProperty::X265Quantizer, 22);
  encode();
  expectDecodesTo(40.0);
  expectTimesAreWhole();
  expectMarksMatchPictureTypes();
}

TEST_F(HevcEncoderInterop, ConstantRateFactorDecodes) {
  setMethod(kRateFactor);
  consumer.setReal(CodeBookProperty::X265RateFactor, 20.0);
  encode();
  expectDecodesTo(37.0);
  expectTimesAreWhole();
  expectMarksMatchPictureTypes();
}

TEST_F(HevcEncoderInterop, ConstantBitRateDecodes) {
  setMethod(kConstant);
  consumer.setReal(CodeBookProperty::X265BufferDelay, 1.0);
  encode();
  expectDecodesTo(42.0);
  expectTimesAreWhole();
  expectMarksMatchPictureTypes();
}

TEST_F(HevcEncoderInterop, LosslessIsLossless) {
  setCommandLine("--lossless");
  encode();
  expectDecodesTo(98.0);
}

TEST_F(HevcEncoderInterop, LowerQuantizerLooksBetter) {
  std::map<int, double> worst;
  std::map<int, size_t> bytes;
  for (int qp : {20, 38}) {
    consumer.headers.clear();
    consumer.samples.clear();
    setMethod(kQuantizer);
    consumer.setNumber(CodeBookProperty::X265Quantizer, qp);
    encode();
    worst[qp] = 99.0;
    std::vector<std::vector<uint8_t>> const decoded = decode();
    ASSERT_EQ(decoded.size(), size_t(kCount));
    for (int i = 0; i < kCount; ++i) {
      worst[qp] = std::min(worst[qp], zel::test::psnr(pictures.make(i), decoded[size_t(i)]));
    }
    bytes[qp] = consumer.stream().size();
    std::filesystem::remove(streamFile());
    std::filesystem::remove(std::filesystem::path(streamFile()).replace_filename("decoded.yuv"));
  }
  EXPECT_GT(worst[20], worst[38] + 5.0);
  EXPECT_GT(bytes[20], bytes[38] * 2);
}

// Low rates, because the pictures are easy. In so short a stream the rate control doesn't settle,
// but the buffer that empties at the bit rate bounds what may come: its fill, and the rate.
TEST_F(HevcEncoderInterop, BitRateBoundsTheStream) {
  constexpr double kDelay = 0.5;
  setMethod(kConstant);
  consumer.setReal(CodeBookProperty::X265BufferDelay, kDelay);
  std::vector<double> bits;
  for (int64_t bitRate : {60000, 120000, 240000}) {
    consumer.headers.clear();
    consumer.samples.clear();
    encode(bitRate);
    double sum = 0.0;
    for (auto const& sample : consumer.samples) sum += double(sample.data.size()) * 8;
    double const seconds = double(kCount) * kFrameDuration / kTimeScale;
    EXPECT_LT(sum, double(bitRate) * (seconds + kDelay));
    bits.push_back(sum);
  }
  EXPECT_GT(bits[1], bits[0] * 1.4);
  EXPECT_GT(bits[2], bits[1] * 1.4);
}

TEST_F(HevcEncoderInterop, OpenAndClosedGroupsAreMarked) {
  for (bool isOpen : {false, true}) {
    SCOPED_TRACE(isOpen ? "open" : "closed");
    consumer.headers.clear();
    consumer.samples.clear();
    consumer.setSwitch(CodeBookProperty::X265OpenGop, isOpen);
    consumer.setNumber(CodeBookProperty::X265KeyFrameInt, 10);
    consumer.setNumber(CodeBookProperty::X265MaxBFrames, 3);
    encode();
    expectMarksMatchPictureTypes();
    auto const independent =
        std::count_if(consumer.samples.begin(), consumer.samples.end(),
                      [](EncoderConsumer::Sample const& sample) { return sample.dependent == 0; });
    EXPECT_GE(independent, kCount / 10);
  }
}

// Buffering period and picture timing messages (ITU-T H.265, D.2.2 and D.2.3).
TEST_F(HevcEncoderInterop, HrdMessagesAreThereWhereAskedFor) {
  for (int method : {kAverage, kConstant}) {
    for (bool asked : {true, false}) {
      SCOPED_TRACE(std::to_string(method) + (asked ? " asked" : " not asked"));
      consumer.headers.clear();
      consumer.samples.clear();
      setMethod(method);
      consumer.setNumber(CodeBookProperty::X265VBVMaxRate, 700);
      consumer.setNumber(CodeBookProperty::X265VBVBufferSize, 700);
      consumer.setSwitch(CodeBookProperty::X265HRDCompliance, asked);
      encode();
      std::string const trace = headerTrace();
      ASSERT_NE(trace.find("Sequence Parameter Set"), std::string::npos);
      EXPECT_EQ(trace.find("Buffering Period") != std::string::npos, asked);
      EXPECT_EQ(trace.find("Picture Timing") != std::string::npos, asked);
    }
  }
}

TEST_F(HevcEncoderInterop, HrdIsNotReadWithAConstantQuantizer) {
  setMethod(kQuantizer);
  consumer.setNumber(CodeBookProperty::X265VBVMaxRate, 700);
  consumer.setNumber(CodeBookProperty::X265VBVBufferSize, 700);
  consumer.setSwitch(CodeBookProperty::X265HRDCompliance, true);
  encode();
  EXPECT_EQ(headerTrace().find("Buffering Period"), std::string::npos);
}

TEST_F(HevcEncoderInterop, DescriptionOfTheSignalReachesTheStream) {
  consumer.setNumber(CodeBookProperty::X265ColorPrimaries, 1);
  consumer.setNumber(CodeBookProperty::X265TransferCharacteristics, 1);
  consumer.setNumber(CodeBookProperty::X265ColorMatrix, 1);
  consumer.setNumber(CodeBookProperty::X265Level, 51);
  consumer.setNumber(CodeBookProperty::X265Profile, 0);
  encode();
  EXPECT_EQ(streamEntry("color_primaries"), "bt709");
  EXPECT_EQ(streamEntry("color_transfer"), "bt709");
  EXPECT_EQ(streamEntry("color_space"), "bt709");
  EXPECT_EQ(streamEntry("level"), "153");  // 30 times 5.1 (ITU-T H.265, A.4.1)
  EXPECT_EQ(streamEntry("profile"), "Main");
  EXPECT_EQ(streamEntry("width"), "192");
  EXPECT_EQ(streamEntry("height"), "112");
  EXPECT_EQ(streamEntry("r_frame_rate"), "30000/1001");
}

TEST_F(HevcEncoderInterop, CommandLineMayDropTheChroma) {
  setCommandLine("--input-csp i400");
  encode();
  EXPECT_EQ(streamEntry("pix_fmt"), "gray");
}

TEST_F(HevcEncoderInterop, PicturesOfOddBlockCountsAreCropped) {
  TestPictures const odd(198, 118);
  auto* const encoder = CMorvalenX265EncoderApi::Create(&consumer);
  ASSERT_GT(encoder->Begin(198, 118, 1, 25, 1, 0), 0);
  EXPECT_EQ(encoder->Encode(odd.make(5).data(), nullptr), 0);
  EXPECT_EQ(encoder->Encode(nullptr, nullptr), 0);
  encoder->Release();
  std::vector<uint8_t> const bytes = consumer.stream();
  zel::test::writeFile(streamFile(), bytes);
  EXPECT_EQ(streamEntry("width"), "198");
  EXPECT_EQ(streamEntry("height"), "118");
}

}  // namespace
}  // namespace Morvalen::Zel
