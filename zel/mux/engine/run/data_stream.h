#pragma once

#include <memory>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/mux.h"

/// Data streams: transport packets that come ready made and go out at a set rate.

namespace zel::mux {

/// Opens the input of `record` (`load`: the caller's loader, or null for the record's files) and
/// gives the stream. Null after a fatal message that doesn't stop the run.
std::unique_ptr<tsm_stream> make_data_stream(const Morvalen::Zel::tsm_data& record,
                                             Morvalen::Zel::tsm_load_callback load, tsm_mux& mux);

}  // namespace zel::mux
