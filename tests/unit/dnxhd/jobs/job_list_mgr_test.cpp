#include "zel/dnxhd/jobs/job_list_mgr.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "tests/support/failing_allocation.h"
#include "tests/unit/dnxhd/jobs/counting_handler.h"

namespace zel::dnxhd {
namespace {

struct JobList : testing::Test {
  JobList() {
    mgr.AddJobs(jobs.data(), jobs.size());
    mgr.AddHandlers(handlers.data(), handlers.size());
  }
  std::string errorText() const {
    std::array<char, kErrorTextBytes> buffer;
    buffer.fill('x');
    mgr.GetErrorText(buffer.data());
    return buffer.data();
  }

  std::array<CodecJob, 3> jobStore;
  std::array<CodecJob*, 3> jobs{&jobStore[0], &jobStore[1], &jobStore[2]};
  std::array<CountingHandler, 2> handlerStore;
  std::array<IJobHandler*, 2> handlers{&handlerStore[0], &handlerStore[1]};
  JobListMgr mgr;
  CodecJob* job = nullptr;
  IJobHandler* handler = nullptr;
};

TEST_F(JobList, GivesJobsAndHandlersInTheOrderOfTheLists) {
  EXPECT_EQ(mgr.GetNextJob(job, handler), 0);
  EXPECT_EQ(job, jobs[0]);
  EXPECT_EQ(handler, handlers[0]);
  EXPECT_EQ(job->status, kJobRunning);
  EXPECT_EQ(mgr.GetNextJob(job, handler), 0);
  EXPECT_EQ(job, jobs[1]);
  EXPECT_EQ(handler, handlers[1]);
}

TEST_F(JobList, AReleasedHandlerGoesToTheEndOfTheFreeOnes) {
  mgr.GetNextJob(job, handler);
  mgr.ReleaseHandler(job, handlers[0]);
  mgr.GetNextJob(job, handler);
  EXPECT_EQ(handler, handlers[1]);
  mgr.GetNextJob(job, handler);
  EXPECT_EQ(handler, handlers[0]);
}

TEST_F(JobList, AHandlerThatIsNotBusyIsNotReleased) {
  mgr.ReleaseHandler(nullptr, handlers[1]);
  mgr.GetNextJob(job, handler);
  mgr.GetNextJob(job, handler);
  EXPECT_EQ(handler, handlers[1]);
  // Were it in the list twice, there would be another.
  EXPECT_EQ(mgr.GetNextJob(job, handler), 0);
  EXPECT_EQ(handler, nullptr);
}

TEST_F(JobList, WithoutAFreeHandlerTheJobComesAloneAndCountsAsRunning) {
  mgr.GetNextJob(job, handler);
  mgr.GetNextJob(job, handler);
  EXPECT_EQ(mgr.GetNextJob(job, handler), 0);
  EXPECT_EQ(job, jobs[2]);
  EXPECT_EQ(handler, nullptr);
  EXPECT_EQ(job->status, kJobRunning);
  EXPECT_EQ(mgr.LastError(), kNoHandler);
}

TEST_F(JobList, NoJobsGiveOneAndTheTextOfJobs) {
  mgr.ClearJobs();
  job = jobs[0];
  handler = handlers[0];
  EXPECT_EQ(mgr.GetNextJob(job, handler), 1);
  EXPECT_EQ(job, nullptr);
  EXPECT_EQ(handler, nullptr);
  EXPECT_EQ(mgr.LastError(), 1);
  EXPECT_EQ(errorText(), "Job Parameter List Is Empty\t");
}

TEST_F(JobList, NoReadyJobIsLikeNoJobs) {
  for (auto& each : jobStore) each.status = kJobDone;
  EXPECT_EQ(mgr.GetNextJob(job, handler), 1);
  EXPECT_EQ(mgr.LastError(), 1);
}

TEST_F(JobList, NoHandlersGiveZeroAndNeitherOfTheTwo) {
  mgr.SetError(1);
  mgr.ClearHandlers();
  EXPECT_EQ(mgr.GetNextJob(job, handler), 0);
  EXPECT_EQ(job, nullptr);
  EXPECT_EQ(handler, nullptr);
  EXPECT_EQ(jobStore[0].status, kJobReady);
  EXPECT_EQ(mgr.LastError(), 0);
  EXPECT_EQ(errorText(), "Job Handler List Is Empty\t\t");
}

TEST_F(JobList, AnErrorWithoutATextGivesNone) {
  mgr.SetError(2);
  EXPECT_EQ(errorText(), "");
  mgr.SetError(-1);
  EXPECT_EQ(errorText(), "");
}

TEST_F(JobList, ResetMakesJobsReadyAndHandlersFreeInOrder) {
  mgr.GetNextJob(job, handler);
  FailJob(*job, kErrorInBitCost);
  mgr.GetNextJob(job, handler);
  mgr.ReleaseHandler(job, handler);
  mgr.ResetJobs();
  for (const auto& each : jobStore) {
    EXPECT_EQ(each.status, kJobReady);
    EXPECT_EQ(each.error, 0);
  }
  for (size_t i = 0; i < handlers.size(); ++i) {
    mgr.GetNextJob(job, handler);
    EXPECT_EQ(job, jobs[i]);
    EXPECT_EQ(handler, handlers[i]);
  }
}

TEST_F(JobList, AddingNothingChangesNothing) {
  EXPECT_EQ(mgr.AddJobs(nullptr, 0), 0);
  EXPECT_EQ(mgr.AddHandlers(nullptr, 0), 0);
  EXPECT_EQ(mgr.JobCount(), 3u);
  EXPECT_EQ(mgr.HandlerCount(), 2u);
}

TEST_F(JobList, RemovesByTheId) {
  jobStore[0].id = 7;
  jobStore[2].id = 7;
  handlerStore[0].SetId(9);
  mgr.RemoveJobs(7);
  mgr.RemoveHandlers(9);
  EXPECT_EQ(mgr.GetNextJob(job, handler), 0);
  EXPECT_EQ(job, jobs[1]);
  EXPECT_EQ(handler, handlers[1]);
  EXPECT_EQ(mgr.GetNextJob(job, handler), 1);
}

TEST_F(JobList, ClearAllForgetsHandlersThatAreFreeOrBusyToo) {
  mgr.GetNextJob(job, handler);
  mgr.ClearAll();
  CodecJob other;
  CodecJob* otherJob = &other;
  CountingHandler last;
  IJobHandler* lastHandler = &last;
  mgr.AddJobs(&otherJob, 1);
  mgr.AddHandlers(&lastHandler, 1);
  EXPECT_EQ(mgr.GetNextJob(job, handler), 0);
  EXPECT_EQ(job, &other);
  EXPECT_EQ(handler, &last);
}

TEST_F(JobList, AFrameAllocatesNothing) {
  const test::FailingAllocation failing;
  mgr.ResetJobs();
  while (mgr.GetNextJob(job, handler) == 0 && handler != nullptr) {
    job->status = kJobDone;
    mgr.ReleaseHandler(job, handler);
  }
  EXPECT_EQ(test::FailingAllocation::failures(), 0);
  EXPECT_EQ(jobStore[2].status, kJobDone);
}

TEST(JobListMgr, OperationsWithoutAMeaningSucceed) {
  JobListMgr mgr;
  EXPECT_EQ(mgr.Unused1() | mgr.Unused2() | mgr.Unused3() | mgr.Unused4(), 0);
}

}  // namespace
}  // namespace zel::dnxhd
