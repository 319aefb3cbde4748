#include "zel/mux/engine/packet/adaptation_field.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "zel/mux/engine/packet/packet_header.h"
#include "zel/mux/engine/stream/pcr_schedule.h"

namespace zel::mux {

namespace {

constexpr int kPcrAt = static_cast<int>(kPcrPlace);
constexpr int kLengthPlace = 4;
constexpr int kFlagsPlace = 5;
constexpr int kMostLength = 183;  // with payload 182: one byte of it at least

bool has_field(const tsm_packet& packet) {
  return (packet.bytes[3] & kAdaptationBit) != 0;
}

// Makes sure that there is a flags byte: a field may be missing, or be a single length byte of 0.
int ensure_flags(tsm_packet& packet) {
  if (has_field(packet) && packet.bytes[kLengthPlace] > 0) return 0;
  const int used = has_field(packet) ? 1 : 2;
  packet.bytes[3] |= kAdaptationBit;
  packet.bytes[kLengthPlace] = 1;
  packet.bytes[kFlagsPlace] = 0;
  return used;
}

// Opens a gap of `count` bytes at `place` of the field.
void open_gap(tsm_packet& packet, int place, int count) {
  const int end = payload_place(packet);
  assert(end + count <= static_cast<int>(kPacketBytes));
  std::memmove(packet.bytes + place + count, packet.bytes + place,
               static_cast<size_t>(end - place));
  packet.bytes[kLengthPlace] = static_cast<uint8_t>(packet.bytes[kLengthPlace] + count);
}

// Behind the PCR, and behind the countdown if `behindCountdown`.
int place_of_next(const tsm_packet& packet, bool behindCountdown) {
  const uint8_t flags = packet.bytes[kFlagsPlace];
  return kPcrAt + ((flags & kPcrFlag) != 0 ? kPcrBytes : 0) +
         (behindCountdown && (flags & kSplicingPointFlag) != 0 ? 1 : 0);
}

}  // namespace

int payload_place(const tsm_packet& packet) {
  return has_field(packet) ? kLengthPlace + 1 + packet.bytes[kLengthPlace] : kTsHeaderBytes;
}

int add_adaptation_flags(tsm_packet& packet, uint8_t flags) {
  const int used = ensure_flags(packet);
  packet.bytes[kFlagsPlace] |= flags;
  return used;
}

int add_pcr(tsm_packet& packet) {
  const int used = ensure_flags(packet);
  if ((packet.bytes[kFlagsPlace] & kPcrFlag) != 0) return used;
  open_gap(packet, kPcrAt, kPcrBytes);
  std::memset(packet.bytes + kPcrPlace, 0, kPcrBytes);
  packet.bytes[kFlagsPlace] |= kPcrFlag;
  return used + kPcrBytes;
}

int add_splice_countdown(tsm_packet& packet, int8_t countdown) {
  int used = ensure_flags(packet);
  const int place = place_of_next(packet, false);
  if ((packet.bytes[kFlagsPlace] & kSplicingPointFlag) == 0) {
    open_gap(packet, place, 1);
    packet.bytes[kFlagsPlace] |= kSplicingPointFlag;
    used += 1;
  }
  packet.bytes[place] = static_cast<uint8_t>(countdown);
  return used;
}

int add_private_data(tsm_packet& packet, std::span<const uint8_t> data) {
  int used = ensure_flags(packet);
  if ((packet.bytes[kFlagsPlace] & kPrivateDataFlag) != 0) return used;
  const int place = place_of_next(packet, true);
  const auto count = static_cast<int>(data.size());
  open_gap(packet, place, count + 1);
  packet.bytes[place] = static_cast<uint8_t>(count);
  std::copy(data.begin(), data.end(), packet.bytes + place + 1);
  packet.bytes[kFlagsPlace] |= kPrivateDataFlag;
  return used + count + 1;
}

int add_stuffing(tsm_packet& packet, int count) {
  if (count <= 0) return 0;
  uint8_t* const end = packet.bytes + payload_place(packet);
  assert(payload_place(packet) + count <= static_cast<int>(kPacketBytes));
  std::memset(end, 0xFF, static_cast<size_t>(count));
  if (has_field(packet)) {
    if (packet.bytes[kLengthPlace] == 0) end[0] = 0;  // becomes the flags
    packet.bytes[kLengthPlace] = static_cast<uint8_t>(packet.bytes[kLengthPlace] + count);
  } else {
    packet.bytes[3] |= kAdaptationBit;
    packet.bytes[kLengthPlace] = static_cast<uint8_t>(count - 1);
    if (count >= 2) packet.bytes[kFlagsPlace] = 0;
  }
  if (packet.bytes[kLengthPlace] >= kMostLength) {
    packet.bytes[3] = static_cast<uint8_t>(packet.bytes[3] & ~kPayloadBit);
  }
  return count;
}

void stuff_whole(tsm_packet& packet) {
  add_stuffing(packet, static_cast<int>(kPacketBytes) - payload_place(packet));
}

}  // namespace zel::mux
