#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace zel::test {

/// What is wrong with a transport stream. Clauses are those of ISO/IEC 13818-1.
enum class Fault {
  kSync,               // 2.4.3.3: a packet without 0x47, or bytes behind the last whole packet
  kTransportError,     // transport_error_indicator
  kHeader,             // adaptation_field_control 0, an adaptation field of an impossible length
  kContinuity,         // 2.4.3.3: a counter that jumps, or stands still with new payload
  kNoPat,              // no programme could be found
  kNoPmt,              // a programme of the PAT has no PMT
  kSectionCrc,         // 2.4.4: CRC-32
  kSectionSyntax,      // lengths that don't fit, a section cut short
  kPatInterval,        // longer than asked for between two PATs
  kPmtInterval,        // the same of a PMT
  kUnreferencedPid,    // packets that no table tells of
  kNoPcr,              // a PCR_PID without PCRs
  kPcrAccuracy,        // 2.4.2.2: more than 500 ns off its packet's place
  kPcrInterval,        // longer than asked for between two PCRs
  kPesSyntax,          // 2.4.3.6
  kNoTimestamp,        // the first access unit of a stream has none
  kTimestampInterval,  // 2.7.4: more than 0.7 s without a PTS
  kTimestampOrder,     // DTS that doesn't grow; PTS of audio likewise; a PTS before its DTS
  kUnitSyntax,         // frames of audio that don't follow each other
  kTransportBuffer,    // TB, 512 bytes: overflow
  kTransportBufferNotEmptied,  // 2.4.2.6: TB empties at least once a second
  kMultiplexBuffer,            // MB: overflow
  kElementaryBuffer,           // B of audio or of system information: overflow
  kUnderflow,                  // the access unit isn't whole at its decoding time
  kDelay,                      // 1 s, or 10 s where the coding allows it
};
const char* faultName(Fault fault);
inline bool isOfBuffers(Fault fault) {
  return fault >= Fault::kTransportBuffer && fault <= Fault::kUnderflow;
}

struct Finding {
  Fault fault;
  double seconds = 0;   // on the clock of the stream's packets: 0 is the first byte
  int64_t packet = -1;  // counted from 0; -1: the finding is of no one packet
  int pid = -1;
  double amount = 0;  // bytes too many or missing; seconds of an interval; nanoseconds of a PCR
  std::string text;
};
std::string toText(const Finding& finding);

/// Of one fault on one PID: this many are kept with their text, the rest is counted.
inline constexpr int kFindingsKept = 50;

/// The list that the checks add to.
class Findings {
 public:
  /// From `seconds` on packets come at times that nothing tells: what buffers do then is no fault.
  void untimedFrom(double seconds) { untimedFrom_ = seconds; }
  void add(Finding finding) {
    if (finding.seconds > untimedFrom_ && isOfBuffers(finding.fault)) return;
    int& seen = counts_[static_cast<size_t>(finding.fault) % kFaultSlots]
                       [static_cast<size_t>(finding.pid + 1) % kPidSlots];
    ++total_;
    if (++seen <= kFindingsKept) list_.push_back(std::move(finding));
  }
  const std::vector<Finding>& list() const { return list_; }
  int64_t total() const { return total_; }

 private:
  static constexpr size_t kFaultSlots = 32;
  static constexpr size_t kPidSlots = 8193;
  std::vector<std::vector<int>> counts_ =
      std::vector<std::vector<int>>(kFaultSlots, std::vector<int>(kPidSlots));
  std::vector<Finding> list_;
  int64_t total_ = 0;
  double untimedFrom_ = std::numeric_limits<double>::infinity();
};

}  // namespace zel::test
