#include "tests/support/transport_judge/transport_judge.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <set>

#include "tests/support/transport_judge/arrival_clock.h"
#include "tests/support/transport_judge/pes_stream.h"
#include "tests/support/transport_judge/transport_stream.h"

namespace zel::test {
namespace {

constexpr double kLongestPcrError = 500e-9;          // 2.4.2.2
constexpr double kLongestTimestampInterval = 0.7;    // 2.7.4
constexpr double kStampWrap = 8589934592.0 / 90000;  // seconds
constexpr double kIntervalRounding = 1e-4;

void checkPcrs(const Programme& programme, const ArrivalClock& clock, const JudgeOptions& options,
               Verdict& verdict, Findings& findings) {
  const int pid = programme.pcrPid;
  const PcrSample* last = nullptr;
  for (const PcrSample& sample : programme.pcrs) {
    const double time = clock.packetTime(sample.packet);
    const double error = clock.pcrError(sample);
    verdict.worstPcrError = std::max(verdict.worstPcrError, std::abs(error));
    if (std::abs(error) > kLongestPcrError)
      findings.add({Fault::kPcrAccuracy, time, sample.packet, pid, error * 1e9, "PCR is off, ns"});
    const double interval = last != nullptr ? time - clock.packetTime(last->packet) : 0;
    if (interval > options.longestPcrInterval + kIntervalRounding)
      findings.add({Fault::kPcrInterval, time, sample.packet, pid, interval, "between PCRs"});
    last = &sample;
  }
}

void checkIntervals(const std::vector<int64_t>& ends, const ArrivalClock& clock, double longest,
                    double duration, Fault fault, int pid, Findings& findings) {
  double last = 0;
  for (const int64_t packet : ends) {
    const double time = clock.packetTime(packet);
    if (time - last > longest + kIntervalRounding)
      findings.add({fault, time, packet, pid, time - last, "between tables"});
    last = time;
  }
  if (duration - last > longest + kIntervalRounding)
    findings.add({fault, duration, -1, pid, duration - last, "no more tables to the end"});
}

// A written 33-bit stamp in seconds on the packets' clock, the short way round from `near`.
double stampSeconds(int64_t stamp, double near, const ArrivalClock& clock) {
  const double raw = static_cast<double>(stamp) / 90000 - clock.originTicks() / kSystemClock;
  return raw + kStampWrap * std::round((near - raw) / kStampWrap);
}

struct Stamped {
  size_t unit;
  double pts, dts;
};

// The stamp of a PES packet is that of the first access unit that begins in it: 2.4.3.7.
std::vector<Stamped> stampedUnits(const PesStream& pes, const std::vector<TimedUnit>& units,
                                  const ArrivalClock& clock, int pid, Findings& findings) {
  std::vector<Stamped> stamped;
  size_t unit = 0;
  for (size_t i = 0; i < pes.packets.size(); ++i) {
    const PesPacket& packet = pes.packets[i];
    const int64_t end = i + 1 < pes.packets.size() ? pes.packets[i + 1].begin
                                                   : static_cast<int64_t>(pes.data.size());
    while (unit < units.size() && units[unit].begin < packet.begin) ++unit;
    if (packet.pts < 0) continue;
    const double near = clock.packetTime(packet.packet);
    if (unit >= units.size() || units[unit].begin >= end) {
      findings.add({Fault::kPesSyntax, near, packet.packet, pid, 0,
                    "a time stamp, and no access unit begins"});
      continue;
    }
    stamped.push_back(
        {unit, stampSeconds(packet.pts, near, clock), stampSeconds(packet.dts, near, clock)});
  }
  return stamped;
}

void checkStamps(const std::vector<Stamped>& stamped, const std::vector<TimedUnit>& units,
                 bool video, int pid, Findings& findings) {
  double lastDts = -1e300;
  double lastPts = -1e300;
  for (const Stamped& each : stamped) {
    const int64_t packet = units[each.unit].packet;
    const auto fault = [&](Fault kind, double amount, const char* text) {
      findings.add({kind, each.dts, packet, pid, amount, text});
    };
    if (each.pts < each.dts - 1e-9)
      fault(Fault::kTimestampOrder, each.dts - each.pts, "PTS is before DTS");
    if (each.dts <= lastDts) fault(Fault::kTimestampOrder, lastDts - each.dts, "DTS doesn't grow");
    if (!video && each.pts <= lastPts)
      fault(Fault::kTimestampOrder, lastPts - each.pts, "PTS doesn't grow");
    if (lastDts > -1e299 && each.dts - lastDts > kLongestTimestampInterval + kIntervalRounding)
      fault(Fault::kTimestampInterval, each.dts - lastDts, "between time stamps");
    lastDts = each.dts;
    lastPts = each.pts;
  }
}

// Every unit's decoding time: its own, or between those of its neighbours.
void timeUnits(const std::vector<Stamped>& stamped, const Units& found,
               std::vector<TimedUnit>& units) {
  double step = 1.0 / 25;
  for (size_t i = 0; i < stamped.size(); ++i) {
    const size_t from = stamped[i].unit;
    const bool last = i + 1 == stamped.size();
    const size_t to = last ? units.size() : stamped[i + 1].unit;
    if (!last && to > from)
      step = (stamped[i + 1].dts - stamped[i].dts) / static_cast<double>(to - from);
    double time = stamped[i].dts;
    for (size_t unit = from; unit < to; ++unit) {
      units[unit].decode = time;
      const double own = unit < found.list.size() ? found.list[unit].duration : 0;
      time += own > 0 ? own : step;
    }
  }
}

std::vector<TimedUnit> placeUnits(const Units& found, const PesStream& pes) {
  std::vector<TimedUnit> units;
  const auto size = static_cast<int64_t>(pes.data.size());
  if (found.list.empty()) {
    // No walk: a unit a PES packet.
    for (size_t i = 0; i < pes.packets.size(); ++i)
      units.push_back({pes.packets[i].begin,
                       i + 1 < pes.packets.size() ? pes.packets[i + 1].begin : size, 0,
                       pes.packets[i].packet});
    return units;
  }
  size_t packet = 0;
  for (size_t i = 0; i < found.list.size(); ++i) {
    const int64_t begin = found.list[i].begin;
    while (packet + 1 < pes.packets.size() && pes.packets[packet + 1].begin <= begin) ++packet;
    units.push_back({begin, i + 1 < found.list.size() ? found.list[i + 1].begin : size, 0,
                     pes.packets[packet].packet});
  }
  return units;
}

void judgeStream(const StreamEntry& entry, int programme, const TransportStream& stream,
                 const ArrivalClock& clock, const JudgeOptions& options, Verdict& verdict,
                 Findings& findings) {
  PesStream pes = readPesStream(stream.packets, entry.pid, findings);
  StreamVerdict result;
  result.pid = entry.pid;
  result.programme = programme;
  result.coding = entry.coding;
  result.bytes = static_cast<int64_t>(pes.data.size());
  if (pes.packets.empty()) {
    verdict.streams.push_back(result);
    return;
  }
  for (Delivery& delivery : pes.deliveries) {
    delivery.begin = clock.packetTime(delivery.packet);
    delivery.end = clock.packetEnd(delivery.packet);
  }
  const Units found = findUnits(entry.coding, pes.data);
  for (const auto& [place, text] : found.faults)
    findings.add({Fault::kUnitSyntax, 0, -1, entry.pid, static_cast<double>(place), text});
  std::vector<TimedUnit> units = placeUnits(found, pes);
  const std::vector<Stamped> stamped = stampedUnits(pes, units, clock, entry.pid, findings);
  result.units = static_cast<int64_t>(units.size());
  result.facts = found.facts;
  if (stamped.empty() || stamped.front().unit != 0) {
    findings.add({Fault::kNoTimestamp, 0, pes.packets.front().packet, entry.pid, 0,
                  "the first access unit has no time stamp"});
    if (stamped.empty()) {
      verdict.streams.push_back(result);
      return;
    }
  }
  checkStamps(stamped, units, isVideo(entry.coding), entry.pid, findings);
  timeUnits(stamped, found, units);
  // Units before the first stamp have no time, and the buffers nothing to take away.
  units.erase(units.begin(), units.begin() + static_cast<std::ptrdiff_t>(stamped.front().unit));
  result.firstDecode = units.front().decode;
  result.lastDecode = units.back().decode;
  if (isVideo(entry.coding)) {
    result.limits = videoLimits(entry.coding, found.facts);
    result.peaks = runVideoBuffers(result.limits, pes.deliveries, units, entry.pid, findings);
  } else if (entry.coding != Coding::kUnknown) {
    result.limits = audioLimits(entry.coding, found.facts, options.audioBuffers);
    result.peaks = runAudioBuffers(result.limits, pes.deliveries, units, entry.pid, findings);
  }
  verdict.streams.push_back(result);
}

void judgeSystem(const Programme& programme, const TransportStream& stream,
                 const ArrivalClock& clock, Findings& findings) {
  std::vector<Delivery> deliveries;
  for (const TsPacket& packet : stream.packets) {
    if (packet.pid != 0 && packet.pid != 1 && packet.pid != programme.pmtPid) continue;
    deliveries.push_back({clock.packetTime(packet.index), clock.packetEnd(packet.index),
                          packet.index, static_cast<int>(packet.payload.size()), 0});
  }
  runSystemBuffers(systemLimits(clock.rate()), deliveries, programme.pmtPid, findings);
}

void checkReferences(const TransportStream& stream, Findings& findings) {
  // Tables of PIDs 0 to 0x1F need no reference: 2.4.3.3, and ETSI EN 300 468.
  std::set<int> known = {0x1FFF};
  for (const auto& [number, programme] : stream.programmes) {
    known.insert({programme.pmtPid, programme.pcrPid});
    for (const StreamEntry& entry : programme.streams) known.insert(entry.pid);
  }
  for (const TsPacket& packet : stream.packets)
    if (packet.pid > 0x1F && known.insert(packet.pid).second)
      findings.add({Fault::kUnreferencedPid, 0, packet.index, packet.pid, 0, "in no table"});
}

void judgeProgramme(const Programme& programme, const TransportStream& stream,
                    const JudgeOptions& options, Verdict& verdict, Findings& findings) {
  const auto tables = stream.pmtPackets.find(programme.number);
  if (tables == stream.pmtPackets.end()) {
    findings.add({Fault::kNoPmt, 0, -1, programme.pmtPid, 0,
                  "programme " + std::to_string(programme.number)});
    return;
  }
  if (programme.pcrPid == 0x1FFF && programme.streams.empty()) return;
  const ArrivalClock clock = options.constantRate
                                 ? ArrivalClock::constant(programme.pcrs, options.rate)
                                 : ArrivalClock::between(programme.pcrs);
  if (!clock.valid()) {
    findings.add({Fault::kNoPcr, 0, -1, programme.pcrPid, 0, "too few PCRs to tell the time"});
    return;
  }
  findings.untimedFrom(clock.toldUntil());
  const double duration = clock.packetTime(verdict.packets);
  verdict.rate = clock.rate();
  verdict.seconds = duration;
  checkPcrs(programme, clock, options, verdict, findings);
  checkIntervals(stream.patPackets, clock, options.longestTableInterval, duration,
                 Fault::kPatInterval, 0, findings);
  checkIntervals(tables->second, clock, options.longestTableInterval, duration, Fault::kPmtInterval,
                 programme.pmtPid, findings);
  judgeSystem(programme, stream, clock, findings);
  for (const StreamEntry& entry : programme.streams) {
    // Sections, not PES packets: private ones, those of DSM-CC and SCTE 35.
    const bool sections = entry.streamType == 5 || entry.streamType == 0x86 ||
                          (entry.streamType >= 0x0A && entry.streamType <= 0x0D) ||
                          entry.streamType == 0xC0;
    if (!sections) judgeStream(entry, programme.number, stream, clock, options, verdict, findings);
  }
}

}  // namespace

Verdict judgeTransportStream(std::span<const uint8_t> bytes, const JudgeOptions& options) {
  Verdict verdict;
  Findings findings;
  const TransportStream stream =
      readTransportStream(bytes, options.packetBytes, options.stampBefore, findings);
  verdict.packets = static_cast<int64_t>(stream.packets.size());
  verdict.nullPackets = std::count_if(stream.packets.begin(), stream.packets.end(),
                                      [](const TsPacket& packet) { return packet.pid == 0x1FFF; });
  if (stream.programmes.empty()) findings.add({Fault::kNoPat, 0, -1, 0, 0, "no programme"});
  for (const auto& [number, programme] : stream.programmes)
    judgeProgramme(programme, stream, options, verdict, findings);
  checkReferences(stream, findings);

  verdict.findings = findings.list();
  verdict.findingCount = findings.total();
  for (Finding& finding : verdict.findings)
    if (finding.seconds == 0 && finding.packet > 0 && verdict.rate > 0)
      finding.seconds = static_cast<double>(finding.packet) * 1504 / verdict.rate;
  std::stable_sort(verdict.findings.begin(), verdict.findings.end(),
                   [](const auto& a, const auto& b) { return a.seconds < b.seconds; });
  return verdict;
}

std::vector<Finding> Verdict::of(Fault fault) const {
  std::vector<Finding> some;
  std::copy_if(findings.begin(), findings.end(), std::back_inserter(some),
               [fault](const Finding& finding) { return finding.fault == fault; });
  return some;
}

std::string Verdict::text() const {
  std::array<char, 400> line{};
  std::snprintf(
      line.data(), line.size(),
      "%lld packets (%lld null), %.3f s at %.1f bit/s, worst PCR %.1f ns, %lld findings\n",
      static_cast<long long>(packets), static_cast<long long>(nullPackets), seconds, rate,
      worstPcrError * 1e9, static_cast<long long>(findingCount));
  std::string all = line.data();
  for (const StreamVerdict& each : streams) {
    std::snprintf(line.data(), line.size(),
                  "  PID 0x%04X %s %s: %lld bytes, %lld units, TB %.0f, MB %.0f of %.0f, buffer "
                  "%.0f of %.0f, least margin %.0f, longest delay %.3f s\n",
                  static_cast<unsigned>(each.pid), codingName(each.coding),
                  each.facts.levelText.c_str(), static_cast<long long>(each.bytes),
                  static_cast<long long>(each.units), each.peaks.transport, each.peaks.multiplex,
                  each.limits.multiplexBuffer, each.peaks.elementary, each.limits.elementaryBuffer,
                  each.peaks.leastMargin, each.peaks.longestDelay);
    all += line.data();
  }
  for (const Finding& finding : findings) all += "  " + toText(finding) + "\n";
  return all;
}

std::vector<uint8_t> elementaryStream(std::span<const uint8_t> bytes, int pid, int packetBytes) {
  Findings findings;
  const TransportStream stream = readTransportStream(bytes, packetBytes, 0, findings);
  return readPesStream(stream.packets, pid, findings).data;
}

}  // namespace zel::test
