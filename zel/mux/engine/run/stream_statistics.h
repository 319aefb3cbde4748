#pragma once

#include "zel/mux/engine/run_statistics.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

Morvalen::Zel::tsm_stream_stats statistics_of(const tsm_stream& stream);

}  // namespace zel::mux
