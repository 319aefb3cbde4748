#include "zel/base/zero_search.h"

#include <gtest/gtest.h>

#include <hwy/targets.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/seed.h"

namespace zel::base {

namespace {

// Forces one target after the other, and sets things right in the end.
class ZeroSearch : public testing::TestWithParam<int64_t> {
 protected:
  void SetUp() override { force(GetParam()); }
  void TearDown() override { force(0); }

  static void force(int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }

  // Both forms on bytes in memory of their own size, so that an over-read is seen.
  static void compare(const std::vector<uint8_t>& from, uint8_t last) {
    const auto bytes = std::make_unique<uint8_t[]>(from.size());
    std::copy(from.begin(), from.end(), bytes.get());
    const size_t expected = scalarZeroSearch().findZeroZero(bytes.get(), from.size(), last);
    ASSERT_EQ(vectorZeroSearch().findZeroZero(bytes.get(), from.size(), last), expected)
        << from.size() << ' ' << int{last};
  }
};

}  // namespace

TEST(ZeroSearchScalar, FindsTheFirstOfThree) {
  const auto find = scalarZeroSearch().findZeroZero;
  const uint8_t bytes[] = {9, 0, 0, 0, 1, 0, 0, 1, 0, 0, 3};
  EXPECT_EQ(find(bytes, 11, 1), 2u);
  EXPECT_EQ(find(bytes, 11, 3), 8u);
  EXPECT_EQ(find(bytes, 11, 0), 1u);
  EXPECT_EQ(find(bytes, 11, 2), 11u);
  EXPECT_EQ(find(bytes, 4, 1), 4u);
  EXPECT_EQ(find(bytes, 5, 1), 2u);
  for (size_t size = 0; size < 3; ++size) EXPECT_EQ(find(bytes + 1, size, 0), size);
}

TEST_P(ZeroSearch, TheTargetThatWasForcedIsTheOneInUse) {
  EXPECT_EQ(hwy::SupportedTargets(), GetParam());
}

TEST_P(ZeroSearch, EveryPlaceInEverySize) {
  for (size_t size = 0; size < 300; ++size) {
    for (size_t place = 0; place + 3 <= size; ++place) {
      std::vector<uint8_t> bytes(size, 0x5A);
      bytes[place] = bytes[place + 1] = 0;
      bytes[place + 2] = 1;
      ASSERT_NO_FATAL_FAILURE(compare(bytes, 1)) << place;
    }
    ASSERT_NO_FATAL_FAILURE(compare(std::vector<uint8_t>(size, 0), 1));
    ASSERT_NO_FATAL_FAILURE(compare(std::vector<uint8_t>(size, 0), 0));
    ASSERT_NO_FATAL_FAILURE(compare(std::vector<uint8_t>(size, 1), 1));
    ASSERT_NO_FATAL_FAILURE(compare(std::vector<uint8_t>(size, 0xFF), 1));
  }
}

TEST_P(ZeroSearch, RandomBytesNearThePattern) {
  std::mt19937_64 random(test::testSeed());
  for (int round = 0; round < 20000; ++round) {
    std::vector<uint8_t> bytes(random() % 200);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() % 4);
    if (round % 2 == 0) {  // long stretches without a hit
      for (uint8_t& byte : bytes) byte = random() % 3 == 0 ? byte : 0x80;
    }
    ASSERT_NO_FATAL_FAILURE(compare(bytes, static_cast<uint8_t>(random() % 5)));
  }
}

std::vector<int64_t> targets() {
  return hwy::SupportedAndGeneratedTargets();
}

INSTANTIATE_TEST_SUITE_P(Targets, ZeroSearch, testing::ValuesIn(targets()),
                         [](const auto& chosen) { return hwy::TargetName(chosen.param); });

}  // namespace zel::base
