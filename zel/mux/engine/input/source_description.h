#pragma once

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/run/reporting.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

/// DescFromData: once a stream has its line in the PMT, gives it what the source's PMT said of it,
/// instead of what is configured (warning 83) and automatic. A stream that doesn't come out of a
/// PID of a transport stream has no such line (warning 72), and keeps its own; so does one whose
/// line can't be found. A null `input` is a stream that is made anew out of others: no line of a
/// source is its own (warning 95).
void describe_from_source(tsm_stream& stream, const Morvalen::Zel::tsm_stream_record& record,
                          elementary_input* input, reporting& reports);

}  // namespace zel::mux
