#include "tools/zel/hevc/encode_run.h"

#include <new>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/hevc/access_unit.h"
#include "tools/zel/hevc/engine_log.h"
#include "zel/runtime/result_codes.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

std::string resultText(int result) {
  switch (result) {
    case ZelErrorInvalidArgument:
      return "a setting is out of range";
    case ZelErrorNotSupported:
      return "x265 can't do these settings";
    case ZelErrorOutOfMemory:
      return "out of memory";
    default:
      return fmt::format("result {}", result);
  }
}

// Presets ask for ways to work in parallel that small pictures have no room for. x265 warns of it;
// nobody asked for it, and nothing is lost.
bool isNoise(const EngineMessage& message) {
  for (const char* way : {"lookahead-slices", "--wpp disabled"})
    if (message.text.find(way) != std::string::npos) return true;
  return false;
}

// x265 may say several things; the last error is the one that it gave up for.
std::string refusal(int result, const std::vector<EngineMessage>& messages) {
  std::string why = resultText(result);
  for (const EngineMessage& message : messages)
    if (message.level == EngineMessage::Level::kError) why = message.text;
  return "the encoder refuses these settings: " + why;
}

}  // namespace

EncodeRun::EncodeRun(EncoderSetup setup, EncodedSink sink)
    : setup_(std::move(setup)),
      sink_(std::move(sink)),
      encoder_(CMorvalenX265EncoderApi::Create(this)) {
  if (encoder_ == nullptr) throw std::bad_alloc();
  for (const EncoderProperty& each : setup_.properties)
    properties_.SetProperty(each.key.c_str(), static_cast<int32_t>(each.value.size()),
                            each.value.data());
}

EncodeRun::~EncodeRun() {
  encoder_->Release();
}

void EncodeRun::begin() {
  EngineLog log;
  const int result = encoder_->Begin(setup_.width, setup_.height, setup_.frameDuration,
                                     setup_.timeScale, setup_.threads, setup_.bitRate);
  std::vector<EngineMessage> messages;
  for (const std::string& line : log.finish()) messages.push_back(parseEngineLine(line));
  if (thrown_) std::rethrow_exception(thrown_);
  if (result < 0) throw Failure(refusal(result, messages));
  for (EngineMessage& message : messages) {
    if (isNoise(message)) continue;
    auto& kept = message.level == EngineMessage::Level::kOther ? remarks_ : warnings_;
    kept.push_back(std::move(message.text));
  }
}

void EncodeRun::encode(std::span<const uint8_t> picture) {
  ++picturesIn_;
  encodeOrDrain(picture.data());
}

void EncodeRun::drain() {
  while (accessUnitsOut_ < picturesIn_) {
    const uint64_t before = accessUnitsOut_;
    encodeOrDrain(nullptr);
    if (accessUnitsOut_ == before)
      throw Failure(fmt::format("the encoder gave back {} of {} frames", before, picturesIn_));
  }
}

void EncodeRun::encodeOrDrain(const unsigned char* picture) {
  const int result = encoder_->Encode(picture, nullptr);
  if (thrown_) std::rethrow_exception(thrown_);
  if (result < 0)
    throw Failure(
        fmt::format("the encoder failed with frame {} ({})", picturesIn_, resultText(result)));
}

int EncodeRun::GetProperty(char const* name, int32_t size, unsigned char* buffer) {
  return properties_.IProperties::GetProperty(name, size, buffer);
}

int EncodeRun::WriteHeaders(unsigned char const* data, int32_t size) {
  try {
    headers_.assign(data, data + size);
    return 0;
  } catch (...) {
    thrown_ = std::current_exception();
    return ZelErrorFailed;
  }
}

int EncodeRun::WriteSample(unsigned char const* data, int32_t dependent, int32_t size,
                           int32_t compositionOffset, CDependenciesObjectVS2012*) {
  if (thrown_) return ZelErrorFailed;
  try {
    deliver({data, static_cast<size_t>(size)}, dependent != 0, compositionOffset);
    return 0;
  } catch (...) {
    thrown_ = std::current_exception();
    return ZelErrorFailed;
  }
}

void EncodeRun::deliver(std::span<const uint8_t> accessUnit, bool dependent,
                        int32_t compositionOffset) {
  if (accessUnitsOut_ == 0) {
    sink_.takeHeaders(headers_);
    bytesOut_ += headers_.size();
  }
  const AccessUnitKind kind = accessUnitKind(accessUnit, dependent);
  const int64_t decodeTime = static_cast<int64_t>(accessUnitsOut_) * setup_.frameDuration;
  sink_.takeAccessUnit(accessUnit,
                       {accessUnitsOut_, decodeTime, decodeTime + compositionOffset,
                        static_cast<int64_t>(accessUnit.size()), kind.type, kind.nalType});
  ++accessUnitsOut_;
  if (!dependent) ++independentOut_;
  bytesOut_ += accessUnit.size();
}

}  // namespace zel::tool
