#include "tools/zel/testsrc/picture_source.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <vector>

#include "tools/zel/media/y4m_format.h"
#include "tools/zel/testsrc/colour.h"

namespace zel::testsrc {
namespace {

constexpr Pattern kAllPatterns[] = {Pattern::kBars, Pattern::kZone, Pattern::kMotion,
                                    Pattern::kNoise, Pattern::kText};

PictureOptions small(Pattern pattern) {
  PictureOptions options;
  options.pattern = pattern;
  options.width = 192;
  options.height = 108;
  return options;
}

std::vector<uint8_t> frameOf(PictureSource& source, uint64_t frame) {
  std::vector<uint8_t> bytes(source.frameBytes());
  source.render(frame, bytes);
  return bytes;
}

std::vector<uint8_t> frameOf(const PictureOptions& options, uint64_t frame) {
  PictureSource source(options);
  return frameOf(source, frame);
}

// A frame's samples by plane, whatever their width in memory.
struct Samples {
  explicit Samples(const PictureOptions& options, uint64_t frame) {
    PictureSource source(options);
    const media::Y4mLayout layout = media::y4mLayout(source.header());
    const std::vector<uint8_t> bytes = frameOf(source, frame);
    EXPECT_EQ(layout.frameBytes, bytes.size());
    for (size_t i = 0; i < planes.size(); ++i) {
      width[i] = layout.planes[i].width;
      height[i] = layout.planes[i].height;
      const uint8_t* at = bytes.data() + layout.planes[i].offset;
      for (size_t j = 0; j < size_t{width[i]} * height[i]; ++j) {
        uint16_t value = at[j];
        if (options.depth > 8) std::memcpy(&value, at + 2 * j, 2);
        planes[i].push_back(value);
      }
    }
  }

  int at(size_t plane, uint32_t x, uint32_t y) const {
    return planes[plane].at(size_t{y} * width[plane] + x);
  }
  std::vector<uint16_t> row(size_t plane, uint32_t y) const {
    const auto begin = planes[plane].begin() + static_cast<ptrdiff_t>(size_t{y} * width[plane]);
    return {begin, begin + width[plane]};
  }

  std::array<std::vector<uint16_t>, 3> planes;
  std::array<uint32_t, 3> width{};
  std::array<uint32_t, 3> height{};
};

uint64_t hashOf(const std::vector<uint8_t>& bytes, uint64_t hash) {  // FNV-1a
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3u;
  return hash;
}

// The bytes themselves: every compiler, machine and level of optimisation must give the same. A
// change of a pattern changes them on purpose; the failure prints the new value.
struct Golden {
  const char* name;
  Pattern pattern;
  Chroma chroma;
  int depth;
  Scan scan;
  uint64_t hash;
};

void PrintTo(const Golden& golden, std::ostream* out) {
  *out << golden.name;
}

constexpr Golden kGoldens[] = {
    {"bars", Pattern::kBars, Chroma::k420, 8, Scan::kProgressive, 0xE107AE92F791E444},
    {"zone", Pattern::kZone, Chroma::k420, 8, Scan::kProgressive, 0xD3CA1895FA5DB890},
    {"motion", Pattern::kMotion, Chroma::k420, 8, Scan::kProgressive, 0xC096A7296D81BE99},
    {"noise", Pattern::kNoise, Chroma::k420, 8, Scan::kProgressive, 0x362C869CBAAB9763},
    {"text", Pattern::kText, Chroma::k420, 8, Scan::kProgressive, 0x58765A2FBAD13696},
    {"bars_422_10_tff", Pattern::kBars, Chroma::k422, 10, Scan::kTopFirst, 0x63E5594E0C94607E},
    {"zone_422_10_tff", Pattern::kZone, Chroma::k422, 10, Scan::kTopFirst, 0xA94256DAD63AB5E8},
    {"motion_422_10_tff", Pattern::kMotion, Chroma::k422, 10, Scan::kTopFirst, 0xA6EFFE2ED729888A},
    {"noise_422_10", Pattern::kNoise, Chroma::k422, 10, Scan::kProgressive, 0xF48AB90F49FBEB2E},
    {"text_422_10_bff", Pattern::kText, Chroma::k422, 10, Scan::kBottomFirst, 0x1DBB4D34529E51B1},
    {"motion_444_8", Pattern::kMotion, Chroma::k444, 8, Scan::kProgressive, 0xDF6E262D0E38493},
};

class TestsrcGolden : public testing::TestWithParam<Golden> {};

TEST_P(TestsrcGolden, BytesAreTheSameEverywhere) {
  const Golden& golden = GetParam();
  PictureOptions options = small(golden.pattern);
  options.chroma = golden.chroma;
  options.depth = golden.depth;
  options.scan = golden.scan;
  PictureSource source(options);
  uint64_t hash = 0xCBF29CE484222325u;
  // Over several shots of the moving pictures, and the far end of a day.
  for (const uint64_t frame : {0u, 1u, 44u, 150u, 260u, 370u, 2589407u}) {
    hash = hashOf(frameOf(source, frame), hash);
  }
  EXPECT_EQ(hash, golden.hash) << std::hex << "now 0x" << hash;
}

INSTANTIATE_TEST_SUITE_P(All, TestsrcGolden, testing::ValuesIn(kGoldens),
                         [](const auto& row) { return std::string(row.param.name); });

class TestsrcPattern : public testing::TestWithParam<Pattern> {};

TEST_P(TestsrcPattern, FramesDoNotDependOnTheOrderOfAsking) {
  const PictureOptions options = small(GetParam());
  PictureSource source(options);
  std::map<uint64_t, std::vector<uint8_t>> frames;
  for (const uint64_t frame : {90u, 3u, 200u, 0u, 91u}) frames[frame] = frameOf(source, frame);
  for (const auto& [frame, bytes] : frames) EXPECT_TRUE(frameOf(options, frame) == bytes) << frame;
}

TEST_P(TestsrcPattern, EachFrameDiffersFromTheOneBefore) {
  PictureOptions options = small(GetParam());
  options.mark = false;
  PictureSource source(options);
  std::vector<uint8_t> before = frameOf(source, 0);
  for (uint64_t frame = 1; frame < 20; ++frame) {
    std::vector<uint8_t> now = frameOf(source, frame);
    EXPECT_FALSE(now == before) << frame;
    before = std::move(now);
  }
}

TEST_P(TestsrcPattern, TheMarkIsLeftOutWhenAskedFor) {
  PictureOptions options = small(GetParam());
  const Samples with(options, 5);
  options.mark = false;
  const Samples without(options, 5);
  EXPECT_NE(with.row(0, 0), without.row(0, 0));
  EXPECT_EQ(with.row(0, 107), without.row(0, 107));
}

TEST_P(TestsrcPattern, LumaIsTheSameWithAnyChroma) {
  PictureOptions options = small(GetParam());
  const Samples base(options, 40);
  for (const Chroma chroma : {Chroma::k422, Chroma::k444}) {
    options.chroma = chroma;
    const Samples other(options, 40);
    EXPECT_TRUE(other.planes[0] == base.planes[0]);
    EXPECT_EQ(other.width[1], chroma == Chroma::k444 ? 192u : 96u);
    EXPECT_EQ(other.height[1], 108u);
  }
}

TEST_P(TestsrcPattern, TenBitsAreTheSamePictureMoreFinely) {
  if (GetParam() == Pattern::kNoise) {
    PictureOptions options = small(GetParam());
    options.depth = 10;
    const Samples deep(options, 0);
    EXPECT_EQ(*std::ranges::max_element(deep.planes[0]), 1023);
    EXPECT_EQ(*std::ranges::min_element(deep.planes[0]), 0);
    return;
  }
  PictureOptions options = small(GetParam());
  const Samples shallow(options, 40);
  options.depth = 10;
  const Samples deep(options, 40);
  for (size_t plane = 0; plane < 3; ++plane) {
    for (size_t i = 0; i < deep.planes[plane].size(); ++i) {
      ASSERT_LE(std::abs(deep.planes[plane][i] - 4 * shallow.planes[plane][i]), 2) << plane;
    }
  }
}

TEST_P(TestsrcPattern, KeepsClearOfReservedCodes) {
  for (const int depth : {8, 10}) {
    PictureOptions options = small(GetParam());
    options.depth = depth;
    const int unit = 1 << (depth - 8);
    for (const uint64_t frame : {0u, 100u, 230u, 400u}) {
      const Samples samples(options, frame);
      for (const auto& plane : samples.planes) {
        // Random samples take every code on purpose; a plane of so few need not have the last.
        const bool clear = *std::ranges::min_element(plane) >= unit &&
                           *std::ranges::max_element(plane) <= 255 * unit - 1;
        EXPECT_EQ(clear, GetParam() != Pattern::kNoise);
      }
    }
  }
}

TEST_P(TestsrcPattern, TakesAnySizeAndRate) {
  constexpr std::array<std::pair<uint32_t, uint32_t>, 5> kSizes = {
      {{32, 32}, {33, 35}, {47, 203}, {1031, 33}, {8192, 32}}};
  constexpr media::Rational kRates[] = {{1, 1}, {24000, 1001}, {1000, 1}};
  for (const auto& [width, height] : kSizes) {
    for (const bool fields : {false, true}) {
      PictureOptions options = small(GetParam());
      options.width = width;
      options.height = height;
      options.chroma = fields == (width % 2 == 0) ? Chroma::k420 : Chroma::k444;
      options.scan = fields ? Scan::kBottomFirst : Scan::kProgressive;
      options.rate = kRates[(width + height) % 3];
      ASSERT_EQ(optionsFault(options), "");
      EXPECT_FALSE(frameOf(options, 7).empty());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, TestsrcPattern, testing::ValuesIn(kAllPatterns),
                         [](const auto& row) { return std::string(nameOf(row.param)); });

// One field is at the instant of the progressive frame, and the other half a frame later.
TEST(TestsrcInterlaced, TheSecondFieldIsLater) {
  for (const Pattern pattern : {Pattern::kMotion, Pattern::kBars}) {
    for (const Scan scan : {Scan::kTopFirst, Scan::kBottomFirst}) {
      PictureOptions options = small(pattern);
      options.mark = false;
      const Samples frame(options, 40);
      options.scan = scan;
      const Samples fields(options, 40);
      const uint32_t first = scan == Scan::kTopFirst ? 0 : 1;
      int later = 0;
      for (size_t plane = 0; plane < 3; ++plane) {
        for (uint32_t y = 0; y < frame.height[plane]; ++y) {
          const bool same = fields.row(plane, y) == frame.row(plane, y);
          if (y % 2 == first) {
            // The legend tells a progressive picture from an interlaced one.
            EXPECT_TRUE(same || pattern == Pattern::kBars) << plane << ' ' << y;
          } else if (!same) {
            ++later;
          }
        }
      }
      EXPECT_GT(later, pattern == Pattern::kMotion ? 50 : 0);
    }
  }
}

// Text moves by whole rows: a frame later, the fields have taken the same way as two fields.
TEST(TestsrcInterlaced, TextRollsByWholeRowsAField) {
  PictureOptions options = small(Pattern::kText);
  options.rate = {25, 1};
  options.mark = false;
  options.scan = Scan::kTopFirst;
  const Samples now(options, 30);
  const Samples next(options, 31);
  // One row of the background's gradient differs from the next by less than two codes.
  for (uint32_t y = 40; y < 60; ++y) {
    for (uint32_t x = 0; x < 192; ++x) {
      ASSERT_LE(std::abs(next.at(0, x, y) - now.at(0, x, y + 2)), 2) << x << ' ' << y;
    }
  }
}

// ITU-R BT.709, 75 % bars, as every table of levels has them.
TEST(TestsrcBars, HaveTheLevelsOfTheStandard) {
  PictureOptions options;
  options.pattern = Pattern::kBars;
  options.mark = false;
  const Samples bars(options, 0);
  const auto expect = [&](uint32_t x, uint32_t y, std::array<int, 3> levels, const char* name) {
    EXPECT_EQ(bars.at(0, x, y), levels[0]) << name;
    EXPECT_EQ(bars.at(1, x / 2, y / 2), levels[1]) << name;
    EXPECT_EQ(bars.at(2, x / 2, y / 2), levels[2]) << name;
  };
  const auto middle = [](uint32_t part, uint32_t parts) { return 1280 * (2 * part + parts) / 112; };
  expect(middle(0, 7), 60, {104, 128, 128}, "40 % gray");
  expect(middle(7, 6), 60, {180, 128, 128}, "white");
  expect(middle(13, 6), 60, {168, 44, 136}, "yellow");
  expect(middle(19, 6), 60, {145, 147, 44}, "cyan");
  expect(middle(25, 6), 60, {134, 63, 52}, "green");
  expect(middle(31, 6), 60, {63, 193, 204}, "magenta");
  expect(middle(37, 6), 60, {51, 109, 212}, "red");
  expect(middle(43, 6), 60, {28, 212, 120}, "blue");
  expect(middle(0, 7), 450, {188, 154, 16}, "100 % cyan");
  expect(middle(49, 7), 450, {32, 240, 118}, "100 % blue");
  expect(middle(0, 7), 510, {219, 16, 138}, "100 % yellow");
  expect(middle(49, 7), 510, {63, 102, 240}, "100 % red");
  expect(middle(16, 12), 630, {235, 128, 128}, "100 % white");
  expect(middle(33, 2), 630, {12, 128, 128}, "2 % below black");
  expect(middle(37, 2), 630, {20, 128, 128}, "2 % above black");
  expect(middle(41, 2), 630, {25, 128, 128}, "4 % above black");
  EXPECT_EQ(bars.at(0, 297, 510), 16) << "start of the ramp";
  EXPECT_EQ(bars.at(0, 981, 510), 235) << "end of the ramp";
}

TEST(TestsrcBars, TakeTheMatrixOfStandardDefinition) {
  PictureOptions options;
  options.pattern = Pattern::kBars;
  options.width = 720;
  options.height = 576;
  options.mark = false;
  const Samples bars(options, 0);
  EXPECT_EQ(bars.at(0, 208, 20), 162);  // 75 % yellow by BT.601
  EXPECT_EQ(bars.at(1, 104, 10), 44);
  EXPECT_EQ(bars.at(2, 104, 10), 142);
}

TEST(TestsrcZone, UsesTheWholeRangeAndTurnsAtTheCentre) {
  PictureOptions options;
  options.pattern = Pattern::kZone;
  options.mark = false;
  const Samples zone(options, 0);
  EXPECT_EQ(*std::ranges::max_element(zone.planes[0]), 235);
  EXPECT_EQ(*std::ranges::min_element(zone.planes[0]), 16);
  // The phase starts at zero where the centre is: a sixteenth of the width right of the middle.
  EXPECT_EQ(zone.at(0, 720, 360), 235);
}

TEST(TestsrcNoise, HasAllCodesEquallyOften) {
  PictureOptions options;
  options.pattern = Pattern::kNoise;
  options.mark = false;
  const Samples noise(options, 3);
  for (const auto& plane : noise.planes) {
    std::array<int, 256> counts{};
    for (const uint16_t value : plane) ++counts[value];
    const double expected = static_cast<double>(plane.size()) / 256;
    double square = 0;
    for (const int count : counts) square += (count - expected) * (count - expected) / expected;
    EXPECT_LT(square, 340) << "chi-squared of 255 degrees, p < 0.0005";
  }
  // Neighbours, rows and frames have nothing in common.
  const Samples next(options, 4);
  const auto correlation = [](const auto& a, const auto& b, size_t shift) {
    double sum = 0;
    for (size_t i = 0; i + shift < a.size(); ++i) sum += (a[i] - 127.5) * (b[i + shift] - 127.5);
    return std::abs(sum / (5461.25 * static_cast<double>(a.size() - shift)));
  };
  EXPECT_LT(correlation(noise.planes[0], next.planes[0], 0), 0.005);
  for (const size_t shift : {1u, 2u, 4u, 64u, 1280u}) {
    EXPECT_LT(correlation(noise.planes[0], noise.planes[0], shift), 0.005) << shift;
  }
}

TEST(TestsrcMotion, SeedsGiveDifferentPictures) {
  PictureOptions options = small(Pattern::kMotion);
  const auto one = frameOf(options, 10);
  options.seed = 2;
  EXPECT_FALSE(frameOf(options, 10) == one);
}

TEST(TestsrcOptions, NameWhatIsWrong) {
  PictureOptions options;
  EXPECT_EQ(optionsFault(options), "");
  options.width = 31;
  EXPECT_NE(optionsFault(options).find("31x720"), std::string::npos);
  options.width = 8193;
  EXPECT_NE(optionsFault(options).find("8193x720"), std::string::npos);
  options.width = 1280;
  options.depth = 9;
  EXPECT_NE(optionsFault(options).find("depth 9"), std::string::npos);
  options.depth = 8;
  for (const media::Rational rate : {media::Rational{0, 0}, media::Rational{1, 2},
                                     media::Rational{1001, 1}, media::Rational{999999, 100003}}) {
    options.rate = rate;
    EXPECT_NE(optionsFault(options).find("frame rate"), std::string::npos) << media::toText(rate);
  }
}

TEST(TestsrcColours, ComeFromWholeNumbers) {
  EXPECT_EQ(fromRgb(kBt709, 0, 0, 0), (Colour{kBlack, kNeutral, kNeutral}));
  EXPECT_EQ(fromRgb(kBt709, 10000, 10000, 10000), (Colour{kWhite, kNeutral, kNeutral}));
  EXPECT_EQ(fromRgb(kBt601, 0, 0, 10000).cb, kNeutral + 112 * 16);
  EXPECT_EQ(fromRgb(kBt601, 10000, 10000, 0).cb, kNeutral - 112 * 16);
}

}  // namespace
}  // namespace zel::testsrc
