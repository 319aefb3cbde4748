#include "zel/dnxhd/front_end/avid_hd_codec_sdk.h"

#include <algorithm>
#include <array>

#include "zel/dnxhd/front_end/avid_codec_interface.h"
#include "zel/dnxhd/front_end/comp_info.h"
#include "zel/dnxhd/front_end/uncomp_info.h"
#include "zel/dnxhd/result_words.h"

namespace Morvalen::Zel {

namespace {

using namespace zel::dnxhd;

constexpr int32_t kMostDecodeThreads = 16;
constexpr int32_t kMostEncodeThreads = 8;
constexpr uint32_t kNoLimit = 2147483647;

struct BufferSize {
  uint16_t id;
  int32_t bytes;
};

// Deliberate: 1254 and 1257 have no row, though frames of theirs have a size. Pinned by
// avid_hd_codec_sdk_test.cpp, BufferSizeIsAFixedListWithTwoZeros.
constexpr std::array<BufferSize, 15> kBufferSizes = {{{1235, 917504},
                                                      {1238, 917504},
                                                      {1241, 917504},
                                                      {1243, 917504},
                                                      {1237, 606208},
                                                      {1242, 606208},
                                                      {1244, 606208},
                                                      {1250, 458752},
                                                      {1251, 458752},
                                                      {1252, 303104},
                                                      {1253, 188416},
                                                      {1256, 1835008},
                                                      {1258, 212992},
                                                      {1259, 417792},
                                                      {1260, 417792}}};

bool Flag(uint32_t word) {
  return (word & 0xFF) != 0;
}

UnCompInfo Normalised(UnCompInfo record) {
  record.rgbOutput = Flag(record.rgbOutput) ? 1 : 0;
  record.maxCoded = Flag(record.maxCoded) ? 1 : kNoLimit;
  return record;
}

bool Fits(UnCompInfo const& record, CompInfo const& row) {
  if (row.componentWord != 2) return row.componentWord == 8 || row.componentWord == 4;
  return record.pixelLayout == 2 && (record.formatWord == 4 || record.formatWord == 8) &&
         record.componentCount == 4;
}

}  // namespace

AvidHDCodecSDKImpl::AvidHDCodecSDKImpl() : AvidHDCodecSDKImpl(AvidHDCodecLibrary::CreateCodec()) {}

AvidHDCodecSDKImpl::AvidHDCodecSDKImpl(IAvidCodecInterface* own) : compressionId(0), codec(own) {}

AvidHDCodecSDKImpl::~AvidHDCodecSDKImpl() {
  delete codec;
}

void AvidHDCodecSDKImpl::GetVersion(uint32_t* major, uint32_t* minor, uint32_t* fix,
                                    uint32_t* build, uint32_t* bits, char* letter) {
  if (major == nullptr || minor == nullptr || fix == nullptr || build == nullptr ||
      bits == nullptr || letter == nullptr) {
    return;
  }
  *major = 1;
  *minor = 4;
  *fix = 2;
  *build = 0;
  *bits = 64;
  *letter = 'b';
}

int32_t AvidHDCodecSDKImpl::GetCompressedBufferSize() {
  for (const BufferSize& row : kBufferSizes) {
    if (row.id == compressionId) return row.bytes;
  }
  return 0;
}

int AvidHDCodecSDKImpl::SetCompressionId(uint16_t id) {
  compressionId = id;
  return kSuccessful;
}

int AvidHDCodecSDKImpl::SetInputOutputDataTypes(UnCompInfo const* record, uint32_t direction) {
  if (record == nullptr) return kErrorLockAndGetBuffer;
  CompInfo const* row = FindCompInfo(compressionId);
  if (row == nullptr) return kErrorIdNotInCompInfo;
  const UnCompInfo copy = Normalised(*record);
  if (!Fits(copy, *row)) return kErrorUnCompInfoDoesNotFit;
  return codec == nullptr ? kErrorNoInitialization : codec->Configure(&copy, row, direction);
}

int AvidHDCodecSDKImpl::EncodeFrame(void const* input, void* output, uint32_t a, uint32_t b,
                                    uint32_t* compressedBytes) {
  if (codec == nullptr) return kErrorNoInitialization;
  return codec->EncodeFrame(input, output, a, b, compressedBytes);
}

int AvidHDCodecSDKImpl::DecodeFrame(void const* compressed, void* output, uint32_t a, uint32_t b) {
  return codec == nullptr ? kErrorNoInitialization : codec->DecodeFrame(compressed, output, a, b);
}

int AvidHDCodecSDKImpl::GetLastResult() {
  return codec == nullptr ? kErrorNoInitialization : codec->GetLastResult();
}

int AvidHDCodecSDKImpl::GetResultText(int code, char* text, uint32_t length) {
  return codec == nullptr ? kErrorNoInitialization : codec->GetResultText(code, text, length);
}

int AvidHDCodecSDKImpl::SetRowBytesForDecode(uint32_t bytes) {
  return codec == nullptr ? kErrorNoInitialization : codec->SetRowBytesForDecode(bytes);
}

int AvidHDCodecSDKImpl::SetRowBytesForEncode(uint32_t bytes) {
  return codec == nullptr ? kErrorNoInitialization : codec->SetRowBytesForEncode(bytes);
}

int AvidHDCodecSDKImpl::SetFieldGapForDecode(uint32_t bytes) {
  return codec == nullptr ? kErrorNoInitialization : codec->SetFieldGapForDecode(bytes);
}

int AvidHDCodecSDKImpl::SetFieldGapForEncode(uint32_t bytes) {
  return codec == nullptr ? kErrorNoInitialization : codec->SetFieldGapForEncode(bytes);
}

int AvidHDCodecSDKImpl::SetDecodeThreads(int32_t count) {
  if (codec == nullptr) return kErrorNoInitialization;
  return codec->SetDecodeThreads(std::min(count, kMostDecodeThreads));
}

int AvidHDCodecSDKImpl::SetEncodeThreads(int32_t count) {
  if (codec == nullptr) return kErrorNoInitialization;
  return codec->SetEncodeThreads(std::min(count, kMostEncodeThreads));
}

int32_t AvidHDCodecSDKImpl::GetDecodeThreads() {
  return codec == nullptr ? 0 : codec->GetDecodeThreads();
}

int32_t AvidHDCodecSDKImpl::GetEncodeThreads() {
  return codec == nullptr ? 0 : codec->GetEncodeThreads();
}

}  // namespace Morvalen::Zel
