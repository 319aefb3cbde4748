#include "zel/dnxhd/bitstream/frame_header.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "zel/base/byte_order.h"

namespace zel::dnxhd {
namespace {

using Header = std::array<uint8_t, kHeaderBytes>;

Header written(uint32_t id, FieldCode code) {
  Header header;
  header.fill(0xEE);
  WriteFrameHeader(*FindEntry(id), code, header);
  return header;
}

TEST(FrameHeader, BytesOfAProgressiveFrame) {
  const Header header = written(1237, kProgressivePicture);
  Header expected{};
  const auto put = [&](size_t at, std::initializer_list<uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(), expected.begin() + static_cast<ptrdiff_t>(at));
  };
  put(0, {0x00, 0x00, 0x02, 0x80, 1, 1, 0x80, 0xA0});
  put(24, {0x04, 0x38, 0x07, 0x80, 0, 0x04, 0x38});
  put(33, {0x38, 0x88});
  put(40, {0x00, 0x00, 0x04, 0xD5, 0x80});
  put(96, {0, 0, 0, 1});
  put(356, {0, 0, 0, 2, 0, 0, 0x01, 0x14, 0, 68, 0, 16});
  EXPECT_EQ(header, expected);
}

TEST(FrameHeader, BytesThatOtherFamiliesChange) {
  const Header field = written(1241, kSecondField);
  EXPECT_EQ(field[5], 3);
  EXPECT_EQ(base::loadBig16(&field[24]), 540);
  EXPECT_EQ(base::loadBig16(&field[29]), 540);
  EXPECT_EQ(field[33], 0x58);
  EXPECT_EQ(field[34], 0x8C);
  EXPECT_EQ(field[44], 0x00);
  EXPECT_EQ(base::loadBig16(&field[364]), 34);

  const Header rgb = written(1256, kProgressivePicture);
  EXPECT_EQ(rgb[4], 2);
  EXPECT_EQ(rgb[44], 0xC1);

  const Header thin = written(1260, kProgressivePicture);
  EXPECT_EQ(thin[4], 2);
  EXPECT_EQ(base::loadBig16(&thin[6]), 0xA0A0);
  EXPECT_EQ(base::loadBig16(&thin[26]), 1440);
  EXPECT_EQ(base::loadBig16(&written(1259, kProgressivePicture)[6]), 0x80A0);
}

TEST(FrameHeader, WhatIsWrittenReadsBack) {
  for (const VCIDEntry& entry : VCIDTable) {
    const PictureGeometry geometry = GeometryOf(entry);
    const FieldCode code = entry.singlePicture == 1 ? kProgressivePicture : kFirstField;
    Header bytes;
    WriteFrameHeader(entry, code, bytes);
    for (uint32_t row = 0; row < geometry.mbRows; ++row) SetRowOffset(bytes, row, row * 400);
    FrameHeader header;
    ASSERT_EQ(ParseFrameHeader(bytes, header), kSuccessful) << entry.compressionId;
    EXPECT_EQ(header.entry, &entry);
    EXPECT_EQ(header.fieldCode, code);
    EXPECT_EQ(header.marker, 2);
    EXPECT_EQ(header.fieldFlags, HasFieldFlag(entry));
    EXPECT_FALSE(header.crcPresent);
    EXPECT_EQ(header.lines, geometry.lines);
    EXPECT_EQ(header.width, entry.width);
    EXPECT_EQ(header.depthCode, entry.depth == 10 ? 2 : 1);
    EXPECT_EQ(header.interlaced, IsInterlaced(entry));
    EXPECT_EQ(header.singlePicture, entry.singlePicture == 1);
    EXPECT_EQ(header.mode444, IsRgbFamily(entry));
    EXPECT_FALSE(header.sideDataPresent);
    ASSERT_EQ(header.rowCount, geometry.mbRows);
    for (uint32_t row = 0; row < geometry.mbRows; ++row) {
      EXPECT_EQ(header.rowOffsets[row], row * 400);
    }
  }
}

TEST(FrameHeader, TheRowOfTheIdWinsOverTheFlag) {
  Header bytes = written(1237, kProgressivePicture);
  bytes[44] &= 0x7F;
  FrameHeader header;
  ASSERT_EQ(ParseFrameHeader(bytes, header), kSuccessful);
  EXPECT_FALSE(header.headerSinglePicture);
  EXPECT_TRUE(header.singlePicture);
}

TEST(FrameHeader, DamageGivesTheRightWord) {
  FrameHeader header;
  Header bytes = written(1237, kProgressivePicture);
  bytes[3] = 0x81;
  EXPECT_EQ(ParseFrameHeader(bytes, header), kErrorInBitStream);
  bytes = written(1237, kProgressivePicture);
  bytes[43] = 0;
  EXPECT_EQ(ParseFrameHeader(bytes, header), kErrorNonHdFormat);
  bytes = written(1237, kProgressivePicture);
  for (size_t size = 0; size < kHeaderBytes; size += 71) {
    EXPECT_EQ(ParseFrameHeader(std::span(bytes).first(size), header), kErrorInBitStream);
  }
}

TEST(FrameHeader, RowCountsBeyondTheTableAreCutAndMissingTablesAreEmpty) {
  Header bytes = written(1237, kProgressivePicture);
  base::storeBig16(&bytes[364], 65535);
  FrameHeader header;
  ASSERT_EQ(ParseFrameHeader(bytes, header), kSuccessful);
  EXPECT_EQ(header.rowCount, kMaxMbRows);
  base::storeBig32(&bytes[356], 3);
  ASSERT_EQ(ParseFrameHeader(bytes, header), kSuccessful);
  EXPECT_EQ(header.rowCount, 0u);
}

TEST(FrameHeader, PicturesEndWithZerosAndTheMark) {
  std::vector<uint8_t> picture(32, 0xEE);
  ASSERT_EQ(FinishPicture(picture, 20), kSuccessful);
  for (size_t i = 0; i < 20; ++i) EXPECT_EQ(picture[i], 0xEE);
  for (size_t i = 20; i < 28; ++i) EXPECT_EQ(picture[i], 0);
  EXPECT_EQ(std::vector<uint8_t>(picture.end() - 4, picture.end()),
            (std::vector<uint8_t>{0x60, 0x0D, 0xC0, 0xDE}));
  EXPECT_EQ(FinishPicture(picture, 28), kSuccessful);
  EXPECT_EQ(FinishPicture(picture, 29), kErrorEncodeBufferOverflow);
  EXPECT_EQ(FinishPicture(picture, 33), kErrorEncodeBufferOverflow);
}

}  // namespace
}  // namespace zel::dnxhd
