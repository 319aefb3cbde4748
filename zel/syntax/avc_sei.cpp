#include "zel/syntax/avc_sei.h"

#include "zel/base/bit_reader.h"

namespace zel::syntax {

namespace {

using base::BitReader;

struct PicStructRow {
  uint8_t clockTimestamps;
  uint8_t fields;
};

// Table D-1: frame; top; bottom; top bottom; bottom top; three fields from either; doubling;
// tripling.
constexpr PicStructRow kPicStruct[] = {{1, 2}, {1, 1}, {1, 1}, {2, 2}, {2, 2},
                                       {3, 3}, {3, 3}, {2, 4}, {3, 6}};

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

void readInitialDelays(BitReader& bits, const AvcHrd& hrd,
                       std::array<AvcInitialDelay, kAvcMaxCpbCount>& delays) {
  for (size_t i = 0; i < hrd.cpbCount; ++i) {
    delays[i].delay = bits.read(hrd.initialCpbRemovalDelayLength);
    delays[i].offset = bits.read(hrd.initialCpbRemovalDelayLength);
  }
}

void readClock(BitReader& bits, int timeOffsetLength, ClockTimestamp& clock) {
  constexpr int kFrameBits = 8;
  clock.present = bits.readFlag();
  if (!clock.present) return;
  clock.ctType = read8(bits, 2);
  readClockTime(bits, kFrameBits, clock);
  if (timeOffsetLength > 0) clock.timeOffset = bits.readSigned(timeOffsetLength);
}

}  // namespace

int avcClockTimestamps(uint8_t picStruct) {
  return picStruct < std::size(kPicStruct) ? kPicStruct[picStruct].clockTimestamps : 0;
}

int avcDisplayFields(uint8_t picStruct) {
  return picStruct < std::size(kPicStruct) ? kPicStruct[picStruct].fields : 0;
}

bool peekAvcBufferingPeriodSpsId(std::span<const uint8_t> payload, uint8_t& spsId) {
  BitReader bits(payload);
  const uint32_t id = bits.readUe();
  spsId = static_cast<uint8_t>(id);
  return !bits.failed() && id <= 31;
}

bool parseAvcBufferingPeriod(std::span<const uint8_t> payload, const AvcSps& sps,
                             AvcBufferingPeriod& period) {
  BitReader bits(payload);
  period = {};
  const uint32_t id = bits.readUe();
  if (id > 31) return false;
  period.spsId = static_cast<uint8_t>(id);
  if (sps.vui.nalHrdPresent) readInitialDelays(bits, sps.vui.nalHrd, period.nal);
  if (sps.vui.vclHrdPresent) readInitialDelays(bits, sps.vui.vclHrd, period.vcl);
  return !bits.failed();
}

bool parseAvcPicTiming(std::span<const uint8_t> payload, const AvcSps& sps, AvcPicTiming& timing) {
  BitReader bits(payload);
  timing = {};
  timing.delaysPresent = sps.delaysPresent();
  if (timing.delaysPresent) {
    timing.cpbRemovalDelay = bits.read(sps.lengths().cpbRemovalDelayLength);
    timing.dpbOutputDelay = bits.read(sps.lengths().dpbOutputDelayLength);
  }
  timing.picStructPresent = sps.vui.picStructPresent;
  if (timing.picStructPresent) {
    timing.picStruct = read8(bits, 4);
    timing.numClockTimestamps = static_cast<uint8_t>(avcClockTimestamps(timing.picStruct));
    const int length = timing.delaysPresent ? sps.lengths().timeOffsetLength : 24;
    for (size_t i = 0; i < timing.numClockTimestamps; ++i) {
      readClock(bits, length, timing.clock[i]);
    }
  }
  return !bits.failed();
}

bool parseAvcRecoveryPoint(std::span<const uint8_t> payload, AvcRecoveryPoint& point) {
  BitReader bits(payload);
  point.recoveryFrameCnt = bits.readUe();
  point.exactMatch = bits.readFlag();
  point.brokenLink = bits.readFlag();
  point.changingSliceGroupIdc = read8(bits, 2);
  return !bits.failed();
}

bool parseRegisteredUserData(std::span<const uint8_t> payload, RegisteredUserData& data) {
  data = {};
  if (payload.empty()) return false;
  data.countryCode = payload[0];
  payload = payload.subspan(1);
  if (data.countryCode == 0xFF) {
    if (payload.empty()) return false;
    data.countryCodeExtension = payload[0];
    payload = payload.subspan(1);
  }
  data.data = payload;
  return true;
}

}  // namespace zel::syntax
