#include "zel/mux/engine/run/variable_rate.h"

#include <algorithm>
#include <cmath>

#include "zel/mux/engine/run/mux.h"
#include "zel/mux/engine/stream/buffer_model.h"

namespace zel::mux {

namespace {

constexpr int kSeveralPrograms = 116;
constexpr int kNoClock = 119;
constexpr int kStoreFull = 152;
constexpr int kWriteFailed = 82;

constexpr int64_t kNoHurry = 1'000'000'000;
constexpr int64_t kSlotsWithUnitsInFlight = 10;
constexpr int kUnitsInFlight = 2;

// Slots after the last PCR at which the next has to come.
int64_t slots_until_pcr(const tsm_mux& mux) {
  const variable_rate& vbr = *mux.vbr;
  const double packetTicks = ticks_of(mux.packetTime);
  const double now = ticks_of(mux.now);
  int64_t slots = kNoHurry;
  for (const auto& stream : mux.streams) {
    if (stream->nextRemoval == nullptr || stream->has(kNoMorePackets)) continue;
    double removal = 0;
    int units = 0;
    if (!stream->nextRemoval(*stream, mux.now, removal, units)) continue;
    if (units >= kUnitsInFlight) slots = std::min(slots, kSlotsWithUnitsInFlight);
    // The packet of the slot before the removal has to be in: two slots of margin.
    const double left = std::floor(signed_difference(removal, now) / packetTicks) - 2;
    slots = std::min(slots, vbr.slotsSincePcr + static_cast<int64_t>(std::max(left, 0.0)));
  }
  return slots;
}

// Whether a stream could send but for what the next PCR would credit it with.
bool is_blocked(const tsm_mux& mux) {
  constexpr auto kPayload = static_cast<int64_t>(kPacketBytes);
  for (const auto& stream : mux.streams) {
    const buffer_model* const model = stream->buffer;
    if (model == nullptr || model->heldBack == 0 || stream->has(kNoMorePackets)) continue;
    const bool hasRoom = model->level + kPayload < model->limit;
    if (hasRoom && model->level + model->heldBack + kPayload >= model->limit) return true;
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
  mux.vbr->lastPcr = time_from_ticks(mux.startTime);
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

void put_variable(tsm_mux& mux, const tsm_stream& stream) {
  variable_rate& vbr = *mux.vbr;
  if (stream.has(kPacketHasPcr) && &stream == vbr.clock) {
    close_store(mux);
    vbr.slotsSincePcr = 0;
    vbr.slotsUntilPcr = kNoHurry;
    for (const auto& each : mux.streams) {
      if (each->buffer != nullptr) each->buffer->heldBack = 0;
    }
  }
  if (!vbr.store.add(mux.packet)) mux.reports.fatal(kStoreFull);
}

bool flush_variable(tsm_mux& mux) {
  return mux.vbr->store.release(mux.writer, mux.stats);
}

}  // namespace zel::mux
