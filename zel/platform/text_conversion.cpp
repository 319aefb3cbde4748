#include "zel/platform/text_conversion.h"

#include "zel/platform/text_kernels.h"
#include "zel/platform/utf8_step.h"

namespace zel::platform {

size_t utf16Length(const char* text, size_t size) {
  return vectorTextKernels().utf16Length(text, size);
}

size_t utf8ToUtf16(const char* text, size_t size, wchar_t* out) {
  return vectorTextKernels().utf8ToUtf16(text, size, out);
}

size_t utf8Length(const wchar_t* units, size_t count) {
  return vectorTextKernels().utf8Length(units, count);
}

size_t utf16ToUtf8(const wchar_t* units, size_t count, char* out) {
  return vectorTextKernels().utf16ToUtf8(units, count, out);
}

namespace {

// What an element stands for: itself, or U+FFFD when it is beyond Unicode. Surrogates stay.
uint32_t codePointOf(wchar_t element) {
  const auto value = static_cast<uint32_t>(element);
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
