#include "zel/runtime/synchronized_queue.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/blocked_thread.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/test_object.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

namespace {

using zel::test::BlockedThread;
using zel::test::FailingAllocation;
using zel::test::TestObject;

class SynchronizedQueueTest : public testing::Test {
 protected:
  // A thread that waits once on the queue.
  struct Waiting {
    explicit Waiting(CDependenciesQueue* queue)
        : thread([this, queue] { notified = queue->Wait(60000); }) {
      thread.awaitBlocked();
    }
    bool Notified() {
      thread.join();
      return notified;
    }
    bool notified = false;
    BlockedThread thread;
  };

  void ExpectWakes(bool wakes, void (*operation)(CDependenciesQueue*, TestObject*)) {
    Waiting waiting(queue);
    operation(queue, item);
    if (wakes) {
      EXPECT_TRUE(waiting.Notified());
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(waiting.thread.ended());
    queue->Clear();
    waiting.Notified();
  }

  ~SynchronizedQueueTest() override {
    queue = nullptr;
    EXPECT_EQ(plain->GetReferenceCount(), 1);
    plain = nullptr;
    EXPECT_EQ(item->GetReferenceCount(), 1);
    item->Release();
  }

  TestObject* const item = new TestObject;
  RObject<CDependenciesQueue> plain{new CDependenciesQueue(1, 2)};
  RObject<CDependenciesQueue> queue{CDependenciesQueue::Synchronized(plain)};
};

}  // namespace

TEST_F(SynchronizedQueueTest, WrapsTheQueueWithAReference) {
  EXPECT_EQ(plain->GetReferenceCount(), 2);
  EXPECT_EQ(queue->GetReferenceCount(), 1);
  EXPECT_TRUE(queue->IsSynchronized());
  EXPECT_FALSE(plain->IsSynchronized());
}

TEST_F(SynchronizedQueueTest, WrapsASynchronizedQueueToo) {
  RObject<CDependenciesQueue> const twice(CDependenciesQueue::Synchronized(queue));
  EXPECT_TRUE(twice->IsSynchronized());
  EXPECT_EQ(twice->Enqueue(item), 0);
  EXPECT_EQ(plain->GetCount(), 1);
  plain->Clear();
}

TEST_F(SynchronizedQueueTest, NullAndRefusedMemoryGiveNull) {
  EXPECT_EQ(CDependenciesQueue::Synchronized(nullptr), nullptr);
  FailingAllocation const failing;
  EXPECT_EQ(CDependenciesQueue::Synchronized(plain), nullptr);
  EXPECT_EQ(plain->GetReferenceCount(), 2);
}

TEST_F(SynchronizedQueueTest, ForwardsEverything) {
  EXPECT_EQ(queue->GetCapacity(), 2);
  EXPECT_EQ(queue->GetThreshold(), 1);
  queue->SetThreshold(2);
  EXPECT_EQ(plain->GetThreshold(), 2);
  queue->SetThreshold(0);
  EXPECT_TRUE(queue->IsEmpty());
  EXPECT_EQ(queue->Dequeue(), nullptr);
  EXPECT_TRUE(queue->Underflowed());
  queue->Clear();
  EXPECT_FALSE(queue->Underflowed());
  for (int i = 0; i < 4; ++i) EXPECT_EQ(queue->Enqueue(item), 0);
  EXPECT_EQ(plain->GetCount(), 4);
  EXPECT_EQ(queue->GetCount(), 4);
  EXPECT_EQ(queue->GetCapacity(), 4);
  EXPECT_TRUE(queue->ExceedsThreshold());
  EXPECT_TRUE(queue->IsFull());
  EXPECT_FALSE(queue->Overflowed());
  EXPECT_EQ(queue->Enqueue(item), ZelErrorQueueFull);
  EXPECT_EQ(queue->Requeue(item), ZelErrorQueueFull);
  EXPECT_TRUE(queue->Overflowed());
  CDependenciesObjectVS2012* const front = queue->CheckFront();
  EXPECT_EQ(front, item);
  front->Release();
  EXPECT_EQ(queue->Dequeue(), item);
  EXPECT_EQ(queue->Requeue(item), 0);
  item->Release();
  EXPECT_EQ(queue->GetCount(), 4);
}

TEST_F(SynchronizedQueueTest, EndsWithItsItems) {
  queue->Enqueue(item);
  EXPECT_EQ(item->GetReferenceCount(), 2);
}

TEST_F(SynchronizedQueueTest, WithoutItsLockAnswersAsTold) {
  // The lock is made at its first use, for which there is no memory.
  plain->SetThreshold(1);
  FailingAllocation const failing;
  EXPECT_TRUE(queue->IsSynchronized());
  EXPECT_EQ(queue->GetCapacity(), -1);
  EXPECT_EQ(queue->GetThreshold(), -1);
  EXPECT_EQ(queue->GetCount(), 0);
  queue->SetThreshold(0);
  EXPECT_EQ(plain->GetThreshold(), 1);
  EXPECT_FALSE(queue->Underflowed());
  EXPECT_TRUE(queue->Overflowed());
  EXPECT_TRUE(queue->IsEmpty());
  EXPECT_TRUE(queue->IsFull());
  EXPECT_TRUE(queue->ExceedsThreshold());
  EXPECT_EQ(queue->Enqueue(item), ZelErrorOutOfMemory);
  EXPECT_EQ(queue->Requeue(item), ZelErrorOutOfMemory);
  EXPECT_EQ(plain->GetCount(), 0);
  plain->Enqueue(item);
  EXPECT_EQ(queue->Dequeue(), nullptr);
  EXPECT_EQ(queue->CheckFront(), nullptr);
  queue->Clear();
  EXPECT_EQ(plain->GetCount(), 1);
  EXPECT_FALSE(queue->Wait());
  EXPECT_FALSE(queue->Wait(5));
}

TEST_F(SynchronizedQueueTest, WaitTimesOutWithoutANotification) {
  EXPECT_FALSE(queue->Wait(0));
  EXPECT_FALSE(queue->Wait(5));
}

TEST_F(SynchronizedQueueTest, PuttingAndTakingAndClearingWakeWaiters) {
  ExpectWakes(true, [](CDependenciesQueue* q, TestObject* object) { q->Enqueue(object); });
  ExpectWakes(true, [](CDependenciesQueue* q, TestObject* object) { q->Requeue(object); });
  ExpectWakes(true, [](CDependenciesQueue* q, TestObject*) { q->Dequeue()->Release(); });
  ExpectWakes(true, [](CDependenciesQueue* q, TestObject*) { q->Clear(); });
  ExpectWakes(true, [](CDependenciesQueue* q, TestObject*) { q->Dequeue(); });
}

TEST_F(SynchronizedQueueTest, LookingWakesNobody) {
  ExpectWakes(false, [](CDependenciesQueue* q, TestObject*) {
    q->GetCapacity();
    q->GetThreshold();
    q->GetCount();
    q->SetThreshold(1);
    q->Underflowed();
    q->Overflowed();
    q->IsEmpty();
    q->IsFull();
    q->ExceedsThreshold();
    q->CheckFront();
  });
}

TEST_F(SynchronizedQueueTest, PuttingIntoAFullQueueWakesNobody) {
  for (int i = 0; i < 4; ++i) queue->Enqueue(item);
  ExpectWakes(false, [](CDependenciesQueue* q, TestObject* object) {
    EXPECT_EQ(q->Enqueue(object), ZelErrorQueueFull);
    EXPECT_EQ(q->Requeue(object), ZelErrorQueueFull);
  });
}

TEST_F(SynchronizedQueueTest, LockAroundSeveralOperationsMakesThemOne) {
  CDependenciesObjectVS2012::CAutoLock const lock(queue);
  EXPECT_EQ(queue->GetCount(), 0);
  BlockedThread other([&] { queue->Enqueue(item); });
  other.awaitBlocked();
  EXPECT_FALSE(other.ended());
  EXPECT_TRUE(queue->IsEmpty()) << "and the thread that holds the lock may go on using the queue";
  // Waiting lets the other thread in, though this one has entered the lock already.
  EXPECT_TRUE(queue->Wait(60000));
  EXPECT_EQ(queue->GetCount(), 1);
  other.join();
}

TEST_F(SynchronizedQueueTest, LookAndWaitUnderTheLockMissesNothing) {
  constexpr int kItems = 3000;
  std::thread producer([&] {
    for (int i = 0; i < kItems; ++i) {
      CDependenciesObjectVS2012::CAutoLock const lock(queue);
      while (queue->IsFull() && queue->GetCount() == 4) queue->Wait();
      ASSERT_EQ(queue->Enqueue(item), 0);
    }
  });
  for (int i = 0; i < kItems; ++i) {
    CDependenciesObjectVS2012::CAutoLock const lock(queue);
    while (queue->IsEmpty()) queue->Wait();
    CDependenciesObjectVS2012* const got = queue->Dequeue();
    ASSERT_EQ(got, item);
    got->Release();
  }
  producer.join();
}

TEST_F(SynchronizedQueueTest, PlainQueueHasNobodyToWaitFor) {
  EXPECT_FALSE(plain->Wait(0));
  EXPECT_FALSE(plain->Wait());
}

}  // namespace Morvalen::Zel
