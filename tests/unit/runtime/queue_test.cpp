#include "zel/runtime/queue.h"

#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/failing_allocation.h"
#include "tests/support/seed.h"
#include "tests/support/test_object.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

namespace {
using zel::test::FailingAllocation;
using zel::test::TestObject;
}  // namespace

class CDependenciesQueueTest : public testing::Test {
 protected:
  CDependenciesQueueTest() {
    for (int i = 0; i < 16; ++i) objects.push_back(new TestObject);
  }
  ~CDependenciesQueueTest() override {
    queue = nullptr;
    for (TestObject* const object : objects) {
      EXPECT_EQ(object->GetReferenceCount(), 1);
      object->Release();
    }
    EXPECT_EQ(TestObject::live, 0);
  }

  void Make(int32_t logSize) { queue = new CDependenciesQueue(logSize); }
  void Make(int32_t logSize, int32_t maxLogSize) {
    queue = new CDependenciesQueue(logSize, maxLogSize);
  }
  int Enqueue(size_t which) { return queue->Enqueue(objects[which]); }
  int Requeue(size_t which) { return queue->Requeue(objects[which]); }
  // The number of the item that comes out; -1 for null, -2 for none of the objects.
  int Dequeue() {
    CDependenciesObjectVS2012* const item = queue->Dequeue();
    if (item == nullptr) return -1;
    item->Release();
    return Number(item);
  }
  int Front() {
    CDependenciesObjectVS2012* const item = queue->CheckFront();
    if (item == nullptr) return -1;
    item->Release();
    return Number(item);
  }
  int Number(CDependenciesObjectVS2012* item) const {
    for (size_t i = 0; i < objects.size(); ++i) {
      if (objects[i] == item) return static_cast<int>(i);
    }
    return -2;
  }
  // Moves the running indexes of an empty queue on, as that many operations would.
  void Advance(int32_t index) { queue->head = queue->tail = index; }
  int32_t Tail() const { return queue->tail; }

  RObject<CDependenciesQueue> queue;
  std::vector<TestObject*> objects;
};

using QueueTest = CDependenciesQueueTest;

TEST_F(QueueTest, VirtualOperationsStandBehindTheRoots) {
  using zel::test::virtualSlot;
  using Queue = CDependenciesQueue;
  int slot = 12;
  EXPECT_EQ(virtualSlot(&Queue::IsSynchronized), slot++);
  EXPECT_EQ(virtualSlot(&Queue::GetCapacity), slot++);
  EXPECT_EQ(virtualSlot(&Queue::GetThreshold), slot++);
  EXPECT_EQ(virtualSlot(&Queue::SetThreshold), slot++);
  EXPECT_EQ(virtualSlot(&Queue::Clear), slot++);
  EXPECT_EQ(virtualSlot(&Queue::Underflowed), slot++);
  EXPECT_EQ(virtualSlot(&Queue::IsEmpty), slot++);
  EXPECT_EQ(virtualSlot(&Queue::ExceedsThreshold), slot++);
  EXPECT_EQ(virtualSlot(&Queue::IsFull), slot++);
  EXPECT_EQ(virtualSlot(&Queue::Overflowed), slot++);
  EXPECT_EQ(virtualSlot(&Queue::GetCount), slot++);
  EXPECT_EQ(virtualSlot(&Queue::Requeue), slot++);
  EXPECT_EQ(virtualSlot(&Queue::Enqueue), slot++);
  EXPECT_EQ(virtualSlot(&Queue::Dequeue), slot++);
  EXPECT_EQ(virtualSlot(&Queue::CheckFront), slot++);
}

TEST_F(QueueTest, ArgumentIsTheLogarithmOfTheSize) {
  Make(4);
  EXPECT_EQ(queue->GetCapacity(), 16);
  EXPECT_EQ(queue->GetThreshold(), 8);
  EXPECT_EQ(queue->GetCount(), 0);
  EXPECT_EQ(queue->GetType(), 0u);
  EXPECT_FALSE(queue->IsSynchronized());
  EXPECT_TRUE(queue->IsEmpty());
  EXPECT_FALSE(queue->IsFull());
  EXPECT_FALSE(queue->Overflowed());
  EXPECT_FALSE(queue->Underflowed());
}

TEST_F(QueueTest, NegativeLogarithmsCountAsZero) {
  Make(-3);
  EXPECT_EQ(queue->GetCapacity(), 1);
  EXPECT_EQ(Enqueue(0), 0);
  EXPECT_EQ(Enqueue(1), ZelErrorQueueFull);
  Make(-3, 1);
  EXPECT_EQ(queue->GetCapacity(), 1);
  EXPECT_EQ(Enqueue(0), 0);
  EXPECT_EQ(Enqueue(1), 0);
  EXPECT_EQ(queue->GetCapacity(), 2);
}

TEST_F(QueueTest, StartIsNotAboveTheLimit) {
  Make(5, 2);
  EXPECT_EQ(queue->GetCapacity(), 4);
  Make(5, -1);
  EXPECT_EQ(queue->GetCapacity(), 1);
}

TEST_F(QueueTest, LogSizeZeroHoldsExactlyOneItemWithThresholdZero) {
  Make(0);
  EXPECT_EQ(queue->GetThreshold(), 0);
  EXPECT_FALSE(queue->ExceedsThreshold());
  EXPECT_EQ(Enqueue(0), 0);
  EXPECT_TRUE(queue->ExceedsThreshold());
  EXPECT_TRUE(queue->IsFull());
  EXPECT_EQ(Enqueue(1), ZelErrorQueueFull);
  EXPECT_EQ(Dequeue(), 0);
}

TEST_F(QueueTest, FirstInIsFirstOutWithItsReference) {
  Make(2);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(Enqueue(i), 0);
  EXPECT_EQ(objects[0]->GetReferenceCount(), 2);
  CDependenciesObjectVS2012* const first = queue->Dequeue();
  EXPECT_EQ(first, objects[0]);
  EXPECT_EQ(first->GetReferenceCount(), 2) << "the queue's reference is the caller's now";
  first->Release();
  EXPECT_EQ(Dequeue(), 1);
  EXPECT_EQ(Enqueue(5), 0);
  EXPECT_EQ(Dequeue(), 2);
  EXPECT_EQ(Dequeue(), 3);
  EXPECT_EQ(Dequeue(), 5);
  EXPECT_TRUE(queue->IsEmpty());
}

TEST_F(QueueTest, GrowsToItsLimitWithOrderKeptAndThenOverflows) {
  Make(2, 3);
  EXPECT_EQ(queue->GetThreshold(), 2);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(Enqueue(i), 0);
  EXPECT_EQ(queue->GetCapacity(), 4);
  EXPECT_TRUE(queue->IsFull());
  EXPECT_EQ(Enqueue(4), 0);
  EXPECT_EQ(queue->GetCapacity(), 8);
  EXPECT_EQ(queue->GetThreshold(), 2) << "growing leaves the threshold";
  for (size_t i = 5; i < 8; ++i) EXPECT_EQ(Enqueue(i), 0);
  EXPECT_FALSE(queue->Overflowed());
  EXPECT_EQ(Enqueue(8), ZelErrorQueueFull);
  EXPECT_EQ(objects[8]->GetReferenceCount(), 1) << "the item isn't kept";
  EXPECT_TRUE(queue->Overflowed());
  for (int i = 0; i < 8; ++i) EXPECT_EQ(Dequeue(), i);
  EXPECT_TRUE(queue->Overflowed()) << "until Clear";
  queue->Clear();
  EXPECT_FALSE(queue->Overflowed());
}

TEST_F(QueueTest, GrowsFromTheMiddleOfTheRing) {
  Make(2, 4);
  for (size_t i = 0; i < 4; ++i) Enqueue(i);
  Dequeue();
  Dequeue();
  Enqueue(4);
  Enqueue(5);
  Enqueue(6);
  EXPECT_EQ(queue->GetCapacity(), 8);
  for (int i = 2; i < 7; ++i) EXPECT_EQ(Dequeue(), i);
}

TEST_F(QueueTest, RequeueGrowsTooAndReportsAFullQueue) {
  Make(1, 2);
  Enqueue(0);
  Enqueue(1);
  EXPECT_EQ(Requeue(2), 0);
  EXPECT_EQ(queue->GetCapacity(), 4);
  EXPECT_EQ(queue->GetCount(), 3);
  Make(0);
  Enqueue(0);
  EXPECT_EQ(Requeue(1), ZelErrorQueueFull);
  EXPECT_TRUE(queue->Overflowed());
  EXPECT_EQ(objects[1]->GetReferenceCount(), 1);
}

TEST_F(QueueTest, DequeueOfAnEmptyQueueUnderflowsCheckFrontDoesNot) {
  Make(1);
  EXPECT_EQ(queue->CheckFront(), nullptr);
  EXPECT_FALSE(queue->Underflowed());
  EXPECT_EQ(queue->Dequeue(), nullptr);
  EXPECT_TRUE(queue->Underflowed());
  Enqueue(0);
  EXPECT_TRUE(queue->Underflowed()) << "until Clear";
  queue->Clear();
  EXPECT_FALSE(queue->Underflowed());
}

TEST_F(QueueTest, CheckFrontAddsAReferenceAndLeavesTheItem) {
  Make(1);
  Enqueue(3);
  CDependenciesObjectVS2012* const front = queue->CheckFront();
  EXPECT_EQ(front, objects[3]);
  EXPECT_EQ(front->GetReferenceCount(), 3);
  front->Release();
  EXPECT_EQ(queue->GetCount(), 1);
  EXPECT_EQ(Dequeue(), 3);
}

TEST_F(QueueTest, RequeueRightAfterDequeueGivesTheSameItemBackFirst) {
  Make(2);
  for (size_t i = 0; i < 4; ++i) Enqueue(i);
  EXPECT_EQ(Dequeue(), 0);
  EXPECT_EQ(Requeue(0), 0);
  EXPECT_EQ(queue->GetCount(), 4);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Dequeue(), i);
}

// Index -1 has place 1, where the second item is.
TEST_F(QueueTest, RequeueAtTheStartTakesThePlaceOfTheSecondItem) {
  Make(2);
  Enqueue(0);
  Enqueue(1);
  EXPECT_EQ(Requeue(2), 0);
  EXPECT_EQ(objects[1]->GetReferenceCount(), 1) << "the overwritten item is released";
  EXPECT_EQ(queue->GetCount(), 3);
  EXPECT_EQ(Front(), 2);
  EXPECT_EQ(Dequeue(), 2);
  EXPECT_EQ(Dequeue(), 0);
  EXPECT_EQ(Dequeue(), -1) << "its place is empty";
  EXPECT_FALSE(queue->Underflowed());
  EXPECT_TRUE(queue->IsEmpty());
}

TEST_F(QueueTest, RequeueAtTheStartOfAnEmptyQueueIsSound) {
  for (int32_t logSize = 0; logSize < 3; ++logSize) {
    Make(logSize);
    EXPECT_EQ(Requeue(0), 0);
    EXPECT_EQ(Front(), 0);
    EXPECT_EQ(Dequeue(), 0);
    EXPECT_TRUE(queue->IsEmpty());
  }
}

// However indexes below 0 share places with others, no reference is lost or given back twice: the
// fixture counts them.
TEST_F(QueueTest, RequeueBelowTheStartKeepsReferencesRight) {
  std::mt19937 random(static_cast<unsigned>(zel::test::testSeed()));
  for (int round = 0; round < 300; ++round) {
    Make(static_cast<int32_t>(random() % 4), static_cast<int32_t>(random() % 5));
    for (int step = 0; step < 40; ++step) {
      size_t const which = random() % objects.size();
      switch (random() % 8) {
        case 0:
        case 1:
        case 2:
          Requeue(which);
          break;
        case 3:
        case 4:
          Enqueue(which);
          break;
        case 5:
          Dequeue();
          break;
        case 6:
          Front();
          break;
        default:
          if (random() % 4 == 0) queue->Clear();
      }
      ASSERT_GE(queue->GetCount(), 0);
      ASSERT_LE(queue->GetCount(), queue->GetCapacity());
    }
  }
}

TEST_F(QueueTest, NullItemsMayBeStored) {
  Make(1);
  EXPECT_EQ(queue->Enqueue(nullptr), 0);
  EXPECT_EQ(queue->GetCount(), 1);
  EXPECT_EQ(queue->CheckFront(), nullptr);
  EXPECT_EQ(queue->Dequeue(), nullptr);
  EXPECT_FALSE(queue->Underflowed());
  EXPECT_TRUE(queue->IsEmpty());
}

TEST_F(QueueTest, ClearReleasesEachItemExactlyOnce) {
  Make(3);
  for (size_t i = 0; i < 6; ++i) Enqueue(i);
  Dequeue();
  queue->Clear();
  for (TestObject* const object : objects) EXPECT_EQ(object->GetReferenceCount(), 1);
  EXPECT_TRUE(queue->IsEmpty());
  EXPECT_EQ(queue->GetCapacity(), 8);
  EXPECT_EQ(Enqueue(9), 0);
  EXPECT_EQ(Dequeue(), 9);
}

TEST_F(QueueTest, ClearLeavesTheIndexesWhereTheyAre) {
  Make(2);
  Enqueue(0);
  Enqueue(1);
  queue->Clear();
  EXPECT_EQ(Tail(), 2);
  // So a Requeue behind it is sound.
  Enqueue(2);
  Enqueue(3);
  Requeue(4);
  EXPECT_EQ(Dequeue(), 4);
  EXPECT_EQ(Dequeue(), 2);
  EXPECT_EQ(Dequeue(), 3);
}

TEST_F(QueueTest, ThresholdIsBroughtIntoTheCapacity) {
  Make(2);
  queue->SetThreshold(-1);
  EXPECT_EQ(queue->GetThreshold(), 0);
  queue->SetThreshold(queue->GetCapacity() + 1);
  EXPECT_EQ(queue->GetThreshold(), queue->GetCapacity());
  queue->SetThreshold(1);
  EXPECT_EQ(queue->GetThreshold(), 1);
  Enqueue(0);
  EXPECT_FALSE(queue->ExceedsThreshold()) << "strictly above";
  Enqueue(1);
  EXPECT_TRUE(queue->ExceedsThreshold());
}

TEST_F(QueueTest, EndReleasesWhatIsLeft) {
  Make(2, 4);
  for (size_t i = 0; i < 7; ++i) Enqueue(i);
  queue = nullptr;
  for (TestObject* const object : objects) EXPECT_EQ(object->GetReferenceCount(), 1);
}

// As after 2^31 items: no place changes as the running indexes go back.
TEST_F(QueueTest, RunningIndexesNeverOverflow) {
  for (int32_t logSize = 0; logSize <= 4; ++logSize) {
    Make(logSize);
    int32_t const capacity = queue->GetCapacity();
    Advance(std::numeric_limits<int32_t>::max() - capacity - 2);
    std::deque<int> model;
    for (int step = 0; step < 6 * capacity + 20; ++step) {
      int const which = step % 16;
      if (static_cast<int32_t>(model.size()) == capacity) {
        ASSERT_EQ(Dequeue(), model.front());
        model.pop_front();
        // And a Requeue is as sound as ever.
        ASSERT_EQ(Requeue(static_cast<size_t>(which)), 0);
        ASSERT_EQ(Dequeue(), which);
      }
      ASSERT_EQ(Enqueue(static_cast<size_t>(which)), 0);
      model.push_back(which);
      ASSERT_EQ(queue->GetCount(), static_cast<int32_t>(model.size()));
    }
    EXPECT_LT(Tail(), std::numeric_limits<int32_t>::max() / 2) << "they went back";
    while (!model.empty()) {
      ASSERT_EQ(Dequeue(), model.front());
      model.pop_front();
    }
  }
}

TEST_F(QueueTest, RefusedGrowthIsInvisibleButForTheFullQueue) {
  Make(1, 6);
  Enqueue(0);
  Enqueue(1);
  {
    FailingAllocation const failing;
    EXPECT_EQ(Enqueue(2), ZelErrorQueueFull);
    EXPECT_TRUE(queue->Overflowed());
    EXPECT_EQ(queue->GetCapacity(), 2);
    EXPECT_EQ(queue->GetCount(), 2);
  }
  // The logarithm stays raised, so the next growth is twice as large.
  EXPECT_EQ(Enqueue(2), 0);
  EXPECT_EQ(queue->GetCapacity(), 8);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Dequeue(), i);
}

TEST_F(QueueTest, WithoutMemoryForItsRingItIsFullAndEmpty) {
  {
    FailingAllocation const failing(1);
    Make(3);
  }
  EXPECT_EQ(queue->GetCapacity(), 0);
  EXPECT_TRUE(queue->IsEmpty());
  EXPECT_TRUE(queue->IsFull());
  EXPECT_EQ(Enqueue(0), ZelErrorQueueFull);
  EXPECT_EQ(Requeue(0), ZelErrorQueueFull);
  EXPECT_EQ(queue->Dequeue(), nullptr);
  EXPECT_EQ(queue->CheckFront(), nullptr);
  queue->SetThreshold(5);
  EXPECT_EQ(queue->GetThreshold(), 0);
  queue->Clear();
}

TEST_F(QueueTest, ImpossibleSizesHoldNothing) {
  for (int32_t const logSize : {31, 32, 63, 64, std::numeric_limits<int32_t>::max()}) {
    Make(logSize);
    EXPECT_EQ(queue->GetCapacity(), 0);
    EXPECT_EQ(Enqueue(0), ZelErrorQueueFull);
  }
}

TEST_F(QueueTest, BoundlessLimitGrowsAsNeeded) {
  Make(0, std::numeric_limits<int32_t>::max());
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(Enqueue(i), 0);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(Dequeue(), i);
}

TEST_F(QueueTest, BehavesAsADequeUnderRandomUse) {
  std::mt19937 random(static_cast<unsigned>(zel::test::testSeed()));
  for (int round = 0; round < 60; ++round) {
    auto const limit = static_cast<int32_t>(random() % 6);
    auto const start = static_cast<int32_t>(random() % 3);
    Make(start, limit);
    int32_t capacity = int32_t{1} << std::min(start, limit);
    std::deque<int> model;
    bool overflowed = false, underflowed = false;
    bool requeueIsSound = false;
    for (int step = 0; step < 400; ++step) {
      auto const which = static_cast<int>(random() % objects.size());
      bool const full = static_cast<int32_t>(model.size()) == capacity;
      switch (random() % 8) {
        case 0:
        case 1:
        case 2:
          if (full && capacity < int32_t{1} << limit) {
            capacity *= 2;
            requeueIsSound = false;
          } else if (full) {
            overflowed = true;
            ASSERT_EQ(Enqueue(static_cast<size_t>(which)), ZelErrorQueueFull);
            break;
          }
          ASSERT_EQ(Enqueue(static_cast<size_t>(which)), 0);
          model.push_back(which);
          break;
        case 3:
          if (!requeueIsSound || full) break;
          ASSERT_EQ(Requeue(static_cast<size_t>(which)), 0);
          model.push_front(which);
          requeueIsSound = false;
          break;
        case 4:
        case 5:
          if (model.empty()) {
            underflowed = true;
            ASSERT_EQ(Dequeue(), -1);
            break;
          }
          ASSERT_EQ(Dequeue(), model.front());
          model.pop_front();
          requeueIsSound = true;
          break;
        case 6:
          ASSERT_EQ(Front(), model.empty() ? -1 : model.front());
          break;
        default:
          if (random() % 16 != 0) break;
          queue->Clear();
          model.clear();
          overflowed = underflowed = false;
      }
      ASSERT_EQ(queue->GetCount(), static_cast<int32_t>(model.size()));
      ASSERT_EQ(queue->GetCapacity(), capacity);
      ASSERT_EQ(queue->Overflowed(), overflowed);
      ASSERT_EQ(queue->Underflowed(), underflowed);
      ASSERT_EQ(queue->IsEmpty(), model.empty());
      ASSERT_EQ(queue->IsFull(), static_cast<int32_t>(model.size()) == capacity);
    }
  }
}

}  // namespace Morvalen::Zel
