#pragma once

#include "tests/support/header_bits.h"
#include "tests/unit/syntax/vui_test_writer.h"
#include "zel/syntax/hevc_parameter_sets.h"

/// Random parameter sets of HEVC, and the bits that ITU-T H.265, 7.3.2 has for them.

namespace zel::test {

inline void writeProfile(HeaderBits& out, const syntax::HevcProfile& profile) {
  out.u(2, profile.space);
  out.flag(profile.tier);
  out.u(5, profile.idc);
  out.u(32, profile.compatibility);
  out.flag(profile.progressiveSource);
  out.flag(profile.interlacedSource);
  out.flag(profile.nonPackedConstraint);
  out.flag(profile.frameOnlyConstraint);
  out.u(44, profile.constraintBits);
}

inline syntax::HevcProfile randomProfile(RandomFields& random) {
  syntax::HevcProfile profile;
  profile.space = static_cast<uint8_t>(random.bits(2));
  profile.tier = random.flag();
  profile.idc = static_cast<uint8_t>(random.bits(5));
  profile.compatibility = random.bits(32);
  profile.progressiveSource = random.flag();
  profile.interlacedSource = random.flag();
  profile.nonPackedConstraint = random.flag();
  profile.frameOnlyConstraint = random.flag();
  profile.constraintBits = uint64_t{random.bits(12)} << 32 | random.bits(32);
  return profile;
}

inline void writeProfileTierLevel(HeaderBits& out, int maxSubLayersMinus1,
                                  const syntax::HevcProfileTierLevel& record) {
  writeProfile(out, record.general);
  out.u(8, record.generalLevelIdc);
  const auto layers = static_cast<size_t>(maxSubLayersMinus1);
  for (size_t i = 0; i < layers; ++i) {
    out.flag(record.subLayers[i].profilePresent);
    out.flag(record.subLayers[i].levelPresent);
  }
  for (size_t i = layers; layers > 0 && i < 8; ++i) out.u(2, 0);
  for (size_t i = 0; i < layers; ++i) {
    if (record.subLayers[i].profilePresent) writeProfile(out, record.subLayers[i].profile);
    if (record.subLayers[i].levelPresent) out.u(8, record.subLayers[i].levelIdc);
  }
}

inline syntax::HevcProfileTierLevel randomProfileTierLevel(RandomFields& random,
                                                           int maxSubLayersMinus1) {
  syntax::HevcProfileTierLevel record;
  record.general = randomProfile(random);
  record.generalLevelIdc = static_cast<uint8_t>(random.bits(8));
  for (size_t i = 0; i < static_cast<size_t>(maxSubLayersMinus1); ++i) {
    auto& layer = record.subLayers[i];
    layer.profilePresent = random.flag();
    if (layer.profilePresent) layer.profile = randomProfile(random);
    layer.levelPresent = random.flag();
    if (layer.levelPresent) layer.levelIdc = static_cast<uint8_t>(random.bits(8));
  }
  return record;
}

inline void writeHrd(HeaderBits& out, bool common, int maxSubLayersMinus1,
                     const syntax::HevcHrd& hrd) {
  if (common) {
    out.flag(hrd.nalPresent);
    out.flag(hrd.vclPresent);
    if (hrd.nalPresent || hrd.vclPresent) {
      out.flag(hrd.subPicParamsPresent);
      if (hrd.subPicParamsPresent) {
        out.u(8, hrd.tickDivisorMinus2);
        out.u(5, hrd.duCpbRemovalDelayIncrementLength - 1u);
        out.flag(hrd.subPicParamsInPicTiming);
        out.u(5, hrd.dpbOutputDelayDuLength - 1u);
      }
      out.u(4, hrd.bitRateScale);
      out.u(4, hrd.cpbSizeScale);
      if (hrd.subPicParamsPresent) out.u(4, hrd.cpbSizeDuScale);
      out.u(5, hrd.initialCpbRemovalDelayLength - 1u);
      out.u(5, hrd.auCpbRemovalDelayLength - 1u);
      out.u(5, hrd.dpbOutputDelayLength - 1u);
    }
  }
  for (size_t i = 0; i <= static_cast<size_t>(maxSubLayersMinus1); ++i) {
    const auto& layer = hrd.subLayers[i];
    out.flag(layer.fixedPicRateGeneral);
    if (!layer.fixedPicRateGeneral) out.flag(layer.fixedPicRateWithinCvs);
    if (layer.fixedPicRateWithinCvs) {
      out.ue(layer.elementalDurationInTcMinus1);
    } else {
      out.flag(layer.lowDelay);
    }
    if (!layer.lowDelay) out.ue(layer.cpbCount - 1u);
    for (const auto* cpbs : {&layer.nal, &layer.vcl}) {
      for (const auto& cpb : *cpbs) {
        out.ue(cpb.bitRateValueMinus1);
        out.ue(cpb.cpbSizeValueMinus1);
        if (hrd.subPicParamsPresent) {
          out.ue(cpb.cpbSizeDuValueMinus1);
          out.ue(cpb.bitRateDuValueMinus1);
        }
        out.flag(cpb.cbr);
      }
    }
  }
}

inline syntax::HevcHrd randomHevcHrd(RandomFields& random, int maxSubLayersMinus1) {
  syntax::HevcHrd hrd;
  hrd.nalPresent = random.flag();
  hrd.vclPresent = random.flag();
  if (hrd.nalPresent || hrd.vclPresent) {
    hrd.subPicParamsPresent = random.flag();
    if (hrd.subPicParamsPresent) {
      hrd.tickDivisorMinus2 = static_cast<uint8_t>(random.bits(8));
      hrd.duCpbRemovalDelayIncrementLength = static_cast<uint8_t>(1 + random.bits(5));
      hrd.subPicParamsInPicTiming = random.flag();
      hrd.dpbOutputDelayDuLength = static_cast<uint8_t>(1 + random.bits(5));
      hrd.cpbSizeDuScale = static_cast<uint8_t>(random.bits(4));
    }
    hrd.bitRateScale = static_cast<uint8_t>(random.bits(4));
    hrd.cpbSizeScale = static_cast<uint8_t>(random.bits(4));
    hrd.initialCpbRemovalDelayLength = static_cast<uint8_t>(1 + random.bits(5));
    hrd.auCpbRemovalDelayLength = static_cast<uint8_t>(1 + random.bits(5));
    hrd.dpbOutputDelayLength = static_cast<uint8_t>(1 + random.bits(5));
  }
  for (size_t i = 0; i <= static_cast<size_t>(maxSubLayersMinus1); ++i) {
    auto& layer = hrd.subLayers[i];
    layer.fixedPicRateGeneral = random.flag();
    layer.fixedPicRateWithinCvs = layer.fixedPicRateGeneral || random.flag();
    if (layer.fixedPicRateWithinCvs) {
      layer.elementalDurationInTcMinus1 = random.upTo(2047);
    } else {
      layer.lowDelay = random.flag();
    }
    if (!layer.lowDelay) layer.cpbCount = static_cast<uint8_t>(1 + random.upTo(31));
    for (auto* cpbs : {&layer.nal, &layer.vcl}) {
      if (!(cpbs == &layer.nal ? hrd.nalPresent : hrd.vclPresent)) continue;
      cpbs->resize(layer.cpbCount);
      for (auto& cpb : *cpbs) {
        cpb.bitRateValueMinus1 = random.upTo(0xFFFFFFFE);
        cpb.cpbSizeValueMinus1 = random.upTo(0xFFFFFFFE);
        if (hrd.subPicParamsPresent) {
          cpb.cpbSizeDuValueMinus1 = random.upTo(1000);
          cpb.bitRateDuValueMinus1 = random.upTo(1000);
        }
        cpb.cbr = random.flag();
      }
    }
  }
  return hrd;
}

inline void writeOrdering(HeaderBits& out, bool all, int maxSubLayersMinus1,
                          const std::array<syntax::HevcSubLayerOrdering, 7>& ordering) {
  const auto last = static_cast<size_t>(maxSubLayersMinus1);
  for (size_t i = all ? 0 : last; i <= last; ++i) {
    out.ue(ordering[i].maxDecPicBufferingMinus1);
    out.ue(ordering[i].maxNumReorderPics);
    out.ue(ordering[i].maxLatencyIncreasePlus1);
  }
}

inline void randomOrdering(RandomFields& random, bool all, int maxSubLayersMinus1,
                           std::array<syntax::HevcSubLayerOrdering, 7>& ordering) {
  const auto last = static_cast<size_t>(maxSubLayersMinus1);
  for (size_t i = last + 1; i-- > 0;) {
    ordering[i] =
        all || i == last
            ? syntax::HevcSubLayerOrdering{static_cast<uint8_t>(random.bits(4)),
                                           static_cast<uint8_t>(random.bits(4)), random.bits(20)}
            : ordering[last];
  }
}

inline void writeSet(HeaderBits& out, bool first, const syntax::HevcShortTermSet& set) {
  if (!first) out.flag(false);
  out.ue(set.numNegative);
  out.ue(set.numPositive);
  int32_t last = 0;
  for (size_t i = 0; i < set.numNegative; ++i) {
    out.ue(static_cast<uint32_t>(last - set.deltaPocS0[i] - 1));
    last = set.deltaPocS0[i];
    out.flag(set.usedS0[i]);
  }
  last = 0;
  for (size_t i = 0; i < set.numPositive; ++i) {
    out.ue(static_cast<uint32_t>(set.deltaPocS1[i] - last - 1));
    last = set.deltaPocS1[i];
    out.flag(set.usedS1[i]);
  }
}

inline syntax::HevcShortTermSet randomSet(RandomFields& random) {
  syntax::HevcShortTermSet set;
  set.numNegative = static_cast<uint8_t>(random.upTo(8));
  set.numPositive = static_cast<uint8_t>(random.upTo(8));
  int32_t last = 0;
  for (size_t i = 0; i < set.numNegative; ++i) {
    last -= random.between(1, 300);
    set.deltaPocS0[i] = last;
    set.usedS0[i] = random.flag();
  }
  last = 0;
  for (size_t i = 0; i < set.numPositive; ++i) {
    last += random.between(1, 300);
    set.deltaPocS1[i] = last;
    set.usedS1[i] = random.flag();
  }
  return set;
}

/// Scaling lists are left out of these: they have tests of their own.
inline syntax::HevcSps randomHevcSps(RandomFields& random) {
  syntax::HevcSps sps;
  sps.vpsId = static_cast<uint8_t>(random.bits(4));
  sps.maxSubLayersMinus1 = static_cast<uint8_t>(random.upTo(6));
  sps.temporalIdNesting = random.flag();
  sps.profileTierLevel = randomProfileTierLevel(random, sps.maxSubLayersMinus1);
  sps.id = static_cast<uint8_t>(random.upTo(15));
  sps.chromaFormatIdc = static_cast<uint8_t>(random.upTo(3));
  sps.separateColourPlane = sps.chromaFormatIdc == 3 && random.flag();
  sps.log2MinCb = static_cast<uint8_t>(random.between(3, 5));
  sps.log2Ctb = static_cast<uint8_t>(random.between(sps.log2MinCb > 4 ? sps.log2MinCb : 4, 6));
  sps.log2MinTb = static_cast<uint8_t>(random.between(2, sps.log2MinCb - 1));
  const int largestTb = sps.log2Ctb < 5 ? sps.log2Ctb : 5;
  sps.log2MaxTb = static_cast<uint8_t>(random.between(sps.log2MinTb, largestTb));
  sps.width = (1 + random.upTo(500)) << sps.log2MinCb;
  sps.height = (1 + random.upTo(500)) << sps.log2MinCb;
  sps.conformanceWindowPresent = random.flag();
  if (sps.conformanceWindowPresent) {
    sps.conformanceWindow = {random.upTo(1), random.upTo(1), random.upTo(1), random.upTo(1)};
  }
  sps.bitDepthLuma = static_cast<uint8_t>(8 + random.upTo(8));
  sps.bitDepthChroma = static_cast<uint8_t>(8 + random.upTo(8));
  sps.log2MaxPocLsb = static_cast<uint8_t>(4 + random.upTo(12));
  sps.subLayerOrderingInfoPresent = random.flag();
  randomOrdering(random, sps.subLayerOrderingInfoPresent, sps.maxSubLayersMinus1, sps.ordering);
  const auto depth = static_cast<uint32_t>(sps.log2Ctb - sps.log2MinTb);
  sps.maxTransformHierarchyDepthInter = static_cast<uint8_t>(random.upTo(depth));
  sps.maxTransformHierarchyDepthIntra = static_cast<uint8_t>(random.upTo(depth));
  sps.ampEnabled = random.flag();
  sps.saoEnabled = random.flag();
  const int largestPcm = sps.log2Ctb < 5 ? sps.log2Ctb : 5;
  sps.pcmEnabled = random.flag();
  if (sps.pcmEnabled) {
    sps.pcmBitDepthLuma = static_cast<uint8_t>(1 + random.upTo(7));
    sps.pcmBitDepthChroma = static_cast<uint8_t>(1 + random.upTo(7));
    sps.log2MinPcmCb = static_cast<uint8_t>(random.between(sps.log2MinCb, largestPcm));
    sps.log2MaxPcmCb = static_cast<uint8_t>(random.between(sps.log2MinPcmCb, largestPcm));
    sps.pcmLoopFilterDisabled = random.flag();
  }
  for (uint32_t i = random.upTo(10); i > 0; --i) sps.shortTermSets.push_back(randomSet(random));
  sps.longTermRefPicsPresent = random.flag();
  if (sps.longTermRefPicsPresent) sps.numLongTermSps = static_cast<uint8_t>(random.upTo(32));
  for (size_t i = 0; i < sps.numLongTermSps; ++i) {
    sps.ltRefPicPocLsb[i] = random.bits(sps.log2MaxPocLsb);
    sps.usedByCurrPicLt[i] = random.flag();
  }
  sps.temporalMvpEnabled = random.flag();
  sps.strongIntraSmoothing = random.flag();
  sps.vuiPresent = random.flag();
  if (sps.vuiPresent) {
    randomVuiDescription(random, sps.vui);
    sps.vui.neutralChromaIndication = random.flag();
    sps.vui.fieldSeq = random.flag();
    sps.vui.timing.present = random.flag();
    if (sps.vui.timing.present) {
      sps.vui.timing = {true, random.bits(32), random.bits(32), true, random.upTo(1000)};
      sps.vui.hrdPresent = random.flag();
      if (sps.vui.hrdPresent) sps.vui.hrd = randomHevcHrd(random, sps.maxSubLayersMinus1);
    }
    sps.vui.frameFieldInfoPresent = random.flag();
    sps.vui.defaultDisplayWindow = random.flag();
    if (sps.vui.defaultDisplayWindow) sps.vui.displayWindow = {1, 2, 3, 4};
    sps.vui.bitstreamRestriction = random.flag();
    if (sps.vui.bitstreamRestriction) sps.vui.minSpatialSegmentationIdc = random.upTo(4095);
  }
  sps.rangeExtensionPresent = random.flag();
  if (sps.rangeExtensionPresent) {
    sps.range.transformSkipRotation = random.flag();
    sps.range.highPrecisionOffsets = random.flag();
    sps.range.cabacBypassAlignment = random.flag();
  }
  return sps;
}

inline void writeVui(HeaderBits& out, int maxSubLayersMinus1, const syntax::HevcVui& vui) {
  writeVuiDescription(out, vui);
  out.flag(vui.neutralChromaIndication);
  out.flag(vui.fieldSeq);
  out.flag(vui.frameFieldInfoPresent);
  out.flag(vui.defaultDisplayWindow);
  if (vui.defaultDisplayWindow) {
    for (const uint32_t side : {vui.displayWindow.left, vui.displayWindow.right,
                                vui.displayWindow.top, vui.displayWindow.bottom}) {
      out.ue(side);
    }
  }
  out.flag(vui.timing.present);
  if (vui.timing.present) {
    out.u(32, vui.timing.numUnitsInTick);
    out.u(32, vui.timing.timeScale);
    out.flag(vui.timing.pocProportional);
    if (vui.timing.pocProportional) out.ue(vui.timing.numTicksPocDiffOneMinus1);
    out.flag(vui.hrdPresent);
    if (vui.hrdPresent) writeHrd(out, true, maxSubLayersMinus1, vui.hrd);
  }
  out.flag(vui.bitstreamRestriction);
  if (vui.bitstreamRestriction) {
    out.flag(vui.tilesFixedStructure);
    out.flag(vui.motionVectorsOverPicBoundaries);
    out.flag(vui.restrictedRefPicLists);
    out.ue(vui.minSpatialSegmentationIdc);
    out.ue(vui.maxBytesPerPicDenom);
    out.ue(vui.maxBitsPerMinCuDenom);
    out.ue(vui.log2MaxMvLengthHorizontal);
    out.ue(vui.log2MaxMvLengthVertical);
  }
}

inline void writeSps(HeaderBits& out, const syntax::HevcSps& sps) {
  out.u(4, sps.vpsId);
  out.u(3, sps.maxSubLayersMinus1);
  out.flag(sps.temporalIdNesting);
  writeProfileTierLevel(out, sps.maxSubLayersMinus1, sps.profileTierLevel);
  out.ue(sps.id);
  out.ue(sps.chromaFormatIdc);
  if (sps.chromaFormatIdc == 3) out.flag(sps.separateColourPlane);
  out.ue(sps.width);
  out.ue(sps.height);
  out.flag(sps.conformanceWindowPresent);
  if (sps.conformanceWindowPresent) {
    out.ue(sps.conformanceWindow.left);
    out.ue(sps.conformanceWindow.right);
    out.ue(sps.conformanceWindow.top);
    out.ue(sps.conformanceWindow.bottom);
  }
  out.ue(sps.bitDepthLuma - 8u);
  out.ue(sps.bitDepthChroma - 8u);
  out.ue(sps.log2MaxPocLsb - 4u);
  out.flag(sps.subLayerOrderingInfoPresent);
  writeOrdering(out, sps.subLayerOrderingInfoPresent, sps.maxSubLayersMinus1, sps.ordering);
  out.ue(sps.log2MinCb - 3u);
  out.ue(static_cast<uint32_t>(sps.log2Ctb - sps.log2MinCb));
  out.ue(sps.log2MinTb - 2u);
  out.ue(static_cast<uint32_t>(sps.log2MaxTb - sps.log2MinTb));
  out.ue(sps.maxTransformHierarchyDepthInter);
  out.ue(sps.maxTransformHierarchyDepthIntra);
  out.flag(false);  // scaling_list_enabled_flag
  out.flag(sps.ampEnabled);
  out.flag(sps.saoEnabled);
  out.flag(sps.pcmEnabled);
  if (sps.pcmEnabled) {
    out.u(4, sps.pcmBitDepthLuma - 1u);
    out.u(4, sps.pcmBitDepthChroma - 1u);
    out.ue(sps.log2MinPcmCb - 3u);
    out.ue(static_cast<uint32_t>(sps.log2MaxPcmCb - sps.log2MinPcmCb));
    out.flag(sps.pcmLoopFilterDisabled);
  }
  out.ue(static_cast<uint32_t>(sps.shortTermSets.size()));
  for (size_t i = 0; i < sps.shortTermSets.size(); ++i) {
    writeSet(out, i == 0, sps.shortTermSets[i]);
  }
  out.flag(sps.longTermRefPicsPresent);
  if (sps.longTermRefPicsPresent) {
    out.ue(sps.numLongTermSps);
    for (size_t i = 0; i < sps.numLongTermSps; ++i) {
      out.u(sps.log2MaxPocLsb, sps.ltRefPicPocLsb[i]);
      out.flag(sps.usedByCurrPicLt[i]);
    }
  }
  out.flag(sps.temporalMvpEnabled);
  out.flag(sps.strongIntraSmoothing);
  out.flag(sps.vuiPresent);
  if (sps.vuiPresent) writeVui(out, sps.maxSubLayersMinus1, sps.vui);
  out.flag(sps.rangeExtensionPresent);
  if (sps.rangeExtensionPresent) {
    out.u(8, 0x80);
    out.flag(sps.range.transformSkipRotation);
    out.u(5, 0);
    out.flag(sps.range.highPrecisionOffsets);
    out.flag(false);
    out.flag(sps.range.cabacBypassAlignment);
  }
}

}  // namespace zel::test
