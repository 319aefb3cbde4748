#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace zel::testsrc {

// The generator's own letters: the printable characters of ASCII in five by eight dots.
constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 8;
constexpr int kGlyphAdvance = 6;  // from one letter to the next
constexpr int kLineAdvance = 10;  // from one line to the next

/// Whether a dot of a letter is set; false outside of the cell. Characters without a glyph show
/// as a question mark.
bool glyphDot(char c, int x, int y);

/// A letter's dots at some size, 0 or 1, row by row.
struct GlyphMask {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> dots;

  bool at(int x, int y) const { return dots[static_cast<size_t>(y) * width + x] != 0; }
};

/// The letter enlarged by a whole factor, with rounded corners where the factor is even.
GlyphMask glyphMask(char c, int scale);

/// All letters at one size, made once.
class Font {
 public:
  explicit Font(int scale);

  int scale() const { return scale_; }
  int advance() const { return kGlyphAdvance * scale_; }
  int height() const { return kGlyphHeight * scale_; }
  int lineAdvance() const { return kLineAdvance * scale_; }
  const GlyphMask& glyph(char c) const;

  /// How wide a text is, without the gap after its last letter.
  int widthOf(std::string_view text) const;

 private:
  int scale_;
  std::vector<GlyphMask> glyphs_;
};

/// The largest size that is not above `wanted` dots and whose letters look well: at least 1, even
/// from 4 on, a multiple of 4 from 8 on.
int fontScale(int wanted);

}  // namespace zel::testsrc
