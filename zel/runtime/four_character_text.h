#pragma once

#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

/// Four bytes, each as three symbols at most, and a terminator.
inline constexpr int kFourCharacterTextSize = 13;

/// Writes a four-character code as text that `CString::ToFour` reads back to the same number: each
/// byte from the top as itself, unless it is "%", white space or not printable in ASCII, and then
/// as
/// "%" and two upper-case hexadecimal digits. The rest of the buffer is filled with NUL.
ZEL_API void FourCharacterText(uint32_t code, char (&text)[kFourCharacterTextSize]);

}  // namespace Morvalen::Zel
