#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/renderer.h"

// Colour bars in the arrangement of SMPTE RP 219: 75 % bars between 40 % gray; a strip with 100 %
// cyan and blue; one with 100 % yellow and red and a luma ramp; at the bottom, black, white and the
// near-black steps for setting a monitor up (PLUGE). All widths are multiples of a 56th of the
// picture's width. In the middle runs a time code with the frame's number, and a pointer that
// crosses its track once a second and starts anew on the frame that carries the mark.

namespace zel::testsrc {
namespace {

constexpr int kWidthParts = 56;
constexpr int kHeightParts = 12;

// A field of a strip: its width in 56ths and its R'G'B' in ten thousandths. A ramp goes from black
// to the colour.
struct Field {
  int parts;
  int red;
  int green;
  int blue;
  bool ramp = false;
};

constexpr Field kBars[] = {
    {7, 4000, 4000, 4000}, {6, 7500, 7500, 7500}, {6, 7500, 7500, 0},
    {6, 0, 7500, 7500},    {6, 0, 7500, 0},       {6, 7500, 0, 7500},
    {6, 7500, 0, 0},       {6, 0, 0, 7500},       {7, 4000, 4000, 4000},
};
constexpr Field kCyanBlue[] = {{7, 0, 10000, 10000}, {42, 7500, 7500, 7500}, {7, 0, 0, 10000}};
constexpr Field kYellowRamp[] = {
    {7, 10000, 10000, 0},     {6, 0, 0, 0},     {30, 10000, 10000, 10000, true},
    {6, 10000, 10000, 10000}, {7, 10000, 0, 0},
};
constexpr Field kPluge[] = {
    {7, 1500, 1500, 1500}, {9, 0, 0, 0}, {12, 10000, 10000, 10000}, {5, 0, 0, 0},
    {2, -200, -200, -200}, {2, 0, 0, 0}, {2, 200, 200, 200},        {2, 0, 0, 0},
    {2, 400, 400, 400},    {6, 0, 0, 0}, {7, 1500, 1500, 1500},
};

struct Strip {
  int parts;  // 12ths of the height
  const Field* fields;
  size_t count;
};

constexpr Strip kStrips[] = {
    {7, kBars, std::size(kBars)},
    {1, kCyanBlue, std::size(kCyanBlue)},
    {1, kYellowRamp, std::size(kYellowRamp)},
    {3, kPluge, std::size(kPluge)},
};

constexpr bool stripsAreWhole() {
  int height = 0;
  for (const Strip& strip : kStrips) {
    int width = 0;
    for (size_t i = 0; i < strip.count; ++i) width += strip.fields[i].parts;
    if (width != kWidthParts) return false;
    height += strip.parts;
  }
  return height == kHeightParts;
}
static_assert(stripsAreWhole());

// Edges stand on even samples, so that subsampled chroma turns where luma does.
int edge(int size, int part, int parts) {
  return part == parts ? size : size * part / parts & ~1;
}

class Bars : public Renderer {
 public:
  explicit Bars(const PictureOptions& options)
      : options_(options),
        large_(fontScale(static_cast<int>(options.width) * 2 / 5 / (11 * kGlyphAdvance))),
        small_(fontScale(large_.scale() / 2)),
        still_(frameBytesOf(options)) {
    placeBox();
    const Picture picture = pictureOver(options, still_);
    drawStrips(picture);
    fillRectangle(picture, boxX_, boxY_, boxWidth_, boxHeight_, gray(0));
    const std::string legend =
        std::to_string(options.width) + "x" + std::to_string(options.height) + " " + rateText();
    drawText(picture, boxX_ + large_.scale() * 2, legendY_, small_, legend, gray(7500));
  }

  void render(uint64_t frame, const Picture& picture) override {
    std::memcpy(picture.planes[0].data, still_.data(), still_.size());
    const std::string code = timeCodeOfFrame(options_.rate, frame).text();
    drawText(picture, centred(large_, code), codeY_, large_, code, gray(10000));
    const std::string number = "FRAME " + std::to_string(frame);
    drawText(picture, boxX_ + large_.scale() * 2, numberY_, small_, number, gray(10000));
    drawPointer(frame, picture);
  }

 private:
  void placeBox() {
    const int margin = large_.scale() * 2;
    boxWidth_ =
        std::min(large_.widthOf("00:00:00:00") + 2 * margin, static_cast<int>(options_.width)) & ~1;
    boxHeight_ = (margin + large_.lineAdvance() + 2 * small_.lineAdvance() + 2 * margin) & ~1;
    boxX_ = (static_cast<int>(options_.width) - boxWidth_) / 2 & ~1;
    boxY_ = (static_cast<int>(options_.height) * 7 / 12 - boxHeight_) / 2 & ~1;
    codeY_ = boxY_ + margin;
    numberY_ = codeY_ + large_.lineAdvance();
    legendY_ = numberY_ + small_.lineAdvance();
    trackY_ = legendY_ + small_.lineAdvance();
  }

  int centred(const Font& font, const std::string& text) const {
    return boxX_ + (boxWidth_ - font.widthOf(text)) / 2;
  }

  std::string rateText() const {
    const media::Rational rate = options_.rate;
    const uint64_t hundredths =
        (uint64_t{rate.numerator} * 100 + rate.denominator / 2) / rate.denominator;
    std::string text = std::to_string(hundredths / 100);
    if (hundredths % 100 != 0) {
      const uint64_t rest = hundredths % 100;
      text += rest < 10 ? ".0" : ".";
      text += std::to_string(rest);
    }
    return text + (options_.scan == Scan::kProgressive ? "p" : "i");
  }

  void drawStrips(const Picture& picture) const {
    // Standard definition is coded with the matrix of BT.601, everything larger with that of
    // BT.709.
    const ColourMatrix matrix = picture.height() <= 576 ? kBt601 : kBt709;
    int part = 0;
    for (const Strip& strip : kStrips) {
      const int top = edge(picture.height(), part, kHeightParts);
      part += strip.parts;
      const int bottom = edge(picture.height(), part, kHeightParts);
      int across = 0;
      for (size_t i = 0; i < strip.count; ++i) {
        const Field& field = strip.fields[i];
        const int left = edge(picture.width(), across, kWidthParts);
        across += field.parts;
        const int right = edge(picture.width(), across, kWidthParts);
        for (int x = left; field.ramp && x < right; ++x) {
          fillRectangle(picture, x, top, 1, bottom - top,
                        gray(10000 * (x - left) / (right - left)));
        }
        if (field.ramp) continue;
        fillRectangle(picture, left, top, right - left, bottom - top,
                      fromRgb(matrix, field.red, field.green, field.blue));
      }
    }
  }

  // Row by row, since the rows of the second field show it half a frame later.
  void drawPointer(uint64_t frame, const Picture& picture) const {
    const uint64_t second = secondOfFrame(options_.rate, frame);
    const uint64_t begin = 2 * markFrame(options_.rate, second);
    const uint64_t end = 2 * markFrame(options_.rate, second + 1);
    const int height = large_.scale() * 2;
    const int width = large_.scale() & ~1 ? large_.scale() & ~1 : 1;
    const int travel = boxWidth_ - width;
    for (int y = trackY_; y < trackY_ + height; ++y) {
      const uint64_t now = halfFrameOfRow(picture.scan, frame, y);
      // The last frame before a mark may start the second before the mark's own frame does.
      const uint64_t since = now < begin ? 0 : now - begin;
      const auto offset = static_cast<int>(since * static_cast<uint64_t>(travel) / (end - begin));
      fillRectangle(picture, boxX_, y, boxWidth_, 1, gray(1500));
      fillRectangle(picture, boxX_ + std::min(offset, travel), y, width, 1, gray(10000));
    }
  }

  PictureOptions options_;
  Font large_;
  Font small_;
  std::vector<uint8_t> still_;  // everything that doesn't change
  int boxX_ = 0;
  int boxY_ = 0;
  int boxWidth_ = 0;
  int boxHeight_ = 0;
  int codeY_ = 0;
  int numberY_ = 0;
  int legendY_ = 0;
  int trackY_ = 0;
};

}  // namespace

std::unique_ptr<Renderer> makeBars(const PictureOptions& options) {
  return std::make_unique<Bars>(options);
}

}  // namespace zel::testsrc
