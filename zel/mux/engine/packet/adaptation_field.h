#pragma once

#include <cstdint>
#include <span>

#include "zel/mux/engine/stream/stream.h"

/// The adaptation field: ISO/IEC 13818-1, 2.4.3.4. Each function acts on a packet whose header and
/// adaptation field are there, but no payload yet, and returns how many bytes it used. They work in
/// any order, stuffing last: what comes later in the field is moved back.

namespace zel::mux {

inline constexpr uint8_t kDiscontinuityFlag = 0x80;
inline constexpr uint8_t kRandomAccessFlag = 0x40;
inline constexpr uint8_t kPriorityFlag = 0x20;
inline constexpr uint8_t kPcrFlag = 0x10;
inline constexpr uint8_t kSplicingPointFlag = 0x04;
inline constexpr uint8_t kPrivateDataFlag = 0x02;

inline constexpr int kPcrBytes = 6;

/// Header and adaptation field together: where the payload begins.
int payload_place(const tsm_packet& packet);

/// Sets flags, and creates the field (two bytes) if there is none.
int add_adaptation_flags(tsm_packet& packet, uint8_t flags);
/// Makes room for a PCR at kPcrPlace, zero for now. Nothing if there is one.
int add_pcr(tsm_packet& packet);
/// splice_countdown: packets of this PID up to the splicing point.
int add_splice_countdown(tsm_packet& packet, int8_t countdown);
/// Private data as they stand, at most 255 bytes. Nothing if there are some already.
int add_private_data(tsm_packet& packet, std::span<const uint8_t> data);
/// Lengthens header and field together by `count` bytes, at least 0. A field that leaves no room
/// for payload clears the payload bit.
int add_stuffing(tsm_packet& packet, int count);

/// Turns the packet into one without payload: everything behind its field is stuffing.
void stuff_whole(tsm_packet& packet);

}  // namespace zel::mux
