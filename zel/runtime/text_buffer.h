#pragma once

#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

// How strings hold and read their text: zero-terminated buffers of the global allocator, and views
// of them. Nothing here throws.

namespace Morvalen::Zel {

/// The most that a string's length can count, in either form's symbols.
inline constexpr size_t kLongestText = std::numeric_limits<int32_t>::max() - 1;

struct TextBufferDelete {
  void operator()(void* buffer) const { ::operator delete(buffer); }
};
template <class Symbol>
using TextBuffer = std::unique_ptr<Symbol[], TextBufferDelete>;

/// A buffer for `count` symbols and a terminator, which is set; null without memory, or beyond what
/// a string can count. The global `operator delete` frees it.
template <class Symbol>
TextBuffer<Symbol> AllocateText(size_t count) {
  if (count > kLongestText) return nullptr;
  void* memory = ::operator new((count + 1) * sizeof(Symbol), std::nothrow);
  if (memory == nullptr) return nullptr;
  auto* text = static_cast<Symbol*>(memory);
  text[count] = Symbol{};
  return TextBuffer<Symbol>(text);
}

/// The text up to its terminator; empty for null.
template <class Symbol>
std::basic_string_view<Symbol> ViewOf(Symbol const* text) {
  return text != nullptr ? std::basic_string_view<Symbol>(text) : std::basic_string_view<Symbol>();
}

/// The text up to its terminator or up to `count` symbols; empty for null or a negative count.
template <class Symbol>
std::basic_string_view<Symbol> ViewOf(Symbol const* text, int32_t count) {
  if (text == nullptr || count <= 0) return {};
  size_t size = 0;
  while (size < static_cast<size_t>(count) && text[size] != Symbol{}) ++size;
  return {text, size};
}

/// A caller's wide text as UTF-16 units: itself, or a copy when it holds elements above 0xFFFF,
/// which count as two surrogates.
class UnitText {
 public:
  explicit UnitText(std::wstring_view elements);
  explicit UnitText(wchar_t const* elements) : UnitText(ViewOf(elements)) {}

  std::wstring_view View() const { return view; }
  /// Whether the copy was lacking memory; the view is empty then.
  bool Failed() const { return failed; }

 private:
  std::wstring_view view;
  TextBuffer<wchar_t> copy;
  bool failed = false;
};

/// A narrow symbol as the unit that the C library's locale makes of it; `otherwise` if it is none
/// there.
inline wchar_t WidenSymbol(char symbol, wchar_t otherwise) {
  const std::wint_t wide = std::btowc(static_cast<unsigned char>(symbol));
  return wide == WEOF ? otherwise : static_cast<wchar_t>(wide);
}

/// Whether a pointer is null. Members that answer a null `this` ask it in this way: compilers call
/// a plain comparison pointless, which -fno-delete-null-pointer-checks makes untrue.
inline bool IsNull(void const* pointer) {
  return pointer == nullptr;
}

/// Lower case for ASCII letters, and no other. What the C library's tolower does in its own locale,
/// kept apart from it, so that a program's choice of locale changes no comparison.
template <class Symbol>
constexpr Symbol FoldCase(Symbol symbol) {
  return symbol >= Symbol{'A'} && symbol <= Symbol{'Z'} ? static_cast<Symbol>(symbol + ('a' - 'A'))
                                                        : symbol;
}

}  // namespace Morvalen::Zel
