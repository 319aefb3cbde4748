#include "zel/syntax/hevc_slice.h"

#include <algorithm>
#include <bit>

#include "zel/syntax/hevc_header_parts.h"

namespace zel::syntax {

namespace {

using base::BitReader;

// Ceil(Log2(count)) for the width of an index.
int indexBits(uint32_t count) {
  return count > 1 ? static_cast<int>(std::bit_width(count - 1)) : 0;
}

void readLongTerm(BitReader& bits, const HevcSps& sps, HevcSliceHeader& slice) {
  const uint32_t fromSps =
      sps.numLongTermSps > 0 ? readUeUpTo(bits, kHevcMaxLongTermRefs) : uint32_t{0};
  const uint32_t own = readUeUpTo(bits, kHevcMaxLongTermRefs - fromSps);
  slice.numLongTerm = static_cast<uint8_t>(fromSps + own);
  for (uint32_t i = 0; i < slice.numLongTerm && !bits.failed(); ++i) {
    HevcLongTermRef& ref = slice.longTerm[i];
    if (i < fromSps) {
      const uint32_t index = bits.read(indexBits(sps.numLongTermSps));
      if (index >= sps.numLongTermSps) {
        bits.fail();
        return;
      }
      ref.pocLsb = sps.ltRefPicPocLsb[index];
      ref.used = sps.usedByCurrPicLt[index];
    } else {
      ref.pocLsb = bits.read(sps.log2MaxPocLsb);
      ref.used = bits.readFlag();
    }
    ref.msbPresent = bits.readFlag();
    if (ref.msbPresent) ref.deltaPocMsbCycle = bits.readUe();
    // 7-52: cycles are sent as differences, anew for each of the two kinds.
    if (i != 0 && i != fromSps) ref.deltaPocMsbCycle += slice.longTerm[i - 1].deltaPocMsbCycle;
  }
}

void readReferences(BitReader& bits, const HevcSps& sps, HevcSliceHeader& slice) {
  slice.shortTermSetFromSps = bits.readFlag();
  if (!slice.shortTermSetFromSps) {
    const uint64_t begin = bits.position();
    readHevcShortTermSet(bits, sps.shortTermSets, true, slice.shortTermSet);
    slice.shortTermSetBits = static_cast<uint32_t>(bits.position() - begin);
  } else {
    const auto count = static_cast<uint32_t>(sps.shortTermSets.size());
    const uint32_t index = bits.read(indexBits(count));
    if (index >= count) {
      bits.fail();
      return;
    }
    slice.shortTermSetIndex = static_cast<uint8_t>(index);
    slice.shortTermSet = sps.shortTermSets[index];
  }
  if (sps.longTermRefPicsPresent) readLongTerm(bits, sps, slice);
  if (sps.temporalMvpEnabled) slice.temporalMvp = bits.readFlag();
}

void readReferenceCounts(BitReader& bits, const HevcPps& pps, HevcSliceHeader& slice) {
  const bool both = slice.type == kHevcSliceB;
  slice.numRefIdxL0 = pps.numRefIdxL0Default;
  slice.numRefIdxL1 = both ? pps.numRefIdxL1Default : uint8_t{0};
  if (!bits.readFlag()) return;
  slice.numRefIdxL0 = static_cast<uint8_t>(1 + readUeUpTo(bits, 14));
  if (both) slice.numRefIdxL1 = static_cast<uint8_t>(1 + readUeUpTo(bits, 14));
}

void readListModification(BitReader& bits, HevcSliceHeader& slice) {
  const auto total = static_cast<uint32_t>(slice.numPicTotalCurr());
  for (size_t list = 0; list < (slice.type == kHevcSliceB ? 2u : 1u); ++list) {
    slice.listModified[list] = bits.readFlag();
    if (!slice.listModified[list]) continue;
    const size_t count = list == 0 ? slice.numRefIdxL0 : slice.numRefIdxL1;
    for (size_t i = 0; i < count; ++i) {
      const uint32_t entry = bits.read(indexBits(total));
      if (entry >= total) bits.fail();
      slice.listEntry[list][i] = static_cast<uint8_t>(entry);
    }
  }
}

void readWeight(BitReader& bits, const HevcSps& sps, bool luma, bool chroma,
                const HevcSliceHeader& slice, HevcRefWeight& weight) {
  const bool wide = sps.range.highPrecisionOffsets;
  const int32_t halfLuma = 1 << (wide ? sps.bitDepthLuma - 1 : 7);
  const int32_t halfChroma = 1 << (wide ? sps.bitDepthChroma - 1 : 7);
  weight.lumaWeight = static_cast<int16_t>(1 << slice.lumaLog2WeightDenom);
  if (luma) {
    weight.lumaWeight = static_cast<int16_t>(weight.lumaWeight + readSeBetween(bits, -128, 127));
    weight.lumaOffset = readSeBetween(bits, -halfLuma, halfLuma - 1);
  }
  for (size_t plane = 0; plane < 2; ++plane) {
    weight.chromaWeight[plane] = static_cast<int16_t>(1 << slice.chromaLog2WeightDenom);
    if (!chroma) continue;
    const int32_t value = weight.chromaWeight[plane] + readSeBetween(bits, -128, 127);
    weight.chromaWeight[plane] = static_cast<int16_t>(value);
    const int32_t delta = readSeBetween(bits, -4 * halfChroma, 4 * halfChroma - 1);
    // 7-56: what the weight would move a sample of half range by is taken out.
    const int32_t moved = (halfChroma * value) >> slice.chromaLog2WeightDenom;
    weight.chromaOffset[plane] =
        std::clamp(halfChroma + delta - moved, -halfChroma, halfChroma - 1);
  }
}

void readWeights(BitReader& bits, const HevcSps& sps, HevcSliceHeader& slice) {
  const bool hasChroma = sps.chromaArrayType() != 0;
  slice.lumaLog2WeightDenom = static_cast<uint8_t>(readUeUpTo(bits, 7));
  if (hasChroma) {
    slice.chromaLog2WeightDenom = static_cast<uint8_t>(
        slice.lumaLog2WeightDenom +
        readSeBetween(bits, -slice.lumaLog2WeightDenom, 7 - slice.lumaLog2WeightDenom));
  }
  for (size_t list = 0; list < (slice.type == kHevcSliceB ? 2u : 1u); ++list) {
    const size_t count = list == 0 ? slice.numRefIdxL0 : slice.numRefIdxL1;
    std::array<bool, kHevcMaxRefs> luma{};
    std::array<bool, kHevcMaxRefs> chroma{};
    for (size_t i = 0; i < count; ++i) luma[i] = bits.readFlag();
    for (size_t i = 0; hasChroma && i < count; ++i) chroma[i] = bits.readFlag();
    for (size_t i = 0; i < count && !bits.failed(); ++i) {
      readWeight(bits, sps, luma[i], chroma[i], slice, slice.weights[list][i]);
    }
  }
}

void readPrediction(BitReader& bits, const HevcSps& sps, const HevcPps& pps,
                    HevcSliceHeader& slice) {
  const bool both = slice.type == kHevcSliceB;
  readReferenceCounts(bits, pps, slice);
  if (pps.listsModificationPresent && slice.numPicTotalCurr() > 1) {
    readListModification(bits, slice);
  }
  if (both) slice.mvdL1Zero = bits.readFlag();
  if (pps.cabacInitPresent) slice.cabacInit = bits.readFlag();
  if (slice.temporalMvp) {
    if (both) slice.collocatedFromL0 = bits.readFlag();
    const uint32_t count = slice.collocatedFromL0 ? slice.numRefIdxL0 : slice.numRefIdxL1;
    if (count > 1) slice.collocatedRefIdx = static_cast<uint8_t>(readUeUpTo(bits, count - 1));
  }
  if ((pps.weightedPred && !both) || (pps.weightedBipred && both)) readWeights(bits, sps, slice);
  slice.maxNumMergeCand = static_cast<uint8_t>(5 - readUeUpTo(bits, 4));
}

void readFilters(BitReader& bits, const HevcPps& pps, HevcSliceHeader& slice) {
  slice.deblockingDisabled = pps.deblockingDisabled;
  slice.betaOffsetDiv2 = pps.betaOffsetDiv2;
  slice.tcOffsetDiv2 = pps.tcOffsetDiv2;
  if (pps.deblockingOverrideEnabled && bits.readFlag()) {
    slice.deblockingDisabled = bits.readFlag();
    if (!slice.deblockingDisabled) {
      slice.betaOffsetDiv2 = static_cast<int8_t>(readSeBetween(bits, -6, 6));
      slice.tcOffsetDiv2 = static_cast<int8_t>(readSeBetween(bits, -6, 6));
    }
  }
  slice.loopFilterAcrossSlices = pps.loopFilterAcrossSlices;
  if (pps.loopFilterAcrossSlices &&
      (slice.saoLuma || slice.saoChroma || !slice.deblockingDisabled)) {
    slice.loopFilterAcrossSlices = bits.readFlag();
  }
}

// An independent segment as far as the picture's place in the order.
void readOrder(BitReader& bits, const HevcSps& sps, const HevcPps& pps, HevcSliceHeader& slice) {
  bits.skip(pps.numExtraSliceHeaderBits);
  slice.type = static_cast<uint8_t>(readUeUpTo(bits, 2));
  if (pps.outputFlagPresent) slice.picOutput = bits.readFlag();
  if (sps.separateColourPlane) slice.colourPlaneId = static_cast<uint8_t>(bits.read(2));
  if (!hevcTypeIsIdr(slice.nalType)) slice.pocLsb = bits.read(sps.log2MaxPocLsb);
}

void readIndependent(BitReader& bits, const HevcSps& sps, const HevcPps& pps,
                     HevcSliceHeader& slice) {
  readOrder(bits, sps, pps, slice);
  if (!hevcTypeIsIdr(slice.nalType)) readReferences(bits, sps, slice);
  if (sps.saoEnabled) {
    slice.saoLuma = bits.readFlag();
    if (sps.chromaArrayType() != 0) slice.saoChroma = bits.readFlag();
  }
  if (bits.failed()) return;
  if (slice.type != kHevcSliceI) readPrediction(bits, sps, pps, slice);
  slice.qpDelta = static_cast<int8_t>(readSeBetween(bits, -99, 77));
  if (pps.sliceChromaQpOffsetsPresent) {
    slice.cbQpOffset = static_cast<int8_t>(readSeBetween(bits, -12, 12));
    slice.crQpOffset = static_cast<int8_t>(readSeBetween(bits, -12, 12));
  }
  if (pps.range.chromaQpOffsetListEnabled) slice.cuChromaQpOffsetEnabled = bits.readFlag();
  readFilters(bits, pps, slice);
}

void readEntryPoints(BitReader& bits, const HevcSps& sps, const HevcPps& pps,
                     HevcSliceHeader& slice) {
  const uint32_t rows = pps.entropyCodingSync ? sps.heightInCtbs() : 1u;
  const uint32_t tiles = pps.tilesEnabled ? uint32_t{pps.numTileColumns} * pps.numTileRows : 1u;
  // 7.4.7.1: rows, tiles, or rows in each tile column.
  const uint32_t most =
      pps.tilesEnabled && pps.entropyCodingSync ? pps.numTileColumns * rows : std::max(rows, tiles);
  const uint32_t count = readUeUpTo(bits, most - 1);
  if (count == 0) return;
  const auto width = static_cast<int>(1 + readUeUpTo(bits, 31));
  if (uint64_t{count} * static_cast<unsigned>(width) > bits.bitsLeft()) bits.fail();
  for (uint32_t i = 0; i < count && !bits.failed(); ++i) {
    slice.entryPointOffsets.push_back(bits.read(width) + 1);
  }
}

void readAddress(BitReader& bits, const HevcSps& sps, const HevcPps& pps, HevcSliceHeader& slice) {
  if (pps.dependentSliceSegmentsEnabled) slice.dependent = bits.readFlag();
  const uint32_t ctbs = sps.widthInCtbs() * sps.heightInCtbs();
  slice.segmentAddress = bits.read(indexBits(ctbs));
  if (slice.segmentAddress == 0 || slice.segmentAddress >= ctbs) bits.fail();
}

// What begins the header, without what the parameter sets have a say in.
HevcSlicePeek readPeek(BitReader& bits, uint8_t nalType, bool& noOutputOfPriorPics) {
  HevcSlicePeek peek;
  peek.firstSegmentInPic = bits.readFlag();
  if (hevcTypeIsIrap(nalType)) noOutputOfPriorPics = bits.readFlag();
  peek.ppsId = static_cast<uint8_t>(readUeUpTo(bits, 63));
  return peek;
}

}  // namespace

int HevcSliceHeader::numPicTotalCurr() const {
  int count = 0;
  for (size_t i = 0; i < shortTermSet.numNegative; ++i) count += shortTermSet.usedS0[i];
  for (size_t i = 0; i < shortTermSet.numPositive; ++i) count += shortTermSet.usedS1[i];
  for (size_t i = 0; i < numLongTerm; ++i) count += longTerm[i].used;
  return count;
}

bool peekHevcSlice(std::span<const uint8_t> rbsp, uint8_t nalType, HevcSlicePeek& peek) {
  BitReader bits(rbsp);
  bool ignored = false;
  peek = readPeek(bits, nalType, ignored);
  return !bits.failed();
}

bool parseHevcSliceOrder(std::span<const uint8_t> rbsp, const HevcNalHeader& nal,
                         const HevcSps& sps, const HevcPps& pps, HevcSliceOrder& order) {
  BitReader bits(rbsp);
  HevcSliceHeader slice;
  slice.nalType = nal.type;
  const HevcSlicePeek peek = readPeek(bits, nal.type, slice.noOutputOfPriorPics);
  if (!peek.firstSegmentInPic) readAddress(bits, sps, pps, slice);
  if (!slice.dependent) readOrder(bits, sps, pps, slice);
  order = {nal.type,        nal.temporalId, peek.firstSegmentInPic,
           slice.dependent, slice.type,     slice.pocLsb};
  return !bits.failed();
}

bool parseHevcSliceHeader(std::span<const uint8_t> rbsp, const HevcNalHeader& nal,
                          const HevcSps& sps, const HevcPps& pps, HevcSliceHeader& slice) {
  BitReader bits(rbsp);
  HevcSliceHeader next;
  next.nalType = nal.type;
  next.temporalId = nal.temporalId;
  const HevcSlicePeek peek = readPeek(bits, nal.type, next.noOutputOfPriorPics);
  next.firstSegmentInPic = peek.firstSegmentInPic;
  next.ppsId = peek.ppsId;
  if (!next.firstSegmentInPic) readAddress(bits, sps, pps, next);
  if (bits.failed()) return false;
  if (next.dependent) {
    // The slice that it depends on stands in `slice`; a stream may have lost it.
    if (slice.nalType != nal.type || slice.ppsId != next.ppsId) return false;
    const HevcSliceHeader own = std::move(next);
    next = std::move(slice);
    next.firstSegmentInPic = false;
    next.noOutputOfPriorPics = own.noOutputOfPriorPics;
    next.dependent = true;
    next.segmentAddress = own.segmentAddress;
    next.entryPointOffsets.clear();
  } else {
    readIndependent(bits, sps, pps, next);
  }
  if (pps.tilesEnabled || pps.entropyCodingSync) readEntryPoints(bits, sps, pps, next);
  if (pps.sliceHeaderExtensionPresent) {
    const uint32_t length = readUeUpTo(bits, 256);
    bits.skip(uint64_t{length} * 8);
  }
  if (!bits.readFlag()) bits.fail();  // alignment_bit_equal_to_one
  bits.align();
  next.dataOffset = static_cast<uint32_t>(bits.position() / 8);
  slice = std::move(next);
  return !bits.failed();
}

int32_t HevcPictureOrderCounter::next(const HevcSps& sps, const HevcSliceHeader& slice) {
  return next(sps, HevcSliceOrder{slice.nalType, slice.temporalId, slice.firstSegmentInPic,
                                  slice.dependent, slice.type, slice.pocLsb});
}

int32_t HevcPictureOrderCounter::next(const HevcSps& sps, const HevcSliceOrder& slice) {
  const bool begins = hevcTypeIsIdr(slice.nalType) || hevcTypeIsBla(slice.nalType) ||
                      (restart_ && hevcTypeIsIrap(slice.nalType));
  const int64_t range = int64_t{1} << sps.log2MaxPocLsb;
  const int64_t lsb = slice.pocLsb;
  int64_t msb = begins ? 0 : previousMsb_;
  if (!begins && lsb < previousLsb_ && previousLsb_ - lsb >= range / 2) {
    msb += range;
  } else if (!begins && lsb > previousLsb_ && lsb - previousLsb_ > range / 2) {
    msb -= range;
  }
  restart_ = false;
  const bool anchor = slice.temporalId == 0 && !hevcTypeIsRasl(slice.nalType) &&
                      !hevcTypeIsRadl(slice.nalType) && !hevcTypeIsUnreferenced(slice.nalType);
  if (anchor) {
    previousMsb_ = msb;
    previousLsb_ = lsb;
  }
  return static_cast<int32_t>(std::clamp<int64_t>(msb + lsb, INT32_MIN, INT32_MAX));
}

}  // namespace zel::syntax
