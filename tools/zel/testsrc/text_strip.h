#pragma once

// A long text set once, to be shown at any offset afterwards: for each of its rows, the runs of set
// dots from left to right.

#include <string_view>
#include <vector>

#include "tools/zel/testsrc/colour.h"
#include "tools/zel/testsrc/font.h"
#include "tools/zel/testsrc/picture.h"

namespace zel::testsrc {

class TextStrip {
 public:
  TextStrip(int width, int height) : width_(width), rows_(static_cast<size_t>(height)) {}

  int width() const { return width_; }
  int height() const { return static_cast<int>(rows_.size()); }

  /// Sets a line; lines are set from left to right and don't overlap.
  void add(int x, int y, const Font& font, std::string_view text, Colour colour);

  /// Draws one row of the strip over a row of plane `index`, the strip's column `left` at the
  /// plane's left edge, repeating the strip across.
  void drawRow(int row, int left, const Picture& picture, size_t index, int planeRow) const;

 private:
  struct Run {
    int begin;
    int end;
    Colour colour;
  };

  int width_;
  std::vector<std::vector<Run>> rows_;
};

}  // namespace zel::testsrc
