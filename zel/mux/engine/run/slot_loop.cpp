#include "zel/mux/engine/run/slot_loop.h"

#include <algorithm>
#include <cmath>

#include "zel/mux/engine/packet/adaptation_field.h"
#include "zel/mux/engine/packet/packet_header.h"
#include "zel/mux/engine/run/pcr_only_stream.h"
#include "zel/mux/engine/run/slot_choice.h"
#include "zel/mux/engine/run/slot_stretch.h"
#include "zel/mux/engine/stream/buffer_model.h"
#include "zel/mux/engine/stream/pcr_schedule.h"

// Time is simulated: it moves by one packet's duration a slot. At each slot the streams that may go
// are asked, the most urgent first; one that has nothing to send steps its own times and passes the
// slot to the next, with the clock standing still. The order of the tests is part of the behaviour.

namespace zel::mux {

namespace {

constexpr int kWriteFailed = 82;
constexpr int kTerminatedEarly = 15;
constexpr int kEndedEarly = 145;
constexpr int kSlotsPerSync = 100000;
constexpr double kMostStepsPerSlot = 16;
constexpr int64_t kPacketsOfSync = 53191489;

void set_clock(tsm_mux& mux) {
  if (mux.clockIsSet) return;
  mux.clockIsSet = true;
  mux.packetTime = time_from_ticks(kPacketBitTicks / mux.rate);
  mux.now = time_from_ticks(mux.startTime);
}

// The sum of rounded packet times may not drift from the rate.
void sync_clock(tsm_mux& mux) {
  if (++mux.slotsSinceSync <= kSlotsPerSync) return;
  mux.slotsSinceSync = 0;
  if (mux.stats.packetsCounted >= kPacketsOfSync || mux.startTime != 0) return;
  mux.now =
      time_from_ticks(static_cast<double>(mux.stats.packetsCounted) * 2.7e7 * 1504 / mux.rate);
  mux.watch.forget();
}

void trace(tsm_mux& mux, const tsm_stream* stream) {
  const uint8_t* bytes = mux.packet->bytes;
  Morvalen::Zel::tsm_trace_event event;
  event.packet = mux.stats.packetsCounted;
  event.time = ticks_of(mux.now);
  event.pid = mux.packet->pid();
  if (stream != nullptr) {
    event.kind = static_cast<int32_t>(stream->kind);
    event.hasPcr = stream->has(kPacketHasPcr);
    event.unitStart = (bytes[1] & 0x40) != 0;
    if (stream->buffer != nullptr) {
      event.bufferLevel = stream->buffer->level;
      event.bufferLimit = stream->buffer->limit;
    }
  }
  mux.trace(mux.traceUser, &event);
}

// At a variable rate the writer comes to packets only when they are whole.
inline void begin_next_packet(tsm_mux& mux) {
  mux.packet = mux.vbr == nullptr ? &mux.writer.place_of_next(mux.ownPacket) : &mux.ownPacket;
}

inline void write(tsm_mux& mux) {
  if (!mux.writer.put(*mux.packet, mux.stats)) mux.reports.fatal(kWriteFailed);
  begin_next_packet(mux);
  mux.bursts.packet_sent();
}

// The packet under construction, of `stream`.
inline void put(tsm_mux& mux, tsm_stream& stream) {
  ++mux.sinceProgress;
  ++stream.packetsSent;
  if (mux.trace != nullptr) trace(mux, &stream);
  if (mux.blocks != nullptr) note_block_packet(mux);
  if (mux.vbr != nullptr) {
    put_variable(mux, stream);
  } else {
    write(mux);
  }
}

void put_null(tsm_mux& mux) {
  ++mux.sinceProgress;
  mux.nulls.make(*mux.packet);
  if (mux.trace != nullptr) trace(mux, nullptr);
  if (mux.blocks != nullptr) note_block_packet(mux);
  write(mux);
}

inline bool termination_reached(tsm_mux& mux) {
  if (mux.terminatePacket <= 0 || mux.stats.packetsCounted < mux.terminatePacket) return false;
  for (const auto& stream : mux.streams) {
    if (!stream->has2(kTerminated) || stream->has(kSourceEnded)) continue;
    mux.reports.warn(kTerminatedEarly, stream->pid(), int64_t{stream->pid()});
  }
  return true;
}

inline bool progress_stops(tsm_mux& mux) {
  if (mux.sinceProgress < mux.progressPeriod) return false;
  mux.sinceProgress = 0;
  return mux.progress != nullptr && mux.progress(mux.progressUser, &mux.stats) != 0;
}

inline bool run_is_over(const tsm_mux& mux, const slot_survey& survey) {
  if (mux.terminate) return false;
  if (mux.forceDuration) return !is_before(mux.now, mux.endTime);
  return survey.allEnded || survey.stopOnAv;
}

// The stream of this slot, or null where it goes to a null packet.
inline tsm_stream* choose(const tsm_mux& mux, const slot_survey& survey) {
  tsm_stream* stream = survey.choice();
  if (stream != nullptr && stream->has2(kHold)) {
    if (is_before(mux.now, stream->holdUntil)) {
      stream->step_times();
      return nullptr;
    }
    stream->clear2(kHold);
  }
  return mux.bursts.wants_null() ? nullptr : stream;
}

// Seconds by which the others outlive the first stream to end.
void note_end(tsm_mux& mux, const tsm_stream& stream) {
  if (mux.firstEndedPid < 0) {
    mux.firstEndedPid = stream.pid();
    mux.firstEndedAt = mux.now;
    return;
  }
  const tsm_time span = subtract(mux.now, mux.firstEndedAt);
  const uint64_t milliseconds = span.base() / 90;
  const double seconds = static_cast<double>(milliseconds) / 1000.0;
  if (seconds > mux.warnIfEndEarly) mux.reports.warn(kEndedEarly, mux.firstEndedPid, seconds);
}

void write_clock(tsm_mux& mux, const tsm_stream& stream) {
  tsm_time pcr = add(mux.now, stream.pcrOffset);
  if (stream.has2(kDriftOnPcr)) {
    pcr = add_ticks(pcr, static_cast<double>(mux.stats.packetsCounted + 1) * stream.driftPerPacket);
  }
  write_pcr(mux.packet->bytes + kPcrPlace, pcr);
}

// True where a packet is there to go out; otherwise the slot is open to the next candidate.
inline bool make_packet(tsm_mux& mux, tsm_stream& stream) {
  const tsm_time before = stream.nextTime;
  const bool hadPackets = !stream.has(kNoMorePackets);
  mux.packet->events[0] = mux.packet->events[1] = 0;
  stream.makePacket(stream, mux.now, *mux.packet, mux);

  const bool ends = hadPackets && stream.has(kNoMorePackets);
  // In VBR the pacing goes on asking an ended stream for PCRs.
  if (ends && stream.has(kCarriesPcr) && mux.vbr == nullptr) turn_into_pcr_only(stream, mux);
  if (ends && mux.warnIfEndEarly > 0 && !stream.has(kPsiStream)) note_end(mux, stream);
  if (stream.has(kPacketHasPcr)) write_clock(mux, stream);
  if (mux.packet->pid() != kNullPid || stream.kind == stream_kind::data) return true;

  // A stream that passes the slot without stepping its times would be asked for ever; one that
  // claims many times the multiplex's rate, for as good as ever: its answer stays the same.
  const bool crawls = ticks_of(stream.interval) * kMostStepsPerSlot < ticks_of(mux.packetTime) &&
                      !is_before(mux.now, stream.nextTime);
  if (!stream.has(kNoMorePackets) && (stream.nextTime == before || crawls)) {
    stream.nextTime = add(mux.now, mux.packetTime);
    stream.dueTime = add(stream.nextTime, stream.interval);
  }
  return false;
}

// What a packet of the clock's stream carries too little, its next comes earlier by: a stream's
// rate allows for a PCR every PCRper, and at a variable rate they come as they have to.
void step_back(tsm_stream& stream, int lost) {
  const tsm_time step = time_from_ticks(ticks_of(stream.interval) * lost / kPayloadBytes);
  stream.nextTime = subtract(stream.nextTime, step);
  stream.dueTime = subtract(stream.dueTime, step);
}

// Sound has little to spare, and so makes up for whatever takes room in its packets. Not so video,
// whose deep buffer bears it, and whose rate may be all that leaves MB.
inline void make_up_for_fields(tsm_mux& mux, tsm_stream& stream) {
  if (mux.vbr == nullptr || &stream != mux.vbr->clock || stream.has(kNoMorePackets)) return;
  if (stream.kind == stream_kind::video) return;
  const bool carries = (mux.packet->bytes[3] & kPayloadBit) != 0;
  const int end = carries ? payload_place(*mux.packet) : static_cast<int>(kPacketBytes);
  if (end > kTsHeaderBytes) step_back(stream, end - kTsHeaderBytes);
}

// The clock's packet with a PCR: with what it has to send, or with nothing else.
void make_forced_packet(tsm_mux& mux) {
  tsm_stream& clock = *mux.vbr->clock;
  mux.watch.forget();
  clock.set(kForcePcr);
  const tsm_time next = clock.nextTime;
  const tsm_time due = clock.dueTime;
  if (goes_with_clock(mux) && make_packet(mux, clock) && clock.has(kPacketHasPcr)) {
    if (clock.kind != stream_kind::video) {
      make_up_for_fields(mux, clock);
    } else if ((mux.packet->bytes[3] & kPayloadBit) != 0) {
      step_back(clock, kAdaptationWithPcr);
    } else {
      clock.nextTime = next;
      clock.dueTime = due;
    }
    return;
  }
  const tsm_time laterNext = clock.nextTime;
  const tsm_time laterDue = clock.dueTime;
  make_pcr_only_packet(clock, mux.now, *mux.packet, mux);
  write_clock(mux, clock);
  // A stream of PCRs alone goes on a period from here; another's turn was none.
  const bool isClockOnly = clock.kind == stream_kind::pcr_only;
  clock.nextTime = isClockOnly ? clock.pcrNext : laterNext;
  clock.dueTime = isClockOnly ? add(clock.pcrNext, mux.packetTime) : laterDue;
}

// One slot of the time line is over.
inline void next_slot(tsm_mux& mux) {
  mux.now = add(mux.now, mux.packetTime);
  if (mux.vbr == nullptr) return;
  ++mux.vbr->slotsSincePcr;
  ++mux.stats.packetsCounted;
}

// What one slot after the other would ask comes to nothing for as many as this: the end, progress
// and the clock's rounding.
inline int64_t unasked_slots(const tsm_mux& mux, int64_t firstPacket) {
  int64_t slots =
      std::min(kSlotsPerSync - mux.slotsSinceSync, mux.progressPeriod - mux.sinceProgress);
  if (mux.terminatePacket > 0) {
    slots = std::min(slots, mux.terminatePacket - mux.stats.packetsCounted);
  }
  if (mux.packetsPerCall > 0) {
    slots = std::min(slots, mux.packetsPerCall - (mux.stats.packetsWritten - firstPacket));
  }
  return slots;
}

// Behind a packet of `stream`.
inline void go_on(tsm_mux& mux, tsm_stream& stream, int64_t firstPacket) {
  if (stream.planStretch == nullptr) return;
  const auto slots = static_cast<int>(run_stretch(mux, stream, unasked_slots(mux, firstPacket)));
  mux.slotsSinceSync += slots;
  mux.sinceProgress += slots;
}

}  // namespace

void flush_output(tsm_mux& mux) {
  if (mux.vbr != nullptr && !flush_variable(mux)) mux.reports.fatal(kWriteFailed);
  if (!mux.writer.flush()) mux.reports.fatal(kWriteFailed);
}

namespace {

slot_outcome finish(tsm_mux& mux) {
  if (mux.packetCountMultiple > 1) {
    if (mux.vbr != nullptr && !flush_variable(mux)) mux.reports.fatal(kWriteFailed);
    while (mux.stats.packetsWritten % mux.packetCountMultiple != 0) put_null(mux);
  }
  flush_output(mux);
  return slot_outcome::finished;
}

}  // namespace

slot_outcome run_slots(tsm_mux& mux) {
  set_clock(mux);
  mux.watch.forget();
  begin_next_packet(mux);
  const int64_t firstPacket = mux.stats.packetsWritten;
  while (true) {
    const control_word control =
        mux.control == nullptr ? control_word::none : mux.control->load(std::memory_order_relaxed);
    if (control == control_word::end) return slot_outcome::ended;
    if (control == control_word::restart ||
        (control == control_word::restart_on_errors && mux.stats.errors > 0)) {
      return slot_outcome::restart;
    }
    if (mux.packetsPerCall > 0 && mux.stats.packetsWritten - firstPacket >= mux.packetsPerCall) {
      return slot_outcome::paused;
    }
    if (mux.blocks != nullptr && !next_block(mux)) return finish(mux);
    if (termination_reached(mux) || progress_stops(mux)) return finish(mux);
    sync_clock(mux);

    const slot_survey survey = mux.watch.survey(mux.now, mux);
    if (run_is_over(mux, survey)) return finish(mux);
    if (mux.vbr != nullptr && pcr_is_forced(mux)) {
      make_forced_packet(mux);
      put(mux, *mux.vbr->clock);
      next_slot(mux);
      continue;
    }
    tsm_stream* stream = choose(mux, survey);
    if (stream != nullptr && !pass_smoothing_buffers(*stream, mux)) {
      stream->dueTime = add(mux.now, tsm_time{0, 0, 1048576});
      stream->step_times();
      continue;
    }
    if (stream != nullptr) {
      if (!make_packet(mux, *stream)) continue;
      make_up_for_fields(mux, *stream);
      put(mux, *stream);
      next_slot(mux);
      go_on(mux, *stream, firstPacket);
      continue;
    }
    if (mux.vbr == nullptr) {
      put_null(mux);
    } else {
      ++mux.sinceProgress;  // a run that sends nothing for long can still be stopped
    }
    next_slot(mux);
  }
}

}  // namespace zel::mux
