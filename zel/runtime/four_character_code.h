#pragma once

#include <cstdint>

namespace Morvalen::Zel {

/// Four ASCII characters read as a big-endian number: a type tag or a format code. "mp4v" is
/// 0x6D703476. A code of fewer characters is filled with blanks by whoever names it: "dv  ".
constexpr uint32_t FourCharacterCode(char const (&text)[5]) {
  return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 |
         uint32_t(uint8_t(text[2])) << 8 | uint32_t(uint8_t(text[3]));
}

/// A code that is no text stands for itself, so that a table can hold both.
constexpr uint32_t FourCharacterCode(uint32_t code) {
  return code;
}

}  // namespace Morvalen::Zel
