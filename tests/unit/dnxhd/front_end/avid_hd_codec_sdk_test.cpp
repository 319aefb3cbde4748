#include "zel/dnxhd/front_end/avid_hd_codec_sdk.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "tests/unit/dnxhd/front_end/fake_codec.h"

namespace Morvalen::Zel {
namespace {

struct Sdk : testing::Test {
  Calls calls;
  AvidHDCodecSDKImpl sdk{new FakeCodec(calls)};
  UnCompInfo record;
};

TEST_F(Sdk, GetVersionWritesAllOrNothing) {
  uint32_t words[5] = {9, 9, 9, 9, 9};
  char letter = 'x';
  sdk.GetVersion(&words[0], &words[1], &words[2], &words[3], nullptr, &letter);
  EXPECT_EQ(words[0], 9u);
  EXPECT_EQ(letter, 'x');
  sdk.GetVersion(&words[0], &words[1], &words[2], &words[3], &words[4], &letter);
  EXPECT_EQ(words[0], 1u);
  EXPECT_EQ(words[1], 4u);
  EXPECT_EQ(words[2], 2u);
  EXPECT_EQ(words[3], 0u);
  EXPECT_EQ(words[4], 64u);
  EXPECT_EQ(letter, 'b');
}

TEST_F(Sdk, BufferSizeIsAFixedListWithTwoZeros) {
  for (const CompInfo& row : kCompInfos) {
    const bool zero = row.compressionId == 1254 || row.compressionId == 1257;
    EXPECT_EQ(sdk.SetCompressionId(static_cast<uint16_t>(row.compressionId)), 0);
    EXPECT_EQ(sdk.GetCompressedBufferSize(), zero ? 0 : static_cast<int32_t>(row.frameBytes))
        << row.compressionId;
  }
  for (const uint16_t id : {uint16_t{0}, uint16_t{1233}, uint16_t{1239}, uint16_t{65535}}) {
    sdk.SetCompressionId(id);
    EXPECT_EQ(sdk.GetCompressedBufferSize(), 0);
  }
}

TEST_F(Sdk, AnyIdIsStoredAndAnUnknownOneIsToldAtSetUp) {
  EXPECT_EQ(sdk.SetCompressionId(1233), 0);
  EXPECT_EQ(sdk.SetInputOutputDataTypes(&record, 1), -9999);
  EXPECT_TRUE(calls.names.empty());
}

TEST_F(Sdk, ConfiguresWithTheRowOfTheIdAndACopyOfTheRecord) {
  record.rgbOutput = 0x1234;  // the flag is its low byte
  record.maxCoded = 0x100;
  sdk.SetCompressionId(1242);
  EXPECT_EQ(sdk.SetInputOutputDataTypes(&record, 2), 0);
  EXPECT_EQ(calls.names, std::vector<std::string>{"Configure"});
  EXPECT_EQ(calls.numbers[0], 2u);
  EXPECT_EQ(calls.rowId, 1242u);
  EXPECT_EQ(calls.records[0].rgbOutput, 1u);
  EXPECT_EQ(calls.records[0].maxCoded, 2147483647u);
  EXPECT_EQ(record.rgbOutput, 0x1234u);
  record.rgbOutput = 0x100;
  record.maxCoded = 7;
  sdk.SetInputOutputDataTypes(&record, 2);
  EXPECT_EQ(calls.records[1].rgbOutput, 0u);
  EXPECT_EQ(calls.records[1].maxCoded, 1u);
}

TEST_F(Sdk, A444CompressionWantsRgbOfFourComponents) {
  sdk.SetCompressionId(1256);
  EXPECT_EQ(sdk.SetInputOutputDataTypes(&record, 1), -8888);
  record.pixelLayout = 2;
  record.componentCount = 4;
  EXPECT_EQ(sdk.SetInputOutputDataTypes(&record, 1), -8888);
  for (const uint32_t word : {4u, 8u}) {
    record.formatWord = word;
    EXPECT_EQ(sdk.SetInputOutputDataTypes(&record, 1), 0);
  }
  record.componentCount = 3;
  EXPECT_EQ(sdk.SetInputOutputDataTypes(&record, 1), -8888);
}

TEST_F(Sdk, TheFailureOfTheCodecIsHandedOn) {
  calls.failing = "Configure";
  calls.failure = -16;
  sdk.SetCompressionId(1237);
  EXPECT_EQ(sdk.SetInputOutputDataTypes(&record, 1), -16);
}

TEST_F(Sdk, ThreadCountsAreClamped) {
  sdk.SetDecodeThreads(20);
  sdk.SetDecodeThreads(3);
  sdk.SetEncodeThreads(20);
  sdk.SetEncodeThreads(8);
  sdk.SetEncodeThreads(-1);
  EXPECT_EQ(calls.numbers, (std::vector<uint32_t>{16, 3, 8, 8, static_cast<uint32_t>(-1)}));
}

TEST_F(Sdk, TheRestIsTheCodecs) {
  uint32_t bytes = 0;
  char text[8];
  calls.encodedBytes = 77;
  sdk.EncodeFrame(this, this, 3, 4, &bytes);
  EXPECT_EQ(bytes, 77u);
  sdk.DecodeFrame(this, this, 5, 6);
  sdk.GetLastResult();
  sdk.GetResultText(-17, text, 8);
  sdk.SetRowBytesForDecode(16);
  sdk.SetRowBytesForEncode(32);
  sdk.SetFieldGapForDecode(48);
  sdk.SetFieldGapForEncode(64);
  sdk.GetDecodeThreads();
  sdk.GetEncodeThreads();
  EXPECT_EQ(calls.names, (std::vector<std::string>{
                             "EncodeFrame", "DecodeFrame", "GetLastResult", "GetResultText",
                             "SetRowBytesForDecode", "SetRowBytesForEncode", "SetFieldGapForDecode",
                             "SetFieldGapForEncode", "GetDecodeThreads", "GetEncodeThreads"}));
  EXPECT_EQ(calls.numbers, (std::vector<uint32_t>{3004, 5006, 0, 17008, 16, 32, 48, 64, 0, 0}));
}

TEST(SdkWithoutACodec, GivesMinusEight) {
  ASSERT_FALSE(AvidHDCodecLibrary::IsInitialized());
  AvidHDCodecSDKImpl sdk;
  EXPECT_EQ(sdk.GetCodec(), nullptr);
  const UnCompInfo record;
  uint32_t bytes = 0;
  char text[60];
  sdk.SetCompressionId(1237);
  EXPECT_EQ(sdk.SetInputOutputDataTypes(&record, 1), -8);
  EXPECT_EQ(sdk.EncodeFrame(&record, text, 0, 0, &bytes), -8);
  EXPECT_EQ(sdk.DecodeFrame(&record, text, 0, 0), -8);
  EXPECT_EQ(sdk.SetEncodeThreads(1), -8);
  EXPECT_EQ(sdk.SetDecodeThreads(1), -8);
  EXPECT_EQ(sdk.GetLastResult(), -8);
  EXPECT_EQ(sdk.GetResultText(0, text, 60), -8);
  EXPECT_EQ(sdk.SetRowBytesForEncode(16), -8);
  EXPECT_EQ(sdk.GetCompressedBufferSize(), 606208);
}

TEST(SdkRecord, ANullRecordIsRefused) {
  Calls calls;
  AvidHDCodecSDKImpl sdk(new FakeCodec(calls));
  sdk.SetCompressionId(1237);
  EXPECT_EQ(sdk.SetInputOutputDataTypes(nullptr, 1), -43);
}

TEST(SdkRecord, TheCodecGoesWithIt) {
  Calls calls;
  { const AvidHDCodecSDKImpl sdk(new FakeCodec(calls)); }
  EXPECT_EQ(calls.names, std::vector<std::string>{"delete"});
}

}  // namespace
}  // namespace Morvalen::Zel
