#include "tools/zel/hevc/rate_control.h"

#include <bit>
#include <cstring>
#include <map>

#include <gtest/gtest.h>

#include "tools/zel/failure.h"
#include "zel/runtime/property_keys.h"

namespace zel::tool {
namespace {

using Keys = Morvalen::Zel::CodeBookProperty;

// The options as typed, to properties by key; or the refusal.
struct Resolved {
  RateControl control;
  std::string refusal;

  template <class Number>
  std::optional<Number> number(const char* key) const {
    for (const EncoderProperty& each : control.properties) {
      if (each.key != key || each.value.size() != sizeof(Number)) continue;
      Number value;
      std::memcpy(&value, each.value.data(), sizeof value);
      return value;
    }
    return std::nullopt;
  }
  std::optional<int32_t> whole(const char* key) const { return number<int32_t>(key); }
  std::optional<double> real(const char* key) const { return number<double>(key); }
};

Resolved resolve(std::vector<std::string> arguments) {
  CLI::App app;
  RateControlOptions options;
  addRateControlOptions(app, options);
  std::reverse(arguments.begin(), arguments.end());
  app.parse(arguments);
  Resolved resolved;
  try {
    resolved.control = resolveRateControl(options);
  } catch (const WrongUsage& error) {
    resolved.refusal = error.what();
  }
  return resolved;
}

TEST(RateControl, NothingGivenLeavesThePresets) {
  const Resolved resolved = resolve({});
  EXPECT_EQ(resolved.refusal, "");
  EXPECT_TRUE(resolved.control.properties.empty());
  EXPECT_EQ(resolved.control.bitRate, 0);
}

TEST(RateControl, TheMethodFollowsFromWhatIsGiven) {
  EXPECT_EQ(resolve({"--bitrate", "4M"}).whole(Keys::X265RateControlMethod), 0);
  EXPECT_EQ(resolve({"--qp", "30"}).whole(Keys::X265RateControlMethod), 1);
  EXPECT_EQ(resolve({"--crf", "22.5"}).whole(Keys::X265RateControlMethod), 2);
  EXPECT_EQ(resolve({"--bitrate", "4M", "--crf", "20"}).refusal,
            "--bitrate, --qp and --crf are three ways of rate control; give one of them");
}

TEST(RateControl, NumbersArriveInTheEncodersUnits) {
  EXPECT_EQ(resolve({"--bitrate", "4.5M"}).control.bitRate, 4500000);
  EXPECT_EQ(resolve({"--qp", "30"}).whole(Keys::X265Quantizer), 30);
  EXPECT_EQ(resolve({"--crf", "22.5"}).real(Keys::X265RateFactor), 22.5);
  const Resolved vbv =
      resolve({"--bitrate", "2M", "--vbv-maxrate", "3M", "--vbv-bufsize", "1500k"});
  EXPECT_EQ(vbv.whole(Keys::X265VBVMaxRate), 3000);
  EXPECT_EQ(vbv.whole(Keys::X265VBVBufferSize), 1500);
  EXPECT_EQ(vbv.whole(Keys::X265VBVInitialFill), std::nullopt);
}

// abr's key is a percentage; with the others x265 sees the number and takes it for kilobits.
TEST(RateControl, InitialFillIsAPercentageToTheUserAlways) {
  EXPECT_EQ(
      resolve({"--bitrate", "2M", "--vbv-maxrate", "3M", "--vbv-bufsize", "4M", "--vbv-init", "75"})
          .whole(Keys::X265VBVInitialFill),
      75);
  EXPECT_EQ(
      resolve({"--crf", "20", "--vbv-maxrate", "3M", "--vbv-bufsize", "4M", "--vbv-init", "75"})
          .whole(Keys::X265VBVInitialFill),
      3000);
  EXPECT_EQ(resolve({"--vbv-maxrate", "3M", "--vbv-bufsize", "4M", "--vbv-init", "0"})
                .whole(Keys::X265VBVInitialFill),
            0);
}

TEST(RateControl, ConstantBitRateHasABuffer) {
  const Resolved plain = resolve({"--rate-control", "cbr", "--bitrate", "2M"});
  EXPECT_EQ(plain.whole(Keys::X265RateControlMethod), 3);
  EXPECT_EQ(plain.real(Keys::X265BufferDelay), 1.0);
  EXPECT_EQ(resolve({"--rate-control", "cbr", "--bitrate", "2M", "--buffer-delay", "0.5"})
                .real(Keys::X265BufferDelay),
            0.5);
  const Resolved sized =
      resolve({"--rate-control", "cbr", "--bitrate", "2M", "--vbv-bufsize", "1M"});
  EXPECT_EQ(sized.real(Keys::X265BufferDelay), std::nullopt);
  EXPECT_EQ(sized.whole(Keys::X265VBVBufferSize), 1000);
}

TEST(RateControl, HrdIsOneByte) {
  EXPECT_EQ(resolve({"--rate-control", "cbr", "--bitrate", "2M", "--hrd"})
                .number<uint8_t>(Keys::X265HRDCompliance),
            1);
}

TEST(RateControl, OptionsWithoutEffectAreRefused) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"--rate-control", "crf", "--bitrate", "4M"},
       "--bitrate has no effect with --rate-control crf; it goes with abr or cbr"},
      {{"--rate-control", "abr", "--bitrate", "4M", "--qp", "3"},
       "--qp has no effect with --rate-control abr; it goes with cqp"},
      {{"--rate-control", "cbr", "--bitrate", "4M", "--crf", "3"},
       "--crf has no effect with --rate-control cbr; it goes with crf"},
      {{"--bitrate", "4M", "--buffer-delay", "1"},
       "--buffer-delay has no effect with --rate-control abr; it goes with cbr"},
      {{"--hrd"}, "--hrd has no effect with the preset's rate control; it goes with abr or cbr"},
      {{"--rate-control", "cbr", "--bitrate", "4M", "--vbv-maxrate", "5M"},
       "--vbv-maxrate has no effect with --rate-control cbr; it goes with abr or crf (with cbr it "
       "is --bitrate)"},
      {{"--rate-control", "cbr", "--bitrate", "4M", "--vbv-bufsize", "1M", "--vbv-init", "50"},
       "--vbv-init has no effect with --rate-control cbr; it goes with abr or crf (with cbr the "
       "buffer is 90 % full at first)"},
      {{"--qp", "30", "--vbv-bufsize", "1M"},
       "--vbv-bufsize has no effect with --rate-control cqp; it goes with abr, cbr or crf"},
  };
  for (const auto& [arguments, refusal] : cases) EXPECT_EQ(resolve(arguments).refusal, refusal);
}

TEST(RateControl, WhatIsMissingIsNamed) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"--rate-control", "abr"}, "--rate-control abr needs --bitrate, such as --bitrate 4M"},
      {{"--rate-control", "cbr"}, "--rate-control cbr needs --bitrate, such as --bitrate 4M"},
      {{"--rate-control", "cqp"}, "--rate-control cqp needs --qp, from 0 to 51"},
      {{"--vbv-maxrate", "4M"},
       "--vbv-maxrate needs --vbv-bufsize: a rate has a most over some time only"},
      {{"--vbv-bufsize", "4M"}, "--vbv-bufsize needs --vbv-maxrate, at which the buffer fills"},
      {{"--vbv-init", "50"}, "--vbv-init needs --vbv-bufsize, of which it is a part"},
      {{"--bitrate", "4M", "--hrd"},
       "--hrd needs --vbv-maxrate and --vbv-bufsize, which it describes"},
      {{"--rate-control", "cbr", "--bitrate", "4M", "--vbv-bufsize", "1M", "--buffer-delay", "1"},
       "--buffer-delay and --vbv-bufsize both size the buffer; give one of them"},
      {{"--bitrate", "9999999999k"},
       "--bitrate is 9999999999000 bits; the encoder takes at most 2147483647k"},
  };
  for (const auto& [arguments, refusal] : cases) EXPECT_EQ(resolve(arguments).refusal, refusal);
}

}  // namespace
}  // namespace zel::tool
