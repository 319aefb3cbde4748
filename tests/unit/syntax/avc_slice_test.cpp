#include "zel/syntax/avc_slice.h"

#include <gtest/gtest.h>

#include "tests/support/header_bits.h"
#include "zel/syntax/avc_picture_order.h"
#include "zel/syntax/avc_sei.h"
#include "zel/syntax/sei_message.h"

namespace {

using zel::test::HeaderBits;
using namespace zel::syntax;

AvcSps fieldSps() {
  AvcSps sps;
  sps.frameMbsOnly = false;
  sps.log2MaxFrameNum = 8;
  sps.log2MaxPocLsb = 6;
  return sps;
}

AvcNalHeader nalOf(uint8_t type, uint8_t refIdc) {
  AvcNalHeader nal;
  nal.type = type;
  nal.refIdc = refIdc;
  nal.idr = type == kAvcIdrSlice;
  return nal;
}

TEST(AvcSliceHeader, ReadsAnIdrField) {
  HeaderBits out;
  out.ue(0);
  out.ue(7);
  out.ue(3);
  out.u(8, 0);
  out.flag(true);
  out.flag(true);
  out.ue(500);
  out.u(6, 33);
  out.flag(true);
  out.flag(false);
  AvcPps pps;
  pps.bottomFieldPicOrderInFramePresent = true;  // no delta in a field
  AvcSliceHeader slice;
  const auto bytes = out.rbsp();
  ASSERT_TRUE(parseAvcSliceHeader(bytes, nalOf(5, 1), fieldSps(), pps, slice));
  EXPECT_EQ(slice.type, kAvcSliceI);
  EXPECT_TRUE(slice.allOfThisType && slice.fieldPic && slice.bottomField);
  EXPECT_EQ(slice.idrPicId, 500);
  EXPECT_EQ(slice.pocLsb, 33u);
  EXPECT_TRUE(slice.noOutputOfPriorPics && !slice.longTermReference);
  uint8_t id = 0;
  EXPECT_TRUE(peekAvcSlicePpsId(bytes, id));
  EXPECT_EQ(id, 3);
}

TEST(AvcSliceHeader, ReadsMarkingBehindListsAndWeights) {
  HeaderBits out;
  out.ue(10);
  out.ue(1);  // B
  out.ue(0);
  out.u(8, 77);
  out.flag(false);
  out.u(6, 4);
  out.se(-3);
  out.flag(true);  // direct_spatial
  out.flag(true);  // override
  out.ue(1);
  out.ue(0);
  out.flag(true);  // list 0 modified
  out.ue(0);
  out.ue(6);
  out.ue(3);
  out.flag(false);
  out.ue(5);  // weights of 2 + 1 references
  out.ue(4);
  for (int i = 0; i < 3; ++i) {
    out.flag(i == 1);
    if (i == 1) {
      out.se(-64);
      out.se(12);
    }
    out.flag(i == 2);
    if (i == 2) {
      for (int value = 0; value < 4; ++value) out.se(value);
    }
  }
  out.flag(true);
  out.ue(3);
  out.ue(20);
  out.ue(2);
  out.ue(5);
  out.ue(0);
  AvcPps pps;
  pps.bottomFieldPicOrderInFramePresent = true;
  pps.weightedBipredIdc = 1;
  AvcSliceHeader slice;
  ASSERT_TRUE(parseAvcSliceHeader(out.rbsp(), nalOf(1, 2), fieldSps(), pps, slice));
  EXPECT_EQ(slice.deltaPocBottom, -3);
  ASSERT_EQ(slice.numMarkingOperations, 2);
  EXPECT_EQ(slice.marking[0], (AvcMarkingOperation{3, 20, 2}));
  EXPECT_EQ(slice.marking[1], (AvcMarkingOperation{5, 0, 0}));
  EXPECT_TRUE(slice.resetsPictures());
}

TEST(AvcSliceHeader, EachDifferenceOfTheListBeginsAPicture) {
  AvcSliceHeader a;
  a.nalRefIdc = 1;
  const auto begins = [&](auto change) {
    AvcSliceHeader b = a;
    change(b);
    return avcSliceBeginsPicture(a, b);
  };
  EXPECT_FALSE(begins([](AvcSliceHeader& b) { b.firstMb = 99; }));
  EXPECT_FALSE(begins([](AvcSliceHeader& b) { b.type = kAvcSliceB; }));
  EXPECT_FALSE(begins([](AvcSliceHeader& b) { b.nalRefIdc = 3; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.nalRefIdc = 0; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.frameNum = 1; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.ppsId = 1; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.fieldPic = true; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.bottomField = true; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.pocLsb = 1; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.deltaPocBottom = 1; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.deltaPoc[1] = 1; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.idr = true; }));
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.viewId = 1; }));
  EXPECT_FALSE(begins([](AvcSliceHeader& b) { b.idrPicId = 1; }));
  a.idr = true;
  EXPECT_TRUE(begins([](AvcSliceHeader& b) { b.idrPicId = 1; }));
}

AvcSliceHeader picture(uint32_t frameNum, uint32_t lsb, uint8_t refIdc) {
  AvcSliceHeader slice;
  slice.frameNum = frameNum;
  slice.pocLsb = lsb;
  slice.nalRefIdc = refIdc;
  return slice;
}

TEST(AvcPictureOrder, Type0WrapsBothWays) {
  AvcSps sps;
  sps.log2MaxPocLsb = 4;
  AvcPictureOrderCounter counter;
  AvcSliceHeader idr = picture(0, 0, 1);
  idr.idr = true;
  EXPECT_EQ(counter.next(sps, idr).poc, 0);
  EXPECT_EQ(counter.next(sps, picture(1, 9, 0)).poc, -7);  // more than half ahead is behind
  EXPECT_EQ(counter.next(sps, picture(1, 8, 1)).poc, 8);   // just half is not
  EXPECT_EQ(counter.next(sps, picture(2, 14, 1)).poc, 14);
  EXPECT_EQ(counter.next(sps, picture(3, 4, 1)).poc, 20);
  EXPECT_EQ(counter.next(sps, picture(4, 15, 0)).poc, 15);
  EXPECT_EQ(counter.next(sps, picture(4, 10, 1)).poc, 26);
  EXPECT_EQ(counter.next(sps, picture(5, 2, 1)).poc, 34);  // half behind is a wrap
}

TEST(AvcPictureOrder, Operation5StartsAnew) {
  AvcSps sps;
  AvcPictureOrderCounter counter;
  AvcSliceHeader reset = picture(1, 6, 1);
  reset.adaptiveMarking = true;
  reset.numMarkingOperations = 1;
  reset.marking[0].operation = 5;
  reset.deltaPocBottom = -1;
  EXPECT_EQ(counter.next(sps, reset).poc, 5);
  EXPECT_EQ(counter.next(sps, picture(1, 2, 1)).poc, 2);
}

TEST(AvcPictureOrder, Type1FollowsTheCycle) {
  AvcSps sps;
  sps.pocType = 1;
  sps.numRefFramesInPocCycle = 2;
  sps.offsetForRefFrame[0] = 4;
  sps.offsetForRefFrame[1] = 6;
  sps.offsetForNonRefPic = -2;
  sps.offsetForTopToBottomField = 1;
  AvcPictureOrderCounter counter;
  AvcSliceHeader idr = picture(0, 0, 1);
  idr.idr = true;
  EXPECT_EQ(counter.next(sps, idr).poc, 0);
  EXPECT_EQ(counter.next(sps, picture(1, 0, 1)).poc, 4);
  EXPECT_EQ(counter.next(sps, picture(2, 0, 0)).poc, 2);
  EXPECT_EQ(counter.next(sps, picture(2, 0, 1)).poc, 10);
  EXPECT_EQ(counter.next(sps, picture(3, 0, 1)).poc, 14);
  AvcSliceHeader bottom = picture(4, 0, 1);
  bottom.fieldPic = bottom.bottomField = true;
  bottom.deltaPoc[0] = 3;
  EXPECT_EQ(counter.next(sps, bottom).poc, 20 + 1 + 3);
}

TEST(AvcPictureOrder, Type2IsDecodingOrder) {
  AvcSps sps;
  sps.pocType = 2;
  AvcPictureOrderCounter counter;
  AvcSliceHeader idr = picture(0, 0, 1);
  idr.idr = true;
  EXPECT_EQ(counter.next(sps, idr).poc, 0);
  EXPECT_EQ(counter.next(sps, picture(1, 0, 0)).poc, 1);
  EXPECT_EQ(counter.next(sps, picture(1, 0, 1)).poc, 2);
  EXPECT_EQ(counter.next(sps, picture(15, 0, 1)).poc, 30);
  EXPECT_EQ(counter.next(sps, picture(0, 0, 1)).poc, 32);
}

TEST(SeiMessages, LongTypesAndSizesAddUp) {
  std::vector<uint8_t> rbsp = {0xFF, 0x02, 0xFF, 0x01};
  rbsp.resize(rbsp.size() + 256, 0x55);
  rbsp.insert(rbsp.end(), {0x06, 0x00, 0x80});
  SeiMessages messages(rbsp);
  SeiMessage message;
  ASSERT_TRUE(messages.next(message));
  EXPECT_EQ(message.type, 257u);
  EXPECT_EQ(message.payload.size(), 256u);
  ASSERT_TRUE(messages.next(message));
  EXPECT_EQ(message.type, 6u);
  EXPECT_TRUE(message.payload.empty());
  EXPECT_FALSE(messages.next(message));
  EXPECT_FALSE(messages.failed());
}

TEST(SeiMessages, ASizePastTheEndFails) {
  const std::vector<uint8_t> rbsp = {1, 9, 1, 2, 0x80};
  SeiMessages messages(rbsp);
  SeiMessage message;
  EXPECT_FALSE(messages.next(message));
  EXPECT_TRUE(messages.failed());
}

TEST(AvcPicTiming, ReadsDelaysAndClock) {
  AvcSps sps;
  sps.vui.nalHrdPresent = true;
  sps.vui.nalHrd.cpbCount = 1;
  sps.vui.nalHrd.cpbRemovalDelayLength = 20;
  sps.vui.nalHrd.dpbOutputDelayLength = 12;
  sps.vui.nalHrd.timeOffsetLength = 5;
  sps.vui.picStructPresent = true;
  HeaderBits out;
  out.u(20, 99999);
  out.u(12, 4000);
  out.u(4, 3);
  out.flag(true);  // first: full
  out.u(2, 1);
  out.flag(true);
  out.u(5, 4);
  out.flag(true);
  out.flag(false);
  out.flag(true);
  out.u(8, 29);
  out.u(6, 59);
  out.u(6, 58);
  out.u(5, 23);
  out.signedBits(5, -16);
  out.flag(true);  // second: seconds and minutes only
  out.u(2, 0);
  out.flag(false);
  out.u(5, 0);
  out.flag(false);
  out.u(2, 0);
  out.u(8, 3);
  out.flag(true);
  out.u(6, 7);
  out.flag(true);
  out.u(6, 8);
  out.flag(false);
  out.signedBits(5, 15);
  const auto bytes = out.rbsp();
  AvcPicTiming timing;
  ASSERT_TRUE(parseAvcPicTiming(bytes, sps, timing));
  EXPECT_EQ(timing.cpbRemovalDelay, 99999u);
  EXPECT_EQ(timing.dpbOutputDelay, 4000u);
  ASSERT_EQ(timing.numClockTimestamps, 2);
  const ClockTimestamp& first = timing.clock[0];
  EXPECT_EQ(first.hours * 10000 + first.minutes * 100 + first.seconds, 235859);
  EXPECT_EQ(first.frames, 29);
  EXPECT_TRUE(first.cntDropped && first.hoursPresent);
  EXPECT_EQ(first.timeOffset, -16);
  const ClockTimestamp& second = timing.clock[1];
  EXPECT_TRUE(second.minutesPresent && !second.hoursPresent);
  EXPECT_EQ(second.seconds, 7);
  EXPECT_EQ(second.timeOffset, 15);
  EXPECT_FALSE(parseAvcPicTiming(std::span(bytes).first(6), sps, timing));
}

TEST(AvcBufferingPeriod, ReadsOnePairForEachEntry) {
  AvcSps sps;
  sps.vui.vclHrdPresent = true;
  sps.vui.vclHrd.cpbCount = 2;
  sps.vui.vclHrd.initialCpbRemovalDelayLength = 17;
  HeaderBits out;
  out.ue(0);
  for (const uint32_t value : {1u, 2u, 3u, 131071u}) out.u(17, value);
  AvcBufferingPeriod period;
  ASSERT_TRUE(parseAvcBufferingPeriod(out.rbsp(), sps, period));
  EXPECT_EQ(period.vcl[1], (AvcInitialDelay{3, 131071}));
  EXPECT_EQ(period.nal[0], AvcInitialDelay{});
}

TEST(RegisteredUserData, CountryCodeMayBeExtended) {
  RegisteredUserData data;
  const uint8_t plain[] = {0xB5, 0, 0x31, 'G'};
  ASSERT_TRUE(parseRegisteredUserData(plain, data));
  EXPECT_EQ(data.countryCode, 0xB5);
  EXPECT_EQ(data.data.size(), 3u);
  const uint8_t extended[] = {0xFF, 0x10, 1};
  ASSERT_TRUE(parseRegisteredUserData(extended, data));
  EXPECT_EQ(data.countryCodeExtension, 0x10);
  EXPECT_EQ(data.data.size(), 1u);
  EXPECT_FALSE(parseRegisteredUserData(std::span(extended).first(1), data));
}

}  // namespace
