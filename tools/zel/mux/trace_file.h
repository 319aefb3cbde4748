#pragma once

#include <string>

#include "zel/mux/engine/run_statistics.h"

namespace zel::tool {

/// The CSV of --trace: a row a packet, for plots.
std::string traceTitles();
std::string traceRow(const Morvalen::Zel::tsm_trace_event& event);

}  // namespace zel::tool
