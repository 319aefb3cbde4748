#include "zel/encoder/x265_encoder_api.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/encoder_consumer.h"
#include "tests/support/test_pictures.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

using zel::test::EncoderConsumer;
using zel::test::TestPictures;

constexpr int32_t kWidth = 192;
constexpr int32_t kHeight = 112;

class X265EncoderApi : public testing::Test {
 protected:
  X265EncoderApi() { consumer.setNumber(CodeBookProperty::X265Preset, 0); }
  ~X265EncoderApi() override { release(); }

  int begin(int64_t frameDuration = 1, int64_t timeScale = 25, int32_t threads = 1,
            int64_t bitRate = 500000) {
    return encoder->Begin(kWidth, kHeight, frameDuration, timeScale, threads, bitRate);
  }
  int encode(int number, CDependenciesObjectVS2012* userObject = nullptr) {
    return encoder->Encode(pictures.make(number).data(), userObject);
  }
  // Encodes `count` pictures and drains.
  void encodeAll(int count) {
    for (int i = 0; i < count; ++i) ASSERT_EQ(encode(i), 0);
    drain(count);
  }
  void drain(int count) {
    for (int i = 0; i < count && consumer.samples.size() < size_t(count); ++i) {
      ASSERT_EQ(encoder->Encode(nullptr, nullptr), 0);
    }
    ASSERT_EQ(consumer.samples.size(), size_t(count));
  }
  void setCommandLine(std::string const& line) {
    consumer.setText(CodeBookProperty::X265CommandLine, line);
  }
  void release() {
    if (encoder != nullptr) encoder->Release();
    encoder = nullptr;
  }
  // x265 tells its options in an information SEI among the headers.
  std::string headerText() const {
    return {consumer.headers.at(0).begin(), consumer.headers.at(0).end()};
  }

  TestPictures const pictures{kWidth, kHeight};
  EncoderConsumer consumer;
  CMorvalenX265EncoderApi* encoder = CMorvalenX265EncoderApi::Create(&consumer);
};

TEST_F(X265EncoderApi, StartsWithOneReference) {
  EXPECT_EQ(encoder->GetReferenceCount(), 1);
  encoder->Acquire();
  IMorvalenX265Encoder* const seenByCallers = encoder;
  seenByCallers->Release();
  EXPECT_EQ(encoder->GetReferenceCount(), 1);
}

TEST_F(X265EncoderApi, MayBeReleasedWithoutBegin) {
  release();
}

// Headers.

TEST_F(X265EncoderApi, BeginGivesTheHeadersAndTheirSize) {
  int const result = begin();
  ASSERT_GT(result, 0);
  ASSERT_EQ(consumer.headers.size(), 1u);
  EXPECT_EQ(consumer.headers[0].size(), size_t(result));
  // A video parameter set comes first (ITU-T H.265, 7.4.2.2: type 32).
  EXPECT_EQ(std::vector<uint8_t>(consumer.headers[0].begin(), consumer.headers[0].begin() + 5),
            (std::vector<uint8_t>{0, 0, 0, 1, 32 << 1}));
  EXPECT_TRUE(consumer.samples.empty());
  encodeAll(5);
  EXPECT_EQ(consumer.headers.size(), 1u);
}

TEST_F(X265EncoderApi, CommandLineReachesX265) {
  setCommandLine("--keyint=77 --bframes 2 --no-open-gop");
  ASSERT_GT(begin(), 0);
  EXPECT_NE(headerText().find(" keyint=77 "), std::string::npos);
  EXPECT_NE(headerText().find(" bframes=2 "), std::string::npos);
  EXPECT_NE(headerText().find(" no-open-gop "), std::string::npos);
}

TEST_F(X265EncoderApi, SamplesAreAnnexBAccessUnits) {
  ASSERT_GT(begin(), 0);
  encodeAll(12);
  for (auto const& sample : consumer.samples) {
    ASSERT_GT(sample.data.size(), 5u);
    std::string_view const data(reinterpret_cast<char const*>(sample.data.data()), 4);
    EXPECT_TRUE(data == std::string_view("\0\0\0\1", 4) ||
                data.starts_with(std::string_view("\0\0\1", 3)));
  }
}

// Order and time.

TEST_F(X265EncoderApi, EveryPictureComesOutOnce) {
  ASSERT_GT(begin(1001, 30000), 0);
  encodeAll(30);
  std::set<int64_t> times;
  for (auto const& sample : consumer.samples) {
    EXPECT_EQ(sample.duration, 1001);
    times.insert(sample.pts);
  }
  std::set<int64_t> expected;
  for (int64_t i = 0; i < 30; ++i) expected.insert(i * 1001);
  EXPECT_EQ(times, expected);
}

TEST_F(X265EncoderApi, OffsetsReorderEvenDecodingTimes) {
  consumer.setNumber(CodeBookProperty::X265MaxBFrames, 3);
  ASSERT_GT(begin(1001, 30000), 0);
  encodeAll(30);
  bool hasReordering = false;
  for (size_t i = 0; i < consumer.samples.size(); ++i) {
    auto const& sample = consumer.samples[i];
    EXPECT_EQ(int64_t(i) * 1001 + sample.compositionOffset, sample.pts);
    hasReordering |= sample.compositionOffset != 0;
  }
  EXPECT_TRUE(hasReordering);
}

TEST_F(X265EncoderApi, FirstSampleWithBFramesStartsAtZero) {
  consumer.setNumber(CodeBookProperty::X265MaxBFrames, 4);
  consumer.setNumber(CodeBookProperty::X265Lookahead, 8);
  ASSERT_GT(begin(), 0);
  encodeAll(10);
  EXPECT_GE(consumer.samples[0].compositionOffset, 0);
  EXPECT_EQ(consumer.samples[0].compositionOffset, consumer.samples[0].pts);
}

TEST_F(X265EncoderApi, WithoutBFramesThereIsNoOffset) {
  consumer.setNumber(CodeBookProperty::X265MaxBFrames, 0);
  ASSERT_GT(begin(40, 1000), 0);
  encodeAll(10);
  for (auto const& sample : consumer.samples) EXPECT_EQ(sample.compositionOffset, 0);
}

TEST_F(X265EncoderApi, OffsetsHoldWhenTimesOutgrow32Bits) {
  consumer.setNumber(CodeBookProperty::X265MaxBFrames, 3);
  constexpr int64_t kDuration = 1000000000;
  ASSERT_GT(begin(kDuration, kDuration * 4), 0);
  encodeAll(20);
  int64_t decodingTime = 0;
  for (auto const& sample : consumer.samples) {
    EXPECT_EQ(sample.compositionOffset, int32_t(uint32_t(sample.pts - decodingTime)));
    decodingTime += kDuration;
  }
  EXPECT_GT(decodingTime, int64_t(std::numeric_limits<uint32_t>::max()));
}

TEST_F(X265EncoderApi, OnlyIntraPicturesAreIndependent) {
  setCommandLine("--keyint 10 --min-keyint 10 --no-scenecut");
  ASSERT_GT(begin(), 0);
  encodeAll(30);
  for (auto const& sample : consumer.samples) {
    EXPECT_EQ(sample.dependent, sample.pts % 10 == 0 ? 0 : 1) << "picture " << sample.pts;
  }
}

TEST_F(X265EncoderApi, IntraOnlyStreamHasNoDependentPicture) {
  consumer.setNumber(CodeBookProperty::X265KeyFrameInt, 1);
  ASSERT_GT(begin(), 0);
  encodeAll(8);
  for (auto const& sample : consumer.samples) EXPECT_EQ(sample.dependent, 0);
}

// Rate control.

TEST_F(X265EncoderApi, EncodesWithEveryMethod) {
  for (int method = 0; method < 4; ++method) {
    SCOPED_TRACE(method);
    EncoderConsumer own;
    own.setNumber(CodeBookProperty::X265Preset, 0);
    own.setNumber(CodeBookProperty::X265RateControlMethod, method);
    own.setReal(CodeBookProperty::X265BufferDelay, 1.0);
    auto* const other = CMorvalenX265EncoderApi::Create(&own);
    EXPECT_GT(other->Begin(kWidth, kHeight, 1, 25, 1, 500000), 0);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(other->Encode(pictures.make(i).data(), nullptr), 0);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(other->Encode(nullptr, nullptr), 0);
    EXPECT_EQ(own.samples.size(), 12u);
    other->Release();
  }
}

TEST_F(X265EncoderApi, LookaheadThatWasRaisedToTheBFramesOpens) {
  consumer.setNumber(CodeBookProperty::X265MaxBFrames, 4);
  consumer.setNumber(CodeBookProperty::X265Lookahead, 2);
  ASSERT_GT(begin(), 0);
  encodeAll(12);
}

// Draining.

TEST_F(X265EncoderApi, DrainingAnEmptyEncoderGivesNothing) {
  ASSERT_GT(begin(), 0);
  EXPECT_EQ(encoder->Encode(nullptr, nullptr), 0);
  EXPECT_TRUE(consumer.samples.empty());
}

TEST_F(X265EncoderApi, DrainingOnGivesNothingMore) {
  ASSERT_GT(begin(), 0);
  encodeAll(7);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(encoder->Encode(nullptr, nullptr), 0);
  EXPECT_EQ(consumer.samples.size(), 7u);
}

TEST_F(X265EncoderApi, PictureAfterDrainingIsRefused) {
  ASSERT_GT(begin(), 0);
  for (int i = 0; i < 7; ++i) ASSERT_EQ(encode(i), 0);
  ASSERT_EQ(encoder->Encode(nullptr, nullptr), 0);
  EXPECT_EQ(encode(7), ZelErrorInvalidArgument);
  drain(7);
}

// User data.

TEST_F(X265EncoderApi, UserObjectsComeBackWithTheirPictures) {
  ASSERT_GT(begin(40, 1000), 0);
  std::vector<CDependenciesObjectVS2012*> objects;
  for (int i = 0; i < 25; ++i) {
    objects.push_back(new CDependenciesObjectVS2012);
    ASSERT_EQ(encode(i, objects.back()), 0);
  }
  drain(25);
  for (auto const& sample : consumer.samples) {
    EXPECT_EQ(sample.object, objects.at(size_t(sample.pts / 40)));
  }
  for (auto* object : objects) {
    EXPECT_EQ(object->GetReferenceCount(), 1);
    object->Release();
  }
}

TEST_F(X265EncoderApi, UserObjectMayBeNull) {
  ASSERT_GT(begin(), 0);
  encodeAll(3);
  for (auto const& sample : consumer.samples) EXPECT_EQ(sample.object, nullptr);
}

TEST_F(X265EncoderApi, UserObjectIsHeldWhileItsPictureIsInside) {
  ASSERT_GT(begin(), 0);
  auto* const object = new CDependenciesObjectVS2012;
  ASSERT_EQ(encode(0, object), 0);
  ASSERT_TRUE(consumer.samples.empty());
  EXPECT_EQ(object->GetReferenceCount(), 2);
  drain(1);
  EXPECT_EQ(object->GetReferenceCount(), 1);
  object->Release();
}

TEST_F(X265EncoderApi, ReleaseGivesUpWhatNeverCameOut) {
  ASSERT_GT(begin(), 0);
  auto* const object = new CDependenciesObjectVS2012;
  for (int i = 0; i < 20; ++i) ASSERT_EQ(encode(i, object), 0);
  size_t const written = consumer.samples.size();
  ASSERT_LT(written, 20u);
  EXPECT_EQ(object->GetReferenceCount(), 1 + int32_t(20 - written));
  release();
  EXPECT_EQ(object->GetReferenceCount(), 1);
  EXPECT_EQ(consumer.samples.size(), written);
  object->Release();
}

TEST_F(X265EncoderApi, DrainingTakesNoUserObject) {
  ASSERT_GT(begin(), 0);
  auto* const object = new CDependenciesObjectVS2012;
  ASSERT_EQ(encode(0), 0);
  for (int i = 0; i < 4; ++i) ASSERT_EQ(encoder->Encode(nullptr, object), 0);
  EXPECT_EQ(object->GetReferenceCount(), 1);
  ASSERT_EQ(consumer.samples.size(), 1u);
  EXPECT_EQ(consumer.samples[0].object, nullptr);
  object->Release();
}

// Keeps the user data of each sample.
class KeepingConsumer final : public IMorvalenEncoderConsumer {
 public:
  explicit KeepingConsumer(EncoderConsumer& source) : properties_(source) {}
  int GetProperty(char const* name, int32_t size, unsigned char* buffer) override {
    return properties_.GetProperty(name, size, buffer);
  }
  int WriteSample(unsigned char const*, int32_t, int32_t, int32_t,
                  CDependenciesObjectVS2012* userData) override {
    userData->Acquire();
    kept.push_back(userData);
    return ZelErrorFailed;  // not looked at
  }
  int WriteHeaders(unsigned char const*, int32_t) override { return ZelErrorFailed; }

  std::vector<CDependenciesObjectVS2012*> kept;

 private:
  EncoderConsumer& properties_;
};

TEST_F(X265EncoderApi, ConsumerMayKeepUserData) {
  KeepingConsumer keeping(consumer);
  auto* const other = CMorvalenX265EncoderApi::Create(&keeping);
  ASSERT_GT(other->Begin(kWidth, kHeight, 5, 125, 1, 0), 0);
  auto* const object = new CDependenciesObjectVS2012;
  for (int i = 0; i < 6; ++i) ASSERT_EQ(other->Encode(pictures.make(i).data(), object), 0);
  for (int i = 0; i < 6; ++i) ASSERT_EQ(other->Encode(nullptr, nullptr), 0);
  other->Release();
  ASSERT_EQ(keeping.kept.size(), 6u);
  EXPECT_EQ(object->GetReferenceCount(), 7);
  std::set<int64_t> times;
  for (auto* kept : keeping.kept) {
    EXPECT_EQ(kept->GetReferenceCount(), 1);
    auto* const userData = static_cast<CMorvalenX265EncoderApi::CHevcUserData*>(kept);
    EXPECT_EQ(userData->object, object);
    EXPECT_EQ(userData->duration, 5);
    times.insert(userData->pts);
    kept->Release();
  }
  EXPECT_EQ(times, (std::set<int64_t>{0, 5, 10, 15, 20, 25}));
  EXPECT_EQ(object->GetReferenceCount(), 1);
  object->Release();
}

// What is refused.

TEST_F(X265EncoderApi, EncodeNeedsBegin) {
  auto* const object = new CDependenciesObjectVS2012;
  EXPECT_EQ(encode(0, object), ZelErrorNotReady);
  EXPECT_EQ(encoder->Encode(nullptr, object), ZelErrorNotReady);
  EXPECT_EQ(object->GetReferenceCount(), 1);
  object->Release();
}

TEST_F(X265EncoderApi, EncodeNeedsABeginThatSucceeded) {
  consumer.clear(CodeBookProperty::X265Preset);
  ASSERT_EQ(begin(), ZelErrorInvalidArgument);
  EXPECT_EQ(encode(0), ZelErrorNotReady);
  EXPECT_EQ(encoder->Encode(nullptr, nullptr), ZelErrorNotReady);
  EXPECT_TRUE(consumer.headers.empty());
}

TEST_F(X265EncoderApi, BeginMayBeTriedAgainAfterAFailure) {
  setCommandLine("--bframes 17");
  ASSERT_EQ(begin(), ZelErrorNotSupported);
  setCommandLine("--bframes 2");
  ASSERT_GT(begin(), 0);
  encodeAll(5);
}

TEST_F(X265EncoderApi, SecondBeginIsRefusedAndTheFirstGoesOn) {
  ASSERT_GT(begin(), 0);
  for (int i = 0; i < 5; ++i) ASSERT_EQ(encode(i), 0);
  consumer.reads.clear();
  EXPECT_EQ(encoder->Begin(64, 64, 7, 25, 1, 0), ZelErrorFailed);
  EXPECT_TRUE(consumer.reads.empty());
  drain(5);
  for (auto const& sample : consumer.samples) EXPECT_EQ(sample.duration, 1);
}

TEST_F(X265EncoderApi, BeginNeedsAConsumer) {
  auto* const other = CMorvalenX265EncoderApi::Create(nullptr);
  EXPECT_EQ(other->Begin(kWidth, kHeight, 1, 25, 1, 0), ZelErrorNullArgument);
  EXPECT_EQ(other->Encode(nullptr, nullptr), ZelErrorNotReady);
  other->Release();
}

TEST_F(X265EncoderApi, ArgumentsThatCannotBeAreRefusedBeforeAnyRead) {
  for (auto [width, height] : {std::pair<int32_t, int32_t>{0, 112},
                               {192, 0},
                               {-192, 112},
                               {192, -112},
                               {191, 112},
                               {192, 111},
                               {65534, 65534}}) {
    EXPECT_EQ(encoder->Begin(width, height, 1, 25, 1, 0), ZelErrorInvalidArgument)
        << width << " x " << height;
  }
  for (auto [duration, timeScale] : {std::pair<int64_t, int64_t>{0, 25},
                                     {-1, 25},
                                     {1, 0},
                                     {1, -25},
                                     {4294967296, 1},
                                     {1, 4294967296}}) {
    EXPECT_EQ(begin(duration, timeScale), ZelErrorInvalidArgument) << duration << " " << timeScale;
  }
  EXPECT_TRUE(consumer.reads.empty());
}

TEST_F(X265EncoderApi, WhatX265RefusesIsNotSupported) {
  // Smaller than a coding tree unit, and thinner than one.
  EXPECT_EQ(encoder->Begin(16, 16, 1, 25, 1, 0), ZelErrorNotSupported);
  EXPECT_EQ(encoder->Begin(2, 1080, 1, 25, 1, 0), ZelErrorNotSupported);
  EXPECT_EQ(begin(1, 25, -1), ZelErrorNotSupported);
  EXPECT_EQ(begin(1, 25, 1000), ZelErrorNotSupported);
  for (char const* line : {"--bframes 17", "--ref 17", "--ctu 8", "--level 9.9", "--rd 99",
                           "--colorprim 99", "--lambda-file /nowhere/at/all"}) {
    setCommandLine(line);
    EXPECT_EQ(begin(), ZelErrorNotSupported) << line;
  }
  EXPECT_TRUE(consumer.headers.empty());
}

TEST_F(X265EncoderApi, WhatX265WouldCrashOrHangOnIsNotSupported) {
  for (char const* line :
       {"--keyint 5 --min-keyint 99", "--input-csp i444", "--ctu 64 --sao --no-lft"}) {
    setCommandLine(line);
    EXPECT_EQ(begin(), ZelErrorNotSupported) << line;
  }
}

TEST_F(X265EncoderApi, OverlongCommandLineIsRefused) {
  setCommandLine(std::string(2048, ' '));
  EXPECT_EQ(begin(), ZelErrorInvalidArgument);
  setCommandLine(std::string(2047, ' '));
  EXPECT_GT(begin(), 0);
}

TEST_F(X265EncoderApi, PresetsFailureIsPassedOn) {
  consumer.setResult(CodeBookProperty::X265Preset, ZelErrorCannotOpen);
  EXPECT_EQ(begin(), ZelErrorCannotOpen);
}

// Silence.

class Captured {
 public:
  Captured() {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
  }
  std::string text() {
    return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
  }
};

TEST_F(X265EncoderApi, PrintsNothing) {
  Captured captured;
  setCommandLine("--bframes 17 --keyint many --unknown");
  EXPECT_LT(begin(), 0);
  setCommandLine("--hrd --ssim --psnr");  // each with a warning or a summary in x265's own program
  EXPECT_GT(begin(), 0);
  encodeAll(5);
  release();
  EXPECT_EQ(captured.text(), "");
}

TEST_F(X265EncoderApi, PrintsWhenTheCommandLineAsksForIt) {
  Captured captured;
  setCommandLine("--log-level info");
  EXPECT_GT(begin(), 0);
  release();
  EXPECT_NE(captured.text().find("x265 [info]"), std::string::npos);
}

}  // namespace
}  // namespace Morvalen::Zel
