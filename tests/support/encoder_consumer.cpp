#include "tests/support/encoder_consumer.h"

#include <cstring>

#include "zel/runtime/result_codes.h"

namespace zel::test {

using Morvalen::Zel::CDependenciesObjectVS2012;
using Morvalen::Zel::CMorvalenX265EncoderApi;

namespace {

template <typename T>
std::vector<uint8_t> bytesOf(T value) {
  std::vector<uint8_t> bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

}  // namespace

void EncoderConsumer::setNumber(char const* name, int32_t value) {
  values_[name] = bytesOf(value);
}
void EncoderConsumer::setReal(char const* name, double value) {
  values_[name] = bytesOf(value);
}

void EncoderConsumer::setText(char const* name, std::string const& value) {
  values_[name] = std::vector<uint8_t>(value.begin(), value.end());
}

int EncoderConsumer::GetProperty(char const* name, int32_t size, unsigned char* buffer) {
  reads.emplace_back(name, size);
  if (auto const result = results_.find(name); result != results_.end()) return result->second;
  auto const found = values_.find(name);
  if (found == values_.end()) return 0;
  std::vector<uint8_t> const& value = found->second;
  if (int32_t(value.size()) > size) return Morvalen::Zel::ZelErrorInvalidArgument;
  if (!value.empty()) std::memcpy(buffer, value.data(), value.size());
  return int(value.size());
}

int EncoderConsumer::WriteSample(unsigned char const* data, int32_t dependent, int32_t size,
                                 int32_t compositionOffset, CDependenciesObjectVS2012* userData) {
  auto const* const timed = static_cast<CMorvalenX265EncoderApi::CHevcUserData const*>(userData);
  samples.push_back({std::vector<uint8_t>(data, data + size), dependent, compositionOffset,
                     timed->pts, timed->duration, timed->object});
  return 0;
}

int EncoderConsumer::WriteHeaders(unsigned char const* data, int32_t size) {
  headers.emplace_back(data, data + size);
  return 0;
}

std::vector<uint8_t> EncoderConsumer::stream() const {
  std::vector<uint8_t> bytes;
  for (auto const& header : headers) bytes.insert(bytes.end(), header.begin(), header.end());
  for (Sample const& sample : samples) {
    bytes.insert(bytes.end(), sample.data.begin(), sample.data.end());
  }
  return bytes;
}

}  // namespace zel::test
