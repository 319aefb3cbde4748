#pragma once

#include <algorithm>

#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/packet/adaptation_field.h"
#include "zel/mux/engine/packet/packet_header.h"
#include "zel/mux/engine/stream/buffer_model.h"
#include "zel/mux/engine/stream/stream.h"

/// What the streams with buffer models do alike.

namespace zel::mux {

/// A model with this many events takes no more packets, so that the analyser finds room.
inline constexpr size_t kFullRemovals = kRemovalEvents - 1;

/// Takes out what is due at `now`. Each time that a removal finds too little, `underflow` is called
/// with the bytes that were missing.
template <typename Underflow>
void run_removals(buffer_model& model, tsm_packet& packet, double now, Underflow underflow) {
  while (!model.removals.empty() && signed_difference(model.removals.front().time, now) <= 0) {
    if (model.level > model.peak) {
      model.peak = model.level;
      set_event(packet, kEventHighestLevel);
    }
    model.level -= model.removals.front().size;
    if (model.holdsBack) model.heldBack += model.removals.front().size;
    model.removals.pop();
    model.wholeAtClock -= model.wholeAtClock > 0 ? 1 : 0;
    if (!model.lowestKnown || model.level < model.lowest) {
      model.lowest = model.level;
      model.lowestKnown = true;
      set_event(packet, kEventLowestLevel);
    }
    if (model.level < 0) underflow(-model.level);
  }
}

/// Whether a packet with `header` bytes before its payload would overflow the decoder's buffer.
inline bool would_overflow(const buffer_model& model, int header) {
  return model.level + model.heldBack - header + static_cast<int64_t>(kPacketBytes) >= model.limit;
}

/// The packet goes without payload: as stuffing around its adaptation field, if it has one, or not
/// at all. The counter goes back.
inline void withhold(tsm_stream& stream, tsm_packet& packet) {
  put_back_continuity(stream);
  if (payload_place(packet) == kTsHeaderBytes) {
    packet.make_null();
    return;
  }
  packet.bytes[1] = static_cast<uint8_t>(packet.bytes[1] & ~kUnitStartBit);
  packet.bytes[3] = static_cast<uint8_t>((packet.bytes[3] & 0xF0) | stream.continuity());
  stuff_whole(packet);
}

/// A packet whose header stands while what it carries is still being settled: withhold() takes all
/// of that back, PCRs and flags of the stream too.
class packet_draft {
 public:
  packet_draft(tsm_stream& stream, tsm_packet& packet)
      : stream_(stream),
        packet_(packet),
        bare_(packet),
        pcrNext_(stream.pcrNext),
        flags_(stream.flags) {}

  void withhold() {
    packet_ = bare_;
    stream_.flags = flags_;
    stream_.pcrNext = pcrNext_;
    mux::withhold(stream_, packet_);
  }

 private:
  tsm_stream& stream_;
  tsm_packet& packet_;
  const tsm_packet bare_;
  const tsm_time pcrNext_;
  const uint32_t flags_;
};

/// The stream has sent everything.
inline void end_stream(tsm_stream& stream, tsm_packet& packet) {
  stream.set(kSourceEnded | kNoMorePackets);
  packet.make_null();
}

}  // namespace zel::mux
