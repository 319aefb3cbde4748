#include <algorithm>
#include <vector>

#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/scene.h"

// The scenes with people in them: a match seen from the stand, a speaker.

namespace zel::testsrc {
namespace {

constexpr Colour kSkin = fromRgb(kBt709, 7600, 5700, 4600);

class Match : public Scene {
 public:
  explicit Match(const SceneSetting& setting)
      : setting_(setting), draws_(setting.seed), scratch_(static_cast<size_t>(setting.width)) {
    grass_ = &setting.materials->get(Surface::kGrass);
    cloth_ = &setting.materials->get(Surface::kFabric);
    panRate_ = draws_.between(60, 160);
    panWidth_ = int64_t{setting.width} * 256 * draws_.between(30, 60) / 100;
    panStart_ = static_cast<uint32_t>(draws_.any());
    for (Colour& shirt : shirts_) {
      shirt = {static_cast<int16_t>(draws_.between(900, 3200)),
               static_cast<int16_t>(kNeutral + draws_.between(-900, 900)),
               static_cast<int16_t>(kNeutral + draws_.between(-900, 900))};
    }
    for (int i = 0; i < 22; ++i) {
      Player player{};
      player.homeX = int64_t{setting.width} * 256 * draws_.between(-60, 160) / 100;
      player.homeY = int64_t{setting.height} * 256 * draws_.between(12, 92) / 100;
      player.rangeX = int64_t{setting.width} * draws_.between(8, 40);
      player.rangeY = int64_t{setting.height} * draws_.between(4, 24);
      player.rateX = draws_.between(80, 260);
      player.rateY = draws_.between(80, 260);
      player.start = static_cast<uint32_t>(draws_.any());
      player.team = i & 1;
      players_.push_back(player);
    }
  }

  void goTo(int64_t time) override {
    pan_ = swing(panWidth_, time, panRate_, panStart_);
    sprites_.clear();
    std::vector<Placed> placed;
    for (const Player& player : players_) {
      placed.push_back({player.homeX + swing(player.rangeX, time, player.rateX, player.start),
                        player.homeY + swing(player.rangeY, time, player.rateY, player.start * 7),
                        &player});
    }
    // Whoever stands nearer hides those behind; equal rows keep their order.
    std::stable_sort(placed.begin(), placed.end(),
                     [](const Placed& a, const Placed& b) { return a.y < b.y; });
    for (const Placed& each : placed) addPlayer(each, time);
    addBall(time);
  }

  void paintRow(const RowSpot& spot, int16_t* levels) override {
    const int64_t height = int64_t{256} * setting_.height;
    const int64_t depth = spot.y + height / 2;
    const int64_t scale = kScale * height / depth;
    const int64_t away = -(kScale * height / 256) * height / depth;
    const int64_t u = ((pan_ - int64_t{128} * setting_.width) * scale >> 8);
    sampleMaterial(*grass_, spot, {u, away, scale, 0}, spot.count, levels);
    mow(spot, away, levels);
    for (const Sprite& sprite : sprites_) paintSprite(sprite, spot, levels, scratch_.data());
  }

 private:
  struct Player {
    int64_t homeX;
    int64_t homeY;
    int64_t rangeX;
    int64_t rangeY;
    int rateX;
    int rateY;
    uint32_t start;
    int team;
  };

  struct Placed {
    int64_t x;
    int64_t y;
    const Player* player;
  };

  // Points of grass a column at the middle of the perspective, times 65536.
  static constexpr int64_t kScale = 42000;

  // Lighter and darker stripes, and a chalk line now and then.
  static void mow(const RowSpot& spot, int64_t away, int16_t* levels) {
    const int64_t point = away >> 16;
    const bool light = (point >> 6 & 1) != 0;
    const bool chalk = (point & 0xFF) < 3;
    if (!light && !chalk) return;
    for (int i = 0; i < spot.count; ++i) {
      const int level = chalk ? (levels[i] + 3 * (spot.plane == 0 ? 3300 : kNeutral)) >> 2
                              : levels[i] + (spot.plane == 0 ? 180 : 0);
      levels[i] = static_cast<int16_t>(level);
    }
  }

  // A sixteenth of the picture's height in the middle of the field.
  int64_t sizeAt(int64_t y) const { return (y + int64_t{128} * setting_.height) / 28; }

  void addPlayer(const Placed& placed, int64_t time) {
    const int64_t size = sizeAt(placed.y);
    const int64_t x = placed.x - pan_;
    const uint32_t start = placed.player->start;
    const int64_t stride = swing(size / 3, time, 1600, start);
    Sprite shadow;
    shadow.x = x + size / 2;
    shadow.y = placed.y + size;
    shadow.radiusX = size;
    shadow.radiusY = size / 4;
    sprites_.push_back(shadow);

    Sprite part;
    part.material = cloth_;
    part.scale = 98304;
    part.contrast = 90;
    part.light = 250;
    part.tone = {700, kNeutral, kNeutral};
    part.y = placed.y + size * 2 / 3;
    part.radiusX = size / 5;
    part.radiusY = size * 3 / 4;
    for (const int64_t side : {stride, -stride}) {  // legs
      part.x = x + side;
      sprites_.push_back(part);
    }
    part.x = x;
    part.y = placed.y - size / 4;
    part.radiusX = size * 2 / 5;
    part.radiusY = size * 2 / 3;
    part.tone = shirts_[placed.player->team];
    sprites_.push_back(part);
    part.y = placed.y - size * 11 / 10;
    part.radiusX = size / 4;
    part.radiusY = size * 3 / 10;
    part.contrast = 20;
    part.tone = kSkin;
    sprites_.push_back(part);
  }

  void addBall(int64_t time) {
    Sprite ball;
    ball.material = cloth_;
    ball.x = int64_t{128} * setting_.width + swing(int64_t{110} * setting_.width, time, 330, 0);
    ball.y = int64_t{150} * setting_.height + swing(int64_t{70} * setting_.height, time, 410, 9);
    ball.radiusX = ball.radiusY = sizeAt(ball.y) / 4;
    ball.contrast = 60;
    ball.tone = gray(9300);
    ball.light = 400;
    sprites_.push_back(ball);
  }

  SceneSetting setting_;
  Draws draws_;
  const Material* grass_;
  const Material* cloth_;
  int panRate_;
  int64_t panWidth_;
  uint32_t panStart_;
  int64_t pan_ = 0;
  Colour shirts_[2];
  std::vector<Player> players_;
  std::vector<Sprite> sprites_;
  std::vector<int16_t> scratch_;
};

class Speaker : public Scene {
 public:
  explicit Speaker(const SceneSetting& setting)
      : setting_(setting), draws_(setting.seed), scratch_(static_cast<size_t>(setting.width)) {
    backdrop_ = &setting.materials->get(draws_.below(2) == 0 ? Surface::kClouds : Surface::kRock);
    smooth_ = &setting.materials->get(Surface::kClouds);
    hair_ = &setting.materials->get(Surface::kRock);
    cloth_ = &setting.materials->get(Surface::kFabric);
    jacket_ = {static_cast<int16_t>(draws_.between(600, 1600)),
               static_cast<int16_t>(kNeutral + draws_.between(-200, 300)),
               static_cast<int16_t>(kNeutral + draws_.between(-200, 300))};
    wall_ = {static_cast<int16_t>(draws_.between(1000, 2300)),
             static_cast<int16_t>(kNeutral + draws_.between(-300, 300)),
             static_cast<int16_t>(kNeutral + draws_.between(-300, 300))};
    seat_ = draws_.between(35, 65);
    start_ = static_cast<uint32_t>(draws_.any());
  }

  void goTo(int64_t time) override {
    sprites_.clear();
    const int64_t unit = int64_t{256} * setting_.height / 100;  // a hundredth of the height
    const int64_t sway = swing(2 * unit, time, 210, start_) + swing(unit / 2, time, 930, start_);
    const int64_t x = int64_t{256} * setting_.width * seat_ / 100;
    add(x + sway / 3, 112 * unit, 48 * unit, 46 * unit, *cloth_, jacket_, 170, 300);
    add(x + sway / 2, 70 * unit, 9 * unit, 16 * unit, *smooth_, shaded(kSkin, -350), 30, 100);
    const int64_t face = x + sway;
    const int64_t nod = swing(unit, time, 340, start_ * 3);
    const int64_t level = 45 * unit + nod;
    add(face, level - 6 * unit, 19 * unit, 22 * unit, *hair_, {800, 1990, 2110}, 160, 200);
    add(face, level, 16 * unit, 21 * unit, *smooth_, kSkin, 36, 260);
    const bool blinking = (time >> 12) % 53 < 2;  // an eighth of a second in three
    for (const int side : {-1, 1}) {
      const int64_t eye = face + side * 6 * unit;
      const int64_t open = blinking ? unit / 3 : unit * 3 / 2;
      add(eye, level - 3 * unit, 3 * unit, open, *smooth_, gray(8800), 10, 0);
      if (!blinking) {
        add(eye + sway / 6, level - 3 * unit, unit, open, *hair_, {500, 2100, 2000}, 20, 0);
      }
      add(eye, level - 7 * unit, 4 * unit, unit * 2 / 3, *hair_, {700, 2000, 2100}, 60, 0);
    }
    // Speech: the mouth opens in syllables of different size.
    const int64_t speech = swing(unit, time, 3100, start_) + swing(unit, time, 1900, start_ * 9);
    const int64_t mouth = unit + std::max<int64_t>(0, speech);
    add(face, level + 11 * unit, 5 * unit, mouth, *smooth_, {1100, 1930, 2500}, 30, 300);
  }

  void paintRow(const RowSpot& spot, int16_t* levels) override {
    // So much enlarged that it looks out of focus.
    const int64_t scale = int64_t{9000} * 720 / setting_.height;
    sampleMaterial(*backdrop_, spot, {0, spot.y * scale >> 8, scale, 0}, spot.count, levels);
    const int tone = levelOf(wall_, spot.plane);
    for (int i = 0; i < spot.count; ++i) {
      levels[i] = static_cast<int16_t>(tone + (levels[i] - 2048) * 5 / 8);
    }
    for (const Sprite& sprite : sprites_) paintSprite(sprite, spot, levels, scratch_.data());
  }

 private:
  static constexpr Colour shaded(Colour colour, int by) {
    return {static_cast<int16_t>(colour.y + by), colour.cb, colour.cr};
  }

  void add(int64_t x, int64_t y, int64_t radiusX, int64_t radiusY, const Material& material,
           Colour tone, int contrast, int light) {
    Sprite sprite;
    sprite.x = x;
    sprite.y = y;
    sprite.radiusX = radiusX;
    sprite.radiusY = radiusY;
    sprite.material = &material;
    sprite.tone = tone;
    sprite.contrast = contrast;
    sprite.light = light;
    sprites_.push_back(sprite);
  }

  SceneSetting setting_;
  Draws draws_;
  const Material* backdrop_;
  const Material* smooth_;
  const Material* hair_;
  const Material* cloth_;
  Colour jacket_;
  Colour wall_;
  int seat_;  // per cent of the width
  uint32_t start_;
  std::vector<Sprite> sprites_;
  std::vector<int16_t> scratch_;
};

}  // namespace

std::unique_ptr<Scene> makeMatch(const SceneSetting& setting) {
  return std::make_unique<Match>(setting);
}
std::unique_ptr<Scene> makeSpeaker(const SceneSetting& setting) {
  return std::make_unique<Speaker>(setting);
}

const Material& Materials::get(Surface surface) {
  std::unique_ptr<Material>& made = made_[static_cast<size_t>(surface)];
  if (made == nullptr) made = makeMaterial(surface, seed_);
  return *made;
}

}  // namespace zel::testsrc
