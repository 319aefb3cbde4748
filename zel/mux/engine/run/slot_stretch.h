#pragma once

#include <cstdint>

#include "zel/mux/engine/run/mux.h"

/// Slots in a row of which all is known beforehand: one stream sends packets from the middle of an
/// access unit as its times say, and the others are null packets. They come to what asking slot by
/// slot does, for a fraction of the work; most slots of a multiplex of few streams are such.

namespace zel::mux {

/// Goes through slots from mux.now on, `most` at most, as long as only `stream`, which has just
/// sent a packet, may send. Returns how many they were. No callback is called before the last.
int64_t run_stretch(tsm_mux& mux, tsm_stream& stream, int64_t most);

}  // namespace zel::mux
