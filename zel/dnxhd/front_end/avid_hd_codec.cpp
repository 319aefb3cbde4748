#include "zel/dnxhd/front_end/avid_hd_codec.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "zel/base/byte_order.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/side_data.h"
#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/result_words.h"

namespace Morvalen::Zel {

namespace {

using namespace zel::dnxhd;

// Two words that every codec object gives.
constexpr uint32_t kLibraryWord1 = 1;
constexpr uint32_t kLibraryWord2 = 0;

constexpr size_t kCompressionIdAt = 40;
constexpr uint32_t kTentFilter = 3;  // the one parameter

bool Ready() {
  return AvidHDCodecLibrary::IsInitialized();
}

// A frame comes without its size: its id tells it. Of one whose id has no row the header is there.
template <typename Byte>
std::span<Byte> FrameOf(Byte* frame) {
  const VCIDEntry* entry = FindEntry(zel::base::loadBig32(frame + kCompressionIdAt));
  return {frame, entry != nullptr ? entry->frameBytes : kHeaderBytes};
}

// Packets come without a size too: they end with a byte other than the marker. A frame takes the
// first few hundred bytes of each field's.
constexpr uint8_t kMarker = 255;
constexpr size_t kPacketExtra = 7;
constexpr size_t kCountAt = 5;
constexpr size_t kMostPacketBytes = 65536;

size_t BytesOfPackets(const uint8_t* packets) {
  size_t bytes = 0;
  while (bytes < kMostPacketBytes && packets[bytes] >= kMarker) {
    bytes += packets[bytes + kCountAt] + kPacketExtra;
  }
  return bytes;
}

}  // namespace

AvidHDCodec::AvidHDCodec(std::unique_ptr<CodecContext> context) : context_(std::move(context)) {}

int AvidHDCodec::EncodeFrame(void const* input, void* output, uint32_t /*a*/, uint32_t /*b*/,
                             uint32_t* compressedBytes) {
  const ResultWord result = Ready() ? context_->EncodeFrame(input, output) : kErrorNoInitialization;
  if (compressedBytes != nullptr) {
    *compressedBytes = result == kSuccessful ? context_->EncodedBytes() : 0;
  }
  return result;
}

int AvidHDCodec::DecodeFrame(void const* compressed, void* output, uint32_t /*a*/, uint32_t b) {
  return Ready() ? context_->DecodeFrame(compressed, output, b) : kErrorNoInitialization;
}

int AvidHDCodec::Configure(UnCompInfo const* record, CompInfo const* row, uint32_t direction) {
  return context_->Configure(record, row, direction);
}

int AvidHDCodec::GetLastResult() {
  return context_->LastResult();
}

int AvidHDCodec::GetResultText(int code, char* text, uint32_t length) {
  if (text == nullptr) return kErrorLockAndGetBuffer;
  const char* const row = ResultTextOf(code);
  std::memcpy(text, row, std::min<size_t>(length, std::strlen(row) + 1));
  return kSuccessful;
}

int AvidHDCodec::SetRowBytesForDecode(uint32_t bytes) {
  if (Ready()) context_->SetDecodeRowBytes(bytes);
  return kSuccessful;
}

int AvidHDCodec::SetRowBytesForEncode(uint32_t bytes) {
  if (Ready()) context_->SetEncodeRowBytes(bytes);
  return kSuccessful;
}

int AvidHDCodec::SetFieldGapForDecode(uint32_t bytes) {
  if (Ready()) context_->SetDecodeFieldGap(bytes);
  return kSuccessful;
}

int AvidHDCodec::SetFieldGapForEncode(uint32_t bytes) {
  if (Ready()) context_->SetEncodeFieldGap(bytes);
  return kSuccessful;
}

int AvidHDCodec::SetDecodeThreads(int32_t count) {
  return Ready() ? context_->SetDecodeThreads(count) : kErrorNoInitialization;
}

int AvidHDCodec::SetEncodeThreads(int32_t count) {
  return Ready() ? context_->SetEncodeThreads(count) : kErrorNoInitialization;
}

int32_t AvidHDCodec::GetDecodeThreads() {
  return context_->DecodeThreads();
}

int32_t AvidHDCodec::GetEncodeThreads() {
  return context_->EncodeThreads();
}

uint32_t AvidHDCodec::GetLibraryInfo(uint32_t* first, uint32_t* second) {
  if (first != nullptr) *first = kLibraryWord1;
  if (second != nullptr) *second = kLibraryWord2;
  return kLibraryWord1;
}

int AvidHDCodec::GetParameter(uint32_t parameter, uint32_t* value) {
  if (parameter != kTentFilter) return kErrorInvalidParameterCode;
  if (value == nullptr) return kErrorLockAndGetBuffer;
  *value = context_->TentFilter() ? 1 : 0;
  return kSuccessful;
}

int AvidHDCodec::SetParameter(uint32_t parameter, uint32_t value) {
  if (parameter != kTentFilter) return kErrorInvalidParameterCode;
  if (value > 1) return kErrorInTentFilter;
  context_->SetTentFilter(value == 1);
  return kSuccessful;
}

int AvidHDCodec::CheckFrame(uint32_t compressionId, void const* frame) {
  VCIDEntry const* entry = FindEntry(compressionId);
  if (entry == nullptr) return kErrorIdNotInList;
  if (!Ready()) return kErrorNoInitialization;
  if (frame == nullptr) return kErrorLockAndGetBuffer;
  return zel::dnxhd::CheckFrame(compressionId,
                                {static_cast<uint8_t const*>(frame), entry->frameBytes});
}

int AvidHDCodec::InsertMetadata(void* frame, unsigned char const* packets) {
  if (!Ready()) return kErrorNoInitialization;
  if (frame == nullptr || packets == nullptr) return kErrorLockAndGetBuffer;
  return zel::dnxhd::InsertMetadata(FrameOf(static_cast<uint8_t*>(frame)),
                                    {packets, BytesOfPackets(packets)});
}

int AvidHDCodec::ExtractMetadata(void const* frame, unsigned char* packets) {
  if (!Ready()) return kErrorNoInitialization;
  if (frame == nullptr || packets == nullptr) return kErrorLockAndGetBuffer;
  return zel::dnxhd::ExtractMetadata(FrameOf(static_cast<uint8_t const*>(frame)),
                                     std::span<uint8_t, kExtractedBytes>(packets, kExtractedBytes));
}

}  // namespace Morvalen::Zel
