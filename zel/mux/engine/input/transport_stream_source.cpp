#include "zel/mux/engine/input/transport_stream_source.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "zel/base/byte_order.h"

namespace zel::mux {

namespace {

constexpr uint8_t kSync = 0x47;
constexpr size_t kPacket = 188;
constexpr size_t kMostPacket = 511;
constexpr size_t kSearched = 3072;  // bytes that packets are looked for in
constexpr size_t kWindow = 1 << 17;
// What tables are looked for in: half a second of 64 Mbit/s, and tables come more often.
constexpr size_t kDescribedWindow = 1 << 22;
constexpr size_t kSyncs = 5;  // in a row that make a grid again

bool has_grid(std::span<const uint8_t> bytes, size_t first, size_t size) {
  for (size_t at = first; at < bytes.size(); at += size) {
    if (bytes[at] != kSync) return false;
  }
  return true;
}

// Video may leave its length out (ISO/IEC 13818-1, 2.4.3.7), and where it tells one, it has been
// seen to overflow 16 bits: the next unit's start is what ends a PES packet.
bool is_video(uint8_t streamId) {
  return (streamId & 0xF0) == 0xE0;
}

int pid_of(const uint8_t* packet) {
  return (packet[1] & 0x1F) << 8 | packet[2];
}

}  // namespace

size_t find_packet_size(std::span<const uint8_t> bytes, size_t& first) {
  bytes = bytes.first(std::min(bytes.size(), kSearched));
  for (size_t size = kPacket; size <= kMostPacket; ++size) {
    for (first = 0; first < size && first + kPacket <= bytes.size(); ++first) {
      if (has_grid(bytes, first, size)) return size;
    }
  }
  return 0;
}

transport_stream_source::transport_stream_source(std::unique_ptr<stream_source> bytes,
                                                 const selection& wanted,
                                                 source_fault_function fault)
    : window_(std::move(bytes), wanted.described ? kDescribedWindow : kWindow),
      wanted_(wanted),
      fault_(std::move(fault)) {}

bool transport_stream_source::find_packets() {
  searched_ = true;
  const auto bytes = window_.look(kSearched);
  size_t first = 0;
  packetSize_ = find_packet_size(bytes, first);
  if (packetSize_ > 0) {
    window_.drop(first);
    if (wanted_.described) find_description();
  } else if (!bytes.empty()) {
    fault_(kSyncLost);
  }
  return packetSize_ > 0;
}

// Looks ahead to the tables. The packets stay.
void transport_stream_source::find_description() {
  const auto bytes = window_.look(kDescribedWindow);
  for (size_t at = 0; at + kPacket <= bytes.size(); at += packetSize_) {
    tables_.take_packet(std::span<const uint8_t, kPacket>(bytes.data() + at, kPacket));
    if (tables_.find(wanted_.pid)) return;
  }
}

// On to the next place where packets stand in a row, or the end of the source does.
bool transport_stream_source::resynchronise() {
  fault_(kSyncLost);
  const size_t wanted = (kSyncs - 1) * packetSize_ + 1;
  window_.drop(1);
  while (true) {
    const auto bytes = window_.look(wanted);
    if (bytes.size() < kPacket) return false;
    const size_t last = bytes.size() >= wanted ? bytes.size() - wanted : bytes.size() - kPacket;
    for (size_t at = 0; at <= last; ++at) {
      const size_t reach = std::min(bytes.size(), at + wanted);
      if (!has_grid(bytes.first(reach), at, packetSize_)) continue;
      window_.drop(at);
      return true;
    }
    window_.drop(last + 1);
  }
}

const uint8_t* transport_stream_source::next_packet() {
  if (!searched_ && !find_packets()) return nullptr;
  if (packetSize_ == 0) return nullptr;
  if (packetHeld_) {
    // What stands behind the last packet may be cut.
    window_.drop(std::min(packetSize_, window_.look(packetSize_).size()));
    packetHeld_ = false;
  }
  if (window_.look(kPacket).size() < kPacket) return nullptr;
  pass_transitions();
  if (window_.look(kPacket).size() < kPacket) return nullptr;
  if (window_.seen()[0] != kSync && !resynchronise()) return nullptr;
  packetHeld_ = true;
  return window_.seen().data();
}

// Where another file begins, a packet of the one before may be broken off, which breaks the grid;
// or it goes on there.
void transport_stream_source::pass_transitions() {
  while (true) {
    if (nextFile_ < 0) nextFile_ = window_.take_transition();
    const int64_t left = nextFile_ - window_.position();
    if (nextFile_ < 0 || left >= static_cast<int64_t>(kPacket)) return;
    const auto bytes = window_.look(packetSize_ + 1);
    const bool goesOn = bytes.size() <= packetSize_ || bytes[packetSize_] == kSync;
    if (left > 0 && !goesOn) window_.drop(static_cast<size_t>(left));
    nextFile_ = -1;
    joined_ = true;
    if (transitions_.full()) transitions_.pop();
    transitions_.push(given_);
  }
}

int64_t transport_stream_source::take_transition() {
  if (transitions_.empty()) return -1;
  const int64_t place = transitions_.front();
  transitions_.pop();
  return place;
}

bool transport_stream_source::is_wanted(int pid, std::span<const uint8_t> payload, bool unitStart) {
  if (wanted_.pid >= 0) return pid == wanted_.pid;
  syntax::PesHeader header;
  if (!unitStart || payload.size() < 6) return false;
  syntax::parsePesHeader(payload, header);
  if (header.streamId != wanted_.streamId) return false;
  wanted_.pid = pid;
  return true;
}

// ISO/IEC 13818-1, 2.4.3.3: a packet may be sent twice, with the same counter.
bool transport_stream_source::is_repeated(const uint8_t* packet, std::span<const uint8_t> payload) {
  const int counter = packet[3] & 15;
  // A file that isn't the next piece of the one before begins in the midst of some PES packet.
  if (joined_ && counter != ((continuity_ + 1) & 15)) {
    state_ = state::outside;
    continuity_ = -1;
  }
  joined_ = false;
  const size_t place = kPacket - payload.size();
  const bool same = counter == continuity_ && last_[1] == packet[1] &&
                    std::equal(payload.begin(), payload.end(), last_.data() + place);
  // A lost packet leaves a header's rest anywhere.
  const bool lost = continuity_ >= 0 && !same && counter != ((continuity_ + 1) & 15);
  if (lost && state_ == state::header) state_ = state::outside;
  continuity_ = counter;
  std::memcpy(last_.data(), packet, kPacket);
  return same;
}

void transport_stream_source::take_packet(const uint8_t* packet) {
  const int pid = pid_of(packet);
  if (wanted_.pid >= 0 && pid != wanted_.pid) return;
  const bool unitStart = (packet[1] & 0x40) != 0;
  size_t place = 4;
  if ((packet[3] & 0x20) != 0) place += 1u + packet[4];
  const bool hasPayload = (packet[3] & 0x10) != 0;
  // A packet that is known to be damaged, is scrambled, or has a field that doesn't fit.
  if ((packet[1] & 0x80) != 0 || (packet[3] & 0xC0) != 0 || place > kPacket) {
    if (wanted_.pid >= 0) fault_(kPacketHeaderWrong);
    return;
  }
  if (!hasPayload || place == kPacket) return;
  const std::span<const uint8_t> payload(packet + place, kPacket - place);
  if (!is_wanted(pid, payload, unitStart) || is_repeated(packet, payload)) return;
  take_payload(payload, unitStart);
}

void transport_stream_source::take_payload(std::span<const uint8_t> payload, bool unitStart) {
  if (unitStart) {
    if (state_ == state::header) fault_(kPesHeaderWrong);
    state_ = state::header;
    headerFill_ = 0;
  }
  if (state_ == state::header) {
    start_pes(payload);
    return;
  }
  if (state_ == state::outside) return;
  if (pesLeft_ >= 0) {
    payload = payload.first(std::min(payload.size(), static_cast<size_t>(pesLeft_)));
    pesLeft_ -= static_cast<int64_t>(payload.size());
  }
  pending_ = payload;
}

// A header may stand in several packets.
void transport_stream_source::start_pes(std::span<const uint8_t> payload) {
  const size_t before = headerFill_;
  const size_t count = std::min(payload.size(), header_.size() - before);
  std::copy_n(payload.begin(), count, header_.begin() + static_cast<ptrdiff_t>(before));
  headerFill_ += count;
  syntax::PesHeader header;
  auto result = syntax::parsePesHeader(std::span(header_).first(headerFill_), header);
  if (result == syntax::PesResult::badSize) {
    // The header says itself how long it is; the length is what can't be.
    base::storeBig16(header_.data() + 4, 0);
    result = syntax::parsePesHeader(std::span(header_).first(headerFill_), header);
  }
  if (result == syntax::PesResult::more && headerFill_ < header_.size()) return;
  if (result != syntax::PesResult::whole) {
    fault_(kPesHeaderWrong);
    state_ = state::outside;
    return;
  }
  state_ = state::payload;
  pesLeft_ = -1;
  if (header.packetLength > 0 && !is_video(header.streamId)) {
    pesLeft_ = 6 + int64_t{header.packetLength} - static_cast<int64_t>(header.size);
  }
  marks_.note(given_, header.pts, header.dts);
  if (firstPts_ < 0) {
    firstPts_ = header.pts;
    firstDts_ = header.dts;
  }
  take_payload(payload.subspan(header.size - before), false);
}

int32_t transport_stream_source::read(uint8_t* to, int32_t room) {
  int32_t done = 0;
  while (done < room) {
    if (pending_.empty()) {
      const uint8_t* const packet = next_packet();
      if (packet == nullptr) break;
      take_packet(packet);
      continue;
    }
    const size_t count = std::min(pending_.size(), static_cast<size_t>(room - done));
    std::memcpy(to + done, pending_.data(), count);
    pending_ = pending_.subspan(count);
    done += static_cast<int32_t>(count);
    given_ += static_cast<int64_t>(count);
  }
  return done;
}

}  // namespace zel::mux
