#pragma once

#include "zel/mux/engine/stream/stream.h"

/// Stuffing packets. Unless NoWater is set, the last byte of each carries one bit of a signature,
/// most significant bit first, round and round: so a recording tells what made it.

namespace zel::mux {

class null_packets {
 public:
  explicit null_packets(bool plain = false) : plain_(plain) {}

  /// ISO/IEC 13818-1, 2.4.3.3: PID 0x1FFF, payload of no meaning.
  void make(tsm_packet& packet);

 private:
  int next_bit();

  bool plain_;
  int text_ = 0;
  int place_ = 0;
  int bit_ = 7;
};

/// The signature's texts, in the order in which they go out; ends with null.
extern const char* const kSignature[];

}  // namespace zel::mux
