#include "zel/runtime/four_character_text.h"

#include <cstring>

#include "zel/runtime/hexadecimal.h"

namespace Morvalen::Zel {
namespace {

// Graphic ASCII without the escape sign: what is white space or a control character lies outside
// of the range.
bool StandsForItself(unsigned char byte) {
  return byte > ' ' && byte < 0x7F && byte != '%';
}

}  // namespace

void FourCharacterText(uint32_t code, char (&text)[kFourCharacterTextSize]) {
  std::memset(text, 0, sizeof(text));
  char* out = text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto byte = static_cast<unsigned char>(code >> shift);
    if (StandsForItself(byte)) {
      *out++ = static_cast<char>(byte);
      continue;
    }
    *out++ = '%';
    *out++ = kUpperDigits[byte >> 4];
    *out++ = kUpperDigits[byte & 15];
  }
}

}  // namespace Morvalen::Zel
