#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <limits>

#include "zel/runtime/byte_array.h"
#include "zel/runtime/hexadecimal.h"
#include "zel/runtime/null_this.h"
#include "zel/runtime/string.h"
#include "zel/runtime/string_factory.h"
#include "zel/runtime/text_buffer.h"

// Numbers, codes and bytes as text, and back.

ZEL_NULL_THIS_BEGIN

namespace Morvalen::Zel {

namespace {

int64_t ParseInteger(CString const* text, int32_t base) {
  wchar_t const* units = text != nullptr ? text->GetWChars() : nullptr;
  return units != nullptr ? std::wcstoll(units, nullptr, base) : 0;
}

// A 32-bit `long` stops at its limits, which is also what parsing with 64 bits comes to.
int32_t ClampToInt(int64_t value) {
  using Limits = std::numeric_limits<int32_t>;
  return static_cast<int32_t>(std::clamp<int64_t>(value, Limits::min(), Limits::max()));
}

}  // namespace

int32_t CString::ToInt() const {
  return ClampToInt(ParseInteger(this, 0));
}
int32_t CString::ToInt(int32_t base) const {
  return ClampToInt(ParseInteger(this, base));
}
int64_t CString::ToInt64() const {
  return ParseInteger(this, 0);
}
int64_t CString::ToInt64(int32_t base) const {
  return ParseInteger(this, base);
}

double CString::ToDouble() const {
  wchar_t const* text = IsNull(this) ? nullptr : GetWChars();
  return text != nullptr ? std::wcstod(text, nullptr) : 0.0;
}

uint32_t CString::ToFour() const {
  const std::string_view text = StringFactory::Narrow(this);
  const auto symbolAt = [text](size_t i) { return i < text.size() ? text[i] : '\0'; };
  uint32_t code = 0;
  size_t at = 0;
  for (int symbol = 0; symbol < 4; ++symbol) {
    const auto byte = static_cast<unsigned char>(symbolAt(at));
    // Deliberate: a plain byte at or above 0x80 is negative, and borrows from the bytes above it.
    // Pinned by string_numbers_test.cpp, ToFourAddsHighBytesAsNegativeNumbers.
    int value = byte < 0x80 ? byte : byte - 0x100;
    if (value == '%') {
      value = std::max(HexadecimalValue(symbolAt(at + 1)), 0) << 4 |
              std::max(HexadecimalValue(symbolAt(at + 2)), 0);
      at += 2;
    }
    ++at;
    code = (code << 8) + static_cast<uint32_t>(value);
  }
  return code;
}

CByteArray* CString::ToBytes(int32_t count) const {
  if (IsNull(this)) return nullptr;
  const std::string_view text = StringFactory::Narrow(this);
  const size_t size = count > 0 ? static_cast<size_t>(count) : 0;
  if (text.size() > 2 * size) return nullptr;
  auto* result = new CByteArray(nullptr, count);
  if (result == nullptr) return nullptr;
  unsigned char* bytes = result->GetData();
  const size_t padding = 2 * size - text.size();
  bool valid = bytes != nullptr;
  for (size_t i = 0; valid && i < 2 * size; ++i) {
    const int digit = i < padding ? 0 : HexadecimalValue(text[i - padding]);
    valid = digit >= 0;
    bytes[i / 2] = static_cast<unsigned char>(i % 2 == 0 ? digit << 4 : bytes[i / 2] | digit);
  }
  if (valid) return result;
  result->Release();
  return nullptr;
}

CString* CString::FromBytes(CByteArray const* bytes) {
  if (bytes == nullptr) return nullptr;
  const int32_t count = bytes->GetLength();
  TextBuffer<char> text = AllocateText<char>(size_t{2} * static_cast<size_t>(count));
  if (text == nullptr) return nullptr;
  for (int32_t i = 0; i < count; ++i) {
    const unsigned char byte = bytes->GetData(i);
    text[2 * static_cast<size_t>(i)] = kLowerDigits[byte >> 4];
    text[2 * static_cast<size_t>(i) + 1] = kLowerDigits[byte & 15];
  }
  return StringFactory::AdoptWithLength(std::move(text), 2 * count);
}

CString* CString::WithFormat(char const* format, ...) {
  if (format == nullptr) return nullptr;
  std::va_list arguments;
  va_start(arguments, format);
  std::va_list again;
  va_copy(again, arguments);
  const int size = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  TextBuffer<char> text = size >= 0 ? AllocateText<char>(static_cast<size_t>(size)) : nullptr;
  if (text != nullptr) std::vsnprintf(text.get(), static_cast<size_t>(size) + 1, format, again);
  va_end(again);
  return StringFactory::Adopt(std::move(text), static_cast<size_t>(std::max(size, 0)));
}

}  // namespace Morvalen::Zel

ZEL_NULL_THIS_END
