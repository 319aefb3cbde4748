#pragma once

#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

/// After discover_video, with SubStreamType: looks at what was split off, adds its rate and buffer
/// to the characteristics and its line to the PMT. Reports what isn't there or can't be sent.
void start_layers(video_state& state, bool carriesPcr);

}  // namespace zel::mux
