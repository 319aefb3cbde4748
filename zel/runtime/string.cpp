#include "zel/runtime/string.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "zel/platform/text_conversion.h"
#include "zel/runtime/null_this.h"
#include "zel/runtime/string_factory.h"
#include "zel/runtime/text_buffer.h"

// Making strings, and their two forms. What searches, derives and parses stands in the files
// beside.
//
// The forms are atomic pointers that go from null to a buffer once. A thread that finds a form
// missing converts the other one, tries to put its buffer in place by compare and swap, and frees
// it if another thread was first: nobody waits, and everybody sees one buffer.

ZEL_NULL_THIS_BEGIN

namespace Morvalen::Zel {
namespace {

template <class Symbol>
TextBuffer<Symbol> JoinText(std::basic_string_view<Symbol> first,
                            std::basic_string_view<Symbol> second) {
  TextBuffer<Symbol> text = AllocateText<Symbol>(first.size() + second.size());
  if (text == nullptr) return text;
  std::copy(first.begin(), first.end(), text.get());
  std::copy(second.begin(), second.end(), text.get() + first.size());
  return text;
}

// Caller's elements, joined, as units.
TextBuffer<wchar_t> JoinUnits(std::wstring_view first, std::wstring_view second, size_t& size) {
  size = zel::platform::unitLength(first.data(), first.size()) +
         zel::platform::unitLength(second.data(), second.size());
  TextBuffer<wchar_t> text = AllocateText<wchar_t>(size);
  if (text == nullptr) return text;
  const size_t middle = zel::platform::copyUnits(first.data(), first.size(), text.get());
  zel::platform::copyUnits(second.data(), second.size(), text.get() + middle);
  return text;
}

// The wide form of narrow text, in a buffer with zeros up to `room` units if it is shorter.
TextBuffer<wchar_t> Widen(std::string_view text, size_t room) {
  const size_t size = zel::platform::utf16Length(text.data(), text.size());
  TextBuffer<wchar_t> wide = AllocateText<wchar_t>(std::max(size, room));
  if (wide == nullptr) return wide;
  zel::platform::utf8ToUtf16(text.data(), text.size(), wide.get());
  if (size < room) std::fill(wide.get() + size, wide.get() + room, L'\0');
  wide[size] = L'\0';
  return wide;
}

TextBuffer<char> Narrow(std::wstring_view text) {
  const size_t size = zel::platform::utf8Length(text.data(), text.size());
  TextBuffer<char> narrow = AllocateText<char>(size);
  if (narrow == nullptr) return narrow;
  zel::platform::utf16ToUtf8(text.data(), text.size(), narrow.get());
  return narrow;
}

// Puts a converted form in place, unless another thread has done so, and gives the one in place.
template <class Symbol>
Symbol const* Publish(std::atomic<Symbol*>& form, TextBuffer<Symbol> converted) {
  Symbol* present = nullptr;
  // Release: who reads the pointer sees the text behind it.
  if (form.compare_exchange_strong(present, converted.get(), std::memory_order_acq_rel,
                                   std::memory_order_acquire)) {
    return converted.release();
  }
  return present;
}

size_t UnitsOf(std::string_view text) {
  return zel::platform::utf16Length(text.data(), text.size());
}

}  // namespace

CString::CString()
    : CDependenciesObjectVS2012(Type, nullptr), length(0), chars(nullptr), wchars(nullptr) {}

CString::CString(char const* text) : CString(text, nullptr) {}

CString::CString(char const* text, int32_t count) : CString() {
  const std::string_view view = ViewOf(text, count);
  TextBuffer<char> copy = JoinText(view, std::string_view());
  if (copy == nullptr) return;
  length = static_cast<int32_t>(UnitsOf(view));
  chars.store(copy.release(), std::memory_order_relaxed);
}

CString::CString(char const* first, char const* second) : CString() {
  const std::string_view view = ViewOf(first);
  const std::string_view next = ViewOf(second);
  TextBuffer<char> copy = JoinText(view, next);
  if (copy == nullptr) return;
  // Counted over the whole: a character may stand across the seam.
  length = static_cast<int32_t>(UnitsOf({copy.get(), view.size() + next.size()}));
  chars.store(copy.release(), std::memory_order_relaxed);
}

CString::CString(wchar_t const* text) : CString(text, nullptr) {}

CString::CString(wchar_t const* text, int32_t count) : CString() {
  size_t size = 0;
  TextBuffer<wchar_t> copy = JoinUnits(ViewOf(text, count), {}, size);
  if (copy == nullptr) return;
  length = static_cast<int32_t>(size);
  wchars.store(copy.release(), std::memory_order_relaxed);
}

CString::CString(wchar_t const* first, wchar_t const* second) : CString() {
  size_t size = 0;
  TextBuffer<wchar_t> copy = JoinUnits(ViewOf(first), ViewOf(second), size);
  if (copy == nullptr) return;
  length = static_cast<int32_t>(size);
  wchars.store(copy.release(), std::memory_order_relaxed);
}

CString::~CString() {
  ::operator delete(chars.load(std::memory_order_relaxed));
  ::operator delete(wchars.load(std::memory_order_relaxed));
}

int32_t CString::GetLength(char const* text) {
  return static_cast<int32_t>(std::min(UnitsOf(ViewOf(text)), kLongestText));
}

int32_t CString::GetLength(wchar_t const* text) {
  const std::wstring_view view = ViewOf(text);
  return static_cast<int32_t>(
      std::min(zel::platform::unitLength(view.data(), view.size()), kLongestText));
}

wchar_t* CString::GetWChars(char const* text) {
  return Widen(ViewOf(text), 0).release();
}

char* CString::GetChars(wchar_t const* text) {
  return Narrow(ViewOf(text)).release();
}

int32_t CString::GetLength() const {
  return IsNull(this) ? 0 : length;
}

char const* CString::GetChars() const {
  if (IsNull(this)) return nullptr;
  char const* present = chars.load(std::memory_order_acquire);
  if (present != nullptr) return present;
  return Publish(chars, Narrow(ViewOf<wchar_t>(wchars.load(std::memory_order_acquire))));
}

wchar_t const* CString::GetWChars() const {
  if (IsNull(this)) return nullptr;
  wchar_t const* present = wchars.load(std::memory_order_acquire);
  if (present != nullptr) return present;
  return Publish(wchars, Widen(ViewOf<char>(chars.load(std::memory_order_acquire)),
                               static_cast<size_t>(length)));
}

BSTR CString::ToBSTR() const {
  if (IsNull(this)) return SysAllocString(nullptr);
  const std::wstring_view text = StringFactory::Wide(this);
  BSTR result = SysAllocStringLen(nullptr, static_cast<uint32_t>(text.size()));
  if (result == nullptr) return nullptr;
  std::transform(text.begin(), text.end(), result,
                 [](wchar_t unit) { return static_cast<OLECHAR>(unit); });
  return result;
}

BSTR CString::ToBSTR(char const* text) {
  if (text == nullptr) return nullptr;
  std::mbstate_t state{};
  char const* end = text;
  const size_t count = std::mbsrtowcs(nullptr, &end, 0, &state);
  if (count == static_cast<size_t>(-1)) return nullptr;
  TextBuffer<wchar_t> wide = AllocateText<wchar_t>(count);
  if (wide == nullptr) return nullptr;
  state = {};
  std::mbsrtowcs(wide.get(), &text, count, &state);
  // The locale's wide characters are code points here, not units.
  const UnitText units(std::wstring_view(wide.get(), count));
  if (units.Failed()) return nullptr;
  BSTR result = SysAllocStringLen(nullptr, static_cast<uint32_t>(units.View().size()));
  if (result == nullptr) return nullptr;
  std::transform(units.View().begin(), units.View().end(), result,
                 [](wchar_t unit) { return static_cast<OLECHAR>(unit); });
  return result;
}

CString* StringFactory::FromNarrow(std::string_view text) {
  return FromNarrow(text, {});
}

CString* StringFactory::FromNarrow(std::string_view first, std::string_view second) {
  return Adopt(JoinText(first, second), first.size() + second.size());
}

CString* StringFactory::FromWide(std::wstring_view units) {
  return FromWide(units, {});
}

CString* StringFactory::FromWide(std::wstring_view first, std::wstring_view second) {
  return Adopt(JoinText(first, second), first.size() + second.size());
}

CString* StringFactory::Adopt(TextBuffer<char> text, size_t size) {
  if (text == nullptr) return nullptr;
  const auto units = static_cast<int32_t>(UnitsOf({text.get(), size}));
  return AdoptWithLength(std::move(text), units);
}

CString* StringFactory::Adopt(TextBuffer<wchar_t> text, size_t size) {
  return AdoptWithLength(std::move(text), static_cast<int32_t>(size));
}

CString* StringFactory::AdoptWithLength(TextBuffer<char> text, int32_t length) {
  if (text == nullptr) return nullptr;
  auto* string = new CString;
  if (string == nullptr) return nullptr;
  string->length = length;
  string->chars.store(text.release(), std::memory_order_relaxed);
  return string;
}

CString* StringFactory::AdoptWithLength(TextBuffer<wchar_t> text, int32_t length) {
  if (text == nullptr) return nullptr;
  auto* string = new CString;
  if (string == nullptr) return nullptr;
  string->length = length;
  string->wchars.store(text.release(), std::memory_order_relaxed);
  return string;
}

}  // namespace Morvalen::Zel

ZEL_NULL_THIS_END
