#include <algorithm>
#include <vector>

#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/scene.h"

// The scenes whose background moves as a whole: a flight, a landscape, water.

namespace zel::testsrc {
namespace {

// Sizes and speeds are meant for a picture of 1280 columns; times 256.
int64_t scaledTo(int width, int64_t columns) {
  return columns * width / 5;
}

Colour drawTone(Draws& draws, int low, int high) {
  return {static_cast<int16_t>(draws.between(low, high)),
          static_cast<int16_t>(kNeutral + draws.between(-500, 500)),
          static_cast<int16_t>(kNeutral + draws.between(-500, 500))};
}

// A thing that crosses the picture again and again, swaying and turning.
struct Flyer {
  Sprite sprite;
  int64_t startX;
  int64_t startY;
  int64_t speedX;  // columns times 256 a second
  int64_t speedY;
  int64_t sway;
  int swayRate;
  int64_t turn;  // of the whole circle, times 2^32, a second
};

Sprite flyerAt(const Flyer& flyer, int64_t time, int width, int height) {
  // Once beyond an edge by its own size, it comes back in at the other.
  const auto wrapped = [](int64_t position, int64_t reach, int64_t size) {
    const int64_t span = size * 256 + 2 * reach;
    const int64_t rest = (position + reach) % span;
    return (rest < 0 ? rest + span : rest) - reach;
  };
  Sprite sprite = flyer.sprite;
  const int64_t reach = (sprite.radiusX + sprite.radiusY) * 3 / 2 + flyer.sway;
  sprite.x = wrapped(flyer.startX + (flyer.speedX * time >> 16), reach, width) +
             swing(flyer.sway, time, flyer.swayRate, sprite.angle);
  sprite.y = wrapped(flyer.startY + (flyer.speedY * time >> 16), reach, height) +
             swing(flyer.sway, time, flyer.swayRate * 3 / 2, sprite.angle * 5);
  sprite.angle += static_cast<uint32_t>(flyer.turn * time >> 16);
  return sprite;
}

std::vector<Flyer> drawFlyers(Draws& draws, const SceneSetting& setting, int count) {
  std::vector<Flyer> flyers;
  for (int i = 0; i < count; ++i) {
    Flyer flyer{};
    flyer.sprite.shape = draws.below(2) == 0 ? Sprite::Shape::kEllipse : Sprite::Shape::kBox;
    flyer.sprite.radiusX = scaledTo(setting.width, draws.between(25, 120));
    flyer.sprite.radiusY = flyer.sprite.radiusX * draws.between(60, 140) / 100;
    flyer.sprite.angle = static_cast<uint32_t>(draws.any());
    flyer.sprite.material =
        &setting.materials->get(draws.below(2) == 0 ? Surface::kFabric : Surface::kCobbles);
    flyer.sprite.scale = draws.between(40000, 90000);
    flyer.sprite.contrast = draws.between(120, 280);
    flyer.sprite.tone = drawTone(draws, 1000, 2900);
    flyer.sprite.light = draws.between(100, 500);
    flyer.startX = int64_t{256} * draws.between(0, setting.width);
    flyer.startY = int64_t{256} * draws.between(0, setting.height);
    flyer.speedX = scaledTo(setting.width, draws.between(-260, 260));
    flyer.speedY = scaledTo(setting.width, draws.between(-120, 120));
    flyer.sway = scaledTo(setting.width, draws.between(0, 40));
    flyer.swayRate = draws.between(200, 900);
    flyer.turn = int64_t{draws.between(-400, 400)} << 22;
    flyers.push_back(flyer);
  }
  return flyers;
}

// What the scenes of this file share: sprites that fly over whatever the background is.
class Outdoors : public Scene {
 public:
  explicit Outdoors(const SceneSetting& setting)
      : setting_(setting), draws_(setting.seed), scratch_(static_cast<size_t>(setting.width)) {}

  void goTo(int64_t time) override {
    moveBackground(time);
    sprites_.clear();
    for (const Flyer& flyer : flyers_) {
      sprites_.push_back(flyerAt(flyer, time, setting_.width, setting_.height));
    }
  }

  void paintRow(const RowSpot& spot, int16_t* levels) override {
    paintBackground(spot, levels);
    for (const Sprite& sprite : sprites_) paintSprite(sprite, spot, levels, scratch_.data());
  }

 protected:
  virtual void moveBackground(int64_t time) = 0;
  virtual void paintBackground(const RowSpot& spot, int16_t* levels) = 0;

  SceneSetting setting_;
  Draws draws_;
  std::vector<Flyer> flyers_;
  std::vector<Sprite> sprites_;
  std::vector<int16_t> scratch_;
};

class Flight : public Outdoors {
 public:
  explicit Flight(const SceneSetting& setting) : Outdoors(setting) {
    constexpr Surface kBelow[] = {Surface::kFarmland, Surface::kCobbles, Surface::kFabric,
                                  Surface::kRock};
    ground_ = &setting.materials->get(kBelow[draws_.below(std::size(kBelow))]);
    angle_ = static_cast<uint32_t>(draws_.any());
    turn_ = int64_t{draws_.between(-60, 60)} << 22;
    scale_ = draws_.between(32000, 52000);
    zoom_ = draws_.between(2000, 16000);
    zoomRate_ = draws_.between(60, 250);
    speedU_ = int64_t{draws_.between(-120, 120)} * 65536;
    speedV_ = int64_t{draws_.between(-120, 120)} * 65536;
    flyers_ = drawFlyers(draws_, setting, draws_.between(4, 7));
  }

 private:
  void moveBackground(int64_t time) override {
    const uint32_t angle = angle_ + static_cast<uint32_t>(turn_ * time >> 16);
    const int64_t scale = scale_ + swing(zoom_, time, zoomRate_, angle_ * 3);
    cosine_ = (cosine(angle) >> 14) * scale >> 16;
    sine_ = (sine(angle) >> 14) * scale >> 16;
    u_ = speedU_ * time >> 16;
    v_ = speedV_ * time >> 16;
  }

  void paintBackground(const RowSpot& spot, int16_t* levels) override {
    const int64_t dx = int64_t{-128} * setting_.width;
    const int64_t dy = spot.y - int64_t{128} * setting_.height;
    const MaterialLine line = {u_ + ((dx * cosine_ + dy * sine_) >> 8),
                               v_ + ((dy * cosine_ - dx * sine_) >> 8), cosine_, -sine_};
    sampleMaterial(*ground_, spot, line, spot.count, levels);
  }

  const Material* ground_;
  uint32_t angle_;
  int64_t turn_;
  int64_t scale_;  // points times 65536 a column
  int64_t zoom_;
  int zoomRate_;
  int64_t speedU_;
  int64_t speedV_;
  int64_t cosine_ = 0;
  int64_t sine_ = 0;
  int64_t u_ = 0;
  int64_t v_ = 0;
};

// A range of hills: a skyline and what lies below it.
struct Range {
  std::vector<int> heights;  // rows times 16 above the base, repeating
  int64_t speed;             // columns times 256 a second
  int base;                  // rows times 16 from the top
  const Material* material;
  int64_t scale;
  Colour haze;
  int clearness;          // of 256: how much of the material shows through the haze
  int64_t panned = 0;     // columns times 256
  std::vector<int> tops;  // of each column of the picture: rows times 16 from the top
  int highest = 0;
  int lowest = 0;
};

constexpr int kSkylineBits = 12;

std::vector<int> drawSkyline(uint64_t seed, int amplitude, int firstOctave) {
  std::vector<int> heights(size_t{1} << kSkylineBits);
  for (int octave = firstOctave; octave <= 9; ++octave, amplitude /= 2) {
    const int shift = kSkylineBits - octave;
    const auto point = [&](int at) {
      const uint64_t mixed = mix64(seed, static_cast<uint64_t>(at & ((1 << octave) - 1)),
                                   static_cast<uint64_t>(octave));
      return static_cast<int>(within(mixed, 256));
    };
    for (int x = 0; x < 1 << kSkylineBits; ++x) {
      const int share = (x & ((1 << shift) - 1)) * 256 >> shift;
      const int left = point(x >> shift);
      const int right = point((x >> shift) + 1);
      heights[static_cast<size_t>(x)] += (left * 256 + (right - left) * share) * amplitude >> 16;
    }
  }
  return heights;
}

class Landscape : public Outdoors {
 public:
  explicit Landscape(const SceneSetting& setting) : Outdoors(setting) {
    sky_ = &setting.materials->get(Surface::kClouds);
    skySpeed_ = scaledTo(setting.width, draws_.between(10, 60));
    const int direction = draws_.below(2) == 0 ? 1 : -1;
    const int pan = draws_.between(40, 120);
    for (int i = 0; i < 3; ++i) {
      Range range;
      const int amplitude = setting.height * (i == 0 ? 4 : 3 - i);
      range.heights = drawSkyline(draws_.any(), amplitude, i == 2 ? 3 : 4);
      range.speed = scaledTo(setting.width, int64_t{direction} * pan * (1 + i * i));
      range.base = setting.height * (9 + i * 3);
      range.material = &setting.materials->get(i < 2 ? Surface::kRock : Surface::kGrass);
      range.scale = 52000 - 8000 * i;
      range.haze = {2500, 2180, 1990};
      range.clearness = 110 + 70 * i;
      range.tops.resize(static_cast<size_t>(setting.width));
      ranges_.push_back(std::move(range));
    }
    flyers_ = drawFlyers(draws_, setting, 2);
    addBirds();
  }

 private:
  void addBirds() {
    for (int i = 0; i < 6; ++i) {
      Flyer bird{};
      bird.sprite.radiusX = scaledTo(setting_.width, draws_.between(5, 9));
      bird.sprite.radiusY = bird.sprite.radiusX / 3;
      bird.sprite.material = &setting_.materials->get(Surface::kRock);
      bird.sprite.tone = {500, kNeutral, kNeutral};
      bird.sprite.contrast = 40;
      bird.sprite.angle = static_cast<uint32_t>(draws_.any());
      bird.startX = int64_t{256} * draws_.between(0, setting_.width);
      bird.startY = int64_t{256} * draws_.between(setting_.height / 8, setting_.height / 3);
      bird.speedX = scaledTo(setting_.width, draws_.between(60, 140));
      bird.sway = scaledTo(setting_.width, draws_.between(5, 20));
      bird.swayRate = draws_.between(500, 1500);
      flyers_.push_back(bird);
    }
  }

  void moveBackground(int64_t time) override {
    skyPanned_ = skySpeed_ * time >> 16;
    for (Range& range : ranges_) {
      range.panned = range.speed * time >> 16;
      range.highest = INT32_MAX;
      range.lowest = INT32_MIN;
      // Skylines are drawn for 1280 columns, too.
      const int64_t step = int64_t{256} * 1280 / setting_.width;
      int64_t position = range.panned * 1280 / setting_.width;
      for (int& top : range.tops) {
        const auto column = static_cast<size_t>(position >> 8);
        constexpr size_t kMask = (size_t{1} << kSkylineBits) - 1;
        const int left = range.heights[column & kMask];
        const int right = range.heights[(column + 1) & kMask];
        top = range.base - (left + ((right - left) * static_cast<int>(position & 0xFF) >> 8));
        range.highest = std::min(range.highest, top);
        range.lowest = std::max(range.lowest, top);
        position += step;
      }
    }
  }

  // Only what can be seen is painted: from the nearest range that hides all behind it.
  void paintBackground(const RowSpot& spot, int16_t* levels) override {
    const auto y = static_cast<int>(spot.y >> 4);
    size_t first = ranges_.size();
    while (first > 0 && y < ranges_[first - 1].lowest + 16) --first;
    if (first == 0) paintSky(spot, levels);
    for (size_t i = first == 0 ? 0 : first - 1; i < ranges_.size(); ++i) {
      if (y > ranges_[i].highest) paintRange(ranges_[i], spot, y, levels);
    }
  }

  void paintSky(const RowSpot& spot, int16_t* levels) const {
    const int64_t scale = 30000;
    const MaterialLine line = {skyPanned_ * scale >> 8, spot.y * scale * 3 / 2 >> 8, scale, 0};
    sampleMaterial(*sky_, spot, line, spot.count, levels);
  }

  void paintRange(const Range& range, const RowSpot& spot, int y, int16_t* levels) {
    const MaterialLine line = {range.panned * range.scale >> 8, spot.y * range.scale >> 8,
                               range.scale, 0};
    sampleMaterial(*range.material, spot, line, spot.count, scratch_.data());
    const int haze = levelOf(range.haze, spot.plane);
    const int clearness = range.clearness;
    const int* const tops = range.tops.data();
    for (int i = 0; i < spot.count; ++i) {
      const int surface = haze + ((scratch_[static_cast<size_t>(i)] - haze) * clearness >> 8);
      const int share = std::clamp(y - tops[i * spot.step], 0, 16);
      levels[i] = static_cast<int16_t>(levels[i] + ((surface - levels[i]) * share >> 4));
    }
  }

  const Material* sky_;
  int64_t skySpeed_;
  int64_t skyPanned_ = 0;
  std::vector<Range> ranges_;
};

class Water : public Outdoors {
 public:
  explicit Water(const SceneSetting& setting) : Outdoors(setting) {
    surface_ = &setting.materials->get(Surface::kRock);
    scale_ = draws_.between(20000, 34000);
    for (Layer& layer : layers_) {
      layer.speedU = int64_t{draws_.between(-80, 80)} * 65536;
      layer.speedV = int64_t{draws_.between(30, 90)} * 65536;
      layer.ripple = int64_t{draws_.between(2, 7)} * 65536;
      layer.rippleRate = draws_.between(500, 1100);
      layer.start = static_cast<uint32_t>(draws_.any());
    }
    tone_ = {static_cast<int16_t>(draws_.between(1300, 2000)),
             static_cast<int16_t>(kNeutral + draws_.between(80, 400)),
             static_cast<int16_t>(kNeutral - draws_.between(60, 260))};
    flyers_ = drawFlyers(draws_, setting, 2);
    other_.resize(static_cast<size_t>(setting.width));
  }

 private:
  struct Layer {
    int64_t speedU;
    int64_t speedV;
    int64_t ripple;
    int rippleRate;
    uint32_t start;
  };

  void moveBackground(int64_t time) override { time_ = time; }

  // A plane that recedes upwards to a horizon half a picture above the top: a row's scale goes with
  // the inverse of its distance from the horizon.
  MaterialLine lineOf(const Layer& layer, const RowSpot& spot) const {
    const int64_t height = int64_t{256} * setting_.height;
    const int64_t depth = spot.y + height / 2;
    const int64_t scale = scale_ * height / depth;
    const int64_t away = -(scale_ * height / 256) * height / depth;
    const auto wave = static_cast<uint32_t>(away >> 4) * 4001u + layer.start;
    const int64_t ripple = swing(layer.ripple, time_, layer.rippleRate, wave);
    const int64_t u = (layer.speedU * time_ >> 16) + ripple - scale * setting_.width / 2;
    const int64_t v = away - (layer.speedV * time_ >> 16) +
                      swing(layer.ripple, time_, layer.rippleRate * 3 / 4, wave * 2);
    return {u, v, scale, 0};
  }

  void paintBackground(const RowSpot& spot, int16_t* levels) override {
    const int tone = levelOf(tone_, spot.plane);
    if (spot.plane != 0) {
      std::fill_n(levels, spot.count, static_cast<int16_t>(tone));
      return;
    }
    sampleMaterial(*surface_, spot, lineOf(layers_[0], spot), spot.count, levels);
    sampleMaterial(*surface_, spot, lineOf(layers_[1], spot), spot.count, other_.data());
    for (int i = 0; i < spot.count; ++i) {
      // Two crossing swells, with glints where both are high.
      const int sum = (levels[i] + other_[static_cast<size_t>(i)] - 2 * kSwellMean) * 3 / 4;
      const int glint = std::max(0, sum - 480) * 3;
      levels[i] = static_cast<int16_t>(std::clamp(tone + sum + glint, kLowest, kHighest));
    }
  }

  static constexpr int kSwellMean = 2280;  // of the surface's levels

  const Material* surface_;
  int64_t scale_;
  Layer layers_[2];
  Colour tone_;
  int64_t time_ = 0;
  std::vector<int16_t> other_;
};

}  // namespace

std::unique_ptr<Scene> makeFlight(const SceneSetting& setting) {
  return std::make_unique<Flight>(setting);
}
std::unique_ptr<Scene> makeLandscape(const SceneSetting& setting) {
  return std::make_unique<Landscape>(setting);
}
std::unique_ptr<Scene> makeWater(const SceneSetting& setting) {
  return std::make_unique<Water>(setting);
}

}  // namespace zel::testsrc
