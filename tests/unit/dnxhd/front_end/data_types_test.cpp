#include "zel/dnxhd/front_end/data_types.h"

#include <gtest/gtest.h>

#include "zel/runtime/video_format.h"

namespace Morvalen::Zel {
namespace {

TEST(DataTypes, DefaultsAreEightBitYCbCrOfTheFullRaster) {
  const DataTypes types = DataTypesForEncode(VideoFormat::Packed422UYVY, 1920, 1);
  EXPECT_EQ(types.record.pixelLayout, 8u);
  EXPECT_EQ(types.record.formatWord, 2u);
  EXPECT_EQ(types.record.componentCount, 1u);
  EXPECT_EQ(types.record.resolution, 1u);
  EXPECT_EQ(types.record.fieldWord, 64u);
  EXPECT_EQ(types.record.sampleType, 1u);
  EXPECT_EQ(types.record.reserved6, 1u);
  EXPECT_EQ(types.record.fieldLayout, 64u);
  EXPECT_EQ(types.record.reserved8, 1u);
  EXPECT_EQ(types.record.rasterWord, 1u);
  EXPECT_EQ(types.record.rgbOutput, 0u);
  EXPECT_EQ(types.record.alignment, 16u);
  EXPECT_EQ(types.record.maxCoded, 1u);
  EXPECT_EQ(types.rowBytes, 3840u);
}

TEST(DataTypes, FieldModesTwoAndThreeAreFields) {
  for (const int32_t mode : {-1, 0, 1, 2, 3, 4}) {
    const bool fields = mode == 2 || mode == 3;
    const auto decode = DataTypesForDecode(VideoFormat::Packed422UYVY, 1920, mode);
    EXPECT_EQ(decode->record.fieldWord, fields ? 32u : 64u) << mode;
    EXPECT_EQ(decode->record.fieldLayout, fields ? 1u : 64u) << mode;
  }
}

TEST(DataTypes, AWidthOf1440IsTheThinRasterWhateverTheRest) {
  for (const uint32_t format :
       {VideoFormat::Packed422UYVY, VideoFormat::Packed422UYVY_10, VideoFormat::PackedARGB_64}) {
    EXPECT_EQ(DataTypesForEncode(format, 1440, 0).record.rasterWord, 4u);
    EXPECT_EQ(DataTypesForDecode(format, 1440, 2)->record.rasterWord, 4u);
    EXPECT_EQ(DataTypesForEncode(format, 1441, 0).record.rasterWord, 1u);
  }
}

TEST(DataTypes, EncodingV210At1920Gives5120RowBytes) {
  const DataTypes types = DataTypesForEncode(VideoFormat::Packed422UYVY_10, 1920, 0);
  EXPECT_EQ(types.record.sampleType, 1024u);
  EXPECT_EQ(types.record.pixelLayout, 8u);
  EXPECT_EQ(types.rowBytes, 5120u);
}

TEST(DataTypes, DecodingV210At1280RoundsTheWidthUp) {
  const auto types = DataTypesForDecode(VideoFormat::Packed422UYVY_10, 1280, 0);
  EXPECT_EQ(types->record.sampleType, 1024u);
  EXPECT_EQ(types->rowBytes, 3456u);  // 1296 * 8 / 3
}

TEST(DataTypes, RgbFormats) {
  const auto bgra = DataTypesForDecode(VideoFormat::PackedBGRA, 1920, 0);
  EXPECT_EQ(bgra->record.pixelLayout, 2u);
  EXPECT_EQ(bgra->record.formatWord, 8u);
  EXPECT_EQ(bgra->record.componentCount, 4u);
  EXPECT_EQ(bgra->record.sampleType, 1u);
  EXPECT_EQ(bgra->record.rgbOutput, 1u);
  EXPECT_EQ(bgra->rowBytes, 7680u);
  const auto argb = DataTypesForDecode(VideoFormat::PackedARGB_64, 1920, 0);
  EXPECT_EQ(argb->record.sampleType, 16u);
  EXPECT_EQ(argb->record.rgbOutput, 1u);
  EXPECT_EQ(argb->rowBytes, 15360u);
  const DataTypes encode = DataTypesForEncode(VideoFormat::PackedARGB_64, 1920, 0);
  EXPECT_EQ(encode.record.sampleType, 16u);
  EXPECT_EQ(encode.record.componentCount, 4u);
  EXPECT_EQ(encode.record.rgbOutput, 0u);
  EXPECT_EQ(encode.rowBytes, 15360u);
}

TEST(DataTypes, OtherFormatsAreTakenAsUyvyForEncodingAndRefusedForDecoding) {
  const DataTypes types = DataTypesForEncode(VideoFormat::PackedBGRA, 1280, 0);
  EXPECT_EQ(types.record.pixelLayout, 8u);
  EXPECT_EQ(types.rowBytes, 2560u);
  EXPECT_FALSE(DataTypesForDecode(VideoFormat::PackedRGB, 1280, 0).has_value());
  EXPECT_FALSE(DataTypesForDecode(0, 1280, 0).has_value());
}

}  // namespace
}  // namespace Morvalen::Zel
