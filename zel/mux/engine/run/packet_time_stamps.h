#pragma once

#include <cstdint>

namespace zel::mux {

/// PktTS: a 27 MHz counter beside each packet. It advances by a whole number of ticks and a 24-bit
/// fraction, so that it doesn't drift from the rate.
class packet_time_stamps {
 public:
  packet_time_stamps() = default;
  /// `bytes` is 1 to 8, `bits` 0 (as many as the bytes hold) to 64.
  packet_time_stamps(int bytes, int bits, bool lowFirst, bool precedes)
      : bytes_(bytes), bits_(bits), lowFirst_(lowFirst), precedes_(precedes) {}

  bool enabled() const { return bytes_ > 0; }
  bool precedes() const { return precedes_; }
  int bytes() const { return bytes_; }

  void set_rate(double rate);

  /// Writes the stamp of the packet at hand to `out`, bytes() of them.
  void write(uint8_t* out) const;
  /// Goes on to the next packet.
  void advance();

 private:
  int bytes_ = 0;
  int bits_ = 0;
  bool lowFirst_ = false;
  bool precedes_ = false;
  uint64_t stamp_ = 0;
  uint64_t increment_ = 0;
  uint32_t incrementFraction_ = 0;  // 24 bits
  uint32_t fraction_ = 0;           // 24 bits
};

}  // namespace zel::mux
