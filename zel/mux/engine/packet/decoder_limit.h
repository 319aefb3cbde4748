#pragma once

#include <cstdint>

#include "zel/mux/engine/stream/audio_state.h"

/// How many bytes of the decoder's buffer a stream may fill.

namespace zel::mux {

/// Below this nothing could be sent: a packet needs room for its payload twice over.
inline constexpr int64_t kLeastLimit = 2 * 188;

/// `vbvSize` in units of 2,048 bytes, `rate` of the stream's packets; `dbSize` overrides if not 0.
int64_t video_decoder_limit(int32_t dbSize, int32_t vbvSize, double rate);

/// The buffer models that an audio stream can be told to keep to.
struct audio_buffer_choice {
  int32_t dbSize = 0;
  bool blurayDisc = false;  // BDbuf
  bool cable = false;       // CLbuf
  bool atsc = false;
  bool dvb = false;
  bool a52Year2012 = false;
};

struct audio_limit {
  int64_t bytes = 0;
  bool frameTooLarge = false;  // fatal 60: a frame above 3,584 bytes of MPEG audio
};
audio_limit audio_decoder_limit(const audio_buffer_choice& choice,
                                const audio_characteristics& audio, int pesNau);

}  // namespace zel::mux
