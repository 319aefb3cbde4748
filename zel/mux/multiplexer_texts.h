#pragma once

namespace Morvalen::Zel {

inline constexpr char kTwoPassFailed[] =
    "2-Pass Multiplexing failed. Please disable 2-Pass and try increasing File Bit Rate in the "
    "multiplexer.";
inline constexpr char kIncreaseRate[] =
    " Try increasing File Bit Rate in the multiplexer. If that fails, enable 2-Pass Multiplexing.";
inline constexpr char kConfigurationFileMissing[] = "Tarnwick configuration file missing";
inline constexpr char kErrorMessageProperty[] = "ErrorMessage";

}  // namespace Morvalen::Zel
