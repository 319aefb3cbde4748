#pragma once

#include <cstdint>

#include "zel/base/bit_reader.h"

/// The time of day of a picture as the SEI messages of AVC (ITU-T H.264, D.1.3) and of HEVC (ITU-T
/// H.265, D.2.27) have it. The two differ in what stands before and behind, and in how many bits
/// count the frames.

namespace zel::syntax {

struct ClockTimestamp {
  bool present = false;
  uint8_t ctType = 0;  // AVC only
  bool unitsFieldBased = false;
  uint8_t countingType = 0;
  bool fullTimestamp = false;
  bool discontinuity = false;
  bool cntDropped = false;
  uint16_t frames = 0;
  bool secondsPresent = false;  // these three hold for a full time stamp too
  bool minutesPresent = false;
  bool hoursPresent = false;
  uint8_t seconds = 0;
  uint8_t minutes = 0;
  uint8_t hours = 0;
  int32_t timeOffset = 0;
  bool operator==(const ClockTimestamp&) const = default;

  /// counting_type 4, Table D-3: frames 0 and 1 of most minutes have no number.
  bool countsDropFrame() const { return countingType == 4; }
};

/// From units_field_based_flag (nuit_field_based_flag in AVC) to the hours; the frames have
/// `frameBits` bits.
void readClockTime(base::BitReader& bits, int frameBits, ClockTimestamp& clock);

}  // namespace zel::syntax
