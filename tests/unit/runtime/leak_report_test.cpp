#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/debug_lines.h"
#include "tests/support/leak_tracker.h"

namespace Morvalen::Zel {

namespace {

char trace[64];

char* GiveTrace() {
  return trace;
}

class LeakReportTest : public testing::Test {
 protected:
  void SetUp() override { tracker.SetCallback(GiveTrace); }

  void Begin(int32_t mode) {
    lines.clear();
    tracker.Begin(mode);
  }
  void At(const char* place) { std::strcpy(trace, place); }
  void Add(const char* place, TaggedObject& object) {
    At(place);
    tracker.Add(&object);
  }
  void Acquire(const char* place, TaggedObject& object) {
    At(place);
    tracker.Acquire(&object);
  }
  std::string End(int32_t limit = 128) {
    lines.clear();
    tracker.End(limit);
    return lines.take();
  }
  std::string References(int32_t limit = 128) {
    lines.clear();
    tracker.ShowReferences(limit);
    return lines.take();
  }
  static std::string Leaked(TaggedObject& object, const char* tag = "test") {
    return "Leaked CObject 0x" + AddressText(&object) + " [" + tag + "]";
  }

  zel::test::DebugLines lines;
  CLeaksTestAccess tracker;
  TaggedObject a, b, c, d;
};

}  // namespace

TEST_F(LeakReportTest, GroupsByTraceInTheTextsOrder) {
  Begin(CLeaks::Stack);
  Add("walk\nmain\n", a);
  Add("talk\nmain\n", b);
  Add("walk\nmain\n", c);
  EXPECT_EQ(End(),
            "\n3 leaks detected from 2 unique backtraces after tracking 3 objects (3 simultaneous "
            "object peak):\n\n" +
                Leaked(b) +
                ". Object created at backtrace:\ntalk\nmain\n\n"
                "2 objects leaked. Objects were created at backtrace:\nwalk\nmain\n\n");
}

TEST_F(LeakReportTest, GroupsWithoutTraces) {
  Begin(CLeaks::Object);
  Add("unused", a);
  Add("unused", b);
  EXPECT_EQ(End(),
            "\n2 leaks detected from 1 unique backtraces after tracking 2 objects (2 simultaneous "
            "object peak):\n\n2 objects leaked.\n\n");
}

TEST_F(LeakReportTest, ALimitCutsTheDetails) {
  Begin(CLeaks::Stack);
  Add("1\n", a);
  Add("2\n", b);
  Add("3\n", c);
  EXPECT_EQ(End(2),
            "\n3 leaks detected from 3 unique backtraces after tracking 3 objects (3 simultaneous "
            "object peak). Details for the first 2 unique backtraces below:\n\n" +
                Leaked(a) + ". Object created at backtrace:\n1\n\n" + Leaked(b) +
                ". Object created at backtrace:\n2\n\n");
  EXPECT_EQ(End(0),
            "\n3 leaks detected from 3 unique backtraces after tracking 3 objects (3 simultaneous "
            "object peak). Details for the first 0 unique backtraces below:\n\n");
  EXPECT_NE(End(3).find("object peak):\n\n"), std::string::npos);
}

TEST_F(LeakReportTest, CreationIsTheOnlyReference) {
  Begin(CLeaks::ReferenceCountInfo);
  Add("1\n", a);
  EXPECT_EQ(End(),
            "\n1 leaks detected from 1 unique backtraces after tracking 1 objects (1 simultaneous "
            "object peak):\n\n" +
                Leaked(a) +
                ". Object created at backtrace:\n1\n"
                "    TRACKABLE: object creation is only leaked reference\n\n"
                "1 objects were trackably leaked in 1 groups and 0 were ambiguously leaked in 0 "
                "groups.\n");
}

TEST_F(LeakReportTest, ReferencesDivideAGroupAndOrderIt) {
  Begin(CLeaks::ReferenceCountInfo);
  // One place; 2, 2, 1 and 0 references left.
  for (TaggedObject* object : {&a, &b, &c, &d}) Add("1\n", *object);
  Acquire("2\n", a);
  Acquire("2\n", b);
  Acquire("2\n", c);
  tracker.Release(&c);
  Acquire("2\n", d);
  tracker.Release(&d);
  tracker.Release(&d);
  const std::string counts0 =
      "               1 acquires, 1 trackable releases, 1 ambiguous releases.\n\n";
  const std::string counts1 =
      "               1 acquires, 0 trackable releases, 1 ambiguous releases.\n\n";
  const std::string counts2 =
      "               1 acquires, 0 trackable releases, 0 ambiguous releases.\n\n";
  EXPECT_EQ(End(),
            "\n4 leaks detected from 3 unique backtraces after tracking 4 objects (4 simultaneous "
            "object peak):\n\n" +
                Leaked(d) + ". Object created at backtrace:\n1\n" +
                "    TRACKABLE: 0 reference leaks\n" + counts0 +  //
                Leaked(c) + ". Object created at backtrace:\n1\n" +
                "    AMBIGUOUS: 1 reference leaks from 2 possible backtraces\n" + counts1 +
                "2 objects leaked. Objects were created at backtrace:\n1\n" +
                "    TRACKABLE: 2 reference leaks\n" + counts2 +
                "3 objects were trackably leaked in 2 groups and 1 were ambiguously leaked in 1 "
                "groups.\n");
}

TEST_F(LeakReportTest, TheRoomOfAcquireTracesIsTold) {
  Begin(CLeaks::ReferenceCountStack);
  Add("1\n", a);
  Acquire("2\n", a);
  Acquire("3\n", a);
  EXPECT_EQ(End(),
            "\n1 leaks detected from 1 unique backtraces after tracking 1 objects (1 simultaneous "
            "object peak):\n\n" +
                Leaked(a) +
                ". Object created at backtrace:\n1\n"
                "    TRACKABLE: 3 reference leaks\n"
                "               4 acquire backtrace capacity\n"
                "               2 acquires, 0 trackable releases, 0 ambiguous releases.\n\n"
                "1 objects were trackably leaked in 1 groups and 0 were ambiguously leaked in 0 "
                "groups.\n");
}

TEST_F(LeakReportTest, AGroupWithoutReferencesSortsFirst) {
  Begin(CLeaks::ReferenceCountInfo);
  Add("1\n", a);
  tracker.SetMode(CLeaks::Stack);
  Add("1\n", b);
  const std::string report = End();
  EXPECT_LT(report.find(Leaked(b)), report.find(Leaked(a)));
}

TEST_F(LeakReportTest, OnlyWhatIsShownIsClassified) {
  Begin(CLeaks::ReferenceCountInfo);
  Add("1\n", a);
  Add("2\n", b);
  EXPECT_NE(End(1).find("1 objects were trackably leaked in 1 groups"), std::string::npos);
  EXPECT_EQ(End(0).find("trackably"), std::string::npos);
}

TEST_F(LeakReportTest, LargeCountsKeepTheirDigits) {
  Begin(CLeaks::ReferenceCountInfo);
  Add("1\n", a);
  auto& info = *tracker.References(&a);
  info.acquires = 18446744073709551615u;
  info.trackableReleases = 5000000000u;
  info.outstanding = 4294967296;
  info.possible = 9223372036854775807;
  info.capacity = 4294967295u;
  EXPECT_NE(
      End().find("    AMBIGUOUS: 4294967296 reference leaks from 9223372036854775807 possible "
                 "backtraces\n               4294967295 acquire backtrace capacity\n"
                 "               18446744073709551615 acquires, 5000000000 trackable "
                 "releases, 0 ambiguous releases.\n\n"),
      std::string::npos);
}

TEST_F(LeakReportTest, WithNoReferenceLeftNothingIsAmbiguous) {
  Begin(CLeaks::ReferenceCountInfo);
  Add("1\n", a);
  auto& info = *tracker.References(&a);
  info.acquires = 2;
  info.outstanding = 0;
  info.possible = 3;
  EXPECT_NE(End().find("    TRACKABLE: 0 reference leaks from 3 possible backtraces\n"),
            std::string::npos);
}

TEST_F(LeakReportTest, ReferencesByPlace) {
  Begin(CLeaks::ReferenceCountStack);
  Add("create\n", a);  // sure: two acquires at two places, none released
  Acquire("here\n", a);
  Acquire("there\n", a);
  Add("make\n", b);  // possible: one release of one of the two
  Acquire("here\n", b);
  tracker.Release(&b);
  EXPECT_EQ(References(),
            "References leaked and/or possibly leaked from 4 backtraces\n"
            "1 references leaked from backtrace:\ncreate\n"
            "1 references leaked and 1 references possibly leaked from backtrace:\nhere\n"
            "1 references possibly leaked from backtrace:\nmake\n"
            "1 references leaked from backtrace:\nthere\n");
  EXPECT_EQ(References(1),
            "References leaked and/or possibly leaked from 4 backtraces\n"
            "1 references leaked from backtrace:\ncreate\n");
}

TEST_F(LeakReportTest, ReferencesOfOnePlaceAreCountedTogether) {
  Begin(CLeaks::ReferenceCountStack);
  for (TaggedObject* object : {&a, &b, &c}) {
    Add("create\n", *object);
    Acquire("take\n", *object);
  }
  EXPECT_EQ(References(),
            "References leaked and/or possibly leaked from 2 backtraces\n"
            "3 references leaked from backtrace:\ncreate\n"
            "3 references leaked from backtrace:\ntake\n");
}

TEST_F(LeakReportTest, AReferenceWithoutATraceIsUnknown) {
  Begin(CLeaks::ReferenceCountStack);
  tracker.SetCallback([]() -> char* { return nullptr; });
  tracker.Add(&a);
  EXPECT_EQ(References(),
            "References leaked and/or possibly leaked from 1 backtraces\n"
            "1 references leaked from backtrace:\n<UKNOWN>\n");
}

TEST_F(LeakReportTest, ReferencesOfNoObjectAreNotWorthALine) {
  Begin(CLeaks::ReferenceCountStack);
  EXPECT_EQ(References(), "");
}

TEST_F(LeakReportTest, FramesCompareBeforeTexts) {
  using Backtrace = CLeaksTestAccess::Backtrace;
  const auto make = [](std::vector<uintptr_t> frames, const char* text) {
    Backtrace backtrace;
    if (!frames.empty()) {
      backtrace.frames = std::make_unique<void*[]>(kBacktraceFrames);
      for (size_t i = 0; i < frames.size(); ++i) {
        backtrace.frames[i] = reinterpret_cast<void*>(frames[i]);
      }
    }
    if (text != nullptr) {
      backtrace.text = std::make_unique<char[]>(std::strlen(text) + 1);
      std::strcpy(backtrace.text.get(), text);
    }
    return backtrace;
  };
  const auto compare = CLeaksTestAccess::Compare;
  const auto match = CLeaksTestAccess::Match;
  const Backtrace none = make({}, nullptr);
  const Backtrace x = make({}, "x");
  const Backtrace y = make({}, "y");
  const Backtrace framesX = make({1, 2}, "x");
  const Backtrace moreFramesX = make({1, 2, 3}, "x");
  const Backtrace framesOnly = make({1, 2}, nullptr);

  EXPECT_EQ(compare(none, none), 0);
  EXPECT_LT(compare(none, x), 0);
  EXPECT_LT(compare(x, y), 0);
  EXPECT_GT(compare(y, x), 0);
  EXPECT_LT(compare(y, framesX), 0);
  EXPECT_LT(compare(framesOnly, framesX), 0);
  EXPECT_LT(compare(framesX, moreFramesX), 0);
  EXPECT_EQ(compare(framesX, framesX), 0);

  EXPECT_TRUE(match(none, none));
  EXPECT_FALSE(match(none, x));
  EXPECT_FALSE(match(x, y));
  EXPECT_TRUE(match(framesX, framesOnly)) << "the same frames will do";
  EXPECT_TRUE(match(framesX, moreFramesX)) << "so will the same text";
  EXPECT_FALSE(match(framesOnly, moreFramesX));
}

}  // namespace Morvalen::Zel
