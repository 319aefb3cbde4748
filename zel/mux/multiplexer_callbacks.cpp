#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "zel/mux/circular_buffer_loading.h"
#include "zel/mux/message_values.h"
#include "zel/mux/multiplexer_api.h"
#include "zel/mux/multiplexer_texts.h"

namespace Morvalen::Zel {
namespace {

constexpr size_t kMessageSize = 1024;

std::string_view ViewOf(CString const* text) {
  return text != nullptr && text->GetChars() != nullptr ? std::string_view(text->GetChars())
                                                        : std::string_view();
}

template <class T>
bool Take(std::optional<T> found, T& value) {
  if (found) value = *found;
  return found.has_value();
}

int32_t ExtraRate(int32_t bytes, double time) {
  double const extra = std::floor(bytes * 8.0 / time + 0.5);
  // At the very start of a stream no rate would be enough.
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  return time > 0 && extra < kMost ? int32_t(extra) : kMost;
}

}  // namespace

bool CTarnwickMultiplexerApi::GetInt32Value(CString const* text, char const* label,
                                            int32_t& value) const {
  return Take(IntegerBehind(ViewOf(text), label), value);
}
bool CTarnwickMultiplexerApi::GetHexValue(CString const* text, char const* label,
                                          int32_t& value) const {
  return Take(HexadecimalBehind(ViewOf(text), label), value);
}
bool CTarnwickMultiplexerApi::GetDoubleValue(CString const* text, char const* label,
                                             double& value) const {
  return Take(DecimalBehind(ViewOf(text), label), value);
}

int CTarnwickMultiplexerApi::ProgressHandler(void* object, tsm_stats const* stats) {
  auto const* self = static_cast<CTarnwickMultiplexerApi const*>(object);
  if (self->abort) return -1;
  return self->errorThreshold >= 1 && stats->warnings + stats->errors > self->errorThreshold ? -1
                                                                                             : 0;
}

// In a two-pass run: how much more rate would have saved the picture.
void CTarnwickMultiplexerApi::NoteTwoPassMessage() {
  needsAnotherPass = true;
  CString const* const text = lastMessage;
  int32_t packet = 0;
  int32_t pid = 0;
  double time = 0;
  int32_t bytes = 0;
  if (!GetInt32Value(text, "Warning: packet = ", packet) || !GetHexValue(text, "PID = ", pid) ||
      !GetDoubleValue(text, "time = ", time) || !GetInt32Value(text, "underflow by ", bytes))
    return;
  int32_t const extra = ExtraRate(bytes, time);
  if (extra <= extraVideoRate) return;
  extraVideoRate = extra;
  if (int64_t{extra} + firstVideoRate < muxRate) return;
  SetText(errorMessage, kTwoPassFailed);
  abort = true;
}

void CTarnwickMultiplexerApi::ErrorHandler(void* object, int fatal, int32_t code,
                                           char const* text) {
  auto* self = static_cast<CTarnwickMultiplexerApi*>(object);
  if (self->abort) return;
  char message[kMessageSize];
  std::snprintf(message, sizeof message, "%s", text != nullptr ? text : "");
  self->SetText(self->lastMessage, message);
  if (fatal != 0) {
    self->lastErrorCode = code;
    self->SetText(self->errorMessage, message);
    return;
  }
  if (self->config == nullptr || self->lastMessage == nullptr) return;
  if (!self->lastMessage->ContainsIgnoreCase("overflow") &&
      !self->lastMessage->ContainsIgnoreCase("underflow"))
    return;
  if (self->enable2Pass) return self->NoteTwoPassMessage();
  if (!self->config->stopOnError) return;

  char advised[2 * kMessageSize + sizeof kIncreaseRate];
  char const* const word = std::strstr(message, "Warning");
  int const before = word != nullptr ? int(word - message) : 0;
  std::snprintf(advised, sizeof advised, "%.*s%s%s%s", before, message,
                word != nullptr ? "Error" : "",
                word != nullptr ? word + std::strlen("Warning") : message, kIncreaseRate);
  self->SetText(self->errorMessage, advised);
  self->abort = true;
}

void CTarnwickMultiplexerApi::ConfigurationErrorHandler(void* consumer, int severity, int code,
                                                        char const* text, int /*reserved*/) {
  static_cast<ITarnwickConsumer*>(consumer)->OnConfigurationMessage(severity, code, text);
}

int CTarnwickMultiplexerApi::WriteBytes(void* consumer, uint8_t const* data, int32_t size,
                                        int32_t /*packetKind*/) {
  return static_cast<ITarnwickConsumer*>(consumer)->WriteData(size, data, size) < 0 ? 1 : 0;
}

int CTarnwickMultiplexerApi::LoadCircularBuffer(void* streamInfo, cbuf* buffer) {
  return LoadFromProvider(*static_cast<TarnStreamInfo const*>(streamInfo), *buffer);
}

}  // namespace Morvalen::Zel
