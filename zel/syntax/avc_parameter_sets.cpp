#include "zel/syntax/avc_parameter_sets.h"

#include <algorithm>
#include <bit>

#include "zel/base/bit_reader.h"
#include "zel/syntax/avc_vui.h"

namespace zel::syntax {

namespace {

using base::BitReader;

constexpr uint8_t kHighProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};

// No level has a side of more than 1,055 macroblocks, nor 139,264 in a frame (Table A-1); what is
// far beyond that is no picture.
constexpr uint32_t kMaxSideMbs = 4096;
constexpr uint32_t kMaxViews = 1024;

uint8_t readUe8(BitReader& bits, uint32_t largest) {
  const uint32_t value = bits.readUe();
  if (value > largest) bits.fail();
  return static_cast<uint8_t>(value);
}

int8_t readSe8(BitReader& bits, int32_t smallest, int32_t largest) {
  const int32_t value = bits.readSe();
  if (value < smallest || value > largest) bits.fail();
  return static_cast<int8_t>(value);
}

template <size_t kSize>
bool readScalingList(BitReader& bits, std::array<uint8_t, kSize>& list) {
  int last = 8;
  int next = 8;
  bool useDefault = false;
  for (size_t i = 0; i < kSize; ++i) {
    if (next != 0) {
      const int delta = readSe8(bits, -128, 127);
      next = (last + delta + 256) % 256;
      useDefault = i == 0 && next == 0;
    }
    if (next != 0) last = next;
    list[i] = static_cast<uint8_t>(last);
  }
  return useDefault;
}

void readScalingLists(BitReader& bits, size_t count, AvcScalingLists& lists) {
  for (size_t i = 0; i < count; ++i) {
    lists.present[i] = bits.readFlag();
    if (!lists.present[i]) continue;
    lists.useDefault[i] = i < 6 ? readScalingList(bits, lists.size4x4[i])
                                : readScalingList(bits, lists.size8x8[i - 6]);
  }
}

void readChromaFormat(BitReader& bits, AvcSps& sps) {
  sps.chromaFormatIdc = readUe8(bits, 3);
  if (sps.chromaFormatIdc == 3) sps.separateColourPlane = bits.readFlag();
  sps.bitDepthLuma = static_cast<uint8_t>(8 + readUe8(bits, 6));
  sps.bitDepthChroma = static_cast<uint8_t>(8 + readUe8(bits, 6));
  sps.qpprimeYZeroTransformBypass = bits.readFlag();
  sps.scalingMatrixPresent = bits.readFlag();
  if (sps.scalingMatrixPresent) {
    readScalingLists(bits, sps.chromaFormatIdc != 3 ? 8 : 12, sps.scaling);
  }
}

void readPictureOrder(BitReader& bits, AvcSps& sps) {
  sps.pocType = readUe8(bits, 2);
  if (sps.pocType == 0) {
    sps.log2MaxPocLsb = static_cast<uint8_t>(4 + readUe8(bits, 12));
  } else if (sps.pocType == 1) {
    sps.deltaPicOrderAlwaysZero = bits.readFlag();
    sps.offsetForNonRefPic = bits.readSe();
    sps.offsetForTopToBottomField = bits.readSe();
    sps.numRefFramesInPocCycle = readUe8(bits, 255);
    for (size_t i = 0; i < sps.numRefFramesInPocCycle && !bits.failed(); ++i) {
      sps.offsetForRefFrame[i] = bits.readSe();
    }
  }
}

bool croppingFits(const AvcSps& sps) {
  const uint64_t unitX = sps.chromaArrayType() == 1 || sps.chromaArrayType() == 2 ? 2 : 1;
  const uint64_t unitY = (sps.chromaArrayType() == 1 ? 2u : 1u) * (sps.frameMbsOnly ? 1u : 2u);
  return (uint64_t{sps.crop.left} + sps.crop.right) * unitX < uint64_t{sps.picWidthInMbs} * 16 &&
         (uint64_t{sps.crop.top} + sps.crop.bottom) * unitY < uint64_t{sps.frameHeightInMbs()} * 16;
}

void readSize(BitReader& bits, AvcSps& sps) {
  const uint32_t width = bits.readUe();
  const uint32_t height = bits.readUe();
  if (width >= kMaxSideMbs || height >= kMaxSideMbs) bits.fail();
  sps.picWidthInMbs = width + 1;
  sps.picHeightInMapUnits = height + 1;
  sps.frameMbsOnly = bits.readFlag();
  if (!sps.frameMbsOnly) sps.mbAdaptiveFrameField = bits.readFlag();
  sps.direct8x8Inference = bits.readFlag();
  sps.frameCropping = bits.readFlag();
  if (!sps.frameCropping) return;
  sps.crop.left = bits.readUe();
  sps.crop.right = bits.readUe();
  sps.crop.top = bits.readUe();
  sps.crop.bottom = bits.readUe();
  if (!bits.failed() && !croppingFits(sps)) bits.fail();
}

void readSpsData(BitReader& bits, AvcSps& sps) {
  sps = {};
  sps.profileIdc = static_cast<uint8_t>(bits.read(8));
  sps.constraintFlags = static_cast<uint8_t>(bits.read(8));
  sps.levelIdc = static_cast<uint8_t>(bits.read(8));
  sps.id = readUe8(bits, 31);
  if (avcProfileHasChromaFormat(sps.profileIdc)) readChromaFormat(bits, sps);
  sps.log2MaxFrameNum = static_cast<uint8_t>(4 + readUe8(bits, 12));
  readPictureOrder(bits, sps);
  sps.maxNumRefFrames = bits.readUe();
  if (sps.maxNumRefFrames > 16) bits.fail();
  sps.gapsInFrameNumAllowed = bits.readFlag();
  readSize(bits, sps);
  sps.vuiPresent = bits.readFlag();
  if (sps.vuiPresent) readAvcVui(bits, sps.vui);
}

// Annex F (G in older editions), seq_parameter_set_svc_extension, as far as its own VUI.
void readSvcExtension(BitReader& bits, AvcSubsetSps& sps) {
  sps.svcExtension = true;
  const uint8_t chroma = sps.base.chromaArrayType();
  sps.interLayerDeblockingControlPresent = bits.readFlag();
  sps.extendedSpatialScalability = static_cast<uint8_t>(bits.read(2));
  if (chroma == 1 || chroma == 2) sps.chromaPhaseXPlus1 = bits.readFlag();
  if (chroma == 1) sps.chromaPhaseYPlus1 = static_cast<uint8_t>(bits.read(2));
  if (sps.extendedSpatialScalability == 1) {
    if (chroma > 0) bits.skip(3);
    for (int side = 0; side < 4; ++side) bits.readSe();
  }
  sps.tcoeffLevelPrediction = bits.readFlag();
  if (sps.tcoeffLevelPrediction) sps.adaptiveTcoeffLevelPrediction = bits.readFlag();
  sps.sliceHeaderRestriction = bits.readFlag();
  sps.svcVuiPresent = bits.readFlag();
}

uint16_t readViewId(BitReader& bits) {
  const uint32_t id = bits.readUe();
  if (id >= kMaxViews) bits.fail();
  return static_cast<uint16_t>(id);
}

// A list's length, then that many view identifiers.
void readViewIds(BitReader& bits, uint32_t count, std::vector<uint16_t>& views) {
  if (count > kMaxViews) bits.fail();
  for (uint32_t i = 0; i < count && !bits.failed(); ++i) views.push_back(readViewId(bits));
}

void readOperationPoint(BitReader& bits, AvcMvcOperationPoint& point) {
  point.temporalId = static_cast<uint8_t>(bits.read(3));
  const uint32_t targets = bits.readUe();
  readViewIds(bits, targets >= kMaxViews ? kMaxViews + 1 : targets + 1, point.targetViews);
}

void readMvcVui(BitReader& bits, AvcSubsetSps& sps) {
  const uint32_t last = bits.readUe();
  if (last >= kMaxViews) bits.fail();
  for (uint32_t i = 0; i <= last && !bits.failed(); ++i) {
    AvcMvcOperationPoint& point = sps.vuiPoints.emplace_back();
    readOperationPoint(bits, point);
    readAvcTiming(bits, point.timing);
    point.nalHrdPresent = bits.readFlag();
    if (point.nalHrdPresent) readAvcHrd(bits, point.nalHrd);
    point.vclHrdPresent = bits.readFlag();
    if (point.vclHrdPresent) readAvcHrd(bits, point.vclHrd);
    if (point.nalHrdPresent || point.vclHrdPresent) point.lowDelayHrd = bits.readFlag();
    point.picStructPresent = bits.readFlag();
  }
}

void readMvcLevels(BitReader& bits, AvcSubsetSps& sps) {
  const uint32_t last = bits.readUe();
  if (last >= 64) bits.fail();
  for (uint32_t i = 0; i <= last && !bits.failed(); ++i) {
    AvcMvcLevel& level = sps.levels.emplace_back();
    level.levelIdc = static_cast<uint8_t>(bits.read(8));
    const uint32_t lastPoint = bits.readUe();
    if (lastPoint >= 1024) bits.fail();
    for (uint32_t j = 0; j <= lastPoint && !bits.failed(); ++j) {
      AvcMvcOperationPoint& point = level.points.emplace_back();
      readOperationPoint(bits, point);
      point.numViews = bits.readUe() + 1;
    }
  }
}

void readMvcRefs(BitReader& bits, AvcSubsetSps& sps, bool anchor) {
  for (size_t i = 1; i < sps.views.size() && !bits.failed(); ++i) {
    auto& lists = anchor ? sps.views[i].anchorRefs : sps.views[i].nonAnchorRefs;
    for (auto& list : lists) {
      const uint32_t count = bits.readUe();
      readViewIds(bits, std::min<uint32_t>(count, kMaxViews + 1), list);
    }
  }
}

// Annex G (H in older editions), seq_parameter_set_mvc_extension.
void readMvcExtension(BitReader& bits, AvcSubsetSps& sps) {
  sps.mvcExtension = true;
  const uint32_t last = bits.readUe();
  if (last >= kMaxViews) bits.fail();
  for (uint32_t i = 0; i <= last && !bits.failed(); ++i) {
    sps.views.emplace_back().viewId = readViewId(bits);
  }
  readMvcRefs(bits, sps, true);
  readMvcRefs(bits, sps, false);
  readMvcLevels(bits, sps);
}

void readSliceGroups(BitReader& bits, AvcPps& pps) {
  const size_t groups = pps.numSliceGroups;
  pps.sliceGroupMapType = readUe8(bits, 6);
  if (pps.sliceGroupMapType == 0) {
    for (size_t i = 0; i < groups; ++i) pps.runLengthMinus1[i] = bits.readUe();
  } else if (pps.sliceGroupMapType == 2) {
    for (size_t i = 0; i + 1 < groups; ++i) {
      pps.topLeft[i] = bits.readUe();
      pps.bottomRight[i] = bits.readUe();
    }
  } else if (pps.sliceGroupMapType >= 3 && pps.sliceGroupMapType <= 5) {
    pps.sliceGroupChangeDirection = bits.readFlag();
    pps.sliceGroupChangeRate = bits.readUe() + 1;
  } else if (pps.sliceGroupMapType == 6) {
    const uint32_t units = bits.readUe() + 1;
    const auto width = static_cast<int>(std::bit_width(groups - 1));
    if (uint64_t{units} * static_cast<unsigned>(width) > bits.bitsLeft()) bits.fail();
    for (uint32_t i = 0; i < units && !bits.failed(); ++i) {
      pps.sliceGroupId.push_back(static_cast<uint8_t>(bits.read(width)));
    }
  }
}

}  // namespace

bool avcProfileHasChromaFormat(uint8_t profileIdc) {
  return std::find(std::begin(kHighProfiles), std::end(kHighProfiles), profileIdc) !=
         std::end(kHighProfiles);
}

uint32_t AvcSps::croppedWidth() const {
  const uint32_t unit = chromaArrayType() == 1 || chromaArrayType() == 2 ? 2 : 1;
  return picWidthInMbs * 16 - (crop.left + crop.right) * unit;
}

uint32_t AvcSps::croppedHeight() const {
  const uint32_t unit = (chromaArrayType() == 1 ? 2u : 1u) * (frameMbsOnly ? 1u : 2u);
  return frameHeightInMbs() * 16 - (crop.top + crop.bottom) * unit;
}

bool parseAvcSps(std::span<const uint8_t> rbsp, AvcSps& sps) {
  BitReader bits(rbsp);
  readSpsData(bits, sps);
  return !bits.failed();
}

bool parseAvcSubsetSps(std::span<const uint8_t> rbsp, AvcSubsetSps& sps) {
  BitReader bits(rbsp);
  sps = {};
  readSpsData(bits, sps.base);
  const uint8_t profile = sps.base.profileIdc;
  if (profile == 83 || profile == 86) {
    readSvcExtension(bits, sps);
  } else if (profile == 118 || profile == 128 || profile == 134) {
    if (!bits.readFlag()) bits.fail();  // bit_equal_to_one
    readMvcExtension(bits, sps);
    sps.mvcVuiPresent = bits.readFlag();
    if (sps.mvcVuiPresent) readMvcVui(bits, sps);
  }
  return !bits.failed();
}

bool parseAvcPps(std::span<const uint8_t> rbsp, uint8_t chromaFormatIdc, AvcPps& pps) {
  BitReader bits(rbsp);
  pps = {};
  pps.id = readUe8(bits, 255);
  pps.spsId = readUe8(bits, 31);
  pps.entropyCodingMode = bits.readFlag();
  pps.bottomFieldPicOrderInFramePresent = bits.readFlag();
  pps.numSliceGroups = static_cast<uint8_t>(1 + readUe8(bits, 7));
  if (bits.failed()) return false;
  if (pps.numSliceGroups > 1) readSliceGroups(bits, pps);
  pps.numRefIdxL0Default = static_cast<uint8_t>(1 + readUe8(bits, 31));
  pps.numRefIdxL1Default = static_cast<uint8_t>(1 + readUe8(bits, 31));
  pps.weightedPred = bits.readFlag();
  pps.weightedBipredIdc = static_cast<uint8_t>(bits.read(2));
  if (pps.weightedBipredIdc > 2) bits.fail();
  pps.picInitQpMinus26 = readSe8(bits, -62, 25);  // -(26 + QpBdOffset) at 14 bits
  pps.picInitQsMinus26 = readSe8(bits, -26, 25);
  pps.chromaQpIndexOffset = readSe8(bits, -12, 12);
  pps.deblockingFilterControlPresent = bits.readFlag();
  pps.constrainedIntraPred = bits.readFlag();
  pps.redundantPicCntPresent = bits.readFlag();
  pps.secondChromaQpIndexOffset = pps.chromaQpIndexOffset;
  if (!bits.failed() && bits.moreRbspData()) {
    pps.transform8x8Mode = bits.readFlag();
    pps.scalingMatrixPresent = bits.readFlag();
    const size_t lists8x8 = pps.transform8x8Mode ? (chromaFormatIdc != 3 ? 2 : 6) : 0;
    if (pps.scalingMatrixPresent) readScalingLists(bits, 6 + lists8x8, pps.scaling);
    pps.secondChromaQpIndexOffset = readSe8(bits, -12, 12);
  }
  return !bits.failed();
}

}  // namespace zel::syntax
