#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "zel/syntax/clock_timestamp.h"
#include "zel/syntax/hevc_parameter_sets.h"

/// SEI messages of HEVC: ITU-T H.265, Annex D. The payloads come from SeiMessages; each parser
/// gives false where they end early or hold what can't be. Registered user data has AVC's form.

namespace zel::syntax {

/// Beside those of SeiType.
enum HevcSeiType : uint32_t {
  kHevcSeiActiveParameterSets = 129,
  kHevcSeiDecodedPictureHash = 132,
  kHevcSeiTimeCode = 136,
  kHevcSeiMasteringDisplay = 137,
  kHevcSeiContentLight = 144,
};

struct HevcInitialDelay {  // 90 kHz
  uint32_t delay = 0;
  uint32_t offset = 0;
  uint32_t altDelay = 0;
  uint32_t altOffset = 0;
  bool operator==(const HevcInitialDelay&) const = default;
};

struct HevcBufferingPeriod {
  uint8_t spsId = 0;
  bool irapCpbParamsPresent = false;
  uint32_t cpbDelayOffset = 0;
  uint32_t dpbDelayOffset = 0;
  bool concatenation = false;
  uint32_t auCpbRemovalDelayDelta = 1;
  std::vector<HevcInitialDelay> nal;
  std::vector<HevcInitialDelay> vcl;
};

struct HevcPicTiming {
  bool frameFieldInfoPresent = false;
  uint8_t picStruct = 0;  // Table D.2
  uint8_t sourceScanType = 2;
  bool duplicate = false;
  bool delaysPresent = false;
  uint32_t auCpbRemovalDelay = 1;
  uint32_t picDpbOutputDelay = 0;
  uint32_t picDpbOutputDuDelay = 0;
};

enum HevcHashType : uint8_t { kHevcHashMd5 = 0, kHevcHashCrc = 1, kHevcHashChecksum = 2 };

struct HevcPictureHash {
  uint8_t type = 0;
  uint8_t components = 0;  // 3, or 1 for monochrome
  std::array<std::array<uint8_t, 16>, 3> md5{};
  std::array<uint32_t, 3> value{};  // CRC or checksum
};

struct HevcTimeCode {
  uint8_t count = 0;
  std::array<ClockTimestamp, 3> clock{};
};

struct HevcMasteringDisplay {  // 0.00002 units of x and y, 0.0001 cd/m2
  std::array<std::array<uint16_t, 2>, 3> primaries{};
  std::array<uint16_t, 2> whitePoint{};
  uint32_t maxLuminance = 0;
  uint32_t minLuminance = 0;
};

struct HevcContentLight {  // cd/m2
  uint16_t maxContentLightLevel = 0;
  uint16_t maxPicAverageLightLevel = 0;
};

bool peekHevcBufferingPeriodSpsId(std::span<const uint8_t> payload, uint8_t& spsId);
bool parseHevcBufferingPeriod(std::span<const uint8_t> payload, const HevcSps& sps,
                              HevcBufferingPeriod& period);
bool parseHevcPicTiming(std::span<const uint8_t> payload, const HevcSps& sps,
                        HevcPicTiming& timing);
bool parseHevcPictureHash(std::span<const uint8_t> payload, uint8_t chromaFormatIdc,
                          HevcPictureHash& hash);
bool parseHevcTimeCode(std::span<const uint8_t> payload, HevcTimeCode& timeCode);
bool parseHevcMasteringDisplay(std::span<const uint8_t> payload, HevcMasteringDisplay& display);
bool parseHevcContentLight(std::span<const uint8_t> payload, HevcContentLight& light);

/// How many half frame periods the picture is shown, Table D.2; 0 for the reserved values.
int hevcDisplayFields(uint8_t picStruct);

}  // namespace zel::syntax
