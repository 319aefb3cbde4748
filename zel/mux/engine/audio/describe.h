#pragma once

#include <cstdint>

#include "zel/mux/engine/stream/audio_state.h"

namespace zel::mux {

/// stream_type of ISO/IEC 13818-1 table 2-34 by kind. `dvb` makes the AC-3 family private data.
uint8_t audio_stream_type(const audio_characteristics& audio, bool dvb);

/// PES stream_id: 189 (private_stream_1) for the AC-3 family and DTS, else 192.
uint8_t audio_pes_id(const audio_characteristics& audio);

/// Completes the stream's line in the PMT and its PES id where they are 0, after discover_audio and
/// before the first scan_audio. The descriptors of the configuration have to stand in `pmt`
/// already: automatic ones come behind, unless they are there. `mask` has a bit a codec: 0 AC-3,
/// 1 E-AC-3, 2 DTS.
void describe_audio(audio_state& state, int32_t mask, bool legacyDts);

}  // namespace zel::mux
