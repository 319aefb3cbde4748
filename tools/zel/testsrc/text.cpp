#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/renderer.h"
#include "tools/zel/testsrc/text_strip.h"

// Rolling credits above a ticker: sharp edges everywhere, moving straight up and straight left by
// whole rows and columns a field, so that nothing softens them. What people and places are called
// is made up out of the seed.

namespace zel::testsrc {
namespace {

constexpr std::array<std::string_view, 24> kRoles = {
    "Director",         "Producer",           "Written by",        "Director of Photography",
    "Film Editor",      "Production Design",  "Costume Design",    "Music by",
    "Sound Recordist",  "Re-recording Mixer", "Camera Operator",   "Focus Puller",
    "Gaffer",           "Key Grip",           "Script Supervisor", "Make-up Artist",
    "Visual Effects",   "Colourist",          "Location Manager",  "Stunt Coordinator",
    "Assistant Editor", "Foley Artist",       "Title Design",      "Vision Mixer"};
constexpr std::array<std::string_view, 20> kSyllables = {
    "ba", "del", "mi",  "ron", "ka",  "lu", "ves", "ta",  "or", "in",
    "go", "ner", "sha", "vi",  "pel", "mo", "dra", "eth", "zu", "lan"};
constexpr std::array<std::string_view, 12> kSubjects = {
    "Harbour traffic", "River levels",    "Night trains",   "The long bridge",
    "Grain prices",    "Mountain passes", "Local council",  "Ferry lines",
    "The observatory", "Street markets",  "Winter storage", "Ring road"};
constexpr std::array<std::string_view, 10> kPredicates = {
    "back to normal after storm", "up %% on last year",     "closed until day %%",
    "expected to open at 1%:%5",  "down by % points",       "under review, vote %% to %",
    "delayed by %% minutes",      "marks %% years of work", "moves to platform %",
    "sold out in %% minutes"};

class Writer {
 public:
  explicit Writer(uint64_t seed) : draws_(seed) {}

  // In statements of their own: which operand of a sum is worked out first is the compiler's
  // choice.
  std::string name() {
    std::string text = word();
    text += " ";
    text += word();
    return text;
  }

  std::string twoHeadlines() {
    std::string text = headline();
    text += "; ";
    text += headline();
    return text + ".";
  }

  std::string headline() {
    std::string text(pick(kSubjects));
    text += ' ';
    // A per cent sign in the list stands for a digit.
    for (const char c : pick(kPredicates)) {
      text += c == '%' ? static_cast<char>('1' + draws_.below(9)) : c;
    }
    return text;
  }

 private:
  template <size_t count>
  std::string_view pick(const std::array<std::string_view, count>& from) {
    return from[draws_.below(count)];
  }

  std::string word() {
    std::string text;
    for (uint32_t i = 2 + draws_.below(2); i > 0; --i) text += pick(kSyllables);
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
  }

  Draws draws_;
};

constexpr Colour kNameColour = gray(9500);
constexpr Colour kRoleColour = fromRgb(kBt709, 9000, 7200, 3000);
constexpr Colour kTitleColour = fromRgb(kBt709, 4500, 8500, 9500);
constexpr Colour kTopColour = fromRgb(kBt709, 300, 500, 1400);
constexpr Colour kBottomColour = fromRgb(kBt709, 1600, 600, 2200);
constexpr Colour kTickerColour = fromRgb(kBt709, 7000, 600, 800);
constexpr Colour kLabelColour = fromRgb(kBt709, 9000, 8500, 1500);

constexpr int levelOf(const Colour& colour, size_t plane) {
  return plane == 0 ? colour.y : plane == 1 ? colour.cb : colour.cr;
}

class Text : public Renderer {
 public:
  explicit Text(const PictureOptions& options)
      : options_(options),
        small_(fontScale(static_cast<int>(options.height) / 360)),
        body_(fontScale(static_cast<int>(options.height) / 240)),
        title_(fontScale(static_cast<int>(options.height) / 90)),
        tickerFont_(fontScale(static_cast<int>(options.height) / 180)),
        bandHeight_((tickerFont_.lineAdvance() + 4 * tickerFont_.scale()) & ~3),
        writer_(options.seed),
        credits_(static_cast<int>(options.width), heightOfCredits()),
        ticker_(tickerFont_.advance() * kTickerLetters, tickerFont_.height()),
        creditsStep_(stepOf(options.height / 12)),
        tickerStep_(stepOf(options.width / 8)) {
    setCredits();
    setTicker();
  }

  void render(uint64_t frame, const Picture& picture) override {
    const int bandTop = picture.height() - bandHeight_;
    for (size_t i = 0; i < picture.planes.size(); ++i) {
      const Plane& plane = picture.planes[i];
      const int shift = i == 0 ? 0 : picture.verticalShift;
      for (int y = 0; y < plane.height; ++y) {
        const int lumaRow = y << shift;
        const uint64_t now = halfFrameOfRow(picture.scan, frame, y);
        if (lumaRow < bandTop) {
          drawCreditsRow(now, lumaRow, picture, i, y);
        } else {
          drawTickerRow(now, lumaRow - bandTop, picture, i, y);
        }
      }
    }
    drawLabel(frame, picture, bandTop);
  }

 private:
  static constexpr int kTickerLetters = 1200;
  static constexpr int kCredits = 60;

  // Whole rows or columns a frame, an even count where fields each take half of it.
  int stepOf(uint32_t perSecond) const {
    const uint64_t frames = uint64_t{options_.rate.numerator} / options_.rate.denominator;
    const auto step = static_cast<int>(perSecond / std::max<uint64_t>(1, frames));
    if (options_.scan == Scan::kProgressive) return std::max(1, step);
    return std::max(2, step & ~1);
  }

  int heightOfCredits() const {
    const int lines = kCredits + kCredits / 6;
    return title_.lineAdvance() * 3 + body_.lineAdvance() * lines +
           small_.lineAdvance() * (kCredits / 6 * 5) + static_cast<int>(options_.height) / 2;
  }

  void setCentred(int y, const Font& font, const std::string& text, Colour colour) {
    credits_.add((credits_.width() - font.widthOf(text)) / 2, y, font, text, colour);
  }

  // Role to the left of the middle, name to the right; now and then a paragraph in small print.
  void setCredits() {
    const int middle = credits_.width() / 2;
    int y = 0;
    setCentred(y, title_, "THE " + writer_.name(), kTitleColour);
    y += title_.lineAdvance() * 2;
    for (int i = 0; i < kCredits; ++i) {
      const std::string role(kRoles[static_cast<size_t>(i) % kRoles.size()]);
      credits_.add(middle - body_.advance() - body_.widthOf(role), y, body_, role, kRoleColour);
      credits_.add(middle + body_.advance(), y, body_, writer_.name(), kNameColour);
      y += body_.lineAdvance();
      if (i % 6 != 5) continue;
      for (int line = 0; line < 4; ++line, y += small_.lineAdvance()) {
        setCentred(y, small_, writer_.twoHeadlines(), gray(6500));
      }
      y += body_.lineAdvance();
    }
  }

  void setTicker() {
    std::string text;
    while (text.size() < kTickerLetters) text += writer_.headline() + "  ***  ";
    text.resize(kTickerLetters);
    ticker_.add(0, 0, tickerFont_, text, gray(10000));
  }

  void drawCreditsRow(uint64_t now, int lumaRow, const Picture& picture, size_t index,
                      int planeRow) const {
    const Plane& plane = picture.planes[index];
    const int height = picture.height();
    const int top = levelOf(kTopColour, index);
    const int bottom = levelOf(kBottomColour, index);
    fillSpan(plane, picture.depth, planeRow, 0, plane.width,
             top + (bottom - top) * lumaRow / height);
    // The title comes in from below over the first seconds.
    const auto length = static_cast<uint64_t>(credits_.height());
    const uint64_t rolled = now * static_cast<uint64_t>(creditsStep_) / 2 +
                            static_cast<uint64_t>(lumaRow) + length * 2 -
                            static_cast<uint64_t>(height) / 2;
    credits_.drawRow(static_cast<int>(rolled % length), 0, picture, index, planeRow);
  }

  void drawTickerRow(uint64_t now, int row, const Picture& picture, size_t index,
                     int planeRow) const {
    const Plane& plane = picture.planes[index];
    fillSpan(plane, picture.depth, planeRow, 0, plane.width, levelOf(kTickerColour, index));
    const int textRow = row - (bandHeight_ - ticker_.height()) / 2;
    if (textRow < 0 || textRow >= ticker_.height()) return;
    const uint64_t rolled = now * static_cast<uint64_t>(tickerStep_) / 2;
    const auto left = static_cast<int>(rolled % static_cast<uint64_t>(ticker_.width()));
    ticker_.drawRow(textRow, left, picture, index, planeRow);
  }

  // A fixed box at the left, under which the ticker passes.
  void drawLabel(uint64_t frame, const Picture& picture, int bandTop) const {
    const std::string code = timeCodeOfFrame(options_.rate, frame).text();
    const int width = (tickerFont_.widthOf(code) + 2 * tickerFont_.advance()) & ~1;
    fillRectangle(picture, 0, bandTop, width, bandHeight_, kLabelColour);
    drawText(picture, tickerFont_.advance(), bandTop + (bandHeight_ - tickerFont_.height()) / 2,
             tickerFont_, code, gray(0));
  }

  PictureOptions options_;
  Font small_;
  Font body_;
  Font title_;
  Font tickerFont_;
  int bandHeight_;
  Writer writer_;
  TextStrip credits_;
  TextStrip ticker_;
  int creditsStep_;  // rows a frame
  int tickerStep_;   // columns a frame
};

}  // namespace

std::unique_ptr<Renderer> makeText(const PictureOptions& options) {
  return std::make_unique<Text>(options);
}

}  // namespace zel::testsrc
