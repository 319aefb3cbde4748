#include "zel/mux/engine/run/variable_rate.h"

#include <algorithm>
#include <cmath>

#include "zel/mux/engine/packet/packet_header.h"
#include "zel/mux/engine/run/mux.h"
#include "zel/mux/engine/stream/buffer_model.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

namespace {

constexpr int kSeveralPrograms = 116;
constexpr int kNoClock = 119;
constexpr int kStoreFull = 152;
constexpr int kWriteFailed = 82;

constexpr int64_t kNoHurry = 1'000'000'000;
constexpr int64_t kSlotsWithUnitsInFlight = 10;
constexpr size_t kUnitsInFlight = 2;
// Of what a stream's rate leaves of its transport buffer's leak.
constexpr double kPartOfLeak = 0.5;

// What the receiver's transport buffer leaks at least, bits per second: 2 Mbit/s for sound (ISO/IEC
// 13818-1, 2.4.2.3); 1.2 times the highest rate of the level for video. The lowest levels: 4 Mbit/s
// of MPEG-2 (ISO/IEC 13818-2, table 8-13), and 2 Mbit/s that take the place of less for AVC and
// HEVC (2.14.3.1, 2.17.2).
double transport_leak(const tsm_stream& stream) {
  if (stream.kind != stream_kind::video) return std::max(2e6, stream.rate);
  const video_characteristics& video =
      static_cast<const video_state&>(*stream.state).characteristics;
  double least = 0;
  if (video.coding == video_coding::mpeg2) least = 4e6;
  if (video.coding == video_coding::avc || video.coding == video_coding::hevc) least = 2e6;
  return std::max(1.2 * std::max(video.bitRate, least), stream.rate);
}

// How many units wait whole in the decoder's buffer.
size_t whole_units(const tsm_stream& stream) {
  const size_t removals = stream.buffer->removals.size();
  const size_t queued = stream.unitsToSend(stream);
  return removals > queued ? removals - queued : 0;
}

// What the receiver's transport buffer leaks for the clock's PCRs that go alone, bits per second. A
// part of what the stream's rate leaves is taken: some PCRs can't wait, and the buffer has to be
// empty once a second (2.4.2.6).
double leak_of_clocks(const tsm_stream& clock) {
  return kPartOfLeak * (transport_leak(clock) - clock.rate);
}

// Bytes in that buffer that the clock's stream put there beyond its rate.
double level_of_clocks(const tsm_mux& mux) {
  const variable_rate& vbr = *mux.vbr;
  const double ticks = difference_ticks(mux.now, vbr.clocksLeakedAt);
  return std::max(vbr.levelOfClocks - leak_of_clocks(*vbr.clock) * ticks / kByteTicks, 0.0);
}

// Whether the receiver's transport buffer takes a packet with a PCR now: one every ten slots of a
// high rate would be more than it leaks. One that goes with what the stream has to send anyway is
// none more, and one on a PID of its own goes to no decoder.
bool clock_has_room(const tsm_mux& mux) {
  const variable_rate& vbr = *mux.vbr;
  if (vbr.clock->kind == stream_kind::pcr_only) return true;
  return (goes_with_clock(mux) && !vbr.clockIsIdle) || level_of_clocks(mux) <= 0;
}

// Slots after the last PCR at which the next has to come.
int64_t slots_until_pcr(const tsm_mux& mux) {
  const variable_rate& vbr = *mux.vbr;
  const double packetTicks = ticks_of(mux.packetTime);
  const double now = ticks_of(mux.now);
  const bool hasRoom = clock_has_room(mux);
  int64_t slots = kNoHurry;
  size_t inFlight = 0;
  for (const auto& stream : mux.streams) {
    if (stream->unitsToSend == nullptr) continue;
    const buffer_model& model = *stream->buffer;
    const size_t whole = whole_units(*stream);
    const bool begun = whole == 0 && model.level > 0;
    if (!stream->has(kNoMorePackets)) inFlight += begun ? 1 : whole;
    // The first unit of which it isn't certain that receivers have it when it leaves: its packets
    // may come as late as the next PCR, and then have the transport buffer before them.
    if (model.wholeAtClock >= model.removals.size()) continue;
    const bool waits = hasRoom && model.wholeAtClock < whole;
    const double latency = waits ? kTransportBufferBytes * kByteTicks / transport_leak(*stream) : 0;
    const double span = signed_difference(model.removals[model.wholeAtClock].time, now) - latency;
    // The packet of the slot before has to be in: two slots of margin.
    const double left = std::floor(span / packetTicks) - 2;
    slots = std::min(slots, vbr.slotsSincePcr + static_cast<int64_t>(std::max(left, 0.0)));
  }
  if (inFlight >= kUnitsInFlight && hasRoom) slots = std::min(slots, kSlotsWithUnitsInFlight);
  return slots;
}

// Ticks until the receiver's transport buffer takes a PCR that goes alone.
double wait_for_room(const tsm_mux& mux) {
  if (clock_has_room(mux)) return 0;
  return level_of_clocks(mux) * kByteTicks / leak_of_clocks(*mux.vbr->clock);
}

// Whether sound has every unit in time though it sends nothing for `ticks`. Pictures' sizes vary
// too much to tell.
bool bears_wait(const tsm_stream& stream, double now, double ticks) {
  constexpr size_t kUnitsLookedAt = 16;
  if (stream.kind == stream_kind::video || ticks <= 0) return false;
  const buffer_model& model = *stream.buffer;
  int64_t missing = -model.level;
  for (size_t i = 0; i < std::min(model.removals.size(), kUnitsLookedAt); ++i) {
    missing += model.removals[i].size;
    if (missing <= 0) continue;
    constexpr auto kMargin = static_cast<int64_t>(2 * kPacketBytes);
    const double needed = static_cast<double>(missing + kMargin) * kByteTicks / stream.rate;
    if (signed_difference(model.removals[i].time, now) < ticks + needed) return false;
  }
  return true;
}

// Whether a stream could send but for what the next PCR would credit it with, and can't wait.
bool is_blocked(const tsm_mux& mux) {
  constexpr auto kPacket = static_cast<int64_t>(kPacketBytes);
  const double now = ticks_of(mux.now);
  for (const auto& stream : mux.streams) {
    const buffer_model* const model = stream->buffer;
    if (model == nullptr || model->heldBack == 0 || stream->has(kNoMorePackets)) continue;
    const bool hasRoom = model->level + kPacket < model->limit;
    const bool lacksCredit = model->level + model->heldBack + kPacket >= model->limit;
    if (hasRoom && lacksCredit && !bears_wait(*stream, now, wait_for_room(mux))) return true;
  }
  return false;
}

void close_store(tsm_mux& mux) {
  variable_rate& vbr = *mux.vbr;
  const double ticks = difference_ticks(mux.now, vbr.lastPcr);
  vbr.lastPcr = mux.now;
  if (ticks > 0 && vbr.store.size() > 0) {
    mux.writer.stamps().set_rate(static_cast<double>(vbr.store.size()) * kPacketBitTicks / ticks);
  }
  vbr.store.spread();
  if (!vbr.store.release(mux.writer, mux.stats)) mux.reports.fatal(kWriteFailed);
}

}  // namespace

void set_up_variable_rate(tsm_mux& mux) {
  if (mux.config->programs != nullptr && mux.config->programs->next != nullptr) {
    mux.reports.fatal(kSeveralPrograms);
  }
  mux.vbr = std::make_unique<variable_rate>();
  for (const auto& stream : mux.streams) {
    if (stream->has(kCarriesPcr)) mux.vbr->clock = stream.get();
    if (stream->buffer != nullptr) stream->buffer->holdsBack = true;
  }
  if (mux.vbr->clock == nullptr) mux.reports.fatal(kNoClock);
  mux.vbr->lastPcr = mux.vbr->clocksLeakedAt = time_from_ticks(mux.startTime);
  mux.vbr->slotsUntilPcr = kNoHurry;
}

bool pcr_is_forced(tsm_mux& mux) {
  variable_rate& vbr = *mux.vbr;
  if (vbr.clock == nullptr) return false;
  // A clock that has nothing else to send any more isn't asked by its own times.
  const bool isDue = !is_before(mux.now, vbr.clock->pcrNext);
  if (vbr.clock->has(kNoMorePackets) && isDue) return true;
  if (is_blocked(mux)) return true;
  // Where nothing was sent since the last PCR, another has nothing to tell.
  if (vbr.store.size() <= 1) return false;
  vbr.slotsUntilPcr = slots_until_pcr(mux);
  return vbr.slotsSincePcr >= vbr.slotsUntilPcr;
}

bool goes_with_clock(const tsm_mux& mux) {
  const tsm_stream& clock = *mux.vbr->clock;
  if (clock.kind == stream_kind::pcr_only || clock.has(kNoMorePackets)) return false;
  if (clock.has2(kHold)) return false;
  return !is_before(add(mux.now, clock.interval), clock.nextTime);
}

void put_variable(tsm_mux& mux, const tsm_stream& stream) {
  variable_rate& vbr = *mux.vbr;
  if (&stream == vbr.clock) {
    vbr.clockIsIdle = (mux.packet->bytes[3] & kPayloadBit) == 0;
    vbr.levelOfClocks = level_of_clocks(mux) + (vbr.clockIsIdle ? kPacketBytes : 0);
    vbr.clocksLeakedAt = mux.now;
  }
  if (stream.has(kPacketHasPcr) && &stream == vbr.clock) {
    close_store(mux);
    vbr.slotsSincePcr = 0;
    vbr.slotsUntilPcr = kNoHurry;
    for (const auto& each : mux.streams) {
      if (each->unitsToSend == nullptr) continue;
      each->buffer->heldBack = 0;
      each->buffer->wholeAtClock = whole_units(*each);
    }
  }
  if (!vbr.store.add(*mux.packet)) mux.reports.fatal(kStoreFull);
}

bool flush_variable(tsm_mux& mux) {
  return mux.vbr->store.release(mux.writer, mux.stats);
}

}  // namespace zel::mux
