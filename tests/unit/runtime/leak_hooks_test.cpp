// The process's own tracker, and the objects that report to it, or don't: that is chosen when the
// library is built.

#include "zel/runtime/leak_hooks.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/support/debug_lines.h"
#include "tests/support/leak_tracker.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/pool.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {

namespace {

class LeakHooksTest : public testing::Test {
 protected:
  void TearDown() override {
    CLeaks::SetCallback(nullptr);
    Leaks::Mark(Leaks::Off, 0);
  }
  zel::test::DebugLines lines;
};

}  // namespace

static_assert(Leaks::Off == 0 && Leaks::Object == 1 && Leaks::Stack == 2);
static_assert(CLeaks::Off == 0 && CLeaks::Object == 1 && CLeaks::Stack == 2 &&
              CLeaks::ReferenceCountInfo == 3 && CLeaks::ReferenceCountStack == 4);

TEST_F(LeakHooksTest, NoObjectNoLeak) {
  Leaks::Mark(Leaks::Object, 0);
  EXPECT_EQ(Leaks::ShowLeaksSinceMark(), 0);
  EXPECT_EQ(lines.take(),
            "\nNo leaks detected after tracking 0 objects (0 simultaneous object peak).\n");
}

#if !defined(ZEL_LEAK_HOOKS)

TEST_F(LeakHooksTest, WithoutHooksNothingIsRecorded) {
  static_assert(!kLeakHooks);
  CLeaks::Mark(CLeaks::ReferenceCountStack, 0);
  auto* text = new CString("text");
  text->Acquire();
  EXPECT_EQ(CLeaks::ShowLeaksSinceMark(10), 0);
  text->Release();
  text->Release();
  EXPECT_EQ(lines.take(),
            "\nNo leaks detected after tracking 0 objects (0 simultaneous object peak).\n");
}

#else

TEST_F(LeakHooksTest, ALeakedStringIsOneLeak) {
  static_assert(kLeakHooks);
  Leaks::Mark(Leaks::Object, 0);
  auto* text = new CString("text");
  EXPECT_EQ(Leaks::ShowLeaksSinceMark(), 1);
  EXPECT_EQ(lines.take(),
            "\n1 leaks detected from 1 unique backtraces after tracking 1 objects (1 simultaneous "
            "object peak):\n\nLeaked CObject 0x" +
                AddressText(text) + " [text]\n\n");
  text->Release();
  EXPECT_EQ(lines.take(), "") << "tracking is over";
}

TEST_F(LeakHooksTest, ABalancedLifeIsNone) {
  CLeaks::Mark(CLeaks::ReferenceCountStack, 0);
  auto* text = new CString("text");
  text->Acquire();
  text->Release();
  text->Release();
  EXPECT_EQ(Leaks::ShowLeaksSinceMark(), 0);
  EXPECT_EQ(lines.take(),
            "\nNo leaks detected after tracking 1 objects (1 simultaneous object peak).\n");
}

TEST_F(LeakHooksTest, AFilterOfStringsLeavesByteArraysOut) {
  CLeaks::Mark(CLeaks::ReferenceCountInfo, CString::Type);
  auto* bytes = new CByteArray(10);
  auto* text = new CString("text");
  bytes->Acquire();
  bytes->Release();
  bytes->Release();
  EXPECT_EQ(lines.take(), "");
  EXPECT_EQ(Leaks::ShowLeaksSinceMark(), 1);
  text->Release();
}

TEST_F(LeakHooksTest, AnOlderObjectsEndIsLoggedIfItsTagPasses) {
  auto* text = new CString("text");
  auto* bytes = new CByteArray(10);
  const std::string address = AddressText(text);
  Leaks::Mark(Leaks::Object, CString::Type);
  text->Release();
  bytes->Release();
  EXPECT_EQ(lines.take(), "RemoveObject: CObject not tracked 0x" + address + " [text]\n");
}

TEST_F(LeakHooksTest, TheTraceBeginsWithTheObjectsConstructor) {
  Leaks::Mark(Leaks::Stack, 0);
  auto* text = new CString("text");
  EXPECT_EQ(Leaks::ShowLeaksSinceMark(), 1);
  text->Release();
  const std::string report = lines.take();
  const std::string head = "Object created at backtrace:\n";
  const size_t at = report.find(head);
  ASSERT_NE(at, std::string::npos);
  const std::string trace = report.substr(at + head.size());
  EXPECT_EQ(trace.find("Morvalen::Zel::CDependenciesObjectVS2012::CDependenciesObjectVS2012("), 0u)
      << trace;
  EXPECT_NE(trace.find("Morvalen::Zel::CString::CString("), std::string::npos) << trace;
  EXPECT_NE(trace.find("\nmain\n"), std::string::npos) << trace;
}

TEST_F(LeakHooksTest, ReferencesAreFollowed) {
  CLeaks::SetCallback([]() -> char* { return nullptr; });
  CLeaks::Mark(CLeaks::ReferenceCountStack, 0);
  auto* text = new CString("text");
  text->Acquire();
  text->Acquire();
  text->Release();
  EXPECT_EQ(CLeaks::ShowLeaksSinceMark(1), 1);
  EXPECT_NE(lines.take().find("    AMBIGUOUS: 2 reference leaks from 3 possible backtraces\n"
                              "               4 acquire backtrace capacity\n"
                              "               2 acquires, 0 trackable releases, 1 ambiguous "
                              "releases.\n\n"),
            std::string::npos);
  CLeaks::ShowReferenceLeaksSinceMark(10);
  EXPECT_EQ(lines.take(),
            "References leaked and/or possibly leaked from 1 backtraces\n"
            "3 references possibly leaked from backtrace:\n<UKNOWN>\n");
  text->Release();
  text->Release();
}

TEST_F(LeakHooksTest, ATagSetByAConstructorPassesTheFilter) {
  CLeaks::Mark(CLeaks::ReferenceCountInfo, FourCharacterCode("late"));
  auto* object = new TaggedObject(0);
  object->Retag(FourCharacterCode("late"));
  object->Acquire();
  object->Release();
  object->Release();
  EXPECT_EQ(Leaks::ShowLeaksSinceMark(), 0);
  EXPECT_EQ(lines.take(),
            "\nNo leaks detected after tracking 1 objects (1 simultaneous object peak).\n");
}

namespace {

class OneObjectPool;

class Pooled : public CPoolObject {
 public:
  Pooled() : CPoolObject(FourCharacterCode("pool")) {}
  using CPoolObject::Pool;
};

class OneObjectPool : public CPoolBase {
 public:
  ~OneObjectPool() override {
    if (kept != nullptr) kept->Release();
  }
  void ReturnToPool(CPoolObject* object) override {
    object->Acquire();
    kept = object;
  }
  Pooled* Take() {
    auto* object = static_cast<Pooled*>(kept);
    kept = nullptr;
    object->Pool(this);
    return object;
  }
  CPoolObject* kept = nullptr;
};

}  // namespace

TEST_F(LeakHooksTest, AnObjectThatReturnsToItsPoolIsStillTheSame) {
  CLeaks::Mark(CLeaks::ReferenceCountInfo, FourCharacterCode("pool"));
  auto* pool = new OneObjectPool;
  auto* object = new Pooled;
  object->Pool(pool);
  for (int i = 0; i < 3; ++i) {
    object->Acquire();
    object->Release();
    object->Release();  // to the pool
    ASSERT_EQ(pool->kept, object);
    object = pool->Take();
  }
  object->Release();
  EXPECT_EQ(lines.take(), "") << "neither misses nor errors";
  EXPECT_EQ(Leaks::ShowLeaksSinceMark(), 1) << "in the pool";
  EXPECT_NE(lines.take().find("TRACKABLE: 1 reference leaks\n"), std::string::npos);
  pool->Release();
}

TEST_F(LeakHooksTest, ManyThreadsAtOnce) {
  auto* shared = new CString("shared");
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([shared] {
      for (int n = 0; n < 150; ++n) {
        shared->Acquire();
        auto* text = new CString("text");
        auto* object = new TaggedObject(0);
        object->Retag(CString::Type);
        text->Acquire();
        text->Release();
        text->Release();
        object->Release();
        shared->Release();
      }
    });
  }
  for (int round = 0; round < 40; ++round) {
    CLeaks::Mark(round % 5, round % 2 == 0 ? CString::Type : 0);
    std::this_thread::yield();
    CLeaks::ShowReferenceLeaksSinceMark(10);
    CLeaks::ShowLeaksSinceMark(10);
  }
  for (std::thread& thread : threads) thread.join();
  lines.clear();
  shared->Release();
  EXPECT_EQ(lines.take(), "");
}

namespace {

CString* released = nullptr;

// Runs when the process ends, after the tracker's records have been freed.
__attribute__((destructor)) void ReleaseLate() {
  if (released == nullptr) return;
  released->Acquire();
  released->Release();
  released->Release();
  (new CString("later still"))->Release();
}

}  // namespace

TEST(LeakHooksDeathTest, ObjectsMayOutliveTheTracker) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto end = [] {
    CLeaks::Mark(CLeaks::ReferenceCountStack, 0);
    released = new CString("late");
    std::exit(0);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(0), "^$");
}

#endif

}  // namespace Morvalen::Zel
