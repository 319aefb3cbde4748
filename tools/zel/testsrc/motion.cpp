#include <algorithm>
#include <vector>

#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/grain.h"
#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/renderer.h"
#include "tools/zel/testsrc/scene.h"
#include "tools/zel/testsrc/storyboard.h"

// A mix of contents as a channel has it: shots of a few seconds, joined by cuts, dissolves and
// fades; camera moves, textures that turn and zoom, objects that hide one another, and film grain
// that no frame shares with another. Which frame a shot begins with is decided for whole frames;
// within a shot each field has its own instant.

namespace zel::testsrc {
namespace {

class Motion : public Renderer {
 public:
  explicit Motion(const PictureOptions& options)
      : options_(options),
        storyboard_(options.seed),
        materials_(mix64(options.seed, 0x6D6174)),
        grain_(options.seed),
        levels_(options.width),
        next_(options.width) {}

  void render(uint64_t frame, const Picture& picture) override {
    const Moment moment = storyboard_.at(timeOfHalfFrames(options_.rate, 2 * frame));
    if (picture.scan == Scan::kProgressive) {
      renderRows(frame, 2 * frame, moment, picture, 0, 1);
      return;
    }
    for (const int parity : {0, 1}) {
      renderRows(frame, halfFrameOfRow(picture.scan, frame, parity), moment, picture, parity, 2);
    }
  }

 private:
  struct Staged {
    size_t shot = SIZE_MAX;
    std::unique_ptr<Scene> scene;
  };

  Scene& stage(size_t index) {
    Staged& place = staged_[index & 1];
    if (place.shot != index) {
      const Shot& shot = storyboard_.shot(index);
      place.scene = make(shot.kind, {static_cast<int>(options_.width),
                                     static_cast<int>(options_.height), shot.seed, &materials_});
      place.shot = index;
    }
    return *place.scene;
  }

  static std::unique_ptr<Scene> make(SceneKind kind, const SceneSetting& setting) {
    switch (kind) {
      case SceneKind::kFlight:
        return makeFlight(setting);
      case SceneKind::kLandscape:
        return makeLandscape(setting);
      case SceneKind::kWater:
        return makeWater(setting);
      case SceneKind::kMatch:
        return makeMatch(setting);
      case SceneKind::kSpeaker:
        return makeSpeaker(setting);
    }
    return nullptr;
  }

  // A scene that dissolves in begins before its shot does; a second's lead keeps its time positive.
  Scene& stageAt(size_t index, int64_t time) {
    Scene& scene = stage(index);
    scene.goTo(time - storyboard_.shot(index).begin + 65536);
    return scene;
  }

  // Every `stride`th row from `first` on, all of one instant.
  void renderRows(uint64_t frame, uint64_t halfFrame, const Moment& moment, const Picture& picture,
                  int first, int stride) {
    const int64_t time = timeOfHalfFrames(options_.rate, halfFrame);
    Scene& scene = stageAt(moment.shot, time);
    Scene* const next = moment.nextShare > 0 ? &stageAt(moment.shot + 1, time) : nullptr;
    const int grain = storyboard_.shot(moment.shot).grain;
    for (size_t i = 0; i < picture.planes.size(); ++i) {
      const Plane& plane = picture.planes[i];
      RowSpot spot;
      spot.plane = static_cast<int>(i);
      spot.step = i == 0 ? 1 : 1 << picture.horizontalShift;
      spot.count = plane.width;
      const int down = i == 0 ? 0 : picture.verticalShift;
      for (int y = first; y < plane.height; y += stride) {
        // A chroma row of 4:2:0 lies half way between two luma rows of the frame.
        spot.y = (int64_t{y} << down) * 256 + (down != 0 ? 128 : 0);
        scene.paintRow(spot, levels_.data());
        if (next != nullptr) dissolve(*next, spot, moment.nextShare);
        if (moment.brightness < 256) fade(spot, moment.brightness);
        finishRow(frame, grain, picture, i, y);
      }
    }
  }

  void dissolve(Scene& next, const RowSpot& spot, int share) {
    next.paintRow(spot, next_.data());
    for (int i = 0; i < spot.count; ++i) {
      const auto at = static_cast<size_t>(i);
      const int gap = next_[at] - levels_[at];
      levels_[at] = static_cast<int16_t>(levels_[at] + (gap * share >> 8));
    }
  }

  void fade(const RowSpot& spot, int brightness) {
    const int floor = spot.plane == 0 ? kBlack : kNeutral;
    for (int i = 0; i < spot.count; ++i) {
      const auto at = static_cast<size_t>(i);
      levels_[at] = static_cast<int16_t>(floor + ((levels_[at] - floor) * brightness >> 8));
    }
  }

  void finishRow(uint64_t frame, int grain, const Picture& picture, size_t index, int y) {
    const Plane& plane = picture.planes[index];
    limitLevels(plane.width, levels_.data());
    if (grain > 0) {
      // Colour film has grain in every layer, but the eye takes it for luma mostly.
      const int strength = index == 0 ? grain : grain / 3;
      grain_.add(frame, static_cast<uint32_t>(index), y, strength, plane.width, levels_.data());
      limitLevels(plane.width, levels_.data());
    }
    storeRow(plane, picture.depth, y, levels_.data());
  }

  PictureOptions options_;
  Storyboard storyboard_;
  Materials materials_;
  Grain grain_;
  Staged staged_[2];  // by the shot's number, even and odd: a shot and the next are there at once
  std::vector<int16_t> levels_;
  std::vector<int16_t> next_;
};

}  // namespace

std::unique_ptr<Renderer> makeMotion(const PictureOptions& options) {
  return std::make_unique<Motion>(options);
}

}  // namespace zel::testsrc
