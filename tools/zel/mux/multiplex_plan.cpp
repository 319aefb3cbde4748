#include "tools/zel/mux/multiplex_plan.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/suggestion.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

// What the reader of configurations takes as one line.
constexpr size_t kLongestLine = 2047;

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

std::string_view withoutDigits(std::string_view key) {
  while (!key.empty() && std::isdigit(static_cast<unsigned char>(key.back())) != 0)
    key.remove_suffix(1);
  return key;
}

// Whether a key of a text belongs to the row of the table.
bool isKeyOf(const tsm_config_key& row, std::string_view key) {
  const std::string_view stem = withoutDigits(key);
  const bool numbered = stem.size() != key.size();
  switch (row.kind) {
    case tsm_value_kind::files:
      return sameName(key, row.name) || (numbered && sameName(stem, row.numberedName));
    case tsm_value_kind::hex_list:
      return numbered && sameName(stem, row.name);
    default:
      return sameName(key, row.name);
  }
}

const tsm_config_key* findKey(const tsm_config_section& section, std::string_view key) {
  const auto found = std::find_if(section.keys.begin(), section.keys.end(),
                                  [&](const tsm_config_key& row) { return isKeyOf(row, key); });
  return found == section.keys.end() ? nullptr : &*found;
}

bool isIdentifier(std::string_view text) {
  return !text.empty() && std::isalpha(static_cast<unsigned char>(text.front())) != 0 &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
         });
}

bool isKeyValue(std::string_view text) {
  const size_t equals = text.find('=');
  return equals != std::string_view::npos && isIdentifier(text.substr(0, equals));
}

// A name with blanks at its ends is quoted; two quotes of its own would be taken for such.
std::string quoted(const std::string& value) {
  if (std::count(value.begin(), value.end(), '"') >= 2)
    throw WrongUsage(fmt::format(
        "{}: a configuration can't hold a name with two double quotes; use another", value));
  const bool blanks = !value.empty() && (std::isspace(static_cast<unsigned char>(value.front())) ||
                                         std::isspace(static_cast<unsigned char>(value.back())));
  return blanks ? '"' + value + '"' : value;
}

std::string line(const KeyValue& each, bool isName) {
  std::string text = fmt::format("{} = {}\n", each.key, isName ? quoted(each.value) : each.value);
  if (std::any_of(text.begin(), text.end() - 1, [](char c) { return c == '\n' || c == '\r'; }))
    throw WrongUsage(fmt::format("{}: a value can't have a line end in it", each.key));
  if (text.size() > kLongestLine)
    throw WrongUsage(fmt::format("{}: the value is {} bytes too long for a configuration", each.key,
                                 text.size() - kLongestLine));
  return text;
}

std::string lines(std::string_view section, const std::vector<KeyValue>& keys) {
  const tsm_config_section& known = sectionNamed(section);
  std::string text;
  for (const KeyValue& each : keys) {
    const tsm_config_key* row = findKey(known, each.key);
    const bool isName =
        row != nullptr && (row->kind == tsm_value_kind::files || row->kind == tsm_value_kind::text);
    text += line(each, isName);
  }
  return text;
}

// Sections of a kind count from 1 within their program.
std::string streamsText(const std::vector<PlannedStream>& streams) {
  std::string text;
  for (const tsm_config_section& section : tsm_config_sections()) {
    int number = 0;
    for (const PlannedStream& each : streams) {
      if (each.section != section.name) continue;
      text += fmt::format("\n{}{}$\n", section.name, ++number);
      text += lines(section.name, each.keys);
    }
  }
  return text;
}

// Of the main section header in this line; empty for other lines.
std::string mainSectionOf(std::string_view row) {
  const size_t marker = row.find_first_of("=*$#");
  if (marker == std::string_view::npos || row[marker] != '*') return {};
  std::string name(row.substr(0, marker));
  std::erase_if(name, [](char c) { return c == ' ' || c == '\t'; });
  return name;
}

}  // namespace

const tsm_config_section& sectionNamed(std::string_view name) {
  const auto all = tsm_config_sections();
  const auto found = std::find_if(
      all.begin(), all.end(), [&](const tsm_config_section& each) { return each.name == name; });
  if (found == all.end()) throw Failure(fmt::format("no section {}", name));
  return *found;
}

std::string configurationText(const MultiplexPlan& plan) {
  std::string text = "Transport*\n" + lines("Transport", plan.transport);
  text += streamsText(plan.streams);
  int number = 0;
  for (const PlannedProgram& each : plan.programs) {
    text += fmt::format("\nProgram{}*\n", ++number);
    if (!each.number.empty()) text += line({"ProgramNumber", each.number}, false);
    text += lines("Program", each.keys);
    text += streamsText(each.streams);
  }
  return text;
}

std::string withTransportKeys(const std::string& text, const std::vector<KeyValue>& keys) {
  size_t begin = 0;
  while (begin < text.size()) {
    const size_t end = std::min(text.find_first_of("\r\n", begin), text.size());
    if (sameName(mainSectionOf(std::string_view(text).substr(begin, end - begin)), "Transport"))
      return text.substr(0, end) + "\n" + lines("Transport", keys) + text.substr(end);
    begin = end + 1;
  }
  return text;
}

KeyValue parseKeyValue(const tsm_config_section& section, std::string_view argument,
                       const std::string& option) {
  if (!isKeyValue(argument))
    throw WrongUsage(fmt::format("{} is \"{}\"; it takes KEY=VALUE", option, argument));
  const size_t equals = argument.find('=');
  const std::string_view key = argument.substr(0, equals);
  if (findKey(section, key) == nullptr) {
    std::vector<std::string> names;
    for (const tsm_config_key& row : section.keys) names.emplace_back(row.name);
    const std::string hint = didYouMean(key, names);
    throw WrongUsage(fmt::format("{}: section {} has no key {}{}", option, section.name, key,
                                 hint.empty() ? "; `zel config keys` lists them" : hint));
  }
  return {std::string(key), std::string(argument.substr(equals + 1))};
}

StreamArgument parseStreamArgument(const tsm_config_section& section, std::string_view argument,
                                   const std::string& option) {
  std::vector<std::string> pieces;
  for (size_t begin = 0; begin <= argument.size();) {
    const size_t end = std::min(argument.find(',', begin), argument.size());
    const std::string piece(argument.substr(begin, end - begin));
    // A file may well be named "a=b.ts": the first piece is KEY=VALUE only where there is the key.
    const bool begins =
        isKeyValue(piece) &&
        (!pieces.empty() || findKey(section, piece.substr(0, piece.find('='))) != nullptr);
    if (begins && pieces.empty()) pieces.emplace_back();
    if (begins || pieces.empty())
      pieces.push_back(piece);
    else
      pieces.back() += "," + piece;
    begin = end + 1;
  }
  StreamArgument result;
  result.file = pieces.front();
  for (size_t i = 1; i < pieces.size(); ++i)
    result.keys.push_back(parseKeyValue(section, pieces[i], option));
  return result;
}

std::vector<KeyValue> keysOf(const tsm_config_section& section, const StreamArgument& argument) {
  std::vector<KeyValue> keys;
  if (!argument.file.empty()) {
    const auto row =
        std::find_if(section.keys.begin(), section.keys.end(),
                     [](const tsm_config_key& each) { return each.kind == tsm_value_kind::files; });
    // "File" alone hides the numbered ones.
    const bool hasMore =
        std::any_of(argument.keys.begin(), argument.keys.end(), [&](const KeyValue& each) {
          return each.key.size() > row->numberedName.size() && isKeyOf(*row, each.key);
        });
    keys.push_back(
        {hasMore ? std::string(row->numberedName) + "1" : std::string(row->name), argument.file});
  }
  keys.insert(keys.end(), argument.keys.begin(), argument.keys.end());
  return keys;
}

}  // namespace zel::tool
