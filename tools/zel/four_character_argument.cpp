#include "tools/zel/four_character_argument.h"

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "zel/runtime/four_character_text.h"
#include "zel/runtime/string.h"

namespace zel::tool {
namespace {

bool isHexadecimal(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// How many symbols there are; -1 when one of them is none.
int countSymbols(const std::string& text) {
  int count = 0;
  for (size_t i = 0; i < text.size(); ++i, ++count) {
    if (text[i] < ' ' || text[i] > '~') return -1;
    if (text[i] != '%') continue;
    if (i + 2 >= text.size() || !isHexadecimal(text[i + 1]) || !isHexadecimal(text[i + 2]))
      return -1;
    i += 2;
  }
  return count;
}

}  // namespace

std::string codeText(uint32_t code) {
  char text[Morvalen::Zel::kFourCharacterTextSize];
  Morvalen::Zel::FourCharacterText(code, text);
  return text;
}

uint32_t parseCode(const std::string& text) {
  const int count = countSymbols(text);
  if (count == 4) {
    Morvalen::Zel::CString* string = new Morvalen::Zel::CString(text.c_str());
    const uint32_t code = string->ToFour();
    string->Release();
    return code;
  }
  std::string hint;
  if (count > 0 && count < 4) {
    std::string padded = text;
    for (int i = count; i < 4; ++i) padded += "%20";
    hint = fmt::format("; with blanks at the end it is {}", padded);
  }
  throw WrongUsage(
      fmt::format("CODE is \"{}\"; it takes four characters, any of which may be % and "
                  "two hexadecimal digits{}",
                  text, hint));
}

}  // namespace zel::tool
