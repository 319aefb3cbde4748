#include "zel/mux/engine/packet/video_packets.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/packet/au_information.h"
#include "zel/mux/engine/packet/clock_insertion.h"
#include "zel/mux/engine/packet/model_steps.h"
#include "zel/mux/engine/packet/pes_header.h"
#include "zel/mux/engine/run/reporting.h"

// A PES packet starts where a transport packet does, but an access unit need not: unless the stream
// is aligned, the PES packet of an access unit begins with what is left of the one before, so that
// no packet is stuffed. Its time stamps are those of the first access unit that commences in it
// (ISO/IEC 13818-1, 2.4.3.7).
//
// What every packet passes is declared inline: it's much for a compiler's own taste, and a tenth of
// the time that the multiplexer takes.
//
// A packet is planned before it's tested against the buffer, since the test counts the bytes of its
// headers. What the plan did to the stream is taken back when the packet is withheld.

namespace zel::mux {

namespace {

constexpr int kUnderflow = 0;
constexpr int kStrictVbvFailed = 26;
constexpr int kMissingDelimiter = 135;
constexpr int kUnitTooShort = 136;
constexpr int kPaddedSmallUnits = 138;

constexpr double kEarlyNal = 269'000'000;   // 9.96 s
constexpr double kEarlyOther = 26'000'000;  // 0.963 s
constexpr int kMostStrictHolds = 10;
constexpr int kDelimiterBytes = 6;
constexpr int32_t kMostInput = 1 << 29;
constexpr int kEndCodeReach = 368;

bool is_nal_coded(const video_state& state) {
  return state.characteristics.coding == video_coding::avc ||
         state.characteristics.coding == video_coding::hevc;
}

bool waits_for_unit(const video_state& state, size_t index) {
  if (state.sourceEnded) return false;
  const size_t count = state.units.size();
  return count <= index || count < state.leastUnits || !state.units[index].timed;
}

void scan_for_unit(video_state& state, size_t index) {
  while (waits_for_unit(state, index)) {
    if (state.units.full() || state.model.removals.size() >= kFullRemovals) break;
    const size_t before = state.units.size();
    const int64_t scanned = state.scanPosition;
    const int64_t loaded = state.input.end_position();
    if (state.scan == nullptr) break;
    state.scan(state);
    if (state.units.size() != before || state.scanPosition != scanned || state.sourceEnded)
      continue;
    if (state.input.end_position() != loaded) continue;
    // Nothing moved: either the source has nothing just now, or one unit needs a larger buffer.
    if (state.input.room() > 0 || state.input.capacity() >= kMostInput) break;
    state.input.grow(state.input.capacity() * 2);
  }
}

}  // namespace

bool video_unit_ready(video_state& state, size_t index) {
  if (waits_for_unit(state, index)) {
    scan_for_unit(state, index);
    if (waits_for_unit(state, index)) return false;
  }
  return state.units.size() > index;
}

namespace {

// The sequence end code behind the last picture, unless it's there.
inline void append_end_code(video_state& state) {
  constexpr std::array<uint8_t, 4> kEndCode{0x00, 0x00, 0x01, 0xB7};
  if (!state.config->insertSec || state.cursor.endCodeChecked || !state.sourceEnded) return;
  if (state.units.empty() || state.input.filled() >= kEndCodeReach || is_nal_coded(state)) return;
  state.cursor.endCodeChecked = true;

  std::array<uint8_t, kEndCodeReach> rest;
  const int32_t count = state.input.filled();
  state.input.copy(state.input.read_position(), rest.data(), count);
  const auto end = rest.begin() + count;
  if (std::search(rest.begin(), end, kEndCode.begin(), kEndCode.end()) != end) return;
  if (!state.input.append(kEndCode)) return;
  state.units.back().size += static_cast<int32_t>(kEndCode.size());
  if (!state.model.removals.empty()) {
    state.model.removals.back().size += static_cast<int32_t>(kEndCode.size());
  }
}

// Takes `count` bytes of the unit as it's sent, from `from` on. They come in order.
inline void take_unit(video_state& state, const access_unit& unit, int32_t from, uint8_t* to,
                      int32_t count) {
  elementary_input& input = state.input;
  // What lies between units belongs to none.
  if (input.read_position() < unit.start) {
    input.skip(static_cast<int32_t>(unit.start - input.read_position()));
  }
  if (unit.delimiterBytes == 0 && unit.quadBytePad == 0) {
    input.take(to, count);
    return;
  }
  const uint8_t delimiter[kDelimiterBytes] = {
      0, 0, 0, 1, 9, static_cast<uint8_t>(unit.primaryPicType << 5 | 0x10)};
  const int32_t padAt = unit.delimiterBytes + unit.pictureStart;
  const int32_t padEnd = padAt + unit.quadBytePad;
  for (const int32_t end = from + count; from < end;) {
    int32_t piece = 1;
    if (from < unit.delimiterBytes) {
      *to = delimiter[from];
    } else if (from >= padAt && from < padEnd) {
      *to = 0;
    } else {
      piece = (from < padAt ? std::min(padAt, end) : end) - from;
      input.take(to, piece);
    }
    from += piece;
    to += piece;
  }
}

struct plan {
  int header = 0;   // bytes before the payload, PES header included
  int payload = 0;  // bytes of access units
  bool startsPes = false;
  const access_unit* stamped = nullptr;  // whose time stamps the PES packet has
  pes_fields pes;
  double timeOfUnfinished = 0;  // of the first unit that this packet doesn't finish
};

int32_t remaining(const video_state& state) {
  return state.units.front().base_size() - state.cursor.unitSent;
}

int32_t dependent_remaining(const video_state& state) {
  return state.units.front().dependentSize - state.cursor.dependentSent;
}

// Once both layers of the front unit are sent, it goes.
void leave_unit(video_state& state) {
  if (remaining(state) > 0 || dependent_remaining(state) > 0) return;
  state.units.pop();
  state.cursor.unitSent = state.cursor.dependentSent = 0;
}

bool cut_by_length(const video_state& state) {
  return state.config->maxPesLen >= 184;
}

// Which unit commences in the packet and wants a PES packet of its own, or null.
const access_unit* unit_of_new_pes(video_state& state, const tsm_stream& stream, int room) {
  video_cursor& cursor = state.cursor;
  if (cursor.unitSent == 0) {
    if (cursor.nextUnitHasPes || cursor.pesUnitsLeft > 0) return nullptr;
    return &state.units.front();
  }
  if (stream.has(kAligned) || cut_by_length(state)) return nullptr;
  if (cursor.nextUnitHasPes || cursor.pesUnitsLeft > 0 || remaining(state) >= room) return nullptr;
  return video_unit_ready(state, 1) ? &state.units[1] : nullptr;
}

void plan_pes(video_state& state, tsm_stream& stream, plan& packet) {
  pes_fields& pes = packet.pes;
  pes.streamId = stream.pesId;
  pes.headerFlags = static_cast<uint8_t>(stream.flags2 >> 1 & 0x0F);
  pes.unbounded = !cut_by_length(state);
  if (stream.pesId == kExtendedStreamId) {
    pes.hasIdExtension = true;
    pes.idExtension = stream.pesIdExtension;
  }
  if (packet.stamped != nullptr && !state.privateData.empty()) {
    set_private_data(pes, state.privateData.due(packet.stamped->pts, state.firstPts));
  }
  if (packet.stamped != nullptr && stream.PTSnPESCount == 0) {
    pes.hasPts = true;
    pes.pts = packet.stamped->pts;
    pes.dts = packet.stamped->dts;
    pes.hasDts = static_cast<int64_t>(pes.pts / 300) != static_cast<int64_t>(pes.dts / 300);
  }
  if (cut_by_length(state)) {
    // The whole PES packet, header included, keeps to the length.
    const int32_t room = std::min(state.config->maxPesLen, 65'535) - pes_header_size(pes);
    pes.payloadLength = std::max(std::min(remaining(state), room), 1);
  }
}

// Fields of the adaptation field that belong to the start of an access unit.
void mark_unit_start(video_state& state, tsm_stream& stream, const access_unit& unit,
                     tsm_packet& packet, const tsm_time& now) {
  const bool clock = stream.has(kPcrPes) || (stream.has2(kPcrGop) && unit.sequenceHeader);
  if (clock && stream.has(kCarriesPcr) && !stream.has(kPacketHasPcr)) {
    insert_extra_pcr(stream, packet, now, now);
  }
  if (unit.keyPoint && stream.has2(kRandomAccess)) {
    add_adaptation_flags(packet, kRandomAccessFlag);
    set_event(packet, kEventAccessPoint);
  }
  if (unit.pictureType == kPictureB) set_event(packet, kEventNonAnchor);
  if (state.config->auInfo) {
    add_private_data(packet, au_information(state.characteristics.coding, unit));
  }
}

// ISO/IEC 13818-1, 2.7.4: time stamps come at most 0.7 s apart. A unit that would go without is
// held to that where so many fit into one packet.
bool needs_stamp(const video_state& state, const plan& packet, const access_unit& unit) {
  constexpr double kLongestInterval = 0.7 * 2.7e7;
  const double stamped = packet.stamped != nullptr ? packet.stamped->dts : state.cursor.stampedDts;
  const double next = unit.dts + state.characteristics.framePeriod;
  return signed_difference(next, stamped) > kLongestInterval;
}

// What tells whether a unit comes too early.
double tested_time(const video_state& state, const access_unit& unit) {
  return is_nal_coded(state) ? unit.dts : unit.pts;
}

void plan_payload(video_state& state, const tsm_stream& stream, plan& packet) {
  const int room = static_cast<int>(kPacketBytes) - packet.header;
  int32_t first = remaining(state);
  if (cut_by_length(state)) {
    first =
        std::min(first, packet.startsPes ? packet.pes.payloadLength : state.cursor.pesBytesLeft);
  }
  packet.payload = std::min(first, room);
  size_t unfinished = packet.payload < remaining(state) ? 0 : 1;

  // More units follow in the packet, but only one that has a PES packet of its own.
  const bool stops = stream.has(kAligned) || cut_by_length(state);
  int left = static_cast<int>(stream.PESnau);
  if (packet.stamped == nullptr) left = state.cursor.pesUnitsLeft;
  if (packet.stamped == &state.units.front()) left -= 1;
  bool stampedAhead = state.cursor.nextUnitHasPes ||
                      (packet.stamped != nullptr && packet.stamped != &state.units.front());
  if (state.cursor.nextUnitHasPes && state.cursor.unitSent > 0) {
    left = std::max(left, 1);
  }
  while (!stops && packet.payload < room && video_unit_ready(state, unfinished)) {
    if (!stampedAhead && left <= 0) {
      if (state.config->padSmallAu || stream.PESnau >= 2) {
        if (!state.cursor.paddedSmall) state.report->warn(kPaddedSmallUnits, stream.pid());
        state.cursor.paddedSmall = true;
        break;
      }
      if (needs_stamp(state, packet, state.units[unfinished])) break;
    }
    stampedAhead = false;
    left -= 1;
    const int32_t size = state.units[unfinished].base_size();
    const int32_t piece = std::min<int32_t>(size, room - packet.payload);
    packet.payload += piece;
    if (piece < size) break;
    ++unfinished;
  }
  packet.timeOfUnfinished =
      tested_time(state, state.units[std::min(unfinished, state.units.size() - 1)]);
}

// A packet with `header` bytes before its payload; `timeOfUnfinished` is that of the first unit
// that it doesn't finish.
inline bool is_withheld(video_state& state, const tsm_stream& stream, int header,
                        double timeOfUnfinished, double now) {
  const Morvalen::Zel::tsm_video& config = *state.config;
  const access_unit& unit = state.units.front();
  if (would_overflow(state.model, header)) return true;
  if (state.model.removals.size() >= kFullRemovals) return true;
  if (config.stillPicSpacing > 0 &&
      signed_difference(unit.dts, now) >
          config.stillPicSpacing * state.characteristics.framePeriod) {
    return true;
  }
  if (config.stillPicOffset == 0) {
    double early = is_nal_coded(state) ? kEarlyNal : kEarlyOther;
    if (config.maxDecodeDelay > 1000) early = config.maxDecodeDelay * 300.0;
    if (signed_difference(timeOfUnfinished, now) > early) return true;
  }
  if (!config.strictVbv || remaining(state) > 184 ||
      signed_difference(now + state.characteristics.vbvDelay * 300.0, unit.dts) >= 0) {
    state.cursor.strictHolds = 0;
    return false;
  }
  if (++state.cursor.strictHolds <= kMostStrictHolds) return true;
  state.cursor.strictHolds = 0;
  state.report->warn(kStrictVbvFailed, stream.pid());
  return false;
}

// Counts PES packets and units once a packet goes out.
void commit_pes(video_state& state, tsm_stream& stream, const plan& packet) {
  if (!packet.startsPes) return;
  video_cursor& cursor = state.cursor;
  if (packet.stamped != nullptr) {
    state.cursor.stampedDts = packet.stamped->dts;
    cursor.pesUnitsLeft = static_cast<int32_t>(std::max(stream.PESnau, 1u));
    cursor.nextUnitHasPes = true;
    state.privateData.sent();
    stream.PTSnPESCount =
        stream.PTSnPESCount == 0 ? std::max(stream.PTSnPES, 1u) - 1 : stream.PTSnPESCount - 1;
  }
  cursor.pesBytesLeft = packet.pes.payloadLength;
}

// The next `count` bytes of the front unit.
inline void send_bytes(video_state& state, const access_unit& unit, uint8_t* to, int32_t count) {
  if (cut_by_length(state)) state.cursor.pesBytesLeft -= count;
  take_unit(state, unit, state.cursor.unitSent, to, count);
  state.cursor.unitSent += count;
}

void copy_payload(video_state& state, uint8_t* to, int32_t count) {
  video_cursor& cursor = state.cursor;
  while (count > 0) {
    const access_unit& unit = state.units.front();
    if (cursor.unitSent == 0) {
      cursor.nextUnitHasPes = false;
      cursor.pesUnitsLeft -= cursor.pesUnitsLeft > 0 ? 1 : 0;
    }
    const int32_t piece = std::min(count, remaining(state));
    send_bytes(state, unit, to, piece);
    to += piece;
    count -= piece;
    leave_unit(state);
  }
}

void fill_packet(video_state& state, tsm_stream& stream, plan& plan, tsm_packet& packet) {
  int stuffing = static_cast<int>(kPacketBytes) - plan.header - plan.payload;
  int zeros = 0;
  // A field of a single length byte is what NoEmptyAF forbids: a zero byte behind the unit, which
  // no start code minds, fills the packet instead; a PES packet of told length is cut by a byte.
  if (state.noEmptyAf && stuffing == 1 && payload_place(packet) == kTsHeaderBytes) {
    if (cut_by_length(state) && plan.payload > 1) {
      plan.payload -= 1;
      stuffing = 2;
    } else {
      zeros = 1;
      stuffing = 0;
    }
  }
  add_stuffing(packet, stuffing);
  uint8_t* at = packet.bytes + payload_place(packet);
  if (plan.startsPes) {
    packet.bytes[1] |= kUnitStartBit;
    at += put_pes_header(at, plan.pes);
  }
  commit_pes(state, stream, plan);
  copy_payload(state, at, plan.payload);
  if (zeros > 0) at[plan.payload] = 0;
  state.model.level += plan.payload;
}

// Of the packets of a unit in two layers each layer gets as many in a row as its share is larger.
inline bool is_dependent_turn(video_state& state) {
  const int32_t base = remaining(state);
  const int32_t dependent = dependent_remaining(state);
  if (dependent <= 0) return false;
  if (base <= 0) return true;
  int32_t& turn = state.cursor.layerTurn;  // above 0: of the base layer, below: of the other
  if (turn == 0) turn = std::max(base / dependent, 1);
  return turn < 0;
}

inline void end_layer_turn(video_state& state, bool dependent) {
  int32_t& turn = state.cursor.layerTurn;
  if (dependent) {
    turn += turn < 0 ? 1 : 0;
    return;
  }
  if (turn > 0 && --turn == 0 && !state.units.empty() && remaining(state) > 0) {
    turn = -std::max(dependent_remaining(state) / remaining(state), 1);
  }
}

// Most packets are from the middle of a unit: nothing but payload behind the four bytes, and the
// unit goes on in the next. Such packets are made without plan and draft, which would come to the
// same. So many follow at `now`; what comes later may say less.
inline int64_t inner_packets(video_state& state, const tsm_stream& stream, const tsm_time& now,
                             double ticks) {
  if (state.cursor.unitSent == 0) return 0;
  int64_t packets = (remaining(state) - 1) / kPayloadBytes;
  if (cut_by_length(state)) {
    packets = std::min<int64_t>(packets, state.cursor.pesBytesLeft / kPayloadBytes);
  }
  if (packets <= 0 || stream.has(kInitDiPending) || pcr_is_due(stream, now)) return 0;
  const double tested = tested_time(state, state.units.front());
  return is_withheld(state, stream, kTsHeaderBytes, tested, ticks) ? 0 : packets;
}

inline void make_inner_packet(video_state& state, tsm_stream& stream, tsm_packet& packet) {
  step_header(stream, packet);
  send_bytes(state, state.units.front(), packet.bytes + kTsHeaderBytes, kPayloadBytes);
  state.model.level += kPayloadBytes;
}

// A packet of the second layer, on its own PID. Each access unit's part is a PES packet of its own
// with the base layer's time stamps.
void make_dependent_packet(video_state& state, tsm_stream& stream, tsm_packet& packet,
                           double ticks) {
  video_cursor& cursor = state.cursor;
  const access_unit& unit = state.units.front();
  plan plan;
  plan.startsPes = cursor.dependentSent == 0;
  plan.header = kTsHeaderBytes;
  if (plan.startsPes) {
    plan.stamped = &unit;
    plan.pes.streamId = stream.pesId;
    plan.pes.headerFlags = static_cast<uint8_t>(stream.flags2 >> 1 & 0x0F);
    plan.pes.unbounded = true;
    plan.pes.hasPts = true;
    plan.pes.pts = unit.pts;
    plan.pes.dts = unit.dts;
    plan.pes.hasDts = static_cast<int64_t>(unit.pts / 300) != static_cast<int64_t>(unit.dts / 300);
    plan.header += pes_header_size(plan.pes);
  }
  plan.timeOfUnfinished = unit.dts;
  if (is_withheld(state, stream, plan.header, plan.timeOfUnfinished, ticks)) {
    packet.make_null();
    return;
  }
  cursor.dependentContinuity = (cursor.dependentContinuity + 1) & 15;
  put_ts_header(packet.bytes, stream.pmt.layerPid, plan.startsPes, stream.has(kTransportPriority),
                false, true, cursor.dependentContinuity);
  plan.payload =
      std::min(dependent_remaining(state), static_cast<int32_t>(kPacketBytes) - plan.header);
  add_stuffing(packet, static_cast<int>(kPacketBytes) - plan.header - plan.payload);
  uint8_t* at = packet.bytes + payload_place(packet);
  if (plan.startsPes) at += put_pes_header(at, plan.pes);
  elementary_input& input = state.dependentInput;
  const int64_t begin = unit.dependentStart + cursor.dependentSent;
  if (input.read_position() < begin)
    input.skip(static_cast<int32_t>(begin - input.read_position()));
  input.take(at, plan.payload);
  cursor.dependentSent += plan.payload;
  state.model.level += plan.payload;
  leave_unit(state);
  end_layer_turn(state, true);
}

}  // namespace

void plan_insertions(video_state& state, access_unit& unit) {
  unit.delimiterBytes = unit.quadBytePad = 0;
  const int pid = state.stream->pid();
  if (state.config->insertAvcAud && state.characteristics.coding == video_coding::avc &&
      !unit.hasDelimiter) {
    if (unit.size < kDelimiterBytes) {
      state.report->warn(kUnitTooShort, pid);
    } else {
      if (!state.cursor.insertedDelimiter) state.report->warn(kMissingDelimiter, pid);
      state.cursor.insertedDelimiter = true;
      unit.delimiterBytes = kDelimiterBytes;
    }
  }
  if (state.config->quadByte) {
    unit.quadBytePad = static_cast<uint8_t>(-(unit.delimiterBytes + unit.pictureStart) & 3);
  }
}

namespace {

// What goes before any packet: removals, the wait for a unit, the second layer's turn. False where
// the slot's answer is there with it.
inline bool begin_slot(video_state& state, tsm_stream& stream, double ticks, tsm_packet& packet) {
  packet.events[0] = packet.events[1] = 0;
  run_removals(state.model, packet, ticks, [&](int64_t missing) {
    state.report->warn(kUnderflow, stream.pid(), missing);
    state.runningDts = normalise(state.runningDts + state.characteristics.framePeriod);
  });
  stream.clear(kPacketHasPcr);
  if (!video_unit_ready(state, 0)) {
    if (state.sourceEnded && state.units.empty()) {
      end_stream(stream, packet);
    } else {
      packet.make_null();
    }
    return false;
  }
  append_end_code(state);
  if (!is_dependent_turn(state)) return true;
  make_dependent_packet(state, stream, packet, ticks);
  return false;
}

// Any packet of the stream's own PID.
void make_planned_packet(video_state& state, tsm_stream& stream, const tsm_time& now, double ticks,
                         tsm_packet& packet) {
  const unsigned events = packet.events[0];
  begin_packet(stream, packet, false);
  set_event(packet, events);
  insert_initial_discontinuity(stream, packet);
  if (pcr_is_due(stream, now)) insert_pcr(stream, packet, now, now);

  packet_draft draft(stream, packet);

  plan plan;
  const int room = static_cast<int>(kPacketBytes) - payload_place(packet);
  plan.stamped = unit_of_new_pes(state, stream, room);
  // A PES packet of told length ends with its unit at the latest: the unit's rest, and with PESnau
  // the units that go with it, have PES packets of their own, without time stamps.
  const bool continued =
      cut_by_length(state) && plan.stamped == nullptr && state.cursor.pesBytesLeft <= 0;
  plan.startsPes = plan.stamped != nullptr || continued;
  if (state.cursor.unitSent == 0 && plan.stamped != nullptr) {
    mark_unit_start(state, stream, *plan.stamped, packet, now);
  } else if (plan.stamped != nullptr && stream.has(kPcrPes) && stream.has(kCarriesPcr) &&
             !stream.has(kPacketHasPcr)) {
    insert_extra_pcr(stream, packet, now, now);
  }
  plan.header = payload_place(packet);
  if (plan.startsPes) {
    plan_pes(state, stream, plan);
    plan.header += pes_header_size(plan.pes);
  }
  plan_payload(state, stream, plan);

  if (is_withheld(state, stream, plan.header, plan.timeOfUnfinished, ticks)) {
    draft.withhold();
  } else {
    fill_packet(state, stream, plan, packet);
    end_layer_turn(state, false);
  }
}

}  // namespace

void make_video_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux&) {
  auto& state = static_cast<video_state&>(*stream.state);
  const double ticks = ticks_of(now);
  if (begin_slot(state, stream, ticks, packet)) {
    if (inner_packets(state, stream, now, ticks) > 0) {
      make_inner_packet(state, stream, packet);
      end_layer_turn(state, false);
    } else {
      make_planned_packet(state, stream, now, ticks, packet);
    }
  }
  stream.step_times();
}

// Between the packets of a stretch nothing may leave the decoder's buffer, no clock be due, and no
// other bytes be wanted: a second layer's, or an end code.
bool plan_video_stretch(tsm_stream& stream, const tsm_time& now, packet_stretch& stretch) {
  constexpr int64_t kWorthwhile = 4;
  auto& state = static_cast<video_state&>(*stream.state);
  if (state.units.empty() || waits_for_unit(state, 0) || state.cursor.layerTurn != 0) return false;
  if (dependent_remaining(state) > 0 || (state.config->insertSec && state.sourceEnded))
    return false;
  const double ticks = ticks_of(now);
  const buffer_model& model = state.model;
  if (!model.removals.empty()) {
    const double left = signed_difference(model.removals.front().time, ticks);
    if (left <= 1) return false;
    stretch.until = earlier(stretch.until, add_ticks(now, left - 1));
  }
  if (stream.has(kCarriesPcr)) stretch.until = earlier(stretch.until, stream.pcrNext);
  const int64_t room = (model.limit - 1 - model.level - model.heldBack) / kPayloadBytes;
  stretch.packets = std::min({stretch.packets, room, inner_packets(state, stream, now, ticks)});
  if (stretch.packets < kWorthwhile) return false;
  stream.clear(kPacketHasPcr);
  return true;
}

void make_inner_video_packet(tsm_stream& stream, tsm_packet& packet) {
  make_inner_packet(static_cast<video_state&>(*stream.state), stream, packet);
  stream.step_times();
}

void plan_video_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux&) {
  auto& state = static_cast<video_state&>(*stream.state);
  const double ticks = ticks_of(now);
  if (begin_slot(state, stream, ticks, packet)) {
    make_planned_packet(state, stream, now, ticks, packet);
  }
  stream.step_times();
}

size_t video_units_to_send(const tsm_stream& stream) {
  return static_cast<const video_state&>(*stream.state).units.size();
}

}  // namespace zel::mux
