#pragma once

#include <array>
#include <cstdint>

namespace zel::dnxhd {

/// A filter that makes `phaseCount` samples out of each `advance`. Every phase is a row of taps
/// over neighbouring samples of a line that is extended on both sides.
struct FilterDescription {
  struct Phase {
    uint32_t inputOffset;  // of the first tap's sample in the extended line, from the group's start
    uint32_t tapCount;
    uint32_t tapsAt;  // in `taps`
  };
  uint32_t phaseCount;
  std::array<Phase, 4> phases;
  uint32_t advance;
  uint32_t edge;  // the first sample is repeated so often before the line, the last once more often
  const int16_t* taps;
};

inline constexpr uint32_t kTapShift = 11;  // taps of a phase sum up to 1 << kTapShift

}  // namespace zel::dnxhd
