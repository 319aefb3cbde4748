#include "tools/zel/testsrc/text_strip.h"

#include <algorithm>

namespace zel::testsrc {

void TextStrip::add(int x, int y, const Font& font, std::string_view text, Colour colour) {
  for (const char c : text) {
    const GlyphMask& mask = font.glyph(c);
    for (int row = 0; row < mask.height; ++row) {
      const int line = y + row;
      if (line < 0 || line >= height()) continue;
      std::vector<Run>& runs = rows_[static_cast<size_t>(line)];
      for (int begin = 0; begin < mask.width;) {
        int end = begin;
        while (end < mask.width && mask.at(end, row)) ++end;
        if (end > begin) runs.push_back({x + begin, x + end, colour});
        begin = end + 1;
      }
    }
    x += font.advance();
  }
}

void TextStrip::drawRow(int row, int left, const Picture& picture, size_t index,
                        int planeRow) const {
  const Plane& plane = picture.planes[index];
  const int shift = index == 0 ? 0 : picture.horizontalShift;
  const std::vector<Run>& runs = rows_[static_cast<size_t>(row)];
  const int pictureWidth = picture.width();
  for (int origin = -left; origin < pictureWidth; origin += width_) {
    const auto first = std::partition_point(runs.begin(), runs.end(),
                                            [&](const Run& run) { return run.end + origin <= 0; });
    for (auto run = first; run != runs.end() && run->begin + origin < pictureWidth; ++run) {
      const Extent x = subsampled(run->begin + origin, run->end + origin, shift, plane.width);
      const int level = index == 0 ? run->colour.y : index == 1 ? run->colour.cb : run->colour.cr;
      if (x.begin < x.end) fillSpan(plane, picture.depth, planeRow, x.begin, x.end, level);
    }
  }
}

}  // namespace zel::testsrc
