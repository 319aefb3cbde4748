#include "zel/dnxhd/formatters/formatter.h"

#include <gtest/gtest.h>

#include <cxxabi.h>
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

#include "tests/support/seed.h"
#include "zel/dnxhd/formatters/formatter_classes.h"

namespace zel::dnxhd {
namespace {

// The name of an object's class, without its namespace; "none" for no object.
template <typename Base>
std::string nameOf(const std::unique_ptr<Base>& object) {
  if (object == nullptr) return "none";
  const Base& one = *object;
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(
      abi::__cxa_demangle(typeid(one).name(), nullptr, nullptr, &status), std::free);
  const std::string name = text.get();
  return name.substr(name.rfind(':') + 1);
}

SampleDescription samplesOf(uint32_t layout, uint32_t type) {
  return {layout, 8, type, 64, 1};
}

Formatter factory(bool reference, bool rgbCoded) {
  Formatter made;
  made.useReference = reference ? 1 : 0;
  made.rgbCoded = rgbCoded ? 1 : 0;
  return made;
}

struct InputCase {
  bool rgbCoded;
  uint32_t layout;
  uint32_t type;
  const char* base;
  const char* opt;
};
constexpr InputCase kInputs[] = {
    {true, 2, 1, "CBaseDCTRGBInputFormatter_RGB_UCHAR", "COptDCTRGBInputFormatter_RGB_UCHAR"},
    {true, 2, 4, "CBaseDCTRGBInputFormatter_RGB_USHORT_10_6",
     "COptDCTRGBInputFormatter_RGB_USHORT_10_6"},
    {true, 2, 8, "CBaseDCTRGBInputFormatter_RGB_USHORT_2_14",
     "COptDCTRGBInputFormatter_RGB_USHORT_2_14"},
    {true, 2, 16, "CBaseDCTRGBInputFormatter_RGB_SHORT", "COPtDCTRGBInputFormatter_RGB_SHORT"},
    {false, 2, 1, "CBaseDCTInputFormatter_RGB_UCHAR", "COptDCTInputFormatter_RGB_UCHAR"},
    {false, 2, 4, "CBaseDCTInputFormatter_RGB_USHORT_10_6",
     "COptDCTInputFormatter_RGB_USHORT_10_6"},
    {false, 2, 8, "CBaseDCTInputFormatter_RGB_USHORT_2_14",
     "COptDCTInputFormatter_RGB_USHORT_2_14"},
    {false, 2, 16, "CBaseDCTInputFormatter_RGB_SHORT", "COptDCTInputFormatter_RGB_SHORT"},
    {false, 8, 1, "CBaseDCTInputFormatter_YUV_UCHAR", "COptDCTInputFormatter_YUV_UCHAR"},
    {false, 4, 1, "CBaseDCTInputFormatter_YUV_UCHAR", "COptDCTInputFormatter_YUV_UCHAR"},
    {false, 8, 4, "CBaseDCTInputFormatter_YUV_USHORT_10_6",
     "COptDCTInputFormatter_YUV_USHORT_10_6"},
    {false, 8, 8, "CBaseInputFormatterYUV_Short_2_14", "COptInputFormatter_YUV_USHORT_2_14"},
    {false, 8, 64, "CBaseInputFormatterYUV_10_2_8", "COptInputFormatter_YUV_10Bit_2_8"},
    {false, 4, 32, "CBaseDCTInputFormatter_YUV_FLOAT", "COptDCTInputFormatter_YUV_FLOAT"},
    {false, 8, 1024, "CBaseInputFormatterYUV_V210", "COptDCTInputFormatter_YUV_V210"},
    // What has none: 16-bit words, RGB in floating point, 4:4:4 from Y, Cb and Cr.
    {false, 8, 2, "none", "none"},
    {false, 2, 2, "none", "none"},
    {false, 2, 32, "none", "none"},
    {true, 2, 32, "none", "none"},
    {true, 8, 1, "none", "none"},
    {true, 4, 1024, "none", "none"},
    {false, 1, 1, "none", "none"},
    {false, 8, 16, "none", "none"},
};

TEST(Formatter, InputsAreTheClassesOfTheTable) {
  for (const InputCase& one : kInputs) {
    const SampleDescription samples = samplesOf(one.layout, one.type);
    EXPECT_EQ(nameOf(factory(true, one.rgbCoded).MakeInput(samples)), one.base);
    EXPECT_EQ(nameOf(factory(false, one.rgbCoded).MakeInput(samples)), one.opt);
  }
}

struct OutputCase {
  bool rgbCoded;
  uint32_t layout;
  uint32_t type;
  const char* base;
  const char* opt;
};
// Classes for 4:2:2 have a sibling for 10 bits.
constexpr OutputCase kOutputs[] = {
    {true, 2, 1, "CBaseDCTRGBOutputFormatter_RGB_UCHAR", "COptDCTRGBOutputFormatter_RGB_UCHAR"},
    {true, 2, 4, "CBaseDCTRGBOutputFormatter_RGB_USHORT_10_6",
     "COptDCTRGBOutputFormatter_RGB_USHORT_10_6"},
    {true, 2, 8, "CBaseDCTRGBOutputFormatter_RGB_USHORT_2_14",
     "COptDCTRGBOutputFormatter_RGB_USHORT_2_14"},
    {true, 2, 16, "CBaseDCTRGBOutputFormatter_RGB_SHORT", "COptDCTRGBOutputFormatter_RGB_SHORT"},
    {true, 8, 1, "CBaseDCTRGBOutputFormatter_YUV_UCHAR", "COptDCTRGBOutputFormatter_YUV_UCHAR"},
    {true, 4, 4, "CBaseDCTRGBOutputFormatter_YUV_USHORT_10_6",
     "COptDCTRGBOutputFormatter_YUV_USHORT_10_6"},
    {true, 8, 8, "CBaseDCTRGBOutputFormatter_YUV_SHORT_2_14",
     "COptDCTRGBOutputFormatter_YUV_USHORT_2_14"},
    {true, 8, 32, "CBaseDCTRGBOutputFormatter_YUV_FLOAT", "COptDCTRGBOutputFormatter_YUV_FLOAT"},
    {true, 8, 64, "CBaseDCTRGBOutputFormatter_YUV_10Bit_2_8",
     "COptDCTRGBOutputFormatter_YUV_10Bit_2_8"},
    {true, 8, 1024, "CBaseDCTRGBOutputFormatter_YUV_V210", "COptDCTRGBOutputFormatter_YUV_V210"},
    {false, 2, 1, "CBaseDCTOutputFormatter_RGB_UCHAR", "COptDCTOutputFormatter_RGB_UCHAR"},
    {false, 2, 4, "CBaseDCTOutputFormatter_RGB_USHORT_10_6",
     "COptDCTOutputFormatter_RGB_USHORT_10_6"},
    {false, 2, 8, "BaseOutputFormatter_RGB_USHORT_2_14", "OptOutputFormatter_RGB_USHORT_2_14"},
    {false, 2, 16, "CBaseDCTOutputFormatter_RGB_SHORT", "COptDCTOutputFormatter_RGB_SHORT"},
    {false, 8, 1, "CBaseDCTOutputFormatter_YUV_UCHAR", "COptDCTOutputFormatter_YUV_UCHAR"},
    {false, 8, 4, "CBaseDCTOutputFormatterYUV_USHORT_10_6",
     "COptDCTOutputFormatterYUV_USHORT_10_6"},
    {false, 8, 8, "CBaseDCTOutputFormatterYUV_USHORT_2_14",
     "COptDCTOutputFormatterYUV_USHORT_2_14"},
    {false, 8, 32, "CBaseDCTOutputFormatterYUV_FLOAT", "COptDCTOutputFormatterYUV_FLOAT"},
    {false, 4, 64, "CBaseOutputFormatter_YUV_10Bit_2_8", "COptOutputFormatter_YUV_10Bit_2_8"},
    {false, 8, 1024, "CBaseDCTOutputFormatterYUV_V210", "COptDCTOutputFormatterYUV_V210"},
    {false, 8, 2, "none", "none"},
    {false, 2, 32, "none", "none"},
    {true, 2, 64, "none", "none"},
    {true, 1, 1, "none", "none"},
};

TEST(Formatter, OutputsAreTheClassesOfTheTable) {
  for (const OutputCase& one : kOutputs) {
    const SampleDescription samples = samplesOf(one.layout, one.type);
    const auto expected = [&](const char* name, int depth) {
      const std::string text = name;
      return depth == 10 && !one.rgbCoded && text != "none" ? text + "_10BitIn" : text;
    };
    for (const int depth : {8, 10}) {
      if (one.rgbCoded && depth == 8) continue;  // 4:4:4 has 10 bits
      EXPECT_EQ(nameOf(factory(true, one.rgbCoded).MakeOutput(samples, depth)),
                expected(one.base, depth));
      EXPECT_EQ(nameOf(factory(false, one.rgbCoded).MakeOutput(samples, depth)),
                expected(one.opt, depth));
    }
    EXPECT_EQ(factory(false, one.rgbCoded).MakeOutput(samples, 12), nullptr);
  }
}

TEST(Formatter, TransformsGoByDepthAndResolution) {
  const Formatter base = factory(true, false);
  const Formatter opt = factory(false, false);
  EXPECT_EQ(nameOf(base.MakeForward(8)), "CBaseFDCT_8Bit_FullRes_IEEE");
  EXPECT_EQ(nameOf(opt.MakeForward(10)), "COptFDCT_10Bit_FullRes_IEEE");
  EXPECT_EQ(base.MakeForward(9), nullptr);
  EXPECT_EQ(nameOf(base.MakeInverse(8, 1, false)), "CBaseIDCT_8Bit_FullRes_IEEE");
  EXPECT_EQ(nameOf(opt.MakeInverse(10, 1, false)), "COptIDCT_10Bit_FullRes_IEEE");
  EXPECT_EQ(nameOf(base.MakeInverse(10, 2, false)), "CBaseIDCT_10Bit_Half_QuartRes_IEEE");
  EXPECT_EQ(nameOf(opt.MakeInverse(8, 4, false)), "COptIDCT_8Bit_Half_QuartRes_IEEE");
  // 1260 has the full size at any resolution.
  EXPECT_EQ(nameOf(opt.MakeInverse(8, 4, true)), "COptIDCT_8Bit_FullRes_IEEE");
  EXPECT_EQ(opt.MakeInverse(8, 3, false), nullptr);
  EXPECT_EQ(opt.MakeInverse(12, 1, false), nullptr);
}

TEST(Formatter, ResamplersGoByForm) {
  const ResamplerInfo stretch = {1440, 1920, false};
  EXPECT_EQ(nameOf(factory(true, false).MakeResampler(ResamplerForm::kQuality, stretch)),
            "CBaseQualityPolyLine");
  EXPECT_EQ(nameOf(factory(false, false).MakeResampler(ResamplerForm::kQuality, stretch)),
            "COptQualityPolyLine");
  EXPECT_EQ(nameOf(factory(true, false).MakeResampler(ResamplerForm::kDraft, stretch)),
            "CBaseDraftPolyLine");
  EXPECT_EQ(nameOf(factory(false, false).MakeResampler(ResamplerForm::kDraft, stretch)),
            "COptiDraftPolyLine");
}

TEST(Formatter, ColoursAreConvertedFor444Only) {
  EXPECT_EQ(nameOf(factory(true, true).MakeColorConversion()), "BaseColorConversionDCT");
  EXPECT_EQ(nameOf(factory(false, true).MakeColorConversion()), "OptColorConversionDCT");
  EXPECT_EQ(factory(false, false).MakeColorConversion(), nullptr);
}

TEST(Formatter, TransformClassesAreTheKernels) {
  std::mt19937_64 random(test::testSeed());
  alignas(16) int16_t blocks[3 * 64];
  for (const int depth : {8, 10}) {
    for (const uint32_t resolution : {1u, 2u, 4u}) {
      for (int16_t& value : blocks) value = static_cast<int16_t>(random() % 2048 - 1024);
      alignas(16) int16_t base[3 * 64], opt[3 * 64];
      std::copy_n(blocks, 192, base);
      std::copy_n(blocks, 192, opt);
      factory(true, false).MakeInverse(depth, resolution, false)->TransformRow(base, 3);
      factory(false, false).MakeInverse(depth, resolution, false)->TransformRow(opt, 3);
      const size_t samples = 64 / (resolution * resolution);
      for (size_t i = 0; i < 192; ++i) {
        if (i % 64 < samples) {
          ASSERT_EQ(base[i], opt[i]);
        }
      }
      EXPECT_FALSE(std::equal(base, base + 192, blocks));
    }
  }
}

TEST(Formatter, ConfiguringRefusesWhatDoesNotFit) {
  FormatterInfo_t info{};
  info.depth = 8;
  info.width = 1920;
  info.limits.fill({0, 255});
  EXPECT_EQ(COptDCTOutputFormatter_YUV_UCHAR().Configure(info), 0);
  // The class for 8 bits is not the one for 10.
  EXPECT_EQ(COptDCTOutputFormatter_YUV_UCHAR_10BitIn().Configure(info), kMissingResource);
  for (const uint32_t width : {0u, 1919u, 1922u}) {
    info.width = width;
    EXPECT_EQ(COptDCTOutputFormatter_YUV_UCHAR().Configure(info), kMissingResource);
    InputFormatterResource resource{};
    static_cast<FormatterInfo_t&>(resource) = info;
    resource.mbCols = 120;
    EXPECT_EQ(COptDCTInputFormatter_YUV_UCHAR().Configure(resource), kMissingResource);
  }
}

TEST(Formatter, ForwardTransformsOfBothDepthsReachOneScale) {
  for (const bool reference : {true, false}) {
    alignas(16) int16_t eight[64], ten[64];
    for (size_t i = 0; i < 64; ++i) {
      eight[i] = static_cast<int16_t>(static_cast<int>(i * 37 % 256) - 128);
      ten[i] = static_cast<int16_t>(4 * eight[i]);
    }
    factory(reference, false).MakeForward(8)->Transform(eight, 1);
    factory(reference, false).MakeForward(10)->Transform(ten, 1);
    EXPECT_TRUE(std::equal(eight, eight + 64, ten));
  }
}

TEST(ColorConversionDCT, MacroblocksWithoutTheFlagGoThereAndBack) {
  std::mt19937_64 random(test::testSeed());
  constexpr size_t kColumns = 9;
  std::vector<int16_t> rgb(kColumns * 12 * 64);
  for (int16_t& sample : rgb) sample = static_cast<int16_t>(random() % 1024 - 512);
  std::vector<MacroblockFlags> flags(kColumns);
  for (size_t i = 0; i < kColumns; ++i) flags[i].color = i % 3 == 0;
  const BaseColorConversionDCT base;
  const OptColorConversionDCT opt;
  std::vector<int16_t> a = rgb, b = rgb;
  base.ForwardRow(a.data(), flags.data(), kColumns);
  opt.ForwardRow(b.data(), flags.data(), kColumns);
  ASSERT_EQ(a, b);
  for (size_t i = 0; i < rgb.size(); ++i) {
    const size_t column = i / (12 * 64);
    if (flags[column].color) {
      ASSERT_EQ(a[i], rgb[i]);
    }
    if (!flags[column].color && i / 64 % 6 / 2 == 0) {
      // Y of G, B and R, in double precision.
      const double green = (rgb[i] + 512) / 1023.0;
      const double blue = (rgb[i + 128] + 512) / 1023.0;
      const double red = (rgb[i + 256] + 512) / 1023.0;
      ASSERT_NEAR(a[i] + 512, 64 + 876 * (0.2126 * red + 0.7152 * green + 0.0722 * blue), 0.6);
    }
  }
  base.InverseRow(a.data(), flags.data(), kColumns);
  opt.InverseRow(b.data(), flags.data(), kColumns);
  ASSERT_EQ(a, b);
  for (size_t i = 0; i < rgb.size(); ++i) ASSERT_NEAR(a[i], rgb[i], 2);
}

// Samples are converted in front of the forward transform and behind the inverse one. The matrix
// and the transform are both linear: what comes of it is what the matrix makes of coefficients.
TEST(ColorConversionDCT, IsWhatTheMatrixMakesOfCoefficients) {
  std::mt19937_64 random(test::testSeed());
  constexpr size_t kMacroblock = size_t{12} * 64;
  // Smooth blocks inside of the codes: nothing is cut off.
  alignas(16) std::vector<int16_t> gbr(kMacroblock);
  for (size_t component = 0; component < 3; ++component) {
    const int base = static_cast<int>(random() % 400) - 200;
    const int slope = static_cast<int>(random() % 20) - 10;
    for (size_t i = 0; i < kMacroblock; ++i) {
      if (i / 64 % 6 / 2 != component) continue;
      gbr[i] = static_cast<int16_t>(base + slope * static_cast<int>(i % 8) +
                                    static_cast<int>(random() % 100) - 50);
    }
  }
  std::vector<int16_t> bySamples = gbr;
  const MacroblockFlags flags = {false, false};
  OptColorConversionDCT().ForwardRow(bySamples.data(), &flags, 1);
  const auto transform = factory(true, true).MakeForward(10);
  std::vector<int16_t> coefficients = gbr;
  transform->Transform(coefficients.data(), 12);
  transform->Transform(bySamples.data(), 12);

  // Rows: Y, Cb, Cr; columns: G, B, R, all centred on 0. The constant is DC's, eight times a
  // sample's.
  constexpr double kLuma = 876.0 / 1023, kChroma = 896.0 / 1023;
  constexpr double kRed = 0.2126, kGreen = 0.7152, kBlue = 0.0722;
  constexpr double kMatrix[3][3] = {
      {kLuma * kGreen, kLuma * kBlue, kLuma * kRed},
      {-kChroma * kGreen / 1.8556, kChroma * (1 - kBlue) / 1.8556, -kChroma * kRed / 1.8556},
      {-kChroma * kGreen / 1.5748, -kChroma * kBlue / 1.5748, kChroma * (1 - kRed) / 1.5748}};
  constexpr double kConstant[3] = {8 * (512 * kLuma + 64 - 512), 0, 0};
  for (size_t i = 0; i < kMacroblock; ++i) {
    const size_t component = i / 64 % 6 / 2;
    const size_t green = i - 128 * component;
    double expected = i % 64 == 0 ? kConstant[component] : 0;
    for (size_t from = 0; from < 3; ++from) {
      expected += kMatrix[component][from] * coefficients[green + 128 * from];
    }
    // Rounding of samples to codes comes to a few halves.
    ASSERT_NEAR(bySamples[i], expected, 2.5) << i;
  }
}

TEST(ColorConversionDCT, TheSetterTurnsTheFlagsMeaningRound) {
  std::vector<int16_t> blocks(size_t{2} * 12 * 64, 100);
  const std::vector<MacroblockFlags> flags = {{true, false}, {false, false}};
  OptColorConversionDCT conversion;
  conversion.SetConverted(true);
  conversion.ForwardRow(blocks.data(), flags.data(), 2);
  EXPECT_NE(blocks[0], 100);
  EXPECT_EQ(blocks[size_t{12} * 64], 100);
}

}  // namespace
}  // namespace zel::dnxhd
