#include "zel/dnxhd/jobs/work_thread.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/debug_lines.h"
#include "tests/support/failing_thread.h"

namespace zel::dnxhd {
namespace {

using platform::Event;

struct Callback : IThreadCallback {
  int32_t Execute(ThreadJobSlot* slot) override {
    slotSeen = slot;
    return work ? work() : 0;
  }
  void Completed(ThreadJobSlot* slot) override {
    stateAtEnd = worker->GetState();
    slot->doneEvent->set();
  }
  std::function<int32_t()> work;
  WorkThread_Win* worker = nullptr;
  ThreadJobSlot* slotSeen = nullptr;
  int32_t stateAtEnd = -1;
};

struct Worker : testing::Test {
  Worker() {
    slot.doneEvent = &done;
    callback.worker = &worker;
    worker.SetCallback(&callback);
  }
  std::string errorText() const {
    std::array<char, 60> buffer;
    buffer.fill('x');
    worker.GetErrorText(buffer.data());
    return buffer.data();
  }

  Event done{Event::Kind::manualReset};
  ThreadJobSlot slot;
  Callback callback;
  WorkThread_Win worker;
};

TEST_F(Worker, IsNotCreatedThenFreeThenNotCreated) {
  EXPECT_EQ(worker.GetState(), 0);
  EXPECT_EQ(worker.Create(3), 0);
  EXPECT_EQ(worker.GetState(), 1);
  EXPECT_EQ(worker.Destroy(), 0);
  EXPECT_EQ(worker.GetState(), 0);
}

TEST_F(Worker, DestroyBeforeCreateGivesMinusFive) {
  EXPECT_EQ(worker.Destroy(), -5);
  EXPECT_EQ(errorText(), "Worker Thread Error Thread Not free to delete\t");
}

TEST_F(Worker, CreateTwiceGivesMinusFour) {
  EXPECT_EQ(worker.Create(0), 0);
  EXPECT_EQ(worker.Create(1), -4);
  EXPECT_EQ(worker.GetState(), 1);
  EXPECT_EQ(errorText(), "Worker Thread Error Thread Not free to create\t");
}

TEST_F(Worker, AThreadThatTheSystemRefusesGivesMinusThree) {
  {
    const test::FailingThread failing;
    EXPECT_EQ(worker.Create(0), -3);
    EXPECT_EQ(worker.GetState(), 0);
    EXPECT_EQ(errorText(), "Worker Thread Error during Thread creation\t\t");
  }
  EXPECT_EQ(worker.Create(0), 0);
}

TEST_F(Worker, StartJobBeforeCreateGivesMinusSix) {
  EXPECT_EQ(worker.StartJob(&slot), -6);
  EXPECT_EQ(errorText(), "Worker Thread Error Thread Not free to start new job");
}

TEST_F(Worker, StartJobWithoutASlotGivesMinusSix) {
  worker.Create(0);
  EXPECT_EQ(worker.StartJob(nullptr), -6);
  EXPECT_EQ(worker.GetState(), 1);
}

TEST_F(Worker, RunsTheJobAndIsFreeBeforeItSaysSo) {
  worker.Create(0);
  ASSERT_EQ(worker.StartJob(&slot), 0);
  done.wait();
  EXPECT_EQ(callback.slotSeen, &slot);
  EXPECT_EQ(callback.stateAtEnd, 1);
  EXPECT_EQ(worker.GetState(), 1);
  EXPECT_EQ(errorText(), "Worker Thread Succesful\t\t\t\t\t\t");
}

TEST_F(Worker, ABusyWorkerTakesNoJob) {
  Event go(Event::Kind::manualReset);
  callback.work = [&go] {
    go.wait();
    return 0;
  };
  worker.Create(0);
  ASSERT_EQ(worker.StartJob(&slot), 0);
  EXPECT_EQ(worker.GetState(), 2);
  ThreadJobSlot other;
  EXPECT_EQ(worker.StartJob(&other), -6);
  go.set();
  done.wait();
  EXPECT_EQ(callback.slotSeen, &slot);
}

TEST_F(Worker, TheResultOfTheJobIsTheLastError) {
  callback.work = [] { return -1; };
  worker.Create(0);
  worker.StartJob(&slot);
  done.wait();
  EXPECT_EQ(errorText(), "Worker Thread Error during memory allocation\t");
}

TEST_F(Worker, AResultWithoutARowHasNoText) {
  callback.work = [] { return int32_t{kErrorEncodeBufferOverflow}; };
  worker.Create(0);
  worker.StartJob(&slot);
  done.wait();
  EXPECT_EQ(errorText(), "");
}

TEST_F(Worker, AJobThatWasStartedRunsBeforeTheEnd) {
  for (int i = 0; i < 200; ++i) {
    callback.slotSeen = nullptr;
    ASSERT_EQ(worker.Create(0), 0);
    ASSERT_EQ(worker.StartJob(&slot), 0);
    ASSERT_EQ(worker.Destroy(), 0);
    ASSERT_EQ(callback.slotSeen, &slot);
  }
}

TEST_F(Worker, OneThatDoesNotEndInTimeIsJoinedWithAReport) {
  test::DebugLines lines;
  Event go(Event::Kind::manualReset);
  callback.work = [&go] {
    go.wait(WorkThread_Win::kEndLimitMilliseconds + 300);
    return 0;
  };
  worker.Create(5);
  worker.StartJob(&slot);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(worker.Destroy(), 0);
  const auto spent = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(spent, std::chrono::milliseconds(WorkThread_Win::kEndLimitMilliseconds));
  EXPECT_TRUE(done.wait(0));  // joined, not cut off: the job came to its end
  EXPECT_EQ(lines.take(), "DNxHD worker 5 has not ended in 1000 ms; waiting for it\n");
}

TEST_F(Worker, TheDestructorEndsTheThread) {
  {
    WorkThread_Win other;
    callback.worker = &other;
    other.SetCallback(&callback);
    other.Create(0);
    other.StartJob(&slot);
  }
  EXPECT_TRUE(done.wait(0));
}

TEST_F(Worker, PriorityClassIsConstantAndARefusalIsMinusEight) {
  EXPECT_EQ(worker.GetPriorityClass(), 3);
  EXPECT_EQ(worker.SetPriority(-1), -8);  // no thread
  worker.Create(0);
  EXPECT_EQ(worker.SetPriority(-1), 0);
  const test::FailingPriority failing;
  EXPECT_EQ(worker.SetPriority(1), -8);
  EXPECT_EQ(errorText(), "");
  EXPECT_EQ(worker.Unused(), 0);
}

}  // namespace
}  // namespace zel::dnxhd
