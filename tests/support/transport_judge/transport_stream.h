#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "tests/support/transport_judge/elementary_units.h"
#include "tests/support/transport_judge/finding.h"

namespace zel::test {

inline constexpr double kSystemClock = 27e6;

/// A packet's header, as ISO/IEC 13818-1, 2.4.3.2 to 2.4.3.5 has it.
struct TsPacket {
  int64_t index = 0;
  int pid = 0x1FFF;
  bool unitStart = false;
  bool hasPayload = false;
  bool discontinuity = false;
  bool randomAccess = false;
  int continuity = 0;
  int64_t pcr = -1;  // 27 MHz ticks
  std::span<const uint8_t> bytes;
  std::span<const uint8_t> payload;
};

struct PcrSample {
  int64_t packet = 0;
  double ticks = 0;  // without wrap
  bool discontinuity = false;
};

struct StreamEntry {
  int pid = 0;
  unsigned streamType = 0;
  std::vector<uint8_t> descriptors;
  Coding coding = Coding::kUnknown;
};

struct Programme {
  int number = 0;
  int pmtPid = -1;
  int pcrPid = 0x1FFF;
  std::vector<StreamEntry> streams;
  std::vector<PcrSample> pcrs;
};

/// The whole stream with its tables read; what was wrong on the way is in the findings.
struct TransportStream {
  std::vector<TsPacket> packets;
  std::map<int, Programme> programmes;
  std::vector<int64_t> patPackets;                 // where each PAT ended
  std::map<int, std::vector<int64_t>> pmtPackets;  // by programme number
  std::map<int, std::vector<PcrSample>> pcrs;      // by PID
};

/// `packetBytes`: 188, or more when something stands behind (`stampBefore`: before) each packet.
TransportStream readTransportStream(std::span<const uint8_t> bytes, int packetBytes,
                                    int stampBefore, Findings& findings);

}  // namespace zel::test
