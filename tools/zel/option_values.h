#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

// Values of options: reading them, and declaring options that take them. A value that can't be read
// is wrong usage, and the message says what was given and what it should be.

namespace zel::tool {

/// A name that an option takes, and the number that it stands for.
struct NamedValue {
  std::string_view name;
  int32_t value;
};

/// "720x576"
struct PictureSize {
  int32_t width = 0;
  int32_t height = 0;
  friend bool operator==(const PictureSize&, const PictureSize&) = default;
};

// Readers: nothing for text that is no such value, all of it.

/// Decimal, or hexadecimal after "0x".
std::optional<int64_t> parseWholeNumber(std::string_view text);
/// A finite number.
std::optional<double> parseNumber(std::string_view text);
/// Bits a second, or bits: "4500000", "4500k", "4.5M", "4.5m". Rounded to a whole number.
std::optional<int64_t> parseBits(std::string_view text);
std::optional<PictureSize> parsePictureSize(std::string_view text);
/// "0", "no", "off", "false" and "1", "yes", "on", "true".
std::optional<bool> parseSwitch(std::string_view text);
/// One of `values`, by name.
std::optional<int32_t> parseName(std::string_view text, std::span<const NamedValue> values);
/// "ultrafast, superfast, ..."
std::string listNames(std::span<const NamedValue> values);

// Options. The last of several wins. `names` are those of CLI11: "-o,--output".

CLI::Option* addText(CLI::App& app, const std::string& names, std::optional<std::string>& target,
                     const std::string& typeName, const std::string& help);

struct WholeRange {
  int64_t least = std::numeric_limits<int32_t>::min();
  int64_t most = std::numeric_limits<int32_t>::max();
};
CLI::Option* addWholeNumber(CLI::App& app, const std::string& names, std::optional<int64_t>& target,
                            WholeRange range, const std::string& help);

struct NumberRange {
  double least = std::numeric_limits<double>::lowest();
  double most = std::numeric_limits<double>::max();
};
CLI::Option* addNumber(CLI::App& app, const std::string& names, std::optional<double>& target,
                       NumberRange range, const std::string& help);

/// A rate or a size in bits, at least `least`.
CLI::Option* addBits(CLI::App& app, const std::string& names, std::optional<int64_t>& target,
                     int64_t least, const std::string& help);

/// The list of names is added to the help text.
CLI::Option* addName(CLI::App& app, const std::string& names, std::optional<int64_t>& target,
                     std::span<const NamedValue> values, const std::string& help);

/// Throws the error that the frame turns into wrong usage:
/// `--frames is "abc"; it takes a whole number from 1`.
[[noreturn]] void throwBadValue(const std::string& option, std::string_view given,
                                const std::string& takes);

}  // namespace zel::tool
