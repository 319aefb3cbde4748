#include "zel/runtime/lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/blocked_thread.h"
#include "tests/support/test_object.h"

namespace Morvalen::Zel {

namespace {

using zel::test::BlockedThread;
using zel::test::TestObject;

// A free-standing lock and the lock of an object behave alike.
template <class Lock>
class LockTest : public testing::Test {
 protected:
  bool OtherThreadGetsIn() {
    bool entered = false;
    std::thread([&] {
      entered = lock.TryEnter();
      if (entered) lock.Exit();
    }).join();
    return entered;
  }

  // Threads that each wait once, and are known to be waiting.
  struct Waiters {
    std::vector<std::unique_ptr<BlockedThread>> threads;
    std::atomic<int> notified{0};
    std::atomic<int> timedOut{0};

    void Join() {
      for (auto& thread : threads) thread->join();
    }
  };

  void StartWaiters(Waiters& waiters, int count) {
    std::atomic<int> inside{0};
    for (int i = 0; i < count; ++i) {
      waiters.threads.push_back(std::make_unique<BlockedThread>([this, &waiters, &inside] {
        lock.Enter();
        ++inside;
        ++(lock.Wait() ? waiters.notified : waiters.timedOut);
        lock.Exit();
      }));
    }
    while (inside < count) std::this_thread::yield();
    // A thread that was inside and lets us in has left by way of its wait.
    lock.Enter();
    lock.Exit();
  }

  Lock lock;
};

using Locks = testing::Types<CDependenciesLock, TestObject>;

struct LockNames {
  template <class Lock>
  static std::string GetName(int) {
    return std::is_same_v<Lock, TestObject> ? "OfAnObject" : "FreeStanding";
  }
};

}  // namespace

TYPED_TEST_SUITE(LockTest, Locks, LockNames);

TYPED_TEST(LockTest, KeepsOthersOutUntilLeftAsOftenAsEntered) {
  EXPECT_EQ(this->lock.Enter(), 0);
  EXPECT_EQ(this->lock.Enter(), 0);
  EXPECT_TRUE(this->lock.TryEnter());
  this->lock.Exit();
  this->lock.Exit();
  EXPECT_FALSE(this->OtherThreadGetsIn());
  this->lock.Exit();
  EXPECT_TRUE(this->OtherThreadGetsIn());
}

TYPED_TEST(LockTest, WaitOfZeroWithoutANotifierIsFalseAtOnceWithTheLockHeld) {
  this->lock.Enter();
  auto const start = std::chrono::steady_clock::now();
  EXPECT_FALSE(this->lock.Wait(0));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_FALSE(this->OtherThreadGetsIn());
  this->lock.Exit();
}

TYPED_TEST(LockTest, WaitOfZeroLeavesTheLockForAMoment) {
  std::atomic<bool> enteredOnce{false};
  this->lock.Enter();
  std::thread other([&] {
    while (!this->lock.TryEnter()) {
    }
    enteredOnce = true;
    this->lock.Exit();
  });
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!enteredOnce && std::chrono::steady_clock::now() < end) this->lock.Wait(0);
  EXPECT_TRUE(enteredOnce);
  this->lock.Exit();
  other.join();
}

TYPED_TEST(LockTest, WaitTimesOut) {
  this->lock.Enter();
  auto const start = std::chrono::steady_clock::now();
  EXPECT_FALSE(this->lock.Wait(15));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(15));
  EXPECT_FALSE(this->OtherThreadGetsIn());
  this->lock.Exit();
}

TYPED_TEST(LockTest, WaitWithoutTheLockIsFalse) {
  EXPECT_FALSE(this->lock.Wait(0));
  EXPECT_FALSE(this->lock.Wait());
  EXPECT_TRUE(this->OtherThreadGetsIn());
}

TYPED_TEST(LockTest, WaitLeavesOnlyOnce) {
  this->lock.Enter();
  this->lock.Enter();
  std::atomic<bool> entered{false};
  BlockedThread other([&] {
    this->lock.Enter();
    entered = true;
    this->lock.Exit();
  });
  other.awaitBlocked();
  EXPECT_FALSE(this->lock.Wait(20));
  EXPECT_FALSE(entered);
  this->lock.Exit();
  this->lock.Exit();
}

TYPED_TEST(LockTest, NotificationWithoutAWaiterIsLost) {
  this->lock.Enter();
  EXPECT_EQ(this->lock.Notify(), 0);
  EXPECT_EQ(this->lock.NotifyAll(), 0);
  EXPECT_FALSE(this->lock.Wait(5));
  this->lock.Exit();
}

TYPED_TEST(LockTest, NotifyWakesEveryWaiter) {
  typename TestFixture::Waiters waiters;
  this->StartWaiters(waiters, 3);
  this->lock.Enter();
  EXPECT_EQ(this->lock.Notify(), 0);
  this->lock.Exit();
  waiters.Join();
  EXPECT_EQ(waiters.notified, 3);
  EXPECT_EQ(waiters.timedOut, 0);
}

TYPED_TEST(LockTest, NotifyAllWakesEveryWaiter) {
  typename TestFixture::Waiters waiters;
  this->StartWaiters(waiters, 3);
  this->lock.Enter();
  EXPECT_EQ(this->lock.NotifyAll(), 0);
  this->lock.Exit();
  waiters.Join();
  EXPECT_EQ(waiters.notified, 3);
}

TYPED_TEST(LockTest, NotifyWithoutTheLockWakesTheWaitersToo) {
  typename TestFixture::Waiters waiters;
  this->StartWaiters(waiters, 2);
  EXPECT_EQ(this->lock.Notify(), 0);
  waiters.Join();
  EXPECT_EQ(waiters.notified, 2);
}

TYPED_TEST(LockTest, NegativeLimitOfOneIsNone) {
  bool notified = false;
  BlockedThread waiter([&] {
    this->lock.Enter();
    notified = this->lock.Wait(-1);
    this->lock.Exit();
  });
  waiter.awaitBlocked();
  EXPECT_FALSE(waiter.ended());
  this->lock.Enter();
  this->lock.Notify();
  this->lock.Exit();
  waiter.join();
  EXPECT_TRUE(notified);
}

// The gate is the manual-reset event. Whoever comes out first finds it open still, and the last one
// out closes it.
TYPED_TEST(LockTest, LastWaiterOutClosesTheGate) {
  std::atomic<int> inside{0};
  int out = 0;               // guarded by the lock
  bool openToFirst = false;  // likewise
  auto const body = [&] {
    this->lock.Enter();
    ++inside;
    this->lock.Wait();
    if (++out == 1) openToFirst = this->lock.Wait(0);
    this->lock.Exit();
  };
  BlockedThread first(body), second(body);
  while (inside < 2) std::this_thread::yield();
  this->lock.Enter();
  this->lock.Notify();
  this->lock.Exit();
  first.join();
  second.join();
  EXPECT_TRUE(openToFirst);
  this->lock.Enter();
  EXPECT_FALSE(this->lock.Wait(0));
  this->lock.Exit();
}

TYPED_TEST(LockTest, NotifiedWaiterHoldsTheLock) {
  std::atomic<bool> kept{false};
  BlockedThread waiter([&] {
    this->lock.Enter();
    this->lock.Wait();
    kept = !this->OtherThreadGetsIn();
    this->lock.Exit();
  });
  waiter.awaitBlocked();
  this->lock.Enter();
  this->lock.Notify();
  this->lock.Exit();
  waiter.join();
  EXPECT_TRUE(kept);
}

TYPED_TEST(LockTest, ExitWithoutBeingInDoesNothing) {
  this->lock.Exit();
  this->lock.Enter();
  std::thread([&] { this->lock.Exit(); }).join();
  EXPECT_FALSE(this->OtherThreadGetsIn());
  this->lock.Exit();
  EXPECT_TRUE(this->OtherThreadGetsIn());
}

}  // namespace Morvalen::Zel
