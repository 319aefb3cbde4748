#include "zel/platform/thread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>

#include "tests/support/failing_thread.h"

namespace zel::platform {
namespace {

TEST(Thread, RunsItsBodyOnAnotherThread) {
  const int own = gettid();
  int other = own;
  Thread thread;
  EXPECT_FALSE(thread.exists());
  ASSERT_TRUE(thread.start([&other] { other = gettid(); }));
  EXPECT_TRUE(thread.exists());
  thread.join();
  EXPECT_FALSE(thread.exists());
  EXPECT_NE(other, own);
}

TEST(Thread, JoinWithinGivesUpWhileTheBodyRuns) {
  Event go(Event::Kind::manualReset);
  Thread thread;
  ASSERT_TRUE(thread.start([&go] { go.wait(); }));
  EXPECT_FALSE(thread.joinWithin(20));
  EXPECT_TRUE(thread.exists());
  go.set();
  EXPECT_TRUE(thread.joinWithin(Event::kInfinite));
  EXPECT_FALSE(thread.exists());
}

TEST(Thread, WithoutAThreadJoiningSucceedsAndAPriorityDoesNot) {
  Thread thread;
  EXPECT_TRUE(thread.joinWithin(0));
  EXPECT_FALSE(thread.setPriority(-1));
}

TEST(Thread, StartsAgainOnceJoinedAndNotBefore) {
  std::atomic<int> runs{0};
  Thread thread;
  ASSERT_TRUE(thread.start([&runs] { ++runs; }));
  EXPECT_FALSE(thread.start([&runs] { runs += 100; }));
  thread.join();
  ASSERT_TRUE(thread.start([&runs] { ++runs; }));
  thread.join();
  EXPECT_EQ(runs, 2);
}

TEST(Thread, TheDestructorJoins) {
  bool done = false;
  Event go(Event::Kind::manualReset);
  {
    Thread thread;
    ASSERT_TRUE(thread.start([&] {
      go.wait();
      done = true;
    }));
    go.set();
  }
  EXPECT_TRUE(done);
}

TEST(Thread, AThreadThatTheSystemRefusesIsToldAndMayBeTriedAgain) {
  Thread thread;
  {
    const test::FailingThread failing;
    EXPECT_FALSE(thread.start([] {}));
    EXPECT_FALSE(thread.exists());
  }
  EXPECT_TRUE(thread.start([] {}));
}

TEST(Thread, LoweringAPriorityIsTheThreadsOwnAffair) {
  const int before = getpriority(PRIO_PROCESS, 0);
  int own = -100;
  Event lowered(Event::Kind::manualReset);
  Thread thread;
  ASSERT_TRUE(thread.start([&] {
    lowered.wait();
    own = getpriority(PRIO_PROCESS, 0);
  }));
  EXPECT_TRUE(thread.setPriority(-3));
  lowered.set();
  thread.join();
  EXPECT_EQ(own, std::min(before + 3, 19));
  EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before);
}

TEST(Thread, APriorityCountsFromThatOfTheThreadsMaker) {
  const int before = getpriority(PRIO_PROCESS, 0);
  if (before + 5 > 19) GTEST_SKIP() << "runs at niceness " << before;
  int makers = -100;
  int own = -100;
  int byMaker = -100;
  Thread maker;
  ASSERT_TRUE(maker.start([&] {
    // The same again is no further step.
    Thread::setOwnPriority(-2);
    Thread::setOwnPriority(-2);
    makers = getpriority(PRIO_PROCESS, 0);
    Event loweredItself(Event::Kind::manualReset);
    Event lowered(Event::Kind::manualReset);
    Thread thread;
    thread.start([&] {
      Thread::setOwnPriority(-1);
      own = getpriority(PRIO_PROCESS, 0);
      loweredItself.set();
      lowered.wait();
      byMaker = getpriority(PRIO_PROCESS, 0);
    });
    loweredItself.wait();
    thread.setPriority(-3);
    lowered.set();
  }));
  maker.join();
  EXPECT_EQ(makers, before + 2);
  EXPECT_EQ(own, before + 3);
  EXPECT_EQ(byMaker, before + 5);
}

TEST(Thread, ARefusedPriorityIsTold) {
  Event go(Event::Kind::manualReset);
  Thread thread;
  ASSERT_TRUE(thread.start([&go] { go.wait(); }));
  {
    const test::FailingPriority failing;
    EXPECT_FALSE(thread.setPriority(1));
    EXPECT_FALSE(Thread::setOwnPriority(1));
  }
  go.set();
}

}  // namespace
}  // namespace zel::platform
