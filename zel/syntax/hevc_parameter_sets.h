#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "zel/syntax/vui_description.h"

/// The parameter sets of HEVC: ITU-T H.265, 7.3.2 to 7.3.4 and Annex E. All parsers here take the
/// RBSP: what follows the NAL unit header, without emulation prevention bytes. They give false for
/// a value outside the standard's range and where the bytes end early; then the record is not to be
/// used. Of the extensions the range extensions are read; others are told by their flags.

namespace zel::syntax {

inline constexpr int kHevcMaxSubLayers = 7;
inline constexpr int kHevcMaxCpbCount = 32;
inline constexpr int kHevcMaxShortTermSets = 64;
inline constexpr int kHevcMaxSetPictures = 16;
inline constexpr int kHevcMaxLongTermSps = 32;
inline constexpr int kHevcMaxTileColumns = 20;
inline constexpr int kHevcMaxTileRows = 22;

struct HevcProfile {
  uint8_t space = 0;
  bool tier = false;  // true: High
  uint8_t idc = 0;
  uint32_t compatibility = 0;  // flag j is bit 31 - j
  bool progressiveSource = false;
  bool interlacedSource = false;
  bool nonPackedConstraint = false;
  bool frameOnlyConstraint = false;
  uint64_t constraintBits = 0;  // the 44 bits that follow, general_inbld_flag last
  bool operator==(const HevcProfile&) const = default;
  bool compatibleWith(int profile) const { return (compatibility >> (31 - profile) & 1) != 0; }
};

struct HevcSubLayerLevel {
  bool profilePresent = false;
  bool levelPresent = false;
  HevcProfile profile;
  uint8_t levelIdc = 0;
  bool operator==(const HevcSubLayerLevel&) const = default;
};

struct HevcProfileTierLevel {
  HevcProfile general;
  uint8_t generalLevelIdc = 0;  // 30 times the level's number
  std::array<HevcSubLayerLevel, kHevcMaxSubLayers - 1> subLayers{};
  bool operator==(const HevcProfileTierLevel&) const = default;
};

struct HevcSubLayerOrdering {
  uint8_t maxDecPicBufferingMinus1 = 0;
  uint8_t maxNumReorderPics = 0;
  uint32_t maxLatencyIncreasePlus1 = 0;
  bool operator==(const HevcSubLayerOrdering&) const = default;
};

struct HevcCpb {
  uint32_t bitRateValueMinus1 = 0;
  uint32_t cpbSizeValueMinus1 = 0;
  uint32_t cpbSizeDuValueMinus1 = 0;
  uint32_t bitRateDuValueMinus1 = 0;
  bool cbr = false;
  bool operator==(const HevcCpb&) const = default;
};

struct HevcSubLayerHrd {
  bool fixedPicRateGeneral = false;
  bool fixedPicRateWithinCvs = false;
  uint32_t elementalDurationInTcMinus1 = 0;
  bool lowDelay = false;
  uint8_t cpbCount = 1;
  std::vector<HevcCpb> nal;  // cpbCount entries each, where the HRD has them
  std::vector<HevcCpb> vcl;
  bool operator==(const HevcSubLayerHrd&) const = default;
};

struct HevcHrd {
  bool nalPresent = false;
  bool vclPresent = false;
  bool subPicParamsPresent = false;
  uint8_t tickDivisorMinus2 = 0;
  uint8_t duCpbRemovalDelayIncrementLength = 0;  // bits
  bool subPicParamsInPicTiming = false;
  uint8_t dpbOutputDelayDuLength = 0;
  uint8_t bitRateScale = 0;
  uint8_t cpbSizeScale = 0;
  uint8_t cpbSizeDuScale = 0;
  uint8_t initialCpbRemovalDelayLength = 24;
  uint8_t auCpbRemovalDelayLength = 24;
  uint8_t dpbOutputDelayLength = 24;
  std::array<HevcSubLayerHrd, kHevcMaxSubLayers> subLayers{};
  bool operator==(const HevcHrd&) const = default;

  uint64_t bitRate(const HevcCpb& cpb) const {
    return (uint64_t{cpb.bitRateValueMinus1} + 1) << (6 + bitRateScale);
  }
  uint64_t cpbBits(const HevcCpb& cpb) const {
    return (uint64_t{cpb.cpbSizeValueMinus1} + 1) << (4 + cpbSizeScale);
  }
};

struct HevcTiming {
  bool present = false;
  uint32_t numUnitsInTick = 0;
  uint32_t timeScale = 0;
  bool pocProportional = false;
  uint32_t numTicksPocDiffOneMinus1 = 0;
  bool operator==(const HevcTiming&) const = default;
};

struct HevcVps {
  uint8_t id = 0;
  bool baseLayerInternal = false;
  bool baseLayerAvailable = false;
  uint8_t maxLayersMinus1 = 0;
  uint8_t maxSubLayersMinus1 = 0;
  bool temporalIdNesting = false;
  HevcProfileTierLevel profileTierLevel;
  bool subLayerOrderingInfoPresent = false;
  std::array<HevcSubLayerOrdering, kHevcMaxSubLayers> ordering{};
  uint8_t maxLayerId = 0;
  uint16_t numLayerSetsMinus1 = 0;
  std::vector<uint64_t> layerSets;  // of set 1 and up: bit n is layer_id_included_flag[n]
  HevcTiming timing;
  std::vector<uint16_t> hrdLayerSetIdx;
  std::vector<HevcHrd> hrds;
  bool extension = false;
  bool operator==(const HevcVps&) const = default;
};

/// A short-term reference picture set, derived: 7.4.8. Differences of POC, nearest first.
struct HevcShortTermSet {
  uint8_t numNegative = 0;
  uint8_t numPositive = 0;
  std::array<int32_t, kHevcMaxSetPictures> deltaPocS0{};
  std::array<int32_t, kHevcMaxSetPictures> deltaPocS1{};
  std::array<bool, kHevcMaxSetPictures> usedS0{};
  std::array<bool, kHevcMaxSetPictures> usedS1{};
  bool operator==(const HevcShortTermSet&) const = default;
  int numDeltaPocs() const { return numNegative + numPositive; }
};

/// Scaling factors as lists in up-right diagonal order, with defaults and references resolved:
/// 7.3.4 and 7.4.5. Of 32x32 matrices 0 and 3 are coded; 1, 2, 4, 5 (4:4:4) come from 16x16.
struct HevcScalingLists {
  std::array<std::array<uint8_t, 16>, 6> size4x4{};
  std::array<std::array<std::array<uint8_t, 64>, 6>, 3> larger{};  // [8x8, 16x16, 32x32][matrix]
  std::array<std::array<uint8_t, 6>, 2> dc{};                      // [16x16, 32x32][matrix]
  bool operator==(const HevcScalingLists&) const = default;
};

/// Table 7-5 and 7-6: what holds where scaling lists are enabled and none are sent.
HevcScalingLists defaultHevcScalingLists();

struct HevcWindow {  // in chroma units
  uint32_t left = 0;
  uint32_t right = 0;
  uint32_t top = 0;
  uint32_t bottom = 0;
  bool operator==(const HevcWindow&) const = default;
};

struct HevcVui : VuiDescription {
  bool neutralChromaIndication = false;
  bool fieldSeq = false;
  bool frameFieldInfoPresent = false;
  bool defaultDisplayWindow = false;
  HevcWindow displayWindow;
  HevcTiming timing;
  bool hrdPresent = false;
  HevcHrd hrd;
  bool bitstreamRestriction = false;
  bool tilesFixedStructure = false;
  bool motionVectorsOverPicBoundaries = true;
  bool restrictedRefPicLists = false;
  uint32_t minSpatialSegmentationIdc = 0;
  uint32_t maxBytesPerPicDenom = 2;
  uint32_t maxBitsPerMinCuDenom = 1;
  uint32_t log2MaxMvLengthHorizontal = 15;
  uint32_t log2MaxMvLengthVertical = 15;
  bool operator==(const HevcVui&) const = default;
};

struct HevcSpsRange {
  bool transformSkipRotation = false;
  bool transformSkipContext = false;
  bool implicitRdpcm = false;
  bool explicitRdpcm = false;
  bool extendedPrecision = false;
  bool intraSmoothingDisabled = false;
  bool highPrecisionOffsets = false;
  bool persistentRiceAdaptation = false;
  bool cabacBypassAlignment = false;
  bool operator==(const HevcSpsRange&) const = default;
};

struct HevcSps {
  uint8_t vpsId = 0;
  uint8_t maxSubLayersMinus1 = 0;
  bool temporalIdNesting = false;
  HevcProfileTierLevel profileTierLevel;
  uint8_t id = 0;  // 0 to 15
  uint8_t chromaFormatIdc = 1;
  bool separateColourPlane = false;
  uint32_t width = 0;  // luma samples, before the conformance window
  uint32_t height = 0;
  bool conformanceWindowPresent = false;
  HevcWindow conformanceWindow;
  uint8_t bitDepthLuma = 8;
  uint8_t bitDepthChroma = 8;
  uint8_t log2MaxPocLsb = 4;
  bool subLayerOrderingInfoPresent = false;
  std::array<HevcSubLayerOrdering, kHevcMaxSubLayers> ordering{};
  uint8_t log2MinCb = 3;
  uint8_t log2Ctb = 4;
  uint8_t log2MinTb = 2;
  uint8_t log2MaxTb = 5;
  uint8_t maxTransformHierarchyDepthInter = 0;
  uint8_t maxTransformHierarchyDepthIntra = 0;
  bool scalingListEnabled = false;
  bool scalingListDataPresent = false;
  HevcScalingLists scaling;  // the default lists where enabled and not present
  bool ampEnabled = false;
  bool saoEnabled = false;
  bool pcmEnabled = false;
  uint8_t pcmBitDepthLuma = 0;
  uint8_t pcmBitDepthChroma = 0;
  uint8_t log2MinPcmCb = 0;
  uint8_t log2MaxPcmCb = 0;
  bool pcmLoopFilterDisabled = false;
  std::vector<HevcShortTermSet> shortTermSets;
  bool longTermRefPicsPresent = false;
  uint8_t numLongTermSps = 0;
  std::array<uint32_t, kHevcMaxLongTermSps> ltRefPicPocLsb{};
  std::array<bool, kHevcMaxLongTermSps> usedByCurrPicLt{};
  bool temporalMvpEnabled = false;
  bool strongIntraSmoothing = false;
  bool vuiPresent = false;
  HevcVui vui;
  bool rangeExtensionPresent = false;
  bool multilayerExtensionPresent = false;
  bool extension3dPresent = false;
  bool sccExtensionPresent = false;
  uint8_t extension4bits = 0;
  HevcSpsRange range;
  bool operator==(const HevcSps&) const = default;

  uint8_t chromaArrayType() const { return separateColourPlane ? uint8_t{0} : chromaFormatIdc; }
  uint32_t widthInCtbs() const { return (width + (1u << log2Ctb) - 1) >> log2Ctb; }
  uint32_t heightInCtbs() const { return (height + (1u << log2Ctb) - 1) >> log2Ctb; }
  uint32_t croppedWidth() const;
  uint32_t croppedHeight() const;
};

struct HevcPpsRange {
  uint8_t log2MaxTransformSkip = 2;
  bool crossComponentPrediction = false;
  bool chromaQpOffsetListEnabled = false;
  uint8_t diffCuChromaQpOffsetDepth = 0;
  uint8_t chromaQpOffsetListLen = 0;  // 1 to 6 where enabled
  std::array<int8_t, 6> cbQpOffsetList{};
  std::array<int8_t, 6> crQpOffsetList{};
  uint8_t log2SaoOffsetScaleLuma = 0;
  uint8_t log2SaoOffsetScaleChroma = 0;
  bool operator==(const HevcPpsRange&) const = default;
};

struct HevcPps {
  uint8_t id = 0;  // 0 to 63
  uint8_t spsId = 0;
  bool dependentSliceSegmentsEnabled = false;
  bool outputFlagPresent = false;
  uint8_t numExtraSliceHeaderBits = 0;
  bool signDataHiding = false;
  bool cabacInitPresent = false;
  uint8_t numRefIdxL0Default = 1;
  uint8_t numRefIdxL1Default = 1;
  int8_t initQpMinus26 = 0;
  bool constrainedIntraPred = false;
  bool transformSkipEnabled = false;
  bool cuQpDeltaEnabled = false;
  uint8_t diffCuQpDeltaDepth = 0;
  int8_t cbQpOffset = 0;
  int8_t crQpOffset = 0;
  bool sliceChromaQpOffsetsPresent = false;
  bool weightedPred = false;
  bool weightedBipred = false;
  bool transquantBypassEnabled = false;
  bool tilesEnabled = false;
  bool entropyCodingSync = false;
  uint8_t numTileColumns = 1;
  uint8_t numTileRows = 1;
  bool uniformSpacing = true;
  std::array<uint16_t, kHevcMaxTileColumns> columnWidth{};  // CTBs, but the last; not uniform only
  std::array<uint16_t, kHevcMaxTileRows> rowHeight{};
  bool loopFilterAcrossTiles = true;
  bool loopFilterAcrossSlices = false;
  bool deblockingControlPresent = false;
  bool deblockingOverrideEnabled = false;
  bool deblockingDisabled = false;
  int8_t betaOffsetDiv2 = 0;
  int8_t tcOffsetDiv2 = 0;
  bool scalingListDataPresent = false;
  HevcScalingLists scaling;
  bool listsModificationPresent = false;
  uint8_t log2ParallelMergeLevel = 2;
  bool sliceHeaderExtensionPresent = false;
  bool rangeExtensionPresent = false;
  bool multilayerExtensionPresent = false;
  bool extension3dPresent = false;
  bool sccExtensionPresent = false;
  uint8_t extension4bits = 0;
  HevcPpsRange range;
  bool operator==(const HevcPps&) const = default;
};

bool parseHevcVps(std::span<const uint8_t> rbsp, HevcVps& vps);
bool parseHevcSps(std::span<const uint8_t> rbsp, HevcSps& sps);
/// A PPS is read without its SPS, which may come later. What can only be judged with both, such as
/// tiles that pass the picture, hevcPpsFits() judges.
bool parseHevcPps(std::span<const uint8_t> rbsp, HevcPps& pps);
bool hevcPpsFits(const HevcPps& pps, const HevcSps& sps);

}  // namespace zel::syntax
