#pragma once

#include "zel/mux/engine_calls.h"

namespace Morvalen::Zel {

/// The engine of this library. It has no demultiplexer: with ETV tracks it is not supported.
EngineCalls const& RealEngine();

}  // namespace Morvalen::Zel
