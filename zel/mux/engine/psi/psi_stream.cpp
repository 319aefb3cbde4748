#include "zel/mux/engine/psi/psi_stream.h"

#include <algorithm>
#include <cstring>

#include "zel/mux/engine/packet/packet_header.h"
#include "zel/mux/engine/stream/pcr_schedule.h"

namespace zel::mux {

namespace {

constexpr double kQuickSpacing = 40608;   // 27 MHz ticks between packets: 1 Mbit/s
constexpr double kPacedSpacing = 507600;  // 80 kbit/s, the leak rate of the PSI buffer

size_t packets_of(const psi_state& state) {
  size_t packets = 0;
  for (const psi_section& section : state.sections) {
    packets += (section.bytes.size() + kPayloadBytes) / kPayloadBytes;
  }
  return packets;
}

// The section to send next among those not half sent: the earliest, if it is due.
int earliest_due(const psi_state& state, const tsm_time& now) {
  int found = -1;
  for (size_t i = 0; i < state.sections.size(); ++i) {
    const psi_section& section = state.sections[i];
    if (is_before(now, section.nextSending)) continue;
    if (found < 0 || is_before(section.nextSending, state.sections[found].nextSending)) {
      found = static_cast<int>(i);
    }
  }
  return found;
}

// Its interval later; where more than one interval was missed the missed ones are not made up for.
void section_sent(psi_state& state, int index, const tsm_time& now) {
  psi_section& section = state.sections[index];
  if (section.oneShot) {
    state.sections.erase(state.sections.begin() + index);
    return;
  }
  section.nextSending = add(section.nextSending, section.interval);
  if (is_before(section.nextSending, now)) section.nextSending = add(now, section.interval);
}

// Rests until the next section is due.
void rest(tsm_stream& stream, const psi_state& state) {
  stream.set(kSourceEnded);
  if (state.sections.empty()) {
    stream.set(kNoMorePackets);
    return;
  }
  const auto earlier = [](const psi_section& a, const psi_section& b) {
    return is_before(a.nextSending, b.nextSending);
  };
  stream.nextTime = std::ranges::min_element(state.sections, earlier)->nextSending;
  stream.dueTime = add(stream.nextTime, stream.interval);
}

void come_again(tsm_stream& stream, const psi_state& state, const tsm_time& now) {
  const size_t packets = packets_of(state);
  stream.nextTime = now;
  if (packets >= 3) {
    stream.nextTime = add_ticks(now, packets > 8 ? kPacedSpacing : kQuickSpacing);
    if (packets > 8) stream.set(kPacedPsi);
  }
  stream.dueTime = add(stream.nextTime, stream.interval);
}

uint8_t* write_header(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, bool starts) {
  const int pid = stream.pid();
  stream.set_continuity(stream.continuity() + 1u);
  uint8_t* bytes = packet.bytes;
  bytes[0] = 0x47;
  bytes[1] = static_cast<uint8_t>((starts ? 0x40 : 0) |
                                  (stream.has(kTransportPriority) ? 0x20 : 0) | pid >> 8);
  bytes[2] = static_cast<uint8_t>(pid);
  bytes[3] = static_cast<uint8_t>(0x10 | stream.continuity());
  set_event(packet, pid == 0 ? kEventPat : kEventPsi);
  if (!pcr_is_due(stream, stream.nextTime)) return bytes + 4;
  schedule_next_pcr(stream, now, stream.nextTime);
  bytes[3] |= 0x20;
  bytes[4] = kAdaptationWithPcr - 1;
  bytes[5] = pcr_flags(stream, packet);
  return bytes + 4 + kAdaptationWithPcr;
}

}  // namespace

void psi_make_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux&) {
  stream.clear(kPacketHasPcr);
  auto& state = static_cast<psi_state&>(*stream.state);
  const bool starts = state.current < 0;
  if (starts) {
    state.current = earliest_due(state, now);
    state.position = 0;
  }
  if (state.current < 0) {
    packet.make_null();
    rest(stream, state);
    return;
  }
  stream.clear(kSourceEnded);
  uint8_t* out = write_header(stream, now, packet, starts);
  uint8_t* const end = packet.bytes + kPacketBytes;
  if (starts) *out++ = 0;  // pointer_field

  const tsm_time due = state.sections[state.current].nextSending;
  while (state.current >= 0) {
    const std::vector<uint8_t>& bytes = state.sections[state.current].bytes;
    const size_t size = std::min<size_t>(bytes.size() - state.position, end - out);
    std::memcpy(out, bytes.data() + state.position, size);
    out += size;
    state.position += size;
    if (state.position < bytes.size()) break;
    section_sent(state, state.current, now);
    state.current = -1;
    // Behind the rest of a section a new one would need a pointer: it has its own packet.
    if (!starts) break;
    const int next = earliest_due(state, now);
    if (next < 0 || state.sections[next].nextSending != due ||
        state.sections[next].bytes.size() > static_cast<size_t>(end - out)) {
      break;
    }
    state.current = next;
    state.position = 0;
  }
  std::memset(out, 0xFF, static_cast<size_t>(end - out));

  if (state.current >= 0 || earliest_due(state, now) >= 0) {
    come_again(stream, state, now);
  } else {
    rest(stream, state);
  }
}

double psi_rate(const psi_state& state) {
  double rate = 0;
  for (const psi_section& section : state.sections) {
    const double interval = ticks_of(section.interval);
    if (!section.oneShot && interval > 0)
      rate += static_cast<double>(section.bytes.size()) * 8 * 2.7e7 / interval;
  }
  return rate;
}

}  // namespace zel::mux
