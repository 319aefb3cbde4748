#pragma once

#include <vector>

#include "tests/support/header_bits.h"
#include "tests/unit/syntax/vui_test_writer.h"
#include "zel/syntax/avc_parameter_sets.h"
#include "zel/syntax/avc_slice.h"

/// Random parameter sets of AVC, and the bits that ITU-T H.264, 7.3.2 has for them.

namespace zel::test {

inline syntax::AvcHrd randomHrd(RandomFields& random) {
  syntax::AvcHrd hrd;
  hrd.cpbCount = static_cast<uint8_t>(1 + random.upTo(31));
  hrd.bitRateScale = static_cast<uint8_t>(random.bits(4));
  hrd.cpbSizeScale = static_cast<uint8_t>(random.bits(4));
  for (size_t i = 0; i < hrd.cpbCount; ++i) {
    hrd.entries[i] = {random.upTo(0xFFFFFFFE), random.upTo(0xFFFFFFFE), random.flag()};
  }
  hrd.initialCpbRemovalDelayLength = static_cast<uint8_t>(1 + random.bits(5));
  hrd.cpbRemovalDelayLength = static_cast<uint8_t>(1 + random.bits(5));
  hrd.dpbOutputDelayLength = static_cast<uint8_t>(1 + random.bits(5));
  hrd.timeOffsetLength = static_cast<uint8_t>(random.bits(5));
  return hrd;
}

inline void writeHrd(HeaderBits& out, const syntax::AvcHrd& hrd) {
  out.ue(hrd.cpbCount - 1u);
  out.u(4, hrd.bitRateScale);
  out.u(4, hrd.cpbSizeScale);
  for (size_t i = 0; i < hrd.cpbCount; ++i) {
    out.ue(hrd.entries[i].bitRateValueMinus1);
    out.ue(hrd.entries[i].cpbSizeValueMinus1);
    out.flag(hrd.entries[i].cbr);
  }
  out.u(5, hrd.initialCpbRemovalDelayLength - 1u);
  out.u(5, hrd.cpbRemovalDelayLength - 1u);
  out.u(5, hrd.dpbOutputDelayLength - 1u);
  out.u(5, hrd.timeOffsetLength);
}

inline syntax::AvcVui randomVui(RandomFields& random) {
  syntax::AvcVui vui;
  randomVuiDescription(random, vui);
  vui.timing.present = random.flag();
  if (vui.timing.present) {
    vui.timing = {true, random.bits(32), random.bits(32), random.flag()};
  }
  vui.nalHrdPresent = random.flag();
  if (vui.nalHrdPresent) vui.nalHrd = randomHrd(random);
  vui.vclHrdPresent = random.flag();
  if (vui.vclHrdPresent) vui.vclHrd = randomHrd(random);
  vui.lowDelayHrd = (vui.nalHrdPresent || vui.vclHrdPresent) && random.flag();
  vui.picStructPresent = random.flag();
  vui.bitstreamRestriction = random.flag();
  if (vui.bitstreamRestriction) {
    vui.motionVectorsOverPicBoundaries = random.flag();
    vui.maxBytesPerPicDenom = random.upTo(16);
    vui.maxBitsPerMbDenom = random.upTo(16);
    vui.log2MaxMvLengthHorizontal = random.upTo(16);
    vui.log2MaxMvLengthVertical = random.upTo(16);
    vui.maxNumReorderFrames = random.upTo(16);
    vui.maxDecFrameBuffering = random.upTo(16);
  }
  return vui;
}

inline void writeVui(HeaderBits& out, const syntax::AvcVui& vui) {
  writeVuiDescription(out, vui);
  out.flag(vui.timing.present);
  if (vui.timing.present) {
    out.u(32, vui.timing.numUnitsInTick);
    out.u(32, vui.timing.timeScale);
    out.flag(vui.timing.fixedFrameRate);
  }
  out.flag(vui.nalHrdPresent);
  if (vui.nalHrdPresent) writeHrd(out, vui.nalHrd);
  out.flag(vui.vclHrdPresent);
  if (vui.vclHrdPresent) writeHrd(out, vui.vclHrd);
  if (vui.nalHrdPresent || vui.vclHrdPresent) out.flag(vui.lowDelayHrd);
  out.flag(vui.picStructPresent);
  out.flag(vui.bitstreamRestriction);
  if (vui.bitstreamRestriction) {
    out.flag(vui.motionVectorsOverPicBoundaries);
    out.ue(vui.maxBytesPerPicDenom);
    out.ue(vui.maxBitsPerMbDenom);
    out.ue(vui.log2MaxMvLengthHorizontal);
    out.ue(vui.log2MaxMvLengthVertical);
    out.ue(vui.maxNumReorderFrames);
    out.ue(vui.maxDecFrameBuffering);
  }
}

inline syntax::AvcSps randomSps(RandomFields& random) {
  static constexpr uint8_t kProfiles[] = {66, 77, 88, 100, 110, 122, 244, 44};
  syntax::AvcSps sps;
  sps.profileIdc = kProfiles[random.upTo(7)];
  sps.constraintFlags = static_cast<uint8_t>(random.bits(6) << 2);
  sps.levelIdc = static_cast<uint8_t>(random.bits(8));
  sps.id = static_cast<uint8_t>(random.upTo(31));
  if (syntax::avcProfileHasChromaFormat(sps.profileIdc)) {
    sps.chromaFormatIdc = static_cast<uint8_t>(random.upTo(3));
    sps.separateColourPlane = sps.chromaFormatIdc == 3 && random.flag();
    sps.bitDepthLuma = static_cast<uint8_t>(8 + random.upTo(6));
    sps.bitDepthChroma = static_cast<uint8_t>(8 + random.upTo(6));
    sps.qpprimeYZeroTransformBypass = random.flag();
  }
  sps.log2MaxFrameNum = static_cast<uint8_t>(4 + random.upTo(12));
  sps.pocType = static_cast<uint8_t>(random.upTo(2));
  if (sps.pocType == 0) sps.log2MaxPocLsb = static_cast<uint8_t>(4 + random.upTo(12));
  if (sps.pocType == 1) {
    sps.deltaPicOrderAlwaysZero = random.flag();
    sps.offsetForNonRefPic = random.between(-1000000, 1000000);
    sps.offsetForTopToBottomField = random.between(-1000, 1000);
    sps.numRefFramesInPocCycle = static_cast<uint8_t>(random.upTo(255));
    for (size_t i = 0; i < sps.numRefFramesInPocCycle; ++i) {
      sps.offsetForRefFrame[i] = random.between(-100000, 100000);
    }
  }
  sps.maxNumRefFrames = random.upTo(16);
  sps.gapsInFrameNumAllowed = random.flag();
  sps.picWidthInMbs = 1 + random.upTo(254);
  sps.picHeightInMapUnits = 1 + random.upTo(254);
  sps.frameMbsOnly = random.flag();
  sps.mbAdaptiveFrameField = !sps.frameMbsOnly && random.flag();
  sps.direct8x8Inference = random.flag();
  sps.frameCropping = random.flag();
  if (sps.frameCropping) {
    sps.crop = {random.upTo(3), random.upTo(3), random.upTo(1), random.upTo(1)};
  }
  sps.vuiPresent = random.flag();
  if (sps.vuiPresent) sps.vui = randomVui(random);
  return sps;
}

/// Scaling matrices are left out: they have tests of their own.
inline void writeSps(HeaderBits& out, const syntax::AvcSps& sps) {
  out.u(8, sps.profileIdc);
  out.u(8, sps.constraintFlags);
  out.u(8, sps.levelIdc);
  out.ue(sps.id);
  if (syntax::avcProfileHasChromaFormat(sps.profileIdc)) {
    out.ue(sps.chromaFormatIdc);
    if (sps.chromaFormatIdc == 3) out.flag(sps.separateColourPlane);
    out.ue(sps.bitDepthLuma - 8u);
    out.ue(sps.bitDepthChroma - 8u);
    out.flag(sps.qpprimeYZeroTransformBypass);
    out.flag(false);
  }
  out.ue(sps.log2MaxFrameNum - 4u);
  out.ue(sps.pocType);
  if (sps.pocType == 0) out.ue(sps.log2MaxPocLsb - 4u);
  if (sps.pocType == 1) {
    out.flag(sps.deltaPicOrderAlwaysZero);
    out.se(sps.offsetForNonRefPic);
    out.se(sps.offsetForTopToBottomField);
    out.ue(sps.numRefFramesInPocCycle);
    for (size_t i = 0; i < sps.numRefFramesInPocCycle; ++i) out.se(sps.offsetForRefFrame[i]);
  }
  out.ue(sps.maxNumRefFrames);
  out.flag(sps.gapsInFrameNumAllowed);
  out.ue(sps.picWidthInMbs - 1);
  out.ue(sps.picHeightInMapUnits - 1);
  out.flag(sps.frameMbsOnly);
  if (!sps.frameMbsOnly) out.flag(sps.mbAdaptiveFrameField);
  out.flag(sps.direct8x8Inference);
  out.flag(sps.frameCropping);
  if (sps.frameCropping) {
    out.ue(sps.crop.left);
    out.ue(sps.crop.right);
    out.ue(sps.crop.top);
    out.ue(sps.crop.bottom);
  }
  out.flag(sps.vuiPresent);
  if (sps.vuiPresent) writeVui(out, sps.vui);
}

}  // namespace zel::test
