#pragma once

#include <cstdint>
#include <vector>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/run/packet_time_stamps.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

/// Kinds of output, as the write callback is told.
inline constexpr int kNullPacketKind = 2;
inline constexpr int kPacketKind = 3;

/// Lays packets out as the file wants them (event bytes, time stamp, stuffing up to the packet
/// size), gathers them, and hands them to the write callback. Counts what it is given.
class output_writer {
 public:
  struct layout {
    int packetSize = 188;     // 188 to 512
    bool events = false;      // the two event bytes stand behind the packet
    bool dropNulls = false;   // null packets are counted and stamped, not written
    int bufferedPackets = 0;  // OutPkts; 0 writes each packet at once
  };

  output_writer(const layout& form, const packet_time_stamps& stamps,
                Morvalen::Zel::tsm_write_callback write, void* user);

  /// Where the next packet is best made, because put() needn't copy it then: among those that are
  /// gathered; or in `other`, where the file wants more than the packet. Holds until the next put()
  /// or flush().
  tsm_packet& place_of_next(tsm_packet& other) {
    return plain_ ? *reinterpret_cast<tsm_packet*>(buffer_.data() + used_) : other;
  }
  /// How many packets go to their place and are gathered, the last of which makes put() write; 0
  /// where the file wants them otherwise.
  int64_t packets_gathered_next() const {
    if (!plain_ || form_.bufferedPackets <= 0) return 0;
    return static_cast<int64_t>((room_ - used_) / kPacketBytes);
  }
  /// False where the write callback failed.
  bool put(const tsm_packet& packet, Morvalen::Zel::tsm_stats& stats);
  /// Writes what is gathered.
  bool flush();

  packet_time_stamps& stamps() { return stamps_; }

 private:
  void lay_out(const tsm_packet& packet, uint8_t* out);
  bool put_laid_out(const tsm_packet& packet, bool isNull);
  bool write_one(bool isNull);
  bool pass_on(bool isNull);

  layout form_;
  packet_time_stamps stamps_;
  Morvalen::Zel::tsm_write_callback write_;
  void* user_;
  bool plain_;                   // what is written are the packets' 188 bytes
  size_t room_;                  // for whole packets, bytes
  std::vector<uint8_t> buffer_;  // so large, and the last packet's events; its size never changes
  size_t used_ = 0;
};

// Each packet passes here.
inline bool output_writer::put(const tsm_packet& packet, Morvalen::Zel::tsm_stats& stats) {
  const bool isNull = packet.pid() == kNullPid;
  ++stats.packetsWritten;
  ++stats.packetsCounted;
  stats.nullPackets += isNull ? 1 : 0;
  stats.bytesWritten += form_.packetSize;
  const bool isInPlace = packet.bytes == buffer_.data() + used_;
  return isInPlace ? pass_on(isNull) : put_laid_out(packet, isNull);
}

// The packet stands behind those that are gathered.
inline bool output_writer::pass_on(bool isNull) {
  if (form_.bufferedPackets <= 0) return write_one(isNull);
  used_ += static_cast<size_t>(form_.packetSize);
  return used_ < room_ || flush();
}

}  // namespace zel::mux
