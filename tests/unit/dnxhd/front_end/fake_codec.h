#pragma once

#include <string>
#include <vector>

#include "zel/dnxhd/front_end/avid_codec_interface.h"
#include "zel/dnxhd/front_end/avid_hd_codec_sdk.h"
#include "zel/dnxhd/front_end/comp_info.h"
#include "zel/dnxhd/front_end/uncomp_info.h"

namespace Morvalen::Zel {

/// What fakes were asked, in the order of the calls. Outlives them.
struct Calls {
  std::vector<std::string> names;
  std::vector<UnCompInfo> records;
  std::vector<uint32_t> numbers;  // the last number of each call
  uint32_t rowId = 0;
  int result = 0;       // of every call but those named:
  std::string failing;  // this one,
  int failure = -1;     // which gives this
  uint32_t encodedBytes = 0;

  int Note(std::string name, uint32_t number = 0) {
    names.push_back(name);
    numbers.push_back(number);
    return name == failing ? failure : result;
  }
};

/// A codec object that only notes what it is asked.
class FakeCodec : public IAvidCodecInterface {
 public:
  explicit FakeCodec(Calls& calls) : calls_(calls) {}
  ~FakeCodec() override { calls_.Note("delete"); }
  int EncodeFrame(void const*, void*, uint32_t a, uint32_t b, uint32_t* bytes) override {
    *bytes = calls_.encodedBytes;
    return calls_.Note("EncodeFrame", a * 1000 + b);
  }
  int DecodeFrame(void const*, void*, uint32_t a, uint32_t b) override {
    return calls_.Note("DecodeFrame", a * 1000 + b);
  }
  int Configure(UnCompInfo const* record, CompInfo const* row, uint32_t direction) override {
    calls_.records.push_back(*record);
    calls_.rowId = row->compressionId;
    return calls_.Note("Configure", direction);
  }
  int GetLastResult() override { return calls_.Note("GetLastResult"); }
  int GetResultText(int code, char*, uint32_t length) override {
    return calls_.Note("GetResultText", static_cast<uint32_t>(-code) * 1000 + length);
  }
  int SetRowBytesForDecode(uint32_t n) override { return calls_.Note("SetRowBytesForDecode", n); }
  int SetRowBytesForEncode(uint32_t n) override { return calls_.Note("SetRowBytesForEncode", n); }
  int SetFieldGapForDecode(uint32_t n) override { return calls_.Note("SetFieldGapForDecode", n); }
  int SetFieldGapForEncode(uint32_t n) override { return calls_.Note("SetFieldGapForEncode", n); }
  int SetDecodeThreads(int32_t n) override {
    return calls_.Note("SetDecodeThreads", static_cast<uint32_t>(n));
  }
  int SetEncodeThreads(int32_t n) override {
    return calls_.Note("SetEncodeThreads", static_cast<uint32_t>(n));
  }
  int32_t GetDecodeThreads() override { return calls_.Note("GetDecodeThreads"); }
  int32_t GetEncodeThreads() override { return calls_.Note("GetEncodeThreads"); }
  uint32_t GetLibraryInfo(uint32_t*, uint32_t*) override { return 0; }
  int GetParameter(uint32_t, uint32_t*) override { return 0; }
  int SetParameter(uint32_t, uint32_t) override { return 0; }
  int CheckFrame(uint32_t, void const*) override { return 0; }
  int InsertMetadata(void*, unsigned char const*) override { return 0; }
  int ExtractMetadata(void const*, unsigned char*) override { return 0; }

 private:
  Calls& calls_;
};

/// The same one floor up.
class FakeSdk : public AvidHDCodecSDK {
 public:
  explicit FakeSdk(Calls& calls) : calls_(calls) {}
  ~FakeSdk() override { calls_.Note("delete"); }
  void GetVersion(uint32_t*, uint32_t*, uint32_t*, uint32_t*, uint32_t*, char*) override {}
  int32_t GetCompressedBufferSize() override { return calls_.Note("GetCompressedBufferSize"); }
  int EncodeFrame(void const*, void*, uint32_t a, uint32_t b, uint32_t* bytes) override {
    *bytes = calls_.encodedBytes;
    return calls_.Note("EncodeFrame", a * 1000 + b);
  }
  int DecodeFrame(void const*, void*, uint32_t a, uint32_t b) override {
    return calls_.Note("DecodeFrame", a * 1000 + b);
  }
  int SetCompressionId(uint16_t id) override { return calls_.Note("SetCompressionId", id); }
  int SetInputOutputDataTypes(UnCompInfo const* record, uint32_t direction) override {
    calls_.records.push_back(*record);
    return calls_.Note("SetInputOutputDataTypes", direction);
  }
  int GetLastResult() override { return calls_.Note("GetLastResult"); }
  int GetResultText(int, char*, uint32_t) override { return calls_.Note("GetResultText"); }
  int SetRowBytesForDecode(uint32_t n) override { return calls_.Note("SetRowBytesForDecode", n); }
  int SetRowBytesForEncode(uint32_t n) override { return calls_.Note("SetRowBytesForEncode", n); }
  int SetFieldGapForDecode(uint32_t n) override { return calls_.Note("SetFieldGapForDecode", n); }
  int SetFieldGapForEncode(uint32_t n) override { return calls_.Note("SetFieldGapForEncode", n); }
  int SetDecodeThreads(int32_t n) override {
    return calls_.Note("SetDecodeThreads", static_cast<uint32_t>(n));
  }
  int SetEncodeThreads(int32_t n) override {
    return calls_.Note("SetEncodeThreads", static_cast<uint32_t>(n));
  }
  int32_t GetDecodeThreads() override { return calls_.Note("GetDecodeThreads"); }
  int32_t GetEncodeThreads() override { return calls_.Note("GetEncodeThreads"); }

 private:
  Calls& calls_;
};

}  // namespace Morvalen::Zel
