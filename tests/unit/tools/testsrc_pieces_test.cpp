// The generator's smaller pieces: arithmetic, letters, the storyboard, the sampling kernel, grain.
#include <gtest/gtest.h>

#include <hwy/targets.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/support/seed.h"
#include "tools/zel/testsrc/colour.h"
#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/font.h"
#include "tools/zel/testsrc/grain.h"
#include "tools/zel/testsrc/storyboard.h"
#include "tools/zel/testsrc/tile_kernels.h"

namespace zel::testsrc {
namespace {

TEST(FixedMath, SineIsNearTheRealOne) {
  for (uint64_t phase = 0; phase < uint64_t{1} << 32; phase += 65521) {
    const double angle = std::ldexp(static_cast<double>(phase), -31) * 3.14159265358979323846;
    ASSERT_NEAR(sine(static_cast<uint32_t>(phase)), std::ldexp(std::sin(angle), 30), 5) << phase;
  }
  EXPECT_EQ(sine(0), 0);
  EXPECT_EQ(sine(0x40000000), 1 << 30);
  EXPECT_EQ(sine(0xC0000000), -(1 << 30));
  EXPECT_EQ(cosine(0), 1 << 30);
}

TEST(FixedMath, SquareRootIsRoundedDown) {
  std::mt19937_64 random(test::testSeed());
  for (int i = 0; i < 10000; ++i) {
    const uint64_t value = random() >> (random() % 64);
    const uint64_t root = squareRoot(value);
    ASSERT_LE(root * root, value);
    ASSERT_TRUE(root == UINT32_MAX || (root + 1) * (root + 1) > value);
  }
  EXPECT_EQ(squareRoot(UINT64_MAX), UINT32_MAX);
}

TEST(FixedMath, DrawsStayWithinTheirBounds) {
  Draws draws(test::testSeed());
  std::set<int> seen;
  for (int i = 0; i < 1000; ++i) {
    const int value = draws.between(-3, 4);
    ASSERT_GE(value, -3);
    ASSERT_LE(value, 4);
    seen.insert(value);
  }
  EXPECT_EQ(seen.size(), 8u);
}

TEST(Font, LettersAreThereAndDiffer) {
  std::set<std::string> shapes;
  for (char c = ' '; c <= '~'; ++c) {
    const GlyphMask mask = glyphMask(c, 1);
    shapes.emplace(mask.dots.begin(), mask.dots.end());
  }
  EXPECT_EQ(shapes.size(), 95u);
  EXPECT_EQ(std::ranges::count(glyphMask(' ', 1).dots, 1), 0);
  EXPECT_EQ(glyphMask('\n', 1).dots, glyphMask('?', 1).dots);
  EXPECT_EQ(glyphMask('\xE9', 1).dots, glyphMask('?', 1).dots);
}

TEST(Font, EnlargingKeepsTheShape) {
  for (const int scale : {2, 3, 4, 8, 12}) {
    const GlyphMask large = glyphMask('R', scale);
    EXPECT_EQ(large.width, kGlyphWidth * scale);
    EXPECT_EQ(large.height, kGlyphHeight * scale);
    int differing = 0;
    for (int y = 0; y < large.height; ++y) {
      for (int x = 0; x < large.width; ++x) {
        differing += large.at(x, y) != glyphDot('R', x / scale, y / scale) ? 1 : 0;
      }
    }
    // Rounded corners only, and none where nothing is rounded.
    EXPECT_LE(differing, scale % 2 == 0 ? large.width * large.height / 5 : 0) << scale;
  }
}

TEST(Font, MeasuresText) {
  const Font font(3);
  EXPECT_EQ(font.widthOf(""), 0);
  EXPECT_EQ(font.widthOf("A"), 15);
  EXPECT_EQ(font.widthOf("AB"), 33);
  EXPECT_EQ(fontScale(0), 1);
  EXPECT_EQ(fontScale(3), 3);
  EXPECT_EQ(fontScale(7), 6);
  EXPECT_EQ(fontScale(11), 8);
}

TEST(Storyboard, ShotsFollowOneAnotherWithoutGaps) {
  for (uint64_t seed = 0; seed < 50; ++seed) {
    Storyboard storyboard(seed);
    std::set<SceneKind> kinds;
    std::set<Transition> endings;
    for (size_t i = 0; i < 60; ++i) {
      const Shot shot = storyboard.shot(i);
      if (i < 5) kinds.insert(shot.kind);
      endings.insert(shot.ending);
      EXPECT_GE(shot.end - shot.begin, 65536 * 3 / 2);
      EXPECT_LE(shot.end - shot.begin, 65536 * 4);
      EXPECT_EQ(storyboard.at(shot.begin).shot, i);
      EXPECT_EQ(storyboard.at(shot.end - 1).shot, i);
      EXPECT_EQ(shot.end, storyboard.shot(i + 1).begin);
      EXPECT_NE(shot.kind, storyboard.shot(i + 1).kind);
    }
    EXPECT_EQ(kinds.size(), 5u) << "five shots show every kind";
    EXPECT_EQ(endings.size(), 3u);
  }
}

TEST(Storyboard, TransitionsEndWhereTheNextShotTakesOver) {
  Storyboard storyboard(1);
  for (size_t i = 0; i < 60; ++i) {
    const Shot shot = storyboard.shot(i);
    const Moment last = storyboard.at(shot.end - 1);
    const Moment first = storyboard.at(shot.end);
    EXPECT_EQ(last.nextShare >= 254, shot.ending == Transition::kDissolve);
    EXPECT_EQ(last.brightness <= 1, shot.ending == Transition::kThroughBlack);
    EXPECT_EQ(first.brightness <= 1, shot.ending == Transition::kThroughBlack);
    EXPECT_EQ(first.nextShare, 0);
    EXPECT_EQ(storyboard.at((shot.begin + shot.end) / 2).brightness, 256);
  }
}

TEST(Grain, IsStrongestInTheMiddleTonesAndNewEveryFrame) {
  const Grain grain(5);
  constexpr int kCount = 1280;
  const auto deviation = [&](int level, int strength) {
    double sum = 0;
    for (int row = 0; row < 64; ++row) {
      std::vector<int16_t> levels(kCount, static_cast<int16_t>(level));
      grain.add(3, 0, row, strength, kCount, levels.data());
      for (const int16_t value : levels) sum += (value - level) * (value - level);
    }
    return std::sqrt(sum / (64 * kCount));
  };
  EXPECT_NEAR(deviation(2048, 256), 32, 3);
  EXPECT_LT(deviation(kBlack, 256), 14);
  EXPECT_LT(deviation(kWhite, 256), 18);
  EXPECT_NEAR(deviation(2048, 128), 16, 2);

  double product = 0;
  for (int row = 0; row < 64; ++row) {
    std::vector<int16_t> now(kCount, 2048);
    std::vector<int16_t> next(kCount, 2048);
    grain.add(3, 0, row, 256, kCount, now.data());
    grain.add(4, 0, row, 256, kCount, next.data());
    for (int i = 0; i < kCount; ++i) {
      product += (now[static_cast<size_t>(i)] - 2048) * (next[static_cast<size_t>(i)] - 2048);
    }
  }
  EXPECT_LT(std::abs(product / (64 * kCount)), 0.03 * 32 * 32);
}

// The sampling kernel against its definition, on every instruction set that the machine has.
class TileKernel : public testing::TestWithParam<int64_t> {
 protected:
  void SetUp() override { force(GetParam()); }
  void TearDown() override { force(0); }

  static void force(int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }
};

TEST_P(TileKernel, TheTargetThatWasForcedIsTheOneInUse) {
  EXPECT_EQ(hwy::SupportedTargets(), GetParam());
}

TEST_P(TileKernel, GivesWhatTheDefinitionGives) {
  std::mt19937_64 random(test::testSeed());
  for (const int bits : {1, 4, 9, 10}) {
    for (int fill = 0; fill < 3; ++fill) {
      std::vector<uint32_t> quads(size_t{1} << (2 * bits));
      for (uint32_t& quad : quads) {
        quad = fill == 0 ? static_cast<uint32_t>(random()) : fill == 1 ? 0xFFFFFFFF : 0xFF00FF00;
      }
      for (int count = 0; count < 150; count += count < 40 ? 1 : 13) {
        const auto any = [&] { return static_cast<uint32_t>(random()) >> (random() % 32); };
        const TileLine line = {quads.data(), bits, any(), any(), any(), any()};
        const auto size = static_cast<size_t>(count);
        std::vector<int16_t> expected(size);
        std::vector<int16_t> values(size + 2, 0x5A5A);
        sampleTileScalar(line, count, expected.data());
        sampleTileVector(line, count, values.data() + 1);
        EXPECT_EQ(values.front(), 0x5A5A);
        EXPECT_EQ(values.back(), 0x5A5A);
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), values.begin() + 1)) << count;
      }
    }
  }
}

TEST(TileKernelScalar, IsTheMeanByDistance) {
  const uint32_t quads[4] = {0x28 << 24 | 0x1E << 16 | 0x14 << 8 | 0x0A, 0, 0, 0};
  int16_t value = 0;
  const auto at = [&](uint32_t u, uint32_t v) {
    sampleTileScalar({quads, 1, u, v, 0, 0}, 1, &value);
    return value;
  };
  EXPECT_EQ(at(0, 0), 10 * 16);
  EXPECT_EQ(at(0x8000, 0), 15 * 16);
  EXPECT_EQ(at(0, 0x8000), 20 * 16);
  EXPECT_EQ(at(0x8000, 0x8000), 25 * 16);
  EXPECT_EQ(at(0x20000, 0x40000), 10 * 16);
}

INSTANTIATE_TEST_SUITE_P(Targets, TileKernel,
                         testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         [](const auto& chosen) { return hwy::TargetName(chosen.param); });

}  // namespace
}  // namespace zel::testsrc
