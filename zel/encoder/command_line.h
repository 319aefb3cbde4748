#pragma once

#include <span>

#include "zel/encoder/command_line_options.h"

namespace zel::encoder {

/// Takes one option of a command line: its long name, and its value or null.
struct OptionSink {
  void* context;
  void (*take)(void* context, char const* name, char const* value);
};

/// Splits `text` into tokens on blanks and "=", so that "--keyint 50" and "--keyint=50" are the
/// same, and gives the options that `table` knows to `sink`, in their order.
///
/// An option that takes a value takes the next token, whatever it looks like, so "--cbqpoffs -3"
/// does what it says; at the end of the text it goes to the sink with null. Unknown options, and
/// tokens that belong to no option, are passed over.
///
/// @param text NUL-terminated. Each token is terminated in place, so the text is spent afterwards.
void ParseCommandLine(char* text, std::span<CommandLineOption const> table, OptionSink sink);

}  // namespace zel::encoder
