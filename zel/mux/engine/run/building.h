#pragma once

#include <memory>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/engine_callbacks.h"
#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

/// Builds a run of `config`, whose PIDs are allotted: everything is open, first readings are done,
/// rate and length are settled, and the slot loop can begin. Null after a message that stops it, or
/// without memory (fatal 35). `afterRestart`: receivers are shown that the streams begin anew.
std::unique_ptr<tsm_mux> build_run(const Morvalen::Zel::tsm_config& config,
                                   const engine_callbacks& callbacks, bool afterRestart);

}  // namespace zel::mux
