#include "zel/syntax/avc_parameter_sets.h"

#include <gtest/gtest.h>

#include "tests/unit/syntax/avc_test_writer.h"
#include "zel/syntax/avc_levels.h"
#include "zel/syntax/avc_nal.h"

namespace {

using zel::test::HeaderBits;
using zel::test::RandomFields;
using namespace zel::syntax;

TEST(AvcSps, ReadsWhatWasWritten) {
  RandomFields random(10);
  for (int round = 0; round < 500; ++round) {
    const AvcSps sps = zel::test::randomSps(random);
    HeaderBits out;
    zel::test::writeSps(out, sps);
    AvcSps back;
    ASSERT_TRUE(parseAvcSps(out.rbsp(), back)) << "round " << round;
    ASSERT_EQ(back, sps) << "round " << round;
  }
}

TEST(AvcSps, CutShortIsNone) {
  RandomFields random(11);
  for (int round = 0; round < 50; ++round) {
    HeaderBits out;
    zel::test::writeSps(out, zel::test::randomSps(random));
    const auto whole = out.bytes();
    AvcSps back;
    for (size_t size = 0; size < whole.size(); ++size) {
      ASSERT_FALSE(parseAvcSps(std::span(whole).first(size), back));
    }
  }
}

AvcSps plainSps(uint8_t profile) {
  AvcSps sps;
  sps.profileIdc = profile;
  sps.levelIdc = 40;
  sps.picWidthInMbs = 120;
  sps.picHeightInMapUnits = 68;
  return sps;
}

TEST(AvcSps, SizeIsCroppedInChromaAndFieldUnits) {
  AvcSps sps = plainSps(100);
  sps.frameCropping = true;
  sps.crop.bottom = 4;
  EXPECT_EQ(sps.croppedWidth(), 1920u);
  EXPECT_EQ(sps.croppedHeight(), 1080u);
  sps.frameMbsOnly = false;
  sps.picHeightInMapUnits = 34;
  sps.crop.bottom = 2;
  EXPECT_EQ(sps.croppedHeight(), 1080u);
  sps.chromaFormatIdc = 3;
  sps.crop.bottom = 4;
  EXPECT_EQ(sps.croppedHeight(), 1080u);
}

TEST(AvcSps, ValuesOutsideTheStandardAreRefused) {
  const auto parses = [](auto change) {
    AvcSps sps = plainSps(77);
    change(sps);
    HeaderBits out;
    zel::test::writeSps(out, sps);
    AvcSps back;
    return parseAvcSps(out.rbsp(), back);
  };
  EXPECT_TRUE(parses([](AvcSps&) {}));
  EXPECT_FALSE(parses([](AvcSps& sps) { sps.id = 32; }));
  EXPECT_FALSE(parses([](AvcSps& sps) { sps.log2MaxFrameNum = 17; }));
  EXPECT_FALSE(parses([](AvcSps& sps) { sps.pocType = 3; }));
  EXPECT_FALSE(parses([](AvcSps& sps) { sps.log2MaxPocLsb = 17; }));
  EXPECT_FALSE(parses([](AvcSps& sps) { sps.maxNumRefFrames = 17; }));
  EXPECT_FALSE(parses([](AvcSps& sps) { sps.picWidthInMbs = 100000; }));
  EXPECT_FALSE(parses([](AvcSps& sps) {
    sps.frameCropping = true;
    sps.crop.left = 960;
  }));
}

TEST(AvcSps, ScalingListsStopAtTheirLastStep) {
  HeaderBits out;
  out.u(8, 100);
  out.u(8, 0);
  out.u(8, 40);
  out.ue(0);
  out.ue(1);
  out.ue(0);
  out.ue(0);
  out.flag(false);
  out.flag(true);  // seq_scaling_matrix_present_flag
  out.flag(true);  // list 0: 8 + 2, then the rest alike
  out.se(2);
  out.se(-10);
  out.flag(true);  // list 1: the default
  out.se(-8);
  for (int i = 2; i < 7; ++i) out.flag(false);
  out.flag(true);  // list 7, 8x8: a ramp
  for (int i = 0; i < 64; ++i) out.se(1);
  out.ue(0);
  out.ue(2);
  out.ue(1);
  out.flag(false);
  out.ue(9);
  out.ue(9);
  out.flag(true);
  out.flag(true);
  out.flag(false);
  out.flag(false);
  AvcSps sps;
  ASSERT_TRUE(parseAvcSps(out.rbsp(), sps));
  ASSERT_TRUE(sps.scalingMatrixPresent);
  EXPECT_TRUE(sps.scaling.present[0] && !sps.scaling.useDefault[0]);
  for (const uint8_t value : sps.scaling.size4x4[0]) EXPECT_EQ(value, 10);
  EXPECT_TRUE(sps.scaling.useDefault[1]);
  EXPECT_FALSE(sps.scaling.present[2]);
  for (size_t i = 0; i < 64; ++i) EXPECT_EQ(sps.scaling.size8x8[1][i], 9 + i);
  EXPECT_EQ(sps.picWidthInMbs, 10u);
}

TEST(AvcSubsetSps, ReadsTheViewsOfStereo) {
  HeaderBits out;
  zel::test::writeSps(out, plainSps(128));
  out.flag(true);
  out.ue(1);  // two views
  out.ue(0);
  out.ue(5);
  out.ue(1);  // anchor references, list 0
  out.ue(0);
  out.ue(0);
  out.ue(0);  // non-anchor
  out.ue(1);
  out.ue(0);
  out.ue(0);  // one level
  out.u(8, 41);
  out.ue(0);
  out.u(3, 0);
  out.ue(0);
  out.ue(5);
  out.ue(1);
  out.flag(true);  // VUI: one operation point with timing
  out.ue(0);
  out.u(3, 2);
  out.ue(1);
  out.ue(0);
  out.ue(5);
  out.flag(true);
  out.u(32, 1001);
  out.u(32, 60000);
  out.flag(true);
  out.flag(false);
  out.flag(false);
  out.flag(true);
  out.flag(false);
  AvcSubsetSps sps;
  ASSERT_TRUE(parseAvcSubsetSps(out.rbsp(), sps));
  ASSERT_EQ(sps.views.size(), 2u);
  EXPECT_EQ(sps.views[1].viewId, 5);
  EXPECT_EQ(sps.views[1].anchorRefs[0], std::vector<uint16_t>{0});
  EXPECT_TRUE(sps.views[1].nonAnchorRefs[0].empty());
  EXPECT_EQ(sps.views[1].nonAnchorRefs[1], std::vector<uint16_t>{0});
  ASSERT_EQ(sps.levels.size(), 1u);
  EXPECT_EQ(sps.levels[0].levelIdc, 41);
  EXPECT_EQ(sps.levels[0].points[0].targetViews, std::vector<uint16_t>{5});
  EXPECT_EQ(sps.levels[0].points[0].numViews, 2u);
  ASSERT_EQ(sps.vuiPoints.size(), 1u);
  EXPECT_EQ(sps.vuiPoints[0].temporalId, 2);
  EXPECT_EQ(sps.vuiPoints[0].timing.timeScale, 60000u);
  EXPECT_TRUE(sps.vuiPoints[0].picStructPresent);
}

TEST(AvcSubsetSps, ReadsTheScalableExtension) {
  HeaderBits out;
  zel::test::writeSps(out, plainSps(86));
  out.flag(true);
  out.u(2, 1);
  out.flag(false);
  out.u(2, 2);
  out.u(3, 0);
  for (const int offset : {1, -2, 3, -4}) out.se(offset);
  out.flag(true);
  out.flag(true);
  out.flag(true);
  out.flag(false);
  AvcSubsetSps sps;
  ASSERT_TRUE(parseAvcSubsetSps(out.rbsp(), sps));
  EXPECT_TRUE(sps.svcExtension && !sps.mvcExtension);
  EXPECT_EQ(sps.extendedSpatialScalability, 1);
  EXPECT_FALSE(sps.chromaPhaseXPlus1);
  EXPECT_EQ(sps.chromaPhaseYPlus1, 2);
  EXPECT_TRUE(sps.adaptiveTcoeffLevelPrediction && sps.sliceHeaderRestriction);
}

struct PpsShape {
  bool high;
  uint8_t groups;
  uint8_t mapType;
};

class AvcPpsShapes : public testing::TestWithParam<PpsShape> {};

TEST_P(AvcPpsShapes, ReadWhatWasWritten) {
  const PpsShape shape = GetParam();
  AvcPps pps;
  HeaderBits out;
  out.ue(pps.id = 255);
  out.ue(pps.spsId = 31);
  out.flag(pps.entropyCodingMode = true);
  out.flag(pps.bottomFieldPicOrderInFramePresent = true);
  out.ue((pps.numSliceGroups = shape.groups) - 1u);
  if (shape.groups > 1) {
    out.ue(pps.sliceGroupMapType = shape.mapType);
    if (shape.mapType == 0) {
      for (size_t i = 0; i < shape.groups; ++i) {
        out.ue(pps.runLengthMinus1[i] = static_cast<uint32_t>(i * 7));
      }
    } else if (shape.mapType == 2) {
      for (size_t i = 0; i + 1 < shape.groups; ++i) {
        out.ue(pps.topLeft[i] = static_cast<uint32_t>(i));
        out.ue(pps.bottomRight[i] = static_cast<uint32_t>(i + 100));
      }
    } else if (shape.mapType >= 3 && shape.mapType <= 5) {
      out.flag(pps.sliceGroupChangeDirection = true);
      out.ue((pps.sliceGroupChangeRate = 33) - 1);
    } else if (shape.mapType == 6) {
      pps.sliceGroupId = {0, 1, 2, 1, 0};
      out.ue(4);
      for (const uint8_t id : pps.sliceGroupId) out.u(2, id);
    }
  }
  out.ue((pps.numRefIdxL0Default = 32) - 1u);
  out.ue((pps.numRefIdxL1Default = 2) - 1u);
  out.flag(pps.weightedPred = true);
  out.u(2, pps.weightedBipredIdc = 2);
  out.se(pps.picInitQpMinus26 = -20);
  out.se(pps.picInitQsMinus26 = 5);
  out.se(pps.chromaQpIndexOffset = -12);
  out.flag(pps.deblockingFilterControlPresent = true);
  out.flag(pps.constrainedIntraPred = false);
  out.flag(pps.redundantPicCntPresent = true);
  pps.secondChromaQpIndexOffset = -12;
  if (shape.high) {
    out.flag(pps.transform8x8Mode = true);
    out.flag(pps.scalingMatrixPresent = true);
    for (int i = 0; i < 8; ++i) out.flag(false);
    out.se(pps.secondChromaQpIndexOffset = 12);
  }
  AvcPps back;
  ASSERT_TRUE(parseAvcPps(out.rbsp(), 1, back));
  EXPECT_EQ(back, pps);
}

INSTANTIATE_TEST_SUITE_P(All, AvcPpsShapes,
                         testing::Values(PpsShape{false, 1, 0}, PpsShape{true, 1, 0},
                                         PpsShape{true, 3, 0}, PpsShape{false, 8, 1},
                                         PpsShape{false, 4, 2}, PpsShape{true, 2, 3},
                                         PpsShape{false, 3, 6}));

TEST(AvcNalHeader, ReadsExtensions) {
  AvcNalHeader header;
  const uint8_t plain[] = {0x65, 0x88};
  ASSERT_TRUE(parseAvcNalHeader(plain, header));
  EXPECT_EQ(header.type, kAvcIdrSlice);
  EXPECT_EQ(header.refIdc, 3);
  EXPECT_TRUE(header.idr);
  EXPECT_EQ(header.size, 1u);

  HeaderBits view;
  view.u(8, 0x74);  // type 20
  view.flag(false);
  view.flag(true);  // non_idr_flag
  view.u(6, 9);
  view.u(10, 777);
  view.u(3, 5);
  view.u(3, 5);
  ASSERT_TRUE(parseAvcNalHeader(view.bytes(), header));
  EXPECT_EQ(header.size, 4u);
  EXPECT_FALSE(header.svc || header.idr || header.interView);
  EXPECT_EQ(header.viewId, 777);
  EXPECT_EQ(header.temporalId, 5);
  EXPECT_TRUE(header.anchorPicture);

  HeaderBits layer;
  layer.u(8, 0x6E);  // type 14
  layer.flag(true);
  layer.flag(true);  // idr_flag
  layer.u(6, 1);
  layer.flag(false);
  layer.u(3, 6);
  layer.u(4, 11);
  layer.u(3, 4);
  layer.u(5, 0x1F);
  ASSERT_TRUE(parseAvcNalHeader(layer.bytes(), header));
  EXPECT_TRUE(header.svc && header.idr);
  EXPECT_EQ(header.dependencyId, 6);
  EXPECT_EQ(header.qualityId, 11);
  EXPECT_EQ(header.temporalId, 4);
  EXPECT_FALSE(parseAvcNalHeader(std::vector<uint8_t>{0x6E, 0xFF}, header));
  EXPECT_FALSE(parseAvcNalHeader(std::vector<uint8_t>{0xE5}, header));
}

TEST(AvcLevels, TellOneBFromOneOne) {
  EXPECT_EQ(findAvcLevel(11, true)->maxBr, 128u);
  EXPECT_EQ(findAvcLevel(11, false)->maxBr, 192u);
  EXPECT_EQ(findAvcLevel(40, true)->maxCpb, 25000u);
  EXPECT_EQ(findAvcLevel(43, false), nullptr);
  EXPECT_EQ(avcProfileFactors(100).nal, 1500);
  EXPECT_EQ(avcProfileFactors(7).vcl, 1000);
}

}  // namespace
