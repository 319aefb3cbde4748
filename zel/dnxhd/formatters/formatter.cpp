#include "zel/dnxhd/formatters/formatter.h"

#include <memory>

#include "zel/dnxhd/formatters/formatter_classes.h"

namespace zel::dnxhd {

namespace {

template <typename Interface, typename Class>
std::unique_ptr<Interface> New() {
  return std::make_unique<Class>();
}

struct InputRow {
  uint32_t rgbCoded;
  bool rgbLayout;
  uint32_t sampleType;
  std::unique_ptr<CDCTInputFormatter> (*base)();
  std::unique_ptr<CDCTInputFormatter> (*opt)();
};

struct OutputRow {
  uint32_t rgbCoded;
  bool rgbLayout;
  uint32_t sampleType;
  int depth;
  std::unique_ptr<CDCTOutputFormatter> (*base)();
  std::unique_ptr<CDCTOutputFormatter> (*opt)();
};

// clang-format off
constexpr InputRow kInputs[] = {
    // rgbCoded, RGB samples, sampleType
    {1, true, kSamples8, New<CDCTInputFormatter, CBaseDCTRGBInputFormatter_RGB_UCHAR>, New<CDCTInputFormatter, COptDCTRGBInputFormatter_RGB_UCHAR>},
    {1, true, kSamples10_6, New<CDCTInputFormatter, CBaseDCTRGBInputFormatter_RGB_USHORT_10_6>, New<CDCTInputFormatter, COptDCTRGBInputFormatter_RGB_USHORT_10_6>},
    {1, true, kSamples2_14, New<CDCTInputFormatter, CBaseDCTRGBInputFormatter_RGB_USHORT_2_14>, New<CDCTInputFormatter, COptDCTRGBInputFormatter_RGB_USHORT_2_14>},
    {1, true, kSamplesSigned16, New<CDCTInputFormatter, CBaseDCTRGBInputFormatter_RGB_SHORT>, New<CDCTInputFormatter, COPtDCTRGBInputFormatter_RGB_SHORT>},
    {0, true, kSamples8, New<CDCTInputFormatter, CBaseDCTInputFormatter_RGB_UCHAR>, New<CDCTInputFormatter, COptDCTInputFormatter_RGB_UCHAR>},
    {0, true, kSamples10_6, New<CDCTInputFormatter, CBaseDCTInputFormatter_RGB_USHORT_10_6>, New<CDCTInputFormatter, COptDCTInputFormatter_RGB_USHORT_10_6>},
    {0, true, kSamples2_14, New<CDCTInputFormatter, CBaseDCTInputFormatter_RGB_USHORT_2_14>, New<CDCTInputFormatter, COptDCTInputFormatter_RGB_USHORT_2_14>},
    {0, true, kSamplesSigned16, New<CDCTInputFormatter, CBaseDCTInputFormatter_RGB_SHORT>, New<CDCTInputFormatter, COptDCTInputFormatter_RGB_SHORT>},
    {0, false, kSamples8, New<CDCTInputFormatter, CBaseDCTInputFormatter_YUV_UCHAR>, New<CDCTInputFormatter, COptDCTInputFormatter_YUV_UCHAR>},
    {0, false, kSamples10_6, New<CDCTInputFormatter, CBaseDCTInputFormatter_YUV_USHORT_10_6>, New<CDCTInputFormatter, COptDCTInputFormatter_YUV_USHORT_10_6>},
    {0, false, kSamples2_14, New<CDCTInputFormatter, CBaseInputFormatterYUV_Short_2_14>, New<CDCTInputFormatter, COptInputFormatter_YUV_USHORT_2_14>},
    {0, false, kSamples10_2_8, New<CDCTInputFormatter, CBaseInputFormatterYUV_10_2_8>, New<CDCTInputFormatter, COptInputFormatter_YUV_10Bit_2_8>},
    {0, false, kSamplesFloat, New<CDCTInputFormatter, CBaseDCTInputFormatter_YUV_FLOAT>, New<CDCTInputFormatter, COptDCTInputFormatter_YUV_FLOAT>},
    {0, false, kSamplesV210, New<CDCTInputFormatter, CBaseInputFormatterYUV_V210>, New<CDCTInputFormatter, COptDCTInputFormatter_YUV_V210>},
};

constexpr OutputRow kOutputs[] = {
    // rgbCoded, RGB samples, sampleType, depth
    {1, true, kSamples8, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_RGB_UCHAR>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_RGB_UCHAR>},
    {1, true, kSamples10_6, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_RGB_USHORT_10_6>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_RGB_USHORT_10_6>},
    {1, true, kSamples2_14, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_RGB_USHORT_2_14>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_RGB_USHORT_2_14>},
    {1, true, kSamplesSigned16, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_RGB_SHORT>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_RGB_SHORT>},
    {1, false, kSamples8, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_YUV_UCHAR>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_YUV_UCHAR>},
    {1, false, kSamples10_6, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_YUV_USHORT_10_6>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_YUV_USHORT_10_6>},
    {1, false, kSamples2_14, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_YUV_SHORT_2_14>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_YUV_USHORT_2_14>},
    {1, false, kSamplesFloat, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_YUV_FLOAT>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_YUV_FLOAT>},
    {1, false, kSamples10_2_8, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_YUV_10Bit_2_8>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_YUV_10Bit_2_8>},
    {1, false, kSamplesV210, 10, New<CDCTOutputFormatter, CBaseDCTRGBOutputFormatter_YUV_V210>, New<CDCTOutputFormatter, COptDCTRGBOutputFormatter_YUV_V210>},
    {0, true, kSamples8, 8, New<CDCTOutputFormatter, CBaseDCTOutputFormatter_RGB_UCHAR>, New<CDCTOutputFormatter, COptDCTOutputFormatter_RGB_UCHAR>},
    {0, true, kSamples10_6, 8, New<CDCTOutputFormatter, CBaseDCTOutputFormatter_RGB_USHORT_10_6>, New<CDCTOutputFormatter, COptDCTOutputFormatter_RGB_USHORT_10_6>},
    {0, true, kSamples2_14, 8, New<CDCTOutputFormatter, BaseOutputFormatter_RGB_USHORT_2_14>, New<CDCTOutputFormatter, OptOutputFormatter_RGB_USHORT_2_14>},
    {0, true, kSamplesSigned16, 8, New<CDCTOutputFormatter, CBaseDCTOutputFormatter_RGB_SHORT>, New<CDCTOutputFormatter, COptDCTOutputFormatter_RGB_SHORT>},
    {0, false, kSamples8, 8, New<CDCTOutputFormatter, CBaseDCTOutputFormatter_YUV_UCHAR>, New<CDCTOutputFormatter, COptDCTOutputFormatter_YUV_UCHAR>},
    {0, false, kSamples10_6, 8, New<CDCTOutputFormatter, CBaseDCTOutputFormatterYUV_USHORT_10_6>, New<CDCTOutputFormatter, COptDCTOutputFormatterYUV_USHORT_10_6>},
    {0, false, kSamples2_14, 8, New<CDCTOutputFormatter, CBaseDCTOutputFormatterYUV_USHORT_2_14>, New<CDCTOutputFormatter, COptDCTOutputFormatterYUV_USHORT_2_14>},
    {0, false, kSamplesFloat, 8, New<CDCTOutputFormatter, CBaseDCTOutputFormatterYUV_FLOAT>, New<CDCTOutputFormatter, COptDCTOutputFormatterYUV_FLOAT>},
    {0, false, kSamples10_2_8, 8, New<CDCTOutputFormatter, CBaseOutputFormatter_YUV_10Bit_2_8>, New<CDCTOutputFormatter, COptOutputFormatter_YUV_10Bit_2_8>},
    {0, false, kSamplesV210, 8, New<CDCTOutputFormatter, CBaseDCTOutputFormatterYUV_V210>, New<CDCTOutputFormatter, COptDCTOutputFormatterYUV_V210>},
    {0, true, kSamples8, 10, New<CDCTOutputFormatter, CBaseDCTOutputFormatter_RGB_UCHAR_10BitIn>, New<CDCTOutputFormatter, COptDCTOutputFormatter_RGB_UCHAR_10BitIn>},
    {0, true, kSamples10_6, 10, New<CDCTOutputFormatter, CBaseDCTOutputFormatter_RGB_USHORT_10_6_10BitIn>, New<CDCTOutputFormatter, COptDCTOutputFormatter_RGB_USHORT_10_6_10BitIn>},
    {0, true, kSamples2_14, 10, New<CDCTOutputFormatter, BaseOutputFormatter_RGB_USHORT_2_14_10BitIn>, New<CDCTOutputFormatter, OptOutputFormatter_RGB_USHORT_2_14_10BitIn>},
    {0, true, kSamplesSigned16, 10, New<CDCTOutputFormatter, CBaseDCTOutputFormatter_RGB_SHORT_10BitIn>, New<CDCTOutputFormatter, COptDCTOutputFormatter_RGB_SHORT_10BitIn>},
    {0, false, kSamples8, 10, New<CDCTOutputFormatter, CBaseDCTOutputFormatter_YUV_UCHAR_10BitIn>, New<CDCTOutputFormatter, COptDCTOutputFormatter_YUV_UCHAR_10BitIn>},
    {0, false, kSamples10_6, 10, New<CDCTOutputFormatter, CBaseDCTOutputFormatterYUV_USHORT_10_6_10BitIn>, New<CDCTOutputFormatter, COptDCTOutputFormatterYUV_USHORT_10_6_10BitIn>},
    {0, false, kSamples2_14, 10, New<CDCTOutputFormatter, CBaseDCTOutputFormatterYUV_USHORT_2_14_10BitIn>, New<CDCTOutputFormatter, COptDCTOutputFormatterYUV_USHORT_2_14_10BitIn>},
    {0, false, kSamplesFloat, 10, New<CDCTOutputFormatter, CBaseDCTOutputFormatterYUV_FLOAT_10BitIn>, New<CDCTOutputFormatter, COptDCTOutputFormatterYUV_FLOAT_10BitIn>},
    {0, false, kSamples10_2_8, 10, New<CDCTOutputFormatter, CBaseOutputFormatter_YUV_10Bit_2_8_10BitIn>, New<CDCTOutputFormatter, COptOutputFormatter_YUV_10Bit_2_8_10BitIn>},
    {0, false, kSamplesV210, 10, New<CDCTOutputFormatter, CBaseDCTOutputFormatterYUV_V210_10BitIn>, New<CDCTOutputFormatter, COptDCTOutputFormatterYUV_V210_10BitIn>},
};
// clang-format on

// Y, Cb and Cr have two layouts, which are one; null for any other but RGB.
bool Fits(uint32_t pixelLayout, bool rgbLayout) {
  if (rgbLayout) return pixelLayout == kLayoutRgb;
  return pixelLayout == kLayoutYCbCr || pixelLayout == kLayoutYCbCr4;
}

}  // namespace

std::unique_ptr<CDCTInputFormatter> Formatter::MakeInput(const SampleDescription& samples) const {
  for (const InputRow& row : kInputs) {
    if (row.rgbCoded != rgbCoded || row.sampleType != samples.sampleType) continue;
    if (Fits(samples.pixelLayout, row.rgbLayout)) return useReference != 0 ? row.base() : row.opt();
  }
  return nullptr;
}

std::unique_ptr<CDCTOutputFormatter> Formatter::MakeOutput(const SampleDescription& samples,
                                                           int depth) const {
  for (const OutputRow& row : kOutputs) {
    if (row.rgbCoded != rgbCoded || row.sampleType != samples.sampleType) continue;
    if (row.depth != depth) continue;
    if (Fits(samples.pixelLayout, row.rgbLayout)) return useReference != 0 ? row.base() : row.opt();
  }
  return nullptr;
}

std::unique_ptr<CForwardDCT> Formatter::MakeForward(int depth) const {
  const bool base = useReference != 0;
  if (depth == 8) {
    return base ? New<CForwardDCT, CBaseFDCT_8Bit_FullRes_IEEE>()
                : New<CForwardDCT, COptFDCT_8Bit_FullRes_IEEE>();
  }
  if (depth != 10) return nullptr;
  return base ? New<CForwardDCT, CBaseFDCT_10Bit_FullRes_IEEE>()
              : New<CForwardDCT, COptFDCT_10Bit_FullRes_IEEE>();
}

std::unique_ptr<CInverseDCT> Formatter::MakeInverse(int depth, uint32_t resolution,
                                                    bool alwaysFull) const {
  const bool base = useReference != 0;
  if (depth != 8 && depth != 10) return nullptr;
  if (resolution == 1 || alwaysFull) {
    if (depth == 8) {
      return base ? New<CInverseDCT, CBaseIDCT_8Bit_FullRes_IEEE>()
                  : New<CInverseDCT, COptIDCT_8Bit_FullRes_IEEE>();
    }
    return base ? New<CInverseDCT, CBaseIDCT_10Bit_FullRes_IEEE>()
                : New<CInverseDCT, COptIDCT_10Bit_FullRes_IEEE>();
  }
  if (resolution != 2 && resolution != 4) return nullptr;
  const int size = resolution == 2 ? 4 : 2;
  if (depth == 8) {
    if (base) return std::make_unique<CBaseIDCT_8Bit_Half_QuartRes_IEEE>(size);
    return std::make_unique<COptIDCT_8Bit_Half_QuartRes_IEEE>(size);
  }
  if (base) return std::make_unique<CBaseIDCT_10Bit_Half_QuartRes_IEEE>(size);
  return std::make_unique<COptIDCT_10Bit_Half_QuartRes_IEEE>(size);
}

std::unique_ptr<CResampler> Formatter::MakeResampler(ResamplerForm form,
                                                     const ResamplerInfo& info) const {
  return dnxhd::MakeResampler(form, useReference != 0, info);
}

std::unique_ptr<ColorConversionDCT> Formatter::MakeColorConversion() const {
  if (rgbCoded == 0) return nullptr;
  if (useReference != 0) return std::make_unique<BaseColorConversionDCT>();
  return std::make_unique<OptColorConversionDCT>();
}

}  // namespace zel::dnxhd
