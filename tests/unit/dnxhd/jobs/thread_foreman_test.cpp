#include "zel/dnxhd/jobs/thread_foreman.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/failing_allocation.h"
#include "tests/support/failing_thread.h"
#include "tests/unit/dnxhd/jobs/counting_handler.h"

namespace zel::dnxhd {
namespace {

using platform::Event;

struct Stage : testing::Test {
  void make(size_t jobCount, size_t handlerCount, int32_t workers) {
    for (size_t i = 0; i < jobCount; ++i) {
      jobs.emplace_back().index = static_cast<int32_t>(i);
      CodecJob* const job = &jobs.back();
      mgr.AddJobs(&job, 1);
    }
    for (size_t i = 0; i < handlerCount; ++i) {
      handlers.emplace_back();
      IJobHandler* const handler = &handlers.back();
      mgr.AddHandlers(&handler, 1);
    }
    ASSERT_EQ(foreman.SetThreadCount(workers), 0);
    ASSERT_EQ(foreman.SetJobMgr(&mgr), 0);
  }
  void setWork(const std::function<int32_t(CodecJob&)>& work) {
    for (auto& handler : handlers) handler.work = work;
  }
  void expectAll(int32_t status) const {
    for (const auto& job : jobs) EXPECT_EQ(job.status, status) << job.index;
  }

  std::deque<CodecJob> jobs;
  std::deque<CountingHandler> handlers;
  JobListMgr mgr;
  ThreadForeman foreman;
};

int32_t done(CodecJob& job) {
  job.status = kJobDone;
  return kSuccessful;
}

TEST_F(Stage, WithOneWorkerJobsRunOneByOneInTheOrderOfTheList) {
  make(6, 1, 1);
  std::vector<int32_t> order;
  setWork([&order](CodecJob& job) {
    order.push_back(job.index);
    return done(job);
  });
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  EXPECT_EQ(order, (std::vector<int32_t>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(foreman.GetState(), kForemanIdle);
}

TEST_F(Stage, RunsEachJobOnceAndIsAtRestWhenItReturns) {
  for (int32_t workers : {1, 2, 3, 8}) {
    jobs.clear();
    handlers.clear();
    mgr.ClearAll();
    make(16, static_cast<size_t>(workers), workers);
    std::vector<std::atomic<int>> runs(jobs.size());
    setWork([&runs](CodecJob& job) {
      ++runs[static_cast<size_t>(job.index)];
      return done(job);
    });
    for (int frame = 1; frame <= 20; ++frame) {
      mgr.ResetJobs();
      ASSERT_EQ(foreman.RunJobs(0, 0), 0);
      expectAll(kJobDone);
      for (const auto& times : runs) ASSERT_EQ(times, frame);
      for (int32_t i = 0; i < workers; ++i) {
        EXPECT_EQ(foreman.Worker(static_cast<size_t>(i)).GetState(), kWorkerFree);
      }
    }
  }
}

TEST_F(Stage, JobsAreInFlightOnAsManyWorkersAsThereAre) {
  make(3, 3, 3);
  std::atomic<int> inside{0};
  Event all(Event::Kind::manualReset);
  setWork([&](CodecJob& job) {
    if (++inside == 3) all.set();
    return all.wait(10000) ? done(job) : FailJob(job, kErrorWaitForEvent);
  });
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
}

TEST_F(Stage, NoTwoJobsInFlightShareAHandler) {
  make(40, 4, 4);
  std::array<std::atomic<int>, 4> inside{};
  std::atomic<bool> shared{false};
  for (size_t i = 0; i < handlers.size(); ++i) {
    handlers[i].work = [&, i](CodecJob& job) {
      if (inside[i].fetch_add(1) != 0) shared = true;
      --inside[i];
      return done(job);
    };
  }
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  EXPECT_FALSE(shared);
}

TEST_F(Stage, AnEmptyListIsDoneAtOnce) {
  make(2, 2, 2);
  mgr.ClearAll();
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  EXPECT_EQ(mgr.LastError(), 1);
}

TEST_F(Stage, AFailedJobEndsTheRunOnceTheOthersInFlightAreDone) {
  make(10, 2, 2);
  Event bothInFlight(Event::Kind::manualReset);
  setWork([&bothInFlight](CodecJob& job) {
    if (job.index == 0) {
      bothInFlight.wait();
      return FailJob(job, kErrorInBitCost);
    }
    if (job.index == 1) {
      bothInFlight.set();
      Event(Event::Kind::manualReset).wait(30);
    }
    return done(job);
  });
  EXPECT_EQ(foreman.RunJobs(0, 0), -1);
  EXPECT_EQ(jobs[0].status, kJobFailed);
  EXPECT_STREQ(jobs[0].text, "HDCODEC ERROR In BitCost Computation");
  EXPECT_EQ(jobs[1].status, kJobDone);
  EXPECT_EQ(jobs[9].status, kJobReady);
  EXPECT_EQ(foreman.GetState(), kForemanIdle);
}

TEST_F(Stage, AfterAFailedRunTheNextFrameStartsFromFreeWorkers) {
  make(8, 4, 4);
  setWork([](CodecJob& job) { return FailJob(job, kErrorInBitCost); });
  EXPECT_EQ(foreman.RunJobs(0, 0), -1);
  setWork(done);
  mgr.ResetJobs();
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  expectAll(kJobDone);
}

TEST_F(Stage, TheLastJobsFailureIsTheRuns) {
  make(4, 2, 2);
  setWork([](CodecJob& job) {
    return job.index == 3 ? FailJob(job, kErrorEncodeBufferOverflow) : done(job);
  });
  EXPECT_EQ(foreman.RunJobs(0, 0), -1);
  EXPECT_EQ(jobs[3].error, -17);
}

// One worker, so that the last job that it runs is the list's last: with more, a failed one could
// be the last of its worker, which is told of.
TEST_F(Stage, ModeTwoRunsPastAFailure) {
  make(12, 1, 1);
  setWork(
      [](CodecJob& job) { return job.index % 3 == 0 ? FailJob(job, kErrorInBitCost) : done(job); });
  EXPECT_EQ(foreman.RunJobs(2, 0), 0);
  for (const auto& job : jobs) {
    EXPECT_EQ(job.status, job.index % 3 == 0 ? kJobFailed : kJobDone) << job.index;
  }
}

TEST_F(Stage, ModeTwoStillTellsOfAJobThatFailedAsTheLastOfItsWorker) {
  make(3, 1, 1);
  setWork([](CodecJob& job) { return job.index == 2 ? FailJob(job, kErrorInBitCost) : done(job); });
  EXPECT_EQ(foreman.RunJobs(2, 0), -1);
}

TEST_F(Stage, APreparationThatFailsEndsTheRun) {
  make(4, 1, 1);
  handlers[0].prepare = [](CodecJob& job) { return job.index == 2 ? -1 : 0; };
  testing::internal::CaptureStdout();
  EXPECT_EQ(foreman.RunJobs(0, 0), -1);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Job Parameter Error"), std::string::npos);
  EXPECT_EQ(handlers[0].executed, 2);
  EXPECT_EQ(handlers[0].prepared, 3);
}

TEST_F(Stage, AWorkerThatIsStillBusyEndsTheRun) {
  make(1, 1, 1);
  Event go(Event::Kind::manualReset);
  setWork([&go](CodecJob& job) {
    go.wait();
    return done(job);
  });
  EXPECT_EQ(foreman.RunJobs(0, 20), -1);  // gives up waiting
  EXPECT_EQ(jobs[0].status, kJobRunning);

  CodecJob other;
  CodecJob* otherJob = &other;
  CountingHandler free;
  IJobHandler* freeHandler = &free;
  JobListMgr nextFrame;
  nextFrame.AddJobs(&otherJob, 1);
  nextFrame.AddHandlers(&freeHandler, 1);
  foreman.SetJobMgr(&nextFrame);
  testing::internal::CaptureStdout();
  EXPECT_EQ(foreman.RunJobs(0, 0), -1);
  EXPECT_NE(testing::internal::GetCapturedStdout().find(
                "Worker Thread Error Thread Not free to start new job"),
            std::string::npos);
  EXPECT_EQ(free.executed, 0);

  // And once it has finished, it works again.
  go.set();
  while (foreman.Worker(0).GetState() == kWorkerBusy) Event(Event::Kind::manualReset).wait(1);
  nextFrame.ResetJobs();
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  EXPECT_EQ(free.executed, 1);
}

// A worker that was given up for late signals its end at some time in the next run.
TEST_F(Stage, ALateSignalIsNotTakenForTheNextJobs) {
  make(8, 2, 2);
  for (int repeat = 0; repeat < 100; ++repeat) {
    Event go(Event::Kind::manualReset);
    setWork([&go](CodecJob& job) {
      if (job.index == 0) go.wait();
      return done(job);
    });
    mgr.ResetJobs();
    ASSERT_EQ(foreman.RunJobs(0, 1), -1);
    go.set();
    while (foreman.Worker(0).GetState() != kWorkerFree ||
           foreman.Worker(1).GetState() != kWorkerFree) {
    }
    setWork(done);
    mgr.ResetJobs();
    ASSERT_EQ(foreman.RunJobs(0, 0), 0);
    expectAll(kJobDone);
  }
}

TEST_F(Stage, MoreHandlersThanWorkersAndMoreWorkersThanJobsAreFine) {
  make(2, 10, 10);
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  expectAll(kJobDone);
}

TEST_F(Stage, TheThreadCountMayChangeBetweenRuns) {
  make(9, 8, 2);
  for (int32_t workers : {5, 1, 8, 3, 3}) {
    ASSERT_EQ(foreman.SetThreadCount(workers), 0);
    EXPECT_EQ(foreman.GetThreadCount(), workers);
    mgr.ResetJobs();
    EXPECT_EQ(foreman.RunJobs(0, 0), 0);
    expectAll(kJobDone);
  }
}

TEST_F(Stage, WorkersThatWereDestroyedAreMadeAnew) {
  make(4, 2, 2);
  EXPECT_EQ(foreman.DestroyWorkers(), 0);
  EXPECT_EQ(foreman.DestroyWorkers(), -5);  // they have no threads to end
  testing::internal::CaptureStdout();
  EXPECT_EQ(foreman.RunJobs(0, 0), -1);
  testing::internal::GetCapturedStdout();
  mgr.ResetJobs();
  ASSERT_EQ(foreman.SetThreadCount(2), 0);
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
}

TEST_F(Stage, NothingCanBeChangedDuringARun) {
  make(1, 1, 1);
  std::array<int32_t, 4> results{};
  setWork([&](CodecJob& job) {
    results = {foreman.SetThreadCount(2), foreman.SetJobMgr(nullptr), foreman.DestroyWorkers(),
               foreman.RunJobs(0, 0)};
    return done(job);
  });
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  EXPECT_EQ(results, (std::array<int32_t, 4>{-1, -1, -1, -1}));
}

TEST_F(Stage, AbsurdThreadCountsAreRefused) {
  make(1, 1, 1);
  EXPECT_EQ(foreman.SetThreadCount(-1), -1);
  EXPECT_EQ(foreman.SetThreadCount(ThreadForeman::kMaximumWorkers + 1), -1);
  EXPECT_EQ(foreman.GetThreadCount(), 1);
  EXPECT_EQ(foreman.SetThreadCount(0), 0);
  EXPECT_EQ(foreman.RunJobs(0, 0), -1);  // nobody is there to do the job
}

TEST_F(Stage, RefusedThreadsAreToldAndMayBeTriedAgain) {
  make(4, 3, 1);
  {
    const test::FailingThread failing(1);
    EXPECT_EQ(foreman.SetThreadCount(3), -1);
  }
  EXPECT_EQ(foreman.SetThreadCount(3), 0);
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
}

TEST_F(Stage, WithoutAManagerThereIsNoRun) {
  EXPECT_EQ(foreman.SetThreadCount(1), 0);
  EXPECT_EQ(foreman.RunJobs(0, 0), -1);
}

TEST_F(Stage, ARunAllocatesNothing) {
  make(16, 2, 2);
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  mgr.ResetJobs();
  const test::FailingAllocation failing;
  EXPECT_EQ(foreman.RunJobs(0, 0), 0);
  EXPECT_EQ(test::FailingAllocation::failures(), 0);
}

TEST_F(Stage, DumpErrorsTellsJobsAndWorkers) {
  make(2, 2, 2);
  Event first(Event::Kind::manualReset);
  setWork([&first](CodecJob& job) {
    if (job.index == 1) {
      first.wait();
      return FailJob(job, kErrorInBitCost);
    }
    first.set();
    return done(job);
  });
  EXPECT_EQ(foreman.RunJobs(2, 0), -1);
  testing::internal::CaptureStdout();
  foreman.DumpErrors();
  const std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(text.find("Job Parameter Error :\nThread Index = 0, Job Status "), 0u) << text;
  EXPECT_NE(text.find("Job Status HDCODEC ERROR In BitCost Computation \n"), std::string::npos);
  EXPECT_NE(text.find("Worker Thread Errors :\nThread Index = 0, Job Status "), std::string::npos);
  EXPECT_NE(text.find("Job Status Worker Thread Succesful\t\t\t\t\t\t \n"), std::string::npos);
  // The manager's own text is asked for, and not printed.
  const std::string end = "Job List Manager Error's :\n";
  ASSERT_GE(text.size(), end.size());
  EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

}  // namespace
}  // namespace zel::dnxhd
