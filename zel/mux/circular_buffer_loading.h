#pragma once

#include "zel/mux/engine/input/circular_buffer.h"
#include "zel/mux/tarnwick_interfaces.h"

namespace Morvalen::Zel {

/// Fills the free space of `buffer` from the provider, with two reads at most; one byte stays free.
/// @return 1 at the end of the input, else 0. Pinned by circular_buffer_loading_test.cpp.
int LoadFromProvider(TarnStreamInfo const& stream, cbuf& buffer);

}  // namespace Morvalen::Zel
