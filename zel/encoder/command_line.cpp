// The command line is what users of the x265 program type, so the reader is as forgiving as their
// habits ask for: what it doesn't know it passes over, and so does its caller with what x265
// refuses.

#include "zel/encoder/command_line.h"

#include <string_view>

namespace zel::encoder {
namespace {

constexpr bool IsSeparator(char character) {
  return character == ' ' || character == '\t' || character == '=';
}

// Splits as strtok does, runs of separators counting as one, but keeps its place in the object and
// not in the process, so that encoders may be set up on several threads at once.
class TokenReader {
 public:
  explicit TokenReader(char* text) : place(text) {}

  // The next token, NUL-terminated; null at the end.
  char const* Next() {
    while (IsSeparator(*place)) ++place;
    if (*place == '\0') return nullptr;
    char const* const token = place;
    while (*place != '\0' && !IsSeparator(*place)) ++place;
    if (*place != '\0') *place++ = '\0';
    return token;
  }

 private:
  char* place;
};

bool IsLong(std::string_view token) {
  return token.starts_with("--");
}
bool IsShort(std::string_view token) {
  return token.starts_with('-') && !IsLong(token);
}

bool Matches(CommandLineOption const& option, std::string_view token) {
  if (IsLong(token)) return token.substr(2) == option.longName;
  return IsShort(token) && option.shortName != nullptr && token.substr(1) == option.shortName;
}

CommandLineOption const* Find(std::span<CommandLineOption const> table, std::string_view token) {
  for (CommandLineOption const& option : table) {
    if (Matches(option, token)) return &option;
  }
  return nullptr;
}

bool TakesAsValue(CommandLineOption const& option, std::string_view token) {
  return option.kind == OptionKind::kValue ||
         (option.kind == OptionKind::kOptionalValue && !IsLong(token));
}

}  // namespace

void ParseCommandLine(char* text, std::span<CommandLineOption const> table, OptionSink sink) {
  TokenReader tokens(text);
  CommandLineOption const* pending = nullptr;
  while (char const* const token = tokens.Next()) {
    if (pending != nullptr && TakesAsValue(*pending, token)) {
      sink.take(sink.context, pending->longName, token);
      pending = nullptr;
      continue;
    }
    if (pending != nullptr) sink.take(sink.context, pending->longName, nullptr);
    pending = Find(table, token);
  }
  if (pending != nullptr) sink.take(sink.context, pending->longName, nullptr);
}

}  // namespace zel::encoder
