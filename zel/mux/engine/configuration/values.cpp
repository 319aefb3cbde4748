#include "zel/mux/engine/configuration/values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include "zel/mux/engine/configuration/configuration_line.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_time_code;

constexpr std::string_view kSpace = " \t\v\f";
constexpr std::string_view kDigits = "0123456789";
constexpr int32_t kPositive = 1;
constexpr int32_t kNegative = 3;
constexpr int32_t kMicroseconds = 1'000'000;

struct signed_text {
  bool negative = false;
  std::string_view digits;
};

signed_text split_sign(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kSpace), text.size()));
  signed_text result;
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
    result.negative = text[0] == '-';
    text.remove_prefix(1);
  }
  result.digits = text;
  return result;
}

std::optional<int64_t> parse_in_base(const signed_text& text, int base) {
  uint64_t magnitude = 0;
  const char* end = text.digits.data() + text.digits.size();
  const auto [stop, fault] = std::from_chars(text.digits.data(), end, magnitude, base);
  if (fault != std::errc()) return std::nullopt;
  constexpr auto kMost = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (magnitude > kMost) return std::nullopt;
  return text.negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
}

std::optional<int32_t> in_32_bits(std::optional<int64_t> value) {
  if (!value || *value < std::numeric_limits<int32_t>::min() ||
      *value > std::numeric_limits<uint32_t>::max())
    return std::nullopt;
  return static_cast<int32_t>(static_cast<uint32_t>(*value));
}

int hex_digit(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
  if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
  return -1;
}

// Up to four fields, right aligned: hours, minutes, seconds, and the last one as text.
struct time_fields {
  bool negative = false;
  bool any = false;      // some digit was there
  char separator = ':';  // before the last field
  std::vector<std::string> fields;
};

std::optional<time_fields> split_time(std::string_view text) {
  constexpr size_t kMostFields = 4;
  time_fields result;
  result.fields.emplace_back();
  bool first = true;
  for (const char each : text) {
    if (kSpace.find(each) != std::string_view::npos) continue;
    if (first && each == '-') {
      result.negative = true;
    } else if (each >= '0' && each <= '9') {
      result.fields.back() += each;
      result.any = true;
    } else if (each == ':' || each == ';' || each == '.') {
      if (result.fields.size() == kMostFields) return std::nullopt;
      result.separator = each;
      result.fields.emplace_back();
    } else {
      return std::nullopt;
    }
    first = false;
  }
  if (!result.any) return result;
  const bool gap = std::any_of(result.fields.begin(), result.fields.end(),
                               [](const std::string& each) { return each.empty(); });
  if (gap) return std::nullopt;
  return result;
}

// The field `fromRight` of the end, 0 where there is none.
std::optional<int32_t> field_value(const time_fields& time, size_t fromRight) {
  if (fromRight >= time.fields.size()) return 0;
  const std::string& field = time.fields[time.fields.size() - 1 - fromRight];
  constexpr size_t kMostDigits = 9;
  if (field.size() > kMostDigits) return std::nullopt;
  return in_32_bits(parse_in_base({false, field}, 10));
}

std::optional<tsm_time_code> time_of(const time_fields& time, std::optional<int32_t> last) {
  const auto seconds = field_value(time, 1);
  const auto minutes = field_value(time, 2);
  const auto hours = field_value(time, 3);
  if (!last || !seconds || !minutes || !hours) return std::nullopt;
  tsm_time_code code = {};
  code.sign = time.negative ? kNegative : kPositive;
  code.hours = *hours;
  code.minutes = *minutes;
  code.seconds = *seconds;
  code.frames = *last;
  return code;
}

// Millionths of a second, rounded half up: 1,000,000 where that carries.
int32_t fraction_of(const std::string& digits) {
  constexpr size_t kKept = 6;
  int32_t value = 0;
  for (size_t i = 0; i < kKept; ++i) value = value * 10 + (i < digits.size() ? digits[i] - '0' : 0);
  return digits.size() > kKept && digits[kKept] >= '5' ? value + 1 : value;
}

void carry(tsm_time_code& time) {
  if (time.frames < kMicroseconds) return;
  time.frames -= kMicroseconds;
  if (++time.seconds < 60) return;
  time.seconds -= 60;
  if (++time.minutes < 60) return;
  time.minutes -= 60;
  ++time.hours;
}

std::string clock_text(const tsm_time_code& time, char separator, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%s%02d:%02d:%02d%c%0*d", time.sign == kNegative ? "-" : "",
                time.hours, time.minutes, time.seconds, separator, digits, time.frames);
  return text;
}

}  // namespace

std::optional<bool> parse_yes_no(std::string_view text) {
  if (same_name(text, "yes")) return true;
  if (same_name(text, "no")) return false;
  return std::nullopt;
}

std::optional<int32_t> parse_choice(std::string_view text,
                                    std::span<const std::string_view> words) {
  for (size_t i = 0; i < words.size(); ++i)
    if (same_name(text, words[i])) return static_cast<int32_t>(i);
  return std::nullopt;
}

std::optional<int32_t> parse_integer(std::string_view text) {
  signed_text number = split_sign(text);
  if (number.digits.size() > 2 && number.digits[0] == '0' && (number.digits[1] | 0x20) == 'x' &&
      hex_digit(number.digits[2]) >= 0) {
    number.digits.remove_prefix(2);
    return in_32_bits(parse_in_base(number, 16));
  }
  const bool octal = !number.digits.empty() && number.digits[0] == '0';
  return in_32_bits(parse_in_base(number, octal ? 8 : 10));
}

std::optional<int32_t> parse_long(std::string_view text) {
  return in_32_bits(parse_in_base(split_sign(text), 10));
}

std::optional<int64_t> parse_wide(std::string_view text) {
  return parse_in_base(split_sign(text), 10);
}

std::optional<double> parse_real(std::string_view text) {
  const signed_text number = split_sign(text);
  // Infinity and "not a number" are numbers to the standard's reader, but no rates.
  if (number.digits.find_first_of(kDigits) > 1) return std::nullopt;
  double value = 0;
  const char* end = number.digits.data() + number.digits.size();
  const auto [stop, fault] = std::from_chars(number.digits.data(), end, value);
  if (fault != std::errc() || !std::isfinite(value)) return std::nullopt;
  return number.negative ? -value : value;
}

std::string_view parse_text(std::string_view text) {
  const size_t first = text.find('"');
  if (first == std::string_view::npos) return text;
  const size_t second = text.find('"', first + 1);
  return second == std::string_view::npos ? text : text.substr(first + 1, second - first - 1);
}

std::optional<tsm_time_code> parse_time(std::string_view text) {
  const auto fields = split_time(text);
  if (!fields) return std::nullopt;
  if (!fields->any) return tsm_time_code{};
  auto time = time_of(*fields, field_value(*fields, 0));
  if (time) time->dropFrame = fields->separator != ':';
  return time;
}

std::optional<tsm_time_code> parse_time_offset(std::string_view text) {
  const auto fields = split_time(text);
  if (!fields) return std::nullopt;
  if (!fields->any) return tsm_time_code{};
  if (fields->separator != '.') {
    auto time = time_of(*fields, field_value(*fields, 0));
    if (time) time->dropFrame = fields->separator == ';';
    return time;
  }
  auto time = time_of(*fields, fraction_of(fields->fields.back()));
  if (!time) return std::nullopt;
  time->isFraction = 1;
  carry(*time);
  return time;
}

bool append_hex(std::string_view text, std::vector<uint8_t>& bytes) {
  for (size_t i = 0; i < text.size();) {
    if (text[i] == ' ' || text[i] == '\t' || text[i] == ',') {
      ++i;
      continue;
    }
    const int high = hex_digit(text[i++]);
    if (high < 0) return false;
    const int low = i < text.size() ? hex_digit(text[i]) : -1;
    if (low >= 0) ++i;
    bytes.push_back(static_cast<uint8_t>(low >= 0 ? high * 16 + low : high));
  }
  return true;
}

std::optional<std::vector<int32_t>> parse_integers(std::string_view text) {
  std::vector<int32_t> values;
  constexpr std::string_view kSeparators = " \t,";
  for (size_t at = text.find_first_not_of(kSeparators); at != std::string_view::npos;
       at = text.find_first_not_of(kSeparators, at)) {
    const size_t end = std::min(text.find_first_of(kSeparators, at), text.size());
    const auto value = parse_integer(text.substr(at, end - at));
    if (!value) return std::nullopt;
    values.push_back(*value);
    at = end;
  }
  return values;
}

std::string real_text(double value) {
  // The longest is the sign, 309 digits, the point and three more.
  char text[400];
  const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 3);
  return {text, result.ptr};
}

std::string time_text(const tsm_time_code& time) {
  return clock_text(time, time.dropFrame != 0 ? '.' : ':', 2);
}

std::string time_offset_text(const tsm_time_code& time) {
  // A "." would make frames a fraction to the reader.
  if (time.isFraction == 0) return clock_text(time, time.dropFrame != 0 ? ';' : ':', 2);
  return clock_text(time, '.', 6);
}

uint8_t channel_status_crc(std::span<const uint8_t> bytes) {
  unsigned crc = 0xFF;
  for (const uint8_t each : bytes) {
    crc ^= each;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x1D) & 0xFF : crc << 1;
  }
  return static_cast<uint8_t>(crc);
}

}  // namespace zel::mux
