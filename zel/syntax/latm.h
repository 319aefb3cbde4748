#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// MPEG-4 audio in LATM with LOAS framing: ISO/IEC 14496-3, 1.7 (AudioSyncStream, StreamMuxConfig)
/// and 1.6.2 (AudioSpecificConfig).

namespace zel::syntax {

inline constexpr size_t kLoasHeaderSize = 3;

/// Bytes of the whole LOAS frame, its three of header included; 0 where there are fewer than three
/// bytes or no sync word (0x56, then three set bits).
uint32_t loasFrameSize(std::span<const uint8_t> bytes);

/// What the first program's first layer says of itself.
struct LatmConfig {
  uint8_t audioObjectType = 0;  // of the core: 2 (LC) for HE-AAC that signals itself
  bool sbr = false;
  bool ps = false;
  uint32_t sampleRate = 0;           // of the core
  uint32_t extensionSampleRate = 0;  // of SBR, 0 without
  uint8_t channelConfiguration = 0;
  uint8_t channels = 0;  // of the configuration, or of the program config element of one that is 0
  uint32_t samplesPerFrame = 0;  // of the core
  uint8_t subFrames = 1;
};

enum class LatmResult : uint8_t {
  kConfig,      // the frame has a StreamMuxConfig: `config` is new
  kSameConfig,  // useSameStreamMux: `config` is untouched
  kError,       // reserved, or broken off
};

/// Reads the AudioMuxElement of one LOAS frame (the sync word first) up to the end of what
/// LatmConfig holds; the payload isn't looked at.
LatmResult parseLatmFrame(std::span<const uint8_t> frame, LatmConfig& config);

}  // namespace zel::syntax
