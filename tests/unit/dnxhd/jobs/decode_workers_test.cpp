#include "zel/dnxhd/jobs/decode_workers.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <numeric>
#include <set>
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

TEST(DecodeWorkers, NoWorkerIsAtTwoRowsAtOnceAndNoneIsTheCaller) {
  const auto workers = DecodeWorkers::Create(4);
  std::vector<std::atomic<int>> inside(4);
  std::atomic<bool> twice{false};
  std::mutex mutex;
  std::set<int> threads;
  workers->Run(68, [&](size_t worker, size_t) {
    if (inside[worker].fetch_add(1) != 0) twice = true;
    {
      const std::lock_guard lock(mutex);
      threads.insert(gettid());
    }
    --inside[worker];
    return kSuccessful;
  });
  EXPECT_FALSE(twice);
  EXPECT_EQ(threads.count(gettid()), 0u);
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
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  EXPECT_EQ(workers->Run(68,
                         [&](size_t, size_t row) {
                           if (row != 0) {
                             ++others;
                             return kSuccessful;
                           }
                           while (others < 67 && std::chrono::steady_clock::now() < limit) {
                             std::this_thread::yield();
                           }
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

TEST(DecodeWorkers, WorkOneStepBelowTheirMaker) {
  const int own = getpriority(PRIO_PROCESS, 0);
  std::atomic<int> theirs{-100};
  DecodeWorkers::Create(1)->Run(1, [&theirs](size_t, size_t) {
    theirs = getpriority(PRIO_PROCESS, 0);
    return kSuccessful;
  });
  EXPECT_EQ(theirs, std::min(own + 1, 19));
}

TEST(DecodeWorkers, WorkAlsoWhereThePriorityIsRefused) {
  const test::FailingPriority failing;
  EXPECT_EQ(DecodeWorkers::Create(2)->Run(4, [](size_t, size_t) { return kSuccessful; }),
            kSuccessful);
}

TEST(DecodeWorkers, NoneComeOfAnAbsurdCountOrWithoutThreads) {
  EXPECT_EQ(DecodeWorkers::Create(0), nullptr);
  EXPECT_EQ(DecodeWorkers::Create(65), nullptr);
  const test::FailingThread failing(2);
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
