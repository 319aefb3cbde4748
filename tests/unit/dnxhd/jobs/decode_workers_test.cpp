#include "zel/dnxhd/jobs/decode_workers.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/failing_thread.h"

namespace zel::dnxhd {
namespace {

TEST(RowShare, CountsTheRowsOfTheMirroredRemainder) {
  for (size_t rows : {1u, 2u, 34u, 45u, 68u}) {
    for (size_t workers = 1; workers <= 17; ++workers) {
      size_t total = 0;
      for (size_t worker = 0; worker < workers; ++worker) {
        size_t expected = 0;
        for (size_t row = 0; row < rows; ++row) {
          expected += row % workers == workers - 1 - worker ? 1 : 0;
        }
        EXPECT_EQ(RowShare(rows, workers, worker), expected) << rows << " " << workers;
        total += expected;
      }
      EXPECT_EQ(total, rows);
    }
  }
}

TEST(DecodeWorkers, RunsEachRowOnceWhateverTheCount) {
  for (size_t count : {1u, 2u, 3u, 7u, 16u, 64u}) {
    const auto workers = DecodeWorkers::Create(count);
    ASSERT_NE(workers, nullptr);
    EXPECT_EQ(workers->WorkerCount(), count);
    for (size_t rows : {68u, 34u, 45u, 3u, 0u}) {
      std::vector<std::atomic<int>> seen(rows);
      EXPECT_EQ(workers->Run(rows,
                             [&seen](size_t, size_t row) {
                               ++seen[row];
                               return kSuccessful;
                             }),
                kSuccessful);
      for (const auto& times : seen) EXPECT_EQ(times, 1);
    }
  }
}

// Waits until it is so, or gives up; a test that hangs tells nothing.
template <typename Condition>
void awaitThat(Condition condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
}

TEST(DecodeWorkers, EachHasAThreadAndTheFirstHasTheCallers) {
  constexpr size_t kCount = 4;
  const auto workers = DecodeWorkers::Create(kCount);
  std::atomic<size_t> begun{0};
  std::vector<int> threads(kCount);
  // No row ends before each worker has one.
  workers->Run(kCount, [&](size_t worker, size_t) {
    threads[worker] = gettid();
    ++begun;
    awaitThat([&] { return begun == kCount; });
    return kSuccessful;
  });
  EXPECT_EQ(begun, kCount);
  EXPECT_EQ(threads[0], gettid());
  EXPECT_EQ(std::set<int>(threads.begin(), threads.end()).size(), kCount);
  EXPECT_EQ(std::count(threads.begin(), threads.end(), 0), 0);
}

TEST(DecodeWorkers, NoWorkerIsAtTwoRowsAtOnce) {
  const auto workers = DecodeWorkers::Create(4);
  std::vector<std::atomic<int>> inside(4);
  std::atomic<bool> twice{false};
  for (int repeat = 0; repeat < 50; ++repeat) {
    workers->Run(68, [&](size_t worker, size_t) {
      if (inside[worker].fetch_add(1) != 0) twice = true;
      --inside[worker];
      return kSuccessful;
    });
  }
  EXPECT_FALSE(twice);
}

// Workers that come when all is done find nothing to do, and nothing of a run that is over: what
// its rows refer to is gone.
TEST(DecodeWorkers, RunsThatEndBeforeTheOthersComeLeaveThemNothing) {
  const auto workers = DecodeWorkers::Create(5);
  for (int repeat = 0; repeat < 2000; ++repeat) {
    std::vector<std::atomic<int>> seen(static_cast<size_t>(repeat % 7));
    workers->Run(seen.size(), [&seen](size_t, size_t row) {
      ++seen[row];
      return kSuccessful;
    });
    for (const auto& times : seen) ASSERT_EQ(times, 1) << repeat;
  }
}

TEST(DecodeWorkers, ARowThatIsLongerThanPatienceIsWaitedFor) {
  const auto workers = DecodeWorkers::Create(2);
  std::atomic<bool> begun{false};
  std::atomic<bool> ended{false};
  workers->Run(2, [&](size_t worker, size_t) {
    if (worker == 0) {
      awaitThat([&] { return begun.load(); });
      return kSuccessful;
    }
    begun = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    ended = true;
    return kSuccessful;
  });
  EXPECT_TRUE(ended);
}

TEST(DecodeWorkers, WhatARowThrowsIsItsResultOnAnyThread) {
  const auto workers = DecodeWorkers::Create(2);
  for (const size_t failing : {size_t{0}, size_t{1}}) {
    std::atomic<size_t> begun{0};
    EXPECT_EQ(workers->Run(2,
                           [&](size_t worker, size_t) -> ResultWord {
                             ++begun;
                             awaitThat([&] { return begun == 2; });
                             if (worker == failing) throw std::bad_alloc();
                             return kSuccessful;
                           }),
              kErrorInMemoryAllocation);
    EXPECT_EQ(begun, 2u);
  }
  EXPECT_EQ(workers->Run(1, [](size_t, size_t) -> ResultWord { throw std::runtime_error(""); }),
            kErrorFatalException);
}

TEST(DecodeWorkers, TheTopmostFailureIsTheResult) {
  const auto workers = DecodeWorkers::Create(3);
  for (int repeat = 0; repeat < 50; ++repeat) {
    const ResultWord result = workers->Run(68, [](size_t, size_t row) {
      if (row == 10) return kErrorInHuffmanDecode;
      return row == 60 ? kErrorInMacroblockIndices : kSuccessful;
    });
    EXPECT_EQ(result, kErrorInHuffmanDecode);
  }
}

TEST(DecodeWorkers, AFailureEndsTheRowsBelowItAndNoneAbove) {
  for (const size_t count : {1u, 2u, 5u}) {
    const auto workers = DecodeWorkers::Create(count);
    std::vector<std::atomic<int>> seen(68);
    EXPECT_EQ(workers->Run(68,
                           [&seen](size_t, size_t row) {
                             ++seen[row];
                             return row == 50 ? kErrorInHuffmanDecode : kSuccessful;
                           }),
              kErrorInHuffmanDecode);
    for (size_t row = 0; row <= 50; ++row) EXPECT_EQ(seen[row], 1) << row;
    // With others at work some of these may have begun before.
    if (count == 1) {
      EXPECT_EQ(seen[51], 0);
    }
    for (const auto& times : seen) EXPECT_LE(times, 1);
  }
}

// The first row waits for all others, half of which are of the same share: its worker can't decode
// them.
TEST(DecodeWorkers, WhoIsDoneHelpsTheOthers) {
  const auto workers = DecodeWorkers::Create(2);
  std::atomic<size_t> others{0};
  std::atomic<size_t> whenTheFirstWasDone{0};
  EXPECT_EQ(workers->Run(68,
                         [&](size_t, size_t row) {
                           if (row != 0) {
                             ++others;
                             return kSuccessful;
                           }
                           awaitThat([&] { return others == 67; });
                           whenTheFirstWasDone = others.load();
                           return kSuccessful;
                         }),
            kSuccessful);
  EXPECT_EQ(whenTheFirstWasDone, 67u);
}

TEST(DecodeWorkers, AFailureDoesNotOutliveItsRun) {
  const auto workers = DecodeWorkers::Create(2);
  workers->Run(68, [](size_t, size_t) { return kErrorInHuffmanDecode; });
  EXPECT_EQ(workers->Run(68, [](size_t, size_t) { return kSuccessful; }), kSuccessful);
}

// The caller's thread stays what it is.
TEST(DecodeWorkers, WorkOneStepBelowTheirMaker) {
  const int own = getpriority(PRIO_PROCESS, 0);
  int priorities[2] = {-100, -100};
  std::atomic<size_t> begun{0};
  DecodeWorkers::Create(2)->Run(2, [&](size_t worker, size_t) {
    priorities[worker] = getpriority(PRIO_PROCESS, 0);
    ++begun;
    awaitThat([&] { return begun == 2; });
    return kSuccessful;
  });
  EXPECT_EQ(priorities[0], own);
  EXPECT_EQ(priorities[1], std::min(own + 1, 19));
}

TEST(DecodeWorkers, WorkAlsoWhereThePriorityIsRefused) {
  const test::FailingPriority failing;
  EXPECT_EQ(DecodeWorkers::Create(2)->Run(4, [](size_t, size_t) { return kSuccessful; }),
            kSuccessful);
}

TEST(DecodeWorkers, NoneComeOfAnAbsurdCountOrWithoutThreads) {
  EXPECT_EQ(DecodeWorkers::Create(0), nullptr);
  EXPECT_EQ(DecodeWorkers::Create(65), nullptr);
  const test::FailingThread failing(1);
  EXPECT_EQ(DecodeWorkers::Create(3), nullptr);
}

TEST(MakeRowRunner, OneThreadIsTheCallersOwn) {
  const auto runner = MakeRowRunner(1);
  ASSERT_NE(runner, nullptr);
  int thread = 0;
  runner->Run(1, [&thread](size_t, size_t) {
    thread = gettid();
    return kSuccessful;
  });
  EXPECT_EQ(thread, gettid());
  EXPECT_EQ(MakeRowRunner(2)->WorkerCount(), 2u);
  EXPECT_EQ(MakeRowRunner(0), nullptr);
}

}  // namespace
}  // namespace zel::dnxhd
