#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tools/zel/hevc/encoder_settings.h"
#include "tools/zel/hevc/timing_file.h"
#include "zel/encoder/x265_encoder_api.h"
#include "zel/runtime/properties.h"

namespace zel::tool {

/// What an encoder is set up with.
struct EncoderSetup {
  int32_t width = 0;
  int32_t height = 0;
  int64_t frameDuration = 0;  // ticks; a second has timeScale of them
  int64_t timeScale = 0;
  int32_t threads = 0;
  int64_t bitRate = 0;
  std::vector<EncoderProperty> properties;  // of two with one key the later counts
};

/// Where a run's output goes. Both may throw.
struct EncodedSink {
  std::function<void(std::span<const uint8_t> headers)> takeHeaders;
  std::function<void(std::span<const uint8_t> accessUnit, const AccessUnitTiming& timing)>
      takeAccessUnit;
};

/// An encoder of the library at work. The consumer interface turns into calls of the sink; what the
/// sink throws comes out of the call of this class that the library was busy with, past the library
/// and not through it.
class EncodeRun final : private Morvalen::Zel::IMorvalenEncoderConsumer {
 public:
  EncodeRun(EncoderSetup setup, EncodedSink sink);
  ~EncodeRun();
  EncodeRun(const EncodeRun&) = delete;
  EncodeRun& operator=(const EncodeRun&) = delete;

  /// Opens the encoder; the stream's headers are at hand then, and go to the sink with the first
  /// access unit, so that a refused configuration leaves nothing behind. Throws Failure, with
  /// x265's reason. What x265 warned of is in `warnings`, what else it said, because its log level
  /// asked for it, in `remarks`.
  void begin();
  const std::vector<std::string>& warnings() const { return warnings_; }
  const std::vector<std::string>& remarks() const { return remarks_; }

  /// Encodes one picture. Throws Failure when the encoder refuses it.
  void encode(std::span<const uint8_t> picture);

  /// Drains: the access units of all pictures are out when it returns.
  void drain();

  uint64_t picturesIn() const { return picturesIn_; }
  uint64_t accessUnitsOut() const { return accessUnitsOut_; }
  uint64_t independentOut() const { return independentOut_; }
  uint64_t bytesOut() const { return bytesOut_; }

 private:
  class PropertySet : public Morvalen::Zel::IProperties {};

  int GetProperty(char const* name, int32_t size, unsigned char* buffer) override;
  int WriteSample(unsigned char const* data, int32_t dependent, int32_t size,
                  int32_t compositionOffset,
                  Morvalen::Zel::CDependenciesObjectVS2012* userData) override;
  int WriteHeaders(unsigned char const* data, int32_t size) override;

  void encodeOrDrain(const unsigned char* picture);
  void deliver(std::span<const uint8_t> accessUnit, bool dependent, int32_t compositionOffset);

  EncoderSetup setup_;
  EncodedSink sink_;
  PropertySet properties_;
  Morvalen::Zel::CMorvalenX265EncoderApi* encoder_;
  std::vector<std::string> warnings_;
  std::vector<std::string> remarks_;
  std::vector<uint8_t> headers_;
  std::exception_ptr thrown_;  // by the sink, while the library was on the stack
  uint64_t picturesIn_ = 0;
  uint64_t accessUnitsOut_ = 0;
  uint64_t independentOut_ = 0;
  uint64_t bytesOut_ = 0;
};

}  // namespace zel::tool
