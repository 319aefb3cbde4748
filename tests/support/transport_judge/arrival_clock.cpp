#include "tests/support/transport_judge/arrival_clock.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zel::test {
namespace {

// The PCR's time is that of the byte with the last bit of its base: the eleventh of the packet.
constexpr double kPcrPlace = 10.0 / 188;

struct Line {
  double ticksPerPacket = 0;
  double origin = 0;
};

Line leastSquares(const std::vector<PcrSample>& samples) {
  const auto count = static_cast<double>(samples.size());
  double packets = 0;
  double ticks = 0;
  for (const PcrSample& sample : samples) {
    packets += static_cast<double>(sample.packet) / count;
    ticks += sample.ticks / count;
  }
  double above = 0;
  double below = 0;
  for (const PcrSample& sample : samples) {
    const double x = static_cast<double>(sample.packet) - packets;
    above += x * (sample.ticks - ticks);
    below += x * x;
  }
  const double slope = below > 0 ? above / below : 0;
  return {slope, ticks - slope * packets};
}

double offLine(const Line& line, const PcrSample& sample) {
  return sample.ticks - line.origin - line.ticksPerPacket * static_cast<double>(sample.packet);
}

double medianOffset(const std::vector<PcrSample>& samples, double slope) {
  std::vector<double> offsets;
  offsets.reserve(samples.size());
  for (const PcrSample& sample : samples)
    offsets.push_back(sample.ticks - slope * static_cast<double>(sample.packet));
  const auto middle = offsets.begin() + static_cast<std::ptrdiff_t>(offsets.size() / 2);
  std::nth_element(offsets.begin(), middle, offsets.end());
  return *middle;
}

}  // namespace

ArrivalClock ArrivalClock::constant(const std::vector<PcrSample>& pcrs, double rate) {
  ArrivalClock clock;
  std::vector<PcrSample> samples;
  for (const PcrSample& sample : pcrs) {
    if (sample.discontinuity) break;  // what follows is on another line
    samples.push_back(sample);
  }
  if (samples.empty() || (samples.size() < 2 && rate <= 0)) return clock;
  Line line;
  if (rate > 0) {
    line.ticksPerPacket = 1504 * kSystemClock / rate;
    line.origin = medianOffset(samples, line.ticksPerPacket);
  } else {
    line = leastSquares(samples);
    // The worst one goes while it is off by more than rounding, a tenth of all at most.
    for (size_t left = samples.size() / 10; left > 0 && samples.size() > 3; --left) {
      const auto worst =
          std::max_element(samples.begin(), samples.end(), [&](const auto& a, const auto& b) {
            return std::abs(offLine(line, a)) < std::abs(offLine(line, b));
          });
      if (std::abs(offLine(line, *worst)) < 10) break;
      samples.erase(worst);
      line = leastSquares(samples);
    }
  }
  clock.secondsPerPacket_ = line.ticksPerPacket / kSystemClock;
  clock.originTicks_ = line.origin - kPcrPlace * line.ticksPerPacket;
  return clock;
}

ArrivalClock ArrivalClock::between(const std::vector<PcrSample>& pcrs) {
  ArrivalClock clock;
  if (pcrs.size() < 2 || pcrs.back().packet <= pcrs.front().packet) return clock;
  clock.pieces_ = pcrs;
  const auto packets = static_cast<double>(pcrs.back().packet - pcrs.front().packet);
  clock.secondsPerPacket_ = (pcrs.back().ticks - pcrs.front().ticks) / packets / kSystemClock;
  const double first = (pcrs[1].ticks - pcrs[0].ticks) /
                       static_cast<double>(std::max<int64_t>(1, pcrs[1].packet - pcrs[0].packet));
  clock.originTicks_ = pcrs[0].ticks - first * (static_cast<double>(pcrs[0].packet) + kPcrPlace);
  return clock;
}

double ArrivalClock::packetTime(int64_t packet) const {
  const auto place = static_cast<double>(packet);
  if (pieces_.empty()) return place * secondsPerPacket_;
  // The first byte of a packet with a PCR comes before the byte that the PCR is of: it belongs to
  // the piece that ends there.
  const auto after =
      std::lower_bound(pieces_.begin() + 1, pieces_.end() - 1, packet,
                       [](const PcrSample& piece, int64_t at) { return piece.packet < at; });
  const PcrSample& from = *(after - 1);
  const PcrSample& to = *after;
  const double slope =
      (to.ticks - from.ticks) / static_cast<double>(std::max<int64_t>(1, to.packet - from.packet));
  const double ticks = from.ticks + slope * (place - static_cast<double>(from.packet) - kPcrPlace);
  return (ticks - originTicks_) / kSystemClock;
}

double ArrivalClock::packetEnd(int64_t packet) const {
  return pieces_.empty() ? packetTime(packet) + secondsPerPacket_ : packetTime(packet + 1);
}

double ArrivalClock::toldUntil() const {
  return pieces_.empty() ? std::numeric_limits<double>::infinity()
                         : (pieces_.back().ticks - originTicks_) / kSystemClock;
}

double ArrivalClock::pcrError(const PcrSample& sample) const {
  if (!pieces_.empty()) return 0;
  const double expected = (static_cast<double>(sample.packet) + kPcrPlace) * secondsPerPacket_;
  return (sample.ticks - originTicks_) / kSystemClock - expected;
}

}  // namespace zel::test
