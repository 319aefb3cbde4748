#include "zel/mux/engine/configuration/configuration_line.h"

#include <algorithm>

namespace zel::mux {
namespace {

constexpr std::string_view kBlanks = " \t";

// Not the locale's letters: a file means the same everywhere.
char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}
bool is_digit(char letter) {
  return letter >= '0' && letter <= '9';
}

std::string without_blanks(std::string_view text) {
  std::string name;
  std::copy_if(text.begin(), text.end(), std::back_inserter(name),
               [](char each) { return kBlanks.find(each) == std::string_view::npos; });
  return name;
}

}  // namespace

std::string_view trim(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string lower_case(std::string_view text) {
  std::string small(text);
  std::ranges::transform(small, small.begin(), lower);
  return small;
}

bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() && begins_with_name(a, b);
}

bool begins_with_name(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

bool matches_listed_name(std::string_view key, std::string_view listed) {
  for (size_t i = 0; i < listed.size(); ++i) {
    if (i >= key.size()) return false;
    if (listed[i] == '0' && is_digit(key[i])) return true;
    if (lower(listed[i]) != lower(key[i])) return false;
  }
  return key.size() == listed.size();
}

configuration_line parse_line(std::string text) {
  configuration_line line;
  line.text = std::move(text);
  const std::string_view all = line.text;
  const size_t marker = all.find_first_of("=*$#");
  if (marker == std::string_view::npos) return line;
  const std::string_view before = all.substr(0, marker);
  switch (all[marker]) {
    case '=':
      line.type = line_type::parameter;
      line.key = trim(before);
      line.value = trim(all.substr(marker + 1));
      break;
    case '#':
      line.type = line_type::comment;
      line.value = all.substr(marker + 1);
      break;
    default:
      line.type = all[marker] == '*' ? line_type::main_section : line_type::subsection;
      line.key = without_blanks(before);
  }
  return line;
}

std::vector<configuration_line> read_lines(FILE* file) {
  std::vector<configuration_line> lines;
  std::rewind(file);
  std::string text;
  for (char letter = 0; std::fread(&letter, 1, 1, file) == 1;) {
    if (letter != '\n' && letter != '\r') {
      if (text.size() == kLongestLine) return lines;
      text += letter;
      continue;
    }
    if (!text.empty()) lines.push_back(parse_line(std::move(text)));
    text.clear();
  }
  if (!text.empty()) lines.push_back(parse_line(std::move(text)));
  return lines;
}

}  // namespace zel::mux
