#include "zel/runtime/process_start.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace Morvalen::Zel {

namespace {

// Taken while this program's static objects are made, behind the library's start.
bool const rootWasInitialized = ProcessStart::RootInitialized();
int const firstRandomNumber = std::rand();

}  // namespace

TEST(ProcessStart, RootIsInitializedBeforeOtherStaticObjects) {
  EXPECT_TRUE(rootWasInitialized);
}

TEST(ProcessStart, RandomNumbersAreSeeded) {
  // A generator that nobody seeded goes as if seeded with 1.
  std::srand(1);
  EXPECT_NE(firstRandomNumber, std::rand());
}

TEST(ProcessStart, RunsOnce) {
  std::srand(5);
  int const expected = std::rand();
  std::srand(5);
  ProcessStart::Run();
  EXPECT_EQ(std::rand(), expected) << "not seeded again";
}

}  // namespace Morvalen::Zel
