#include "zel/dnxhd/rate_control/share_pattern.h"

#include <array>

namespace zel::dnxhd {

namespace {

constexpr std::array<uint16_t, 1> kOne = {0};
constexpr std::array<uint16_t, 4> kTwo = {0, 1, 1, 0};
constexpr std::array<uint16_t, 16> kFour = {
    0, 2, 1, 3,  //
    1, 3, 0, 2,  //
    2, 0, 3, 1,  //
    3, 1, 2, 0,
};
constexpr std::array<uint16_t, 128> kEight = {
    0, 4, 0, 4, 1, 5, 1, 5, 2, 6, 2, 6, 3, 7, 3, 7,  //
    1, 5, 1, 5, 2, 6, 2, 6, 3, 7, 3, 7, 0, 4, 0, 4,  //
    2, 6, 2, 6, 3, 7, 3, 7, 0, 4, 0, 4, 1, 5, 1, 5,  //
    3, 7, 3, 7, 0, 4, 0, 4, 1, 5, 1, 5, 2, 6, 2, 6,  //
    4, 0, 4, 0, 5, 1, 5, 1, 6, 2, 6, 2, 7, 3, 7, 3,  //
    5, 1, 5, 1, 6, 2, 6, 2, 7, 3, 7, 3, 4, 0, 4, 0,  //
    6, 2, 6, 2, 7, 3, 7, 3, 4, 0, 4, 0, 5, 1, 5, 1,  //
    7, 3, 7, 3, 4, 0, 4, 0, 5, 1, 5, 1, 6, 2, 6, 2,
};

constexpr std::array<SharePattern, 4> kPatterns = {
    {{1, 1, kOne}, {2, 2, kTwo}, {4, 4, kFour}, {8, 16, kEight}}};

// In every row each column below the number of jobs is the start of exactly one job.
constexpr bool DealsEveryColumnOnce(const SharePattern& pattern) {
  for (uint32_t row = 0; row < pattern.length; ++row) {
    uint32_t seen = 0;
    for (uint32_t job = 0; job < pattern.jobs; ++job) {
      seen |= 1u << pattern.starts[job * pattern.length + row];
    }
    if (seen != (1u << pattern.jobs) - 1) return false;
  }
  return true;
}
static_assert(DealsEveryColumnOnce(kPatterns[0]) && DealsEveryColumnOnce(kPatterns[1]) &&
              DealsEveryColumnOnce(kPatterns[2]) && DealsEveryColumnOnce(kPatterns[3]));

}  // namespace

const SharePattern* FindSharePattern(uint32_t jobs) {
  for (const SharePattern& pattern : kPatterns) {
    if (pattern.jobs == jobs) return &pattern;
  }
  return nullptr;
}

}  // namespace zel::dnxhd
