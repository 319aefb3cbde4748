#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zel/mux/engine/configuration/configuration_line.h"

namespace zel::mux {

/// Where the sections of a configuration text stand, found in one pass: texts may have tens of
/// thousands of them. Names compare without regard to case; of two sections of one name the first
/// counts. Lines are told by their numbers, from 0.
class section_index {
 public:
  explicit section_index(std::span<const configuration_line> lines);

  /// The header of the main section `name`.
  std::optional<size_t> main(std::string_view name) const;
  /// The header of the first main section at `line` or behind it, or the number of lines.
  size_t next_main(size_t line) const;
  /// The header of the first section of either kind at `line` or behind it, likewise.
  size_t next_header(size_t line) const;
  /// The headers of the subsections `name`1 to `name``most` in the lines [begin, end): one element
  /// each, nothing where there is none.
  std::vector<std::optional<size_t>> subsections(size_t begin, size_t end, std::string_view name,
                                                 size_t most) const;

 private:
  std::span<const configuration_line> lines_;
  std::unordered_map<std::string, size_t> mainByName_;
  std::vector<size_t> mains_;  // ascending
  std::vector<size_t> subs_;
};

}  // namespace zel::mux
