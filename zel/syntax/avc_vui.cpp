#include "zel/syntax/avc_vui.h"

namespace zel::syntax {

namespace {

using base::BitReader;

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

void readRestriction(BitReader& bits, AvcVui& vui) {
  vui.bitstreamRestriction = bits.readFlag();
  if (!vui.bitstreamRestriction) return;
  vui.motionVectorsOverPicBoundaries = bits.readFlag();
  vui.maxBytesPerPicDenom = bits.readUe();
  vui.maxBitsPerMbDenom = bits.readUe();
  vui.log2MaxMvLengthHorizontal = bits.readUe();
  vui.log2MaxMvLengthVertical = bits.readUe();
  vui.maxNumReorderFrames = bits.readUe();
  vui.maxDecFrameBuffering = bits.readUe();
}

}  // namespace

void readAvcTiming(BitReader& bits, AvcTiming& timing) {
  timing.present = bits.readFlag();
  if (!timing.present) return;
  timing.numUnitsInTick = bits.read(32);
  timing.timeScale = bits.read(32);
  timing.fixedFrameRate = bits.readFlag();
}

void readAvcHrd(BitReader& bits, AvcHrd& hrd) {
  const uint32_t last = bits.readUe();
  if (last >= kAvcMaxCpbCount) {
    bits.fail();
    return;
  }
  hrd.cpbCount = static_cast<uint8_t>(last + 1);
  hrd.bitRateScale = read8(bits, 4);
  hrd.cpbSizeScale = read8(bits, 4);
  for (size_t i = 0; i < hrd.cpbCount; ++i) {
    hrd.entries[i].bitRateValueMinus1 = bits.readUe();
    hrd.entries[i].cpbSizeValueMinus1 = bits.readUe();
    hrd.entries[i].cbr = bits.readFlag();
  }
  hrd.initialCpbRemovalDelayLength = static_cast<uint8_t>(read8(bits, 5) + 1);
  hrd.cpbRemovalDelayLength = static_cast<uint8_t>(read8(bits, 5) + 1);
  hrd.dpbOutputDelayLength = static_cast<uint8_t>(read8(bits, 5) + 1);
  hrd.timeOffsetLength = read8(bits, 5);
}

void readAvcVui(BitReader& bits, AvcVui& vui) {
  readVuiDescription(bits, vui);
  readAvcTiming(bits, vui.timing);
  vui.nalHrdPresent = bits.readFlag();
  if (vui.nalHrdPresent) readAvcHrd(bits, vui.nalHrd);
  vui.vclHrdPresent = bits.readFlag();
  if (vui.vclHrdPresent) readAvcHrd(bits, vui.vclHrd);
  if (vui.nalHrdPresent || vui.vclHrdPresent) vui.lowDelayHrd = bits.readFlag();
  vui.picStructPresent = bits.readFlag();
  readRestriction(bits, vui);
}

}  // namespace zel::syntax
