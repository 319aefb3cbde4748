#include "zel/syntax/hevc_slice.h"

#include <gtest/gtest.h>

#include "tests/support/header_bits.h"
#include "zel/syntax/hevc_sei.h"

namespace {

using zel::test::HeaderBits;
using namespace zel::syntax;

HevcSps smallSps() {
  HevcSps sps;
  sps.width = 320;
  sps.height = 192;
  sps.log2Ctb = 6;
  sps.log2MaxPocLsb = 8;
  sps.saoEnabled = true;
  sps.temporalMvpEnabled = true;
  return sps;
}

HevcNalHeader nalOf(uint8_t type, uint8_t temporalId = 0) {
  return {type, 0, temporalId};
}

TEST(HevcSliceHeader, ReadsABSliceWithEverything) {
  HevcSps sps = smallSps();
  sps.shortTermSets.resize(3);
  sps.shortTermSets[2].numNegative = 1;
  sps.shortTermSets[2].deltaPocS0[0] = -1;
  sps.shortTermSets[2].usedS0[0] = true;
  sps.shortTermSets[2].numPositive = 1;
  sps.shortTermSets[2].deltaPocS1[0] = 2;
  sps.shortTermSets[2].usedS1[0] = true;
  sps.longTermRefPicsPresent = true;
  sps.numLongTermSps = 2;
  sps.ltRefPicPocLsb[1] = 200;
  sps.usedByCurrPicLt[1] = true;
  HevcPps pps;
  pps.outputFlagPresent = true;
  pps.numExtraSliceHeaderBits = 2;
  pps.listsModificationPresent = true;
  pps.cabacInitPresent = true;
  pps.weightedBipred = true;
  pps.sliceChromaQpOffsetsPresent = true;
  pps.deblockingOverrideEnabled = true;
  pps.loopFilterAcrossSlices = true;
  pps.entropyCodingSync = true;
  pps.sliceHeaderExtensionPresent = true;
  HeaderBits out;
  out.flag(true);
  out.ue(4);
  out.u(2, 0);
  out.ue(0);
  out.flag(false);  // pic_output_flag
  out.u(8, 77);
  out.flag(true);
  out.u(2, 2);
  out.ue(1);  // one long-term picture of the SPS
  out.ue(1);  // and one more
  out.u(1, 1);
  out.flag(true);
  out.ue(3);
  out.u(8, 9);
  out.flag(false);
  out.flag(false);
  out.flag(true);  // temporal mvp
  out.flag(true);  // sao
  out.flag(false);
  out.flag(true);  // reference counts
  out.ue(1);
  out.ue(0);
  out.flag(true);  // list 0, of three pictures
  out.u(2, 2);
  out.u(2, 0);
  out.flag(false);
  out.flag(true);  // mvd_l1_zero
  out.flag(true);  // cabac_init
  out.flag(true);  // collocated in list 0
  out.ue(1);
  out.ue(6);  // weights
  out.se(-1);
  out.flag(true);
  out.flag(false);
  out.flag(false);
  out.flag(true);
  out.se(-5);
  out.se(10);
  out.se(3);
  out.se(-100);
  out.se(0);
  out.se(0);
  out.flag(false);
  out.flag(false);
  out.ue(3);
  out.se(-7);
  out.se(1);
  out.se(-1);
  out.flag(true);
  out.flag(false);
  out.se(2);
  out.se(-2);
  out.flag(false);
  out.ue(2);  // entry points
  out.ue(9);
  out.u(10, 99);
  out.u(10, 1023);
  out.ue(2);
  out.u(16, 0xABCD);
  const auto bytes = out.rbsp();
  HevcSliceHeader slice;
  ASSERT_TRUE(parseHevcSliceHeader(bytes, nalOf(kHevcTrailR), sps, pps, slice));
  EXPECT_TRUE(slice.firstSegmentInPic && !slice.picOutput && slice.temporalMvp);
  EXPECT_EQ(slice.type, kHevcSliceB);
  EXPECT_EQ(slice.pocLsb, 77u);
  EXPECT_EQ(slice.shortTermSet, sps.shortTermSets[2]);
  ASSERT_EQ(slice.numLongTerm, 2);
  EXPECT_EQ(slice.longTerm[0], (HevcLongTermRef{200, true, true, 3}));
  EXPECT_EQ(slice.longTerm[1], (HevcLongTermRef{9, false, false, 0}));
  EXPECT_EQ(slice.numPicTotalCurr(), 3);
  EXPECT_EQ(slice.numRefIdxL0, 2);
  EXPECT_EQ(slice.numRefIdxL1, 1);
  EXPECT_EQ(slice.listEntry[0][0], 2);
  EXPECT_EQ(slice.collocatedRefIdx, 1);
  EXPECT_EQ(slice.weights[0][0].lumaWeight, 59);
  EXPECT_EQ(slice.weights[0][0].lumaOffset, 10);
  EXPECT_EQ(slice.weights[0][1].lumaWeight, 64);
  // Denominator 5: weight 35; 128 - 100 - (128 * 35 >> 5) = -112.
  EXPECT_EQ(slice.weights[0][1].chromaWeight[0], 35);
  EXPECT_EQ(slice.weights[0][1].chromaOffset[0], -112);
  EXPECT_EQ(slice.weights[0][1].chromaOffset[1], 0);
  EXPECT_EQ(slice.maxNumMergeCand, 2);
  EXPECT_EQ(slice.qpDelta, -7);
  EXPECT_EQ(slice.betaOffsetDiv2, 2);
  EXPECT_FALSE(slice.loopFilterAcrossSlices);
  EXPECT_EQ(slice.entryPointOffsets, (std::vector<uint32_t>{100, 1024}));
  EXPECT_EQ(slice.dataOffset, bytes.size());
  HevcSlicePeek peek;
  ASSERT_TRUE(peekHevcSlice(bytes, kHevcTrailR, peek));
  EXPECT_EQ(peek.ppsId, 4);
  for (size_t size = 0; size < bytes.size(); ++size) {
    HevcSliceHeader other;
    ASSERT_FALSE(
        parseHevcSliceHeader(std::span(bytes).first(size), nalOf(kHevcTrailR), sps, pps, other));
  }
}

TEST(HevcSliceHeader, ADependentSegmentKeepsTheSliceBefore) {
  const HevcSps sps = smallSps();
  HevcPps pps;
  pps.dependentSliceSegmentsEnabled = true;
  HevcSliceHeader slice;
  HeaderBits first;
  first.flag(true);
  first.flag(false);
  first.ue(0);
  first.ue(2);
  first.flag(true);
  first.flag(true);
  first.se(5);
  ASSERT_TRUE(parseHevcSliceHeader(first.rbsp(), nalOf(kHevcIdrWRadl), sps, pps, slice));
  HeaderBits second;
  second.flag(false);
  second.flag(false);
  second.ue(0);
  second.flag(true);
  second.u(4, 7);  // of 15 CTBs
  const auto bytes = second.rbsp();
  ASSERT_TRUE(parseHevcSliceHeader(bytes, nalOf(kHevcIdrWRadl), sps, pps, slice));
  EXPECT_TRUE(slice.dependent && slice.saoLuma && !slice.firstSegmentInPic);
  EXPECT_EQ(slice.segmentAddress, 7u);
  EXPECT_EQ(slice.qpDelta, 5);
  HevcSliceHeader none;  // of another type of unit: there is no slice to depend on
  EXPECT_FALSE(parseHevcSliceHeader(bytes, nalOf(kHevcIdrWRadl), sps, pps, none));
}

TEST(HevcSliceHeader, AnAddressOutsideThePictureIsRefused) {
  for (const uint32_t address : {0u, 15u}) {
    HeaderBits out;
    out.flag(false);
    out.flag(false);
    out.ue(0);
    out.u(4, address);
    out.ue(2);
    out.u(32, 0xFFFFFFFF);
    HevcSliceHeader slice;
    EXPECT_FALSE(
        parseHevcSliceHeader(out.rbsp(), nalOf(kHevcIdrNLp), smallSps(), HevcPps{}, slice));
  }
}

TEST(HevcPictureOrder, LeadingPicturesAreNoAnchors) {
  HevcSps sps;
  sps.log2MaxPocLsb = 4;
  HevcPictureOrderCounter counter;
  const auto next = [&](uint8_t type, uint32_t lsb, uint8_t temporalId = 0) {
    HevcSliceHeader slice;
    slice.nalType = type;
    slice.pocLsb = lsb;
    slice.temporalId = temporalId;
    return counter.next(sps, slice);
  };
  EXPECT_EQ(next(kHevcCra, 14), 14);  // first of the stream: the msb are zero
  EXPECT_EQ(next(kHevcRaslN, 12), 12);
  EXPECT_EQ(next(kHevcTrailR, 2), 18);
  EXPECT_EQ(next(kHevcTrailR, 7, 1), 23);  // a sub-layer's picture is no anchor
  EXPECT_EQ(next(kHevcTrailN, 11), 11);    // nor is one that none refers to
  EXPECT_EQ(next(kHevcTrailR, 9), 25);
  EXPECT_EQ(next(kHevcIdrWRadl, 0), 0);
  EXPECT_EQ(next(kHevcRadlN, 15), -1);
  EXPECT_EQ(next(kHevcTrailR, 4), 4);
  counter.restart();
  EXPECT_EQ(next(kHevcCra, 13), 13);
}

TEST(HevcPicTiming, ReadsDelaysOfTheHrd) {
  HevcSps sps;
  sps.vui.frameFieldInfoPresent = true;
  sps.vui.hrd.nalPresent = true;
  sps.vui.hrd.auCpbRemovalDelayLength = 9;
  sps.vui.hrd.dpbOutputDelayLength = 7;
  HeaderBits out;
  out.u(4, 5);
  out.u(2, 1);
  out.flag(true);
  out.u(9, 300);
  out.u(7, 100);
  HevcPicTiming timing;
  ASSERT_TRUE(parseHevcPicTiming(out.rbsp(), sps, timing));
  EXPECT_EQ(timing.picStruct, 5);
  EXPECT_EQ(hevcDisplayFields(timing.picStruct), 3);
  EXPECT_TRUE(timing.duplicate);
  EXPECT_EQ(timing.auCpbRemovalDelay, 301u);
  EXPECT_EQ(timing.picDpbOutputDelay, 100u);
}

TEST(HevcBufferingPeriod, AlternativesComeWithIrapParameters) {
  for (const bool irap : {false, true}) {
    HevcSps sps;
    sps.vui.hrd.nalPresent = true;
    sps.vui.hrd.subLayers[0].cpbCount = 2;
    HeaderBits out;
    out.ue(3);
    out.flag(irap);
    if (irap) {
      out.u(24, 11);
      out.u(24, 12);
    }
    out.flag(true);
    out.u(24, 6);
    for (uint32_t i = 0; i < (irap ? 8u : 4u); ++i) out.u(24, 100 + i);
    HevcBufferingPeriod period;
    ASSERT_TRUE(parseHevcBufferingPeriod(out.rbsp(), sps, period));
    EXPECT_EQ(period.spsId, 3);
    EXPECT_EQ(period.auCpbRemovalDelayDelta, 7u);
    ASSERT_EQ(period.nal.size(), 2u);
    EXPECT_EQ(period.nal[1].delay, irap ? 104u : 102u);
    EXPECT_EQ(period.nal[1].altOffset, irap ? 107u : 0u);
  }
}

TEST(HevcPictureHash, EachKindHasItsSize) {
  std::vector<uint8_t> payload(1 + 48);
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i);
  HevcPictureHash hash;
  payload[0] = 0;
  ASSERT_TRUE(parseHevcPictureHash(payload, 1, hash));
  EXPECT_EQ(hash.md5[2][15], 48);
  EXPECT_FALSE(parseHevcPictureHash(std::span(payload).first(48), 1, hash));
  payload[0] = 1;
  ASSERT_TRUE(parseHevcPictureHash(std::span(payload).first(7), 1, hash));
  EXPECT_EQ(hash.value[2], 0x0506u);
  payload[0] = 2;
  ASSERT_TRUE(parseHevcPictureHash(std::span(payload).first(5), 0, hash));
  EXPECT_EQ(hash.components, 1);
  EXPECT_EQ(hash.value[0], 0x01020304u);
  payload[0] = 3;
  EXPECT_FALSE(parseHevcPictureHash(payload, 1, hash));
}

TEST(HevcTimeCode, ReadsAFullTimeStamp) {
  HeaderBits out;
  out.u(2, 1);
  out.flag(true);
  out.flag(true);
  out.u(5, 4);
  out.flag(true);
  out.flag(false);
  out.flag(true);
  out.u(9, 29);
  out.u(6, 58);
  out.u(6, 59);
  out.u(5, 10);
  out.u(5, 4);
  out.signedBits(4, -8);
  HevcTimeCode code;
  ASSERT_TRUE(parseHevcTimeCode(out.rbsp(), code));
  ASSERT_EQ(code.count, 1);
  EXPECT_EQ(code.clock[0].hours, 10);
  EXPECT_EQ(code.clock[0].minutes, 59);
  EXPECT_EQ(code.clock[0].seconds, 58);
  EXPECT_EQ(code.clock[0].frames, 29);
  EXPECT_TRUE(code.clock[0].cntDropped);
  EXPECT_EQ(code.clock[0].timeOffset, -8);
}

TEST(HevcDisplaySei, ReadsLight) {
  HeaderBits out;
  for (uint32_t i = 1; i <= 8; ++i) out.u(16, i);
  out.u(32, 10000000);
  out.u(32, 50);
  HevcMasteringDisplay display;
  ASSERT_TRUE(parseHevcMasteringDisplay(out.bytes(), display));
  EXPECT_EQ(display.primaries[2][1], 6);
  EXPECT_EQ(display.whitePoint[0], 7);
  EXPECT_EQ(display.maxLuminance, 10000000u);
  const std::array<uint8_t, 4> bytes = {0x03, 0xE8, 0x00, 0x64};
  HevcContentLight light;
  ASSERT_TRUE(parseHevcContentLight(bytes, light));
  EXPECT_EQ(light.maxContentLightLevel, 1000);
  EXPECT_EQ(light.maxPicAverageLightLevel, 100);
  EXPECT_FALSE(parseHevcContentLight(std::span(bytes).first(3), light));
}

}  // namespace
