#pragma once

#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

enum class slot_outcome {
  finished,  // everything is written
  paused,    // the packets-per-call limit: call again
  ended,     // the control word asked for the end
  restart,   // the control word asked for a new start
};

/// Runs a multiplex: at a constant rate one packet a slot, at a variable rate a packet or none;
/// each slot is one step of the clock. Nothing is allocated on the way. Throws engine_stop where a
/// message stops the run.
slot_outcome run_slots(tsm_mux& mux);

/// Hands over what is made but held back, where a run is left before its end.
void flush_output(tsm_mux& mux);

}  // namespace zel::mux
