#include "zel/mux/engine/pcm/pcm_packets.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "zel/mux/engine/packet/clock_insertion.h"
#include "zel/mux/engine/packet/model_steps.h"
#include "zel/mux/engine/packet/pes_header.h"
#include "zel/mux/engine/run/reporting.h"

// The decoder's buffer holds PES headers until the unit behind them leaves (ISO/IEC 13818-1,
// 2.4.2.3). For coded audio the limits leave room for them; a buffer that one unit nearly fills has
// none to leave, so here they count.

namespace zel::mux {

namespace {

constexpr int kUnderflow = 1;
constexpr double kEarly = 26'000'000;  // 0.963 s
constexpr uint8_t kAlignmentFlag = 4;  // of pes_fields::headerFlags
constexpr double kRateMargin = 1.01;   // slots that others take first are made up for

pes_fields fields_of(const tsm_stream& stream, size_t bytes, double pts) {
  pes_fields pes;
  pes.streamId = stream.pesId;
  // A unit begins with its PES packet, always.
  pes.headerFlags = static_cast<uint8_t>((stream.flags2 >> 1 & 0x0F) | kAlignmentFlag);
  pes.payloadLength = static_cast<int32_t>(bytes);
  if (stream.pesId == kExtendedStreamId) {
    pes.hasIdExtension = true;
    pes.idExtension = stream.pesIdExtension;
  }
  pes.hasPts = true;
  pes.pts = pts;
  return pes;
}

pcm_units::result unit_ready(pcm_state& state) {
  if (state.hasUnit) return pcm_units::result::ready;
  if (state.model.removals.size() >= kFullRemovals) return pcm_units::result::later;
  if (state.mostFrames >= 0 && state.framesBefore >= state.mostFrames) {
    return pcm_units::result::ended;
  }
  const pcm_units::result result = state.units->next(state.payload, state.unit);
  if (result != pcm_units::result::ready) return result;
  state.hasUnit = true;
  state.sent = 0;
  state.pts =
      normalise(state.basePts + static_cast<double>(state.framesBefore) * 2.7e7 / state.sampleRate);
  state.framesBefore += state.unit.frames;
  const int header = pes_header_size(fields_of(*state.stream, state.unit.bytes, state.pts));
  state.model.removals.push({state.pts, static_cast<int32_t>(state.unit.bytes) + header});
  return result;
}

// Fields of the adaptation field that belong to the start of a PES packet.
void mark_pes_start(tsm_stream& stream, tsm_packet& packet, const tsm_time& now) {
  if (stream.has(kPcrPes) && stream.has(kCarriesPcr) && !stream.has(kPacketHasPcr)) {
    insert_pcr(stream, packet, now, stream.nextTime);
  }
  if (stream.has2(kRandomAccess)) {
    add_adaptation_flags(packet, kRandomAccessFlag);
    set_event(packet, kEventAccessPoint);
  }
}

bool is_withheld(const pcm_state& state, const tsm_packet& packet, double now) {
  return would_overflow(state.model, payload_place(packet)) ||
         signed_difference(state.pts, now) > kEarly;
}

void fill_packet(pcm_state& state, const tsm_stream& stream, tsm_packet& packet) {
  const pes_fields pes = fields_of(stream, state.unit.bytes, state.pts);
  const int header = state.sent == 0 ? pes_header_size(pes) : 0;
  const int room = static_cast<int>(kPacketBytes) - payload_place(packet) - header;
  const auto left = static_cast<int>(state.unit.bytes - state.sent);
  int payload = std::min(left, room);
  // A field of a single length byte is what NoEmptyAF forbids: the last byte goes into the next
  // packet, and leaves room for a flags byte.
  const bool shortField = state.noEmptyAf && room - payload == 1;
  if (shortField && payload_place(packet) == kTsHeaderBytes && payload > 1) payload -= 1;
  add_stuffing(packet, room - payload);

  uint8_t* at = packet.bytes + payload_place(packet);
  if (header > 0) {
    packet.bytes[1] |= kUnitStartBit;
    at += put_pes_header(at, pes);
  }
  std::memcpy(at, state.payload.data() + state.sent, static_cast<size_t>(payload));
  state.sent += static_cast<size_t>(payload);
  state.model.level += header + payload;
  if (state.sent == state.unit.bytes) state.hasUnit = false;
}

}  // namespace

double pcm_stream_rate(const tsm_stream& stream, size_t bytes, double perSecond, bool noEmptyAf) {
  int all = pes_header_size(fields_of(stream, bytes, 0)) + static_cast<int>(bytes);
  if (stream.has2(kRandomAccess)) all += 2;
  const int packets = (all + kPayloadBytes - 1) / kPayloadBytes + (noEmptyAf ? 1 : 0);
  return packets * 1504.0 * perSecond * kRateMargin;
}

void make_pcm_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux&) {
  auto& state = static_cast<pcm_state&>(*stream.state);
  const double ticks = ticks_of(now);
  packet.events[0] = packet.events[1] = 0;
  run_removals(state.model, packet, ticks, [&](int64_t missing) {
    state.report->warn(kUnderflow, stream.pid(), missing);
    const double period = static_cast<double>(state.unit.frames) * 2.7e7 / state.sampleRate;
    state.basePts = normalise(state.basePts + period);
  });
  const unsigned events = packet.events[0];
  stream.clear(kPacketHasPcr);
  const pcm_units::result ready = unit_ready(state);
  if (ready == pcm_units::result::ended) {
    end_stream(stream, packet);
    stream.step_times();
    return;
  }

  begin_packet(stream, packet, false);
  set_event(packet, events);
  insert_initial_discontinuity(stream, packet);
  if (pcr_is_due(stream, stream.nextTime)) insert_pcr(stream, packet, now, stream.nextTime);

  packet_draft draft(stream, packet);
  const bool sendable = ready == pcm_units::result::ready;
  if (sendable && state.sent == 0) mark_pes_start(stream, packet, now);
  if (!sendable || is_withheld(state, packet, ticks)) {
    draft.withhold();
  } else {
    fill_packet(state, stream, packet);
  }
  stream.step_times();
}

size_t pcm_units_to_send(const tsm_stream& stream) {
  return static_cast<const pcm_state&>(*stream.state).hasUnit ? 1 : 0;
}

}  // namespace zel::mux
