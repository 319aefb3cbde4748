#include "tools/zel/dnxhd/frame_range.h"

#include <algorithm>

#include "tools/zel/option_values.h"

namespace zel::tool {

uint64_t FrameRange::countOf(uint64_t available) const {
  return std::min(end, available) - std::min(begin, available);
}

std::optional<FrameRange> parseFrameRange(std::string_view text) {
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos || text.size() == 1) return std::nullopt;
  FrameRange range;
  const auto read = [](std::string_view number, uint64_t& value) {
    if (number.empty()) return true;
    const std::optional<int64_t> parsed = parseWholeNumber(number);
    if (!parsed || *parsed < 0) return false;
    value = static_cast<uint64_t>(*parsed);
    return true;
  };
  if (!read(text.substr(0, colon), range.begin) || !read(text.substr(colon + 1), range.end))
    return std::nullopt;
  if (range.begin >= range.end) return std::nullopt;
  return range;
}

void addFrameRange(CLI::App& app, FrameRange& range, const std::string& what) {
  const auto take = [&range](const std::string& text) {
    const std::optional<FrameRange> parsed = parseFrameRange(text);
    if (!parsed)
      throwBadValue("--frames", text, "A:B, the first frame and the one behind the last");
    range = *parsed;
  };
  app.add_option_function<std::string>("--frames", take,
                                       what +
                                           " frames A to B - 1 only, counted from 0; either may "
                                           "be left out")
      ->type_name("A:B")
      ->take_last();
}

}  // namespace zel::tool
