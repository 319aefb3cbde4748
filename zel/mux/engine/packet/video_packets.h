#pragma once

#include "zel/mux/engine/stream/stream.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

/// The makePacket of a video stream, whose `state` is a video_state. Runs the decoder's buffer
/// model up to `now`, and sends what it allows; otherwise a null packet, or a packet with nothing
/// but the PCR that is due. Steps the stream's times. Allocates nothing, but where one access unit
/// doesn't fit into the input buffer, which then grows.
void make_video_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux& mux);

/// The planStretch and makeInner of a video stream: packets from the middle of the unit that is
/// being sent.
bool plan_video_stretch(tsm_stream& stream, const tsm_time& now, packet_stretch& stretch);
void make_inner_video_packet(tsm_stream& stream, tsm_packet& packet);

/// The same, each packet by a plan of its own: what make_video_packet() takes a shortcut for, and
/// has to equal.
void plan_video_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux& mux);

/// Whether unit `index` of the queue is there and timed. Scans for it, as far as there is room.
bool video_unit_ready(video_state& state, size_t index);

/// For VBR: how many access units with removal events aren't sent whole.
size_t video_units_to_send(const tsm_stream& stream);

}  // namespace zel::mux
