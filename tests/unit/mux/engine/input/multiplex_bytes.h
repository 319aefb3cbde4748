#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/input/stream_source.h"

/// Transport and program streams for tests, byte by byte.

namespace zel::test {

using Bytes = std::vector<uint8_t>;

inline void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}

/// `count` bytes that tell `seed` and their place, without start codes.
inline Bytes pattern(size_t count, uint8_t seed) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(0x10 + (i * 7 + seed) % 0xE0);
  return bytes;
}

inline Bytes stamp(int prefix, int64_t ticks) {
  return {static_cast<uint8_t>(prefix << 4 | (ticks >> 29 & 0x0E) | 1),
          static_cast<uint8_t>(ticks >> 22), static_cast<uint8_t>((ticks >> 14 & 0xFE) | 1),
          static_cast<uint8_t>(ticks >> 7), static_cast<uint8_t>((ticks << 1 & 0xFE) | 1)};
}

struct PesShape {
  int64_t pts = -1;
  int64_t dts = -1;
  size_t stuffing = 0;  // header bytes of FF
  bool lengthTold = true;
};

/// A PES packet with an MPEG-2 header.
inline Bytes pes(uint8_t streamId, const Bytes& payload, const PesShape& shape = {}) {
  Bytes optional;
  if (shape.pts >= 0) append(optional, stamp(shape.dts >= 0 ? 3 : 2, shape.pts));
  if (shape.dts >= 0) append(optional, stamp(1, shape.dts));
  optional.insert(optional.end(), shape.stuffing, 0xFF);
  const size_t length = 3 + optional.size() + payload.size();
  const size_t told = shape.lengthTold ? length : 0;
  Bytes bytes = {0,
                 0,
                 1,
                 streamId,
                 static_cast<uint8_t>(told >> 8),
                 static_cast<uint8_t>(told),
                 0x80,
                 static_cast<uint8_t>((shape.pts >= 0 ? 0x80 : 0) | (shape.dts >= 0 ? 0x40 : 0)),
                 static_cast<uint8_t>(optional.size())};
  append(bytes, optional);
  append(bytes, payload);
  return bytes;
}

/// Packets of one PID.
class TsPackets {
 public:
  explicit TsPackets(int pid) : pid_(pid) {}

  /// One packet with all of `payload`, at most 184 bytes, stuffed in front.
  Bytes one(const Bytes& payload, bool unitStart) {
    Bytes packet = {0x47, static_cast<uint8_t>((unitStart ? 0x40 : 0) | pid_ >> 8),
                    static_cast<uint8_t>(pid_), static_cast<uint8_t>(0x10 | (counter_++ & 15))};
    if (payload.size() < 184) {
      const size_t field = 183 - payload.size();
      packet[3] |= 0x20;
      packet.push_back(static_cast<uint8_t>(field));
      if (field > 0) packet.push_back(0);
      if (field > 1) packet.insert(packet.end(), field - 1, 0xFF);
    }
    append(packet, payload);
    return packet;
  }

  /// A PES packet in as many packets as it takes, of at most `most` bytes of payload.
  Bytes whole(const Bytes& unit, size_t most = 184) {
    Bytes packets;
    for (size_t at = 0; at < unit.size(); at += most) {
      const size_t count = std::min(most, unit.size() - at);
      append(packets, one({unit.begin() + static_cast<long>(at),
                           unit.begin() + static_cast<long>(at + count)},
                          at == 0));
    }
    return packets;
  }

  void skipCounter() { ++counter_; }

 private:
  int pid_;
  int counter_ = 0;
};

inline Bytes packHeader(bool mpeg1, size_t stuffing = 0) {
  if (mpeg1) return {0, 0, 1, 0xBA, 0x21, 0, 1, 0, 1, 0x80, 0, 1};
  Bytes bytes = {0, 0, 1, 0xBA, 0x44, 0, 4,
                 0, 4, 1, 0,    0,    3, static_cast<uint8_t>(0xF8 | stuffing)};
  bytes.insert(bytes.end(), stuffing, 0xFF);
  return bytes;
}

/// A packet of an MPEG-1 system stream: stuffing, size of the buffer, time stamps.
inline Bytes mpeg1Packet(uint8_t streamId, const Bytes& payload, const PesShape& shape = {}) {
  Bytes header(shape.stuffing, 0xFF);
  append(header, {0x60, 0x2E});
  if (shape.pts < 0) {
    header.push_back(0x0F);
  } else {
    append(header, stamp(shape.dts >= 0 ? 3 : 2, shape.pts));
    if (shape.dts >= 0) append(header, stamp(1, shape.dts));
  }
  const size_t length = header.size() + payload.size();
  Bytes bytes = {
      0, 0, 1, streamId, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
  append(bytes, header);
  append(bytes, payload);
  return bytes;
}

}  // namespace zel::test
