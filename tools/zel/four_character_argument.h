#pragma once

#include <cstdint>
#include <string>

namespace zel::tool {

/// A code as text that a user can type back: "avc1", "dv%20%20".
std::string codeText(uint32_t code);

/// Reads a code that a user typed: four symbols, each a printable ASCII character or "%" with two
/// hexadecimal digits. Throws WrongUsage for anything else, which the library would take for some
/// code or other.
uint32_t parseCode(const std::string& text);

}  // namespace zel::tool
