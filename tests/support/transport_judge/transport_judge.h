#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tests/support/transport_judge/decoder_buffers.h"
#include "tests/support/transport_judge/elementary_units.h"
#include "tests/support/transport_judge/finding.h"

/// An independent judge of finished transport streams, from their bytes alone: packets and tables,
/// clock references, time stamps, and the decoder model of ISO/IEC 13818-1, 2.4.2 (AVC by 2.14,
/// HEVC by 2.17), with sizes and rates from the elementary streams' own headers. It shares no code
/// with the multiplexer.
///
///   const Verdict verdict = judgeTransportStream(bytes);
///   EXPECT_TRUE(verdict.clean()) << verdict.text();
///
/// What it doesn't check: the vbv_delay and HRD forms of the way from MB to EB (the leak form is
/// the rule without an STD descriptor), the picture buffer, descriptors' contents, and buffers of
/// streams whose coding it doesn't know (their packets, tables and time stamps are checked).

namespace zel::test {

struct JudgeOptions {
  int packetBytes = 188;
  int stampBefore = 0;                // bytes of `packetBytes` in front of the 188
  bool constantRate = true;           // false: time goes from PCR to PCR
  double rate = 0;                    // bits a second; 0: as the PCRs show
  double longestPcrInterval = 0.1;    // seconds: 2.7.2
  double longestTableInterval = 0.5;  // seconds, of PAT and PMT each
  AudioBufferModel audioBuffers = AudioBufferModel::kStandard;
};

struct StreamVerdict {
  int pid = 0;
  int programme = 0;
  Coding coding = Coding::kUnknown;
  int64_t bytes = 0;  // of the elementary stream
  int64_t units = 0;
  double firstDecode = 0;  // seconds
  double lastDecode = 0;
  StreamFacts facts;
  BufferLimits limits;
  BufferPeaks peaks;
};

struct Verdict {
  std::vector<Finding> findings;
  int64_t findingCount = 0;  // more than stand in the list when a fault comes often
  int64_t packets = 0;
  int64_t nullPackets = 0;
  double rate = 0;  // bits a second
  double seconds = 0;
  double worstPcrError = 0;  // seconds
  std::vector<StreamVerdict> streams;

  bool clean() const { return findingCount == 0; }
  std::vector<Finding> of(Fault fault) const;
  bool has(Fault fault) const { return !of(fault).empty(); }
  /// All streams and findings, a line each.
  std::string text() const;
};

Verdict judgeTransportStream(std::span<const uint8_t> bytes, const JudgeOptions& options = {});

/// The elementary stream of a PID, joined from its PES packets; to be compared with what went in.
std::vector<uint8_t> elementaryStream(std::span<const uint8_t> bytes, int pid,
                                      int packetBytes = 188);

}  // namespace zel::test
