#include "tools/zel/suggestion.h"

#include <vector>

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

const std::vector<std::string> kNouns = {"formats", "keys", "hevc", "testsrc"};

TEST(Suggestion, FindsWhatWasMeant) {
  EXPECT_EQ(nearest("format", kNouns), "formats");
  EXPECT_EQ(nearest("hvec", kNouns), "hevc");
  EXPECT_EQ(nearest("testscr", kNouns), "testsrc");
}

TEST(Suggestion, IsSilentWhenNothingIsNear) {
  EXPECT_EQ(nearest("mux", kNouns), "");
  EXPECT_EQ(nearest("", kNouns), "");
  EXPECT_EQ(nearest(std::string(100'000, 'x'), kNouns), "");
  EXPECT_EQ(didYouMean("mux", kNouns), "");
}

TEST(Suggestion, TheNearestWins) {
  EXPECT_EQ(nearest("--preset", std::vector<std::string>{"--present", "--preset", "--reset"}),
            "--preset");
}

TEST(Suggestion, AsksTheUser) {
  EXPECT_EQ(didYouMean("kyes", kNouns), "; did you mean \"keys\"?");
}

}  // namespace
}  // namespace zel::tool
