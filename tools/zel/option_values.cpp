#include "tools/zel/option_values.h"

#include <charconv>
#include <cmath>

#include <fmt/format.h>

namespace zel::tool {
namespace {

template <class Number, class... Format>
std::optional<Number> parseAll(std::string_view text, Format... format) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, format...);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::string rangeText(WholeRange range) {
  if (range.most == std::numeric_limits<int32_t>::max() ||
      range.most == std::numeric_limits<int64_t>::max())
    return range.least == std::numeric_limits<int32_t>::min()
               ? "a whole number"
               : fmt::format("a whole number from {}", range.least);
  return fmt::format("a whole number from {} to {}", range.least, range.most);
}

std::string rangeText(NumberRange range) {
  if (range.least == std::numeric_limits<double>::lowest()) return "a number";
  if (range.most == std::numeric_limits<double>::max())
    return fmt::format("a number from {}", range.least);
  return fmt::format("a number from {} to {}", range.least, range.most);
}

// "--frames" of "-n,--frames"
std::string longName(const std::string& names) {
  return names.substr(names.find("--"));
}

template <class Function>
CLI::Option* addTextFunction(CLI::App& app, const std::string& names, const std::string& typeName,
                             const std::string& help, Function function) {
  return app.add_option_function<std::string>(names, std::move(function), help)
      ->type_name(typeName)
      ->take_last();
}

}  // namespace

std::optional<int64_t> parseWholeNumber(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) {
    if (text.size() < 3 || text[2] == '-') return std::nullopt;
    return parseAll<int64_t>(text.substr(2), 16);
  }
  return parseAll<int64_t>(text, 10);
}

std::optional<double> parseNumber(std::string_view text) {
  const auto value = parseAll<double>(text, std::chars_format::general);
  return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<int64_t> parseBits(std::string_view text) {
  double unit = 1;
  if (!text.empty()) {
    const char last = text.back();
    if (last == 'k' || last == 'K') unit = 1e3;
    if (last == 'm' || last == 'M') unit = 1e6;
    if (unit != 1) text.remove_suffix(1);
  }
  const auto number = parseNumber(text);
  if (!number || *number < 0 || *number * unit > 1e15) return std::nullopt;
  return std::llround(*number * unit);
}

std::optional<PictureSize> parsePictureSize(std::string_view text) {
  const size_t x = text.find_first_of("xX");
  if (x == std::string_view::npos) return std::nullopt;
  const auto width = parseAll<int32_t>(text.substr(0, x), 10);
  const auto height = parseAll<int32_t>(text.substr(x + 1), 10);
  if (!width || !height || *width < 1 || *height < 1) return std::nullopt;
  return PictureSize{*width, *height};
}

std::optional<bool> parseSwitch(std::string_view text) {
  for (const char* no : {"0", "no", "off", "false"})
    if (text == no) return false;
  for (const char* yes : {"1", "yes", "on", "true"})
    if (text == yes) return true;
  return std::nullopt;
}

std::optional<int32_t> parseName(std::string_view text, std::span<const NamedValue> values) {
  for (const NamedValue& each : values)
    if (each.name == text) return each.value;
  return std::nullopt;
}

std::string listNames(std::span<const NamedValue> values) {
  std::string result;
  for (const NamedValue& each : values) {
    if (!result.empty()) result += ", ";
    result += each.name;
  }
  return result;
}

void throwBadValue(const std::string& option, std::string_view given, const std::string& takes) {
  throw CLI::ValidationError(fmt::format("{} is \"{}\"; it takes {}", option, given, takes));
}

CLI::Option* addText(CLI::App& app, const std::string& names, std::optional<std::string>& target,
                     const std::string& typeName, const std::string& help) {
  return addTextFunction(app, names, typeName, help,
                         [&target](const std::string& text) { target = text; });
}

CLI::Option* addWholeNumber(CLI::App& app, const std::string& names, std::optional<int64_t>& target,
                            WholeRange range, const std::string& help) {
  return addTextFunction(app, names, "N", help,
                         [&target, range, name = longName(names)](const std::string& text) {
                           target = parseWholeNumber(text);
                           if (!target || *target < range.least || *target > range.most)
                             throwBadValue(name, text, rangeText(range));
                         });
}

CLI::Option* addNumber(CLI::App& app, const std::string& names, std::optional<double>& target,
                       NumberRange range, const std::string& help) {
  return addTextFunction(app, names, "X", help,
                         [&target, range, name = longName(names)](const std::string& text) {
                           target = parseNumber(text);
                           if (!target || *target < range.least || *target > range.most)
                             throwBadValue(name, text, rangeText(range));
                         });
}

CLI::Option* addBits(CLI::App& app, const std::string& names, std::optional<int64_t>& target,
                     int64_t least, const std::string& help) {
  return addTextFunction(
      app, names, "BITS", help, [&target, least, name = longName(names)](const std::string& text) {
        target = parseBits(text);
        if (!target || *target < least)
          throwBadValue(name, text,
                        fmt::format("a number of bits from {}, such as 800k or 4.5M", least));
      });
}

CLI::Option* addName(CLI::App& app, const std::string& names, std::optional<int64_t>& target,
                     std::span<const NamedValue> values, const std::string& help) {
  return addTextFunction(app, names, "NAME", help + ": " + listNames(values),
                         [&target, values, name = longName(names)](const std::string& text) {
                           target = parseName(text, values);
                           if (!target) throwBadValue(name, text, "one of " + listNames(values));
                         });
}

}  // namespace zel::tool
