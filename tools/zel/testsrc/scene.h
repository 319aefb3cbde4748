#pragma once

// What the moving pictures show for some seconds. A scene is a function of its seed and the time.

#include <array>
#include <cstdint>
#include <memory>

#include "tools/zel/testsrc/material.h"
#include "tools/zel/testsrc/sprite.h"

namespace zel::testsrc {

/// The materials of one run, each made when it is first asked for.
class Materials {
 public:
  explicit Materials(uint64_t seed) : seed_(seed) {}
  const Material& get(Surface surface);

 private:
  uint64_t seed_;
  std::array<std::unique_ptr<Material>, kSurfaces> made_;
};

struct SceneSetting {
  int width = 0;
  int height = 0;
  uint64_t seed = 0;
  Materials* materials = nullptr;
};

class Scene {
 public:
  virtual ~Scene() = default;

  /// Goes to an instant: seconds since the scene's start times 65536, not negative.
  virtual void goTo(int64_t time) = 0;

  /// Paints a whole row at that instant.
  virtual void paintRow(const RowSpot& spot, int16_t* levels) = 0;
};

/// A camera that pans, turns and zooms above a surface, and things that fly between.
std::unique_ptr<Scene> makeFlight(const SceneSetting& setting);
/// Ranges of hills that pass at different speeds below moving clouds.
std::unique_ptr<Scene> makeLandscape(const SceneSetting& setting);
/// Water: everything moves, nothing moves alike.
std::unique_ptr<Scene> makeWater(const SceneSetting& setting);
/// A playing field with many small players who cross one another.
std::unique_ptr<Scene> makeMatch(const SceneSetting& setting);
/// A speaker before a soft background: little motion.
std::unique_ptr<Scene> makeSpeaker(const SceneSetting& setting);

}  // namespace zel::testsrc
