#pragma once

#include <memory>

#include "zel/mux/engine/run/smoothing_store.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

struct tsm_mux;

/// VBR: there is no stuffing; a slot that no stream wants only moves the clock. So the rate changes
/// from PCR to PCR, and PCRs have to come before anything happens in the decoders' buffers that the
/// change of rate would matter to.
///
/// Between PCRs receivers see the packets come evenly, the engine sends them at the highest rate
/// and rests. To be right for both, buffers get no credit for what leaves them until the next PCR
/// (buffer_model::heldBack), and a PCR is forced before the next unit leaves that wasn't whole in
/// its buffer at the last one, and where a stream waits for that credit. While units wait in
/// decoders, one every ten slots keeps the difference small. What is forced stays within the
/// clock's own rate and what its transport buffer leaks beyond that.
struct variable_rate {
  tsm_stream* clock = nullptr;  // the program's stream with the PCR
  int64_t slotsSincePcr = 0;
  int64_t slotsUntilPcr = 0;
  tsm_time lastPcr;
  double levelOfClocks = 0;  // bytes: the PCRs that went alone, in the transport buffer
  tsm_time clocksLeakedAt;
  bool clockIsIdle = false;  // its last packet had nothing but the PCR
  smoothing_store store;
};

/// Fatal 116 and 119. All streams are there.
void set_up_variable_rate(tsm_mux& mux);

/// Whether this slot is to be the clock's, with a PCR.
bool pcr_is_forced(tsm_mux& mux);

/// Whether the clock's stream may send with a PCR that is forced now: as long as it isn't more than
/// a packet ahead of its rate, which is all that its buffers are asked to bear.
bool goes_with_clock(const tsm_mux& mux);

/// The slot's packet. One with a PCR closes what came before it.
void put_variable(tsm_mux& mux, const tsm_stream& stream);

/// At the end of the run. False where a write failed.
bool flush_variable(tsm_mux& mux);

}  // namespace zel::mux
