#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The path of an input as the command line gives it: "-" is standard input.

namespace zel::tool {

/// `path` for messages: "standard input" for "-".
std::string inputName(const std::string& path);

/// The size in bytes; nothing for a pipe and for what can't be asked.
std::optional<uint64_t> regularFileSize(const std::string& path);

/// All of it. Throws Failure when it can't be opened or read.
std::string contentsOf(const std::string& path);

}  // namespace zel::tool
