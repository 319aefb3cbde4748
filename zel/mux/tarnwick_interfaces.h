#pragma once

#include <cstdint>

namespace Morvalen::Zel {

class CByteArray;

/// Implemented by the caller of a multiplexer: the bytes of one elementary stream, or of the
/// channel pairs of one SMPTE 302M stream. All calls come on the thread that multiplexes. It has to
/// outlive the multiplexer's run.
class ITarnwickProvider {
 public:
  // The order of the virtual operations is part of the interface.

  /// Delivers up to `maximum` bytes of the stream, or of channel pair `index`. May block.
  /// @return how many were delivered; fewer than asked is normal, 0 is the end of the stream.
  virtual int32_t ReadData(unsigned char* destination, int32_t maximum, int32_t index) = 0;

  /// Asked once for each video stream.
  /// @param rate the rate that the caller of the multiplexer gave, bits a second.
  /// @param measured what the provider knows better; used only if there is no rate otherwise.
  virtual int GetBitRate(int32_t rate, int32_t& measured) = 0;

  /// Hands out an array, with a reference for the caller, whose bytes are one language descriptor
  /// (ISO/IEC 13818-1, 2.6.18). @return negative if there is none.
  virtual int GetLanguageDescriptor(CByteArray*& descriptor) = 0;

  /// The same for an AC-3 descriptor (ETSI EN 300 468, Annex D).
  virtual int GetDvbAc3Descriptor(CByteArray*& descriptor) = 0;

 protected:
  ~ITarnwickProvider() = default;
};

/// Implemented by the caller of a multiplexer: takes its output. Called on the thread that
/// multiplexes. It has to outlive the multiplexer.
class ITarnwickConsumer {
 public:
  // The order of the virtual operations is part of the interface.

  /// Takes a piece of the transport stream, valid until the call returns. The size stands twice.
  /// @return negative on failure, which ends the run.
  virtual int WriteData(int32_t size, unsigned char const* buffer, int32_t bufferSize) = 0;

  /// Told of what is wrong with a configuration file: severity 1 is an error, 0 a warning.
  virtual void OnConfigurationMessage(int32_t severity, int32_t code, char const* text) = 0;

 protected:
  ~ITarnwickConsumer() = default;
};

/// From an input of the engine to its provider.
struct TarnStreamInfo {
  ITarnwickProvider* provider = nullptr;
  int32_t index = 0;  ///< channel pair of an SMPTE 302M stream, else 0
};

}  // namespace Morvalen::Zel
