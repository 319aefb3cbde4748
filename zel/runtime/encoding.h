#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

class CByteArray;
class CString;

/// Text to bytes and back, in UTF-8 or in the system's default narrow encoding, which is that of
/// the environment's locale (LC_ALL, LC_CTYPE or LANG), whatever locale the program has set.
/// Threads: an encoding is never changed; use it on any.
class ZEL_API CEncoding : public CDependenciesObjectVS2012 {
 public:
  /// "UTF-8", in either case, gives code page 65001; any other name and null give 0, the default.
  explicit CEncoding(char const* name);
  ~CEncoding() override;

  /// The instances that live from the start of the process to its end. Borrowed.
  static CEncoding* GetDefault();
  static CEncoding* GetUtf8();

  /// The text's bytes in a new array, without a terminator. A character that the encoding lacks
  /// becomes "?" (U+FFFD in UTF-8). @return null for null, or without memory.
  CByteArray* GetBytes(wchar_t const* text) const;
  /// The bytes' text, up to the first NUL, in a new string. What is malformed becomes U+FFFD.
  /// @return null for null, a negative length, or without memory.
  CString* GetString(unsigned char const* bytes, int32_t length) const;

 private:
  uint32_t codePage;

  // Makes the two instances.
  static void Start();
  friend class ProcessStart;
};

}  // namespace Morvalen::Zel
