#pragma once

#include <cstddef>
#include <cstdint>

// UTF-8 to UTF-16 and back. A `wchar_t` element holds one UTF-16 unit, wherever `wchar_t` is wider
// than that too, so that indices and lengths of text are the same on every system.
//
// Malformed input never fails. Each maximal subpart of an ill-formed UTF-8 sequence becomes one
// U+FFFD (the Unicode Standard, 3.9, "U+FFFD Substitution of Maximal Subparts"). A surrogate
// without its partner becomes U+FFFD on the way to UTF-8: UTF-8 has no form for it (RFC 3629, 3),
// and text that passed through must be text that every other reader takes.
//
// All functions take a length instead of a terminator and write none. They may be called on any
// thread, allocate nothing and never read outside of the input.

namespace zel::platform {

inline constexpr wchar_t kReplacementUnit = 0xFFFD;

/// UTF-16 units that `utf8ToUtf16` writes for these bytes; never more than `size`.
size_t utf16Length(const char* text, size_t size);

/// Writes the UTF-16 units of UTF-8 text; `out` has room for `utf16Length` units.
/// @return the units written.
size_t utf8ToUtf16(const char* text, size_t size, wchar_t* out);

/// Bytes that `utf16ToUtf8` writes for these elements; never more than 4 for one.
/// An element above 0xFFFF counts as the code point that it is, or as U+FFFD beyond 0x10FFFF.
size_t utf8Length(const wchar_t* units, size_t count);

/// Writes the UTF-8 form of `count` elements; `out` has room for `utf8Length` bytes.
/// @return the bytes written.
size_t utf16ToUtf8(const wchar_t* units, size_t count, char* out);

/// UTF-16 units that `count` elements make once those above 0xFFFF are split into surrogates.
size_t unitLength(const wchar_t* elements, size_t count);

/// Copies elements as UTF-16 units: one above 0xFFFF becomes two surrogates, one beyond 0x10FFFF
/// U+FFFD. `out` has room for `unitLength` units.
/// @return the units written.
size_t copyUnits(const wchar_t* elements, size_t count, wchar_t* out);

}  // namespace zel::platform
