#pragma once

#include <cstddef>
#include <cstdint>

// One character of UTF-8 or UTF-16: what both forms of the conversion agree on.

namespace zel::platform {

struct Utf8Character {
  uint32_t codePoint;  // U+FFFD for an ill-formed sequence
  uint32_t size;       // bytes consumed, 1 to 4
  bool wellFormed;
};

/// The character at the start of `size` bytes, 1 or more. The second byte's range depends on the
/// first (the Unicode Standard, table 3-7), which rules out overlong forms, surrogates and what is
/// beyond U+10FFFF; an ill-formed sequence ends before the first byte that could not follow.
inline Utf8Character decodeUtf8(const unsigned char* text, size_t size) {
  const uint32_t first = text[0];
  if (first < 0x80) return {first, 1, true};
  constexpr Utf8Character kIllFormed = {0xFFFD, 1, false};
  if (first < 0xC2 || first > 0xF4) return kIllFormed;
  const uint32_t following = first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
  uint32_t low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  uint32_t high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  uint32_t codePoint = first & (0x3Fu >> following);
  for (uint32_t i = 1; i <= following; ++i) {
    if (i >= size || text[i] < low || text[i] > high) return {0xFFFD, i, false};
    codePoint = codePoint << 6 | (text[i] & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  return {codePoint, following + 1, true};
}

/// The number that an element holds, which is never negative.
inline uint32_t elementValue(wchar_t element) {
  return static_cast<uint32_t>(element);
}

inline bool isHighSurrogate(uint32_t unit) {
  return (unit & 0xFFFFFC00u) == 0xD800;
}
inline bool isLowSurrogate(uint32_t unit) {
  return (unit & 0xFFFFFC00u) == 0xDC00;
}

/// Writes one or two UTF-16 units of a code point up to 0x10FFFF; how many.
inline size_t putUtf16(uint32_t codePoint, wchar_t* out) {
  if (codePoint < 0x10000) {
    out[0] = static_cast<wchar_t>(codePoint);
    return 1;
  }
  out[0] = static_cast<wchar_t>(0xD7C0 + (codePoint >> 10));
  out[1] = static_cast<wchar_t>(0xDC00 | (codePoint & 0x3FF));
  return 2;
}

struct Utf16Character {
  uint32_t codePoint;
  uint32_t size;  // elements consumed, 1 or 2
};

/// The character at the start of `count` elements, 1 or more.
inline Utf16Character decodeUtf16(const wchar_t* units, size_t count) {
  const auto first = elementValue(units[0]);
  if (first < 0xD800 || (first > 0xDFFF && first <= 0x10FFFF)) return {first, 1};
  if (isHighSurrogate(first) && count > 1 && isLowSurrogate(elementValue(units[1]))) {
    return {0x10000 + ((first & 0x3FF) << 10) + (elementValue(units[1]) & 0x3FF), 2};
  }
  return {0xFFFD, 1};
}

inline size_t utf8Size(uint32_t codePoint) {
  return codePoint < 0x80 ? 1 : codePoint < 0x800 ? 2 : codePoint < 0x10000 ? 3 : 4;
}

/// Writes the UTF-8 form of a code point up to 0x10FFFF, surrogates excepted; how many bytes.
inline size_t putUtf8(uint32_t codePoint, char* out) {
  if (codePoint < 0x80) {
    out[0] = static_cast<char>(codePoint);
    return 1;
  }
  if (codePoint < 0x800) {
    out[0] = static_cast<char>(0xC0 | codePoint >> 6);
    out[1] = static_cast<char>(0x80 | (codePoint & 0x3F));
    return 2;
  }
  if (codePoint < 0x10000) {
    out[0] = static_cast<char>(0xE0 | codePoint >> 12);
    out[1] = static_cast<char>(0x80 | (codePoint >> 6 & 0x3F));
    out[2] = static_cast<char>(0x80 | (codePoint & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | codePoint >> 18);
  out[1] = static_cast<char>(0x80 | (codePoint >> 12 & 0x3F));
  out[2] = static_cast<char>(0x80 | (codePoint >> 6 & 0x3F));
  out[3] = static_cast<char>(0x80 | (codePoint & 0x3F));
  return 4;
}

}  // namespace zel::platform
