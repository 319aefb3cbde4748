#include "zel/syntax/avc_vui.h"

namespace zel::syntax {

namespace {

using base::BitReader;

constexpr uint32_t kExtendedSar = 255;

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

void readAspectRatio(BitReader& bits, AvcVui& vui) {
  vui.aspectRatioInfoPresent = bits.readFlag();
  if (!vui.aspectRatioInfoPresent) return;
  vui.aspectRatioIdc = read8(bits, 8);
  if (vui.aspectRatioIdc != kExtendedSar) return;
  vui.sarWidth = static_cast<uint16_t>(bits.read(16));
  vui.sarHeight = static_cast<uint16_t>(bits.read(16));
}

void readSignalType(BitReader& bits, AvcVui& vui) {
  vui.videoSignalTypePresent = bits.readFlag();
  if (!vui.videoSignalTypePresent) return;
  vui.videoFormat = read8(bits, 3);
  vui.videoFullRange = bits.readFlag();
  vui.colourDescriptionPresent = bits.readFlag();
  if (!vui.colourDescriptionPresent) return;
  vui.colourPrimaries = read8(bits, 8);
  vui.transferCharacteristics = read8(bits, 8);
  vui.matrixCoefficients = read8(bits, 8);
}

void readChromaLocation(BitReader& bits, AvcVui& vui) {
  vui.chromaLocInfoPresent = bits.readFlag();
  if (!vui.chromaLocInfoPresent) return;
  const uint32_t top = bits.readUe();
  const uint32_t bottom = bits.readUe();
  if (top > 5 || bottom > 5) bits.fail();
  vui.chromaSampleLocTypeTop = static_cast<uint8_t>(top);
  vui.chromaSampleLocTypeBottom = static_cast<uint8_t>(bottom);
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
  readAspectRatio(bits, vui);
  vui.overscanInfoPresent = bits.readFlag();
  if (vui.overscanInfoPresent) vui.overscanAppropriate = bits.readFlag();
  readSignalType(bits, vui);
  readChromaLocation(bits, vui);
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
