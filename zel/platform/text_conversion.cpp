#include "zel/platform/text_conversion.h"

#include <algorithm>
#include <cstring>

#include "zel/platform/text_kernels.h"
#include "zel/platform/utf8_step.h"

namespace zel::platform {
namespace {

// Most strings are names and keys: a few ASCII symbols, for which finding and entering a vector
// kernel takes longer than the work.
constexpr size_t kShort = 32;

bool isShortAscii(const char* text, size_t size) {
  if (size > kShort) return false;
  uint64_t bits = 0;
  size_t i = 0;
  for (; i + sizeof(bits) <= size; i += sizeof(bits)) {
    uint64_t eight = 0;
    std::memcpy(&eight, text + i, sizeof(eight));
    bits |= eight;
  }
  for (; i < size; ++i) bits |= static_cast<unsigned char>(text[i]);
  return (bits & 0x8080808080808080u) == 0;
}

bool isShortAscii(const wchar_t* units, size_t count) {
  if (count > kShort) return false;
  uint32_t bits = 0;
  for (size_t i = 0; i < count; ++i) bits |= static_cast<uint32_t>(units[i]);
  return bits < 0x80;
}

}  // namespace

size_t utf16Length(const char* text, size_t size) {
  return isShortAscii(text, size) ? size : vectorWideningKernels().utf16Length(text, size);
}

size_t utf8ToUtf16(const char* text, size_t size, wchar_t* out) {
  if (!isShortAscii(text, size)) return vectorWideningKernels().utf8ToUtf16(text, size, out);
  std::copy_n(text, size, out);
  return size;
}

size_t utf8Length(const wchar_t* units, size_t count) {
  return isShortAscii(units, count) ? count : vectorNarrowingKernels().utf8Length(units, count);
}

size_t utf16ToUtf8(const wchar_t* units, size_t count, char* out) {
  if (!isShortAscii(units, count)) return vectorNarrowingKernels().utf16ToUtf8(units, count, out);
  std::transform(units, units + count, out, [](wchar_t unit) { return static_cast<char>(unit); });
  return count;
}

namespace {

// What an element stands for: itself, or U+FFFD when it is beyond Unicode. Surrogates stay.
uint32_t codePointOf(wchar_t element) {
  const uint32_t value = elementValue(element);
  return value <= 0x10FFFF ? value : 0xFFFD;
}

}  // namespace

size_t unitLength(const wchar_t* elements, size_t count) {
  size_t units = count;
  for (size_t i = 0; i < count; ++i) units += codePointOf(elements[i]) > 0xFFFF;
  return units;
}

size_t copyUnits(const wchar_t* elements, size_t count, wchar_t* out) {
  size_t units = 0;
  for (size_t i = 0; i < count; ++i) units += putUtf16(codePointOf(elements[i]), out + units);
  return units;
}

}  // namespace zel::platform
