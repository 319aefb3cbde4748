#include "zel/runtime/leaks.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/debug_lines.h"
#include "tests/support/leak_tracker.h"
#include "tests/support/seed.h"

namespace Morvalen::Zel {

namespace {

constexpr uint32_t kOther = FourCharacterCode("else");

class LeaksTest : public testing::Test {
 protected:
  zel::test::DebugLines lines;
  CLeaksTestAccess tracker;
};

char* NoTrace() {
  return nullptr;
}

char* SameBufferAgain() {
  static char buffer[16];
  static int calls = 0;
  std::snprintf(buffer, sizeof buffer, "call %d\n", ++calls % 100);
  return buffer;
}

}  // namespace

TEST_F(LeaksTest, OffAtFirstAndRecordsNothing) {
  TaggedObject object;
  EXPECT_EQ(tracker.Mode(), CLeaks::Off);
  tracker.Add(&object);
  tracker.Acquire(&object);
  tracker.Release(&object);
  tracker.Remove(&object);
  EXPECT_EQ(tracker.Count(), 0u);
  EXPECT_EQ(lines.take(), "");
}

TEST_F(LeaksTest, ALiveObjectIsOneLeak) {
  tracker.Begin(CLeaks::Object);
  TaggedObject object;
  tracker.Add(&object);
  EXPECT_EQ(tracker.End(), 1);
  EXPECT_EQ(lines.levels(), (std::vector<int>{5, 5, 5}));
  EXPECT_EQ(lines.take(),
            "\n1 leaks detected from 1 unique backtraces after tracking 1 objects (1 simultaneous "
            "object peak):\n\nLeaked CObject 0x" +
                AddressText(&object) + " [test]\n\n");
  EXPECT_EQ(tracker.Mode(), CLeaks::Off);
}

TEST_F(LeaksTest, NothingLivesAtTheEnd) {
  tracker.Begin(CLeaks::Object);
  TaggedObject objects[3];
  for (TaggedObject& object : objects) tracker.Add(&object);
  for (TaggedObject& object : objects) tracker.Remove(&object);
  tracker.Add(&objects[0]);
  tracker.Remove(&objects[0]);
  EXPECT_EQ(tracker.End(), 0);
  EXPECT_EQ(lines.take(),
            "\nNo leaks detected after tracking 4 objects (3 simultaneous object peak).\n");
}

TEST_F(LeaksTest, NullIsNoObject) {
  tracker.Begin(CLeaks::ReferenceCountStack);
  tracker.Add(nullptr);
  tracker.Remove(nullptr);
  tracker.Acquire(nullptr);
  tracker.Release(nullptr);
  EXPECT_EQ(tracker.Count(), 0u);
  EXPECT_EQ(lines.take(), "");
}

TEST_F(LeaksTest, AFilterKeepsOtherTagsOutAndSilent) {
  tracker.Begin(CLeaks::ReferenceCountInfo, TaggedObject::Type);
  TaggedObject wanted;
  TaggedObject other(kOther);
  for (TaggedObject* object : {&wanted, &other}) {
    tracker.Add(object);
    tracker.Acquire(object);
    tracker.Release(object);
  }
  EXPECT_EQ(tracker.Count(), 1u);
  EXPECT_NE(tracker.Find(&wanted), nullptr);
  EXPECT_EQ(tracker.Find(&other), nullptr);
  tracker.Remove(&other);
  tracker.Remove(&wanted);
  EXPECT_EQ(lines.take(), "");
}

TEST_F(LeaksTest, AnOlderObjectsEndIsAMiss) {
  TaggedObject object;
  tracker.Begin(CLeaks::Object, TaggedObject::Type);
  tracker.Remove(&object);
  EXPECT_EQ(lines.levels(), (std::vector<int>{5}));
  EXPECT_EQ(lines.take(),
            "RemoveObject: CObject not tracked 0x" + AddressText(&object) + " [test]\n");
  EXPECT_EQ(tracker.RemoveLookups(), 1u);
  EXPECT_EQ(tracker.RemoveProbes(), 1021u) << "a miss goes all the way round";
}

TEST_F(LeaksTest, MissLinesEscapeTheTag) {
  TaggedObject object(0x25200041);
  tracker.Begin(CLeaks::Object);
  tracker.Remove(&object);
  EXPECT_EQ(lines.take(),
            "RemoveObject: CObject not tracked 0x" + AddressText(&object) + " [%25%20%00A]\n");
}

TEST_F(LeaksTest, ReferencesOfAnOlderObjectAreMisses) {
  TaggedObject object;
  tracker.Begin(CLeaks::ReferenceCountInfo);
  tracker.Acquire(&object);
  EXPECT_EQ(lines.take(),
            "AddObjectReference: CObject not tracked 0x" + AddressText(&object) + " [test]\n");
  tracker.Release(&object);
  EXPECT_EQ(lines.take(),
            "RemoveObjectReference: CObject not tracked 0x" + AddressText(&object) + " [test]\n");
  EXPECT_EQ(tracker.AddReferenceLookups(), 1u);
  EXPECT_EQ(tracker.RemoveReferenceLookups(), 1u);
}

TEST_F(LeaksTest, ReferencesCountFromModeThreeOn) {
  TaggedObject object;
  for (const int32_t mode : {CLeaks::Object, CLeaks::Stack}) {
    tracker.Begin(mode);
    tracker.Acquire(&object);  // not even a miss
    tracker.Release(&object);
    tracker.Add(&object);
    EXPECT_EQ(tracker.References(&object), nullptr);
  }
  tracker.Begin(CLeaks::ReferenceCountInfo);
  tracker.Add(&object);
  ASSERT_NE(tracker.References(&object), nullptr);
  EXPECT_EQ(tracker.References(&object)->capacity, 0u);
  EXPECT_EQ(tracker.Find(&object)->backtrace.text.get() != nullptr, true);
  EXPECT_EQ(lines.take(), "");
}

TEST_F(LeaksTest, TwoAcquiresAndOneReleaseAreAmbiguous) {
  tracker.Begin(CLeaks::ReferenceCountInfo);
  TaggedObject object;
  tracker.Add(&object);
  tracker.Acquire(&object);
  tracker.Acquire(&object);
  tracker.Release(&object);
  const auto& info = *tracker.References(&object);
  EXPECT_EQ(info.outstanding, 2);
  EXPECT_EQ(info.possible, 3);
  EXPECT_EQ(info.acquires, 2u);
  EXPECT_EQ(info.ambiguousReleases, 1u);
  EXPECT_EQ(info.trackableReleases, 0u);
  tracker.SetCallback(nullptr);
  lines.clear();
  tracker.End();
  EXPECT_NE(lines.take().find("    AMBIGUOUS: 2 reference leaks from 3 possible backtraces\n"
                              "               2 acquires, 0 trackable releases, 1 ambiguous "
                              "releases.\n\n"),
            std::string::npos);
}

TEST_F(LeaksTest, TheLastReleaseClosesTheBooks) {
  tracker.SetCallback(SameBufferAgain);
  tracker.Begin(CLeaks::ReferenceCountStack);
  TaggedObject object;
  tracker.Add(&object);
  tracker.Acquire(&object);
  tracker.Release(&object);
  tracker.Release(&object);
  const auto& info = *tracker.References(&object);
  EXPECT_EQ(info.outstanding, 0);
  EXPECT_EQ(info.possible, 0);
  EXPECT_EQ(info.acquires, 1u);
  EXPECT_EQ(info.ambiguousReleases, 1u);
  EXPECT_EQ(info.trackableReleases, 1u);
  EXPECT_EQ(info.count, 0u);
  EXPECT_EQ(info.capacity, 2u);
  EXPECT_EQ(info.backtraces[0].text, nullptr);
  // Somebody, a pool for one, takes it up again: a new page.
  tracker.Acquire(&object);
  EXPECT_EQ(info.outstanding, 1);
  EXPECT_EQ(info.possible, 1);
  EXPECT_EQ(info.count, 1u);
  EXPECT_EQ(lines.take(), "");
}

TEST_F(LeaksTest, AReleaseTooManyIsAnError) {
  tracker.Begin(CLeaks::ReferenceCountInfo);
  TaggedObject object;
  tracker.Add(&object);
  tracker.Release(&object);
  tracker.Release(&object);
  EXPECT_EQ(lines.levels(), (std::vector<int>{1}));
  EXPECT_EQ(lines.take(),
            "CLeaks::RemoveObjectReference: object does not have an undecided reference to "
            "release\n");
}

TEST_F(LeaksTest, MissingReferenceInfoIsAnError) {
  tracker.Begin(CLeaks::Object);
  TaggedObject object;
  tracker.Add(&object);
  tracker.SetMode(CLeaks::ReferenceCountInfo);
  tracker.Acquire(&object);
  tracker.Release(&object);
  EXPECT_EQ(lines.levels(), (std::vector<int>{1, 1}));
  EXPECT_EQ(lines.take(),
            "CLeaks::AddObjectReference: ReferenceInfo pointer is NULL\n"
            "CLeaks::RemoveObjectReference: ReferenceInfo pointer is NULL\n");
}

TEST_F(LeaksTest, AcquireTracesDoubleTheirRoom) {
  tracker.SetCallback(SameBufferAgain);
  tracker.Begin(CLeaks::ReferenceCountStack);
  TaggedObject object;
  tracker.Add(&object);
  const auto& info = *tracker.References(&object);
  EXPECT_EQ(info.count, 1u);
  EXPECT_EQ(info.capacity, 1u);
  uint32_t capacity = 1;
  for (uint32_t count = 2; count <= 40; ++count) {
    tracker.Acquire(&object);
    if (count > capacity) capacity *= 2;
    EXPECT_EQ(info.count, count);
    EXPECT_EQ(info.capacity, capacity);
  }
  for (uint32_t i = 1; i < info.count; ++i) {
    EXPECT_STRNE(info.backtraces[i].text.get(), info.backtraces[i - 1].text.get());
  }
}

TEST_F(LeaksTest, TheCallbacksTextIsTheTrace) {
  tracker.SetCallback(SameBufferAgain);
  tracker.Begin(CLeaks::Stack);
  TaggedObject first;
  TaggedObject second;
  tracker.Add(&first);
  const std::string kept = tracker.Trace(&first);
  tracker.Add(&second);
  EXPECT_EQ(kept.substr(0, 5), "call ");
  EXPECT_EQ(tracker.Trace(&first), kept) << "a copy, since the callback's buffer changed";
  EXPECT_NE(tracker.Trace(&second), kept);
}

TEST_F(LeaksTest, ACallbackMayHaveNoTrace) {
  tracker.SetCallback(NoTrace);
  tracker.Begin(CLeaks::Stack);
  TaggedObject object;
  tracker.Add(&object);
  tracker.End();
  EXPECT_NE(lines.take().find("Leaked CObject 0x" + AddressText(&object) + " [test]\n\n"),
            std::string::npos);
}

namespace {

CLeaksTestAccess* reentered = nullptr;
TaggedObject* ofTheCallback = nullptr;

char* TraceThatUsesObjects() {
  reentered->Add(ofTheCallback);
  reentered->Acquire(ofTheCallback);
  reentered->Release(ofTheCallback);
  reentered->Remove(ofTheCallback);
  reentered->Begin(CLeaks::Object);
  EXPECT_EQ(reentered->End(), 0);
  static char text[] = "from the callback\n";
  return text;
}

}  // namespace

TEST_F(LeaksTest, ACallbacksOwnObjectsAreLeftAlone) {
  TaggedObject object;
  TaggedObject inside;
  reentered = &tracker;
  ofTheCallback = &inside;
  tracker.SetCallback(TraceThatUsesObjects);
  tracker.Begin(CLeaks::ReferenceCountStack);
  tracker.Add(&object);
  tracker.Acquire(&object);
  EXPECT_EQ(tracker.Count(), 1u);
  EXPECT_EQ(tracker.Mode(), CLeaks::ReferenceCountStack);
  EXPECT_EQ(tracker.Trace(&object), "from the callback\n");
  EXPECT_EQ(lines.take(), "");
}

// What a frame's name costs to look for: the function below is the caller that a trace begins with.
__attribute__((noinline)) void CreationPlace(CLeaksTestAccess& tracker, TaggedObject& object) {
  tracker.Add(&object);
  asm volatile("" ::: "memory");
}

TEST_F(LeaksTest, ABuiltInTraceGoesFromTheCallerToMain) {
  tracker.Begin(CLeaks::Stack);
  TaggedObject object;
  CreationPlace(tracker, object);
  const std::string trace = tracker.Trace(&object);
  EXPECT_NE(trace.find("CreationPlace"), std::string::npos) << trace;
  EXPECT_EQ(trace.find("AddObject"), std::string::npos) << trace;
  EXPECT_EQ(trace.find("captureStack"), std::string::npos) << trace;
  ASSERT_GT(trace.size(), 6u);
  EXPECT_EQ(trace.substr(trace.size() - 6), "\nmain\n") << trace;
}

namespace {

__attribute__((noinline)) void AddDeepDown(CLeaksTestAccess& tracker, TaggedObject& object,
                                           int depth) {
  if (depth > 0) {
    AddDeepDown(tracker, object, depth - 1);
  } else {
    tracker.Add(&object);
  }
  asm volatile("" ::: "memory");
}

}  // namespace

TEST_F(LeaksTest, ATraceHas128FramesAtMost) {
  tracker.Begin(CLeaks::Stack);
  TaggedObject object;
  AddDeepDown(tracker, object, 300);
  const std::string trace = tracker.Trace(&object);
  EXPECT_EQ(std::count(trace.begin(), trace.end(), '\n'), 128);
}

TEST_F(LeaksTest, TheTableGrowsWithTheObjectThatPassesThreeQuarters) {
  std::deque<TaggedObject> objects(4000);
  tracker.Begin(CLeaks::Object);
  EXPECT_EQ(tracker.TableSize(), 1021u);
  uint32_t count = 0;
  const auto addUpTo = [&](uint32_t total) {
    while (count < total) tracker.Add(&objects[count++]);
  };
  addUpTo(765);
  EXPECT_EQ(tracker.TableSize(), 1021u);
  EXPECT_EQ(tracker.AddLookups(), 765u);
  EXPECT_GE(tracker.AddProbes(), 765u);
  addUpTo(766);
  EXPECT_EQ(tracker.TableSize(), 2053u);
  EXPECT_EQ(tracker.AddLookups(), 1u) << "the statistics begin anew, with this object";
  addUpTo(800);
  EXPECT_EQ(tracker.TableSize(), 2053u);
  EXPECT_EQ(tracker.AddLookups(), 35u);
  addUpTo(1539);
  EXPECT_EQ(tracker.TableSize(), 2053u);
  addUpTo(1540);
  EXPECT_EQ(tracker.TableSize(), 4111u);
  addUpTo(3083);
  EXPECT_EQ(tracker.TableSize(), 4111u);
  addUpTo(3084);
  EXPECT_EQ(tracker.TableSize(), 8231u);
  for (uint32_t i = 0; i < count; ++i) ASSERT_NE(tracker.Find(&objects[i]), nullptr) << i;
}

TEST_F(LeaksTest, TheTableShrinksBelowAFifth) {
  std::deque<TaggedObject> objects(800);
  tracker.Begin(CLeaks::Object);
  for (TaggedObject& object : objects) tracker.Add(&object);
  uint32_t left = 800;
  while (left > 411) tracker.Remove(&objects[--left]);
  EXPECT_EQ(tracker.TableSize(), 2053u);
  EXPECT_EQ(tracker.RemoveLookups(), 389u);
  tracker.Remove(&objects[--left]);
  EXPECT_EQ(left, 410u);
  EXPECT_EQ(tracker.TableSize(), 1021u);
  EXPECT_EQ(tracker.RemoveLookups(), 0u);
  for (uint32_t i = 0; i < left; ++i) ASSERT_NE(tracker.Find(&objects[i]), nullptr) << i;
  while (left > 0) tracker.Remove(&objects[--left]);
  EXPECT_EQ(tracker.TableSize(), 1021u) << "the first size is the smallest";
  EXPECT_EQ(lines.take(), "");
}

TEST_F(LeaksTest, AgreesWithASetOverRandomLives) {
  std::mt19937_64 random(zel::test::testSeed());
  std::vector<std::unique_ptr<TaggedObject>> objects;
  for (int i = 0; i < 5000; ++i) objects.push_back(std::make_unique<TaggedObject>());
  std::vector<bool> alive(objects.size(), false);
  uint32_t count = 0;
  uint32_t peak = 0;
  uint64_t tracked = 0;
  tracker.Begin(CLeaks::ReferenceCountInfo);
  for (int round = 0; round < 40; ++round) {
    // Rounds of mostly births and rounds of mostly deaths, so that the table grows and shrinks.
    const unsigned births = round % 8 < 4 ? 80 : 20;
    for (int i = 0; i < 1500; ++i) {
      const size_t at = random() % objects.size();
      const bool birth = random() % 100 < births;
      if (birth == alive[at]) continue;
      if (birth) {
        tracker.Add(objects[at].get());
        tracker.References(objects[at].get())->acquires = at;
        ++count;
        ++tracked;
      } else {
        tracker.Remove(objects[at].get());
        --count;
      }
      alive[at] = birth;
      peak = std::max(peak, count);
      ASSERT_EQ(tracker.Count(), count);
    }
    for (size_t at = 0; at < objects.size(); at += 37) {
      const auto* info = tracker.References(objects[at].get());
      ASSERT_EQ(info != nullptr, alive[at]);
      ASSERT_TRUE(info == nullptr || info->acquires == at) << "its own data moved with it";
    }
    ASSERT_LE(tracker.Count(), tracker.TableSize() * 3 / 4);
  }
  EXPECT_EQ(tracker.Peak(), peak);
  EXPECT_EQ(tracker.Tracked(), tracked);
  EXPECT_EQ(tracker.End(), static_cast<int>(count));
}

TEST_F(LeaksTest, BeginForgetsWhatWas) {
  std::deque<TaggedObject> objects(800);
  tracker.Begin(CLeaks::ReferenceCountInfo);
  for (TaggedObject& object : objects) tracker.Add(&object);
  tracker.Begin(CLeaks::Object);
  EXPECT_EQ(tracker.Count(), 0u);
  EXPECT_EQ(tracker.TableSize(), 1021u);
  EXPECT_EQ(tracker.Tracked(), 0u);
  EXPECT_EQ(tracker.Peak(), 0u);
  EXPECT_EQ(tracker.AddLookups(), 0u);
  EXPECT_EQ(tracker.End(), 0);
}

TEST_F(LeaksTest, AReportAfterTheObjectsAreGoneTouchesThemNoMore) {
  tracker.Begin(CLeaks::Object);
  auto object = std::make_unique<TaggedObject>();
  tracker.Add(object.get());
  EXPECT_EQ(tracker.End(), 1);
  const std::string report = lines.take();
  object.reset();  // unseen, since tracking is off
  EXPECT_EQ(tracker.End(), 1);
  EXPECT_EQ(lines.take(), report);
}

TEST_F(LeaksTest, ATagThatComesLateIsTheOneThatCounts) {
  TaggedObject object(0);
  tracker.Begin(CLeaks::Object, TaggedObject::Type);
  tracker.Add(&object);
  EXPECT_EQ(tracker.Count(), 0u);
  object.Retag(TaggedObject::Type);
  tracker.Retype(&object, 0);
  EXPECT_EQ(tracker.Count(), 1u);
  object.Retag(kOther);
  tracker.Retype(&object, TaggedObject::Type);
  EXPECT_EQ(tracker.Count(), 0u);
  object.Retag(0);
  tracker.Retype(&object, kOther);
  EXPECT_EQ(tracker.Count(), 0u);

  tracker.Begin(CLeaks::Object);
  tracker.Retype(&object, kOther);
  EXPECT_EQ(tracker.Count(), 0u) << "an older object stays untracked";
  tracker.Add(&object);
  object.Retag(kOther);
  tracker.Retype(&object, 0);
  lines.clear();
  tracker.End();
  EXPECT_NE(lines.take().find("[else]"), std::string::npos);
}

// A sink that waits for another thread, which is inside the tracker: with the tracker's lock held
// over the call neither would come to an end.
TEST_F(LeaksTest, LinesAreLoggedWithoutTheTrackersLock) {
  TaggedObject older;
  TaggedObject leaked;
  TaggedObject ofTheSink;
  struct Context {
    CLeaksTestAccess& tracker;
    TaggedObject& object;
    int calls = 0;
  } context{tracker, ofTheSink};
  tracker.Begin(CLeaks::Object);
  tracker.Add(&leaked);
  const auto former = zel::platform::setDebugSink({[](void* user, int, const char*) {
                                                     auto& c = *static_cast<Context*>(user);
                                                     ++c.calls;
                                                     std::thread([&c] {
                                                       c.tracker.Add(&c.object);
                                                       c.tracker.Remove(&c.object);
                                                     }).join();
                                                   },
                                                   &context});
  tracker.Remove(&older);
  EXPECT_EQ(tracker.End(), 1);
  zel::platform::setDebugSink(former);
  EXPECT_EQ(context.calls, 4);
}

TEST_F(LeaksTest, ManyThreadsAtOnce) {
  tracker.Begin(CLeaks::ReferenceCountStack);
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([this] {
      for (int n = 0; n < 60; ++n) {
        std::deque<TaggedObject> objects(20);
        for (TaggedObject& object : objects) tracker.Add(&object);
        for (TaggedObject& object : objects) tracker.Acquire(&object);
        for (TaggedObject& object : objects) tracker.Release(&object);
        for (TaggedObject& object : objects) tracker.Remove(&object);
      }
    });
  }
  for (int round = 0; round < 60; ++round) {
    tracker.Begin(round % 5, round % 3 == 0 ? TaggedObject::Type : 0);
    std::this_thread::yield();
    tracker.ShowReferences();
    tracker.End();
  }
  for (std::thread& thread : threads) thread.join();
  tracker.Begin(CLeaks::Object);
  EXPECT_EQ(tracker.End(), 0);
}

}  // namespace Morvalen::Zel
