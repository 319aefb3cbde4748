#pragma once

#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

/// Makes packets that hold nothing but a PCR.
void make_pcr_only_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet,
                          tsm_mux& mux);

/// An ended stream that carries its program's PCR goes on with PCRs alone.
void turn_into_pcr_only(tsm_stream& stream);

}  // namespace zel::mux
