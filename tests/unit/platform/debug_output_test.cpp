#include "zel/platform/debug_output.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cinttypes>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "zel/runtime/debug_output.h"

namespace zel::platform {

namespace {

struct Line {
  int level;
  std::string text;
  bool operator==(const Line&) const = default;
};

class Recorder {
 public:
  Recorder() : former_(setDebugSink({write, this})) {}
  ~Recorder() { setDebugSink(former_); }
  std::vector<Line> lines;

 private:
  static void write(void* user, int level, const char* text) {
    static_cast<Recorder*>(user)->lines.push_back({level, text});
  }
  DebugSink former_;
};

}  // namespace

TEST(DebugOutput, FormatsAndHandsOnWithTheLevel) {
  Recorder recorder;
  debugOutput(kDebugWarning, "%s has %d of %" PRId64 "\n", "it", -3,
              std::numeric_limits<int64_t>::min());
  EXPECT_EQ(recorder.lines, (std::vector<Line>{{2, "it has -3 of -9223372036854775808\n"}}));
}

TEST(DebugOutput, AddsNothingToAText) {
  Recorder recorder;
  debugText(kDebugError, "100%s without end");
  debugOutput(kDebugError, "%s", "");
  EXPECT_EQ(recorder.lines, (std::vector<Line>{{1, "100%s without end"}, {1, ""}}));
}

TEST(DebugOutput, LongTextsAreWhole) {
  Recorder recorder;
  for (const size_t size : {1021u, 1022u, 1023u, 1024u, 1025u, 100000u}) {
    const std::string text(size, 'x');
    debugOutput(kDebugInformation, "%s!", text.c_str());
    EXPECT_EQ(recorder.lines.back().text, text + "!");
  }
}

TEST(DebugOutput, AReplacedSinkComesBack) {
  Recorder outer;
  {
    Recorder inner;
    debugText(1, "in");
    EXPECT_EQ(inner.lines.size(), 1u);
  }
  debugText(1, "out");
  EXPECT_EQ(outer.lines, (std::vector<Line>{{1, "out"}}));
}

TEST(DebugOutput, ASinkMayLogAndReplaceItself) {
  static std::vector<std::string> texts;
  texts.clear();
  const DebugSink once = {[](void*, int level, const char* text) {
                            texts.push_back(text);
                            if (level != 1) return;
                            debugText(2, "from the sink");
                            setDebugSink({});
                          },
                          nullptr};
  const DebugSink former = setDebugSink(once);
  debugText(1, "first");
  EXPECT_EQ(texts, (std::vector<std::string>{"first", "from the sink"}));
  debugText(1, "to nobody");
  EXPECT_EQ(texts.size(), 2u);
  setDebugSink(former);
}

TEST(DebugOutput, LevelsOfTheEnvironment) {
  EXPECT_EQ(debugLevelFrom(nullptr), 0);
  EXPECT_EQ(debugLevelFrom(""), 0);
  EXPECT_EQ(debugLevelFrom("0"), 0);
  EXPECT_EQ(debugLevelFrom("-1"), 0);
  EXPECT_EQ(debugLevelFrom("1"), 1);
  EXPECT_EQ(debugLevelFrom("5"), 5);
  EXPECT_EQ(debugLevelFrom("99999999999999999999"), std::numeric_limits<int>::max());
  EXPECT_EQ(debugLevelFrom("yes"), std::numeric_limits<int>::max());
}

// The default sink reads the environment once in a process, so each case gets a process.
class DefaultSink : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  [[noreturn]] static void logAllLevels(const char* environment) {
    if (environment == nullptr) {
      unsetenv("ZEL_DEBUG");
    } else {
      setenv("ZEL_DEBUG", environment, 1);
    }
    setDebugSink({});
    for (const int level : {kDebugError, kDebugWarning, kDebugInformation}) {
      debugOutput(level, "<%d>", level);
    }
    std::exit(debugWanted(kDebugInformation) ? 1 : 0);
  }
};
using DefaultSinkDeathTest = DefaultSink;

TEST_F(DefaultSinkDeathTest, IsSilentWithoutTheVariable) {
  EXPECT_EXIT(logAllLevels(nullptr), testing::ExitedWithCode(0), "^$");
}

TEST_F(DefaultSinkDeathTest, WritesUpToTheLevel) {
  EXPECT_EXIT(logAllLevels("1"), testing::ExitedWithCode(0), "^<1>$");
  EXPECT_EXIT(logAllLevels("4"), testing::ExitedWithCode(0), "^<1><2>$");
  EXPECT_EXIT(logAllLevels("5"), testing::ExitedWithCode(1), "^<1><2><5>$");
}

TEST(DebugOutput, LinesOfManyThreadsDoNotMix) {
  struct Counter {
    int inside = 0;  // not atomic: the output's lock has to guard it
    int lines = 0;
    bool mixed = false;
  } counter;
  const DebugSink former = setDebugSink({[](void* user, int, const char* text) {
                                           auto& c = *static_cast<Counter*>(user);
                                           if (++c.inside != 1) c.mixed = true;
                                           if (std::string(text).size() != 9) c.mixed = true;
                                           ++c.lines;
                                           --c.inside;
                                         },
                                         &counter});
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([i] {
      for (int n = 0; n < 500; ++n) debugOutput(5, "%03d:%04d\n", i, n);
    });
  }
  for (std::thread& thread : threads) thread.join();
  setDebugSink(former);
  EXPECT_EQ(counter.lines, 8 * 500);
  EXPECT_FALSE(counter.mixed);
}

TEST(DebugOutput, AFormerSinkIsOutOfUseWhenReplaced) {
  std::atomic<bool> stop{false};
  std::thread writer([&stop] {
    while (!stop) debugText(5, "line");
  });
  for (int i = 0; i < 200; ++i) {
    auto used = std::make_unique<int>(0);
    setDebugSink({[](void* user, int, const char*) { ++*static_cast<int*>(user); }, used.get()});
    setDebugSink({});
  }  // a call that came late would touch freed memory
  stop = true;
  writer.join();
}

TEST(DebugOutput, ThePublicFaceSharesTheSink) {
  using Face = Morvalen::Zel::DebugOutput;
  std::vector<Line> lines;
  Face::SetSink(
      [](void* user, int32_t level, char const* text) {
        static_cast<std::vector<Line>*>(user)->push_back({level, text});
      },
      &lines);
  Face::Write(Face::Warning, "of the caller\n");
  Face::Write(Face::Warning, nullptr);
  debugOutput(kDebugError, "%s", "of the library\n");
  Face::SetSink(nullptr, nullptr);
  debugOutput(kDebugError, "%s", "after\n");
  EXPECT_EQ(lines, (std::vector<Line>{{2, "of the caller\n"}, {1, "of the library\n"}}));
}

}  // namespace zel::platform
