#include "zel/dnxhd/encoder/job_plan.h"

#include <gtest/gtest.h>

#include <vector>

namespace zel::dnxhd {
namespace {

JobPlan planOf(uint32_t id, int32_t threads) {
  JobPlan plan{};
  EXPECT_TRUE(MakeJobPlan(GeometryOf(*FindEntry(id)), threads, plan));
  return plan;
}

std::vector<int> rowsOf(const JobPlan& plan) {
  return {plan.transformRows.begin(), plan.transformRows.end()};
}

TEST(JobPlan, CutsRowsByTheTable) {
  EXPECT_EQ(rowsOf(planOf(1237, 1)), std::vector<int>{68});
  EXPECT_EQ(rowsOf(planOf(1237, 3)), (std::vector<int>{34, 34}));
  EXPECT_EQ(rowsOf(planOf(1237, 7)), (std::vector<int>{17, 17, 17, 17}));
  EXPECT_EQ(rowsOf(planOf(1237, 8)), (std::vector<int>{9, 9, 8, 8, 9, 9, 8, 8}));
  EXPECT_EQ(rowsOf(planOf(1251, 1)), std::vector<int>{45});
  EXPECT_EQ(rowsOf(planOf(1251, 2)), (std::vector<int>{23, 22}));
  EXPECT_EQ(rowsOf(planOf(1258, 4)), (std::vector<int>{12, 11, 11, 11}));
  EXPECT_EQ(rowsOf(planOf(1258, 8)), (std::vector<int>{6, 6, 6, 6, 6, 5, 5, 5}));
}

TEST(JobPlan, AtTwoThreadsEachFieldIsAJob) {
  const JobPlan plan = planOf(1241, 2);
  EXPECT_EQ(rowsOf(plan), (std::vector<int>{34, 34}));
  EXPECT_EQ(plan.searchJobs, 2u);
  EXPECT_EQ(plan.jobsPerField, 1u);
}

TEST(JobPlan, OneThreadHasTwoJobsOfFields) {
  const JobPlan plan = planOf(1241, 1);
  EXPECT_EQ(rowsOf(plan), (std::vector<int>{34, 34}));
  EXPECT_EQ(plan.searchJobs, 2u);
  EXPECT_EQ(plan.jobsPerField, 1u);
  EXPECT_EQ(plan.threads, 1u);
  // A frame that is one picture is one job, interlaced or not.
  EXPECT_EQ(rowsOf(planOf(1260, 1)), std::vector<int>{68});
  EXPECT_EQ(planOf(1260, 1).searchJobs, 1u);
}

TEST(JobPlan, FieldsShareTheJobsOfMoreThreads) {
  EXPECT_EQ(planOf(1241, 4).searchJobs, 4u);
  EXPECT_EQ(planOf(1241, 4).jobsPerField, 2u);
  EXPECT_EQ(planOf(1241, 8).jobsPerField, 4u);
  EXPECT_EQ(planOf(1237, 8).jobsPerField, 8u);
}

TEST(JobPlan, TenThreadsHaveEightJobs) {
  const JobPlan plan = planOf(1237, 10);
  EXPECT_EQ(plan.transformRows.size(), 8u);
  EXPECT_EQ(plan.threads, 10u);
  EXPECT_EQ(plan.searchHandlers, 8u);
  EXPECT_EQ(plan.searchJobs, 8u);
}

TEST(JobPlan, NoThreadsCountAsOne) {
  for (const int32_t threads : {0, -1, INT32_MIN}) {
    EXPECT_EQ(planOf(1237, threads).threads, 1u);
    EXPECT_EQ(planOf(1237, threads).searchJobs, 1u);
  }
}

TEST(JobPlan, OtherRowCountsAreRefused) {
  JobPlan plan{};
  for (const uint32_t id : {32768u, 32769u, 32770u, 36864u}) {
    EXPECT_FALSE(MakeJobPlan(GeometryOf(*FindEntry(id)), 1, plan)) << id;
  }
}

}  // namespace
}  // namespace zel::dnxhd
