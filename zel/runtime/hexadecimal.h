#pragma once

#include <cstdint>

namespace Morvalen::Zel {

/// The value of a hexadecimal digit of either case, or -1. ASCII only, whatever the locale.
constexpr int HexadecimalValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

inline constexpr char kLowerDigits[] = "0123456789abcdef";
inline constexpr char kUpperDigits[] = "0123456789ABCDEF";

}  // namespace Morvalen::Zel
