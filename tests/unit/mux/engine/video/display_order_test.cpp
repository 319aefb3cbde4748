#include "zel/mux/engine/video/display_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "zel/mux/engine/video/frame_rates.h"
#include "zel/mux/engine/video/vbv_limits.h"

namespace {

using namespace zel::mux;

constexpr double kPeriod = 1080000;

struct picture {
  uint8_t type;  // 1 I, 2 P, 3 B
  uint8_t structure = 3;
  double duration = kPeriod;
};

// PTS in frame periods.
std::vector<double> mpeg_times(const std::vector<picture>& pictures, bool lowDelay) {
  auto units = std::make_unique<unit_queue>();
  mpeg_display_order order(lowDelay);
  double dts = 0;
  for (const picture& each : pictures) {
    access_unit unit;
    unit.dts = dts;
    unit.pictureType = each.type;
    unit.fieldStructure = each.structure;
    units->push(unit);
    order.enqueued(*units, kPeriod);
    dts += each.duration;
  }
  order.finish(*units, dts, kPeriod);
  std::vector<double> times;
  for (size_t i = 0; i < units->size(); ++i) {
    EXPECT_TRUE((*units)[i].timed) << i;
    times.push_back((*units)[i].pts / kPeriod);
  }
  return times;
}

TEST(MpegDisplayOrder, AnAnchorIsShownWhenTheNextIsDecoded) {
  EXPECT_EQ(mpeg_times({{1}, {2}, {3}, {3}, {2}, {3}}, false),
            (std::vector<double>{1, 4, 2, 3, 6, 5}));
}

TEST(MpegDisplayOrder, LowDelayShowsAtOnce) {
  EXPECT_EQ(mpeg_times({{1}, {2}, {2}}, true), (std::vector<double>{0, 1, 2}));
}

TEST(MpegDisplayOrder, FieldsOfAnAnchorAreHalfAPeriodApart) {
  const double half = kPeriod / 2;
  EXPECT_EQ(mpeg_times({{1, 1, half},
                        {2, 2, half},
                        {2, 1, half},
                        {2, 2, half},
                        {3, 1, half},
                        {3, 2, half},
                        {2, 1, half},
                        {2, 2, half}},
                       false),
            (std::vector<double>{1, 1.5, 3, 3.5, 2, 2.5, 4, 4.5}));
}

TEST(MpegDisplayOrder, RepeatedFieldsStretchWhatFollows) {
  EXPECT_EQ(mpeg_times({{1, 3, 1.5 * kPeriod}, {2}, {3, 3, 1.5 * kPeriod}, {2}}, false),
            (std::vector<double>{1.5, 4, 2.5, 5}));
}

struct coded {
  int64_t poc;
  bool key = false;
  int32_t fields = 2;
};

struct outcome {
  std::vector<double> times;
  bool changed = false;
  size_t mostWaiting = 0;
};

// PTS in half periods. Units leave the queue as soon as they are timed, as in a run.
outcome poc_times(const std::vector<coded>& pictures, int32_t maxReorder, int32_t toldFrames = 0) {
  auto units = std::make_unique<unit_queue>();
  poc_display_order order;
  order.configure(maxReorder, 0, toldFrames);
  outcome result;
  double dts = 0;
  const auto drain = [&](bool ended) {
    order.sort_by_poc(*units, kPeriod / 2, ended);
    result.mostWaiting = std::max(result.mostWaiting, units->size());
    while (!units->empty() && units->front().timed) {
      result.times.push_back(units->front().pts / (kPeriod / 2));
      units->pop();
    }
    result.changed = result.changed || order.take_depth_changed();
  };
  for (const coded& each : pictures) {
    access_unit unit;
    unit.dts = dts;
    unit.poc = each.poc;
    unit.beginsOrder = each.key;
    unit.fieldCount = each.fields;
    units->push(unit);
    dts += each.fields * kPeriod / 2;
    drain(false);
  }
  drain(true);
  return result;
}

std::vector<coded> groups(const std::vector<int64_t>& pocs, int count) {
  std::vector<coded> pictures;
  for (int group = 0; group < count; ++group) {
    for (const int64_t poc : pocs) pictures.push_back({poc, poc == 0});
  }
  return pictures;
}

TEST(PocDisplayOrder, WithoutReorderingPtsIsDts) {
  const outcome result = poc_times(groups({0, 2, 4, 6}, 3), 2);
  ASSERT_EQ(result.times.size(), 12u);
  for (size_t i = 0; i < 12; ++i) EXPECT_EQ(result.times[i], 2.0 * static_cast<double>(i));
}

TEST(PocDisplayOrder, APyramidIsDelayedByItsDepth) {
  const outcome result = poc_times(groups({0, 8, 4, 2, 6, 16, 12, 10, 14}, 2), 2);
  const std::vector<double> group = {4, 12, 8, 6, 10, 20, 16, 14, 18};
  ASSERT_EQ(result.times.size(), 18u);
  for (size_t i = 0; i < 18; ++i) {
    EXPECT_EQ(result.times[i], group[i % 9] + (i < 9 ? 0 : 18)) << i;
  }
  EXPECT_FALSE(result.changed);
  EXPECT_LE(result.mostWaiting, 9u);
}

TEST(PocDisplayOrder, StepsOfThePocDontMatter) {
  const outcome ones = poc_times({{0, true}, {3}, {1}, {2}, {6}, {4}, {5}}, 2);
  const outcome tens = poc_times({{0, true}, {30}, {10}, {20}, {60}, {40}, {50}}, 2);
  EXPECT_EQ(ones.times, tens.times);
  EXPECT_EQ(ones.times, (std::vector<double>{2, 8, 4, 6, 14, 10, 12}));
}

TEST(PocDisplayOrder, LeadingPicturesOfAnOpenGroupComeBeforeTheKey) {
  EXPECT_EQ(poc_times({{0, true}, {6}, {2}, {4}, {12, true}, {8}, {10}}, 2).times,
            (std::vector<double>{2, 8, 4, 6, 14, 10, 12}));
}

TEST(PocDisplayOrder, FieldsCountHalf) {
  EXPECT_EQ(poc_times({{0, true, 1}, {1, false, 1}, {8}, {4}}, 2).times,
            (std::vector<double>{2, 3, 6, 4}));
}

// ITU-T H.264, 8.2.1, allows that of the fields of one frame.
TEST(PocDisplayOrder, FieldsOfOnePocAreShownAsTheyAreDecoded) {
  const std::vector<coded> pictures = {{0, true, 1},  {0, false, 1}, {8, false, 1}, {8, false, 1},
                                       {4, false, 1}, {4, false, 1}, {6, false, 1}, {6, false, 1}};
  EXPECT_EQ(poc_times(pictures, 5).times, (std::vector<double>{2, 3, 8, 9, 4, 5, 6, 7}));
}

// One frame of reordering at first, two later.
TEST(PocDisplayOrder, TheDelayThatAStreamTellsNeedNotGrow) {
  std::vector<coded> pictures = groups({0, 6, 2, 4, 8, 10}, 1);
  for (const int64_t poc : {18, 14, 12, 16}) pictures.push_back({poc});
  EXPECT_TRUE(poc_times(pictures, 2).changed);
  const outcome told = poc_times(pictures, 2, 2);
  EXPECT_FALSE(told.changed);
  EXPECT_EQ(told.times, (std::vector<double>{4, 10, 6, 8, 12, 14, 22, 18, 16, 20}));
}

// As 24 frames a second are shown on 30: by turns for two fields and for three.
TEST(PocDisplayOrder, WhatIsToldCountsInTheLongestFrames) {
  const std::vector<coded> pictures = {
      {0, true, 3},   {6, false, 2},  {2, false, 2},  {4, false, 3},  {8, false, 3},
      {10, false, 2}, {18, false, 3}, {14, false, 3}, {12, false, 2}, {16, false, 2}};
  EXPECT_TRUE(poc_times(pictures, 2).changed);
  EXPECT_FALSE(poc_times(pictures, 2, 2).changed);
}

TEST(PocDisplayOrder, FarMoreThanIsSeenIsNotBelieved) {
  const std::vector<coded> pictures = groups({0, 6, 2, 4, 8, 10}, 1);
  EXPECT_EQ(poc_times(pictures, 2, 30).times, poc_times(pictures, 2, 2).times);
}

TEST(PocDisplayOrder, WhatIsToldOfAStreamWithoutReorderingDelaysNothing) {
  EXPECT_EQ(poc_times(groups({0, 2, 4, 6, 8, 10, 12}, 2), 2, 2).times,
            poc_times(groups({0, 2, 4, 6, 8, 10, 12}, 2), 2).times);
}

TEST(PocDisplayOrder, ADeeperGroupLaterIsTold) {
  std::vector<coded> pictures = groups({0, 2, 4, 6, 8, 10, 12}, 1);
  for (const int64_t poc : {0, 8, 4, 2, 6}) pictures.push_back({poc, poc == 0});
  EXPECT_TRUE(poc_times(pictures, 2).changed);
}

TEST(FrameRates, RatesOfTheTableAreFoundAndOthersKeepTheirTicks) {
  EXPECT_EQ(frame_rate_of(30000, 1001).code, 4);
  EXPECT_EQ(frame_rate_of(50, 1).code, 6);
  EXPECT_EQ(frame_rate_of(120000, 1001).period, 225225);
  EXPECT_EQ(frame_rate_of(12, 1).code, 0);
  EXPECT_EQ(frame_rate_of(12, 1).period, 2250000);
  EXPECT_EQ(find_frame_rate(8)->rounded, 60);
  EXPECT_EQ(find_frame_rate(12), nullptr);
  for (const frame_rate_row& row : kFrameRates) EXPECT_NEAR(row.period * row.rate, 27e6, 1e-6);
}

TEST(VbvLimits, EscapeTellsTheTwoLevelsApart) {
  EXPECT_EQ(max_vbv_bytes(false, 4, 8), 229376);
  EXPECT_EQ(max_vbv_bytes(false, 1, 4), 1527808);
  EXPECT_EQ(max_vbv_bytes(true, 0, 5), 1179648);
  EXPECT_EQ(max_vbv_bytes(true, 0, 14), 118784);
  EXPECT_EQ(max_vbv_bytes(false, 5, 4), 0);
}

}  // namespace
