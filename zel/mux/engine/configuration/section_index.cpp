#include "zel/mux/engine/configuration/section_index.h"

#include <algorithm>
#include <charconv>

namespace zel::mux {
namespace {

// The number behind `name`, 0 where there is none that a section could have.
size_t number_behind(std::string_view key, std::string_view name) {
  if (!begins_with_name(key, name)) return 0;
  const std::string_view digits = key.substr(name.size());
  if (digits.empty() || digits.front() == '0') return 0;
  size_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, fault] = std::from_chars(digits.data(), end, number);
  return fault == std::errc() && stop == end ? number : 0;
}

}  // namespace

section_index::section_index(std::span<const configuration_line> lines) : lines_(lines) {
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].type == line_type::subsection) subs_.push_back(i);
    if (lines[i].type != line_type::main_section) continue;
    mains_.push_back(i);
    mainByName_.try_emplace(lower_case(lines[i].key), i);
  }
}

std::optional<size_t> section_index::main(std::string_view name) const {
  const auto found = mainByName_.find(lower_case(name));
  if (found == mainByName_.end()) return std::nullopt;
  return found->second;
}

size_t section_index::next_main(size_t line) const {
  const auto found = std::ranges::lower_bound(mains_, line);
  return found == mains_.end() ? lines_.size() : *found;
}

size_t section_index::next_header(size_t line) const {
  const auto found = std::ranges::lower_bound(subs_, line);
  return std::min(found == subs_.end() ? lines_.size() : *found, next_main(line));
}

std::vector<std::optional<size_t>> section_index::subsections(size_t begin, size_t end,
                                                              std::string_view name,
                                                              size_t most) const {
  std::vector<std::optional<size_t>> headers(most);
  for (auto at = std::ranges::lower_bound(subs_, begin); at != subs_.end() && *at < end; ++at) {
    const size_t number = number_behind(lines_[*at].key, name);
    if (number >= 1 && number <= most && !headers[number - 1]) headers[number - 1] = *at;
  }
  return headers;
}

}  // namespace zel::mux
