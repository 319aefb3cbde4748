#pragma once

#include "zel/mux/engine/stream/audio_state.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

/// The makePacket of an audio stream, whose `state` is an audio_state. Runs the decoder's buffer
/// model up to `now`, and sends what it allows; otherwise a null packet, or a packet with nothing
/// but the PCR that is due. Steps the stream's times. Allocates nothing, but where two frames don't
/// fit into the input buffer, which then grows.
void make_audio_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux& mux);

/// For VBR: how many frames with removal events aren't sent whole.
size_t audio_units_to_send(const tsm_stream& stream);

}  // namespace zel::mux
