#include "zel/mux/engine/messages/message.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace zel::mux {
namespace {

struct conversion {
  size_t begin = std::string_view::npos;  // of the "%"
  size_t end = 0;                         // behind the letter
  char letter = 0;
  std::string plain;  // the same without the length: "%08" before the letter
};

// The first conversion of `form` that is one of those that texts may hold.
conversion first_conversion(std::string_view form) {
  for (size_t at = form.find('%'); at != std::string_view::npos; at = form.find('%', at + 1)) {
    size_t next = form.find_first_not_of("-+ #0123456789.", at + 1);
    if (next == std::string_view::npos) return {};
    const size_t flagsEnd = next;
    // A width of more digits than any text has isn't one of ours.
    if (flagsEnd - at > 8) continue;
    next = form.find_first_not_of('l', next);
    if (next == std::string_view::npos) return {};
    if (std::string_view("dixXfs").find(form[next]) == std::string_view::npos) continue;
    return {at, next + 1, form[next], std::string(form.substr(at, flagsEnd - at))};
  }
  return {};
}

int32_t integer_of(const message_argument& argument) {
  if (const auto* value = std::get_if<int64_t>(&argument)) return static_cast<int32_t>(*value);
  if (const auto* value = std::get_if<double>(&argument)) {
    if (std::isnan(*value)) return 0;
    constexpr double kLeast = std::numeric_limits<int32_t>::min();
    constexpr double kMost = std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(std::clamp(*value, kLeast, kMost));
  }
  return 0;
}

double number_of(const message_argument& argument) {
  if (const auto* value = std::get_if<double>(&argument)) return *value;
  if (const auto* value = std::get_if<int64_t>(&argument)) return static_cast<double>(*value);
  return 0;
}

// The form isn't a literal, but it has been cut to one conversion that fits the value's type.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <class Value>
std::string print(const std::string& form, Value value) {
  const int size = std::snprintf(nullptr, 0, form.c_str(), value);
  if (size <= 0) return {};
  std::string text(static_cast<size_t>(size) + 1, '\0');
  std::snprintf(text.data(), text.size(), form.c_str(), value);
  text.pop_back();
  return text;
}
#pragma GCC diagnostic pop

std::string print(const conversion& each, const message_argument& argument) {
  const std::string form = each.plain + each.letter;
  switch (each.letter) {
    case 'f':
      return print(form, number_of(argument));
    case 's':
      if (const auto* value = std::get_if<std::string_view>(&argument)) return std::string(*value);
      if (const auto* value = std::get_if<int64_t>(&argument)) return std::to_string(*value);
      return {};
    case 'x':
    case 'X':
      return print(form, static_cast<uint32_t>(integer_of(argument)));
    default:
      return print(form, integer_of(argument));
  }
}

}  // namespace

const message* find_message(std::span<const message> rows, int code) {
  const auto at =
      std::lower_bound(rows.begin(), rows.end(), code,
                       [](const message& row, int wanted) { return row.code < wanted; });
  return at != rows.end() && at->code == code ? &*at : nullptr;
}

std::string format_message(std::string_view form, const message_argument& argument) {
  const conversion found = first_conversion(form);
  if (found.begin == std::string_view::npos) return std::string(form);
  return std::string(form.substr(0, found.begin)) + print(found, argument) +
         std::string(form.substr(found.end));
}

}  // namespace zel::mux
