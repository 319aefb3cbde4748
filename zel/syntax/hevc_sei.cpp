#include "zel/syntax/hevc_sei.h"

#include "zel/syntax/hevc_header_parts.h"

namespace zel::syntax {

namespace {

using base::BitReader;

// Table D.2, in half frames: frame, fields, pairs, three fields, doubling, tripling, paired fields.
constexpr uint8_t kDisplayFields[] = {2, 1, 1, 2, 2, 3, 3, 4, 6, 1, 1, 1, 1};

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

void readDelays(BitReader& bits, const HevcHrd& hrd, bool alternatives,
                std::vector<HevcInitialDelay>& delays) {
  const int length = hrd.initialCpbRemovalDelayLength;
  delays.resize(hrd.subLayers[0].cpbCount);
  for (HevcInitialDelay& delay : delays) {
    delay.delay = bits.read(length);
    delay.offset = bits.read(length);
    if (!alternatives) continue;
    delay.altDelay = bits.read(length);
    delay.altOffset = bits.read(length);
  }
}

void readClock(BitReader& bits, ClockTimestamp& clock) {
  constexpr int kFrameBits = 9;
  clock.present = bits.readFlag();
  if (!clock.present) return;
  readClockTime(bits, kFrameBits, clock);
  const int offsetLength = read8(bits, 5);
  if (offsetLength > 0) clock.timeOffset = bits.readSigned(offsetLength);
}

}  // namespace

int hevcDisplayFields(uint8_t picStruct) {
  return picStruct < std::size(kDisplayFields) ? kDisplayFields[picStruct] : 0;
}

bool peekHevcBufferingPeriodSpsId(std::span<const uint8_t> payload, uint8_t& spsId) {
  BitReader bits(payload);
  spsId = static_cast<uint8_t>(readUeUpTo(bits, 15));
  return !bits.failed();
}

bool parseHevcBufferingPeriod(std::span<const uint8_t> payload, const HevcSps& sps,
                              HevcBufferingPeriod& period) {
  BitReader bits(payload);
  const HevcHrd& hrd = sps.vui.hrd;
  period = {};
  period.spsId = static_cast<uint8_t>(readUeUpTo(bits, 15));
  if (!hrd.subPicParamsPresent) period.irapCpbParamsPresent = bits.readFlag();
  if (period.irapCpbParamsPresent) {
    period.cpbDelayOffset = bits.read(hrd.auCpbRemovalDelayLength);
    period.dpbDelayOffset = bits.read(hrd.dpbOutputDelayLength);
  }
  period.concatenation = bits.readFlag();
  period.auCpbRemovalDelayDelta = bits.read(hrd.auCpbRemovalDelayLength) + 1;
  const bool alternatives = hrd.subPicParamsPresent || period.irapCpbParamsPresent;
  if (hrd.nalPresent) readDelays(bits, hrd, alternatives, period.nal);
  if (hrd.vclPresent) readDelays(bits, hrd, alternatives, period.vcl);
  return !bits.failed();
}

bool parseHevcPicTiming(std::span<const uint8_t> payload, const HevcSps& sps,
                        HevcPicTiming& timing) {
  BitReader bits(payload);
  const HevcHrd& hrd = sps.vui.hrd;
  timing = {};
  timing.frameFieldInfoPresent = sps.vui.frameFieldInfoPresent;
  if (timing.frameFieldInfoPresent) {
    timing.picStruct = read8(bits, 4);
    timing.sourceScanType = read8(bits, 2);
    timing.duplicate = bits.readFlag();
  }
  timing.delaysPresent = hrd.nalPresent || hrd.vclPresent;
  if (timing.delaysPresent) {
    timing.auCpbRemovalDelay = bits.read(hrd.auCpbRemovalDelayLength) + 1;
    timing.picDpbOutputDelay = bits.read(hrd.dpbOutputDelayLength);
    if (hrd.subPicParamsPresent) {
      timing.picDpbOutputDuDelay = bits.read(hrd.dpbOutputDelayDuLength);
    }
  }
  return !bits.failed();
}

bool parseHevcPictureHash(std::span<const uint8_t> payload, uint8_t chromaFormatIdc,
                          HevcPictureHash& hash) {
  BitReader bits(payload);
  hash = {};
  hash.type = read8(bits, 8);
  if (hash.type > kHevcHashChecksum) return false;
  hash.components = chromaFormatIdc == 0 ? 1 : 3;
  for (size_t c = 0; c < hash.components; ++c) {
    if (hash.type == kHevcHashMd5) {
      for (uint8_t& byte : hash.md5[c]) byte = read8(bits, 8);
    } else {
      hash.value[c] = bits.read(hash.type == kHevcHashCrc ? 16 : 32);
    }
  }
  return !bits.failed();
}

bool parseHevcTimeCode(std::span<const uint8_t> payload, HevcTimeCode& timeCode) {
  BitReader bits(payload);
  timeCode = {};
  timeCode.count = read8(bits, 2);
  for (size_t i = 0; i < timeCode.count; ++i) readClock(bits, timeCode.clock[i]);
  return !bits.failed();
}

bool parseHevcMasteringDisplay(std::span<const uint8_t> payload, HevcMasteringDisplay& display) {
  BitReader bits(payload);
  for (auto& primary : display.primaries) {
    for (uint16_t& value : primary) value = static_cast<uint16_t>(bits.read(16));
  }
  for (uint16_t& value : display.whitePoint) value = static_cast<uint16_t>(bits.read(16));
  display.maxLuminance = bits.read(32);
  display.minLuminance = bits.read(32);
  return !bits.failed();
}

bool parseHevcContentLight(std::span<const uint8_t> payload, HevcContentLight& light) {
  BitReader bits(payload);
  light.maxContentLightLevel = static_cast<uint16_t>(bits.read(16));
  light.maxPicAverageLightLevel = static_cast<uint16_t>(bits.read(16));
  return !bits.failed();
}

}  // namespace zel::syntax
