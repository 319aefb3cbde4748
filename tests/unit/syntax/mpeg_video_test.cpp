#include "zel/syntax/mpeg_video.h"

#include <gtest/gtest.h>

#include "tests/support/header_bits.h"

namespace {

using zel::test::HeaderBits;
using zel::test::RandomFields;
using namespace zel::syntax;

TEST(MpegVideoUnits, KeepZeroBytesAtTheEnd) {
  const std::vector<uint8_t> stream = {9, 0, 0, 1, 0xB8, 1, 2, 0, 0, 0, 0, 1, 0x00, 7, 0, 0, 1};
  MpegVideoUnit unit;
  ASSERT_TRUE(findMpegVideoUnit(stream, 0, unit));
  EXPECT_EQ(unit.code, kMpegGroup);
  EXPECT_EQ(unit.startCode, 1u);
  EXPECT_EQ(unit.payload.size(), 4u);
  ASSERT_TRUE(findMpegVideoUnit(stream, unit.startCode + 3, unit));
  EXPECT_EQ(unit.code, kMpegPicture);
  EXPECT_EQ(unit.payload.size(), 1u);
  // A prefix whose code isn't there yet is no unit.
  EXPECT_FALSE(findMpegVideoUnit(stream, unit.startCode + 3, unit));
}

TEST(MpegVideoUnits, APictureCodeMayBeFollowedByAnythingButIsNoPrefix) {
  const std::vector<uint8_t> stream = {0, 0, 1, 0x00, 0, 1, 5};
  MpegVideoUnit unit;
  ASSERT_TRUE(findMpegVideoUnit(stream, 0, unit));
  EXPECT_EQ(unit.payload.size(), 3u);
}

std::vector<uint8_t> write(const MpegSequenceHeader& header) {
  HeaderBits out;
  out.u(12, header.horizontalSize);
  out.u(12, header.verticalSize);
  out.u(4, header.aspectRatioInformation);
  out.u(4, header.frameRateCode);
  out.u(18, header.bitRateValue);
  out.flag(true);
  out.u(10, header.vbvBufferSizeValue);
  out.flag(header.constrainedParameters);
  out.flag(header.loadIntraMatrix);
  if (header.loadIntraMatrix) {
    for (const uint8_t weight : header.intraMatrix) out.u(8, weight);
  }
  out.flag(header.loadNonIntraMatrix);
  if (header.loadNonIntraMatrix) {
    for (const uint8_t weight : header.nonIntraMatrix) out.u(8, weight);
  }
  return out.bytes();
}

TEST(MpegSequenceHeader, ReadsWhatWasWritten) {
  RandomFields random(1);
  for (int round = 0; round < 500; ++round) {
    MpegSequenceHeader header;
    header.horizontalSize = static_cast<uint16_t>(random.bits(12));
    header.verticalSize = static_cast<uint16_t>(random.bits(12));
    header.aspectRatioInformation = static_cast<uint8_t>(random.bits(4));
    header.frameRateCode = static_cast<uint8_t>(random.bits(4));
    header.bitRateValue = random.bits(18);
    header.vbvBufferSizeValue = static_cast<uint16_t>(random.bits(10));
    header.constrainedParameters = random.flag();
    header.loadIntraMatrix = random.flag();
    header.loadNonIntraMatrix = random.flag();
    for (size_t i = 0; i < 64; ++i) {
      if (header.loadIntraMatrix) header.intraMatrix[i] = static_cast<uint8_t>(random.bits(8));
      if (header.loadNonIntraMatrix) {
        header.nonIntraMatrix[i] = static_cast<uint8_t>(random.bits(8));
      }
    }
    const auto bytes = write(header);
    MpegSequenceHeader back;
    ASSERT_TRUE(parseMpegSequenceHeader(bytes, back));
    ASSERT_EQ(back, header);
    ASSERT_FALSE(parseMpegSequenceHeader(std::span(bytes).first(bytes.size() - 1), back));
  }
}

TEST(MpegSequenceExtension, ReadsWhatWasWritten) {
  RandomFields random(2);
  for (int round = 0; round < 500; ++round) {
    MpegSequenceExtension header;
    HeaderBits out;
    out.u(4, 1);
    out.flag(header.escape = random.flag());
    out.u(3, header.profile = static_cast<uint8_t>(random.bits(3)));
    out.u(4, header.level = static_cast<uint8_t>(random.bits(4)));
    out.flag(header.progressiveSequence = random.flag());
    out.u(2, header.chromaFormat = static_cast<uint8_t>(random.bits(2)));
    out.u(2, header.horizontalSizeExtension = static_cast<uint8_t>(random.bits(2)));
    out.u(2, header.verticalSizeExtension = static_cast<uint8_t>(random.bits(2)));
    out.u(12, header.bitRateExtension = static_cast<uint16_t>(random.bits(12)));
    out.flag(true);
    out.u(8, header.vbvBufferSizeExtension = static_cast<uint8_t>(random.bits(8)));
    out.flag(header.lowDelay = random.flag());
    out.u(2, header.frameRateExtensionN = static_cast<uint8_t>(random.bits(2)));
    out.u(5, header.frameRateExtensionD = static_cast<uint8_t>(random.bits(5)));
    const auto bytes = out.bytes();
    EXPECT_EQ(mpegExtensionId(bytes), kMpegSequenceExtension);
    MpegSequenceExtension back;
    ASSERT_TRUE(parseMpegSequenceExtension(bytes, back));
    ASSERT_EQ(back, header);
    ASSERT_FALSE(parseMpegSequenceExtension(std::span(bytes).first(bytes.size() - 1), back));
    MpegPictureCodingExtension other;
    ASSERT_FALSE(parseMpegPictureCodingExtension(bytes, other));
  }
}

TEST(MpegSequenceDisplayExtension, ColourDescriptionIsOptional) {
  for (const bool colour : {false, true}) {
    HeaderBits out;
    out.u(4, 2);
    out.u(3, 2);
    out.flag(colour);
    if (colour) out.u(24, 0x010607);
    out.u(14, 1920);
    out.flag(true);
    out.u(14, 1080);
    MpegSequenceDisplayExtension back;
    ASSERT_TRUE(parseMpegSequenceDisplayExtension(out.bytes(), back));
    const MpegSequenceDisplayExtension expected = {
        2,    colour, uint8_t(colour ? 1 : 0), uint8_t(colour ? 6 : 0), uint8_t(colour ? 7 : 0),
        1920, 1080};
    EXPECT_EQ(back, expected);
  }
}

TEST(MpegGroupHeader, ReadsTheTimeCode) {
  HeaderBits out;
  out.flag(true);
  out.u(5, 23);
  out.u(6, 59);
  out.flag(true);
  out.u(6, 58);
  out.u(6, 29);
  out.flag(true);
  out.flag(false);
  MpegGroupHeader back;
  ASSERT_TRUE(parseMpegGroupHeader(out.bytes(), back));
  EXPECT_EQ(back, (MpegGroupHeader{true, 23, 59, 58, 29, true, false}));
}

TEST(MpegPictureHeader, VectorFieldsHangOnTheType) {
  for (uint8_t type = 1; type <= 4; ++type) {
    MpegPictureHeader header = {1023, type, 0x1234, false, 0, false, 0};
    HeaderBits out;
    out.u(10, header.temporalReference);
    out.u(3, type);
    out.u(16, header.vbvDelay);
    if (type == 2 || type == 3) {
      out.flag(header.fullPelForward = true);
      out.u(3, header.forwardFCode = 5);
    }
    if (type == 3) {
      out.flag(header.fullPelBackward = false);
      out.u(3, header.backwardFCode = 6);
    }
    out.flag(false);
    MpegPictureHeader back;
    ASSERT_TRUE(parseMpegPictureHeader(out.bytes(), back));
    EXPECT_EQ(back, header);
  }
}

TEST(MpegPictureCodingExtension, ReadsWhatWasWritten) {
  RandomFields random(3);
  for (int round = 0; round < 500; ++round) {
    MpegPictureCodingExtension header;
    HeaderBits out;
    out.u(4, 8);
    for (auto& direction : header.fCode) {
      for (auto& code : direction) out.u(4, code = static_cast<uint8_t>(random.bits(4)));
    }
    out.u(2, header.intraDcPrecision = static_cast<uint8_t>(random.bits(2)));
    out.u(2, header.pictureStructure = static_cast<uint8_t>(random.bits(2)));
    for (bool* field :
         {&header.topFieldFirst, &header.framePredFrameDct, &header.concealmentMotionVectors,
          &header.qScaleType, &header.intraVlcFormat, &header.alternateScan,
          &header.repeatFirstField, &header.chroma420Type, &header.progressiveFrame,
          &header.compositeDisplay}) {
      out.flag(*field = random.flag());
    }
    if (header.compositeDisplay) {
      out.flag(header.vAxis = random.flag());
      out.u(3, header.fieldSequence = static_cast<uint8_t>(random.bits(3)));
      out.flag(header.subCarrier = random.flag());
      out.u(7, header.burstAmplitude = static_cast<uint8_t>(random.bits(7)));
      out.u(8, header.subCarrierPhase = static_cast<uint8_t>(random.bits(8)));
    }
    MpegPictureCodingExtension back;
    ASSERT_TRUE(parseMpegPictureCodingExtension(out.bytes(), back));
    ASSERT_EQ(back, header);
  }
}

TEST(MpegDisplayFields, FollowTheDisplayProcess) {
  MpegPictureCodingExtension picture;
  picture.pictureStructure = kMpegFrame;
  EXPECT_EQ(mpegDisplayFields(false, picture), 2);
  EXPECT_EQ(mpegDisplayFields(true, picture), 2);
  picture.repeatFirstField = true;
  EXPECT_EQ(mpegDisplayFields(false, picture), 3);
  EXPECT_EQ(mpegDisplayFields(true, picture), 4);
  picture.topFieldFirst = true;
  EXPECT_EQ(mpegDisplayFields(true, picture), 6);
  picture.pictureStructure = kMpegTopField;
  EXPECT_EQ(mpegDisplayFields(false, picture), 1);
}

}  // namespace
