#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Morvalen::Zel {

// Values behind a label in the engine's message texts: "packet = 4711, PID = 0x0021, time = 3.20s".
// Nothing when the label isn't there or no digit follows it.

std::optional<int32_t> IntegerBehind(std::string_view text, std::string_view label);
std::optional<int32_t> HexadecimalBehind(std::string_view text, std::string_view label);
std::optional<double> DecimalBehind(std::string_view text, std::string_view label);

}  // namespace Morvalen::Zel
