#pragma once

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/engine_callbacks.h"
#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

/// Takes over what the transport level configures of a run, but streams, PSI, rate and duration:
/// what stops it, packet size and stamps, bursts, output. `mux.config` is set.
void set_up_transport(tsm_mux& mux, const engine_callbacks& callbacks);

/// Leader * 300 + 1 + the start: when streams may send for the first time.
tsm_time first_sending(const tsm_mux& mux);

}  // namespace zel::mux
