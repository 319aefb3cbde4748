#pragma once

#include <cstdint>

#include "zel/mux/engine/stream/audio_state.h"

namespace zel::mux {

/// What may be filled of an audio decoder's buffer, in bytes.
struct audio_buffer_limit {
  int64_t limit = 0;
  bool frameTooLarge = false;  // a frame that the standard decoder can't hold: fatal 60
};

/// The limit by kind and chosen buffer model: ISO/IEC 13818-1, 2.4.2.7 and 2.7.9, ATSC A/52 and
/// A/53, ETSI TS 101 154. `DBsize` goes before all.
audio_buffer_limit find_audio_buffer_limit(const audio_characteristics& audio,
                                           const Morvalen::Zel::tsm_audio& config);

/// The time that a frame lasts, in 27 MHz ticks; 0 where the rate is 0. Fractions count: at 44.1
/// kHz no frame is a whole number of ticks.
constexpr double audio_frame_period(double samples, double sampleRate) {
  return sampleRate > 0 ? samples * 2.7e7 / sampleRate : 0;
}

}  // namespace zel::mux
