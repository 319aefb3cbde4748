#pragma once

#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

enum class slot_outcome {
  finished,  // everything is written
  paused,    // the packets-per-call limit: call again
  ended,     // the control word asked for the end
  restart,   // the control word asked for a new start
};

/// Runs a constant rate multiplex: one packet a slot, each slot one step of the clock. Nothing is
/// allocated on the way. Throws engine_stop where a message stops the run.
slot_outcome run_slots(tsm_mux& mux);

}  // namespace zel::mux
