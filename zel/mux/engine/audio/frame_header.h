#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/mux/engine/stream/audio_state.h"
#include "zel/syntax/latm.h"

/// One frame's header of any kind of audio, brought to what the analyser asks: how long, how many
/// bytes, and whether it belongs to the frame before.

namespace zel::mux {

/// The bytes that every header lies within, but for LATM, whose configuration wants the frame.
inline constexpr int32_t kAudioHeaderBytes = 192;

struct audio_frame_header {
  audio_kind kind = audio_kind::unknown;
  int32_t layer = 0;  // header code, of kind mpeg
  bool eac3 = false;
  bool joins = false;      // a substream of the frame before
  bool extension = false;  // DTS extension substream
  // Which row of the buffer limits it takes: 2 for lossless coding, and where sizes are of the wide
  // form, which nothing else needs; else 1.
  int32_t extensionKind = 0;
  int32_t size = 0;    // bytes
  double samples = 0;  // at sampleRate; 0: none of its own
  int32_t sampleRate = 0;
  int32_t sampleRateCode = 0;
  int32_t frameSizeCode = 0;
  int32_t channels = 0;
  uint16_t channelMap = 0;   // E-AC-3: of chanmap's bits
  bool independent = false;  // E-AC-3, of those that join: another programme
  double bitRate = 0;        // as the header tells or the size gives
  bool needsConfig = false;  // LATM: the configuration has to be read from the frame
};

/// Reads the header at the start of `bytes`; `kind` unknown takes any. False where there is none,
/// or one whose frame has no size (free format).
bool read_audio_header(std::span<const uint8_t> bytes, audio_kind kind, audio_frame_header& header);

/// The first byte of a sync word that doesn't match: its index, or -1 where all match.
int unmatched_sync_byte(std::span<const uint8_t> bytes, audio_kind kind);

}  // namespace zel::mux
