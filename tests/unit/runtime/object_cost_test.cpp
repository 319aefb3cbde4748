// What objects cost: no system call and no lock for making, referring to and releasing them, and
// one allocation for the lock of one that is locked.

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/failing_allocation.h"
#include "tests/support/lock_calls.h"
#include "tests/support/system_calls.h"
#include "tests/support/test_object.h"
#include "zel/platform/event.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/float_array.h"
#include "zel/runtime/string.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEL_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZEL_SANITIZED 1
#endif
#endif

namespace Morvalen::Zel {

namespace {

using zel::platform::Event;
using zel::test::FailingAllocation;
using zel::test::findSystemCalls;
using zel::test::lockCalls;
using zel::test::SystemCalls;
using zel::test::TestObject;

using Work = std::function<void()>;

// Several at once, as in real use, so that they aren't all made of one and the same piece of
// memory.
template <class Make>
Work makeAndRelease(Make make) {
  return [make] {
    for (int round = 0; round < 50; ++round) {
      CDependenciesObjectVS2012* objects[5];
      for (auto*& object : objects) object = make();
      for (auto* const object : objects) {
        object->Acquire();
        object->Release();
        object->Release();
      }
    }
  };
}

unsigned char const kBytes[16] = {};

std::vector<std::pair<char const*, Work>> makings() {
  return {
      {"object", makeAndRelease([] { return new TestObject; })},
      {"narrow string", makeAndRelease([] { return new CString("a narrow text"); })},
      {"wide string", makeAndRelease([] { return new CString(L"a wide text"); })},
      {"empty string", makeAndRelease([] { return new CString; })},
      {"byte array", makeAndRelease([] { return new CByteArray(kBytes, sizeof(kBytes)); })},
      {"lazy byte array", makeAndRelease([] { return new CByteArray(1 << 30); })},
      {"float array", makeAndRelease([] { return new CFloatArray(1 << 28); })},
      {"holder", [] { String const text("held"), copy(text); }},
  };
}

}  // namespace

class SystemCallTest : public testing::Test {
 protected:
  void SetUp() override {
#ifdef ZEL_SANITIZED
    GTEST_SKIP() << "a sanitizer's allocator makes system calls of its own";
#endif
    std::string why;
    SystemCalls const control = findSystemCalls([] { getppid(); }, why);
    if (control == SystemCalls::unknown) GTEST_SKIP() << why;
    ASSERT_EQ(control, SystemCalls::some) << "the filter doesn't notice a system call";
  }
  static void ExpectNone(char const* name, Work const& work) {
    std::string why;
    EXPECT_EQ(findSystemCalls(work, why), SystemCalls::none) << name << ' ' << why;
  }
};

TEST_F(SystemCallTest, MakingAndReleasingObjectsMakesNone) {
  for (auto const& [name, work] : makings()) ExpectNone(name, work);
}

TEST_F(SystemCallTest, LockingWithoutContentionMakesNone) {
  ExpectNone("lock", [] {
    for (int round = 0; round < 50; ++round) {
      TestObject object;
      object.Enter();
      object.TryEnter();
      object.Wait(0);
      object.NotifyAll();
      object.Exit();
      object.Exit();
    }
  });
}

TEST_F(SystemCallTest, EventsThatNobodyWaitsForMakeNone) {
  ExpectNone("event", [] {
    Event automatic(Event::Kind::autoReset), manual(Event::Kind::manualReset);
    Event* const both[] = {&automatic, &manual};
    for (int round = 0; round < 50; ++round) {
      automatic.set();
      manual.set();
      Event::waitAll(both, 0);
      automatic.set();
      automatic.wait();
      Event::waitAny(both);
      manual.reset();
      Event::waitAny(both, 0);
    }
  });
}

TEST(LockCallTest, MakingAndReleasingObjectsTakesNoLock) {
  for (auto const& [name, work] : makings()) {
    work();
    int const before = lockCalls();
    work();
    EXPECT_EQ(lockCalls(), before) << name;
  }
}

TEST(LockCallTest, LockingIsNoticed) {
  TestObject object;
  int const before = lockCalls();
  object.Enter();
  EXPECT_GE(lockCalls(), before + 2) << "the lock that guards the making of locks, and this one";
  int const made = lockCalls();
  object.Enter();
  EXPECT_EQ(lockCalls(), made) << "entered again";
  object.Exit();
  object.Exit();
}

TEST(AllocationTest, ObjectIsOneAllocationAndItsLockAnother) {
  TestObject* object;
  {
    FailingAllocation const one(1);
    object = new TestObject;
    EXPECT_EQ(FailingAllocation::failures(), 0);
  }
  ASSERT_NE(object, nullptr);
  {
    FailingAllocation const one(1);
    EXPECT_EQ(object->Enter(), 0);
    EXPECT_FALSE(object->Wait(0));
    EXPECT_EQ(object->NotifyAll(), 0);
    object->Exit();
    EXPECT_EQ(FailingAllocation::failures(), 0);
  }
  object->Release();
}

}  // namespace Morvalen::Zel
