#include "tools/zel/testsrc/sound_source.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/zel/testsrc/frame_mark.h"
#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/picture_source.h"

namespace zel::testsrc {
namespace {

using media::Rational;

constexpr Rational kRates[] = {{30000, 1001}, {25, 1}, {24, 1}, {60, 1}, {24000, 1001}};

std::vector<int32_t> soundOf(const SoundOptions& options, uint64_t first, size_t frames) {
  std::vector<int32_t> samples(frames * options.channels);
  SoundSource(options).render(first, samples);
  return samples;
}

SoundOptions mono(Rational rate) {
  SoundOptions options;
  options.rate = rate;
  options.channels = 1;
  return options;
}

constexpr int32_t kFullScale = (1 << 23) - 1;

// Where clicks begin: samples louder than a quarter of full scale after a silent one.
std::vector<uint64_t> clicksIn(const std::vector<int32_t>& samples, uint64_t first) {
  std::vector<uint64_t> clicks;
  for (size_t i = 0; i < samples.size(); ++i) {
    const bool before = i > 0 && samples[i - 1] != 0;
    if (!before && samples[i] > kFullScale / 4) clicks.push_back(first + i);
  }
  return clicks;
}

// Found in the finished picture and the finished sound, not asked of the code that places them.
TEST(TestsrcSound, ClicksBeginWithTheFramesThatFlash) {
  for (const Rational rate : kRates) {
    PictureOptions pictures;
    pictures.pattern = Pattern::kNoise;
    pictures.width = 64;
    pictures.height = 48;
    pictures.rate = rate;
    PictureSource source(pictures);
    std::vector<uint8_t> frame(source.frameBytes());
    const uint64_t frames = uint64_t{5} * rate.numerator / rate.denominator;
    std::vector<uint64_t> flashes;
    for (uint64_t i = 0; i < frames; ++i) {
      source.render(i, frame);
      const auto mark = readFrameMark({frame.data(), 64, 64, 48, 8});
      ASSERT_TRUE(mark.has_value());
      if (mark->second) {
        // The first sample that is not before the frame's start.
        flashes.push_back((i * rate.denominator * 48000 + rate.numerator - 1) / rate.numerator);
      }
    }
    const auto samples = soundOf(mono(rate), 0, SoundSource(mono(rate)).samplesOfFrames(frames));
    EXPECT_EQ(clicksIn(samples, 0), flashes) << media::toText(rate);
    EXPECT_EQ(flashes.size(), 5u);
  }
}

TEST(TestsrcSound, ClicksAreInPlaceAfterAnHour) {
  for (const Rational rate : kRates) {
    const uint64_t frame = markFrame(rate, 3600);
    const uint64_t sample =
        (frame * rate.denominator * 48000 + rate.numerator - 1) / rate.numerator;
    const auto samples = soundOf(mono(rate), sample - 100, 200);
    EXPECT_EQ(clicksIn(samples, sample - 100), std::vector<uint64_t>{sample});
  }
}

TEST(TestsrcSound, ClickHasThePromisedShape) {
  const auto samples = soundOf(mono({25, 1}), 48000 - 600, 1600);
  const int32_t loud = samples[600];
  EXPECT_NEAR(loud, kFullScale * std::pow(10, -6 / 20.0), 2);
  for (size_t i = 0; i < 24; ++i) EXPECT_EQ(samples[600 + i], loud) << i;
  for (size_t i = 24; i < 48; ++i) EXPECT_EQ(samples[600 + i], -loud) << i;
  for (size_t i = 48; i < 48 + 480; ++i) EXPECT_EQ(samples[600 + i], 0) << i;
  for (size_t i = 600 - 480; i < 600; ++i) EXPECT_EQ(samples[i], 0) << i;
  EXPECT_NE(samples[600 - 481], 0);
  EXPECT_NE(samples[600 + 48 + 480 + 1], 0);
}

TEST(TestsrcSound, ToneIsAThousandHertzAtItsLevel) {
  for (const int level : {-20, -18, -12, -40}) {
    SoundOptions options = mono({25, 1});
    options.toneLevel = level;
    const auto samples = soundOf(options, 48000 + 4800, 4800);
    const double amplitude = kFullScale * std::pow(10, level / 20.0);
    for (size_t i = 0; i < samples.size(); ++i) {
      const double angle = 2 * 3.14159265358979323846 * static_cast<double>(i) / 48;
      ASSERT_NEAR(samples[i], amplitude * std::sin(angle), 1.5) << i;
    }
  }
}

TEST(TestsrcSound, ToneKeepsItsPhaseAtOtherSampleRates) {
  SoundOptions options = mono({25, 1});
  options.sampleRate = 44100;
  const auto samples = soundOf(options, 44100 * 7 + 4410, 4410);
  for (size_t i = 0; i < samples.size(); ++i) {
    const double cycles = static_cast<double>((44100 * 7 + 4410 + i) * 1000 % 44100) / 44100;
    ASSERT_NEAR(samples[i], kFullScale * 0.1 * std::sin(2 * 3.14159265358979 * cycles), 1.5) << i;
  }
}

TEST(TestsrcSound, ChannelsCountThemselvesByGaps) {
  SoundOptions options = mono({30000, 1001});
  options.channels = 16;
  const auto samples = soundOf(options, 0, 48000);
  for (uint32_t channel = 0; channel < 16; ++channel) {
    // Silences between the click's own and the one before the next click.
    int gaps = 0;
    size_t silent = 0;
    for (size_t i = 4800; i < 46000; ++i) {
      silent = samples[i * 16 + channel] == 0 ? silent + 1 : 0;
      if (silent == 900) ++gaps;
    }
    EXPECT_EQ(gaps, static_cast<int>(channel) + 1);
  }
}

TEST(TestsrcSound, PiecesAreTheSameAsTheWhole) {
  SoundOptions options = mono({30000, 1001});
  options.channels = 3;
  const auto whole = soundOf(options, 0, 120000);
  for (size_t at = 0, step = 1; at < 120000; at += step, step = step % 997 + 101) {
    const size_t count = std::min<size_t>(step % 997 + 101, 120000 - at);
    const auto piece = soundOf(options, at, count);
    ASSERT_TRUE(
        std::equal(piece.begin(), piece.end(), whole.begin() + static_cast<ptrdiff_t>(at * 3)))
        << at;
  }
}

TEST(TestsrcSound, WordsAreAsWideAsAskedFor) {
  for (const uint32_t bits : {16u, 24u, 32u}) {
    SoundOptions options = mono({25, 1});
    options.bits = bits;
    const double fullScale = std::ldexp(1, static_cast<int>(bits) - 1) - 1;
    EXPECT_NEAR(soundOf(options, 0, 1)[0] / fullScale, 0.501187, 1e-4) << bits;
  }
}

TEST(TestsrcSound, BytesAreTheSameEverywhere) {
  SoundOptions options = mono({30000, 1001});
  options.channels = 2;
  uint64_t hash = 0xCBF29CE484222325u;
  for (const int32_t sample : soundOf(options, 0, 100000)) {
    hash = (hash ^ static_cast<uint32_t>(sample)) * 0x100000001B3u;
  }
  EXPECT_EQ(hash, 0x41997AFB3C957543u) << std::hex << "now 0x" << hash;
}

TEST(TestsrcSound, CoversItsFramesExactly) {
  EXPECT_EQ(SoundSource(mono({25, 1})).samplesOfFrames(10), 19200u);
  EXPECT_EQ(SoundSource(mono({30000, 1001})).samplesOfFrames(1), 1602u);
  EXPECT_EQ(SoundSource(mono({30000, 1001})).samplesOfFrames(5), 8008u);
}

TEST(TestsrcSound, NamesWhatIsWrong) {
  const auto fault = [](auto change) {
    SoundOptions options;
    change(options);
    return soundFault(options);
  };
  EXPECT_EQ(soundFault({}), "");
  EXPECT_NE(fault([](auto& o) { o.channels = 0; }).find("0 channels"), std::string::npos);
  EXPECT_NE(fault([](auto& o) { o.channels = 17; }).find("17 channels"), std::string::npos);
  EXPECT_NE(fault([](auto& o) { o.sampleRate = 7999; }).find("7999"), std::string::npos);
  EXPECT_NE(fault([](auto& o) { o.bits = 20; }).find("20 bits"), std::string::npos);
  EXPECT_NE(fault([](auto& o) { o.toneLevel = -11; }).find("-11"), std::string::npos);
  EXPECT_NE(fault([](auto& o) { o.rate = {0, 1}; }).find("frame rate"), std::string::npos);
}

}  // namespace
}  // namespace zel::testsrc
