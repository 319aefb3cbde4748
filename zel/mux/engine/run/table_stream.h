#pragma once

#include <memory>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

/// Opens the tables of `record`: those that stand in it, or its files of bare sections. `program`
/// is null at transport level. Tables come from no loader. Null after a fatal message that doesn't
/// stop the run.
std::unique_ptr<tsm_stream> open_table(const Morvalen::Zel::tsm_table& record,
                                       const Morvalen::Zel::tsm_program* program,
                                       Morvalen::Zel::tsm_load_callback load, tsm_mux& mux);

/// The first reading, once all records of the run exist: what run/stream_setup.h says of starting.
void start_table(tsm_stream& stream, tsm_mux& mux);

}  // namespace zel::mux
