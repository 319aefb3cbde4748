#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

// The grammar of a configuration text: the first of "=", "*", "$" and "#" in a line says what it
// is.

namespace zel::mux {

enum class line_type { other, comment, main_section, subsection, parameter };

struct configuration_line {
  line_type type = line_type::other;
  std::string text;  ///< as it stands in the file
  std::string key;   ///< of a parameter; of a header its name, without blanks
  std::string
      value;  ///< of a parameter, without the blanks around it; of a comment what is behind "#"
};

inline constexpr size_t kLongestLine = 2047;

/// The lines of `file` from its start. A line of more than kLongestLine bytes ends the text as the
/// end of the file does.
std::vector<configuration_line> read_lines(FILE* file);

configuration_line parse_line(std::string text);

std::string_view trim(std::string_view text);

/// The same with small letters, of those that are the same in either case.
std::string lower_case(std::string_view text);

/// Whether the two are the same, letters in either case.
bool same_name(std::string_view a, std::string_view b);
/// Whether `text` begins with `prefix`, letters in either case.
bool begins_with_name(std::string_view text, std::string_view prefix);

/// Whether `key` is what `listed` stands for: the same name; or, where `listed` has a "0" and `key`
/// a digit, anything from there on.
bool matches_listed_name(std::string_view key, std::string_view listed);

}  // namespace zel::mux
