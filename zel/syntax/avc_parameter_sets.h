#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "zel/syntax/vui_description.h"

/// The parameter sets of AVC: ITU-T H.264, 7.3.2 and Annex E. All parsers here take the RBSP: what
/// follows the NAL unit header, without emulation prevention bytes. They give false for a value
/// outside the standard's range and where the bytes end early; then the record is not to be used.

namespace zel::syntax {

struct AvcHrdEntry {
  uint32_t bitRateValueMinus1 = 0;
  uint32_t cpbSizeValueMinus1 = 0;
  bool cbr = false;
  bool operator==(const AvcHrdEntry&) const = default;
};

inline constexpr int kAvcMaxCpbCount = 32;

struct AvcHrd {
  uint8_t cpbCount = 0;  // 1 to 32
  uint8_t bitRateScale = 0;
  uint8_t cpbSizeScale = 0;
  std::array<AvcHrdEntry, kAvcMaxCpbCount> entries{};
  uint8_t initialCpbRemovalDelayLength = 24;  // bits
  uint8_t cpbRemovalDelayLength = 24;
  uint8_t dpbOutputDelayLength = 24;
  uint8_t timeOffsetLength = 24;
  bool operator==(const AvcHrd&) const = default;

  uint64_t bitRate(int entry) const {  // bits per second
    return (uint64_t{entries[static_cast<size_t>(entry)].bitRateValueMinus1} + 1)
           << (6 + bitRateScale);
  }
  uint64_t cpbBits(int entry) const {
    return (uint64_t{entries[static_cast<size_t>(entry)].cpbSizeValueMinus1} + 1)
           << (4 + cpbSizeScale);
  }
};

struct AvcTiming {
  bool present = false;
  uint32_t numUnitsInTick = 0;
  uint32_t timeScale = 0;
  bool fixedFrameRate = false;
  bool operator==(const AvcTiming&) const = default;
};

struct AvcVui : VuiDescription {
  AvcTiming timing;
  bool nalHrdPresent = false;
  AvcHrd nalHrd;
  bool vclHrdPresent = false;
  AvcHrd vclHrd;
  bool lowDelayHrd = false;
  bool picStructPresent = false;
  bool bitstreamRestriction = false;
  bool motionVectorsOverPicBoundaries = true;
  uint32_t maxBytesPerPicDenom = 2;
  uint32_t maxBitsPerMbDenom = 1;
  uint32_t log2MaxMvLengthHorizontal = 15;
  uint32_t log2MaxMvLengthVertical = 15;
  uint32_t maxNumReorderFrames = 0;
  uint32_t maxDecFrameBuffering = 0;
  bool operator==(const AvcVui&) const = default;
};

/// Scaling lists as coded, in zigzag order. A list that isn't present falls back by Table 7-2; one
/// with `useDefault` takes the standard's default.
struct AvcScalingLists {
  std::array<bool, 12> present{};
  std::array<bool, 12> useDefault{};
  std::array<std::array<uint8_t, 16>, 6> size4x4{};
  std::array<std::array<uint8_t, 64>, 6> size8x8{};
  bool operator==(const AvcScalingLists&) const = default;
};

struct AvcCropping {  // in the units of 7-19 to 7-22
  uint32_t left = 0;
  uint32_t right = 0;
  uint32_t top = 0;
  uint32_t bottom = 0;
  bool operator==(const AvcCropping&) const = default;
};

struct AvcSps {
  uint8_t profileIdc = 0;
  uint8_t constraintFlags =
      0;  // constraint_set0_flag is bit 7, set5 bit 2; the low two are reserved
  uint8_t levelIdc = 0;
  uint8_t id = 0;  // 0 to 31
  uint8_t chromaFormatIdc = 1;
  bool separateColourPlane = false;
  uint8_t bitDepthLuma = 8;
  uint8_t bitDepthChroma = 8;
  bool qpprimeYZeroTransformBypass = false;
  bool scalingMatrixPresent = false;
  AvcScalingLists scaling;
  uint8_t log2MaxFrameNum = 4;
  uint8_t pocType = 0;
  uint8_t log2MaxPocLsb = 4;
  bool deltaPicOrderAlwaysZero = false;
  int32_t offsetForNonRefPic = 0;
  int32_t offsetForTopToBottomField = 0;
  uint8_t numRefFramesInPocCycle = 0;
  std::array<int32_t, 255> offsetForRefFrame{};
  uint32_t maxNumRefFrames = 0;
  bool gapsInFrameNumAllowed = false;
  uint32_t picWidthInMbs = 0;
  uint32_t picHeightInMapUnits = 0;
  bool frameMbsOnly = true;
  bool mbAdaptiveFrameField = false;
  bool direct8x8Inference = false;
  bool frameCropping = false;
  AvcCropping crop;
  bool vuiPresent = false;
  AvcVui vui;
  bool operator==(const AvcSps&) const = default;

  bool constraintSet(int number) const { return (constraintFlags >> (7 - number) & 1) != 0; }
  uint8_t chromaArrayType() const { return separateColourPlane ? uint8_t{0} : chromaFormatIdc; }
  uint32_t frameHeightInMbs() const { return (frameMbsOnly ? 1 : 2) * picHeightInMapUnits; }
  uint32_t croppedWidth() const;  // luma samples
  uint32_t croppedHeight() const;
  /// Whether picture timing messages carry the two delays: CpbDpbDelaysPresentFlag.
  bool delaysPresent() const { return vui.nalHrdPresent || vui.vclHrdPresent; }
  /// The HRD that gives field lengths: NAL before VCL, both are to agree (E.2.2).
  const AvcHrd& lengths() const { return vui.nalHrdPresent ? vui.nalHrd : vui.vclHrd; }
};

/// A subset SPS (NAL type 15): the base fields, and what its profile adds.
struct AvcMvcOperationPoint {
  uint8_t temporalId = 0;
  std::vector<uint16_t> targetViews;
  uint32_t numViews = 0;
  AvcTiming timing;
  bool nalHrdPresent = false;
  AvcHrd nalHrd;
  bool vclHrdPresent = false;
  AvcHrd vclHrd;
  bool lowDelayHrd = false;
  bool picStructPresent = false;
  bool operator==(const AvcMvcOperationPoint&) const = default;
};

struct AvcMvcLevel {
  uint8_t levelIdc = 0;
  std::vector<AvcMvcOperationPoint> points;  // of these: temporalId, targetViews, numViews
  bool operator==(const AvcMvcLevel&) const = default;
};

struct AvcMvcView {
  uint16_t viewId = 0;
  std::array<std::vector<uint16_t>, 2> anchorRefs;  // by list
  std::array<std::vector<uint16_t>, 2> nonAnchorRefs;
  bool operator==(const AvcMvcView&) const = default;
};

struct AvcSubsetSps {
  AvcSps base;
  bool svcExtension = false;
  bool interLayerDeblockingControlPresent = false;
  uint8_t extendedSpatialScalability = 0;
  bool chromaPhaseXPlus1 = true;
  uint8_t chromaPhaseYPlus1 = 1;
  bool tcoeffLevelPrediction = false;
  bool adaptiveTcoeffLevelPrediction = false;
  bool sliceHeaderRestriction = false;
  bool svcVuiPresent = false;  // its contents are not read
  bool mvcExtension = false;
  std::vector<AvcMvcView> views;  // by VOIdx; never empty with mvcExtension
  std::vector<AvcMvcLevel> levels;
  bool mvcVuiPresent = false;
  std::vector<AvcMvcOperationPoint> vuiPoints;
  bool operator==(const AvcSubsetSps&) const = default;
};

struct AvcPps {
  uint8_t id = 0;
  uint8_t spsId = 0;
  bool entropyCodingMode = false;  // true: CABAC
  bool bottomFieldPicOrderInFramePresent = false;
  uint8_t numSliceGroups = 1;
  uint8_t sliceGroupMapType = 0;
  std::array<uint32_t, 8> runLengthMinus1{};
  std::array<uint32_t, 8> topLeft{};
  std::array<uint32_t, 8> bottomRight{};
  bool sliceGroupChangeDirection = false;
  uint32_t sliceGroupChangeRate = 1;
  std::vector<uint8_t> sliceGroupId;
  uint8_t numRefIdxL0Default = 1;
  uint8_t numRefIdxL1Default = 1;
  bool weightedPred = false;
  uint8_t weightedBipredIdc = 0;
  int8_t picInitQpMinus26 = 0;
  int8_t picInitQsMinus26 = 0;
  int8_t chromaQpIndexOffset = 0;
  bool deblockingFilterControlPresent = false;
  bool constrainedIntraPred = false;
  bool redundantPicCntPresent = false;
  bool transform8x8Mode = false;
  bool scalingMatrixPresent = false;
  AvcScalingLists scaling;
  int8_t secondChromaQpIndexOffset = 0;
  bool operator==(const AvcPps&) const = default;
};

bool parseAvcSps(std::span<const uint8_t> rbsp, AvcSps& sps);
bool parseAvcSubsetSps(std::span<const uint8_t> rbsp, AvcSubsetSps& sps);

/// The number of scaling lists hangs on the chroma format of the SPS that the PPS names, which may
/// arrive later: `chromaFormatIdc` is that of the SPS where it is known, else 1.
bool parseAvcPps(std::span<const uint8_t> rbsp, uint8_t chromaFormatIdc, AvcPps& pps);

/// Whether the profile's SPS has the chroma format and what follows it (7.3.2.1.1).
bool avcProfileHasChromaFormat(uint8_t profileIdc);

}  // namespace zel::syntax
