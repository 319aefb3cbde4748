#include "zel/dnxhd/formatters/pixel_kernels.h"

#include <gtest/gtest.h>

#include <hwy/targets.h>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/seed.h"
#include "zel/dnxhd/formatters/color_constants.h"

namespace zel::dnxhd {
namespace {

constexpr size_t kTypes = static_cast<size_t>(YCbCrSamples::kCount);
constexpr size_t kRgbTypes = static_cast<size_t>(RgbSamples::kCount);
constexpr auto kFloatType = static_cast<size_t>(YCbCrSamples::kFloat);
constexpr auto kV210Type = static_cast<size_t>(YCbCrSamples::kV210);
constexpr auto kLowPlaneType = static_cast<size_t>(YCbCrSamples::k10_2_8);
constexpr uint8_t kGuard = 0xA5;

size_t packedBytes(size_t type, size_t pixels) {
  if (type == kV210Type) return (pixels + 5) / 6 * 16;
  constexpr size_t kBytes[kTypes] = {2, 4, 4, 8, 2, 0};
  return kBytes[type] * pixels;
}

size_t rgbBytes(size_t type, size_t pixels) {
  return pixels * (type == 0 ? 4 : 8);
}

class PixelTargets : public testing::Test {
 protected:
  void TearDown() override {
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().DeInit();
  }

  // Runs `check` once for each target of the machine, with a proof that it took.
  template <typename Check>
  void forEachTarget(Check check) {
    size_t targets = 0;
    int64_t bits = hwy::SupportedTargets() & HWY_TARGETS;
    while (bits != 0) {
      const int64_t target = bits & -bits;
      bits &= bits - 1;
      hwy::SetSupportedTargetsForTest(target);
      hwy::GetChosenTarget().Update(target);
      ASSERT_EQ(hwy::SupportedTargets(), target);
      SCOPED_TRACE(hwy::TargetName(target));
      check();
      if (HasFatalFailure()) return;
      ++targets;
    }
    EXPECT_GE(targets, 1u);
  }

  std::mt19937_64 random_{test::testSeed()};

  std::vector<uint8_t> bytes(size_t count) {
    std::vector<uint8_t> out(count);
    const uint64_t kind = random_() % 4;
    for (uint8_t& byte : out) {
      if (kind == 0) {
        byte = static_cast<uint8_t>(random_() % 2 * 255);
      } else {
        byte = static_cast<uint8_t>(random_());
      }
    }
    return out;
  }

  // Within the depth, around its bounds, or anything.
  void fill(PlanarLine& line) {
    const uint64_t kind = random_() % 4;
    for (auto& plane : line.planes) {
      for (int16_t& sample : plane) {
        const auto any = static_cast<int16_t>(random_());
        if (kind == 0) sample = static_cast<int16_t>(any % 512);
        if (kind == 1) sample = static_cast<int16_t>(any % 700);
        if (kind == 2) sample = any;
        if (kind == 3) sample = any % 2 == 0 ? int16_t{-32768} : int16_t{32767};
      }
    }
  }
};

std::vector<size_t> lineSizes() {
  std::vector<size_t> sizes;
  for (size_t n = 2; n <= 70; n += 2) sizes.push_back(n);
  for (const size_t n : {180, 240, 360, 480, 720, 960, 1280, 1440, 1920}) sizes.push_back(n);
  return sizes;
}

void expectSame(const int16_t* a, const int16_t* b, size_t count, const char* what) {
  for (size_t i = 0; i < count; ++i) ASSERT_EQ(a[i], b[i]) << what << " at " << i;
}

TEST_F(PixelTargets, UnpackingIsAsDefined) {
  forEachTarget([&] {
    const YCbCrKernels vectors = VectorYCbCrKernels();
    for (const size_t pixels : lineSizes()) {
      for (size_t type = 0; type < kTypes; ++type) {
        const size_t shift = random_() % 16;  // lines may start anywhere
        const std::vector<uint8_t> in = bytes(packedBytes(type, pixels) + shift);
        const std::vector<uint8_t> low = bytes(pixels / 2);
        for (const bool ten : {false, true}) {
          const auto& scalar = ScalarYCbCrKernels();
          PlanarLine a, b;
          (ten ? scalar.depth10 : scalar.depth8)
              .unpack[type](in.data() + shift, low.data(), a[0], a[1], a[2], pixels);
          (ten ? vectors.depth10 : vectors.depth8)
              .unpack[type](in.data() + shift, low.data(), b[0], b[1], b[2], pixels);
          const std::string what = std::to_string(type) + (ten ? " at 10" : " at 8");
          ASSERT_NO_FATAL_FAILURE(expectSame(a[0], b[0], pixels, what.c_str()));
          ASSERT_NO_FATAL_FAILURE(expectSame(a[1], b[1], pixels / 2, what.c_str()));
          ASSERT_NO_FATAL_FAILURE(expectSame(a[2], b[2], pixels / 2, what.c_str()));
        }
      }
    }
  });
}

TEST_F(PixelTargets, PackingIsAsDefinedAndStaysInsideTheLine) {
  forEachTarget([&] {
    const YCbCrKernels vectors = VectorYCbCrKernels();
    PlanarLine line;
    for (const size_t pixels : lineSizes()) {
      for (size_t type = 0; type < kTypes; ++type) {
        fill(line);
        const size_t shift = random_() % 16;
        const size_t size = packedBytes(type, pixels);
        const size_t lowSize = type == kLowPlaneType ? pixels / 2 : 0;
        for (const bool ten : {false, true}) {
          const auto& scalar = ScalarYCbCrKernels();
          std::vector<uint8_t> a(size + shift + 16, kGuard), b = a;
          std::vector<uint8_t> lowA(pixels / 2 + 16, kGuard), lowB = lowA;
          (ten ? scalar.depth10 : scalar.depth8)
              .pack[type](line[0], line[1], line[2], a.data() + shift, lowA.data(), pixels);
          (ten ? vectors.depth10 : vectors.depth8)
              .pack[type](line[0], line[1], line[2], b.data() + shift, lowB.data(), pixels);
          ASSERT_EQ(a, b) << type << " of " << pixels;
          ASSERT_EQ(lowA, lowB) << type << " of " << pixels;
          for (size_t i = 0; i < 16; ++i) ASSERT_EQ(b[size + shift + i], kGuard);
          for (size_t i = 0; i < shift; ++i) ASSERT_EQ(b[i], kGuard);
          for (size_t i = lowSize; i < lowB.size(); ++i) ASSERT_EQ(lowB[i], kGuard);
        }
      }
    }
  });
}

// Room for the widest row of macroblocks, filled with what no kernel writes.
class BlockSamples {
 public:
  int16_t* at(size_t component) { return samples_.data() + kFirst[component]; }
  const std::vector<int16_t>& all() const { return samples_; }

 private:
  static constexpr size_t kFirst[] = {0, 256, 384};
  std::vector<int16_t> samples_ = std::vector<int16_t>(kMaxLine / 16 * 512, int16_t{0x5A5A});
};

TEST_F(PixelTargets, LinesGoToBlocksAndBackAsDefined) {
  forEachTarget([&] {
    const YCbCrKernels vectors = VectorYCbCrKernels();
    for (const size_t pixels : {16, 32, 48, 128, 960, 1920}) {
      for (size_t type = 0; type < kV210Type; ++type) {
        const std::vector<uint8_t> in = bytes(packedBytes(type, pixels));
        const std::vector<uint8_t> low = bytes(pixels / 2);
        for (const bool ten : {false, true}) {
          const auto& scalar = ScalarYCbCrKernels();
          const auto& definition = ten ? scalar.depth10 : scalar.depth8;
          const auto& kernels = ten ? vectors.depth10 : vectors.depth8;
          BlockSamples a, b;
          definition.unpackToBlocks[type](in.data(), low.data(), a.at(0), a.at(1), a.at(2), pixels);
          kernels.unpackToBlocks[type](in.data(), low.data(), b.at(0), b.at(1), b.at(2), pixels);
          ASSERT_EQ(a.all(), b.all()) << type;

          // The same samples as in planes, elsewhere.
          PlanarLine line;
          definition.unpack[type](in.data(), low.data(), line[0], line[1], line[2], pixels);
          for (size_t i = 0; i < pixels; ++i) {
            ASSERT_EQ(a.at(0)[i / 16 * 512 + i % 16 / 8 * 64 + i % 8], line[0][i]);
          }
          for (size_t i = 0; i < pixels / 2; ++i) {
            ASSERT_EQ(a.at(1)[i / 8 * 512 + i % 8], line[1][i]);
            ASSERT_EQ(a.at(2)[i / 8 * 512 + i % 8], line[2][i]);
          }

          for (const auto* pack :
               {&definition.packFromBlocks[type], &kernels.packFromBlocks[type]}) {
            std::vector<uint8_t> fromPlanes(in.size() + 16, kGuard);
            std::vector<uint8_t> fromBlocks(in.size() + 16, kGuard);
            std::vector<uint8_t> lowPlanes(low.size() + 16, kGuard);
            std::vector<uint8_t> lowBlocks(low.size() + 16, kGuard);
            definition.pack[type](line[0], line[1], line[2], fromPlanes.data(), lowPlanes.data(),
                                  pixels);
            (*pack)(a.at(0), a.at(1), a.at(2), fromBlocks.data(), lowBlocks.data(), pixels);
            ASSERT_EQ(fromPlanes, fromBlocks) << type;
            ASSERT_EQ(lowPlanes, lowBlocks) << type;
          }
        }
      }
    }
  });
}

TEST_F(PixelTargets, WildFloatsAreAsDefined) {
  const float wild[] = {0.0f,
                        -0.0f,
                        1.0f,
                        -1.0f,
                        0.5f,
                        -0.5f,
                        1e30f,
                        -1e30f,
                        1e-40f,
                        std::numeric_limits<float>::infinity(),
                        -std::numeric_limits<float>::infinity(),
                        std::numeric_limits<float>::quiet_NaN(),
                        0.5f / 219,
                        1.5f / 876,
                        4.7f,
                        -4.7f};
  std::vector<float> values(4 * 64);
  for (float& value : values) value = wild[random_() % std::size(wild)];
  std::vector<uint8_t> in(values.size() * sizeof(float));
  std::memcpy(in.data(), values.data(), in.size());
  forEachTarget([&] {
    const YCbCrKernels vectors = VectorYCbCrKernels();
    PlanarLine a, b;
    ScalarYCbCrKernels().depth10.unpack[kFloatType](in.data(), nullptr, a[0], a[1], a[2], 128);
    vectors.depth10.unpack[kFloatType](in.data(), nullptr, b[0], b[1], b[2], 128);
    expectSame(a[0], b[0], 128, "Y");
    expectSame(a[1], b[1], 64, "Cb");
    expectSame(a[2], b[2], 64, "Cr");
  });
}

constexpr RgbOrder kOrders[] = {{2, 1, 0, 3}, {1, 2, 3, 0}, {0, 1, 2, 3}};

TEST_F(PixelTargets, RgbIsAsDefined) {
  forEachTarget([&] {
    const RgbKernels vectors = VectorRgbKernels();
    PlanarLine line;
    for (size_t pixels = 1; pixels < 70; ++pixels) {
      for (size_t type = 0; type < kRgbTypes; ++type) {
        for (const RgbOrder order : kOrders) {
          const size_t shift = random_() % 16;
          const std::vector<uint8_t> in = bytes(rgbBytes(type, pixels) + shift);
          PlanarLine a, b;
          ScalarRgbKernels().unpack[type](in.data() + shift, order, a[0], a[1], a[2], pixels);
          vectors.unpack[type](in.data() + shift, order, b[0], b[1], b[2], pixels);
          for (size_t i = 0; i < 3; ++i) {
            ASSERT_NO_FATAL_FAILURE(expectSame(a[i], b[i], pixels, "RGB"));
          }
          fill(line);
          std::vector<uint8_t> outA(rgbBytes(type, pixels) + shift + 16, kGuard), outB = outA;
          ScalarRgbKernels().pack[type](line[0], line[1], line[2], order, outA.data() + shift,
                                        pixels);
          vectors.pack[type](line[0], line[1], line[2], order, outB.data() + shift, pixels);
          ASSERT_EQ(outA, outB) << type << " of " << pixels;
          for (size_t i = 0; i < 16; ++i) ASSERT_EQ(*(outB.end() - 1 - i), kGuard);
        }
      }
    }
  });
}

TEST_F(PixelTargets, ColoursAreAsDefined) {
  forEachTarget([&] {
    const ColorKernels& scalar = ScalarColorKernels();
    const ColorKernels vectors = VectorColorKernels();
    PlanarLine in, a, b;
    for (size_t n = 1; n <= 70; ++n) {
      for (const int depth : {8, 10}) {
        fill(in);
        const auto same = [&](size_t samples, const char* what) {
          for (size_t i = 0; i < 3; ++i) {
            ASSERT_NO_FATAL_FAILURE(expectSame(a[i], b[i], samples, what));
          }
        };
        a = b = in;
        scalar.toLuma(in[0], in[1], in[2], a[0], n, depth);
        vectors.toLuma(in[0], in[1], in[2], b[0], n, depth);
        scalar.toChroma(in[0], in[1], in[2], a[1], a[2], n, depth);
        vectors.toChroma(in[0], in[1], in[2], b[1], b[2], n, depth);
        same(n, "codes");
        scalar.toRgb(in[0], in[1], in[2], a[0], a[1], a[2], n, depth);
        vectors.toRgb(in[0], in[1], in[2], b[0], b[1], b[2], n, depth);
        same(n, "signals");
        scalar.halvePairs(in[0], a[0], n);
        vectors.halvePairs(in[0], b[0], n);
        scalar.halveTent(in[1], a[1], n);
        vectors.halveTent(in[1], b[1], n);
        same(n, "halves");
        scalar.doublePairs(in[0], a[0], n);
        vectors.doublePairs(in[0], b[0], n);
        scalar.doubleTent(in[1], a[1], n);
        vectors.doubleTent(in[1], b[1], n);
        same(n, "doubles");
        a = b = in;
        scalar.limit(a[2], n, depth);
        vectors.limit(b[2], n, depth);
        same(n, "limits");
      }
    }
  });
}

// What follows is against arithmetic of its own, in double precision.

struct Depth {
  int bits;
  double black, luma, chroma;
  int middle() const { return 1 << (bits - 1); }
  int highest() const { return (1 << bits) - 1; }
};
constexpr Depth kDepths[] = {{8, 16, 219, 224}, {10, 64, 876, 896}};

const YCbCrKernels::OfDepth& scalarOf(const Depth& depth) {
  return depth.bits == 8 ? ScalarYCbCrKernels().depth8 : ScalarYCbCrKernels().depth10;
}

TEST(YCbCrSamples, CodesStandWhereTheLayoutSays) {
  // Pixels with codes that are all different.
  PlanarLine line;
  for (size_t i = 0; i < 12; ++i) line[0][i] = static_cast<int16_t>(100 + i - 512);
  for (size_t i = 0; i < 6; ++i) {
    line[1][i] = static_cast<int16_t>(300 + i - 512);
    line[2][i] = static_cast<int16_t>(700 + i - 512);
  }
  const auto& pack = ScalarYCbCrKernels().depth10.pack;
  std::vector<int> sequence;
  for (int i = 0; i < 6; ++i) {
    sequence.insert(sequence.end(), {300 + i, 100 + 2 * i, 700 + i, 101 + 2 * i});
  }

  std::vector<uint8_t> v210(32);
  pack[kV210Type](line[0], line[1], line[2], v210.data(), nullptr, 12);
  std::vector<uint8_t> high(24), low(6);
  pack[kLowPlaneType](line[0], line[1], line[2], high.data(), low.data(), 12);
  std::vector<uint8_t> words(48);
  pack[static_cast<size_t>(YCbCrSamples::k10_6)](line[0], line[1], line[2], words.data(), nullptr,
                                                 12);
  std::vector<uint8_t> bytes(24);
  pack[0](line[0], line[1], line[2], bytes.data(), nullptr, 12);
  for (size_t i = 0; i < 24; ++i) {
    const size_t word = i / 3 * 4;
    const uint32_t three = static_cast<uint32_t>(v210[word]) | v210[word + 1] << 8 |
                           v210[word + 2] << 16 | static_cast<uint32_t>(v210[word + 3]) << 24;
    EXPECT_EQ((three >> (10 * (i % 3))) % 1024, sequence[i]) << i;
    EXPECT_EQ(high[i] * 4 + (low[i / 4] >> (6 - 2 * (i % 4)) & 3), sequence[i]) << i;
    EXPECT_EQ((words[2 * i] | words[2 * i + 1] << 8), sequence[i] << 6) << i;
    EXPECT_EQ(bytes[i], (sequence[i] + 2) / 4) << i;
  }
}

TEST(YCbCrSamples, AGroupThatIsNotWholeEndsInZeros) {
  PlanarLine line{};
  std::vector<uint8_t> out(48, kGuard);
  ScalarYCbCrKernels().depth10.pack[kV210Type](line[0], line[1], line[2], out.data(), nullptr, 8);
  // Two pixels: Cb, Y, Cr and Y are 512 each, the rest of the group is empty.
  const std::vector<uint8_t> group = {0, 2, 8, 32, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::vector<uint8_t>(out.begin() + 16, out.begin() + 32), group);
  EXPECT_EQ(out[32], kGuard);
}

TEST(YCbCrSamples, EveryCodeGoesThereAndBack) {
  for (const Depth& depth : kDepths) {
    for (size_t type = 0; type < kTypes; ++type) {
      // Eight bits hold no more than that.
      const int step = type == 0 && depth.bits == 10 ? 4 : 1;
      for (int code = 0; code <= depth.highest(); code += step) {
        PlanarLine line, back;
        for (auto& plane : line.planes) plane.fill(static_cast<int16_t>(code - depth.middle()));
        std::vector<uint8_t> out(packedBytes(type, 6)), low(3);
        scalarOf(depth).pack[type](line[0], line[1], line[2], out.data(), low.data(), 6);
        scalarOf(depth).unpack[type](out.data(), low.data(), back[0], back[1], back[2], 6);
        for (size_t i = 0; i < 3; ++i) ASSERT_EQ(back[i][0], line[i][0]) << type << " " << code;
      }
    }
  }
}

TEST(YCbCrSamples, SignalsAreThoseOfBt709) {
  for (const Depth& depth : kDepths) {
    for (int code = 0; code <= depth.highest(); ++code) {
      PlanarLine line;
      for (auto& plane : line.planes) plane.fill(static_cast<int16_t>(code - depth.middle()));
      const double luma = (code - depth.black) / depth.luma;
      const double chroma = (code - depth.middle()) / depth.chroma;
      float floats[4];
      scalarOf(depth).pack[kFloatType](line[0], line[1], line[2],
                                       reinterpret_cast<uint8_t*>(floats), nullptr, 2);
      ASSERT_NEAR(floats[0], chroma, 1e-6);
      ASSERT_NEAR(floats[1], luma, 1e-6);
      int16_t fixed[4];
      scalarOf(depth).pack[static_cast<size_t>(YCbCrSamples::k2_14)](
          line[0], line[1], line[2], reinterpret_cast<uint8_t*>(fixed), nullptr, 2);
      ASSERT_NEAR(fixed[2], chroma * 16384, 0.51);
      ASSERT_NEAR(fixed[3], luma * 16384, 0.51);
    }
    // And the other way, for signals between the codes.
    for (int value = -20000; value <= 20000; value += 7) {
      const auto word = static_cast<int16_t>(value);
      const int16_t fixed[4] = {word, word, word, word};
      PlanarLine line;
      scalarOf(depth).unpack[static_cast<size_t>(YCbCrSamples::k2_14)](
          reinterpret_cast<const uint8_t*>(fixed), nullptr, line[0], line[1], line[2], 2);
      const auto limited = [&](double code) {
        return std::clamp<double>(code, 0, depth.highest()) - depth.middle();
      };
      ASSERT_NEAR(line[0][0], limited(depth.black + depth.luma * value / 16384), 0.501);
      ASSERT_NEAR(line[2][0], limited(depth.middle() + depth.chroma * value / 16384), 0.501);
    }
  }
}

TEST(RgbSamples, EveryCodeGoesThereAndBack) {
  const auto goes = [](size_t type, int step, int white, auto word) {
    using Word = decltype(word);
    for (int code = 0; code <= white; code += step) {
      const auto value = static_cast<Word>(code);
      const Word in[4] = {value, value, value, value};
      PlanarLine line;
      const RgbOrder order = kOrders[1];
      ScalarRgbKernels().unpack[type](reinterpret_cast<const uint8_t*>(in), order, line[0], line[1],
                                      line[2], 1);
      ASSERT_NEAR(line[0][0], 16384.0 * code / white, 0.76) << type;
      Word out[4];
      ScalarRgbKernels().pack[type](line[0], line[1], line[2], order,
                                    reinterpret_cast<uint8_t*>(out), 1);
      ASSERT_NEAR(out[order.green], code, type == 3 ? 1 : 0) << type;
      ASSERT_EQ(out[order.alpha], static_cast<Word>(white));
    }
  };
  goes(0, 1, 255, uint8_t{});
  goes(1, 64, 0xFFC0, uint16_t{});
  goes(2, 1, 16384, int16_t{});
  goes(3, 1, 32767, int16_t{});
}

struct Signals {
  double red, green, blue;
};

Signals signalsOf(double y, double cb, double cr) {
  const double red = y + 1.5748 * cr;
  const double blue = y + 1.8556 * cb;
  return {red, (y - 0.2126 * red - 0.0722 * blue) / 0.7152, blue};
}

TEST(Bt709, RgbToCodesIsWithinHalfACode) {
  std::mt19937_64 random(test::testSeed());
  for (const Depth& depth : kDepths) {
    for (int i = 0; i < 20000; ++i) {
      const auto fixed = [&] { return static_cast<int16_t>(random() % 16385); };
      const int16_t red = fixed();
      const int16_t green = fixed();
      const int16_t blue = fixed();
      const double y = (0.2126 * red + 0.7152 * green + 0.0722 * blue) / 16384;
      int16_t out[3];
      ScalarColorKernels().toLuma(&red, &green, &blue, out, 1, depth.bits);
      ScalarColorKernels().toChroma(&red, &green, &blue, out + 1, out + 2, 1, depth.bits);
      ASSERT_NEAR(out[0] + depth.middle(), depth.black + depth.luma * y, 0.52);
      ASSERT_NEAR(out[1], depth.chroma * (blue / 16384.0 - y) / 1.8556, 0.52);
      ASSERT_NEAR(out[2], depth.chroma * (red / 16384.0 - y) / 1.5748, 0.52);
    }
  }
}

TEST(Bt709, CodesToRgbIsWithinAStepOf10Bits) {
  for (const Depth& depth : kDepths) {
    const int step = depth.bits == 8 ? 5 : 21;
    for (int y = 0; y <= depth.highest(); y += step) {
      for (int cb = 0; cb <= depth.highest(); cb += step) {
        for (int cr = 0; cr <= depth.highest(); cr += step) {
          const auto centred = [&](int code) {
            return static_cast<int16_t>(code - depth.middle());
          };
          const int16_t in[3] = {centred(y), centred(cb), centred(cr)};
          int16_t out[3];
          ScalarColorKernels().toRgb(in, in + 1, in + 2, out, out + 1, out + 2, 1, depth.bits);
          const Signals s =
              signalsOf((y - depth.black) / depth.luma, in[1] / depth.chroma, in[2] / depth.chroma);
          const auto expected = [](double signal) {
            return std::clamp(signal * 16384, -32768.0, 32767.0);
          };
          ASSERT_NEAR(out[0], expected(s.red), 2.0);
          ASSERT_NEAR(out[1], expected(s.green), 2.0);
          ASSERT_NEAR(out[2], expected(s.blue), 2.0);
        }
      }
    }
  }
}

TEST(Bt709, BlackGreyAndWhiteAreExact) {
  for (const Depth& depth : kDepths) {
    const struct {
      int16_t fixed;
      double code;
    } kGreys[] = {{0, depth.black}, {16384, depth.black + depth.luma}};
    for (const auto& grey : kGreys) {
      int16_t out[3];
      const int16_t v = grey.fixed;
      ScalarColorKernels().toLuma(&v, &v, &v, out, 1, depth.bits);
      ScalarColorKernels().toChroma(&v, &v, &v, out + 1, out + 2, 1, depth.bits);
      EXPECT_EQ(out[0] + depth.middle(), grey.code);
      EXPECT_EQ(out[1], 0);
      EXPECT_EQ(out[2], 0);
    }
  }
}

TEST(ChromaWidth, PairsKeepPairsAndTheTentKeepsSlopes) {
  PlanarLine line, half, back;
  for (size_t i = 0; i < 64; ++i) line[0][i] = static_cast<int16_t>(i / 2 * 5);
  ScalarColorKernels().halvePairs(line[0], half[0], 32);
  ScalarColorKernels().doublePairs(half[0], back[0], 64);
  expectSame(line[0], back[0], 64, "pairs");
  for (size_t i = 0; i < 64; ++i) line[0][i] = static_cast<int16_t>(4 * i);
  ScalarColorKernels().halveTent(line[0], half[0], 32);
  ScalarColorKernels().doubleTent(half[0], back[0], 64);
  EXPECT_EQ(half[0][0], 1);  // the line goes on with its first sample
  expectSame(line[0] + 2, back[0] + 2, 61, "slope");
  EXPECT_EQ(back[0][63], 4 * 62);
}

}  // namespace
}  // namespace zel::dnxhd
