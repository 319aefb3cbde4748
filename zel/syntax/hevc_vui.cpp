#include "zel/syntax/hevc_header_parts.h"

namespace zel::syntax {

namespace {

using base::BitReader;

void readFieldsAndWindow(BitReader& bits, HevcVui& vui) {
  vui.neutralChromaIndication = bits.readFlag();
  vui.fieldSeq = bits.readFlag();
  vui.frameFieldInfoPresent = bits.readFlag();
  vui.defaultDisplayWindow = bits.readFlag();
  if (!vui.defaultDisplayWindow) return;
  vui.displayWindow.left = bits.readUe();
  vui.displayWindow.right = bits.readUe();
  vui.displayWindow.top = bits.readUe();
  vui.displayWindow.bottom = bits.readUe();
}

void readTiming(BitReader& bits, HevcTiming& timing) {
  timing.numUnitsInTick = bits.read(32);
  timing.timeScale = bits.read(32);
  timing.pocProportional = bits.readFlag();
  if (timing.pocProportional) timing.numTicksPocDiffOneMinus1 = bits.readUe();
}

void readRestriction(BitReader& bits, HevcVui& vui) {
  vui.bitstreamRestriction = bits.readFlag();
  if (!vui.bitstreamRestriction) return;
  vui.tilesFixedStructure = bits.readFlag();
  vui.motionVectorsOverPicBoundaries = bits.readFlag();
  vui.restrictedRefPicLists = bits.readFlag();
  vui.minSpatialSegmentationIdc = readUeUpTo(bits, 4095);
  vui.maxBytesPerPicDenom = readUeUpTo(bits, 16);
  vui.maxBitsPerMinCuDenom = readUeUpTo(bits, 16);
  vui.log2MaxMvLengthHorizontal = readUeUpTo(bits, 16);
  vui.log2MaxMvLengthVertical = readUeUpTo(bits, 15);
}

}  // namespace

void readHevcVui(BitReader& bits, int maxSubLayersMinus1, HevcVui& vui) {
  readVuiDescription(bits, vui);
  readFieldsAndWindow(bits, vui);
  vui.timing.present = bits.readFlag();
  if (vui.timing.present) {
    readTiming(bits, vui.timing);
    vui.hrdPresent = bits.readFlag();
    if (vui.hrdPresent) readHevcHrd(bits, true, maxSubLayersMinus1, vui.hrd);
  }
  readRestriction(bits, vui);
}

}  // namespace zel::syntax
