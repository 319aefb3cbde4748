#pragma once

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/stream/video_state.h"

/// Start and End cut the input by the time code of the pictures. Sound has none: what of it belongs
/// to the pictures that are left out goes with them.

namespace zel::mux {

/// What is left of a program's first video, in 27 MHz ticks.
struct video_cut {
  double skipped = 0;  // the duration of the pictures before the first one that is taken
  double kept = -1;    // the duration up to End; below 0: to the end of the source

  bool is_none() const { return skipped <= 0 && kept < 0; }
};

/// Of `video`, whose first units are read; null, or one that couldn't be started, cuts nothing.
video_cut cut_of_video(const video_state* video, const Morvalen::Zel::tsm_config& config);

}  // namespace zel::mux
