#include "tools/zel/hevc/encode_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/zel/failure.h"
#include "zel/runtime/property_keys.h"

namespace zel::tool {
namespace {

using Keys = Morvalen::Zel::CodeBookProperty;

constexpr int32_t kWidth = 64;
constexpr int32_t kHeight = 64;

EncoderSetup smallSetup() {
  EncoderSetup setup;
  setup.width = kWidth;
  setup.height = kHeight;
  setup.frameDuration = 1001;
  setup.timeScale = 30000;
  setup.threads = 1;
  setup.properties = {{Keys::X265Preset, propertyBytes(int32_t{0})},
                      {Keys::X265MaxBFrames, propertyBytes(int32_t{2})}};
  return setup;
}

std::vector<uint8_t> pictureOf(int index) {
  std::vector<uint8_t> picture(kWidth * kHeight * 3 / 2);
  for (size_t i = 0; i < picture.size(); ++i)
    picture[i] = static_cast<uint8_t>(i * 7 + static_cast<size_t>(index) * 13 + i / kWidth);
  return picture;
}

struct Collected {
  std::vector<uint8_t> headers;
  std::vector<AccessUnitTiming> timings;
  EncodedSink sink() {
    return {[this](std::span<const uint8_t> bytes) { headers.assign(bytes.begin(), bytes.end()); },
            [this](std::span<const uint8_t>, const AccessUnitTiming& timing) {
              timings.push_back(timing);
            }};
  }
};

TEST(EncodeRun, EveryPictureComesOutOnceWithItsTime) {
  Collected collected;
  EncodeRun run(smallSetup(), collected.sink());
  run.begin();
  constexpr int kPictures = 12;
  for (int i = 0; i < kPictures; ++i) run.encode(pictureOf(i));
  run.drain();
  EXPECT_EQ(run.accessUnitsOut(), static_cast<uint64_t>(kPictures));
  EXPECT_GE(run.independentOut(), 1u);
  EXPECT_FALSE(collected.headers.empty());
  ASSERT_EQ(collected.timings.size(), static_cast<size_t>(kPictures));
  EXPECT_EQ(collected.timings[0].type, "IDR");
  std::vector<int64_t> shown;
  uint64_t bytes = collected.headers.size();
  for (size_t i = 0; i < collected.timings.size(); ++i) {
    EXPECT_EQ(collected.timings[i].index, i);
    EXPECT_EQ(collected.timings[i].decodeTime, static_cast<int64_t>(i) * 1001);
    shown.push_back(collected.timings[i].presentationTime);
    bytes += static_cast<uint64_t>(collected.timings[i].bytes);
  }
  std::sort(shown.begin(), shown.end());
  for (int i = 0; i < kPictures; ++i) EXPECT_EQ(shown[static_cast<size_t>(i)], i * 1001);
  EXPECT_EQ(run.bytesOut(), bytes);
}

TEST(EncodeRun, TheLaterOfTwoPropertiesCounts) {
  EncoderSetup setup = smallSetup();
  setup.properties.push_back({Keys::X265KeyFrameInt, propertyBytes(int32_t{50})});
  setup.properties.push_back({Keys::X265KeyFrameInt, propertyBytes(int32_t{1})});
  Collected collected;
  EncodeRun run(setup, collected.sink());
  run.begin();
  for (int i = 0; i < 4; ++i) run.encode(pictureOf(i));
  run.drain();
  EXPECT_EQ(run.independentOut(), 4u);
}

TEST(EncodeRun, WhatTheSinkThrowsComesOut) {
  EncodedSink sink;
  sink.takeHeaders = [](std::span<const uint8_t>) { throw Failure("disk full"); };
  sink.takeAccessUnit = [](std::span<const uint8_t>, const AccessUnitTiming&) {};
  EncodeRun run(smallSetup(), sink);
  run.begin();
  const auto all = [&run] {
    for (int i = 0; i < 12; ++i) run.encode(pictureOf(i));
    run.drain();
  };
  try {
    all();
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "disk full");
  }
}

TEST(EncodeRun, ARefusalHasX265sReason) {
  EncoderSetup setup = smallSetup();
  const std::string commandLine = "--log-level error --ctu 7";
  setup.properties.push_back({Keys::X265CommandLine, {commandLine.begin(), commandLine.end()}});
  Collected collected;
  EncodeRun run(setup, collected.sink());
  try {
    run.begin();
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(),
                ::testing::HasSubstr("the encoder refuses these settings: max cu size"));
  }
  EXPECT_TRUE(collected.headers.empty());
}

TEST(EncodeRun, ARefusalWithoutAReasonIsStillOne) {
  EncoderSetup setup = smallSetup();
  setup.properties[0].value = propertyBytes(int32_t{99});
  Collected collected;
  EncodeRun run(setup, collected.sink());
  EXPECT_THROW(run.begin(), Failure);
}

TEST(EncodeRun, WhatX265SaysOnRequestIsKept) {
  EncoderSetup setup = smallSetup();
  const std::string commandLine = "--log-level info";
  setup.properties.push_back({Keys::X265CommandLine, {commandLine.begin(), commandLine.end()}});
  Collected collected;
  EncodeRun run(setup, collected.sink());
  run.begin();
  EXPECT_THAT(run.remarks(), ::testing::Contains(::testing::HasSubstr("HEVC encoder version")));
}

TEST(EncodeRun, X265sWarningsAreKept) {
  EncoderSetup setup = smallSetup();
  const std::string commandLine = "--log-level warning --hrd";
  setup.properties.push_back({Keys::X265CommandLine, {commandLine.begin(), commandLine.end()}});
  Collected collected;
  EncodeRun run(setup, collected.sink());
  run.begin();
  EXPECT_THAT(run.warnings(), ::testing::Contains(::testing::HasSubstr("HRD")));
}

}  // namespace
}  // namespace zel::tool
