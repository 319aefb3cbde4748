#pragma once

#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/formatters/input_formatter.h"
#include "zel/dnxhd/formatters/output_formatter.h"

// A class for each combination, under the names by which the family's tables know them, odd
// spellings among them. The templates above hold all that they do.

namespace zel::dnxhd {

// clang-format off: a line a class.

// RGB into 12 blocks.
class CBaseDCTRGBInputFormatter_RGB_UCHAR final
    : public RgbInputFormatter<Processor::kBase, RgbSamples::k8, 12> {};
class COptDCTRGBInputFormatter_RGB_UCHAR final
    : public RgbInputFormatter<Processor::kOpt, RgbSamples::k8, 12> {};
class CBaseDCTRGBInputFormatter_RGB_USHORT_10_6 final
    : public RgbInputFormatter<Processor::kBase, RgbSamples::k10_6, 12> {};
class COptDCTRGBInputFormatter_RGB_USHORT_10_6 final
    : public RgbInputFormatter<Processor::kOpt, RgbSamples::k10_6, 12> {};
class CBaseDCTRGBInputFormatter_RGB_USHORT_2_14 final
    : public RgbInputFormatter<Processor::kBase, RgbSamples::k2_14, 12> {};
class COptDCTRGBInputFormatter_RGB_USHORT_2_14 final
    : public RgbInputFormatter<Processor::kOpt, RgbSamples::k2_14, 12> {};
class CBaseDCTRGBInputFormatter_RGB_SHORT final
    : public RgbInputFormatter<Processor::kBase, RgbSamples::kSigned16, 12> {};
class COPtDCTRGBInputFormatter_RGB_SHORT final
    : public RgbInputFormatter<Processor::kOpt, RgbSamples::kSigned16, 12> {};

// RGB into 8 blocks.
class CBaseDCTInputFormatter_RGB_UCHAR final
    : public RgbInputFormatter<Processor::kBase, RgbSamples::k8, 8> {};
class COptDCTInputFormatter_RGB_UCHAR final
    : public RgbInputFormatter<Processor::kOpt, RgbSamples::k8, 8> {};
class CBaseDCTInputFormatter_RGB_USHORT_10_6 final
    : public RgbInputFormatter<Processor::kBase, RgbSamples::k10_6, 8> {};
class COptDCTInputFormatter_RGB_USHORT_10_6 final
    : public RgbInputFormatter<Processor::kOpt, RgbSamples::k10_6, 8> {};
class CBaseDCTInputFormatter_RGB_USHORT_2_14 final
    : public RgbInputFormatter<Processor::kBase, RgbSamples::k2_14, 8> {};
class COptDCTInputFormatter_RGB_USHORT_2_14 final
    : public RgbInputFormatter<Processor::kOpt, RgbSamples::k2_14, 8> {};
class CBaseDCTInputFormatter_RGB_SHORT final
    : public RgbInputFormatter<Processor::kBase, RgbSamples::kSigned16, 8> {};
class COptDCTInputFormatter_RGB_SHORT final
    : public RgbInputFormatter<Processor::kOpt, RgbSamples::kSigned16, 8> {};

// Y, Cb and Cr into 8 blocks.
class CBaseDCTInputFormatter_YUV_UCHAR final
    : public YCbCrInputFormatter<Processor::kBase, YCbCrSamples::k8> {};
class COptDCTInputFormatter_YUV_UCHAR final
    : public YCbCrInputFormatter<Processor::kOpt, YCbCrSamples::k8> {};
class CBaseDCTInputFormatter_YUV_USHORT_10_6 final
    : public YCbCrInputFormatter<Processor::kBase, YCbCrSamples::k10_6> {};
class COptDCTInputFormatter_YUV_USHORT_10_6 final
    : public YCbCrInputFormatter<Processor::kOpt, YCbCrSamples::k10_6> {};
class CBaseInputFormatterYUV_Short_2_14 final
    : public YCbCrInputFormatter<Processor::kBase, YCbCrSamples::k2_14> {};
class COptInputFormatter_YUV_USHORT_2_14 final
    : public YCbCrInputFormatter<Processor::kOpt, YCbCrSamples::k2_14> {};
class CBaseInputFormatterYUV_10_2_8 final
    : public YCbCrInputFormatter<Processor::kBase, YCbCrSamples::k10_2_8> {};
class COptInputFormatter_YUV_10Bit_2_8 final
    : public YCbCrInputFormatter<Processor::kOpt, YCbCrSamples::k10_2_8> {};
class CBaseDCTInputFormatter_YUV_FLOAT final
    : public YCbCrInputFormatter<Processor::kBase, YCbCrSamples::kFloat> {};
class COptDCTInputFormatter_YUV_FLOAT final
    : public YCbCrInputFormatter<Processor::kOpt, YCbCrSamples::kFloat> {};
class CBaseInputFormatterYUV_V210 final
    : public YCbCrInputFormatter<Processor::kBase, YCbCrSamples::kV210> {};
class COptDCTInputFormatter_YUV_V210 final
    : public YCbCrInputFormatter<Processor::kOpt, YCbCrSamples::kV210> {};

// 12 blocks into RGB.
class CBaseDCTRGBOutputFormatter_RGB_UCHAR final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k8, 10, 12> {};
class COptDCTRGBOutputFormatter_RGB_UCHAR final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k8, 10, 12> {};
class CBaseDCTRGBOutputFormatter_RGB_USHORT_10_6 final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k10_6, 10, 12> {};
class COptDCTRGBOutputFormatter_RGB_USHORT_10_6 final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k10_6, 10, 12> {};
class CBaseDCTRGBOutputFormatter_RGB_USHORT_2_14 final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k2_14, 10, 12> {};
class COptDCTRGBOutputFormatter_RGB_USHORT_2_14 final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k2_14, 10, 12> {};
class CBaseDCTRGBOutputFormatter_RGB_SHORT final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::kSigned16, 10, 12> {};
class COptDCTRGBOutputFormatter_RGB_SHORT final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::kSigned16, 10, 12> {};

// 12 blocks into Y, Cb and Cr.
class CBaseDCTRGBOutputFormatter_YUV_UCHAR final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k8, 10, 12> {};
class COptDCTRGBOutputFormatter_YUV_UCHAR final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k8, 10, 12> {};
class CBaseDCTRGBOutputFormatter_YUV_USHORT_10_6 final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k10_6, 10, 12> {};
class COptDCTRGBOutputFormatter_YUV_USHORT_10_6 final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k10_6, 10, 12> {};
class CBaseDCTRGBOutputFormatter_YUV_SHORT_2_14 final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k2_14, 10, 12> {};
class COptDCTRGBOutputFormatter_YUV_USHORT_2_14 final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k2_14, 10, 12> {};
class CBaseDCTRGBOutputFormatter_YUV_FLOAT final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::kFloat, 10, 12> {};
class COptDCTRGBOutputFormatter_YUV_FLOAT final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::kFloat, 10, 12> {};
class CBaseDCTRGBOutputFormatter_YUV_10Bit_2_8 final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k10_2_8, 10, 12> {};
class COptDCTRGBOutputFormatter_YUV_10Bit_2_8 final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k10_2_8, 10, 12> {};
class CBaseDCTRGBOutputFormatter_YUV_V210 final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::kV210, 10, 12> {};
class COptDCTRGBOutputFormatter_YUV_V210 final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::kV210, 10, 12> {};

// 8 blocks of 8 bits into RGB.
class CBaseDCTOutputFormatter_RGB_UCHAR final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k8, 8, 8> {};
class COptDCTOutputFormatter_RGB_UCHAR final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k8, 8, 8> {};
class CBaseDCTOutputFormatter_RGB_USHORT_10_6 final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k10_6, 8, 8> {};
class COptDCTOutputFormatter_RGB_USHORT_10_6 final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k10_6, 8, 8> {};
class BaseOutputFormatter_RGB_USHORT_2_14 final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k2_14, 8, 8> {};
class OptOutputFormatter_RGB_USHORT_2_14 final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k2_14, 8, 8> {};
class CBaseDCTOutputFormatter_RGB_SHORT final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::kSigned16, 8, 8> {};
class COptDCTOutputFormatter_RGB_SHORT final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::kSigned16, 8, 8> {};

// 8 blocks of 8 bits into Y, Cb and Cr.
class CBaseDCTOutputFormatter_YUV_UCHAR final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k8, 8, 8> {};
class COptDCTOutputFormatter_YUV_UCHAR final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k8, 8, 8> {};
class CBaseDCTOutputFormatterYUV_USHORT_10_6 final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k10_6, 8, 8> {};
class COptDCTOutputFormatterYUV_USHORT_10_6 final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k10_6, 8, 8> {};
class CBaseDCTOutputFormatterYUV_USHORT_2_14 final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k2_14, 8, 8> {};
class COptDCTOutputFormatterYUV_USHORT_2_14 final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k2_14, 8, 8> {};
class CBaseDCTOutputFormatterYUV_FLOAT final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::kFloat, 8, 8> {};
class COptDCTOutputFormatterYUV_FLOAT final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::kFloat, 8, 8> {};
class CBaseOutputFormatter_YUV_10Bit_2_8 final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k10_2_8, 8, 8> {};
class COptOutputFormatter_YUV_10Bit_2_8 final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k10_2_8, 8, 8> {};
class CBaseDCTOutputFormatterYUV_V210 final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::kV210, 8, 8> {};
class COptDCTOutputFormatterYUV_V210 final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::kV210, 8, 8> {};

// 8 blocks of 10 bits into RGB.
class CBaseDCTOutputFormatter_RGB_UCHAR_10BitIn final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k8, 10, 8> {};
class COptDCTOutputFormatter_RGB_UCHAR_10BitIn final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k8, 10, 8> {};
class CBaseDCTOutputFormatter_RGB_USHORT_10_6_10BitIn final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k10_6, 10, 8> {};
class COptDCTOutputFormatter_RGB_USHORT_10_6_10BitIn final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k10_6, 10, 8> {};
class BaseOutputFormatter_RGB_USHORT_2_14_10BitIn final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::k2_14, 10, 8> {};
class OptOutputFormatter_RGB_USHORT_2_14_10BitIn final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::k2_14, 10, 8> {};
class CBaseDCTOutputFormatter_RGB_SHORT_10BitIn final
    : public RgbOutputFormatter<Processor::kBase, RgbSamples::kSigned16, 10, 8> {};
class COptDCTOutputFormatter_RGB_SHORT_10BitIn final
    : public RgbOutputFormatter<Processor::kOpt, RgbSamples::kSigned16, 10, 8> {};

// 8 blocks of 10 bits into Y, Cb and Cr.
class CBaseDCTOutputFormatter_YUV_UCHAR_10BitIn final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k8, 10, 8> {};
class COptDCTOutputFormatter_YUV_UCHAR_10BitIn final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k8, 10, 8> {};
class CBaseDCTOutputFormatterYUV_USHORT_10_6_10BitIn final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k10_6, 10, 8> {};
class COptDCTOutputFormatterYUV_USHORT_10_6_10BitIn final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k10_6, 10, 8> {};
class CBaseDCTOutputFormatterYUV_USHORT_2_14_10BitIn final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k2_14, 10, 8> {};
class COptDCTOutputFormatterYUV_USHORT_2_14_10BitIn final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k2_14, 10, 8> {};
class CBaseDCTOutputFormatterYUV_FLOAT_10BitIn final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::kFloat, 10, 8> {};
class COptDCTOutputFormatterYUV_FLOAT_10BitIn final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::kFloat, 10, 8> {};
class CBaseOutputFormatter_YUV_10Bit_2_8_10BitIn final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::k10_2_8, 10, 8> {};
class COptOutputFormatter_YUV_10Bit_2_8_10BitIn final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::k10_2_8, 10, 8> {};
class CBaseDCTOutputFormatterYUV_V210_10BitIn final
    : public YCbCrOutputFormatter<Processor::kBase, YCbCrSamples::kV210, 10, 8> {};
class COptDCTOutputFormatterYUV_V210_10BitIn final
    : public YCbCrOutputFormatter<Processor::kOpt, YCbCrSamples::kV210, 10, 8> {};

// clang-format on

}  // namespace zel::dnxhd
