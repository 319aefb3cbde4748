#pragma once

#include <memory>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/pcm/lpcm_units.h"
#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

/// Opens the input of `record` (`load`: the caller's loader, or null for the record's files) and
/// gives the stream. Null after a fatal message that doesn't stop the run.
std::unique_ptr<tsm_stream> open_lpcm(const Morvalen::Zel::tsm_lpcm& record,
                                      const Morvalen::Zel::tsm_program& program,
                                      Morvalen::Zel::tsm_load_callback load, tsm_mux& mux);

/// Gives a stream of this form its line in the PMT; a PID outside those of the form is told.
void describe_lpcm(tsm_stream& stream, lpcm_form form, reporting& reports);

/// The first reading, once all records of the run exist: what run/stream_setup.h says of starting.
void start_lpcm(tsm_stream& stream, tsm_mux& mux);

}  // namespace zel::mux
