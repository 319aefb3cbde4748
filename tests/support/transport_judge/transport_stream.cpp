#include "tests/support/transport_judge/transport_stream.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <set>

namespace zel::test {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr double kPcrWrap = 300.0 * 8589934592.0;

// Section by section of a PID: ISO/IEC 13818-1, 2.4.4.
class SectionReader {
 public:
  template <class Take>
  void packet(const TsPacket& packet, Findings& findings, Take take) {
    if (!packet.hasPayload || packet.payload.empty()) return;
    Bytes rest = packet.payload;
    if (packet.unitStart) {
      const size_t pointer = rest[0];
      if (pointer + 1 > rest.size()) {
        fault(findings, packet, "the pointer field leads out of the packet");
        return;
      }
      append(rest.subspan(1, pointer), packet, findings, take);
      if (!section_.empty()) fault(findings, packet, "a section is cut by the next");
      section_.clear();
      started_ = true;
      rest = rest.subspan(pointer + 1);
    }
    if (started_) append(rest, packet, findings, take);
  }

 private:
  static void fault(Findings& findings, const TsPacket& packet, const char* text) {
    findings.add({Fault::kSectionSyntax, 0, packet.index, packet.pid, 0, text});
  }

  template <class Take>
  void append(Bytes bytes, const TsPacket& packet, Findings& findings, Take take) {
    for (const uint8_t byte : bytes) {
      if (section_.empty() && byte == 0xFF) return;  // stuffing to the packet's end
      section_.push_back(byte);
      if (section_.size() < 3) continue;
      const size_t size = 3U + ((section_[1] & 15U) << 8 | section_[2]);
      if (section_.size() < size) continue;
      check(packet, findings, take);
      section_.clear();
    }
  }

  template <class Take>
  void check(const TsPacket& packet, Findings& findings, Take take) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : section_)
      for (int bit = 7; bit >= 0; --bit) {
        const bool feed = (crc >> 31 ^ (byte >> bit & 1U)) != 0;
        crc = crc << 1 ^ (feed ? 0x04C11DB7U : 0U);
      }
    if (crc != 0) {
      findings.add({Fault::kSectionCrc, 0, packet.index, packet.pid, 0, "CRC-32 doesn't fit"});
      return;
    }
    take(Bytes(section_), packet);
  }

  std::vector<uint8_t> section_;
  bool started_ = false;
};

bool hasRegistration(Bytes descriptors, const char* identifier) {
  for (size_t i = 0; i + 2 <= descriptors.size(); i += 2U + descriptors[i + 1])
    if (descriptors[i] == 5 && descriptors[i + 1] >= 4 && i + 6 <= descriptors.size() &&
        std::memcmp(&descriptors[i + 2], identifier, 4) == 0)
      return true;
  return false;
}
bool hasTag(Bytes descriptors, unsigned tag) {
  for (size_t i = 0; i + 2 <= descriptors.size(); i += 2U + descriptors[i + 1])
    if (descriptors[i] == tag) return true;
  return false;
}

struct TypeCoding {
  unsigned streamType;
  Coding coding;
};
constexpr std::array kTypes = {
    TypeCoding{0x01, Coding::kMpeg1Video}, TypeCoding{0x02, Coding::kMpeg2Video},
    TypeCoding{0x03, Coding::kMpegAudio},  TypeCoding{0x04, Coding::kMpegAudio},
    TypeCoding{0x0F, Coding::kAdts},       TypeCoding{0x10, Coding::kMpeg4Video},
    TypeCoding{0x11, Coding::kLatm},       TypeCoding{0x1B, Coding::kAvc},
    TypeCoding{0x24, Coding::kHevc},       TypeCoding{0x81, Coding::kAc3},
    TypeCoding{0x82, Coding::kDts},        TypeCoding{0x84, Coding::kEac3},
    TypeCoding{0x85, Coding::kDts},        TypeCoding{0x86, Coding::kUnknown},
    TypeCoding{0x87, Coding::kEac3},       TypeCoding{0x8A, Coding::kDts},
};

Coding codingOf(unsigned streamType, Bytes descriptors) {
  for (const TypeCoding& row : kTypes)
    if (row.streamType == streamType) return row.coding;
  // Private data say by a descriptor what they are: ETSI EN 300 468, SMPTE ST 302.
  if (hasRegistration(descriptors, "BSSD")) return Coding::kSmpte302m;
  if (hasTag(descriptors, 0x6A) || hasRegistration(descriptors, "AC-3")) return Coding::kAc3;
  if (hasTag(descriptors, 0x7A) || hasRegistration(descriptors, "EAC3")) return Coding::kEac3;
  if (hasTag(descriptors, 0x7B) || hasRegistration(descriptors, "DTS1") ||
      hasRegistration(descriptors, "DTS2") || hasRegistration(descriptors, "DTS3") ||
      hasRegistration(descriptors, "DTSH"))
    return Coding::kDts;
  return Coding::kUnknown;
}

void readPat(Bytes section, const TsPacket& packet, TransportStream& stream) {
  if (section.size() < 12 || section[0] != 0) return;
  stream.patPackets.push_back(packet.index);
  for (size_t i = 8; i + 8 <= section.size(); i += 4) {
    const int number = section[i] << 8 | section[i + 1];
    const int pid = (section[i + 2] & 0x1F) << 8 | section[i + 3];
    if (number == 0) continue;
    Programme& programme = stream.programmes[number];
    programme.number = number;
    programme.pmtPid = pid;
  }
}

void readPmt(Bytes section, const TsPacket& packet, TransportStream& stream, Findings& findings) {
  if (section.size() < 16 || section[0] != 2) return;
  const int number = section[3] << 8 | section[4];
  const auto found = stream.programmes.find(number);
  if (found == stream.programmes.end()) return;
  stream.pmtPackets[number].push_back(packet.index);
  Programme& programme = found->second;
  programme.pcrPid = (section[8] & 0x1F) << 8 | section[9];
  programme.streams.clear();
  const size_t end = section.size() - 4;
  size_t i = 12U + ((section[10] & 15U) << 8 | section[11]);
  while (i + 5 <= end) {
    StreamEntry entry;
    entry.streamType = section[i];
    entry.pid = (section[i + 1] & 0x1F) << 8 | section[i + 2];
    const size_t length = (section[i + 3] & 15U) << 8 | section[i + 4];
    i += 5;
    if (i + length > end) break;
    const Bytes descriptors = section.subspan(i, length);
    entry.descriptors.assign(descriptors.begin(), descriptors.end());
    entry.coding = codingOf(entry.streamType, descriptors);
    programme.streams.push_back(std::move(entry));
    i += length;
  }
  if (i != end)
    findings.add({Fault::kSectionSyntax, 0, packet.index, packet.pid, 0, "loops of the PMT"});
}

bool readHeader(Bytes bytes, TsPacket& packet, Findings& findings) {
  packet.bytes = bytes;
  packet.pid = (bytes[1] & 0x1F) << 8 | bytes[2];
  const auto fault = [&](Fault kind, const char* text) {
    findings.add({kind, 0, packet.index, packet.pid, 0, text});
    return false;
  };
  if (bytes[0] != 0x47) return fault(Fault::kSync, "no sync byte");
  if ((bytes[1] & 0x80) != 0) return fault(Fault::kTransportError, "error indicator");
  packet.unitStart = (bytes[1] & 0x40) != 0;
  packet.continuity = bytes[3] & 15;
  const int control = bytes[3] >> 4 & 3;
  packet.hasPayload = (control & 1) != 0;
  if (control == 0) return fault(Fault::kHeader, "adaptation_field_control is 0");
  size_t begin = 4;
  if ((control & 2) != 0) {
    const size_t length = bytes[4];
    if (control == 2 ? length != 183 : length > 182)
      return fault(Fault::kHeader, "adaptation_field_length");
    begin = 5 + length;
    if (length > 0) {
      packet.discontinuity = (bytes[5] & 0x80) != 0;
      packet.randomAccess = (bytes[5] & 0x40) != 0;
      if ((bytes[5] & 0x10) != 0 && length >= 7) {
        const int64_t base = static_cast<int64_t>(bytes[6]) << 25 | bytes[7] << 17 | bytes[8] << 9 |
                             bytes[9] << 1 | bytes[10] >> 7;
        packet.pcr = base * 300 + ((bytes[10] & 1) << 8 | bytes[11]);
      }
    }
  }
  if (packet.hasPayload) packet.payload = bytes.subspan(begin);
  return true;
}

// 2.4.3.3: a packet may be sent twice, and then it is the same but for its PCR.
class Continuity {
 public:
  // Whether the packet is a duplicate, which no decoder takes.
  bool check(const TsPacket& packet, Findings& findings) {
    State& state = states_[packet.pid];
    const bool known = state.last >= 0;
    const int last = state.last;
    const bool wasDuplicate = state.duplicate;
    state.last = packet.continuity;
    state.duplicate = false;
    if (!known || packet.discontinuity) {
      remember(packet, state);
      return false;
    }
    if (!packet.hasPayload) {
      if (packet.continuity != last) report(packet, last, findings);
      return false;
    }
    if (packet.continuity == last && !wasDuplicate && samePayload(packet, state)) {
      state.duplicate = true;
      return true;
    }
    if (packet.continuity != (last + 1) % 16) report(packet, last, findings);
    remember(packet, state);
    return false;
  }

 private:
  struct State {
    int last = -1;
    bool duplicate = false;
    Bytes payload;
  };
  static void remember(const TsPacket& packet, State& state) {
    if (packet.hasPayload) state.payload = packet.payload;
  }
  static bool samePayload(const TsPacket& packet, const State& state) {
    return !state.payload.empty() && std::equal(packet.payload.begin(), packet.payload.end(),
                                                state.payload.begin(), state.payload.end());
  }
  static void report(const TsPacket& packet, int last, Findings& findings) {
    findings.add(
        {Fault::kContinuity, 0, packet.index, packet.pid, 0,
         "counter " + std::to_string(packet.continuity) + " behind " + std::to_string(last)});
  }
  std::map<int, State> states_;
};

void takePcr(const TsPacket& packet, TransportStream& stream) {
  std::vector<PcrSample>& samples = stream.pcrs[packet.pid];
  auto ticks = static_cast<double>(packet.pcr);
  if (!samples.empty() && !packet.discontinuity) {
    // The short way round from the last.
    const double before = samples.back().ticks;
    while (ticks < before - kPcrWrap / 2) ticks += kPcrWrap;
  }
  samples.push_back({packet.index, ticks, packet.discontinuity && !samples.empty()});
}

}  // namespace

TransportStream readTransportStream(Bytes bytes, int packetBytes, int stampBefore,
                                    Findings& findings) {
  TransportStream stream;
  const auto size = static_cast<size_t>(packetBytes);
  const auto before = static_cast<size_t>(stampBefore);
  stream.packets.reserve(bytes.size() / size);
  if (bytes.size() % size != 0)
    findings.add({Fault::kSync, 0, static_cast<int64_t>(bytes.size() / size), -1,
                  static_cast<double>(bytes.size() % size), "bytes behind the last whole packet"});
  Continuity continuity;
  std::map<int, SectionReader> sections;
  for (size_t place = 0; place + size <= bytes.size(); place += size) {
    TsPacket packet;
    packet.index = static_cast<int64_t>(place / size);
    const bool sound = readHeader(bytes.subspan(place + before, 188), packet, findings);
    if (!sound) {
      packet.hasPayload = false;
      stream.packets.push_back(packet);
      continue;
    }
    if (packet.pid != 0x1FFF && continuity.check(packet, findings)) {
      packet.hasPayload = false;
      packet.payload = {};
    }
    if (packet.pcr >= 0) takePcr(packet, stream);
    if (packet.pid == 0)
      sections[0].packet(packet, findings,
                         [&](Bytes section, const TsPacket& at) { readPat(section, at, stream); });
    const bool isPmt =
        std::any_of(stream.programmes.begin(), stream.programmes.end(),
                    [&](const auto& each) { return each.second.pmtPid == packet.pid; });
    if (isPmt && packet.pid != 0)
      sections[packet.pid].packet(packet, findings, [&](Bytes section, const TsPacket& at) {
        readPmt(section, at, stream, findings);
      });
    stream.packets.push_back(packet);
  }
  for (auto& [number, programme] : stream.programmes)
    if (const auto found = stream.pcrs.find(programme.pcrPid); found != stream.pcrs.end())
      programme.pcrs = found->second;
  return stream;
}

}  // namespace zel::test
