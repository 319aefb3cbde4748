#include "zel/mux/engine/run/table_stream.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "zel/mux/engine/packet/clock_insertion.h"
#include "zel/mux/engine/packet/packet_header.h"
#include "zel/mux/engine/run/table_sections.h"
#include "zel/mux/engine/stream/buffer_model.h"

// Tables go out in their order, TablesPerSecond of them in a second, and round again with Repeat.
// The buffer that a decoder has for them is kept to: 512 bytes that leak 1 Mbit/s, unless the
// record says other sizes (ISO/IEC 13818-1, 2.4.2.3, TBsys and Rxsys). A stream that repeats has
// told all once its first round is through: it doesn't keep a run from ending.

namespace zel::mux {

namespace {

using Morvalen::Zel::tsm_table;

constexpr int kNoTablesPerSecond = 83;
constexpr int kNoStartToAdjust = 123;  // a warning
constexpr int32_t kNegative = 3;
constexpr double kTransportLeak = 1e6;
constexpr size_t kRoom = kPayloadBytes;
constexpr uint8_t kPrivateSections = 0x05;
constexpr uint8_t kStuffing = 0xFF;

struct table_state : stream_state {
  const tsm_table* record = nullptr;
  std::vector<table_section> sections;
  size_t current = 0;
  size_t position = 0;  // the next byte of the current section
  double spacing = 0;   // of tables, 27 MHz ticks
  double due = 0;       // when the current section may begin
  double stop = 0;      // when the stream ends; 0: it doesn't
  bool started = false;
  bool over = false;

  // The decoder's transport buffer.
  double size = kTransportBufferBytes;
  double leak = kTransportLeak;  // bits per second
  double level = 0;
  double leakedAt = 0;
};

size_t packets_alone(const table_section& section) {
  return (1 + section.size() + kRoom - 1) / kRoom;
}

// Packets that a table's time has to hold. A table that is longer than others may not delay them;
// packed ones have no times of their own.
double packets_per_table(const table_state& state) {
  size_t most = 0;
  double bytes = 0;
  for (const table_section& section : state.sections) {
    most = std::max(most, packets_alone(section));
    bytes += static_cast<double>(section.size());
  }
  if (!state.record->pack) return static_cast<double>(most);
  // A pointer in each packet, which nearly every packet has where tables are short.
  return bytes / static_cast<double>(state.sections.size()) / static_cast<double>(kRoom - 1);
}

void set_rate(tsm_stream& stream, const table_state& state) {
  const tsm_table& record = *state.record;
  const double needed = packets_per_table(state) * record.tablesPerSecond * 1504;
  stream.set_rate(record.rate > 0 ? record.rate : needed);
}

bool fits_buffer(table_state& state, double now) {
  const double since = signed_difference(now, state.leakedAt);
  state.level = std::max(0.0, state.level - since * state.leak / 8 / 2.7e7);
  state.leakedAt = now;
  return state.level + static_cast<double>(kPacketBytes) <= state.size;
}

void section_sent(tsm_stream& stream, table_state& state) {
  state.position = 0;
  state.due = normalise(state.due + state.spacing);
  if (++state.current < state.sections.size()) return;
  state.current = 0;
  stream.set(kSourceEnded);
  if (!state.record->repeat) state.over = true;
}

// Fills the payload, pointer included. Behind a section that ends in the packet the next one begins
// with Pack; otherwise there is stuffing.
void put_sections(tsm_stream& stream, table_state& state, tsm_packet& packet, uint8_t* at,
                  uint8_t* const end) {
  const size_t left = state.sections[state.current].size() - state.position;
  const auto room = static_cast<size_t>(end - at);
  const bool begins = state.position == 0;
  const bool another =
      state.record->pack && (state.record->repeat || state.current + 1 < state.sections.size());
  // What begins behind the rest of a section needs a byte beside the pointer.
  const bool beginsBehind = !begins && another && left + 1 < room;
  if (begins || beginsBehind) {
    packet.bytes[1] |= kUnitStartBit;
    *at++ = static_cast<uint8_t>(begins ? 0 : left);
  }
  while (at < end) {
    const table_section& section = state.sections[state.current];
    const size_t count = std::min(section.size() - state.position, static_cast<size_t>(end - at));
    std::memcpy(at, section.data() + state.position, count);
    at += count;
    state.position += count;
    if (state.position < section.size()) break;
    section_sent(stream, state);
    // Without a pointer to it, nothing may begin.
    if (!state.record->pack || state.over || (!begins && !beginsBehind)) break;
  }
  std::memset(at, kStuffing, static_cast<size_t>(end - at));
}

// When the stream may go again.
void set_next(tsm_stream& stream, const table_state& state) {
  stream.step_times();
  if (state.position > 0 || state.record->pack || state.over) return;
  const tsm_time due = time_from_ticks(state.due);
  if (!is_before(stream.nextTime, due)) return;
  stream.nextTime = due;
  stream.dueTime = add(due, stream.interval);
}

void make_table_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux&) {
  auto& state = static_cast<table_state&>(*stream.state);
  const double ticks = ticks_of(now);
  stream.clear(kPacketHasPcr);
  if (!state.started) {
    state.started = true;
    state.leakedAt = ticks;
  }
  const bool stopped = state.stop > 0 && signed_difference(ticks, state.stop) >= 0;
  if (state.over || (stopped && state.position == 0)) {
    stream.set(kSourceEnded | kNoMorePackets);
    packet.make_null();
    stream.step_times();
    return;
  }
  const bool early =
      state.position == 0 && !state.record->pack && signed_difference(ticks, state.due) < 0;
  if (early) {
    packet.make_null();
    stream.nextTime = time_from_ticks(state.due);
    stream.dueTime = add(stream.nextTime, stream.interval);
    return;
  }
  if (!fits_buffer(state, ticks)) {
    packet.make_null();
    set_next(stream, state);
    return;
  }
  begin_packet(stream, packet, false);
  set_event(packet, kEventPsi);
  insert_initial_discontinuity(stream, packet);
  state.level += static_cast<double>(kPacketBytes);
  put_sections(stream, state, packet, packet.bytes + payload_place(packet),
               packet.bytes + kPacketBytes);
  if (state.over) stream.set(kNoMorePackets);
  set_next(stream, state);
}

// TimeOffset in 27 MHz ticks. Of a count of frames only the seconds are known: tables have no
// frame rate.
double time_offset(const tsm_table& record) {
  const Morvalen::Zel::tsm_time_code& time = record.timeOffset;
  double seconds = (time.hours * 60.0 + time.minutes) * 60 + time.seconds;
  if (time.isFraction != 0) seconds += time.frames / 1e6;
  return (time.sign == kNegative ? -seconds : seconds) * 2.7e7;
}

// Tables whose times lie before the beginning are left out, and the others keep their times.
void leave_out_early(table_state& state, double offset) {
  if (offset >= 0) return;
  const double count = std::ceil(-offset / state.spacing - 1e-9);
  state.due = normalise(state.due + offset + count * state.spacing);
  const auto tables = static_cast<double>(state.sections.size());
  if (count >= tables && !state.record->repeat) {
    state.over = true;
    return;
  }
  state.current = static_cast<size_t>(std::fmod(count, tables));
}

}  // namespace

std::unique_ptr<tsm_stream> open_table(const tsm_table& record, const Morvalen::Zel::tsm_program*,
                                       Morvalen::Zel::tsm_load_callback, tsm_mux& mux) {
  if (!(record.tablesPerSecond > 0)) {
    mux.reports.fatal(kNoTablesPerSecond, record.pid);
    return nullptr;
  }
  auto stream = std::make_unique<tsm_stream>();
  auto owned = std::make_unique<table_state>();
  table_state& state = *owned;
  state.record = &record;
  // Where both are there, the files win.
  state.sections = record.files.count > 0 ? sections_of_files(record, mux.reports)
                                          : sections_of_record(record, mux.reports);
  if (state.sections.empty()) return nullptr;
  if (record.tbSize > 0) state.size = std::max<double>(record.tbSize, kPacketBytes);
  if (record.tbDrainRate > 0) state.leak = record.tbDrainRate;
  stream->state = std::move(owned);
  stream->kind = stream_kind::table;
  stream->makePacket = make_table_packet;
  return stream;
}

void start_table(tsm_stream& stream, tsm_mux& mux) {
  auto& state = static_cast<table_state&>(*stream.state);
  const tsm_table& record = *state.record;
  state.spacing = 2.7e7 / record.tablesPerSecond;
  const double start = mux.startTime + mux.config->leader * 300.0;
  const double offset = time_offset(record);
  state.due = normalise(start + record.streamDelay * 300.0 + std::max(offset, 0.0));
  leave_out_early(state, offset);
  // Tables that bring no times of their own begin where they are told to.
  if (record.adjustStart) mux.reports.warn(kNoStartToAdjust, stream.pid());
  if (record.streamStop > 0) state.stop = normalise(start + record.streamStop * 300.0);
  set_rate(stream, state);
  if (!record.createPmtEntry) return;
  stream.pmt.listed = true;
  if (stream.pmt.streamType == 0) stream.pmt.streamType = kPrivateSections;
}

}  // namespace zel::mux
