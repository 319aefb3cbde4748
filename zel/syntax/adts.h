#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The frame header of AAC in ADTS: ISO/IEC 13818-7, 6.2 and ISO/IEC 14496-3, 1.A.2.

namespace zel::syntax {

inline constexpr size_t kAdtsHeaderSize = 7;

struct AdtsHeader {
  bool mpeg2 = false;      // the ID bit
  bool hasCrc = false;     // two more bytes behind the header
  uint8_t objectType = 0;  // audio object type: profile_ObjectType + 1
  uint8_t sampleRateIndex = 0;
  uint8_t channelConfiguration = 0;  // 0: a program config element tells
  uint16_t frameSize = 0;            // bytes with the header
  uint16_t bufferFullness = 0;       // 0x7FF: variable rate
  uint8_t rawBlocks = 1;             // of 1,024 samples each
  // Derived.
  uint32_t sampleRate = 0;
  uint32_t samples = 0;
};

/// The rate of a samplingFrequencyIndex, ISO/IEC 14496-3 table 1.18; 0 where it is reserved or the
/// rate stands in the stream.
uint32_t aacSampleRate(uint32_t index);

/// The channels of a channelConfiguration, ISO/IEC 14496-3 table 1.19; 0 where it doesn't say.
uint8_t aacChannels(uint32_t configuration);

/// False where there are fewer than seven bytes, no sync word, a reserved rate, or a frame that is
/// shorter than its header.
bool parseAdtsHeader(std::span<const uint8_t> bytes, AdtsHeader& header);

}  // namespace zel::syntax
