#include "zel/mux/engine/run/stream_kinds.h"

#include "zel/mux/engine/audio/open_audio.h"
#include "zel/mux/engine/pcm/open_lpcm.h"
#include "zel/mux/engine/pcm/open_smpte302m.h"
#include "zel/mux/engine/run/table_stream.h"
#include "zel/mux/engine/video/open_video.h"

namespace zel::mux {

// A kind's header is included, and its two functions stand here, once its folder has them.
const stream_kinds kStreamKinds = {
    .video = {open_video, start_video},
    .audio = {open_audio, start_audio},
    .smpte302m = {open_smpte302m, start_smpte302m},
    .lpcm = {open_lpcm, start_lpcm},
    .privateStream = {nullptr, nullptr, 94},
    .scte35 = {nullptr, nullptr, 105},
    .openTable = open_table,
    .startTable = start_table,
};

}  // namespace zel::mux
