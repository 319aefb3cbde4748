#pragma once

#include "zel/mux/engine/run/mux.h"

/// When a run ends by itself: Duration, ForceDuration, and Terminate, which ends a program at a
/// frame boundary so that another stream can be spliced to it.

namespace zel::mux {

/// Marks the stream that Terminate is about: the first video of the first program, or its first
/// audio, or the first of what carries sound. All streams exist, none has been started. Fatal 40
/// and 44.
void mark_terminated_stream(tsm_mux& mux);

/// Sets mux.endTime and mux.terminatePacket, the drift of the terminated program's PCRs, and the
/// time from which the terminated video takes no picture. The rate is settled. Fatal 51,
/// warning 12.
void set_duration(tsm_mux& mux);

}  // namespace zel::mux
