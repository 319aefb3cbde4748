#pragma once

// Which scene is on at which time, and how one gives way to the next.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zel::testsrc {

enum class Transition : uint8_t { kCut, kDissolve, kThroughBlack };

enum class SceneKind : uint8_t { kFlight, kLandscape, kWater, kMatch, kSpeaker };

/// A scene's place in time. Times are seconds times 65536.
struct Shot {
  SceneKind kind = SceneKind::kFlight;
  uint64_t seed = 0;
  int64_t begin = 0;
  int64_t end = 0;
  Transition ending = Transition::kCut;
  int grain = 0;  // 0 to 256
};

/// What an instant shows.
struct Moment {
  size_t shot = 0;
  int nextShare = 0;     // of 256: how much of the next shot shows over it
  int brightness = 256;  // of 256
};

class Storyboard {
 public:
  explicit Storyboard(uint64_t seed) : seed_(seed) {}

  Moment at(int64_t time);
  const Shot& shot(size_t index);

 private:
  void extend();

  uint64_t seed_;
  std::vector<Shot> shots_;
};

}  // namespace zel::testsrc
