#include <algorithm>
#include <cwchar>
#include <cwctype>

#include "zel/runtime/null_this.h"
#include "zel/runtime/string.h"
#include "zel/runtime/string_factory.h"
#include "zel/runtime/text_buffer.h"

// Reading a string's text: units, searches and comparisons. What takes an index holds it against
// `length`, which the wide form always has room for; what takes the whole text goes by its end.

ZEL_NULL_THIS_BEGIN

namespace Morvalen::Zel {
namespace {

template <class Symbol>
using View = std::basic_string_view<Symbol>;

constexpr size_t kNone = View<char>::npos;

int32_t PositionOf(size_t found) {
  return found == kNone ? -1 : static_cast<int32_t>(found);
}

template <class Symbol>
bool SameFolded(Symbol a, Symbol b) {
  return FoldCase(a) == FoldCase(b);
}

template <class Symbol>
size_t FindFolded(View<Symbol> text, View<Symbol> needle) {
  const auto found =
      std::search(text.begin(), text.end(), needle.begin(), needle.end(), SameFolded<Symbol>);
  if (found == text.end()) return kNone;
  return static_cast<size_t>(found - text.begin());
}

template <class Symbol>
bool EqualText(View<Symbol> a, View<Symbol> b, bool exact) {
  if (exact) return a == b;
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), SameFolded<Symbol>);
}

// A unit as the single byte that it is in the C library's locale, 0 if it is none.
char ByteOf(wchar_t unit) {
  const int byte = std::wctob(static_cast<std::wint_t>(unit));
  return byte == EOF ? '\0' : static_cast<char>(byte);
}

// A symbol as one unit, or two for a code point above 0xFFFF.
struct SymbolText {
  explicit SymbolText(wchar_t symbol) : element{symbol, L'\0'}, units(element) {}
  wchar_t element[2];
  UnitText units;
};

}  // namespace

bool CString::IsNullOrEmpty() const {
  return IsNull(this) || length == 0;
}

bool CString::IsNullOrWhiteSpace() const {
  if (IsNull(this) || length == 0) return true;
  const std::wstring_view text = StringFactory::Wide(this);
  return std::all_of(text.begin(), text.end(), [](wchar_t unit) {
    return std::iswspace(static_cast<std::wint_t>(unit)) != 0;
  });
}

wchar_t CString::GetWChar(int32_t index) const {
  if (IsNull(this) || index < 0 || index >= length) return L'\0';
  wchar_t const* text = GetWChars();
  return text != nullptr ? text[index] : L'\0';
}

char CString::GetChar(int32_t index) const {
  return IsNull(this) ? '\0' : ByteOf(GetWChar(index));
}

bool CString::IsDigit(int32_t index) const {
  return !IsNull(this) && std::iswdigit(static_cast<std::wint_t>(GetWChar(index))) != 0;
}

bool CString::IsWhiteSpace(int32_t index) const {
  return !IsNull(this) && std::iswspace(static_cast<std::wint_t>(GetWChar(index))) != 0;
}

bool CString::Contains(char const* needle) const {
  return !IsNull(this) && IndexOf(needle) >= 0;
}

bool CString::Contains(wchar_t const* needle) const {
  return !IsNull(this) && IndexOf(needle) >= 0;
}

bool CString::ContainsIgnoreCase(char const* needle) const {
  return !IsNull(this) && !ViewOf(needle).empty() && IndexOfIgnoreCase(needle) >= 0;
}

bool CString::ContainsIgnoreCase(wchar_t const* needle) const {
  return !IsNull(this) && IndexOfIgnoreCase(needle) >= 0;
}

int32_t CString::IndexOf(char symbol) const {
  return IsNull(this) ? -1 : IndexOf(symbol, 0);
}

int32_t CString::IndexOf(char symbol, int32_t start) const {
  return IsNull(this) ? -1 : IndexOf(WidenSymbol(symbol, L'\0'), start);
}

int32_t CString::IndexOf(wchar_t symbol) const {
  return IsNull(this) ? -1 : IndexOf(symbol, 0);
}

int32_t CString::IndexOf(wchar_t symbol, int32_t start) const {
  if (start < 0 || symbol == L'\0') return -1;
  const SymbolText sought(symbol);
  return PositionOf(
      StringFactory::Wide(this).find(sought.units.View(), static_cast<size_t>(start)));
}

int32_t CString::IndexOf(char const* needle) const {
  const std::string_view sought = ViewOf(needle);
  if (sought.empty()) return -1;
  return PositionOf(StringFactory::Narrow(this).find(sought));
}

int32_t CString::IndexOf(wchar_t const* needle) const {
  const UnitText sought(needle);
  if (sought.View().empty()) return -1;
  return PositionOf(StringFactory::Wide(this).find(sought.View()));
}

int32_t CString::IndexOf(CString const* needle) const {
  return IsNull(this) || needle == nullptr ? -1 : IndexOf(needle->GetWChars());
}

int32_t CString::IndexOfIgnoreCase(char const* needle) const {
  if (needle == nullptr) return -1;
  // Deliberate: an empty needle is found at 0 here, and not in the wide form. Pinned by
  // string_search_test.cpp, IndexOfIgnoreCaseOfAnEmptyNeedle.
  return PositionOf(FindFolded(StringFactory::Narrow(this), ViewOf(needle)));
}

int32_t CString::IndexOfIgnoreCase(wchar_t const* needle) const {
  const UnitText sought(needle);
  if (sought.View().empty()) return -1;
  return PositionOf(FindFolded(StringFactory::Wide(this), sought.View()));
}

int32_t CString::IndexOfAny(char const* set, int32_t start) const {
  const std::wstring_view text = StringFactory::Wide(this);
  const std::string_view symbols = ViewOf(set);
  if (start < 0) return -1;
  for (auto i = static_cast<size_t>(start); i < text.size(); ++i) {
    const char symbol = ByteOf(text[i]);
    if (symbol != '\0' && symbols.find(symbol) != kNone) return static_cast<int32_t>(i);
  }
  return -1;
}

int32_t CString::IndexOfAny(wchar_t const* set, int32_t start) const {
  if (start < 0) return -1;
  const UnitText symbols(set);
  return PositionOf(
      StringFactory::Wide(this).find_first_of(symbols.View(), static_cast<size_t>(start)));
}

int32_t CString::LastIndexOf(char symbol) const {
  return IsNull(this) ? -1 : LastIndexOf(WidenSymbol(symbol, L'\0'));
}

int32_t CString::LastIndexOf(wchar_t symbol) const {
  if (symbol == L'\0') return -1;
  const SymbolText sought(symbol);
  return PositionOf(StringFactory::Wide(this).rfind(sought.units.View()));
}

bool CString::StartsWith(char const* needle, bool exact) const {
  if (IsNull(this) || needle == nullptr) return false;
  const std::string_view sought = ViewOf(needle);
  return EqualText(StringFactory::Narrow(this).substr(0, sought.size()), sought, exact);
}

bool CString::StartsWith(wchar_t const* needle, bool exact) const {
  if (IsNull(this) || needle == nullptr) return false;
  const UnitText sought(needle);
  if (sought.Failed()) return false;
  return EqualText(StringFactory::Wide(this).substr(0, sought.View().size()), sought.View(), exact);
}

bool CString::EndsWith(char const* needle, bool exact) const {
  if (IsNull(this) || needle == nullptr) return false;
  const std::string_view sought = ViewOf(needle);
  std::string_view text = StringFactory::Narrow(this);
  if (text.size() < sought.size()) return false;
  text.remove_prefix(text.size() - sought.size());
  return EqualText(text, sought, exact);
}

bool CString::Equals(char const* text) const {
  if (IsNull(this) || text == nullptr) return IsNull(this) && text == nullptr;
  return StringFactory::Narrow(this) == ViewOf(text);
}

bool CString::Equals(wchar_t const* text) const {
  if (IsNull(this) || text == nullptr) return IsNull(this) && text == nullptr;
  const UnitText other(text);
  return !other.Failed() && StringFactory::Wide(this) == other.View();
}

bool CString::Equals(CString const* text) const {
  if (IsNull(this) || text == nullptr) return IsNull(this) && text == nullptr;
  return StringFactory::Wide(this) == StringFactory::Wide(text);
}

bool CString::EqualsIgnoreCase(char const* text) const {
  if (IsNull(this) || text == nullptr) return IsNull(this) && text == nullptr;
  return EqualText(StringFactory::Narrow(this), ViewOf(text), false);
}

bool CString::EqualsIgnoreCase(CString const* text) const {
  if (IsNull(this) || text == nullptr) return IsNull(this) && text == nullptr;
  return EqualText(StringFactory::Narrow(this), StringFactory::Narrow(text), false);
}

int32_t CString::Compare(CString const* a, CString const* b) {
  if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
  const std::wstring_view left = StringFactory::Wide(a);
  const std::wstring_view right = StringFactory::Wide(b);
  const auto unitAt = [](std::wstring_view text, size_t i) {
    return i < text.size() ? static_cast<int32_t>(FoldCase(text[i])) : 0;
  };
  for (size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
    const int32_t difference = unitAt(left, i) - unitAt(right, i);
    if (difference != 0) return difference;
  }
  return 0;
}

}  // namespace Morvalen::Zel

ZEL_NULL_THIS_END
