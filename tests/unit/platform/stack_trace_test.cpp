#include "zel/platform/stack_trace.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace zel::platform {

namespace {

std::vector<std::string> namesOf(std::span<void* const> frames) {
  std::vector<std::string> names;
  for (const void* frame : frames) {
    SymbolName name;
    const size_t length = symbolName(frame, name);
    EXPECT_EQ(length, std::string(name.data()).size());
    names.emplace_back(name.data());
  }
  return names;
}

std::vector<std::string> stackHere(const void* innermost = nullptr) {
  std::array<void*, kMaxStackFrames> frames;
  return namesOf(std::span(frames).first(captureStack(frames, innermost)));
}

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

// The work after the call keeps the frame: without it the call would be a jump.
template <typename Call>
__attribute__((noinline)) size_t hiddenFunction(Call call) {
  const size_t result = call();
  asm volatile("" ::: "memory");
  return result;
}

}  // namespace

// External linkage, but neither exported nor in the dynamic table.
__attribute__((noinline)) std::vector<std::string> namedStep(const void* innermost) {
  std::vector<std::string> names = stackHere(innermost);
  asm volatile("" ::: "memory");
  return names;
}

__attribute__((noinline)) std::vector<std::string> stepFromHere() {
  std::vector<std::string> names = namedStep(__builtin_return_address(0));
  asm volatile("" ::: "memory");
  return names;
}

__attribute__((noinline)) size_t recurse(int depth, std::span<void*> frames) {
  const size_t count = depth > 0 ? recurse(depth - 1, frames) : captureStack(frames);
  asm volatile("" ::: "memory");
  return count;
}

TEST(StackTrace, NamesHiddenFunctionsInReadableForm) {
  const std::vector<std::string> names = namedStep(nullptr);
  const auto at = std::find_if(names.begin(), names.end(), [](const std::string& name) {
    return contains(name, "zel::platform::namedStep");
  });
  ASSERT_NE(at, names.end());
  EXPECT_LT(at - names.begin(), 3);
}

TEST(StackTrace, NamesLocalTemplates) {
  std::array<void*, kMaxStackFrames> frames;
  const size_t count = hiddenFunction([&] { return captureStack(frames); });
  const auto names = namesOf(std::span(frames).first(count));
  EXPECT_TRUE(std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return contains(name, "hiddenFunction<");
  }));
}

TEST(StackTrace, ReachesMain) {
  const std::vector<std::string> names = stackHere();
  EXPECT_EQ(std::count(names.begin(), names.end(), "main"), 1);
}

TEST(StackTrace, LeavesOutItself) {
  EXPECT_FALSE(contains(stackHere().at(0), "captureStack"));
}

TEST(StackTrace, StartsAtTheFrameAskedFor) {
  const std::vector<std::string> names = stepFromHere();
  ASSERT_FALSE(names.empty());
  EXPECT_TRUE(contains(names[0], "StartsAtTheFrameAskedFor")) << names[0];
}

TEST(StackTrace, KeepsAllWhenTheFrameAskedForIsNotThere) {
  int elsewhere = 0;
  EXPECT_EQ(namedStep(&elsewhere).size(), namedStep(nullptr).size());
}

TEST(StackTrace, StopsAtTheRoomGiven) {
  std::array<void*, 200> frames;
  EXPECT_EQ(recurse(150, frames), kMaxStackFrames);
  EXPECT_EQ(recurse(150, std::span(frames).first(5)), 5u);
  EXPECT_EQ(recurse(0, std::span(frames).first(0)), 0u);
}

TEST(StackTrace, NamesExportedFunctionsOfOtherModules) {
  void* printer = dlsym(RTLD_DEFAULT, "dlclose");
  ASSERT_NE(printer, nullptr);
  SymbolName name;
  symbolName(static_cast<char*>(printer) + 1, name);
  // Whichever alias the library's table prefers, it's a name and not an offset.
  EXPECT_TRUE(contains(name.data(), "dlclose") || !contains(name.data(), "+0x")) << name.data();
}

TEST(StackTrace, GivesModuleAndOffsetWhereThereIsNoName) {
  // The headers of the program lie before its first function.
  Dl_info info;
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&stackHere), &info), 0);
  SymbolName name;
  symbolName(static_cast<char*>(info.dli_fbase) + 17, name);
  EXPECT_STREQ(name.data(), "exe+0x10");
}

TEST(StackTrace, GivesTheBareAddressOutsideEveryModule) {
  SymbolName name;
  EXPECT_EQ(symbolName(reinterpret_cast<void*>(0x1001), name), 6u);
  EXPECT_STREQ(name.data(), "0x1000");
}

// A name of 300 and more characters.
template <int A, int B>
struct LongName {};
template <typename... T>
__attribute__((noinline)) size_t longNamed(std::span<void*> frames, T...) {
  const size_t count = captureStack(frames);
  asm volatile("" ::: "memory");
  return count;
}

TEST(StackTrace, CutsLongNames) {
  std::array<void*, kMaxStackFrames> frames;
  using Long = LongName<1234567890, 1234567890>;
  const size_t count =
      longNamed(frames, Long(), LongName<1, 1234567890>(), LongName<2, 1234567890>(),
                LongName<3, 1234567890>(), LongName<4, 1234567890>());
  ASSERT_GT(count, 0u);
  SymbolName name;
  EXPECT_EQ(symbolName(frames[0], name), kMaxSymbolName) << name.data();
  EXPECT_TRUE(contains(name.data(), "longNamed")) << name.data();
}

TEST(StackTrace, SurvivesModulesThatComeAndGo) {
  const std::vector<std::string> before = stackHere();
  void* module = dlopen("libutil.so.1", RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) GTEST_SKIP() << "no library to load here";
  const std::vector<std::string> during = stackHere();
  dlclose(module);
  const std::vector<std::string> after = stackHere();
  EXPECT_EQ(std::count(during.begin(), during.end(), "main"), 1);
  EXPECT_EQ(before.size(), during.size());
  EXPECT_EQ(during.back(), after.back());
}

TEST(StackTrace, ThreadsCaptureAndNameAtOnce) {
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&wrong] {
      for (int n = 0; n < 50; ++n) {
        const auto names = namedStep(nullptr);
        const bool found = std::any_of(names.begin(), names.end(), [](const std::string& name) {
          return contains(name, "namedStep");
        });
        if (!found) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace zel::platform
