#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

// Messages are data: rows of a code and a printf form with at most one argument. Callers match on
// texts, so every form stands letter for letter in its table, and one function composes them.

namespace zel::mux {

/// One row of a message table.
struct message {
  int code;
  std::string_view text;
};

constexpr bool codes_ascend(std::span<const message> rows) {
  for (size_t i = 1; i < rows.size(); ++i)
    if (rows[i].code <= rows[i - 1].code) return false;
  return true;
}

/// What stands in for the "%" form of a text: nothing, an integer, a number or a text.
using message_argument = std::variant<std::monostate, int64_t, double, std::string_view>;

/// The row of `code`, or null. The rows ascend by code.
const message* find_message(std::span<const message> rows, int code);

/// Composes `form` with `argument`. The first conversion takes the argument, converted where its
/// kind differs from what the form asks for (a form of "%li" prints 32 bits, as "%d" does); a
/// missing argument counts as 0 or an empty text. Nothing but %d %i %li %x %X %f %lf %s, with
/// flags, width and precision, is a conversion; all else stays as it stands.
std::string format_message(std::string_view form, const message_argument& argument);

}  // namespace zel::mux
