#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The frame header of MPEG audio, layers I to III: ISO/IEC 11172-3, 2.4.1.3, with the low sampling
/// frequencies of ISO/IEC 13818-3 and their halves ("MPEG-2.5"), which share its layout.

namespace zel::syntax {

inline constexpr size_t kMpegAudioHeaderSize = 4;

enum class MpegAudioVersion : uint8_t { kMpeg1, kMpeg2, kMpeg25 };

struct MpegAudioHeader {
  MpegAudioVersion version = MpegAudioVersion::kMpeg1;
  uint8_t layer = 0;  // 1 to 3: the layer itself, not its code
  bool hasCrc = false;
  uint8_t bitRateIndex = 0;  // 0 is free format
  uint8_t sampleRateIndex = 0;
  bool padding = false;
  uint8_t mode = 0;  // 3 is a single channel
  uint8_t modeExtension = 0;
  uint8_t emphasis = 0;
  // Derived.
  uint32_t bitRate = 0;  // bits per second; 0 in free format
  uint32_t sampleRate = 0;
  uint32_t samples = 0;    // per channel and frame
  uint32_t frameSize = 0;  // bytes with the header; 0 in free format
  uint8_t channels = 0;
};

/// False where there are fewer than four bytes, no sync word, or a field has a reserved value.
bool parseMpegAudioHeader(std::span<const uint8_t> bytes, MpegAudioHeader& header);

}  // namespace zel::syntax
