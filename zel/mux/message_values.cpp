#include "zel/mux/message_values.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace Morvalen::Zel {
namespace {

std::optional<std::string_view> Behind(std::string_view text, std::string_view label) {
  size_t const place = text.find(label);
  if (place == std::string_view::npos) return std::nullopt;
  return text.substr(place + label.size());
}

// What doesn't fit is the largest value: these are counts of packets and bytes, compared with
// limits.
std::optional<int32_t> Whole(std::string_view digits, int base) {
  int64_t value = 0;
  std::from_chars_result const result =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
  if (result.ptr == digits.data()) return std::nullopt;
  int64_t const most = std::numeric_limits<int32_t>::max();
  if (result.ec == std::errc::result_out_of_range) return int32_t(most);
  return int32_t(std::min(value, most));
}

size_t RunOf(std::string_view text, std::string_view characters) {
  return std::min(text.find_first_not_of(characters), text.size());
}

}  // namespace

std::optional<int32_t> IntegerBehind(std::string_view text, std::string_view label) {
  auto const rest = Behind(text, label);
  if (!rest) return std::nullopt;
  return Whole(rest->substr(0, RunOf(*rest, "0123456789")), 10);
}

std::optional<int32_t> HexadecimalBehind(std::string_view text, std::string_view label) {
  auto const rest = Behind(text, label);
  if (!rest || !(rest->starts_with("0x") || rest->starts_with("0X"))) return std::nullopt;
  std::string_view const digits = rest->substr(2);
  return Whole(digits.substr(0, RunOf(digits, "0123456789abcdefABCDEF")), 16);
}

std::optional<double> DecimalBehind(std::string_view text, std::string_view label) {
  auto const rest = Behind(text, label);
  if (!rest) return std::nullopt;
  std::string_view const digits = rest->substr(0, RunOf(*rest, "0123456789."));
  if (digits.find_first_of("0123456789") == std::string_view::npos) return std::nullopt;
  double value = 0;
  std::from_chars_result const result = std::from_chars(
      digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed);
  if (result.ec != std::errc()) return std::nullopt;
  return value;
}

}  // namespace Morvalen::Zel
