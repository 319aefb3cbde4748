#include "tools/zel/dnxhd/codec_session.h"

#include <new>

#include <fmt/format.h>

#include "tools/zel/failure.h"

namespace zel::tool {

using namespace Morvalen::Zel;

namespace {

constexpr uint32_t kEncode = 1;
constexpr uint32_t kDecode = 2;

void check(int result, uint32_t id) {
  if (result < 0)
    throw Failure(
        fmt::format("the codec refuses to be set up for id {}: {}", id, codecResultText(result)));
}

}  // namespace

std::string codecResultText(int result) {
  const std::string text = AvidHDCodecLibrary::GetResultText(result);
  return text.empty() ? fmt::format("result {}", result) : fmt::format("{} ({})", text, result);
}

CodecSession::CodecSession() {
  AvidHDCodecLibrary::Initialize();
  sdk_ = std::make_unique<AvidHDCodecSDKImpl>();
  if (sdk_->GetCodec() == nullptr) throw std::bad_alloc();
}

CodecSession::~CodecSession() {
  sdk_.reset();
  AvidHDCodecLibrary::Terminate();
}

void CodecSession::setUpEncoder(uint32_t id, const UnCompInfo& record, int32_t threads) {
  sdk_->SetCompressionId(static_cast<uint16_t>(id));
  check(sdk_->SetInputOutputDataTypes(&record, kEncode), id);
  check(sdk_->SetEncodeThreads(threads), id);
}

void CodecSession::setUpDecoder(uint32_t id, const UnCompInfo& record, int32_t threads) {
  sdk_->SetCompressionId(static_cast<uint16_t>(id));
  check(sdk_->SetInputOutputDataTypes(&record, kDecode), id);
  check(sdk_->SetDecodeThreads(threads), id);
}

int CodecSession::encode(std::span<const uint8_t> buffer, std::span<uint8_t> frame) {
  uint32_t bytes = 0;
  return sdk_->EncodeFrame(buffer.data(), frame.data(), 0, 0, &bytes);
}

int CodecSession::decode(std::span<const uint8_t> frame, std::span<uint8_t> buffer) {
  return sdk_->DecodeFrame(frame.data(), buffer.data(), 0, 0);
}

}  // namespace zel::tool
