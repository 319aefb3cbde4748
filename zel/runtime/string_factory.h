#pragma once

#include <string_view>

#include "zel/runtime/string.h"
#include "zel/runtime/text_buffer.h"

namespace Morvalen::Zel {

/// How the operations that derive a string from another make it: from views, which are copied, or
/// from a buffer that the new string adopts. Each gives the caller one reference, or null without
/// memory and for text that is too long to count.
struct StringFactory {
  static CString* FromNarrow(std::string_view text);
  static CString* FromNarrow(std::string_view first, std::string_view second);
  /// The views hold UTF-16 units; no element is above 0xFFFF.
  static CString* FromWide(std::wstring_view units);
  static CString* FromWide(std::wstring_view first, std::wstring_view second);

  /// Adopts a buffer that holds text of `size` symbols.
  static CString* Adopt(TextBuffer<char> text, size_t size);
  static CString* Adopt(TextBuffer<wchar_t> text, size_t size);
  /// Adopts a buffer and claims `length` units for it, whatever it holds. A wide buffer has at
  /// least that many, with zeros behind its text.
  static CString* AdoptWithLength(TextBuffer<char> text, int32_t length);
  static CString* AdoptWithLength(TextBuffer<wchar_t> text, int32_t length);

  /// The text of a form; empty for a null string.
  static std::string_view Narrow(CString const* text) { return ViewOf(Chars(text)); }
  static std::wstring_view Wide(CString const* text) { return ViewOf(WChars(text)); }

 private:
  static char const* Chars(CString const* text) {
    return text != nullptr ? text->GetChars() : nullptr;
  }
  static wchar_t const* WChars(CString const* text) {
    return text != nullptr ? text->GetWChars() : nullptr;
  }
};

}  // namespace Morvalen::Zel
