#include "zel/dnxhd/formatters/resampler.h"

#include <gtest/gtest.h>

#include <hwy/targets.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "zel/dnxhd/formatters/resampling_taps.h"

namespace zel::dnxhd {
namespace {

struct Widths {
  uint32_t in;
  uint32_t out;
};
constexpr Widths kQualityWidths[] = {
    {1920, 1440}, {1280, 960}, {1440, 1920}, {960, 1280}, {48, 36}};
constexpr Widths kDraftWidths[] = {{720, 960},  {480, 640},  {360, 480},  {240, 320}, {1440, 960},
                                   {1440, 480}, {1440, 720}, {1440, 360}, {12, 16}};

int16_t wild(std::mt19937_64& random, uint64_t kind) {
  const auto any = static_cast<int16_t>(random());
  if (kind == 0) return static_cast<int16_t>(any % 512);
  if (kind == 1) return any;
  return any % 2 == 0 ? int16_t{-32768} : int16_t{32767};
}

class ResamplerTargets : public testing::Test {
 protected:
  void TearDown() override {
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().DeInit();
  }

  void expectTheSame(ResamplerForm form, Widths widths, bool offset) {
    for (uint64_t kind = 0; kind < 3; ++kind) {
      PlanarLine in, a, b;
      for (auto& plane : in.planes) {
        for (int16_t& sample : plane) sample = wild(random_, kind);
      }
      const ResamplerInfo info = {widths.in, widths.out, offset};
      const auto scalar = MakeResampler(form, true, info);
      const auto vector = MakeResampler(form, false, info);
      ASSERT_NE(scalar, nullptr);
      ASSERT_NE(vector, nullptr);
      for (size_t component = 0; component < 3; ++component) {
        ASSERT_EQ(filter(*scalar, component, offset, in[component], a[component]), 0);
        ASSERT_EQ(filter(*vector, component, offset, in[component], b[component]), 0);
        const size_t count = widths.out / (component == 0 ? 1 : 2);
        for (size_t i = 0; i < count; ++i) {
          ASSERT_EQ(a[component][i], b[component][i])
              << widths.in << " to " << widths.out << ", " << component << " at " << i;
        }
      }
    }
  }

  static int filter(const CResampler& resampler, size_t component, bool offset, const int16_t* in,
                    int16_t* out) {
    if (component == 0) {
      return offset ? resampler.FilterOffsetY(in, out) : resampler.FilterCentredY(in, out);
    }
    if (component == 1) {
      return offset ? resampler.FilterOffsetCb(in, out) : resampler.FilterCentredCb(in, out);
    }
    return offset ? resampler.FilterOffsetCr(in, out) : resampler.FilterCentredCr(in, out);
  }

  std::mt19937_64 random_{test::testSeed()};
};

TEST_F(ResamplerTargets, VectorsGiveWhatTheDefinitionGives) {
  size_t targets = 0;
  for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
    const int64_t target = left & -left;
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(target);
    ASSERT_EQ(hwy::SupportedTargets(), target);
    SCOPED_TRACE(hwy::TargetName(target));
    for (const Widths& widths : kQualityWidths) {
      ASSERT_NO_FATAL_FAILURE(expectTheSame(ResamplerForm::kQuality, widths, false));
      ASSERT_NO_FATAL_FAILURE(expectTheSame(ResamplerForm::kQuality, widths, true));
    }
    for (const Widths& widths : kDraftWidths) {
      ASSERT_NO_FATAL_FAILURE(expectTheSame(ResamplerForm::kDraft, widths, false));
    }
    hwy::SetSupportedTargetsForTest(0);
    ++targets;
  }
  EXPECT_GE(targets, 1u);
}

TEST(Resampler, PhasesAreOfOneSumAndStayInTheExtendedLine) {
  const struct {
    const FilterDescription& filter;
    uint32_t width;
  } kAll[] = {{kShrinkLuma, 1920},  {kShrinkChroma, 960}, {kExpandLuma, 1440},
              {kExpandChroma, 720}, {kDraft3To4, 720},    {kDraft3To2, 1440},
              {kDraft3To1, 1440},   {kDraft2To1, 1440},   {kDraft4To1, 1440}};
  for (const auto& one : kAll) {
    const FilterDescription& filter = one.filter;
    for (size_t i = 0; i < filter.phaseCount; ++i) {
      const FilterDescription::Phase& phase = filter.phases[i];
      int sum = 0;
      for (size_t tap = 0; tap < phase.tapCount; ++tap) sum += filter.taps[phase.tapsAt + tap];
      EXPECT_EQ(sum, 1 << kTapShift);
      EXPECT_EQ(phase.tapCount % 2, 0u) << "taps go in pairs";
      const uint32_t lastGroup = one.width - filter.advance;
      EXPECT_LE(lastGroup + phase.inputOffset + phase.tapCount, one.width + 2 * filter.edge + 1);
    }
  }
}

TEST(QualityResampler, SamplesComeToEightBitsAwayFromZero) {
  const int16_t in[] = {0, 1, 2, 5, 6, 506, 507, 511, 600, -1, -2, -5, -6, -507, -508, -600};
  const int16_t wanted[] = {0, 0, 4, 4, 8, 508, 508, 508, 508, 0, -4, -4, -8, -508, -508, -508};
  int16_t out[16];
  ScalarResampleKernels().reduce(in, out, 16, false);
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(out[i], wanted[i]) << in[i];
  int16_t codes[16];
  for (size_t i = 0; i < 16; ++i) codes[i] = static_cast<int16_t>(in[i] + 512);
  ScalarResampleKernels().reduce(codes, out, 16, true);
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(out[i], wanted[i]) << codes[i];
}

TEST(QualityResampler, FlatLinesKeepTheirCode) {
  for (const Widths& widths : kQualityWidths) {
    for (int code = 4; code < 1020; code += 4) {
      PlanarLine in, out;
      in.planes[0].fill(static_cast<int16_t>(code));
      const auto resampler =
          MakeResampler(ResamplerForm::kQuality, true, {widths.in, widths.out, true});
      ASSERT_EQ(resampler->FilterOffsetY(in[0], out[0]), 0);
      for (size_t i = 0; i < widths.out; ++i) ASSERT_EQ(out[0][i], code);
    }
  }
}

// The filter that the description stands for, in double precision and with a line without end.
double exact(const FilterDescription& filter, const int16_t* line, int samples, size_t at) {
  const size_t group = at / filter.phaseCount;
  const FilterDescription::Phase& phase = filter.phases[at % filter.phaseCount];
  double sum = 0;
  for (uint32_t tap = 0; tap < phase.tapCount; ++tap) {
    const int place = static_cast<int>(group * filter.advance + phase.inputOffset + tap) -
                      static_cast<int>(filter.edge);
    const double code = std::round(line[std::clamp(place, 0, samples - 1)] / 4.0);
    sum += filter.taps[phase.tapsAt + tap] * std::clamp(code, -127.0, 127.0);
  }
  return std::clamp(sum / 2048, -128.0, 127.0);
}

TEST(QualityResampler, LinesAreTheFiltersOfTheirComponents) {
  std::mt19937_64 random(test::testSeed());
  for (const Widths& widths : kQualityWidths) {
    PlanarLine in, out;
    for (auto& plane : in.planes) {
      for (int16_t& sample : plane) sample = static_cast<int16_t>(4 * (random() % 256) - 512);
    }
    const auto resampler =
        MakeResampler(ResamplerForm::kQuality, false, {widths.in, widths.out, false});
    ASSERT_EQ(resampler->FilterCentredY(in[0], out[0]), 0);
    ASSERT_EQ(resampler->FilterCentredCb(in[1], out[1]), 0);
    ASSERT_EQ(resampler->FilterCentredCr(in[2], out[2]), 0);
    const bool shrinks = widths.in > widths.out;
    for (size_t component = 0; component < 3; ++component) {
      const FilterDescription& filter = component == 0 ? (shrinks ? kShrinkLuma : kExpandLuma)
                                                       : (shrinks ? kShrinkChroma : kExpandChroma);
      const uint32_t half = component == 0 ? 1 : 2;
      for (size_t i = 0; i < widths.out / half; ++i) {
        ASSERT_NEAR(out[component][i] / 4.0,
                    exact(filter, in[component], static_cast<int>(widths.in / half), i), 0.5001);
        ASSERT_EQ(out[component][i] % 4, 0);
      }
    }
  }
}

// Samples stand in the middle of their pixels, and chroma on the first of two.
TEST(QualityResampler, WavesStayWhereTheyAre) {
  for (const Widths& widths : {kQualityWidths[0], kQualityWidths[2]}) {
    const double scale = double{1} * widths.in / widths.out;
    for (const double cycle : {7.0, 12.0, 100.0}) {
      PlanarLine in, out;
      const auto wave = [&](double x) { return 440 * std::sin(2 * std::numbers::pi * x / cycle); };
      for (size_t i = 0; i < widths.in; ++i) {
        in[0][i] = static_cast<int16_t>(std::lround(wave(static_cast<double>(i) + 0.5) / 4) * 4);
        in[1][i] = static_cast<int16_t>(std::lround(wave(static_cast<double>(i) + 0.25) / 4) * 4);
      }
      const auto resampler =
          MakeResampler(ResamplerForm::kQuality, false, {widths.in, widths.out, false});
      ASSERT_EQ(resampler->FilterCentredY(in[0], out[0]), 0);
      ASSERT_EQ(resampler->FilterCentredCb(in[1], out[1]), 0);
      for (size_t i = 20; i + 20 < widths.out / 2; ++i) {
        const auto x = static_cast<double>(i);
        ASSERT_NEAR(out[0][i], wave((x + 0.5) * scale), 10) << cycle;
        ASSERT_NEAR(out[1][i], wave((x + 0.25) * scale), 10) << cycle;
      }
    }
  }
}

// The one filter whose taps are given: through a delay line that starts out full of the first
// sample, the newest sample in front.
TEST(DraftResampler, ThreeToTwoHasItsFixedTaps) {
  std::mt19937_64 random(test::testSeed());
  std::vector<int16_t> in(1440);
  for (int16_t& sample : in) sample = static_cast<int16_t>(random() % 256);
  std::vector<int16_t> wanted;
  std::array<int, 4> delay;
  delay.fill(in[0]);
  size_t entered = 0;
  while (wanted.size() < 960) {
    const bool second = wanted.size() % 2 != 0;
    const size_t due = wanted.size() / 2 * 3 + (second ? 5 : 3);
    for (; entered < due; ++entered) {
      std::copy_backward(delay.begin(), delay.end() - 1, delay.end());
      delay[0] = in[std::min<size_t>(entered, 1439)];
    }
    constexpr int kTaps[2][4] = {{0, 498, 1499, 51}, {0, 51, 1499, 498}};
    int sum = 1024;
    for (size_t i = 0; i < 4; ++i) sum += kTaps[second ? 1 : 0][i] * delay[i];
    wanted.push_back(static_cast<int16_t>(std::clamp(sum >> 11, 0, 255)));
  }
  for (const bool reference : {true, false}) {
    const auto resampler = MakeResampler(ResamplerForm::kDraft, reference, {1440, 960, false});
    std::vector<int16_t> out(960 + kPlaneMargin);
    ASSERT_EQ(resampler->FilterBytesY(in.data(), out.data()), 0);
    for (size_t i = 0; i < 960; ++i) ASSERT_EQ(out[i], wanted[i]) << i;
    // The same line in the scale of the others.
    std::vector<int16_t> centred(1440 + kPlaneMargin);
    for (size_t i = 0; i < 1440; ++i) centred[i] = static_cast<int16_t>(4 * in[i] - 512);
    ASSERT_EQ(resampler->FilterCentredY(centred.data(), out.data()), 0);
    for (size_t i = 0; i < 960; ++i) ASSERT_EQ(out[i], 4 * wanted[i] - 512) << i;
  }
}

TEST(DraftResampler, EveryRatioKeepsFlatLinesAndSlopes) {
  for (const Widths& widths : kDraftWidths) {
    for (const bool reference : {true, false}) {
      const auto resampler =
          MakeResampler(ResamplerForm::kDraft, reference, {widths.in, widths.out, false});
      ASSERT_NE(resampler, nullptr);
      std::vector<int16_t> in(widths.in + kPlaneMargin, 201), out(widths.out + kPlaneMargin);
      ASSERT_EQ(resampler->FilterBytesY(in.data(), out.data()), 0);
      for (size_t i = 0; i < widths.out; ++i) ASSERT_EQ(out[i], 201);
      const double scale = double{1} * widths.in / widths.out;
      for (size_t i = 0; i < widths.in; ++i) in[i] = static_cast<int16_t>(i * 255 / widths.in);
      ASSERT_EQ(resampler->FilterBytesY(in.data(), out.data()), 0);
      for (size_t i = 4; i + 4 < widths.out; ++i) {
        const double x = (static_cast<double>(i) + 0.5) * scale - 0.5;
        ASSERT_NEAR(out[i], x * 255 / widths.in, 1.6) << widths.in << " to " << widths.out;
      }
    }
  }
}

TEST(Resampler, WhatHasNoFilterIsRefused) {
  for (const ResamplerForm form : {ResamplerForm::kQuality, ResamplerForm::kDraft}) {
    for (const bool reference : {true, false}) {
      EXPECT_EQ(MakeResampler(form, reference, {1920, 1920, false}), nullptr);
      EXPECT_EQ(MakeResampler(form, reference, {1440, 1080, true}) == nullptr,
                form == ResamplerForm::kDraft);
      EXPECT_EQ(MakeResampler(form, reference, {3840, 2880, false}), nullptr);
      EXPECT_EQ(MakeResampler(form, reference, {0, 100, false}), nullptr);
    }
  }
  int16_t none[8] = {};
  EXPECT_EQ(CBaseQualityPolyLine().FilterBytesY(none, none), kMissingResource);
  EXPECT_EQ(CBaseQualityPolyLine().FilterCentredY(none, none), kMissingResource);
  EXPECT_EQ(COptiDraftPolyLine().FilterOffsetCr(none, none), kMissingResource);
  EXPECT_EQ(COptiDraftPolyLine().FilterBytesCb(none, none), kMissingResource);
}

class Waves : public LineSource {
 public:
  void GetLine(size_t line, PlanarLine& out) override {
    for (size_t i = 0; i < 3; ++i) {
      out.planes[i].fill(
          static_cast<int16_t>(4 * (10 * static_cast<int>(line) + static_cast<int>(i))));
    }
  }
};

class Heights : public LineSink {
 public:
  void TakeLine(size_t line, PlanarLine& in) override {
    lines.push_back(line);
    for (size_t i = 0; i < 3; ++i) codes.push_back(in[i][5]);
  }
  std::vector<size_t> lines;
  std::vector<int> codes;
};

TEST(Resampler, LinesGoFromTheSourceToTheSinkOneByOne) {
  const auto resampler = MakeResampler(ResamplerForm::kQuality, false, {1440, 1920, false});
  Waves source;
  Heights sink;
  PlanarLine line;
  ASSERT_EQ(resampler->ProcessLines(source, line, sink, {2, 3}), 0);
  EXPECT_EQ(sink.lines, (std::vector<size_t>{2, 3, 4}));
  EXPECT_EQ(sink.codes, (std::vector<int>{80, 84, 88, 120, 124, 128, 160, 164, 168}));
}

}  // namespace
}  // namespace zel::dnxhd
