#include "zel/syntax/avc_slice.h"

#include "zel/base/bit_reader.h"

namespace zel::syntax {

namespace {

using base::BitReader;

struct ReferenceCounts {
  uint32_t l0 = 0;
  uint32_t l1 = 0;
};

bool usesList0(uint8_t type) {
  return type == kAvcSliceP || type == kAvcSliceB || type == kAvcSliceSp;
}

void readPictureOrder(BitReader& bits, const AvcSps& sps, const AvcPps& pps,
                      AvcSliceHeader& slice) {
  const bool both = pps.bottomFieldPicOrderInFramePresent && !slice.fieldPic;
  if (sps.pocType == 0) {
    slice.pocLsb = bits.read(sps.log2MaxPocLsb);
    if (both) slice.deltaPocBottom = bits.readSe();
  } else if (sps.pocType == 1 && !sps.deltaPicOrderAlwaysZero) {
    slice.deltaPoc[0] = bits.readSe();
    if (both) slice.deltaPoc[1] = bits.readSe();
  }
}

ReferenceCounts readReferenceCounts(BitReader& bits, const AvcPps& pps,
                                    const AvcSliceHeader& slice) {
  ReferenceCounts counts;
  if (!usesList0(slice.type)) return counts;
  counts.l0 = pps.numRefIdxL0Default;
  if (slice.type == kAvcSliceB) counts.l1 = pps.numRefIdxL1Default;
  if (bits.readFlag()) {  // num_ref_idx_active_override_flag
    counts.l0 = bits.readUe() + 1;
    if (slice.type == kAvcSliceB) counts.l1 = bits.readUe() + 1;
  }
  if (counts.l0 > 32 || counts.l1 > 32) bits.fail();
  return counts;
}

// ref_pic_list_modification() and its multiview form, whose operations 4 and 5 take an operand too.
void skipListModification(BitReader& bits, int lists) {
  for (int list = 0; list < lists; ++list) {
    if (!bits.readFlag()) continue;
    for (int count = 0; !bits.failed(); ++count) {
      const uint32_t operation = bits.readUe();
      if (operation == 3) break;
      if (operation > 5 || count > 66) bits.fail();
      bits.readUe();
    }
  }
}

void skipWeights(BitReader& bits, const AvcSps& sps, const ReferenceCounts& counts) {
  const bool chroma = sps.chromaArrayType() != 0;
  bits.readUe();
  if (chroma) bits.readUe();
  for (uint32_t i = 0; i < counts.l0 + counts.l1 && !bits.failed(); ++i) {
    if (bits.readFlag()) {
      bits.readSe();
      bits.readSe();
    }
    if (chroma && bits.readFlag()) {
      for (int value = 0; value < 4; ++value) bits.readSe();
    }
  }
}

void readMarking(BitReader& bits, AvcSliceHeader& slice) {
  if (slice.idr) {
    slice.noOutputOfPriorPics = bits.readFlag();
    slice.longTermReference = bits.readFlag();
    return;
  }
  slice.adaptiveMarking = bits.readFlag();
  if (!slice.adaptiveMarking) return;
  while (!bits.failed()) {
    const uint32_t operation = bits.readUe();
    if (operation == 0) return;
    if (operation > 6 || slice.numMarkingOperations == slice.marking.size()) {
      bits.fail();
      return;
    }
    AvcMarkingOperation& marking = slice.marking[slice.numMarkingOperations++];
    marking.operation = static_cast<uint8_t>(operation);
    if (operation != 5) marking.first = bits.readUe();
    if (operation == 3) marking.second = bits.readUe();
  }
}

void readToMarking(BitReader& bits, const AvcSps& sps, const AvcPps& pps, AvcSliceHeader& slice) {
  if (slice.type == kAvcSliceB) bits.skip(1);  // direct_spatial_mv_pred_flag
  const ReferenceCounts counts = readReferenceCounts(bits, pps, slice);
  if (usesList0(slice.type)) skipListModification(bits, slice.type == kAvcSliceB ? 2 : 1);
  const bool weightsP = pps.weightedPred && usesList0(slice.type) && slice.type != kAvcSliceB;
  const bool weightsB = pps.weightedBipredIdc == 1 && slice.type == kAvcSliceB;
  if (weightsP || weightsB) skipWeights(bits, sps, counts);
  if (slice.nalRefIdc != 0) readMarking(bits, slice);
  slice.markingRead = true;
}

void readIdentity(BitReader& bits, AvcSliceHeader& slice) {
  slice.firstMb = bits.readUe();
  const uint32_t type = bits.readUe();
  if (type > 9) bits.fail();
  slice.type = static_cast<uint8_t>(type % 5);
  slice.allOfThisType = type >= 5;
  const uint32_t ppsId = bits.readUe();
  if (ppsId > 255) bits.fail();
  slice.ppsId = static_cast<uint8_t>(ppsId);
}

void readFieldFlags(BitReader& bits, const AvcSps& sps, AvcSliceHeader& slice) {
  if (sps.frameMbsOnly) return;
  slice.fieldPic = bits.readFlag();
  if (slice.fieldPic) slice.bottomField = bits.readFlag();
}

}  // namespace

bool AvcSliceHeader::resetsPictures() const {
  for (size_t i = 0; i < numMarkingOperations; ++i) {
    if (marking[i].operation == 5) return true;
  }
  return false;
}

bool peekAvcSlicePpsId(std::span<const uint8_t> rbsp, uint8_t& ppsId) {
  BitReader bits(rbsp);
  AvcSliceHeader slice;
  readIdentity(bits, slice);
  ppsId = slice.ppsId;
  return !bits.failed();
}

bool parseAvcSliceHeader(std::span<const uint8_t> rbsp, const AvcNalHeader& nal, const AvcSps& sps,
                         const AvcPps& pps, AvcSliceHeader& slice) {
  BitReader bits(rbsp);
  slice = {};
  slice.nalRefIdc = nal.refIdc;
  slice.idr = nal.idr;
  slice.viewId = nal.viewId;
  slice.dependencyId = nal.dependencyId;
  slice.qualityId = nal.qualityId;
  slice.spsId = pps.spsId;
  slice.pocType = sps.pocType;
  readIdentity(bits, slice);
  if (sps.separateColourPlane) slice.colourPlaneId = static_cast<uint8_t>(bits.read(2));
  slice.frameNum = bits.read(sps.log2MaxFrameNum);
  readFieldFlags(bits, sps, slice);
  if (slice.idr) {
    const uint32_t id = bits.readUe();
    if (id > 65535) bits.fail();
    slice.idrPicId = static_cast<uint16_t>(id);
  }
  readPictureOrder(bits, sps, pps, slice);
  if (pps.redundantPicCntPresent) {
    const uint32_t count = bits.readUe();
    if (count > 127) bits.fail();
    slice.redundantPicCnt = static_cast<uint8_t>(count);
  }
  if (bits.failed()) return false;
  // Slices of quality layers lack the parts that follow, on conditions of their own (F.7.3.3.4).
  if (!nal.svc) readToMarking(bits, sps, pps, slice);
  return !bits.failed();
}

bool avcSliceBeginsPicture(const AvcSliceHeader& a, const AvcSliceHeader& b) {
  if (a.frameNum != b.frameNum || a.ppsId != b.ppsId || a.spsId != b.spsId) return true;
  if (a.fieldPic != b.fieldPic || a.bottomField != b.bottomField) return true;
  if (a.nalRefIdc != b.nalRefIdc && (a.nalRefIdc == 0 || b.nalRefIdc == 0)) return true;
  if (a.idr != b.idr || (a.idr && a.idrPicId != b.idrPicId)) return true;
  if (a.viewId != b.viewId) return true;
  // Both of the same SPS by now, hence of the same type; the fields of other types are all zero.
  return a.pocLsb != b.pocLsb || a.deltaPocBottom != b.deltaPocBottom || a.deltaPoc != b.deltaPoc;
}

}  // namespace zel::syntax
