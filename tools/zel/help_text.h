#pragma once

#include <span>
#include <string>

#include "tools/zel/subcommand.h"

namespace zel::tool {

/// --help of a subcommand whose options stand on `app`: usage, description, options by group,
/// examples. Pages and completions are made from this text by scripts/, which rely on its shape: a
/// group's title ends with a colon, an option's line starts with two blanks, further lines of its
/// text with more.
std::string helpText(const SubcommandText& text, const CLI::App& app);

/// --help of the tool.
std::string toolHelpText(std::span<const Subcommand> subcommands);

/// --help of a noun that has several verbs.
std::string nounHelpText(const std::string& noun, std::span<const Subcommand> subcommands);

}  // namespace zel::tool
