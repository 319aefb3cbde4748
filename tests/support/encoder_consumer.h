#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "zel/encoder/x265_encoder_api.h"

namespace zel::test {

/// An encoder's consumer that answers from a map and keeps all that it is given.
class EncoderConsumer final : public Morvalen::Zel::IMorvalenEncoderConsumer {
 public:
  struct Sample {
    std::vector<uint8_t> data;
    int32_t dependent;
    int32_t compositionOffset;
    int64_t pts;
    int64_t duration;
    Morvalen::Zel::CDependenciesObjectVS2012* object;  // not acquired: only to be compared
  };

  void setSwitch(char const* name, bool value) { values_[name] = {uint8_t(value)}; }
  void setNumber(char const* name, int32_t value);
  void setReal(char const* name, double value);
  void setText(char const* name, std::string const& value);
  void setBytes(char const* name, std::vector<uint8_t> value) { values_[name] = std::move(value); }
  /// Makes reads of a key return `result` and write nothing.
  void setResult(char const* name, int result) { results_[name] = result; }
  void clear(char const* name) { values_.erase(name); }

  int GetProperty(char const* name, int32_t size, unsigned char* buffer) override;
  int WriteSample(unsigned char const* data, int32_t dependent, int32_t size,
                  int32_t compositionOffset,
                  Morvalen::Zel::CDependenciesObjectVS2012* userData) override;
  int WriteHeaders(unsigned char const* data, int32_t size) override;

  /// Every read so far: name and size, in order.
  std::vector<std::pair<std::string, int32_t>> reads;
  std::vector<std::vector<uint8_t>> headers;
  std::vector<Sample> samples;

  /// The headers, then all access units.
  std::vector<uint8_t> stream() const;

 private:
  std::map<std::string, std::vector<uint8_t>> values_;
  std::map<std::string, int> results_;
};

}  // namespace zel::test
