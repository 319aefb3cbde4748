#include "zel/dnxhd/front_end/avid_dnxhd_api.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/failing_allocation.h"
#include "tests/unit/dnxhd/front_end/fake_codec.h"
#include "zel/runtime/result_codes.h"
#include "zel/runtime/video_format.h"

namespace Morvalen::Zel {
namespace {

struct Releaser {
  void operator()(CAvidDNxHDApi* api) const { api->Release(); }
};
using Api = std::unique_ptr<CAvidDNxHDApi, Releaser>;

struct DNxHDApi : testing::Test {
  void make(int32_t threads) { api.reset(CAvidDNxHDApi::Create(threads, new FakeSdk(calls))); }
  Calls calls;
  Api api;
};

using Names = std::vector<std::string>;

TEST_F(DNxHDApi, EncodingSetsRowBytesThenTypesThenThreads) {
  make(3);
  EXPECT_EQ(api->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY_10, 1920, 2), 0);
  EXPECT_EQ(calls.names,
            (Names{"SetRowBytesForEncode", "SetInputOutputDataTypes", "SetEncodeThreads"}));
  EXPECT_EQ(calls.numbers, (std::vector<uint32_t>{5120, 1, 3}));
  EXPECT_EQ(calls.records[0].sampleType, 1024u);
  EXPECT_EQ(calls.records[0].fieldLayout, 1u);
}

TEST_F(DNxHDApi, ARefusedRowBytesForEncodingIsPassedOver) {
  make(1);
  calls.failing = "SetRowBytesForEncode";
  EXPECT_EQ(api->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY, 1920, 0), 0);
}

TEST_F(DNxHDApi, ARefusedRecordEndsTheSetUp) {
  make(2);
  calls.failing = "SetInputOutputDataTypes";
  calls.failure = -9999;
  EXPECT_EQ(api->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY, 1920, 0), -9999);
  EXPECT_EQ(calls.names.back(), "SetInputOutputDataTypes");
  EXPECT_EQ(api->SetInputOutputDataTypesForDecode(VideoFormat::Packed422UYVY, 1920, 0), -9999);
  EXPECT_EQ(calls.names.back(), "SetInputOutputDataTypes");
}

TEST_F(DNxHDApi, TheThreadsResultIsTheSetUps) {
  make(2);
  calls.failing = "SetEncodeThreads";
  calls.failure = -7;
  EXPECT_EQ(api->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY, 1920, 0), -7);
  calls.failing = "SetDecodeThreads";
  EXPECT_EQ(api->SetInputOutputDataTypesForDecode(VideoFormat::PackedBGRA, 1920, 0), -7);
  EXPECT_EQ(calls.names.back(), "SetDecodeThreads");
}

TEST_F(DNxHDApi, DecodingSetsTypesThenRowBytesThenThreads) {
  make(4);
  EXPECT_EQ(api->SetInputOutputDataTypesForDecode(VideoFormat::Packed422UYVY_10, 1280, 0), 0);
  EXPECT_EQ(calls.names,
            (Names{"SetInputOutputDataTypes", "SetRowBytesForDecode", "SetDecodeThreads"}));
  EXPECT_EQ(calls.numbers, (std::vector<uint32_t>{2, 3456, 4}));
}

TEST_F(DNxHDApi, RgbDecodingIsIssuedAgainOnceWithSeveralThreads) {
  make(2);
  EXPECT_EQ(api->SetInputOutputDataTypesForDecode(VideoFormat::PackedBGRA, 1920, 0), 0);
  const Names twice = {"SetInputOutputDataTypes", "SetRowBytesForDecode", "SetDecodeThreads",
                       "SetInputOutputDataTypes"};
  EXPECT_EQ(calls.names, twice);
  EXPECT_EQ(calls.numbers[3], 2u);
  calls.names.clear();
  api->SetInputOutputDataTypesForDecode(VideoFormat::PackedARGB_64, 1920, 0);
  EXPECT_EQ(calls.names.size(), 3u);
}

TEST_F(DNxHDApi, OneThreadAndYCbCrAreNotIssuedAgainAndLeaveItForLater) {
  make(1);
  api->SetInputOutputDataTypesForDecode(VideoFormat::PackedBGRA, 1920, 0);
  EXPECT_EQ(calls.names.size(), 3u);
  calls.names.clear();
  make(2);
  calls.names.clear();
  api->SetInputOutputDataTypesForDecode(VideoFormat::Packed422UYVY, 1920, 0);
  EXPECT_EQ(calls.names.size(), 3u);
  api->SetInputOutputDataTypesForDecode(VideoFormat::PackedBGRA, 1920, 0);
  EXPECT_EQ(calls.names.size(), 7u);
}

TEST_F(DNxHDApi, AnUnknownDecodingFormatAndAbsurdWidthsAreRefused) {
  make(2);
  EXPECT_EQ(api->SetInputOutputDataTypesForDecode(VideoFormat::PackedRGB, 1920, 0),
            ZelErrorNotSupported);
  for (const int32_t width : {0, -1, 65536, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(api->SetInputOutputDataTypesForDecode(VideoFormat::Packed422UYVY, width, 0),
              ZelErrorInvalidArgument);
    EXPECT_EQ(api->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY, width, 0),
              ZelErrorInvalidArgument);
  }
  EXPECT_TRUE(calls.names.empty());
}

TEST_F(DNxHDApi, TheCountOfBytesIsStoredUnlessTheFrameFailed) {
  make(1);
  calls.encodedBytes = 606208;
  uint32_t bytes = 5;
  EXPECT_EQ(api->EncodeFrame(this, this, 1, 2, &bytes), 0);
  EXPECT_EQ(bytes, 606208u);
  EXPECT_EQ(calls.numbers.back(), 1002u);
  EXPECT_EQ(api->EncodeFrame(this, this, 0, 0, nullptr), 0);
  calls.failing = "EncodeFrame";
  calls.failure = -17;
  bytes = 5;
  EXPECT_EQ(api->EncodeFrame(this, this, 0, 0, &bytes), -17);
  EXPECT_EQ(bytes, 5u);
}

TEST_F(DNxHDApi, IdsThatDoNotFitSixteenBitsAreNoIds) {
  make(1);
  EXPECT_EQ(api->SetCompressionId(1237), 0);
  api->SetCompressionId(65536 + 1237);
  api->SetCompressionId(-1);
  EXPECT_EQ(calls.numbers, (std::vector<uint32_t>{1237, 0, 0}));
}

TEST_F(DNxHDApi, TheRestIsForwarded) {
  make(1);
  api->SetRowBytesForEncode(4096);
  EXPECT_EQ(calls.numbers.back(), 4096u);
  api->DecodeFrame(this, this, 7, 8);
  EXPECT_EQ(calls.numbers.back(), 7008u);
  api->GetCompressedBufferSize();
  EXPECT_EQ(calls.names, (Names{"SetRowBytesForEncode", "DecodeFrame", "GetCompressedBufferSize"}));
}

TEST_F(DNxHDApi, TheLastReleaseDeletesTheCodec) {
  make(1);
  api->Acquire();
  api->Release();
  EXPECT_TRUE(calls.names.empty());
  api.reset();
  EXPECT_EQ(calls.names, Names{"delete"});
}

TEST(DNxHDApiConsumers, TheFlagIsSetWhileThereIsAny) {
  ASSERT_FALSE(AvidHDCodecLibrary::IsInitialized());
  Api first(CAvidDNxHDApi::Create(1));
  EXPECT_TRUE(AvidHDCodecLibrary::IsInitialized());
  Api second(CAvidDNxHDApi::Create(1));
  first.reset();
  EXPECT_TRUE(AvidHDCodecLibrary::IsInitialized());
  second.reset();
  EXPECT_FALSE(AvidHDCodecLibrary::IsInitialized());
}

TEST(DNxHDApiConsumers, AFlagThatIsSetAlreadyIsNoHindrance) {
  ASSERT_EQ(AvidHDCodecLibrary::Initialize(), 0);
  EXPECT_EQ(AvidHDCodecLibrary::Initialize(), -8);
  Api api(CAvidDNxHDApi::Create(1));
  EXPECT_EQ(api->SetCompressionId(1237), 0);
  EXPECT_EQ(api->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY, 1920, 0), 0);
  api.reset();
  EXPECT_FALSE(AvidHDCodecLibrary::IsInitialized());
}

TEST(DNxHDApiConsumers, ComeAndGoOnManyThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int k = 0; k < 50; ++k) {
        const Api api(CAvidDNxHDApi::Create(1));
        EXPECT_TRUE(AvidHDCodecLibrary::IsInitialized());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(AvidHDCodecLibrary::IsInitialized());
}

TEST(DNxHDApiMemory, WithoutMemoryForTheObjectThereIsNone) {
  const zel::test::FailingAllocation failing;
  EXPECT_EQ(CAvidDNxHDApi::Create(1), nullptr);
}

TEST(DNxHDApiMemory, WithoutACodecObjectEveryOperationIsNotReady) {
  Api api;
  {
    const zel::test::FailingAllocation failing(1);  // the second is the codec object's
    api.reset(CAvidDNxHDApi::Create(1));
  }
  ASSERT_NE(api, nullptr);
  uint32_t bytes = 5;
  EXPECT_EQ(api->SetCompressionId(1237), -19001);
  EXPECT_EQ(api->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY, 1920, 0), -19001);
  EXPECT_EQ(api->SetInputOutputDataTypesForDecode(VideoFormat::Packed422UYVY, 1920, 0), -19001);
  EXPECT_EQ(api->SetRowBytesForEncode(16), -19001);
  EXPECT_EQ(api->EncodeFrame(&bytes, &bytes, 0, 0, &bytes), -19001);
  EXPECT_EQ(api->DecodeFrame(&bytes, &bytes, 0, 0), -19001);
  EXPECT_EQ(api->GetCompressedBufferSize(), -19001);
  EXPECT_EQ(bytes, 5u);
}

TEST(DNxHDApiIds, SetUpOfAnIdWithoutARowGivesMinus9999) {
  const Api api(CAvidDNxHDApi::Create(1));
  EXPECT_EQ(api->GetCompressedBufferSize(), 0);  // for id 0
  EXPECT_EQ(api->SetCompressionId(1233), 0);
  EXPECT_EQ(api->SetInputOutputDataTypesForEncode(VideoFormat::Packed422UYVY, 1920, 0), -9999);
}

}  // namespace
}  // namespace Morvalen::Zel
