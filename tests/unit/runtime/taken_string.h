#pragma once

#include <string>

#include "zel/runtime/string.h"

namespace Morvalen::Zel {

/// What an operation gave, as standard text; its reference is released. "(null)" for null.
inline std::string Narrow(CString* taken) {
  const String holder(taken);
  return taken != nullptr ? taken->GetChars() : "(null)";
}

inline std::wstring Wide(CString* taken) {
  const String holder(taken);
  return taken != nullptr ? taken->GetWChars() : L"(null)";
}

/// A null string that the compiler doesn't know to be one. Who calls a member through it needs
/// `ZEL_CALLS_THROUGH_NULL`, since the sanitizer for undefined behaviour reports such calls.
inline CString* NullString() {
  static CString* volatile none = nullptr;
  return none;
}

#define ZEL_CALLS_THROUGH_NULL __attribute__((no_sanitize("null")))

}  // namespace Morvalen::Zel
