#include "zel/mux/engine/packet/pes_header.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "zel/mux/engine/packet/au_information.h"

namespace zel::mux {
namespace {

// Bytes below are worked out by hand from the tables of ISO/IEC 13818-1, 2.4.3.6.

std::vector<uint8_t> written(const pes_fields& fields) {
  std::vector<uint8_t> bytes(kMostPesHeader, 0xA5);
  const int size = put_pes_header(bytes.data(), fields);
  EXPECT_EQ(size, pes_header_size(fields));
  for (size_t i = static_cast<size_t>(size); i < bytes.size(); ++i) EXPECT_EQ(bytes[i], 0xA5);
  bytes.resize(static_cast<size_t>(size));
  return bytes;
}
using Bytes = std::vector<uint8_t>;

TEST(PesHeader, WithoutTimeStamps) {
  pes_fields fields;
  fields.streamId = 0xC0;
  fields.payloadLength = 100;
  EXPECT_EQ(written(fields), (Bytes{0, 0, 1, 0xC0, 0, 103, 0x80, 0x00, 0}));
}

TEST(PesHeader, PtsAlone) {
  pes_fields fields;
  fields.streamId = 0xBD;
  fields.payloadLength = 0x1234 - 8;
  fields.hasPts = true;
  fields.pts = 90000.0 * 300;  // 0x15F90
  fields.headerFlags = 4;
  EXPECT_EQ(written(fields),
            (Bytes{0, 0, 1, 0xBD, 0x12, 0x34, 0x84, 0x80, 5, 0x21, 0x00, 0x05, 0xBF, 0x21}));
}

TEST(PesHeader, PtsAndDtsOfUnboundedVideo) {
  pes_fields fields;
  fields.unbounded = true;
  fields.payloadLength = 5000;
  fields.hasPts = fields.hasDts = true;
  fields.pts = 8589934591.0 * 300 + 299;  // all 33 bits; the fraction is dropped
  fields.dts = 0;
  fields.headerFlags = 0xF;
  EXPECT_EQ(written(fields), (Bytes{0, 0, 1, 0xE0, 0, 0, 0x8F, 0xC0, 10, 0x3F, 0xFF, 0xFF, 0xFF,
                                    0xFF, 0x11, 0x00, 0x01, 0x00, 0x01}));
}

TEST(PesHeader, StreamIdExtension) {
  pes_fields fields;
  fields.streamId = kExtendedStreamId;
  fields.hasIdExtension = true;
  fields.idExtension = 0x55;
  EXPECT_EQ(written(fields), (Bytes{0, 0, 1, 0xFD, 0, 6, 0x80, 0x01, 3, 0x0F, 0x81, 0x55}));
}

TEST(PesHeader, PrivateDataOfSixteenBytes) {
  std::vector<uint8_t> data(16);
  std::iota(data.begin(), data.end(), uint8_t{1});
  pes_fields fields;
  fields.privateForm = pes_private_form::field;
  fields.privateData = data;
  EXPECT_EQ(written(fields), (Bytes{0, 0, 1, 0xE0, 0, 20, 0x80, 0x01, 17, 0x8E, 1,  2,  3,
                                    4, 5, 6, 7,    8, 9,  10,   11,   12, 13,   14, 15, 16}));
}

TEST(PesHeader, PrivateDataInTheExtensionField) {
  const Bytes data{9, 8, 7};
  pes_fields fields;
  fields.privateForm = pes_private_form::extension;
  fields.privateData = data;
  EXPECT_EQ(written(fields), (Bytes{0, 0, 1, 0xE0, 0, 8, 0x80, 0x01, 5, 0x0F, 0x83, 9, 8, 7}));
}

TEST(PesHeader, TheExtensionFieldNeverOverrunsItsSevenBits) {
  const Bytes data(200, 3);
  pes_fields fields;
  fields.privateForm = pes_private_form::extension;
  fields.privateData = data;
  const Bytes bytes = written(fields);
  EXPECT_EQ(bytes[10], 0xFF);
  EXPECT_EQ(bytes[8], 2 + 127);
}

TEST(PesHeader, AForcedLengthIsFilledWithStuffing) {
  pes_fields fields;
  fields.hasPts = true;
  fields.forcedHeaderLength = 8;
  EXPECT_EQ(written(fields),
            (Bytes{0, 0, 1, 0xE0, 0, 11, 0x80, 0x80, 8, 0x21, 0, 1, 0, 1, 0xFF, 0xFF, 0xFF}));
  fields.forcedHeaderLength = 3;
  EXPECT_EQ(written(fields).size(), 14u);
}

TEST(PesHeader, PaddingStopsBehindTheLength) {
  pes_fields fields;
  fields.streamId = kPaddingStreamId;
  fields.payloadLength = 40;
  fields.hasPts = true;
  EXPECT_EQ(written(fields), (Bytes{0, 0, 1, 0xBE, 0, 40}));
}

TEST(PesHeader, ALengthAbove16BitsIsUnbounded) {
  pes_fields fields;
  fields.payloadLength = 65535 - 3;
  EXPECT_EQ(written(fields)[4], 0xFF);
  fields.payloadLength += 1;
  EXPECT_EQ(written(fields)[4], 0);
  EXPECT_EQ(written(fields)[5], 0);
}

TEST(AuInformation, EightBytesByCoding) {
  access_unit unit;
  unit.pictureType = 2;
  unit.fieldStructure = 2;
  unit.pts = 300.0 * 0x123456789;
  auto bytes = au_information(video_coding::avc, unit);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), (Bytes{2, 6, 0x22, 0x28, 0x91, 0xA2, 0xB3, 0xC4}));
  unit.fieldStructure = 3;
  unit.topFieldFirst = true;
  bytes = au_information(video_coding::mpeg2, unit);
  EXPECT_EQ(bytes[2], 0x12);
  EXPECT_EQ(bytes[3], 0x48);
}

}  // namespace
}  // namespace zel::mux
