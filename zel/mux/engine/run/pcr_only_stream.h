#pragma once

#include <memory>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

/// The stream of a program whose PCRPID names none of its streams. It never keeps a run going. The
/// times of sending aren't set.
std::unique_ptr<tsm_stream> make_pcr_only_stream(const Morvalen::Zel::tsm_program& program,
                                                 uint32_t programIndex, const tsm_mux& mux);

/// Makes packets that hold nothing but a PCR.
void make_pcr_only_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet,
                          tsm_mux& mux);

/// An ended stream that carries its program's PCR goes on with PCRs alone.
void turn_into_pcr_only(tsm_stream& stream, const tsm_mux& mux);

}  // namespace zel::mux
