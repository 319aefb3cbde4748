#include "zel/runtime/object.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/failing_allocation.h"
#include "tests/support/test_object.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

namespace {

using zel::test::FailingAllocation;
using zel::test::TestObject;
using zel::test::virtualSlot;

bool otherThreadGetsIn(TestObject& object) {
  bool entered = false;
  std::thread([&] {
    entered = object.TryEnter();
    if (entered) object.Exit();
  }).join();
  return entered;
}

}  // namespace

TEST(Object, StartsWithOneReferenceAndDiesWithTheLast) {
  auto* const object = new TestObject;
  EXPECT_EQ(object->GetReferenceCount(), 1);
  object->Acquire();
  EXPECT_EQ(object->GetReferenceCount(), 2);
  object->Release();
  EXPECT_EQ(object->GetReferenceCount(), 1);
  EXPECT_EQ(TestObject::live, 1);
  object->Release();
  EXPECT_EQ(TestObject::live, 0) << "the most derived destructor runs";
}

TEST(Object, ConstantObjectsCanBeAcquiredAndReleased) {
  TestObject const* const object = new TestObject;
  object->Acquire();
  object->Release();
  object->Release();
  EXPECT_EQ(TestObject::live, 0);
}

TEST(Object, TagIsFourCharactersReadAsABigEndianNumber) {
  EXPECT_EQ(FourCharacterCode("text"), 0x74657874u);
  EXPECT_EQ(FourCharacterCode("data"), 0x64617461u);
  EXPECT_EQ(FourCharacterCode("li<>"), 0x6C693C3Eu);
}

TEST(Object, AnswersForItsTag) {
  TestObject untagged;
  EXPECT_EQ(untagged.GetType(), 0u);
  EXPECT_TRUE(untagged.IsType(0));
  TestObject object(FourCharacterCode("mp4v"));
  EXPECT_EQ(object.GetType(), 0x6D703476u);
  EXPECT_TRUE(object.IsType(0x6D703476u));
  EXPECT_FALSE(object.IsType(0));
  object.SetType(7);
  EXPECT_TRUE(object.IsType(7));
}

TEST(Object, HashIsTheAddressFoldedByAWrappingSum) {
  TestObject object;
  uint64_t const address = reinterpret_cast<uintptr_t>(static_cast<TestObject::Root*>(&object));
  uint64_t const folded = (address & 0xFFFFFFFFu) + (address >> 32);
  EXPECT_EQ(object.GetHashCode(), static_cast<uint32_t>(folded & 0xFFFFFFFFu));
}

TEST(Object, VirtualOperationsStandInTheirOrder) {
  struct Open : CDependenciesObjectVS2012 {
    static std::array<int, 10> Slots() {
      return {virtualSlot(&Open::IsType),
              virtualSlot(&Open::GetHashCode),
              virtualSlot(&Open::Synchronize),
              virtualSlot(&Open::Enter),
              virtualSlot(&Open::TryEnter),
              virtualSlot(static_cast<bool (Open::*)(int32_t)>(&Open::Wait)),
              virtualSlot(static_cast<bool (Open::*)()>(&Open::Wait)),
              virtualSlot(&Open::Notify),
              virtualSlot(&Open::NotifyAll),
              virtualSlot(&Open::Exit)};
    }
  };
  // The destructor has the first two slots.
  EXPECT_EQ(Open::Slots(), (std::array<int, 10>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
}

TEST(Object, FieldsAreThoseOfTheRootAlone) {
  // Table pointer, tag, count, lock, destroy callback.
  EXPECT_EQ(sizeof(CDependenciesObjectVS2012), 8u + 4 + 4 + 8 + 8);
}

TEST(ObjectRelease, DestroyCallbackThatAddsReferencesKeepsTheObject) {
  auto* const object = new TestObject(0, [](TestObject::Root* dying) {
    dying->Acquire();
    dying->Acquire();
  });
  object->Release();
  EXPECT_EQ(TestObject::live, 1);
  EXPECT_EQ(object->GetReferenceCount(), 2) << "the references that the callback added";
  object->Release();
  object->Release();  // the callback comes again
  EXPECT_EQ(object->GetReferenceCount(), 2);
  delete object;
}

TEST(ObjectRelease, DestroyCallbackThatAddsNothingLetsTheObjectDie) {
  static int calls = 0;
  auto* const object = new TestObject(0, [](TestObject::Root*) { ++calls; });
  object->Acquire();
  object->Release();
  EXPECT_EQ(calls, 0);
  object->Release();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(TestObject::live, 0);
}

TEST(ObjectRelease, DestroyCallbackRunsUnderTheLockWithOneReference) {
  static int references = -1;
  static bool held = false;
  static bool otherIn = true;
  auto* const object = new TestObject(0, [](TestObject::Root* dying) {
    auto* const self = static_cast<TestObject*>(dying);
    references = self->GetReferenceCount();
    held = self->HoldsLock();
    otherIn = otherThreadGetsIn(*self);
  });
  object->Release();
  EXPECT_EQ(references, 1);
  EXPECT_TRUE(held);
  EXPECT_FALSE(otherIn);
  EXPECT_EQ(TestObject::live, 0);
}

TEST(ObjectRelease, GoesThroughTheVirtualEnterAndExit) {
  static std::string calls;
  struct Traced : CDependenciesObjectVS2012 {
    Traced()
        : CDependenciesObjectVS2012(0, [](CDependenciesObjectVS2012*) { calls += "destroy "; }) {}
    ~Traced() override { calls += "~"; }
    int Enter() override {
      calls += "enter ";
      return CDependenciesObjectVS2012::Enter();
    }
    void Exit() override {
      calls += "exit ";
      CDependenciesObjectVS2012::Exit();
    }
  };
  calls.clear();
  (new Traced)->Release();
  EXPECT_EQ(calls, "enter destroy exit ~");
}

TEST(ObjectRelease, AThreadThatHoldsTheLockMayReleaseTheLastReference) {
  auto* const object = new TestObject(0, [](TestObject::Root* dying) { dying->Acquire(); });
  object->Enter();
  object->Release();
  EXPECT_TRUE(object->HoldsLock());
  EXPECT_EQ(object->GetReferenceCount(), 1);
  object->Exit();
  EXPECT_TRUE(otherThreadGetsIn(*object));
  delete object;
}

// The test in Release is for a count not above zero. The object here releases itself once too often
// while its destructor runs, and so while it is still there.
TEST(ObjectRelease, OneTooManyRunsTheDestructionAgain) {
  static int destructions = 0;
  struct Static : CDependenciesObjectVS2012 {
    ~Static() override {
      if (++destructions == 1) Release();
    }
    static void operator delete(void*) {}
    static void* operator new(size_t, void* place) { return place; }
  };
  alignas(Static) static std::byte place[sizeof(Static)];
  CDependenciesObjectVS2012* volatile object = new (place) Static;
  object->Release();
  EXPECT_EQ(destructions, 2);
}

TEST(ObjectLock, ComesIntoBeingAtFirstUseThroughTheVirtualSynchronize) {
  struct Traced : TestObject {
    void Synchronize() override {
      ++calls;
      TestObject::Synchronize();
    }
    int calls = 0;
  };
  using Use = void (*)(Traced&);
  std::array<Use, 7> const firstUses{
      [](Traced& object) { object.Enter(); },  [](Traced& object) { object.TryEnter(); },
      [](Traced& object) { object.Wait(0); },  [](Traced& object) { object.Wait(); },
      [](Traced& object) { object.Notify(); }, [](Traced& object) { object.NotifyAll(); },
      [](Traced& object) { object.Exit(); },
  };
  for (Use const use : firstUses) {
    Traced object;
    EXPECT_FALSE(object.HoldsLock());
    EXPECT_EQ(object.calls, 0);
    use(object);
    EXPECT_EQ(object.calls, 1);
    object.Enter();
    object.Exit();
    EXPECT_EQ(object.calls, 1);
  }
}

TEST(ObjectLock, SynchronizeAgainKeepsTheLock) {
  TestObject object;
  object.Enter();
  object.Synchronize();
  EXPECT_TRUE(object.HoldsLock());
  object.Exit();
}

TEST(AutoLock, HoldsTheLockForItsScope) {
  TestObject object;
  {
    CDependenciesObjectVS2012::CAutoLock const lock(&object);
    EXPECT_TRUE(object.HoldsLock());
    EXPECT_FALSE(otherThreadGetsIn(object));
    {
      CDependenciesObjectVS2012::CAutoLock const again(&object);
      EXPECT_TRUE(object.HoldsLock());
    }
    EXPECT_TRUE(object.HoldsLock());
  }
  EXPECT_FALSE(object.HoldsLock());
  EXPECT_TRUE(otherThreadGetsIn(object));
}

TEST(AutoLock, NullDoesNothing) {
  CDependenciesObjectVS2012* const none = nullptr;
  CDependenciesObjectVS2012::CAutoLock const lock(none);
}

TEST(CreateForLock, MakesABareObjectWithItsLock) {
  CDependenciesObjectVS2012* const object = CDependenciesObjectVS2012::CreateForLock();
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->GetReferenceCount(), 1);
  EXPECT_EQ(object->GetType(), 0u);
  {
    // The lock is there already, so locking works when no memory is left.
    FailingAllocation const failing;
    CDependenciesObjectVS2012::CAutoLock const lock(object);
    EXPECT_EQ(FailingAllocation::failures(), 0);
  }
  object->Release();
}

TEST(ObjectMemory, RefusedForAnObjectGivesNull) {
  TestObject* object;
  CDependenciesObjectVS2012* forLock;
  {
    FailingAllocation const failing;
    object = new TestObject;
    forLock = CDependenciesObjectVS2012::CreateForLock();
  }
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(forLock, nullptr);
  EXPECT_EQ(TestObject::live, 0);
}

TEST(ObjectMemory, RefusedForALockIsReportedAndTriedAgainLater) {
  TestObject object;
  {
    FailingAllocation const failing;
    EXPECT_EQ(object.Enter(), ZelErrorOutOfMemory);
    EXPECT_FALSE(object.TryEnter());
    EXPECT_FALSE(object.Wait(0));
    EXPECT_FALSE(object.Wait());
    EXPECT_EQ(object.Notify(), ZelErrorFailed);
    EXPECT_EQ(object.NotifyAll(), ZelErrorFailed);
    object.Exit();
    CDependenciesObjectVS2012::CAutoLock const lock(&object);
    EXPECT_FALSE(object.HoldsLock());
    EXPECT_GE(FailingAllocation::failures(), 8);
  }
  EXPECT_EQ(object.Enter(), 0);
  EXPECT_TRUE(object.HoldsLock());
  object.Exit();
}

TEST(ObjectMemory, RefusedForTheLockOfADyingObjectStillCallsItsCallback) {
  static int calls = 0;
  auto* const object = new TestObject(0, [](TestObject::Root*) { ++calls; });
  {
    FailingAllocation const failing;
    object->Release();
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(TestObject::live, 0);
}

}  // namespace Morvalen::Zel
