#include "zel/platform/text_kernels.h"
#include "zel/platform/utf8_step.h"

namespace zel::platform {
namespace {

const unsigned char* bytesOf(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

size_t utf16LengthScalar(const char* text, size_t size) {
  size_t units = 0;
  for (size_t i = 0; i < size;) {
    const Utf8Character character = decodeUtf8(bytesOf(text) + i, size - i);
    units += character.codePoint < 0x10000 ? 1 : 2;
    i += character.size;
  }
  return units;
}

size_t utf8ToUtf16Scalar(const char* text, size_t size, wchar_t* out) {
  size_t units = 0;
  for (size_t i = 0; i < size;) {
    const Utf8Character character = decodeUtf8(bytesOf(text) + i, size - i);
    units += putUtf16(character.codePoint, out + units);
    i += character.size;
  }
  return units;
}

size_t utf8LengthScalar(const wchar_t* units, size_t count) {
  size_t bytes = 0;
  for (size_t i = 0; i < count;) {
    const Utf16Character character = decodeUtf16(units + i, count - i);
    bytes += utf8Size(character.codePoint);
    i += character.size;
  }
  return bytes;
}

size_t utf16ToUtf8Scalar(const wchar_t* units, size_t count, char* out) {
  size_t bytes = 0;
  for (size_t i = 0; i < count;) {
    const Utf16Character character = decodeUtf16(units + i, count - i);
    bytes += putUtf8(character.codePoint, out + bytes);
    i += character.size;
  }
  return bytes;
}

}  // namespace

const TextKernels& scalarTextKernels() {
  static constexpr TextKernels kKernels = {{utf16LengthScalar, utf8ToUtf16Scalar},
                                           {utf8LengthScalar, utf16ToUtf8Scalar}};
  return kKernels;
}

}  // namespace zel::platform
