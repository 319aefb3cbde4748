#include <algorithm>
#include <cwctype>

#include "zel/platform/text_conversion.h"
#include "zel/runtime/array.h"
#include "zel/runtime/null_this.h"
#include "zel/runtime/string.h"
#include "zel/runtime/string_factory.h"
#include "zel/runtime/text_buffer.h"

// Strings made from strings: joined, cut and replaced.

ZEL_NULL_THIS_BEGIN

namespace Morvalen::Zel {
namespace {

template <class Symbol>
using View = std::basic_string_view<Symbol>;

bool IsSpace(wchar_t unit) {
  return std::iswspace(static_cast<std::wint_t>(unit)) != 0;
}

// Caller's elements behind a string's units.
CString* JoinElements(std::wstring_view units, std::wstring_view elements) {
  const UnitText tail(elements);
  return tail.Failed() ? nullptr : StringFactory::FromWide(units, tail.View());
}

template <class Predicate>
std::wstring_view TrimmedLeft(std::wstring_view text, Predicate trims) {
  const auto first = std::find_if_not(text.begin(), text.end(), trims);
  text.remove_prefix(static_cast<size_t>(first - text.begin()));
  return text;
}

template <class Predicate>
std::wstring_view TrimmedRight(std::wstring_view text, Predicate trims) {
  const auto last = std::find_if_not(text.rbegin(), text.rend(), trims);
  text.remove_suffix(static_cast<size_t>(last - text.rbegin()));
  return text;
}

template <class Symbol>
size_t CountOf(View<Symbol> text, View<Symbol> find) {
  size_t count = 0;
  for (size_t at = text.find(find); at != View<Symbol>::npos;
       at = text.find(find, at + find.size())) {
    ++count;
  }
  return count;
}

template <class Symbol>
struct Replaced {
  TextBuffer<Symbol> text;
  size_t size;
};

// The text with every occurrence of `find`, which isn't empty, replaced; zeros up to `room`.
template <class Symbol>
Replaced<Symbol> ReplaceText(View<Symbol> text, View<Symbol> find, View<Symbol> with, size_t room) {
  const size_t count = CountOf(text, find);
  // No overflow: below 2^31 occurrences of below 2^31 symbols.
  const size_t size = text.size() - count * find.size() + count * with.size();
  Replaced<Symbol> result{AllocateText<Symbol>(std::max(size, room)), size};
  if (result.text == nullptr) return result;
  Symbol* out = result.text.get();
  size_t from = 0;
  for (size_t at = text.find(find); at != View<Symbol>::npos; at = text.find(find, from)) {
    out = std::copy(text.begin() + from, text.begin() + at, out);
    out = std::copy(with.begin(), with.end(), out);
    from = at + find.size();
  }
  out = std::copy(text.begin() + from, text.end(), out);
  std::fill(out, result.text.get() + std::max(size, room), Symbol{});
  return result;
}

// Appending works on a null string as on an empty one, so all forms come here by a pointer.
CString* AppendText(CString const* text, char const* tail) {
  return StringFactory::FromNarrow(StringFactory::Narrow(text), ViewOf(tail));
}

CString* AppendText(CString const* text, wchar_t const* tail) {
  return JoinElements(StringFactory::Wide(text), ViewOf(tail));
}

CString* AppendText(CString const* text, CString const* tail) {
  return StringFactory::FromWide(StringFactory::Wide(text), StringFactory::Wide(tail));
}

CString* AppendSymbol(CString const* text, char symbol) {
  const char tail[] = {symbol, '\0'};
  return AppendText(text, tail);
}

CString* AppendSymbol(CString const* text, wchar_t symbol) {
  const wchar_t tail[] = {symbol, L'\0'};
  return AppendText(text, tail);
}

}  // namespace

CString* CString::Append(char symbol) const {
  return AppendSymbol(this, symbol);
}
CString* CString::Append(wchar_t symbol) const {
  return AppendSymbol(this, symbol);
}
CString* CString::Append(char const* text) const {
  return AppendText(this, text);
}
CString* CString::Append(wchar_t const* text) const {
  return AppendText(this, text);
}
CString* CString::Append(CString const* text) const {
  return AppendText(this, text);
}
CString* CString::operator+(char symbol) const {
  return AppendSymbol(this, symbol);
}
CString* CString::operator+(wchar_t symbol) const {
  return AppendSymbol(this, symbol);
}
CString* CString::operator+(char const* text) const {
  return AppendText(this, text);
}
CString* CString::operator+(wchar_t const* text) const {
  return AppendText(this, text);
}
CString* CString::operator+(CString const* text) const {
  return AppendText(this, text);
}

CString* CString::Clone() const {
  return IsNull(this) ? nullptr : StringFactory::FromWide(StringFactory::Wide(this));
}

CString* CString::Concat(CString const* a, char const* b) {
  if (b == nullptr) return a != nullptr ? a->Clone() : nullptr;
  return StringFactory::FromNarrow(StringFactory::Narrow(a), ViewOf(b));
}

CString* CString::Concat(CString const* a, wchar_t const* b) {
  if (b == nullptr) return a != nullptr ? a->Clone() : nullptr;
  return JoinElements(StringFactory::Wide(a), ViewOf(b));
}

CString* CString::Concat(CString const* a, CString const* b) {
  if (a == nullptr && b == nullptr) return nullptr;
  return StringFactory::FromWide(StringFactory::Wide(a), StringFactory::Wide(b));
}

CString* CString::Join(wchar_t const* separator, CArray<CString>* items) {
  if (separator == nullptr || items == nullptr || items->GetCount() == 0) return new CString;
  const UnitText between(separator);
  if (between.Failed()) return nullptr;
  const int32_t count = items->GetCount();
  size_t size = between.View().size() * static_cast<size_t>(count - 1);
  for (int32_t i = 0; i < count; ++i) {
    const RObject<CString> item(items->GetAt(i));
    size += StringFactory::Wide(item).size();
  }
  TextBuffer<wchar_t> text = AllocateText<wchar_t>(size);
  if (text == nullptr) return nullptr;
  wchar_t* out = text.get();
  for (int32_t i = 0; i < count; ++i) {
    if (i > 0) out = std::copy(between.View().begin(), between.View().end(), out);
    const RObject<CString> item(items->GetAt(i));
    const std::wstring_view units = StringFactory::Wide(item);
    out = std::copy(units.begin(), units.end(), out);
  }
  return StringFactory::Adopt(std::move(text), size);
}

CString* CString::Replace(char find, char with) const {
  if (IsNull(this)) return nullptr;
  // U+FFFD for a symbol that the locale can't widen: the unit is gone from the text either way.
  return Replace(WidenSymbol(find, L'\0'), WidenSymbol(with, zel::platform::kReplacementUnit));
}

CString* CString::Replace(wchar_t find, wchar_t with) const {
  if (IsNull(this)) return nullptr;
  const std::wstring_view text = StringFactory::Wide(this);
  const auto isUnit = [](wchar_t element) { return static_cast<uint32_t>(element) <= 0xFFFF; };
  if (!isUnit(find) || !isUnit(with)) {
    // A code point of two units, which only a wider wchar_t can ask for. Here the length is
    // counted.
    const wchar_t findText[] = {find, L'\0'};
    const wchar_t withText[] = {with, L'\0'};
    const UnitText from(findText);
    const UnitText to(withText);
    if (from.Failed() || to.Failed()) return nullptr;
    if (from.View().empty()) return Clone();
    Replaced<wchar_t> result = ReplaceText(text, from.View(), to.View(), 0);
    return StringFactory::Adopt(std::move(result.text), result.size);
  }
  // Within the room that the length claims: see the invariant of the field `wchars`.
  const size_t room = std::max(text.size(), static_cast<size_t>(length));
  TextBuffer<wchar_t> result = AllocateText<wchar_t>(room);
  if (result == nullptr) return nullptr;
  std::replace_copy(text.begin(), text.end(), result.get(), find, with);
  std::fill(result.get() + text.size(), result.get() + room, L'\0');
  return StringFactory::AdoptWithLength(std::move(result), length);
}

// Deliberate: the length stays that of the source in both forms. Pinned by string_edit_test.cpp,
// ReplaceOfTextKeepsTheLengthOfTheSource.
CString* CString::Replace(char const* find, char const* with) const {
  if (IsNull(this)) return nullptr;
  const std::string_view sought = ViewOf(find);
  if (sought.empty()) return Clone();
  Replaced<char> result = ReplaceText(StringFactory::Narrow(this), sought, ViewOf(with), 0);
  return StringFactory::AdoptWithLength(std::move(result.text), length);
}

CString* CString::Replace(wchar_t const* find, wchar_t const* with) const {
  if (IsNull(this)) return nullptr;
  const UnitText sought(find);
  const UnitText substitute(with);
  if (sought.Failed() || substitute.Failed()) return nullptr;
  if (sought.View().empty()) return Clone();
  Replaced<wchar_t> result = ReplaceText(StringFactory::Wide(this), sought.View(),
                                         substitute.View(), static_cast<size_t>(length));
  return StringFactory::AdoptWithLength(std::move(result.text), length);
}

CArray<CString>* CString::Split(wchar_t separator) const {
  if (IsNull(this)) return nullptr;
  const wchar_t separatorText[] = {separator, L'\0'};
  const UnitText between(separatorText);
  if (between.Failed()) return nullptr;
  std::wstring_view rest = StringFactory::Wide(this);
  const size_t separators = between.View().empty() ? 0 : CountOf(rest, between.View());
  RObject<CArray<CString>> fields(new CArray<CString>(static_cast<int32_t>(separators + 1)));
  if (fields == nullptr) return nullptr;
  for (size_t i = 0; i <= separators; ++i) {
    const size_t end = i < separators ? rest.find(between.View()) : rest.size();
    const RObject<CString> field(StringFactory::FromWide(rest.substr(0, end)));
    if (field == nullptr) return nullptr;
    fields->Add(field);
    if (i < separators) rest.remove_prefix(end + between.View().size());
  }
  // An array that had no memory for its items has dropped them.
  const bool complete = fields->GetCount() == fields->GetCapacity() && fields->GetCount() > 0;
  return complete ? fields.SafeAcquire() : nullptr;
}

CString* CString::Substring(int32_t start) const {
  if (IsNull(this) || start < 0) return nullptr;
  return Substring(start, length - start);
}

CString* CString::Substring(int32_t start, int32_t count) const {
  if (IsNull(this) || start < 0 || count < 0) return nullptr;
  if (start > length || count > length - start) return nullptr;
  wchar_t const* text = GetWChars();
  return text != nullptr ? StringFactory::FromWide(ViewOf(text + start, count)) : nullptr;
}

CString* CString::TrimLeft() const {
  if (IsNull(this)) return nullptr;
  return StringFactory::FromWide(TrimmedLeft(StringFactory::Wide(this), IsSpace));
}

CString* CString::TrimRight() const {
  if (IsNull(this)) return nullptr;
  return StringFactory::FromWide(TrimmedRight(StringFactory::Wide(this), IsSpace));
}

CString* CString::Trim() const {
  if (IsNull(this)) return nullptr;
  const std::wstring_view text = TrimmedLeft(StringFactory::Wide(this), IsSpace);
  return StringFactory::FromWide(TrimmedRight(text, IsSpace));
}

CString* CString::Trim(wchar_t const* set) const {
  if (IsNull(this)) return nullptr;
  const UnitText units(set);
  if (units.Failed()) return nullptr;
  const auto trims = [&](wchar_t unit) {
    return units.View().find(unit) != std::wstring_view::npos;
  };
  const std::wstring_view text = TrimmedLeft(StringFactory::Wide(this), trims);
  return StringFactory::FromWide(TrimmedRight(text, trims));
}

}  // namespace Morvalen::Zel

ZEL_NULL_THIS_END
