#pragma once

#include "zel/mux/engine/packet/adaptation_field.h"
#include "zel/mux/engine/stream/pcr_schedule.h"

/// The clock's fields in a packet with payload to come.

namespace zel::mux {

/// Makes room for a PCR, whose value the slot loop writes, and moves the stream's schedule on.
/// Returns the bytes used.
inline int insert_pcr(tsm_stream& stream, tsm_packet& packet, const tsm_time& now,
                      const tsm_time& reference) {
  int used = add_pcr(packet);
  used += add_adaptation_flags(packet, pcr_flags(stream, packet));
  schedule_next_pcr(stream, now, reference);
  return used;
}

/// A PCR that isn't due by the schedule (PCRPES, PCRGOP): the schedule starts anew from it, or
/// those of PES packets that come faster than PCRs would put the next one off for ever.
inline int insert_extra_pcr(tsm_stream& stream, tsm_packet& packet, const tsm_time& now,
                            const tsm_time& reference) {
  stream.set(kForcePcr);
  return insert_pcr(stream, packet, now, reference);
}

/// A stream's first packet with InitDI: the discontinuity indicator. Returns the bytes used.
inline int insert_initial_discontinuity(tsm_stream& stream, tsm_packet& packet) {
  if (!stream.has(kInitDiPending)) return 0;
  stream.clear(kInitDiPending);
  set_event(packet, kEventAccessPoint);
  return add_adaptation_flags(packet, kDiscontinuityFlag);
}

}  // namespace zel::mux
