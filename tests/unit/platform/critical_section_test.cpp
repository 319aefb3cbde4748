#include "zel/platform/critical_section.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/blocked_thread.h"

namespace zel::platform {

namespace {

bool otherThreadGetsIn(CriticalSection& section) {
  bool entered = false;
  std::thread([&] {
    entered = section.tryEnter();
    if (entered) section.leave();
  }).join();
  return entered;
}

}  // namespace

TEST(CriticalSection, KeepsOtherThreadsOut) {
  CriticalSection section;
  section.enter();
  EXPECT_FALSE(otherThreadGetsIn(section));
  section.leave();
  EXPECT_TRUE(otherThreadGetsIn(section));
}

TEST(CriticalSection, SameThreadEntersAgainAndLeavesAsOften) {
  CriticalSection section;
  section.enter();
  section.enter();
  EXPECT_TRUE(section.tryEnter());
  section.leave();
  section.leave();
  EXPECT_FALSE(otherThreadGetsIn(section));
  section.leave();
  EXPECT_TRUE(otherThreadGetsIn(section));
}

TEST(CriticalSection, KnowsWhetherTheCallerIsIn) {
  CriticalSection section;
  EXPECT_FALSE(section.heldByCaller());
  ASSERT_TRUE(section.tryEnter());
  EXPECT_TRUE(section.heldByCaller());
  std::thread([&] { EXPECT_FALSE(section.heldByCaller()); }).join();
  section.leave();
  EXPECT_FALSE(section.heldByCaller());
}

TEST(CriticalSection, LeavingWithoutBeingInDoesNothing) {
  CriticalSection section;
  section.leave();
  section.enter();
  std::thread([&] { section.leave(); }).join();
  EXPECT_FALSE(otherThreadGetsIn(section));
  section.leave();
  section.leave();
  EXPECT_TRUE(otherThreadGetsIn(section));
}

TEST(CriticalSection, EnterBlocksUntilTheOwnerLeaves) {
  CriticalSection section;
  section.enter();
  zel::test::BlockedThread thread([&] {
    section.enter();
    section.leave();
  });
  thread.awaitBlocked();
  EXPECT_FALSE(thread.ended());
  section.leave();
  thread.join();
  EXPECT_TRUE(thread.ended());
}

TEST(CriticalSection, GuardsACounterAmongManyThreads) {
  CriticalSection section;
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 5000; ++round) {
        section.enter();
        section.enter();
        ++counter;
        section.leave();
        section.leave();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 8 * 5000);
}

}  // namespace zel::platform
