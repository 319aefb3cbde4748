#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/transport_judge/transport_stream.h"

namespace zel::test {

/// When the bytes of a stream arrive: ISO/IEC 13818-1, 2.4.2.2. At a constant rate a straight line
/// through the PCRs, between PCRs otherwise. Seconds; 0 is the first byte of the stream.
class ArrivalClock {
 public:
  ArrivalClock() = default;

  /// At a constant rate of `rate` bits a second, or of the rate that the PCRs themselves show when
  /// that is 0. PCRs far off the line (a fault to be found) don't move it.
  static ArrivalClock constant(const std::vector<PcrSample>& pcrs, double rate);
  /// Piecewise, from PCR to PCR.
  static ArrivalClock between(const std::vector<PcrSample>& pcrs);

  bool valid() const { return secondsPerPacket_ > 0; }
  double packetSeconds() const { return secondsPerPacket_; }
  double rate() const { return 1504 / secondsPerPacket_; }
  /// When the first byte of a packet arrives.
  double packetTime(int64_t packet) const;
  double packetEnd(int64_t packet) const;
  /// 2.4.2.2: a variable rate is told by the two PCRs around a byte, and so by none behind the last
  /// PCR. Without end at a constant rate.
  double toldUntil() const;
  /// The clock's own ticks at its zero: what PTS and DTS are counted from.
  double originTicks() const { return originTicks_; }
  /// How much a PCR is ahead of the place where it stands, in seconds.
  double pcrError(const PcrSample& sample) const;

 private:
  double secondsPerPacket_ = 0;
  double originTicks_ = 0;
  std::vector<PcrSample> pieces_;
};

}  // namespace zel::test
