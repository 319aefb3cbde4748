#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "zel/syntax/avc_parameter_sets.h"
#include "zel/syntax/clock_timestamp.h"

/// The SEI messages of AVC that tell time: ITU-T H.264, Annex D. The payloads come from
/// SeiMessages; each parser gives false where they end early or hold what can't be.

namespace zel::syntax {

/// Beside those of SeiType.
enum AvcSeiType : uint32_t {
  kAvcSeiMvcScalableNesting = 37,
  kAvcSeiFramePacking = 45,
};

struct AvcInitialDelay {  // 90 kHz
  uint32_t delay = 0;
  uint32_t offset = 0;
  bool operator==(const AvcInitialDelay&) const = default;
};

struct AvcBufferingPeriod {
  uint8_t spsId = 0;
  std::array<AvcInitialDelay, kAvcMaxCpbCount> nal{};  // as many as the HRD has entries
  std::array<AvcInitialDelay, kAvcMaxCpbCount> vcl{};
  bool operator==(const AvcBufferingPeriod&) const = default;
};

struct AvcPicTiming {
  bool delaysPresent = false;
  uint32_t cpbRemovalDelay = 0;
  uint32_t dpbOutputDelay = 0;
  bool picStructPresent = false;
  uint8_t picStruct = 0;  // Table D-1
  uint8_t numClockTimestamps = 0;
  std::array<ClockTimestamp, 3> clock{};
  bool operator==(const AvcPicTiming&) const = default;
};

struct AvcRecoveryPoint {
  uint32_t recoveryFrameCnt = 0;
  bool exactMatch = false;
  bool brokenLink = false;
  uint8_t changingSliceGroupIdc = 0;
  bool operator==(const AvcRecoveryPoint&) const = default;
};

/// User data registered by ITU-T T.35, which HEVC has in the same form.
struct RegisteredUserData {
  uint8_t countryCode = 0;
  uint8_t countryCodeExtension = 0;  // where countryCode is FF
  std::span<const uint8_t> data;
};

bool peekAvcBufferingPeriodSpsId(std::span<const uint8_t> payload, uint8_t& spsId);
bool parseAvcBufferingPeriod(std::span<const uint8_t> payload, const AvcSps& sps,
                             AvcBufferingPeriod& period);
bool parseAvcPicTiming(std::span<const uint8_t> payload, const AvcSps& sps, AvcPicTiming& timing);
bool parseAvcRecoveryPoint(std::span<const uint8_t> payload, AvcRecoveryPoint& point);
bool parseRegisteredUserData(std::span<const uint8_t> payload, RegisteredUserData& data);

/// NumClockTS of Table D-1; 0 for the reserved values.
int avcClockTimestamps(uint8_t picStruct);
/// How many field periods the picture is shown, Table D-1; 0 for the reserved values.
int avcDisplayFields(uint8_t picStruct);

}  // namespace zel::syntax
