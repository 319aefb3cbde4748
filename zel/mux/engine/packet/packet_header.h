#pragma once

#include <cstdint>

#include "zel/mux/engine/stream/stream.h"

/// The four bytes that every transport packet starts with: ISO/IEC 13818-1, 2.4.3.2.

namespace zel::mux {

inline constexpr int kSyncByte = 0x47;
inline constexpr int kTsHeaderBytes = 4;
/// What a packet without adaptation field carries: 184.
inline constexpr int kPayloadBytes = static_cast<int>(kPacketBytes) - kTsHeaderBytes;
inline constexpr uint8_t kUnitStartBit = 0x40;  // of byte 1
inline constexpr uint8_t kTransportPriorityBit = 0x20;
inline constexpr uint8_t kAdaptationBit = 0x20;  // of byte 3
inline constexpr uint8_t kPayloadBit = 0x10;

inline void put_ts_header(uint8_t* out, int pid, bool unitStart, bool priority, bool adaptation,
                          bool payload, unsigned continuity) {
  out[0] = kSyncByte;
  out[1] = static_cast<uint8_t>((unitStart ? kUnitStartBit : 0) |
                                (priority ? kTransportPriorityBit : 0) | (pid >> 8 & 0x1F));
  out[2] = static_cast<uint8_t>(pid);
  out[3] = static_cast<uint8_t>((adaptation ? kAdaptationBit : 0) | (payload ? kPayloadBit : 0) |
                                (continuity & 15));
}

/// The header of a packet of `stream` that has payload and no adaptation field yet. The stream's
/// counter steps first.
inline void step_header(tsm_stream& stream, tsm_packet& packet, bool unitStart = false) {
  stream.set_continuity(stream.continuity() + 1u);
  put_ts_header(packet.bytes, stream.pid(), unitStart, stream.has(kTransportPriority), false, true,
                stream.continuity());
}

/// Starts a packet with payload of `stream`, without events. Returns the bytes used.
inline int begin_packet(tsm_stream& stream, tsm_packet& packet, bool unitStart) {
  step_header(stream, packet, unitStart);
  packet.events[0] = packet.events[1] = 0;
  return kTsHeaderBytes;
}

/// Takes the step back: the packet doesn't go out, or goes without payload.
inline void put_back_continuity(tsm_stream& stream) {
  stream.set_continuity(stream.continuity() + 15u);
}

}  // namespace zel::mux
