#include "zel/platform/narrow_encoding.h"

#include <climits>
#include <cstring>
#include <cwchar>

#include "zel/platform/utf8_step.h"

namespace zel::platform {
namespace {

// The C library's restartable conversions take their locale from the thread: this sets it for a
// scope.
class ThreadLocale {
 public:
  explicit ThreadLocale(locale_t locale) : before_(uselocale(locale)) {}
  ~ThreadLocale() { uselocale(before_); }
  ThreadLocale(const ThreadLocale&) = delete;
  ThreadLocale& operator=(const ThreadLocale&) = delete;

 private:
  locale_t before_;
};

constexpr size_t kIllFormed = static_cast<size_t>(-1);
constexpr size_t kIncomplete = static_cast<size_t>(-2);

// One character's bytes, at most MB_LEN_MAX of them; how many.
size_t narrowCharacter(uint32_t codePoint, std::mbstate_t& state, char* out) {
  const size_t size = std::wcrtomb(out, static_cast<wchar_t>(codePoint), &state);
  // U+FFFD stands for what is malformed as well; an encoding that has it is a Unicode one.
  if (size != kIllFormed) return size;
  state = {};
  out[0] = '?';
  return 1;
}

}  // namespace

locale_t defaultNarrowLocale() {
  static const locale_t locale = [] {
    const locale_t environment = newlocale(LC_CTYPE_MASK, "", nullptr);
    return environment != nullptr ? environment : newlocale(LC_CTYPE_MASK, "C", nullptr);
  }();
  return locale;
}

size_t narrowLength(locale_t locale, const wchar_t* units, size_t count) {
  const ThreadLocale scope(locale);
  std::mbstate_t state{};
  char bytes[MB_LEN_MAX];
  size_t size = 0;
  for (size_t i = 0; i < count;) {
    const Utf16Character character = decodeUtf16(units + i, count - i);
    size += narrowCharacter(character.codePoint, state, bytes);
    i += character.size;
  }
  return size;
}

size_t narrowText(locale_t locale, const wchar_t* units, size_t count, char* out) {
  const ThreadLocale scope(locale);
  std::mbstate_t state{};
  char bytes[MB_LEN_MAX];
  size_t size = 0;
  for (size_t i = 0; i < count;) {
    const Utf16Character character = decodeUtf16(units + i, count - i);
    const size_t written = narrowCharacter(character.codePoint, state, bytes);
    std::memcpy(out + size, bytes, written);
    size += written;
    i += character.size;
  }
  return size;
}

namespace {

// Calls `put` with each code point of the text.
template <class Put>
void forEachCharacter(locale_t locale, const char* text, size_t size, Put put) {
  const ThreadLocale scope(locale);
  std::mbstate_t state{};
  for (size_t i = 0; i < size;) {
    wchar_t wide = L'\0';
    const size_t used = std::mbrtowc(&wide, text + i, size - i, &state);
    if (used == kIllFormed || used == kIncomplete) {
      state = {};
      put(0xFFFD);
      ++i;
      continue;
    }
    put(static_cast<uint32_t>(wide));
    i += used != 0 ? used : 1;
  }
}

}  // namespace

size_t widenedLength(locale_t locale, const char* text, size_t size) {
  size_t units = 0;
  forEachCharacter(locale, text, size,
                   [&](uint32_t codePoint) { units += codePoint < 0x10000 ? 1 : 2; });
  return units;
}

size_t widenText(locale_t locale, const char* text, size_t size, wchar_t* out) {
  size_t units = 0;
  forEachCharacter(locale, text, size,
                   [&](uint32_t codePoint) { units += putUtf16(codePoint, out + units); });
  return units;
}

}  // namespace zel::platform
