#include "tools/zel/help_text.h"

#include <algorithm>
#include <sstream>
#include <string_view>

#include <fmt/format.h>

namespace zel::tool {
namespace {

constexpr size_t kWidth = 80;
constexpr size_t kWidestNames = 24;  // wider ones have their text on the next line
constexpr std::string_view kUngrouped = "Options";

struct Row {
  std::string names;
  std::string text;
};

// Breaks `text` into lines of at most `width` columns, at blanks.
std::vector<std::string> wrapped(const std::string& text, size_t width) {
  std::vector<std::string> lines(1);
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!lines.back().empty() && lines.back().size() + 1 + word.size() > width)
      lines.emplace_back();
    if (!lines.back().empty()) lines.back() += ' ';
    lines.back() += word;
  }
  return lines;
}

std::string paragraphs(const std::string& text) {
  std::string result;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find("\n\n", start), text.size());
    if (!result.empty()) result += '\n';
    for (const std::string& line : wrapped(text.substr(start, end - start), kWidth))
      result += line + '\n';
    start = end + 2;
  }
  return result;
}

// "-o, --output FILE", with a blank column where there is no short name.
std::string namesOf(const CLI::Option& option) {
  if (option.get_positional()) return option.get_name(true);
  std::string names;
  for (const std::string& name : option.get_snames()) names += "-" + name + ", ";
  if (names.empty()) names = "    ";
  for (const std::string& name : option.get_lnames()) names += "--" + name + ", ";
  names.resize(names.size() - 2);
  if (option.get_items_expected_max() > 0) names += " " + option.get_type_name();
  return names;
}

std::string rowsText(const std::vector<Row>& rows, size_t namesWidth) {
  std::string result;
  const std::string indent(namesWidth + 4, ' ');
  for (const Row& row : rows) {
    const bool fits = row.names.size() <= namesWidth;
    std::string start = "  " + row.names;
    start.resize(std::max(start.size(), indent.size()), ' ');
    if (!fits) start += '\n' + indent;
    for (const std::string& line : wrapped(row.text, kWidth - indent.size())) {
      result += start + line + '\n';
      start = indent;
    }
  }
  return result;
}

size_t columnFor(const std::vector<Row>& rows, size_t atLeast) {
  size_t width = atLeast;
  for (const Row& row : rows)
    if (row.names.size() <= kWidestNames) width = std::max(width, row.names.size());
  return width;
}

struct Group {
  std::string title;
  std::vector<Row> rows;
};

// Operands and plain options come first and need no title.
std::vector<Group> groupsOf(const CLI::App& app) {
  std::vector<Group> groups(1);
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;  // hidden
    const bool plain = option->get_positional() || option->get_group() == kUngrouped;
    const std::string title = plain ? std::string() : option->get_group();
    auto group = std::find_if(groups.begin(), groups.end(),
                              [&](const Group& each) { return each.title == title; });
    if (group == groups.end()) group = groups.insert(groups.end(), Group{title, {}});
    group->rows.push_back({namesOf(*option), option->get_description()});
  }
  return groups;
}

}  // namespace

std::string helpText(const SubcommandText& text, const CLI::App& app) {
  std::string result =
      fmt::format("Usage: zel {} {}\n{}", text.name(), text.operands, paragraphs(text.description));
  const std::vector<Group> groups = groupsOf(app);
  size_t namesWidth = 0;
  for (const Group& group : groups) namesWidth = columnFor(group.rows, namesWidth);
  for (const Group& group : groups) {
    if (group.rows.empty()) continue;
    result += group.title.empty() ? "\n" : fmt::format("\n{}:\n", group.title);
    result += rowsText(group.rows, namesWidth);
  }
  result += "\nExamples:\n";
  for (const std::string& example : text.examples) result += "  " + example + "\n";
  return result;
}

std::string toolHelpText(std::span<const Subcommand> subcommands) {
  std::string result =
      "Usage: zel SUBCOMMAND [options] [OPERAND...]\n"
      "Broadcast engines on the command line.\n"
      "\n"
      "Subcommands:\n";
  std::vector<Row> rows;
  for (const Subcommand& each : subcommands) rows.push_back({each.text.name(), each.text.summary});
  result += rowsText(rows, columnFor(rows, 0));
  result +=
      "\n"
      "Options:\n"
      "  -h, --help     print this help; after a subcommand, its own\n"
      "      --version  print the version\n"
      "\n"
      "Exit codes:\n"
      "  0  done\n"
      "  1  failed; one line on standard error says why\n"
      "  2  wrong usage\n"
      "  3  done with warnings, where --report-warnings asked to be told\n"
      "\n"
      "Examples:\n"
      "  zel --version\n";
  for (const Subcommand& each : subcommands) result += "  " + each.text.examples.front() + "\n";
  return result;
}

std::string nounHelpText(const std::string& noun, std::span<const Subcommand> subcommands) {
  std::string result = fmt::format("Usage: zel {} VERB [options] [OPERAND...]\n\nVerbs:\n", noun);
  std::vector<Row> rows;
  std::string examples;
  for (const Subcommand& each : subcommands) {
    if (each.text.noun != noun) continue;
    rows.push_back({each.text.verb, each.text.summary});
    examples += fmt::format("  zel {} --help\n", each.text.name());
  }
  return result + rowsText(rows, columnFor(rows, 0)) + "\nExamples:\n" + examples;
}

}  // namespace zel::tool
