#include "zel/runtime/pool.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/test_object.h"

namespace Morvalen::Zel {

namespace {

std::string events;  // what happened in a test, in order

class Buffer : public CPoolObject {
 public:
  Buffer() : CPoolObject(FourCharacterCode("buff")) {}
  ~Buffer() override { events += "~buffer "; }
  void ReclaimCleanUp() override {
    events += "clean ";
    heldInCleanUp = HoldsLock();
    referencesInCleanUp = GetReferenceCount();
  }
  void SetPool(CPoolBase* owner) { Pool(owner); }
  using CDependenciesObjectVS2012::HoldsLock;
  bool heldInCleanUp = false;
  int referencesInCleanUp = 0;
};

// Keeps up to `room` objects.
class Shelf : public CPoolBase {
 public:
  explicit Shelf(size_t limit) : room(limit) {}
  ~Shelf() override {
    events += "~shelf ";
    for (Buffer* buffer : free) buffer->Release();
  }
  void ReturnToPool(CPoolObject* object) override {
    events += "return ";
    auto* const buffer = static_cast<Buffer*>(object);
    heldInReturn = buffer->HoldsLock();
    poolReferencesInReturn = GetReferenceCount();
    if (free.size() >= room) return;
    buffer->Acquire();
    free.push_back(buffer);
  }
  Buffer* Take() {
    Buffer* buffer = nullptr;
    if (free.empty()) {
      buffer = new Buffer;
    } else {
      buffer = free.back();
      free.pop_back();
    }
    buffer->SetPool(this);
    return buffer;
  }
  size_t room;
  std::vector<Buffer*> free;
  bool heldInReturn = false;
  int poolReferencesInReturn = 0;
};

class PoolTest : public testing::Test {
 protected:
  PoolTest() { events.clear(); }
};

}  // namespace

TEST_F(PoolTest, VirtualOperationsStandBehindTheRoots) {
  EXPECT_EQ(zel::test::virtualSlot(&CPoolObject::ReclaimCleanUp), 12);
  EXPECT_EQ(zel::test::virtualSlot(&CPoolBase::ReturnToPool), 12);
}

TEST_F(PoolTest, ObjectWithoutAPoolIsDeleted) {
  auto* const buffer = new Buffer;
  EXPECT_EQ(buffer->GetType(), FourCharacterCode("buff"));
  buffer->Release();
  EXPECT_EQ(events, "~buffer ");
}

TEST_F(PoolTest, ObjectGoesBackToItsPoolAndComesOutAgain) {
  auto* const shelf = new Shelf(4);
  Buffer* const buffer = shelf->Take();
  EXPECT_EQ(shelf->GetReferenceCount(), 2) << "a pooled object keeps its pool";
  buffer->Release();
  EXPECT_EQ(events, "clean return ");
  EXPECT_EQ(buffer->GetReferenceCount(), 1) << "the reference of the pool";
  EXPECT_EQ(shelf->GetReferenceCount(), 1) << "an object in its pool doesn't keep it";
  EXPECT_EQ(shelf->Take(), buffer);
  EXPECT_EQ(shelf->GetReferenceCount(), 2);
  buffer->Release();
  shelf->Release();
  EXPECT_EQ(events, "clean return clean return ~shelf ~buffer ");
}

TEST_F(PoolTest, CleanUpAndReturnRunUnderTheObjectsLockWithOneReference) {
  auto* const shelf = new Shelf(4);
  Buffer* const buffer = shelf->Take();
  buffer->Release();
  EXPECT_TRUE(buffer->heldInCleanUp);
  EXPECT_EQ(buffer->referencesInCleanUp, 1);
  EXPECT_TRUE(shelf->heldInReturn);
  EXPECT_EQ(shelf->poolReferencesInReturn, 2) << "the caller's and that of the call";
  EXPECT_FALSE(buffer->HoldsLock());
  shelf->Release();
}

TEST_F(PoolTest, ObjectThatThePoolDeclinesIsDeleted) {
  auto* const shelf = new Shelf(0);
  shelf->Take()->Release();
  EXPECT_EQ(events, "clean return ~buffer ");
  shelf->Release();
}

TEST_F(PoolTest, LastReferenceToThePoolMayBeThatOfTheReturningObject) {
  auto* const shelf = new Shelf(0);
  Buffer* const buffer = shelf->Take();
  shelf->Release();
  EXPECT_EQ(events, "");
  buffer->Release();
  EXPECT_EQ(events, "clean return ~shelf ~buffer ");
}

// The pool keeps the object, then goes with the reference of the call, and lets the object go.
TEST_F(PoolTest, PoolThatEndsWhileItTakesAnObjectBackReleasesIt) {
  auto* const shelf = new Shelf(1);
  Buffer* const buffer = shelf->Take();
  shelf->Release();
  buffer->Release();
  EXPECT_EQ(events, "clean return ~shelf ~buffer ");
}

TEST_F(PoolTest, ChangingThePoolMovesTheReference) {
  auto* const first = new Shelf(0);
  auto* const second = new Shelf(0);
  Buffer* const buffer = first->Take();
  buffer->SetPool(second);
  EXPECT_EQ(first->GetReferenceCount(), 1);
  EXPECT_EQ(second->GetReferenceCount(), 2);
  buffer->SetPool(second);
  EXPECT_EQ(second->GetReferenceCount(), 2);
  buffer->SetPool(nullptr);
  EXPECT_EQ(second->GetReferenceCount(), 1);
  buffer->Release();
  EXPECT_EQ(events, "~buffer ");
  first->Release();
  second->Release();
}

TEST_F(PoolTest, DefaultCleanUpDoesNothing) {
  struct Plain : CPoolObject {
    Plain() : CPoolObject(0) {}
  };
  auto* const object = new Plain;
  object->ReclaimCleanUp();
  object->Release();
}

}  // namespace Morvalen::Zel
