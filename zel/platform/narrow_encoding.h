#pragma once

#include <clocale>
#include <cstddef>

// The system's default narrow encoding: the one of the environment's locale (LC_ALL, LC_CTYPE,
// LANG), as the C library knows it, whether or not the program has called setlocale. A library
// can't rely on the program's locale, which is "C" until the program sets another one, and mustn't
// set it.
//
// Any thread may call these. They allocate nothing, but the C library loads the locale at the first
// call; a system without that locale gets "C", which is ASCII.

namespace zel::platform {

/// The locale whose encoding is the default; a handle of the C library that stays to the end.
locale_t defaultNarrowLocale();

/// Bytes that `narrowText` writes.
size_t narrowLength(locale_t locale, const wchar_t* units, size_t count);

/// Writes UTF-16 units in the locale's encoding; a character that it lacks, and a surrogate without
/// its partner, becomes "?".
/// @return the bytes written.
size_t narrowText(locale_t locale, const wchar_t* units, size_t count, char* out);

/// UTF-16 units that `widenText` writes.
size_t widenedLength(locale_t locale, const char* text, size_t size);

/// Writes text in the locale's encoding as UTF-16 units; a byte that starts no character becomes
/// U+FFFD.
/// @return the units written.
size_t widenText(locale_t locale, const char* text, size_t size, wchar_t* out);

}  // namespace zel::platform
