// References, the lock that comes into being at first use, waits and notifications, and the
// synchronized queue, from many threads at once. The thread sanitizer runs these too.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/test_object.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/lock.h"
#include "zel/runtime/pool.h"
#include "zel/runtime/queue.h"

namespace Morvalen::Zel {

namespace {

using zel::test::TestObject;

constexpr int kThreads = 6;

// Runs `body(number)` on each of the threads, which all start at one moment.
template <class Body>
void onThreads(int count, Body const& body) {
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      ++ready;
      while (ready < count) std::this_thread::yield();
      body(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

TEST(ObjectThreads, ReferencesAddUp) {
  auto* const object = new TestObject;
  onThreads(kThreads, [&](int) {
    for (int round = 0; round < 20000; ++round) {
      object->Acquire();
      object->Release();
    }
  });
  EXPECT_EQ(object->GetReferenceCount(), 1);
  object->Release();
  EXPECT_EQ(TestObject::live, 0);
}

// Whoever comes last destroys, and sees what the others wrote before they released.
TEST(ObjectThreads, LastReleaseDestroysOnceBehindAllOthers) {
  struct Written : TestObject {
    explicit Written(std::atomic<int>& counter) : sums(counter) {}
    ~Written() override {
      int sum = 0;
      for (int const value : values) sum += value;
      sums += sum;
    }
    std::atomic<int>& sums;
    int values[kThreads] =
        {};  // each written by one thread, with nothing but the release behind it
  };
  constexpr int kRounds = 300;
  std::atomic<int> sums{0};
  std::vector<Written*> objects;
  for (int i = 0; i < kRounds; ++i) {
    objects.push_back(new Written(sums));
    for (int thread = 1; thread < kThreads; ++thread) objects.back()->Acquire();
  }
  onThreads(kThreads, [&](int thread) {
    for (Written* const object : objects) {
      object->values[thread] = 1;
      object->Release();
    }
  });
  EXPECT_EQ(sums, kRounds * kThreads);
  EXPECT_EQ(TestObject::live, 0);
}

TEST(ObjectThreads, FirstUsesOfALockAtOneMomentMakeOneLock) {
  constexpr int kObjects = 400;
  std::vector<std::unique_ptr<TestObject>> objects;
  std::vector<int> counters(kObjects);  // each guarded by its object's lock
  for (int i = 0; i < kObjects; ++i) objects.push_back(std::make_unique<TestObject>());
  onThreads(kThreads, [&](int) {
    for (size_t i = 0; i < kObjects; ++i) {
      CDependenciesObjectVS2012::CAutoLock const lock(objects[i].get());
      ++counters[i];
    }
  });
  EXPECT_TRUE(std::all_of(counters.begin(), counters.end(), [](int n) { return n == kThreads; }));
}

TEST(ObjectThreads, HoldersOnManyThreadsShareAnObject) {
  auto* const object = new TestObject;
  onThreads(kThreads, [&](int) {
    RObject<TestObject> mine;
    for (int round = 0; round < 3000; ++round) {
      mine.SafeAcquire(object);
      BaseObject const other(mine.SafeAcquire());
      BaseObject const copy(other);
      mine = nullptr;
    }
  });
  EXPECT_EQ(object->GetReferenceCount(), 1);
  object->Release();
}

// Threads take turns by waiting and notifying; a wait that misses its notification would hang.
TEST(ObjectThreads, WaitAndNotifyPassATurnAround) {
  constexpr int kTurns = 100;
  TestObject object;
  int turn = 0;  // guarded by the object's lock
  onThreads(kThreads, [&](int thread) {
    for (int round = 0; round < kTurns; ++round) {
      CDependenciesObjectVS2012::CAutoLock const lock(&object);
      while (turn % kThreads != thread) object.Wait();
      ++turn;
      if (round % 2 == 0) {
        object.Notify();
      } else {
        object.NotifyAll();
      }
    }
  });
  EXPECT_EQ(turn, kTurns * kThreads);
}

TEST(ObjectThreads, WaitsWithATimeLimitMixWithNotifications) {
  CDependenciesLock lock;
  std::atomic<bool> stop{false};
  int notified = 0;  // guarded by the lock
  std::vector<std::thread> waiters;
  for (int i = 0; i < kThreads; ++i) {
    waiters.emplace_back([&, i] {
      while (!stop) {
        lock.Enter();
        if (lock.Wait(i % 3)) ++notified;
        lock.Exit();
      }
    });
  }
  for (int round = 0; round < 150; ++round) {
    lock.Enter();
    lock.NotifyAll();
    lock.Exit();
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  stop = true;
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_GT(notified, 0);
}

// Pooled objects are handed out and come back from every thread at once.
TEST(ObjectThreads, PooledObjectsGoRound) {
  static std::atomic<int> alive{0};
  struct Pooled : CPoolObject {
    Pooled() : CPoolObject(0) { ++alive; }
    ~Pooled() override { --alive; }
    using CPoolObject::Pool;
    int uses = 0;
  };
  struct Depot : CPoolBase {
    ~Depot() override {
      for (Pooled* const object : free) object->Release();
    }
    void ReturnToPool(CPoolObject* object) override {
      CAutoLock const guard(this);
      if (free.size() >= 3) return;
      object->Acquire();
      free.push_back(static_cast<Pooled*>(object));
    }
    Pooled* Take() {
      Pooled* object = nullptr;
      {
        CAutoLock const guard(this);
        if (!free.empty()) {
          object = free.back();
          free.pop_back();
        }
      }
      if (object == nullptr) object = new Pooled;
      object->Pool(this);
      return object;
    }
    std::vector<Pooled*> free;  // guarded by the lock
  };
  auto* const depot = new Depot;
  onThreads(kThreads, [&](int) {
    for (int round = 0; round < 1500; ++round) {
      Pooled* const object = depot->Take();
      ++object->uses;
      object->Acquire();
      object->Release();
      object->Release();
    }
  });
  depot->Release();
  EXPECT_EQ(alive, 0);
}

TEST(ObjectThreads, SynchronizedQueuePassesEveryItemOnce) {
  constexpr int kProducers = 3;
  constexpr int kConsumers = 3;
  constexpr int kItems = 1200;
  struct Item : TestObject {
    std::atomic<int> passed{0};
  };
  RObject<CDependenciesQueue> plain(new CDependenciesQueue(2, 4));
  RObject<CDependenciesQueue> queue(CDependenciesQueue::Synchronized(plain));
  std::vector<Item*> items;
  for (int i = 0; i < kProducers * kItems; ++i) items.push_back(new Item);
  std::atomic<int> taken{0};
  onThreads(kProducers + kConsumers, [&](int thread) {
    if (thread < kProducers) {
      for (int i = 0; i < kItems; ++i) {
        Item* const item = items[static_cast<size_t>(thread * kItems + i)];
        // Without the lock around it, so with a time limit.
        while (queue->Enqueue(item) < 0) queue->Wait(1);
      }
      return;
    }
    while (taken < kProducers * kItems) {
      CDependenciesObjectVS2012* const item = queue->Dequeue();
      if (item == nullptr) {
        queue->Wait(1);
        continue;
      }
      if (taken % 7 == 0) {
        // Put back in front, and fetched again by whoever comes: sound right behind a Dequeue only,
        // so under the lock. It may find the queue full by now.
        CDependenciesObjectVS2012::CAutoLock const lock(queue);
        RObject<CDependenciesObjectVS2012> const next(queue->Dequeue());
        if (next != nullptr) {
          EXPECT_EQ(queue->Requeue(next), 0);
        }
      }
      ++static_cast<Item*>(item)->passed;
      item->Release();
      ++taken;
    }
  });
  EXPECT_EQ(taken, kProducers * kItems);
  EXPECT_TRUE(queue->IsEmpty());
  for (Item* const item : items) {
    EXPECT_EQ(item->passed, 1);
    EXPECT_EQ(item->GetReferenceCount(), 1);
    item->Release();
  }
  EXPECT_EQ(TestObject::live, 0);
}

}  // namespace Morvalen::Zel
