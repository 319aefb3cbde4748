#include "zel/syntax/hevc_parameter_sets.h"

#include <gtest/gtest.h>

#include "tests/unit/syntax/hevc_test_writer.h"
#include "zel/syntax/hevc_header_parts.h"
#include "zel/syntax/hevc_levels.h"
#include "zel/syntax/hevc_nal.h"

namespace {

using zel::base::BitReader;
using zel::test::HeaderBits;
using zel::test::RandomFields;
using namespace zel::syntax;

TEST(HevcSps, ReadsWhatWasWritten) {
  RandomFields random(20);
  for (int round = 0; round < 500; ++round) {
    const HevcSps sps = zel::test::randomHevcSps(random);
    HeaderBits out;
    zel::test::writeSps(out, sps);
    HevcSps back;
    ASSERT_TRUE(parseHevcSps(out.rbsp(), back)) << "round " << round;
    ASSERT_EQ(back, sps) << "round " << round;
  }
}

TEST(HevcSps, CutShortIsNone) {
  RandomFields random(21);
  for (int round = 0; round < 20; ++round) {
    HeaderBits out;
    zel::test::writeSps(out, zel::test::randomHevcSps(random));
    const auto whole = out.bytes();
    HevcSps back;
    for (size_t size = 0; size < whole.size(); ++size) {
      ASSERT_FALSE(parseHevcSps(std::span(whole).first(size), back));
    }
  }
}

TEST(HevcVps, ReadsWhatWasWritten) {
  RandomFields random(22);
  for (int round = 0; round < 200; ++round) {
    HevcVps vps;
    HeaderBits out;
    out.u(4, vps.id = static_cast<uint8_t>(random.bits(4)));
    out.flag(vps.baseLayerInternal = random.flag());
    out.flag(vps.baseLayerAvailable = random.flag());
    out.u(6, vps.maxLayersMinus1 = static_cast<uint8_t>(random.bits(6)));
    out.u(3, vps.maxSubLayersMinus1 = static_cast<uint8_t>(random.upTo(6)));
    out.flag(vps.temporalIdNesting = random.flag());
    out.u(16, 0xFFFF);
    vps.profileTierLevel = zel::test::randomProfileTierLevel(random, vps.maxSubLayersMinus1);
    zel::test::writeProfileTierLevel(out, vps.maxSubLayersMinus1, vps.profileTierLevel);
    out.flag(vps.subLayerOrderingInfoPresent = random.flag());
    zel::test::randomOrdering(random, vps.subLayerOrderingInfoPresent, vps.maxSubLayersMinus1,
                              vps.ordering);
    zel::test::writeOrdering(out, vps.subLayerOrderingInfoPresent, vps.maxSubLayersMinus1,
                             vps.ordering);
    out.u(6, vps.maxLayerId = 1);
    out.ue(vps.numLayerSetsMinus1 = 1);
    vps.layerSets = {2};
    out.flag(false);
    out.flag(true);
    vps.timing = {true, 1001, 60000, false, 0};
    out.flag(true);
    out.u(32, 1001);
    out.u(32, 60000);
    out.flag(false);
    out.ue(2);
    vps.hrds = {zel::test::randomHevcHrd(random, vps.maxSubLayersMinus1),
                zel::test::randomHevcHrd(random, vps.maxSubLayersMinus1)};
    vps.hrdLayerSetIdx = {0, 1};
    out.ue(0);
    zel::test::writeHrd(out, true, vps.maxSubLayersMinus1, vps.hrds[0]);
    out.ue(1);
    out.flag(true);
    zel::test::writeHrd(out, true, vps.maxSubLayersMinus1, vps.hrds[1]);
    out.flag(vps.extension = random.flag());
    HevcVps back;
    ASSERT_TRUE(parseHevcVps(out.rbsp(), back));
    ASSERT_EQ(back, vps) << "round " << round;
  }
}

TEST(HevcShortTermSet, PredictionMovesAndSortsTheSetBefore) {
  HevcShortTermSet from;
  from.numNegative = 2;
  from.deltaPocS0 = {-2, -6};
  from.numPositive = 1;
  from.deltaPocS1 = {2};
  HeaderBits out;
  out.flag(true);  // inter_ref_pic_set_prediction_flag
  out.flag(true);  // negative
  out.ue(1);       // by 2
  out.flag(true);  // -2 - 2
  out.flag(false);
  out.flag(false);  // -6 goes
  out.flag(true);   // 2 - 2 = 0, the picture itself: drops out
  out.flag(false);
  out.flag(true);  // and the set's own picture at -2, not used
  HevcShortTermSet set;
  const auto bytes = out.rbsp();
  BitReader bits(bytes);
  readHevcShortTermSet(bits, std::span(&from, 1), false, set);
  ASSERT_FALSE(bits.failed());
  ASSERT_EQ(set.numNegative, 2);
  EXPECT_EQ(set.numPositive, 0);
  EXPECT_EQ(set.deltaPocS0[0], -2);
  EXPECT_FALSE(set.usedS0[0]);
  EXPECT_EQ(set.deltaPocS0[1], -4);
  EXPECT_TRUE(set.usedS0[1]);
}

TEST(HevcShortTermSet, ASliceNamesTheSetThatItPredictsFrom) {
  std::array<HevcShortTermSet, 2> sets;
  sets[0].numPositive = 1;
  sets[0].deltaPocS1 = {4};
  HeaderBits out;
  out.flag(true);
  out.ue(1);  // two back
  out.flag(false);
  out.ue(0);  // by 1
  out.flag(true);
  out.flag(true);
  HevcShortTermSet set;
  const auto bytes = out.rbsp();
  BitReader bits(bytes);
  readHevcShortTermSet(bits, sets, true, set);
  ASSERT_FALSE(bits.failed());
  ASSERT_EQ(set.numPositive, 2);
  EXPECT_EQ(set.deltaPocS1[0], 1);
  EXPECT_EQ(set.deltaPocS1[1], 5);
}

TEST(HevcShortTermSet, MoreThanSixteenPicturesFail) {
  HeaderBits out;
  out.ue(9);
  out.ue(8);
  for (int i = 0; i < 17; ++i) {
    out.ue(0);
    out.flag(true);
  }
  HevcShortTermSet set;
  const auto bytes = out.rbsp();
  BitReader bits(bytes);
  readHevcShortTermSet(bits, {}, false, set);
  EXPECT_TRUE(bits.failed());
}

TEST(HevcScalingLists, DefaultsCopiesAndOwnLists) {
  HeaderBits out;
  for (int size = 0; size < 4; ++size) {
    for (int matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
      const bool own = size == 2 && matrix == 1;
      out.flag(own);
      if (own) {
        out.se(12);  // DC 20
        out.se(-10);
        for (int i = 1; i < 64; ++i) out.se(1);
      } else {
        out.ue(size == 2 && matrix == 2 ? 1 : 0);  // a copy, else the default
      }
    }
  }
  HevcScalingLists lists;
  const auto bytes = out.rbsp();
  BitReader bits(bytes);
  readHevcScalingLists(bits, lists);
  ASSERT_FALSE(bits.failed());
  EXPECT_FALSE(bits.moreRbspData());
  for (const size_t matrix : {1, 2}) {
    EXPECT_EQ(lists.dc[0][matrix], 20);
    for (size_t i = 0; i < 64; ++i) EXPECT_EQ(lists.larger[1][matrix][i], 10 + i);
  }
  const HevcScalingLists defaults = defaultHevcScalingLists();
  EXPECT_EQ(lists.larger[1][0], defaults.larger[1][0]);
  EXPECT_EQ(lists.size4x4, defaults.size4x4);
  EXPECT_EQ(lists.larger[2][1], lists.larger[1][1]);
  EXPECT_EQ(lists.larger[2][3], defaults.larger[0][3]);
  EXPECT_EQ(defaults.larger[0][0][63], 115);
  EXPECT_EQ(defaults.larger[0][5][63], 91);
  EXPECT_EQ(defaults.dc[1][0], 16);
}

TEST(HevcPps, ReadsTilesFiltersAndRangeExtension) {
  HevcPps pps;
  HeaderBits out;
  out.ue(pps.id = 63);
  out.ue(pps.spsId = 15);
  out.flag(pps.dependentSliceSegmentsEnabled = true);
  out.flag(pps.outputFlagPresent = true);
  out.u(3, pps.numExtraSliceHeaderBits = 5);
  out.flag(pps.signDataHiding = true);
  out.flag(pps.cabacInitPresent = true);
  out.ue((pps.numRefIdxL0Default = 15) - 1u);
  out.ue((pps.numRefIdxL1Default = 3) - 1u);
  out.se(pps.initQpMinus26 = -30);
  out.flag(pps.constrainedIntraPred = true);
  out.flag(pps.transformSkipEnabled = true);
  out.flag(pps.cuQpDeltaEnabled = true);
  out.ue(pps.diffCuQpDeltaDepth = 2);
  out.se(pps.cbQpOffset = -12);
  out.se(pps.crQpOffset = 12);
  out.flag(pps.sliceChromaQpOffsetsPresent = true);
  out.flag(pps.weightedPred = true);
  out.flag(pps.weightedBipred = false);
  out.flag(pps.transquantBypassEnabled = true);
  out.flag(pps.tilesEnabled = true);
  out.flag(pps.entropyCodingSync = true);
  out.ue((pps.numTileColumns = 3) - 1u);
  out.ue((pps.numTileRows = 2) - 1u);
  out.flag(pps.uniformSpacing = false);
  out.ue((pps.columnWidth[0] = 4) - 1u);
  out.ue((pps.columnWidth[1] = 5) - 1u);
  out.ue((pps.rowHeight[0] = 6) - 1u);
  out.flag(pps.loopFilterAcrossTiles = false);
  out.flag(pps.loopFilterAcrossSlices = true);
  out.flag(pps.deblockingControlPresent = true);
  out.flag(pps.deblockingOverrideEnabled = true);
  out.flag(pps.deblockingDisabled = false);
  out.se(pps.betaOffsetDiv2 = -6);
  out.se(pps.tcOffsetDiv2 = 6);
  out.flag(false);
  out.flag(pps.listsModificationPresent = true);
  out.ue((pps.log2ParallelMergeLevel = 4) - 2u);
  out.flag(pps.sliceHeaderExtensionPresent = true);
  out.flag(true);
  out.u(8, 0x81);
  pps.rangeExtensionPresent = true;
  pps.extension4bits = 1;
  out.ue((pps.range.log2MaxTransformSkip = 4) - 2u);
  out.flag(pps.range.crossComponentPrediction = true);
  out.flag(pps.range.chromaQpOffsetListEnabled = true);
  out.ue(pps.range.diffCuChromaQpOffsetDepth = 1);
  out.ue((pps.range.chromaQpOffsetListLen = 2) - 1u);
  for (size_t i = 0; i < 2; ++i) {
    out.se(pps.range.cbQpOffsetList[i] = 3);
    out.se(pps.range.crQpOffsetList[i] = -4);
  }
  out.ue(pps.range.log2SaoOffsetScaleLuma = 1);
  out.ue(pps.range.log2SaoOffsetScaleChroma = 2);
  HevcPps back;
  const auto bytes = out.rbsp();
  ASSERT_TRUE(parseHevcPps(bytes, back));
  EXPECT_EQ(back, pps);
  for (size_t size = 0; size + 1 < bytes.size(); ++size) {
    ASSERT_FALSE(parseHevcPps(std::span(bytes).first(size), back));
  }

  HevcSps sps;
  sps.width = 64 * 10;
  sps.height = 64 * 7;
  sps.log2Ctb = 6;
  sps.bitDepthLuma = 10;
  EXPECT_TRUE(hevcPpsFits(pps, sps));
  sps.width = 64 * 9;  // nothing left for the last column
  EXPECT_FALSE(hevcPpsFits(pps, sps));
  sps.width = 64 * 10;
  sps.bitDepthLuma = 8;  // -30 is below -26
  EXPECT_FALSE(hevcPpsFits(pps, sps));
}

TEST(HevcNalHeader, ReadsItsFieldsAndRefusesNone) {
  HevcNalHeader header;
  ASSERT_TRUE(parseHevcNalHeader(std::array<uint8_t, 2>{0x43, 0xFB}, header));
  EXPECT_EQ(header, (HevcNalHeader{33, 63, 2}));
  EXPECT_FALSE(parseHevcNalHeader(std::array<uint8_t, 2>{0x42, 0x00}, header));
  EXPECT_FALSE(parseHevcNalHeader(std::array<uint8_t, 2>{0xC2, 0x01}, header));
  EXPECT_FALSE(parseHevcNalHeader(std::array<uint8_t, 1>{0x42}, header));
}

TEST(HevcNalTypes, UnitsThatBeginAnAccessUnit) {
  for (const int type : {32, 33, 34, 35, 39, 41, 44, 48, 55}) {
    EXPECT_TRUE(hevcTypeBeginsAccessUnit(static_cast<uint8_t>(type))) << type;
  }
  for (const int type : {0, 19, 21, 31, 36, 37, 38, 40, 45, 47, 56, 63}) {
    EXPECT_FALSE(hevcTypeBeginsAccessUnit(static_cast<uint8_t>(type))) << type;
  }
}

TEST(HevcLevels, HighTierWhereThereIsOne) {
  EXPECT_EQ(findHevcLevel(93)->maxBr(true), 10000u);
  EXPECT_EQ(findHevcLevel(120)->maxBr(true), 30000u);
  EXPECT_EQ(findHevcLevel(120)->maxCpb(false), 12000u);
  EXPECT_EQ(findHevcLevel(121), nullptr);
}

}  // namespace
