#include "zel/mux/engine/packet/audio_packets.h"

#include <algorithm>
#include <cstring>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/packet/clock_insertion.h"
#include "zel/mux/engine/packet/model_steps.h"
#include "zel/mux/engine/packet/pes_header.h"
#include "zel/mux/engine/run/reporting.h"

// A PES packet of audio tells its length, so all of its frames are found before its header is
// written. It begins with a transport packet; and since stuffing would cost more than the headers
// do, it ends with one too: its payload is what its first packet takes and a number of whole
// packets. What is left of its last frame begins the next PES packet, whose time stamp is that of
// the first frame that commences in it (ISO/IEC 13818-1, 2.4.3.7). Aligned streams, and those of
// low latency, which don't let a frame's end wait for the next one, pay for the stuffing: their PES
// packets are whole frames.

namespace zel::mux {

namespace {

constexpr int kTooManyFrames = 25;  // fatal
constexpr int kUnderflow = 1;
constexpr int kPesTooLarge = 3;
constexpr int kTooShort = 14;

constexpr double kEarly = 26'000'000;  // 0.963 s
// The buffer limits are sizes of main buffers less this much for PES headers.
constexpr int32_t kHeaderRoom = 184;
constexpr int32_t kMostInput = 1 << 29;
constexpr int32_t kMostPesLength = 0xFFFF;
constexpr uint8_t kAlignmentFlag = 4;  // of pes_fields::headerFlags
constexpr int kPesFixedBytes = 6;      // in front of what PES_packet_length counts

enum class readiness { ready, ended, full, later };

// Whether frame `index` is queued. Scans for it.
readiness frame_ready(audio_state& state, size_t index) {
  while (state.frames.size() <= index) {
    if (state.sourceEnded) return readiness::ended;
    if (state.frames.full() || state.model.removals.size() >= kFullRemovals) return readiness::full;
    const size_t queued = state.frames.size();
    const int64_t scanned = state.scanPosition;
    const int64_t loaded = state.input.end_position();
    scan_audio(state);
    if (state.frames.size() != queued || state.scanPosition != scanned) continue;
    if (state.sourceEnded || state.input.end_position() != loaded) continue;
    // Nothing moved: either the source has nothing just now, or the buffer is full. Two frames it
    // has to hold; of how many more a PES packet is made is no reason to grow.
    if (state.input.room() > 0) return readiness::later;
    if (index > 1 || state.input.capacity() >= kMostInput) return readiness::full;
    state.input.grow(state.input.capacity() * 2);
  }
  return readiness::ready;
}

bool sends_whole_frames(const audio_state& state, const tsm_stream& stream) {
  return stream.has(kAligned) || state.config->lowLatency;
}

// What of the front frame hasn't been sent.
int32_t remaining(const audio_state& state) {
  return state.frames.front().size - state.cursor.frameSent;
}

struct plan {
  int header = 0;  // bytes before the payload, PES header included
  int payload = 0;
  bool startsPes = false;
  bool stamped = false;  // a frame commences in the PES packet
  bool full = false;     // its header has all that is due
  pes_fields pes;
};

// How many of the `packets` that follow the one under construction will carry a PCR, if none of
// them is withheld. Counts a few too far: a PCR that doesn't come leaves eight bytes of stuffing,
// one that wasn't counted pushes eight bytes into a packet of their own.
int32_t expected_pcrs(const tsm_stream& stream, int32_t packets) {
  if (!stream.has(kCarriesPcr) || packets <= 0) return 0;
  const double interval = ticks_of(stream.interval);
  const double step = ticks_of(stream.pcrStep);
  const int32_t followed = packets + 1 + packets / 4;
  const double until = interval * followed;
  const double first = signed_difference(ticks_of(stream.pcrNext), ticks_of(stream.nextTime));
  if (first > until) return 0;
  if (step <= 0) return packets;
  return std::min(packets, 1 + static_cast<int32_t>((until - std::max(first, 0.0)) / step));
}

// The payload of a PES packet of `frames` bytes whose first packet takes `room`.
int32_t whole_packets(const tsm_stream& stream, int32_t frames, int32_t room) {
  if (frames <= room) return frames;
  const int32_t packets = (frames - room) / kPayloadBytes;
  const int32_t bytes =
      room + packets * kPayloadBytes - expected_pcrs(stream, packets) * int32_t{kAdaptationWithPcr};
  return std::max(bytes, room);
}

// How far the PES packet that begins now reaches, when its first packet takes `room` bytes.
// Not ready: the source gives nothing just now, so its length can't be told yet.
readiness measure_pes(audio_state& state, const tsm_stream& stream, int32_t room, plan& packet) {
  const bool whole = sends_whole_frames(state, stream);
  const int32_t most = kMostPesLength - (pes_header_size(packet.pes) - kPesFixedBytes);
  const int32_t wanted = static_cast<int32_t>(std::max(stream.PESnau, 1u));
  const bool continues = state.cursor.frameSent > 0;
  int32_t bytes = continues ? remaining(state) : 0;
  const int32_t commences = bytes;
  size_t index = continues ? 1 : 0;

  // The rest of a frame that is longer than a PES packet can be.
  const bool restOnly = continues && (whole || bytes > most);
  int32_t frames = 0;
  readiness last = readiness::ready;
  while (!restOnly) {
    if (frames >= wanted &&
        (whole || (bytes >= room && whole_packets(stream, bytes, room) > commences))) {
      break;
    }
    last = frame_ready(state, index);
    if (last != readiness::ready) break;
    const int32_t size = state.frames[index].size;
    if (frames > 0 && bytes + size > most) {
      if (!state.cursor.toldTooLarge) {
        state.report->warn(kPesTooLarge, stream.pid(), int64_t{bytes} + size - most);
      }
      state.cursor.toldTooLarge = true;
      break;
    }
    bytes += size;
    ++frames;
    ++index;
  }
  if (last == readiness::later) return last;
  if (last == readiness::full && state.frames.full() && !state.cursor.toldTooMany) {
    state.cursor.toldTooMany = true;
    state.report->fatal(kTooManyFrames, stream.pid(), int64_t{kAudioFrames});
  }
  if (last == readiness::ended && !state.cursor.pesBegun && frames < wanted) {
    state.report->warn(kTooShort, stream.pid(), int64_t{stream.pid()});
  }
  const bool cut = bytes > most;
  bytes = std::min(bytes, most);
  // At the end of the stream nothing follows that the rest could go with.
  const bool ends = !cut && !whole && frame_ready(state, index) == readiness::ended;
  if (!whole && !ends) bytes = whole_packets(stream, bytes, room);
  packet.stamped = frames > 0 && commences < bytes;
  packet.pes.payloadLength = bytes;
  return bytes > 0 ? readiness::ready : readiness::later;
}

// The header of the PES packet that begins in this packet, behind `used` bytes.
readiness plan_pes(audio_state& state, const tsm_stream& stream, int used, plan& packet) {
  pes_fields& pes = packet.pes;
  pes.streamId = stream.pesId;
  pes.headerFlags = static_cast<uint8_t>(stream.flags2 >> 1 & 0x0F);
  if (stream.pesId == kExtendedStreamId) {
    pes.hasIdExtension = true;
    pes.idExtension = stream.pesIdExtension;
  }
  const size_t commencing = state.cursor.frameSent > 0 ? 1 : 0;
  const bool due = stream.PTSnPESCount == 0;
  const private_data_entry* data = nullptr;
  if (!state.privateData.empty() && frame_ready(state, commencing) == readiness::ready) {
    data = state.privateData.due(state.frames[commencing].pts, state.firstPts);
  }
  const bool extras = due || data != nullptr;
  // Without a frame that commences there is no time stamp and no private data, and the shorter
  // header makes room.
  for (const bool full : {extras, false}) {
    pes.hasPts = full && due;
    set_private_data(pes, full ? data : nullptr);
    packet.full = full;
    const int32_t room = static_cast<int32_t>(kPacketBytes) - used - pes_header_size(pes);
    const readiness ready = measure_pes(state, stream, room, packet);
    if (ready != readiness::ready) return ready;
    if (packet.stamped || !extras) break;
  }
  // With its time stamp gone, the PES packet counts for none that has one.
  if (extras && !packet.full) packet.stamped = false;
  if (!packet.stamped) pes.headerFlags = static_cast<uint8_t>(pes.headerFlags & ~kAlignmentFlag);
  if (pes.hasPts) pes.pts = state.frames[commencing].pts;
  return readiness::ready;
}

// The frame that the packet's last byte belongs to: the one that it finishes, or goes on with.
const audio_frame& last_frame(const audio_state& state, int32_t payload) {
  size_t index = 0;
  int32_t end = remaining(state);
  while (end < payload && index + 1 < state.frames.size()) end += state.frames[++index].size;
  return state.frames[index];
}

bool is_withheld(const audio_state& state, const plan& packet, double now) {
  if (would_overflow(state.model, packet.header)) return true;
  // Many short frames have more headers between them than the limit allows for.
  const int32_t header = packet.startsPes ? pes_header_size(packet.pes) : 0;
  if (state.model.level + packet.payload + state.headers.level() + header >
      state.model.limit + kHeaderRoom) {
    return true;
  }
  if (state.model.removals.size() >= kFullRemovals) return true;
  return signed_difference(last_frame(state, packet.payload).pts, now) > kEarly;
}

void copy_payload(audio_state& state, uint8_t* to, int32_t count) {
  audio_cursor& cursor = state.cursor;
  cursor.pesBytesLeft -= count;
  while (count > 0) {
    const audio_frame& frame = state.frames.front();
    // What lies between frames belongs to none.
    const int64_t at = frame.start + std::min(cursor.frameSent, frame.size - frame.padding);
    if (state.input.read_position() < at) {
      state.input.skip(static_cast<int32_t>(at - state.input.read_position()));
    }
    const int32_t real = frame.size - frame.padding - cursor.frameSent;
    const int32_t piece = std::min(count, real > 0 ? real : remaining(state));
    if (real > 0) {
      state.input.take(to, piece);
    } else {
      std::memset(to, 0, static_cast<size_t>(piece));
    }
    cursor.frameSent += piece;
    to += piece;
    count -= piece;
    if (remaining(state) > 0) continue;
    state.frames.pop();
    cursor.frameSent = 0;
  }
}

void fill_packet(audio_state& state, tsm_stream& stream, plan& plan, tsm_packet& packet) {
  int stuffing = static_cast<int>(kPacketBytes) - plan.header - plan.payload;
  // A field of a single length byte is what NoEmptyAF forbids: the last byte goes into the next
  // packet, and leaves room for a flags byte.
  if (state.noEmptyAf && stuffing == 1 && payload_place(packet) == kTsHeaderBytes) {
    plan.payload -= 1;
    stuffing = 2;
  }
  add_stuffing(packet, stuffing);
  uint8_t* at = packet.bytes + payload_place(packet);
  if (plan.startsPes) {
    packet.bytes[1] |= kUnitStartBit;
    at += put_pes_header(at, plan.pes);
    state.cursor.pesBegun = true;
    state.cursor.pesBytesLeft = plan.pes.payloadLength;
    if (plan.stamped) {
      state.privateData.sent();
      stream.PTSnPESCount =
          stream.PTSnPESCount == 0 ? std::max(stream.PTSnPES, 1u) - 1 : stream.PTSnPESCount - 1;
    }
  }
  copy_payload(state, at, plan.payload);
  state.model.level += plan.payload;
  state.headers.add(plan.startsPes ? pes_header_size(plan.pes) : 0, plan.payload);
}

// Fields of the adaptation field that belong to the start of a PES packet.
void mark_pes_start(tsm_stream& stream, tsm_packet& packet, const tsm_time& now) {
  if (stream.has(kPcrPes) && stream.has(kCarriesPcr) && !stream.has(kPacketHasPcr)) {
    insert_extra_pcr(stream, packet, now, stream.nextTime);
  }
  // Decoding can begin with every frame.
  if (stream.has2(kRandomAccess)) {
    add_adaptation_flags(packet, kRandomAccessFlag);
    set_event(packet, kEventAccessPoint);
  }
}

}  // namespace

void make_audio_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux&) {
  auto& state = static_cast<audio_state&>(*stream.state);
  const double ticks = ticks_of(now);
  packet.events[0] = packet.events[1] = 0;
  run_removals(state.model, packet, ticks, [&](int64_t missing) {
    state.report->warn(kUnderflow, stream.pid(), missing);
    state.runningPts = normalise(state.runningPts + state.characteristics.period);
  });
  state.headers.leave(state.model.level);
  const unsigned events = packet.events[0];
  stream.clear(kPacketHasPcr);
  const readiness front = frame_ready(state, 0);
  if (front == readiness::ended) {
    end_stream(stream, packet);
    stream.step_times();
    return;
  }

  begin_packet(stream, packet, false);
  set_event(packet, events);
  insert_initial_discontinuity(stream, packet);
  if (pcr_is_due(stream, stream.nextTime)) insert_pcr(stream, packet, now, stream.nextTime);

  packet_draft draft(stream, packet);

  plan plan;
  readiness ready = front;
  if (front == readiness::ready) {
    plan.startsPes = state.cursor.pesBytesLeft <= 0;
    if (plan.startsPes) {
      mark_pes_start(stream, packet, now);
      ready = plan_pes(state, stream, payload_place(packet), plan);
      plan.header = payload_place(packet) + pes_header_size(plan.pes);
    } else {
      plan.header = payload_place(packet);
    }
    const int32_t left = plan.startsPes ? plan.pes.payloadLength : state.cursor.pesBytesLeft;
    plan.payload = std::min(left, static_cast<int32_t>(kPacketBytes) - plan.header);
  }
  if (ready != readiness::ready || is_withheld(state, plan, ticks)) {
    draft.withhold();
  } else {
    fill_packet(state, stream, plan, packet);
  }
  stream.step_times();
}

size_t audio_units_to_send(const tsm_stream& stream) {
  return static_cast<const audio_state&>(*stream.state).frames.size();
}

}  // namespace zel::mux
