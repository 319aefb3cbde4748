#include "zel/syntax/hevc_parameter_sets.h"

#include "zel/syntax/hevc_header_parts.h"

namespace zel::syntax {

namespace {

using base::BitReader;

// Level 6.2 allows a side of Sqrt(8 * 35,651,584) = 16,888 luma samples; 8.5 has no limit, but
// levels beyond are not far: 65,535 is what a window's units can still express.
constexpr uint32_t kMaxSide = 65535;
constexpr uint32_t kMaxLayerSets = 1024;

uint8_t readUe8(BitReader& bits, uint32_t largest) {
  return static_cast<uint8_t>(readUeUpTo(bits, largest));
}

int8_t readSe8(BitReader& bits, int32_t low, int32_t high) {
  return static_cast<int8_t>(readSeBetween(bits, low, high));
}

template <class Sizes>
void readOrdering(BitReader& bits, int maxSubLayersMinus1, bool all, Sizes& ordering) {
  const auto last = static_cast<size_t>(maxSubLayersMinus1);
  for (size_t i = all ? 0 : last; i <= last; ++i) {
    ordering[i].maxDecPicBufferingMinus1 = readUe8(bits, 15);
    ordering[i].maxNumReorderPics = readUe8(bits, 15);
    ordering[i].maxLatencyIncreasePlus1 = bits.readUe();
  }
  // 7.4.3.1: what isn't sent is that of the highest sub-layer.
  for (size_t i = 0; !all && i < last; ++i) ordering[i] = ordering[last];
}

void readLayerSets(BitReader& bits, HevcVps& vps) {
  vps.maxLayerId = static_cast<uint8_t>(bits.read(6));
  vps.numLayerSetsMinus1 = static_cast<uint16_t>(readUeUpTo(bits, kMaxLayerSets - 1));
  for (unsigned set = 0; set < vps.numLayerSetsMinus1 && !bits.failed(); ++set) {
    uint64_t layers = 0;
    for (unsigned layer = 0; layer <= vps.maxLayerId; ++layer) {
      layers |= uint64_t{bits.readFlag()} << layer;
    }
    vps.layerSets.push_back(layers);
  }
}

void readVpsTiming(BitReader& bits, HevcVps& vps) {
  vps.timing.present = bits.readFlag();
  if (!vps.timing.present) return;
  vps.timing.numUnitsInTick = bits.read(32);
  vps.timing.timeScale = bits.read(32);
  vps.timing.pocProportional = bits.readFlag();
  if (vps.timing.pocProportional) vps.timing.numTicksPocDiffOneMinus1 = bits.readUe();
  const uint32_t count = readUeUpTo(bits, kMaxLayerSets);
  for (uint32_t i = 0; i < count && !bits.failed(); ++i) {
    vps.hrdLayerSetIdx.push_back(static_cast<uint16_t>(readUeUpTo(bits, kMaxLayerSets - 1)));
    const bool common = i == 0 || bits.readFlag();  // cprms_present_flag
    HevcHrd hrd;
    if (!common) {
      hrd = vps.hrds.back();
      hrd.subLayers = {};
    }
    readHevcHrd(bits, common, vps.maxSubLayersMinus1, hrd);
    vps.hrds.push_back(std::move(hrd));
  }
}

bool windowFits(const HevcSps& sps) {
  const HevcWindow& window = sps.conformanceWindow;
  const uint64_t unitX = sps.chromaFormatIdc == 1 || sps.chromaFormatIdc == 2 ? 2 : 1;
  const uint64_t unitY = sps.chromaFormatIdc == 1 ? 2 : 1;
  return (uint64_t{window.left} + window.right) * unitX < sps.width &&
         (uint64_t{window.top} + window.bottom) * unitY < sps.height;
}

void readPictureFormat(BitReader& bits, HevcSps& sps) {
  sps.chromaFormatIdc = readUe8(bits, 3);
  if (sps.chromaFormatIdc == 3) sps.separateColourPlane = bits.readFlag();
  sps.width = readUeUpTo(bits, kMaxSide);
  sps.height = readUeUpTo(bits, kMaxSide);
  if (sps.width == 0 || sps.height == 0) bits.fail();
  sps.conformanceWindowPresent = bits.readFlag();
  if (sps.conformanceWindowPresent) {
    sps.conformanceWindow.left = bits.readUe();
    sps.conformanceWindow.right = bits.readUe();
    sps.conformanceWindow.top = bits.readUe();
    sps.conformanceWindow.bottom = bits.readUe();
    if (!windowFits(sps)) bits.fail();
  }
  sps.bitDepthLuma = static_cast<uint8_t>(8 + readUe8(bits, 8));
  sps.bitDepthChroma = static_cast<uint8_t>(8 + readUe8(bits, 8));
  sps.log2MaxPocLsb = static_cast<uint8_t>(4 + readUe8(bits, 12));
}

void readBlockSizes(BitReader& bits, HevcSps& sps) {
  sps.log2MinCb = static_cast<uint8_t>(3 + readUe8(bits, 3));
  sps.log2Ctb = static_cast<uint8_t>(sps.log2MinCb + readUe8(bits, 3));
  sps.log2MinTb = static_cast<uint8_t>(2 + readUe8(bits, 3));
  sps.log2MaxTb = static_cast<uint8_t>(sps.log2MinTb + readUe8(bits, 3));
  const uint32_t depth = sps.log2Ctb > sps.log2MinTb ? sps.log2Ctb - sps.log2MinTb : 0u;
  sps.maxTransformHierarchyDepthInter = readUe8(bits, depth);
  sps.maxTransformHierarchyDepthIntra = readUe8(bits, depth);
  // 7.4.3.2.1; CTBs of 8 are not allowed by any profile and by no block structure either.
  const uint32_t unit = (1u << sps.log2MinCb) - 1;
  if (sps.log2Ctb < 4 || sps.log2Ctb > 6 || sps.log2MinTb >= sps.log2MinCb || sps.log2MaxTb > 5 ||
      sps.log2MaxTb > sps.log2Ctb || (sps.width & unit) != 0 || (sps.height & unit) != 0) {
    bits.fail();
  }
}

void readPcm(BitReader& bits, HevcSps& sps) {
  sps.pcmEnabled = bits.readFlag();
  if (!sps.pcmEnabled) return;
  sps.pcmBitDepthLuma = static_cast<uint8_t>(bits.read(4) + 1);
  sps.pcmBitDepthChroma = static_cast<uint8_t>(bits.read(4) + 1);
  sps.log2MinPcmCb = static_cast<uint8_t>(3 + readUe8(bits, 2));
  sps.log2MaxPcmCb = static_cast<uint8_t>(sps.log2MinPcmCb + readUe8(bits, 2));
  sps.pcmLoopFilterDisabled = bits.readFlag();
  if (sps.pcmBitDepthLuma > sps.bitDepthLuma || sps.pcmBitDepthChroma > sps.bitDepthChroma ||
      sps.log2MinPcmCb < sps.log2MinCb || sps.log2MaxPcmCb > 5 || sps.log2MaxPcmCb > sps.log2Ctb) {
    bits.fail();
  }
}

void readTools(BitReader& bits, HevcSps& sps) {
  sps.scalingListEnabled = bits.readFlag();
  if (sps.scalingListEnabled) {
    sps.scaling = defaultHevcScalingLists();
    sps.scalingListDataPresent = bits.readFlag();
    if (sps.scalingListDataPresent) readHevcScalingLists(bits, sps.scaling);
  }
  sps.ampEnabled = bits.readFlag();
  sps.saoEnabled = bits.readFlag();
  readPcm(bits, sps);
}

void readReferenceSets(BitReader& bits, HevcSps& sps) {
  const uint32_t count = readUeUpTo(bits, kHevcMaxShortTermSets);
  for (uint32_t i = 0; i < count && !bits.failed(); ++i) {
    HevcShortTermSet set;
    readHevcShortTermSet(bits, sps.shortTermSets, false, set);
    sps.shortTermSets.push_back(set);
  }
  sps.longTermRefPicsPresent = bits.readFlag();
  if (!sps.longTermRefPicsPresent) return;
  sps.numLongTermSps = readUe8(bits, kHevcMaxLongTermSps);
  for (size_t i = 0; i < sps.numLongTermSps; ++i) {
    sps.ltRefPicPocLsb[i] = bits.read(sps.log2MaxPocLsb);
    sps.usedByCurrPicLt[i] = bits.readFlag();
  }
}

void readSpsRange(BitReader& bits, HevcSpsRange& range) {
  for (bool* flag : {&range.transformSkipRotation, &range.transformSkipContext,
                     &range.implicitRdpcm, &range.explicitRdpcm, &range.extendedPrecision,
                     &range.intraSmoothingDisabled, &range.highPrecisionOffsets,
                     &range.persistentRiceAdaptation, &range.cabacBypassAlignment}) {
    *flag = bits.readFlag();
  }
}

template <class Set>
bool readExtensionFlags(BitReader& bits, Set& set) {
  if (!bits.readFlag()) return false;
  set.rangeExtensionPresent = bits.readFlag();
  set.multilayerExtensionPresent = bits.readFlag();
  set.extension3dPresent = bits.readFlag();
  set.sccExtensionPresent = bits.readFlag();
  set.extension4bits = static_cast<uint8_t>(bits.read(4));
  return set.rangeExtensionPresent;
}

void readTiles(BitReader& bits, HevcPps& pps) {
  pps.numTileColumns = static_cast<uint8_t>(1 + readUe8(bits, kHevcMaxTileColumns - 1));
  pps.numTileRows = static_cast<uint8_t>(1 + readUe8(bits, kHevcMaxTileRows - 1));
  pps.uniformSpacing = bits.readFlag();
  if (!pps.uniformSpacing) {
    for (size_t i = 0; i + 1 < pps.numTileColumns; ++i) {
      pps.columnWidth[i] = static_cast<uint16_t>(1 + readUeUpTo(bits, kMaxSide - 1));
    }
    for (size_t i = 0; i + 1 < pps.numTileRows; ++i) {
      pps.rowHeight[i] = static_cast<uint16_t>(1 + readUeUpTo(bits, kMaxSide - 1));
    }
  }
  pps.loopFilterAcrossTiles = bits.readFlag();
}

void readDeblocking(BitReader& bits, HevcPps& pps) {
  pps.deblockingControlPresent = bits.readFlag();
  if (!pps.deblockingControlPresent) return;
  pps.deblockingOverrideEnabled = bits.readFlag();
  pps.deblockingDisabled = bits.readFlag();
  if (pps.deblockingDisabled) return;
  pps.betaOffsetDiv2 = readSe8(bits, -6, 6);
  pps.tcOffsetDiv2 = readSe8(bits, -6, 6);
}

void readPpsRange(BitReader& bits, bool transformSkip, HevcPpsRange& range) {
  if (transformSkip) range.log2MaxTransformSkip = static_cast<uint8_t>(2 + readUe8(bits, 3));
  range.crossComponentPrediction = bits.readFlag();
  range.chromaQpOffsetListEnabled = bits.readFlag();
  if (range.chromaQpOffsetListEnabled) {
    range.diffCuChromaQpOffsetDepth = readUe8(bits, 3);
    range.chromaQpOffsetListLen = static_cast<uint8_t>(1 + readUe8(bits, 5));
    for (size_t i = 0; i < range.chromaQpOffsetListLen; ++i) {
      range.cbQpOffsetList[i] = readSe8(bits, -12, 12);
      range.crQpOffsetList[i] = readSe8(bits, -12, 12);
    }
  }
  range.log2SaoOffsetScaleLuma = readUe8(bits, 6);
  range.log2SaoOffsetScaleChroma = readUe8(bits, 6);
}

void readPpsTools(BitReader& bits, HevcPps& pps) {
  pps.numRefIdxL0Default = static_cast<uint8_t>(1 + readUe8(bits, 14));
  pps.numRefIdxL1Default = static_cast<uint8_t>(1 + readUe8(bits, 14));
  pps.initQpMinus26 = readSe8(bits, -74, 25);  // -(26 + QpBdOffset) at 16 bits
  pps.constrainedIntraPred = bits.readFlag();
  pps.transformSkipEnabled = bits.readFlag();
  pps.cuQpDeltaEnabled = bits.readFlag();
  if (pps.cuQpDeltaEnabled) pps.diffCuQpDeltaDepth = readUe8(bits, 3);
  pps.cbQpOffset = readSe8(bits, -12, 12);
  pps.crQpOffset = readSe8(bits, -12, 12);
  pps.sliceChromaQpOffsetsPresent = bits.readFlag();
  pps.weightedPred = bits.readFlag();
  pps.weightedBipred = bits.readFlag();
  pps.transquantBypassEnabled = bits.readFlag();
  pps.tilesEnabled = bits.readFlag();
  pps.entropyCodingSync = bits.readFlag();
}

// Whether sizes of all but the last leave at least one CTB to that.
template <size_t kCount>
bool partsFit(const std::array<uint16_t, kCount>& sizes, size_t count, uint32_t whole) {
  uint64_t sum = 0;
  for (size_t i = 0; i + 1 < count; ++i) sum += sizes[i];
  return sum < whole;
}

}  // namespace

uint32_t HevcSps::croppedWidth() const {
  const uint32_t unit = chromaFormatIdc == 1 || chromaFormatIdc == 2 ? 2 : 1;
  return width - (conformanceWindow.left + conformanceWindow.right) * unit;
}

uint32_t HevcSps::croppedHeight() const {
  const uint32_t unit = chromaFormatIdc == 1 ? 2 : 1;
  return height - (conformanceWindow.top + conformanceWindow.bottom) * unit;
}

bool parseHevcVps(std::span<const uint8_t> rbsp, HevcVps& vps) {
  BitReader bits(rbsp);
  vps = {};
  vps.id = static_cast<uint8_t>(bits.read(4));
  vps.baseLayerInternal = bits.readFlag();
  vps.baseLayerAvailable = bits.readFlag();
  vps.maxLayersMinus1 = static_cast<uint8_t>(bits.read(6));
  vps.maxSubLayersMinus1 = static_cast<uint8_t>(bits.read(3));
  if (vps.maxSubLayersMinus1 >= kHevcMaxSubLayers) return false;
  vps.temporalIdNesting = bits.readFlag();
  bits.skip(16);  // vps_reserved_0xffff_16bits
  readHevcProfileTierLevel(bits, vps.maxSubLayersMinus1, vps.profileTierLevel);
  vps.subLayerOrderingInfoPresent = bits.readFlag();
  readOrdering(bits, vps.maxSubLayersMinus1, vps.subLayerOrderingInfoPresent, vps.ordering);
  readLayerSets(bits, vps);
  readVpsTiming(bits, vps);
  vps.extension = bits.readFlag();
  return !bits.failed();
}

bool parseHevcSps(std::span<const uint8_t> rbsp, HevcSps& sps) {
  BitReader bits(rbsp);
  sps = {};
  sps.vpsId = static_cast<uint8_t>(bits.read(4));
  sps.maxSubLayersMinus1 = static_cast<uint8_t>(bits.read(3));
  if (sps.maxSubLayersMinus1 >= kHevcMaxSubLayers) return false;
  sps.temporalIdNesting = bits.readFlag();
  readHevcProfileTierLevel(bits, sps.maxSubLayersMinus1, sps.profileTierLevel);
  sps.id = readUe8(bits, 15);
  readPictureFormat(bits, sps);
  sps.subLayerOrderingInfoPresent = bits.readFlag();
  readOrdering(bits, sps.maxSubLayersMinus1, sps.subLayerOrderingInfoPresent, sps.ordering);
  readBlockSizes(bits, sps);
  if (bits.failed()) return false;
  readTools(bits, sps);
  readReferenceSets(bits, sps);
  sps.temporalMvpEnabled = bits.readFlag();
  sps.strongIntraSmoothing = bits.readFlag();
  sps.vuiPresent = bits.readFlag();
  if (sps.vuiPresent) readHevcVui(bits, sps.maxSubLayersMinus1, sps.vui);
  if (readExtensionFlags(bits, sps)) readSpsRange(bits, sps.range);
  return !bits.failed();
}

bool parseHevcPps(std::span<const uint8_t> rbsp, HevcPps& pps) {
  BitReader bits(rbsp);
  pps = {};
  pps.id = readUe8(bits, 63);
  pps.spsId = readUe8(bits, 15);
  pps.dependentSliceSegmentsEnabled = bits.readFlag();
  pps.outputFlagPresent = bits.readFlag();
  pps.numExtraSliceHeaderBits = static_cast<uint8_t>(bits.read(3));
  pps.signDataHiding = bits.readFlag();
  pps.cabacInitPresent = bits.readFlag();
  readPpsTools(bits, pps);
  if (pps.tilesEnabled) readTiles(bits, pps);
  pps.loopFilterAcrossSlices = bits.readFlag();
  readDeblocking(bits, pps);
  pps.scalingListDataPresent = bits.readFlag();
  if (pps.scalingListDataPresent) readHevcScalingLists(bits, pps.scaling);
  pps.listsModificationPresent = bits.readFlag();
  pps.log2ParallelMergeLevel = static_cast<uint8_t>(2 + readUe8(bits, 4));
  pps.sliceHeaderExtensionPresent = bits.readFlag();
  if (readExtensionFlags(bits, pps)) readPpsRange(bits, pps.transformSkipEnabled, pps.range);
  return !bits.failed();
}

bool hevcPpsFits(const HevcPps& pps, const HevcSps& sps) {
  const int qpBdOffset = 6 * (sps.bitDepthLuma - 8);
  const uint32_t depth = static_cast<uint32_t>(sps.log2Ctb - sps.log2MinCb);
  if (pps.initQpMinus26 < -(26 + qpBdOffset) || pps.diffCuQpDeltaDepth > depth) return false;
  if (pps.range.diffCuChromaQpOffsetDepth > depth) return false;
  if (pps.log2ParallelMergeLevel > sps.log2Ctb) return false;
  if (!pps.tilesEnabled) return true;
  if (pps.numTileColumns > sps.widthInCtbs() || pps.numTileRows > sps.heightInCtbs()) return false;
  return pps.uniformSpacing || (partsFit(pps.columnWidth, pps.numTileColumns, sps.widthInCtbs()) &&
                                partsFit(pps.rowHeight, pps.numTileRows, sps.heightInCtbs()));
}

}  // namespace zel::syntax
