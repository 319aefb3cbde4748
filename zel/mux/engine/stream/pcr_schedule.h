#pragma once

#include "zel/mux/engine/stream/stream.h"

/// When a stream that carries its program's clock sends a PCR, and how the field looks (ISO/IEC
/// 13818-1, 2.4.3.5).

namespace zel::mux {

/// Of an adaptation field that has nothing before it but length and flags.
inline constexpr size_t kPcrPlace = 6;
inline constexpr size_t kAdaptationWithPcr = 8;  // length, flags, PCR

/// `reference` is the slot's time for video, the stream's nextTime for all others.
inline bool pcr_is_due(const tsm_stream& stream, const tsm_time& reference) {
  if (!stream.has(kCarriesPcr)) return false;
  return stream.has(kForcePcr) || !is_before(reference, stream.pcrNext);
}

/// Notes that the packet has a PCR. A late stream doesn't burst PCRs: it skips them.
inline void schedule_next_pcr(tsm_stream& stream, const tsm_time& packetTime,
                              const tsm_time& reference) {
  if (stream.has(kForcePcr)) stream.pcrNext = packetTime;
  stream.clear(kForcePcr);
  stream.set(kPacketHasPcr);
  stream.pcrNext = add(stream.pcrNext, stream.pcrStep);
  if (stream.pcrStep == tsm_time{}) return;
  while (!is_before(reference, add(stream.pcrNext, stream.pcrStep))) {
    stream.pcrNext = add(stream.pcrNext, stream.pcrStep);
  }
}

/// 33 bits of base, 6 reserved ones, 9 bits of extension.
inline void write_pcr(uint8_t* field, const tsm_time& time) {
  const uint64_t base = time.base();
  const auto extension = static_cast<uint32_t>(time.fraction() / 1048576.5);
  field[0] = static_cast<uint8_t>(base >> 25);
  field[1] = static_cast<uint8_t>(base >> 17);
  field[2] = static_cast<uint8_t>(base >> 9);
  field[3] = static_cast<uint8_t>(base >> 1);
  field[4] = static_cast<uint8_t>((base & 1) << 7 | 0x7E | extension >> 8);
  field[5] = static_cast<uint8_t>(extension);
}

/// The adaptation field's flags for a packet with a PCR; the discontinuity goes out once.
inline uint8_t pcr_flags(tsm_stream& stream, tsm_packet& packet) {
  set_event(packet, kEventPcr);
  if (!stream.has(kDiscontinuityWithPcr)) return 0x10;
  stream.clear(kDiscontinuityWithPcr);
  set_event(packet, kEventAccessPoint);
  return 0x90;
}

}  // namespace zel::mux
