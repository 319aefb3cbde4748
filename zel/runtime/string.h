#pragma once

#include <atomic>
#include <cstdint>

#include "zel/base/export.h"
#include "zel/platform/automation.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

template <class T>
class CArray;
class CByteArray;

/// Text that never changes, with a narrow form in UTF-8 and a wide form in UTF-16. It is made with
/// one form; the other comes into being when somebody asks for it.
///
/// Each `wchar_t` holds one UTF-16 unit, also where `wchar_t` has 32 bits. Wide arguments may hold
/// code points above 0xFFFF there, as wide literals do: they count as their two surrogates, in text
/// as in what is searched for. Malformed UTF-8 and single surrogates become U+FFFD in the other
/// form.
///
/// Text ends at its first NUL, and is at most 2^31 - 1 units long. An operation that would exceed
/// that, or finds no memory, returns null; a constructor leaves the string empty.
///
/// References: an operation that returns a `CString*` makes a new object and hands the caller one
/// reference. Arguments are borrowed. Pointers from `GetChars` and `GetWChars` belong to the string
/// and live as long as it.
///
/// Threads: everything but the destructor may be called on any thread at any time, on one string
/// too. Threads that ask for a missing form at the same moment convert it at the same moment, and
/// all get one and the same buffer; there is no lock. Making a string takes no lock and makes no
/// system call beyond what malloc does.
///
/// Null: every operation may be called through a null pointer. It finds no text then: `GetLength`
/// is 0, searches fail, numbers are 0, operations that derive a string from this one give null, and
/// appending gives what was appended.
class ZEL_API CString : public CDependenciesObjectVS2012 {
 public:
  static constexpr uint32_t Type = FourCharacterCode("text");

  /// An empty string. A null argument to the others counts as empty text.
  CString();
  explicit CString(char const* text);
  /// At most `count` bytes; a negative count means none.
  CString(char const* text, int32_t count);
  CString(char const* first, char const* second);
  explicit CString(wchar_t const* text);
  /// At most `count` elements; a negative count means none.
  CString(wchar_t const* text, int32_t count);
  CString(wchar_t const* first, wchar_t const* second);
  ~CString() override;

  /// UTF-16 units of UTF-8 text, 0 for null.
  static int32_t GetLength(char const* text);
  /// UTF-16 units of wide text, 0 for null.
  static int32_t GetLength(wchar_t const* text);
  /// The other form of a text, in a new buffer that the caller frees with the global
  /// `operator delete`. Null counts as empty text. @return null if memory is lacking.
  static wchar_t* GetWChars(char const* text);
  static char* GetChars(wchar_t const* text);

  /// Orders without regard to the case of ASCII letters: negative, 0 or positive. Null comes first.
  static int32_t Compare(CString const* a, CString const* b);
  /// The two joined. One null gives a copy of the other, two give null.
  static CString* Concat(CString const* a, char const* b);
  static CString* Concat(CString const* a, wchar_t const* b);
  static CString* Concat(CString const* a, CString const* b);
  /// The items with the separator between each two; a null item counts as empty. A null separator,
  /// a null array or an empty one give an empty string.
  static CString* Join(wchar_t const* separator, CArray<CString>* items);
  /// Text in the encoding of the C library's current locale, which is not always UTF-8, for the
  /// caller to free by `SysFreeString`. Null for null and for text that the locale can't read.
  static BSTR ToBSTR(char const* text);
  /// Two lower-case hexadecimal digits a byte; bytes of an array without data count as 0.
  static CString* FromBytes(CByteArray const* bytes);
  /// Text as printf makes it. Null for a null format, or when printf fails.
  static CString* WithFormat(char const* format, ...) __attribute__((format(printf, 1, 2)));

  /// A new string: this text with the argument behind it.
  CString* Append(char symbol) const;
  CString* Append(wchar_t symbol) const;
  CString* Append(char const* text) const;
  CString* Append(wchar_t const* text) const;
  CString* Append(CString const* text) const;
  CString* operator+(char symbol) const;
  CString* operator+(wchar_t symbol) const;
  CString* operator+(char const* text) const;
  CString* operator+(wchar_t const* text) const;
  CString* operator+(CString const* text) const;

  /// Whether there is no text or no unit in it.
  bool IsNullOrEmpty() const;
  /// Whether all units are white space by `iswspace`, or there are none.
  bool IsNullOrWhiteSpace() const;

  /// UTF-16 units. After `Replace` of text by text this is the length of the string before it.
  int32_t GetLength() const;
  /// The forms, made on demand. Null only for a null string, or without memory.
  char const* GetChars() const;
  wchar_t const* GetWChars() const;
  /// The unit at an index as a single byte of the C library's locale, 0 when it isn't one byte
  /// there or out of range.
  char GetChar(int32_t index) const;
  /// The unit at an index, 0 out of range.
  wchar_t GetWChar(int32_t index) const;
  /// `iswdigit` and `iswspace` of the unit; false out of range.
  bool IsDigit(int32_t index) const;
  bool IsWhiteSpace(int32_t index) const;

  /// Whether the needle occurs. A null or empty needle doesn't.
  bool Contains(char const* needle) const;
  bool Contains(wchar_t const* needle) const;
  /// The same without regard to the case of ASCII letters.
  bool ContainsIgnoreCase(char const* needle) const;
  bool ContainsIgnoreCase(wchar_t const* needle) const;

  /// First position in units, at or after `start`, or -1. A negative start gives -1. A `char` is
  /// widened by the C library's locale.
  int32_t IndexOf(char symbol) const;
  int32_t IndexOf(char symbol, int32_t start) const;
  int32_t IndexOf(wchar_t symbol) const;
  int32_t IndexOf(wchar_t symbol, int32_t start) const;
  /// Position in the narrow form: a BYTE offset. -1 for none, and for a null or empty needle.
  int32_t IndexOf(char const* needle) const;
  /// Position in units. -1 for none, and for a null or empty needle.
  int32_t IndexOf(wchar_t const* needle) const;
  int32_t IndexOf(CString const* needle) const;
  /// A BYTE offset, without regard to the case of ASCII letters. An empty needle is found at 0,
  /// unless the string is empty too.
  int32_t IndexOfIgnoreCase(char const* needle) const;
  /// Position in units; -1 for a null or empty needle.
  int32_t IndexOfIgnoreCase(wchar_t const* needle) const;
  /// First unit at or after `start` that is in the set. In the narrow form a unit counts as the
  /// byte that it is in the C library's locale. -1 for none, a null set, or a start out of range.
  int32_t IndexOfAny(char const* set, int32_t start) const;
  int32_t IndexOfAny(wchar_t const* set, int32_t start) const;
  /// Last position in units, or -1.
  int32_t LastIndexOf(char symbol) const;
  int32_t LastIndexOf(wchar_t symbol) const;
  /// `exact` false disregards the case of ASCII letters. An empty needle gives true, null false.
  bool StartsWith(char const* needle, bool exact) const;
  bool StartsWith(wchar_t const* needle, bool exact) const;
  bool EndsWith(char const* needle, bool exact) const;

  /// A new string with each unit `find` replaced.
  CString* Replace(char find, char with) const;
  CString* Replace(wchar_t find, wchar_t with) const;
  /// A new string with every occurrence replaced, left to right, none overlapping. Its text is
  /// right, but its `GetLength` stays that of this string: callers rely on it. An empty or null
  /// `find` replaces nothing; a null `with` counts as empty.
  CString* Replace(char const* find, char const* with) const;
  CString* Replace(wchar_t const* find, wchar_t const* with) const;

  /// The fields between the separators, empty ones too: always one more than separators. The
  /// caller owns the array's reference.
  CArray<CString>* Split(wchar_t separator) const;
  /// Null unless the range lies within `GetLength`.
  CString* Substring(int32_t start) const;
  CString* Substring(int32_t start, int32_t count) const;
  /// White space by `iswspace` off the ends.
  CString* TrimLeft() const;
  CString* TrimRight() const;
  CString* Trim() const;
  /// Units of the set off both ends.
  CString* Trim(wchar_t const* set) const;

  /// The number that the text starts with, held to the type's range; 0 if there is none. Without
  /// a base "0x" and "0" mean 16 and 8.
  int32_t ToInt() const;
  int32_t ToInt(int32_t base) const;
  int64_t ToInt64() const;
  int64_t ToInt64(int32_t base) const;
  /// By the C library's `wcstod`, whose decimal point is the locale's.
  double ToDouble() const;
  /// The number of a four-character code: four bytes of the narrow form, the first one on top;
  /// "%" and two hexadecimal digits stand for one byte. Missing bytes are 0. A byte at or above
  /// 0x80 that isn't escaped is added as a negative number: give codes in ASCII or escaped.
  uint32_t ToFour() const;
  /// Hexadecimal text as `count` bytes, filled up with zeros on the left.
  /// @return null if a character is no digit, or the text has more than `2 * count` of them.
  CByteArray* ToBytes(int32_t count) const;
  /// The wide form, for the caller to free by `SysFreeString`; null for a null string.
  BSTR ToBSTR() const;

  /// Exact comparison of that form. A null string equals a null argument and nothing else.
  bool Equals(char const* text) const;
  bool Equals(wchar_t const* text) const;
  bool Equals(CString const* text) const;
  /// Without regard to the case of ASCII letters, by the narrow forms.
  bool EqualsIgnoreCase(char const* text) const;
  bool EqualsIgnoreCase(CString const* text) const;
  /// A new string with this text.
  CString* Clone() const;

 private:
  int32_t length;  // UTF-16 units, without the terminator
  // Each is set once and then stays: by the constructor, or by the first thread to have converted
  // it. The wide form has room for at least `length` units, with zeros behind its text.
  mutable std::atomic<char*> chars;
  mutable std::atomic<wchar_t*> wchars;

  friend struct StringFactory;
};

/// Holds one reference to a `CString`.
class ZEL_API String : public Object<CString, void, void> {
 public:
  String();
  /// Adopts the caller's reference.
  String(CString* text);
  String(String const& other);
  /// Each makes a new string.
  String(char const* text);
  String(wchar_t const* text);
  ~String() override;

  using Object<CString, void, void>::operator=;
  String& operator=(String const& other);

  /// The forms of the string; null for an empty holder.
  operator char const*() const;
  operator wchar_t const*() const;

  /// A holder with a reference of its own.
  static String FromObject(CString* text);
};

}  // namespace Morvalen::Zel
