// The T-STD of ISO/IEC 13818-1, 2.4.2, in fluid form: bytes flow at even rates within a packet, so
// that each buffer is a line between two events and its extremes lie at events.

#include "tests/support/transport_judge/decoder_buffers.h"

#include <algorithm>
#include <cmath>
#include <deque>

namespace zel::test {
namespace {

constexpr double kTransportBuffer = 512;
constexpr double kRounding = 1.0;  // byte: what the fluid form is allowed to be off by
constexpr double kNever = 1e300;

// A piece of payload leaving TB, at an even rate.
struct Flow {
  double begin = 0;
  double end = 0;
  double bytes = 0;
  double header = 0;  // of these, at the begin
  int64_t packet = 0;
};

// TB: fills with whole packets and leaks at `rate` while it has data.
std::vector<Flow> runTransportBuffer(double rate, const std::vector<Delivery>& deliveries, int pid,
                                     BufferPeaks& peaks, Findings& findings) {
  std::vector<Flow> flows;
  flows.reserve(deliveries.size());
  const double perByte = 8 / rate;
  double busyUntil = 0;  // TB is empty from here on
  double busySince = 0;
  for (const Delivery& delivery : deliveries) {
    const double level = std::max(0.0, busyUntil - delivery.begin) / perByte;
    if (level <= 0) busySince = delivery.begin;
    const double start = std::max(busyUntil, delivery.begin);
    const double finish = std::max(start + 188 * perByte, delivery.end);
    // While the packet comes in the buffer leaks; its peak is at the packet's end.
    const double peak = std::max(level, (finish - delivery.end) / perByte);
    peaks.transport = std::max(peaks.transport, peak);
    if (peak > kTransportBuffer + kRounding)
      findings.add({Fault::kTransportBuffer, delivery.end, delivery.packet, pid,
                    peak - kTransportBuffer, "TB overflows"});
    if (finish - busySince > 1 && busyUntil - busySince <= 1)
      findings.add({Fault::kTransportBufferNotEmptied, finish, delivery.packet, pid,
                    finish - busySince, "TB isn't empty once a second"});
    busyUntil = finish;
    if (delivery.payload > 0) {
      const double payloadStart = finish - (finish - start) * delivery.payload / 188;
      flows.push_back({payloadStart, finish, static_cast<double>(delivery.payload),
                       static_cast<double>(delivery.headerSize), delivery.packet});
    }
  }
  return flows;
}

void checkDelay(double delay, const BufferLimits& limits, const TimedUnit& unit, int pid,
                BufferPeaks& peaks, Findings& findings) {
  peaks.longestDelay = std::max(peaks.longestDelay, delay);
  if (delay > limits.longestDelay + 1e-6)
    findings.add({Fault::kDelay, unit.decode, unit.packet, pid, delay, "data wait too long"});
}

// When the byte at `place` of the elementary stream comes in, from the flows in order.
class ArrivalWalk {
 public:
  explicit ArrivalWalk(const std::vector<Flow>& flows) : flows_(flows) {}
  double timeOf(double place) {
    while (next_ < flows_.size() && passed_ + data(flows_[next_]) <= place)
      passed_ += data(flows_[next_++]);
    if (next_ >= flows_.size()) return flows_.empty() ? 0 : flows_.back().end;
    const Flow& flow = flows_[next_];
    const double part = (flow.header + place - passed_) / flow.bytes;
    return flow.begin + (flow.end - flow.begin) * part;
  }

 private:
  static double data(const Flow& flow) { return flow.bytes - flow.header; }
  const std::vector<Flow>& flows_;
  size_t next_ = 0;
  double passed_ = 0;
};

// MB and EB of video with the leak method. Everything is counted from the start of the stream, in
// bytes of the elementary stream; PES headers stand in MB until the byte behind them leaves.
class VideoBuffers {
 public:
  VideoBuffers(const BufferLimits& limits, int pid, BufferPeaks& peaks, Findings& findings)
      : limits_(limits), pid_(pid), peaks_(peaks), findings_(findings) {}

  void flowIn(const Flow& flow, const std::vector<TimedUnit>& units) {
    // Between the last flow and this one only removals happen.
    advance(flow.begin, 0, units);
    if (flow.header > 0) {
      headers_.push_back({in_, flow.header});
      headerBytes_ += flow.header;
    }
    const double data = flow.bytes - flow.header;
    const double duration = flow.end - flow.begin;
    const double rate = duration > 0 ? data / duration : 0;
    if (duration <= 0) in_ += data;
    packet_ = flow.packet;
    advance(flow.end, rate, units);
  }
  void drain(const std::vector<TimedUnit>& units) { advance(kNever, 0, units); }

 private:
  struct Header {
    double place;
    double bytes;
  };

  double multiplexLevel() const { return in_ - out_ + headerBytes_; }
  double elementaryLevel() const { return std::max(0.0, out_ - removed_); }

  void advance(double until, double rateIn, const std::vector<TimedUnit>& units) {
    while (now_ < until) {
      const double removal = unit_ < units.size() ? units[unit_].decode : kNever;
      double next = std::min(until, std::max(removal, now_));
      const double rateOut = outRate(rateIn);
      if (rateOut > rateIn && in_ - out_ > 0)
        next = std::min(next, now_ + (in_ - out_) / (rateOut - rateIn) + 1e-12);
      if (rateOut > 0 && !full())
        next =
            std::min(next, now_ + (limits_.elementaryBuffer - elementaryLevel()) / rateOut + 1e-12);
      if (next >= kNever) return;
      const double step = next - now_;
      in_ += rateIn * step;
      out_ = std::min(in_, out_ + rateOut * step);
      now_ = next;
      while (!headers_.empty() && headers_.front().place < out_ + 1e-9) {
        headerBytes_ -= headers_.front().bytes;
        headers_.pop_front();
      }
      note();
      while (unit_ < units.size() && units[unit_].decode <= now_) remove(units[unit_++]);
    }
  }

  bool full() const { return elementaryLevel() >= limits_.elementaryBuffer - 1e-6; }

  double outRate(double rateIn) const {
    if (full()) return 0;
    const double leak = limits_.elementaryLeak / 8;
    return in_ - out_ > 1e-6 ? leak : std::min(leak, rateIn);
  }

  void note() {
    peaks_.multiplex = std::max(peaks_.multiplex, multiplexLevel());
    peaks_.elementary = std::max(peaks_.elementary, elementaryLevel());
    const bool over = multiplexLevel() > limits_.multiplexBuffer + kRounding;
    if (over && !over_)
      findings_.add({Fault::kMultiplexBuffer, now_, packet_, pid_,
                     multiplexLevel() - limits_.multiplexBuffer, "MB overflows"});
    over_ = over;
  }

  void remove(const TimedUnit& unit) {
    const double missing = static_cast<double>(unit.end) - out_;
    peaks_.leastMargin = std::min(peaks_.leastMargin, -missing);
    if (missing > kRounding && !limits_.lowDelay)
      findings_.add({Fault::kUnderflow, unit.decode, unit.packet, pid_, missing,
                     "the access unit isn't whole at its decoding time"});
    removed_ = std::max(removed_, static_cast<double>(unit.end));
  }

  const BufferLimits& limits_;
  int pid_;
  BufferPeaks& peaks_;
  Findings& findings_;
  double now_ = 0;
  double in_ = 0;
  double out_ = 0;
  double removed_ = 0;
  double headerBytes_ = 0;
  std::deque<Header> headers_;
  size_t unit_ = 0;
  int64_t packet_ = -1;
  bool over_ = false;
};

void checkDelays(const std::vector<Flow>& flows, const std::vector<TimedUnit>& units,
                 const BufferLimits& limits, int pid, BufferPeaks& peaks, Findings& findings) {
  ArrivalWalk walk(flows);
  for (const TimedUnit& unit : units)
    checkDelay(unit.decode - walk.timeOf(static_cast<double>(unit.begin)), limits, unit, pid, peaks,
               findings);
}

}  // namespace

BufferLimits videoLimits(Coding coding, const StreamFacts& facts) {
  BufferLimits limits;
  limits.elementaryBuffer = facts.decoderBuffer;
  limits.lowDelay = facts.lowDelay;
  const bool nalVideo = coding == Coding::kAvc || coding == Coding::kHevc;
  // 2.14.3.1 and 2.17.2 take 2 Mbit/s at least.
  const double rate = nalVideo ? std::max(facts.maximumRate, 2e6) : facts.maximumRate;
  const double overhead = (0.004 + 1.0 / 750) * rate / 8;
  limits.transportLeak = 1.2 * rate;
  limits.multiplexBuffer = overhead + std::max(0.0, facts.maximumBuffer - facts.decoderBuffer);
  limits.elementaryLeak = facts.maximumRate;
  if (coding == Coding::kMpeg2Video && facts.highLevel) {
    // 2.4.2.3: High 1440 and High level have a small MB and a slower leak.
    limits.multiplexBuffer = overhead;
    if (facts.statedRate > 0)
      limits.elementaryLeak = std::min(1.05 * facts.statedRate, facts.maximumRate);
  }
  if (coding == Coding::kMpeg1Video) limits.elementaryLeak = 1.2 * facts.maximumRate;
  if (nalVideo || coding == Coding::kMpeg4Video) limits.longestDelay = 10;
  return limits;
}

// Where the figures come from. Certain: ISO/IEC 13818-1, 2.4.2.3, TB of 512 bytes that leaks 2
// Mbit/s for audio, and B of 3,584 bytes; for AAC its table by channels (2.4.2.3; rates
// 2, 5.5296, 8.2944 and 33.1776 Mbit/s, buffers 3,584, 8,976, 12,804 and 51,216 bytes). The sizes
// for AC-3, E-AC-3, DTS and ST 302 stand in documents of those codings, and were at hand in one
// source only; they are told of one by one below. None of them has a second opinion on how fast TB
// leaks. So 2 Mbit/s are taken, which is the strictest, unless the stream by itself is faster
// than 1.2 times can carry: the standard's own factor for video. Nothing passes here that any of
// these documents would refuse for its TB.
BufferLimits audioLimits(Coding coding, const StreamFacts& facts, AudioBufferModel model) {
  BufferLimits limits;
  limits.elementaryBuffer = 3584;
  limits.transportLeak = std::max(limits.transportLeak, 1.2 * facts.averageRate);
  switch (coding) {
    case Coding::kAdts:
    case Coding::kLatm:
      if (facts.channels > 12) {
        limits.transportLeak = 33177600;
        limits.elementaryBuffer = 51216;
      } else if (facts.channels > 8) {
        limits.transportLeak = 8294400;
        limits.elementaryBuffer = 12804;
      } else if (facts.channels > 2) {
        limits.transportLeak = 5529600;
        limits.elementaryBuffer = 8976;
      }
      break;
    case Coding::kAc3:
      // ATSC A/53 and cable: 736 + 64 + 1,792 bytes, with the frame of 448 kbit/s at 48 kHz. A/52
      // of 2012, annex A: 736 + 64 + 3,840, with that of 640 kbit/s at 32 kHz. DVB, ETSI TS 101
      // 154: 5,696.
      limits.elementaryBuffer = model == AudioBufferModel::kDvb        ? 5696
                                : model == AudioBufferModel::kStandard ? 4640
                                                                       : 2592;
      break;
    case Coding::kEac3:
      // A/52 of 2012, annex G: 736 + 64 + 24,576, six frames of 4,096 bytes. ATSC A/53: 5,184.
      // Cable as for AC-3.
      limits.elementaryBuffer = model == AudioBufferModel::kAtsc    ? 5184
                                : model == AudioBufferModel::kCable ? 2592
                                                                    : 25376;
      break;
    case Coding::kDts:
      // ETSI TS 101 154, annex G: 9,088 bytes for the core, 66,432 with extensions of any kind.
      limits.elementaryBuffer = facts.dtsExtension ? 66432 : 9088;
      break;
    case Coding::kSmpte302m:
      // ST 302: eight channels of 24 bits, which with their V, U, C and F take 7 bytes a pair, come
      // to 10.8 Mbit/s; a main buffer of 65,024 bytes.
      limits.transportLeak = 1.2 * 10.8e6;
      limits.elementaryBuffer = 65024;
      break;
    default:
      break;
  }
  return limits;
}

BufferLimits systemLimits(double transportRate) {
  BufferLimits limits;
  limits.transportLeak = 1e6;
  limits.elementaryBuffer = 1536;
  limits.elementaryLeak = std::max(80000.0, transportRate / 500);
  return limits;
}

BufferPeaks runVideoBuffers(const BufferLimits& limits, const std::vector<Delivery>& deliveries,
                            const std::vector<TimedUnit>& units, int pid, Findings& findings) {
  BufferPeaks peaks;
  const std::vector<Flow> flows =
      runTransportBuffer(limits.transportLeak, deliveries, pid, peaks, findings);
  VideoBuffers buffers(limits, pid, peaks, findings);
  for (const Flow& flow : flows) buffers.flowIn(flow, units);
  buffers.drain(units);
  checkDelays(flows, units, limits, pid, peaks, findings);
  return peaks;
}

BufferPeaks runAudioBuffers(const BufferLimits& limits, const std::vector<Delivery>& deliveries,
                            const std::vector<TimedUnit>& units, int pid, Findings& findings) {
  BufferPeaks peaks;
  const std::vector<Flow> flows =
      runTransportBuffer(limits.transportLeak, deliveries, pid, peaks, findings);
  // B holds PES headers too; a unit takes those before it along: 2.4.2.3.
  double in = 0;                                  // of the elementary stream
  double level = 0;                               // with headers
  std::deque<std::pair<double, double>> headers;  // place and size
  double removed = 0;
  size_t unit = 0;
  const auto removeUntil = [&](double time, double arrived) {
    for (; unit < units.size() && units[unit].decode <= time; ++unit) {
      const auto end = static_cast<double>(units[unit].end);
      const double missing = end - arrived;
      peaks.leastMargin = std::min(peaks.leastMargin, -missing);
      if (missing > kRounding)
        findings.add({Fault::kUnderflow, units[unit].decode, units[unit].packet, pid, missing,
                      "the frame isn't whole at its decoding time"});
      level -= std::max(0.0, end - removed);
      removed = std::max(removed, end);
      while (!headers.empty() && headers.front().first < end) {
        level -= headers.front().second;
        headers.pop_front();
      }
    }
  };
  for (const Flow& flow : flows) {
    removeUntil(flow.begin, in);
    if (flow.header > 0) headers.emplace_back(in, flow.header);
    const double data = flow.bytes - flow.header;
    // Within the packet: units that leave meanwhile find what has come by then.
    while (unit < units.size() && units[unit].decode < flow.end) {
      const double part = (units[unit].decode - flow.begin) / (flow.end - flow.begin);
      removeUntil(units[unit].decode, in + std::max(0.0, flow.bytes * part - flow.header));
    }
    in += data;
    level += flow.bytes;
    peaks.elementary = std::max(peaks.elementary, level);
    if (level > limits.elementaryBuffer + kRounding)
      findings.add({Fault::kElementaryBuffer, flow.end, flow.packet, pid,
                    level - limits.elementaryBuffer, "B overflows"});
  }
  removeUntil(kNever, in);
  checkDelays(flows, units, limits, pid, peaks, findings);
  return peaks;
}

BufferPeaks runSystemBuffers(const BufferLimits& limits, const std::vector<Delivery>& deliveries,
                             int pid, Findings& findings) {
  BufferPeaks peaks;
  const std::vector<Flow> flows =
      runTransportBuffer(limits.transportLeak, deliveries, pid, peaks, findings);
  double level = 0;
  double last = 0;
  for (const Flow& flow : flows) {
    level = std::max(0.0, level - (flow.end - last) * limits.elementaryLeak / 8) + flow.bytes;
    last = flow.end;
    peaks.elementary = std::max(peaks.elementary, level);
    if (level > limits.elementaryBuffer + kRounding)
      findings.add({Fault::kElementaryBuffer, flow.end, flow.packet, pid,
                    level - limits.elementaryBuffer, "Bsys overflows"});
  }
  return peaks;
}

}  // namespace zel::test
