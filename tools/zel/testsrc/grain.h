#pragma once

// Film grain: a new pattern every frame, coarser than a sample, strongest in the middle tones and
// weak in black and white.

#include <cstdint>
#include <vector>

namespace zel::testsrc {

class Grain {
 public:
  explicit Grain(uint64_t seed);

  /// Adds grain to a row of 12-bit levels. `salt` keeps planes apart; `strength` is 0 to 256, at
  /// which the middle tones get a deviation of about two 8-bit codes.
  void add(uint64_t frame, uint32_t salt, int row, int strength, int count, int16_t* levels) const;

 private:
  uint64_t seed_;
  std::vector<int8_t> pattern_;
};

/// Limits a row of levels to kLowest to kHighest.
void limitLevels(int count, int16_t* levels);

}  // namespace zel::testsrc
