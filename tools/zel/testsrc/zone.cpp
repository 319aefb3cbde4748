#include <algorithm>
#include <array>
#include <vector>

#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/renderer.h"

// A circular zone plate: the spatial frequency grows in proportion to the distance from the centre,
// so every frequency and every direction is on the picture at once. It stays below the limit of the
// sampling raster everywhere: at the edge farthest from the centre it reaches 0.46 cycles a sample
// (of a field's rows where interlaced), so what beats there is the device under test. The phase
// runs outwards and the centre drifts around, so that all of it moves. Cb and Cr carry wider plates
// of their own, half as fine as their sampling allows.

namespace zel::testsrc {
namespace {

constexpr int kTableBits = 12;
constexpr uint32_t kSharePercent = 46;  // of a cycle a sample

// Cycles a sample times 2^32, from per cent.
constexpr uint64_t phasePerSample(uint64_t percent) {
  return (percent << 32) / 100;
}

// One plate at one instant, over one plane.
struct Plate {
  int64_t centreX = 0;  // in samples of the plane, times 256
  int64_t centreY = 0;
  uint32_t curvature = 0;  // phase = curvature * distance^2
  uint32_t phase = 0;
};

class Zone : public Renderer {
 public:
  explicit Zone(const PictureOptions& options) : options_(options) {
    for (size_t i = 0; i < wave_.size(); ++i) {
      wave_[i] = cosine(static_cast<uint32_t>(i) << (32 - kTableBits));
    }
    levels_.resize(options.width);
    squares_.resize(options.width);
    for (size_t i = 0; i < tables_.size(); ++i) {
      const int mean = i == 0 ? (kBlack + kWhite) / 2 : kNeutral;
      const int amplitude = i == 0 ? (kWhite - kBlack) / 2 : 450;
      for (size_t j = 0; j < wave_.size(); ++j) {
        const int64_t part = (int64_t{wave_[j]} * amplitude + (1 << 29)) >> 30;
        tables_[i][j] = static_cast<int16_t>(mean + part);
      }
    }
  }

  void render(uint64_t frame, const Picture& picture) override {
    for (size_t i = 0; i < picture.planes.size(); ++i) renderPlane(frame, picture, i);
  }

 private:
  void renderPlane(uint64_t frame, const Picture& picture, size_t index) {
    const Plane& plane = picture.planes[index];
    const uint32_t curvature = curvatureOf(picture, index);
    for (int x = 0; x < plane.width; ++x) {
      const auto ux = static_cast<uint32_t>(x);
      squares_[ux] = curvature * ux * ux;  // modulo the whole circle
    }
    for (int y = 0; y < plane.height; ++y) {
      const uint64_t halfFrame = halfFrameOfRow(picture.scan, frame, y);
      renderRow(plateAt(picture, index, halfFrame, curvature), y, plane.width, tables_[index]);
      storeRow(plane, picture.depth, y, levels_.data());
    }
  }

  // The finest plate that stays within the limit at the plane's edges: the frequency at a distance
  // is twice the curvature times the distance.
  uint32_t curvatureOf(const Picture& picture, size_t index) const {
    const Plane& plane = picture.planes[index];
    const bool interlaced = picture.scan != Scan::kProgressive;
    const auto reachX = static_cast<uint64_t>(plane.width) * 9 / 16;
    const auto reachY = static_cast<uint64_t>(plane.height) * 9 / 16 * (interlaced ? 2 : 1);
    const uint64_t reach = std::max(reachX, reachY);
    const uint64_t limit = phasePerSample(index == 0 ? kSharePercent : kSharePercent / 2);
    return static_cast<uint32_t>(limit / (2 * reach));
  }

  Plate plateAt(const Picture& picture, size_t index, uint64_t halfFrame,
                uint32_t curvature) const {
    const Plane& plane = picture.planes[index];
    // Once around in eight seconds, a sixteenth of the picture off its middle; the chroma plates
    // lie a third of a turn apart from it.
    const auto turn = static_cast<uint32_t>(timeOfHalfFrames(options_.rate, halfFrame) << 13) +
                      static_cast<uint32_t>(index) * 0x55555555u;
    Plate plate;
    plate.curvature = curvature;
    plate.centreX = plane.width * 128 + ((int64_t{cosine(turn)} * plane.width) >> 26);
    plate.centreY = plane.height * 128 + ((int64_t{sine(turn)} * plane.height) >> 26);
    // A sixteenth of a cycle a frame, outwards in luma, inwards in chroma.
    const auto run = static_cast<uint32_t>(halfFrame) << 27;
    plate.phase = index == 0 ? uint32_t{0} - run : run;
    return plate;
  }

  // With c the centre and k the curvature, k (x - c)^2 is k x^2 - 2 k c x + k c^2: a table, a step
  // and a start, all modulo 2^32, which is what a phase is.
  void renderRow(const Plate& plate, int y, int width,
                 const std::array<int16_t, 1 << kTableBits>& table) {
    const int64_t k = plate.curvature;
    const int64_t dy = int64_t{y} * 256 - plate.centreY;
    const auto start = static_cast<uint32_t>((k * (plate.centreX * plate.centreX >> 8)) >> 8) +
                       static_cast<uint32_t>((k * (dy * dy >> 8)) >> 8) + plate.phase;
    const auto step = static_cast<uint32_t>((-2 * k * plate.centreX) >> 8);
    for (int x = 0; x < width; ++x) {
      const auto ux = static_cast<uint32_t>(x);
      const uint32_t phase = start + step * ux + squares_[ux];
      levels_[ux] = table[phase >> (32 - kTableBits)];
    }
  }

  PictureOptions options_;
  std::array<int32_t, 1 << kTableBits> wave_;
  std::array<std::array<int16_t, 1 << kTableBits>, 3> tables_;
  std::vector<uint32_t> squares_;
  std::vector<int16_t> levels_;
};

}  // namespace

std::unique_ptr<Renderer> makeZone(const PictureOptions& options) {
  return std::make_unique<Zone>(options);
}

}  // namespace zel::testsrc
