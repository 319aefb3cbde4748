#include "zel/syntax/hevc_header_parts.h"

namespace zel::syntax {

namespace {

using base::BitReader;

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

// The 88 bits that general and sub-layer profiles share.
void readProfile(BitReader& bits, HevcProfile& profile) {
  profile.space = read8(bits, 2);
  profile.tier = bits.readFlag();
  profile.idc = read8(bits, 5);
  profile.compatibility = bits.read(32);
  profile.progressiveSource = bits.readFlag();
  profile.interlacedSource = bits.readFlag();
  profile.nonPackedConstraint = bits.readFlag();
  profile.frameOnlyConstraint = bits.readFlag();
  profile.constraintBits = bits.readLong(44);
}

void readCpbs(BitReader& bits, const HevcHrd& hrd, uint8_t count, std::vector<HevcCpb>& cpbs) {
  cpbs.resize(count);
  for (HevcCpb& cpb : cpbs) {
    cpb.bitRateValueMinus1 = bits.readUe();
    cpb.cpbSizeValueMinus1 = bits.readUe();
    if (hrd.subPicParamsPresent) {
      cpb.cpbSizeDuValueMinus1 = bits.readUe();
      cpb.bitRateDuValueMinus1 = bits.readUe();
    }
    cpb.cbr = bits.readFlag();
  }
}

void readCommon(BitReader& bits, HevcHrd& hrd) {
  hrd.nalPresent = bits.readFlag();
  hrd.vclPresent = bits.readFlag();
  if (!hrd.nalPresent && !hrd.vclPresent) return;
  hrd.subPicParamsPresent = bits.readFlag();
  if (hrd.subPicParamsPresent) {
    hrd.tickDivisorMinus2 = read8(bits, 8);
    hrd.duCpbRemovalDelayIncrementLength = static_cast<uint8_t>(read8(bits, 5) + 1);
    hrd.subPicParamsInPicTiming = bits.readFlag();
    hrd.dpbOutputDelayDuLength = static_cast<uint8_t>(read8(bits, 5) + 1);
  }
  hrd.bitRateScale = read8(bits, 4);
  hrd.cpbSizeScale = read8(bits, 4);
  if (hrd.subPicParamsPresent) hrd.cpbSizeDuScale = read8(bits, 4);
  hrd.initialCpbRemovalDelayLength = static_cast<uint8_t>(read8(bits, 5) + 1);
  hrd.auCpbRemovalDelayLength = static_cast<uint8_t>(read8(bits, 5) + 1);
  hrd.dpbOutputDelayLength = static_cast<uint8_t>(read8(bits, 5) + 1);
}

void readSubLayer(BitReader& bits, const HevcHrd& hrd, HevcSubLayerHrd& layer) {
  layer.fixedPicRateGeneral = bits.readFlag();
  layer.fixedPicRateWithinCvs = layer.fixedPicRateGeneral || bits.readFlag();
  if (layer.fixedPicRateWithinCvs) {
    layer.elementalDurationInTcMinus1 = readUeUpTo(bits, 2047);
  } else {
    layer.lowDelay = bits.readFlag();
  }
  if (!layer.lowDelay) {
    layer.cpbCount = static_cast<uint8_t>(1 + readUeUpTo(bits, kHevcMaxCpbCount - 1));
  }
  if (bits.failed()) return;
  if (hrd.nalPresent) readCpbs(bits, hrd, layer.cpbCount, layer.nal);
  if (hrd.vclPresent) readCpbs(bits, hrd, layer.cpbCount, layer.vcl);
}

}  // namespace

void readHevcProfileTierLevel(BitReader& bits, int maxSubLayersMinus1,
                              HevcProfileTierLevel& record) {
  readProfile(bits, record.general);
  record.generalLevelIdc = read8(bits, 8);
  const auto layers = static_cast<size_t>(maxSubLayersMinus1);
  for (size_t i = 0; i < layers; ++i) {
    record.subLayers[i].profilePresent = bits.readFlag();
    record.subLayers[i].levelPresent = bits.readFlag();
  }
  if (layers > 0) bits.skip(2 * (8 - layers));  // reserved_zero_2bits
  for (size_t i = 0; i < layers; ++i) {
    if (record.subLayers[i].profilePresent) readProfile(bits, record.subLayers[i].profile);
    if (record.subLayers[i].levelPresent) record.subLayers[i].levelIdc = read8(bits, 8);
  }
}

void readHevcHrd(BitReader& bits, bool commonInfPresent, int maxSubLayersMinus1, HevcHrd& hrd) {
  if (commonInfPresent) readCommon(bits, hrd);
  for (size_t i = 0; i <= static_cast<size_t>(maxSubLayersMinus1) && !bits.failed(); ++i) {
    readSubLayer(bits, hrd, hrd.subLayers[i]);
  }
}

}  // namespace zel::syntax
