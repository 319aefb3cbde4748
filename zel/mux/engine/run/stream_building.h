#pragma once

#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

/// Opens and starts every stream of the configuration, each kind by its own functions, in the order
/// in which the run walks them: transport level first, then program by program; and adds a stream
/// of PCRs for a program whose PCRPID names no stream. Times are set up for the start. What fails
/// without stopping the run is left out.
void add_streams(tsm_mux& mux);

}  // namespace zel::mux
