#include "zel/runtime/encoding.h"

#include <string_view>

#include "zel/platform/narrow_encoding.h"
#include "zel/platform/text_conversion.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/string.h"
#include "zel/runtime/string_factory.h"
#include "zel/runtime/text_buffer.h"

namespace Morvalen::Zel {
namespace {

constexpr uint32_t kDefaultCodePage = 0;
constexpr uint32_t kUtf8CodePage = 65001;

// Set while the process starts, and never destroyed: what outlives `main` may still convert text.
constinit CEncoding* defaultEncoding = nullptr;
constinit CEncoding* utf8Encoding = nullptr;

bool NamesUtf8(char const* name) {
  constexpr std::string_view kName = "utf-8";
  const std::string_view given = ViewOf(name);
  if (given.size() != kName.size()) return false;
  for (size_t i = 0; i < kName.size(); ++i) {
    if (FoldCase(given[i]) != kName[i]) return false;
  }
  return true;
}

}  // namespace

CEncoding::CEncoding(char const* name)
    : codePage(NamesUtf8(name) ? kUtf8CodePage : kDefaultCodePage) {}

CEncoding::~CEncoding() {
  codePage = kDefaultCodePage;
}

void CEncoding::Start() {
  defaultEncoding = new CEncoding(nullptr);
  utf8Encoding = new CEncoding("UTF-8");
}

CEncoding* CEncoding::GetDefault() {
  return defaultEncoding;
}

CEncoding* CEncoding::GetUtf8() {
  return utf8Encoding;
}

CByteArray* CEncoding::GetBytes(wchar_t const* text) const {
  if (text == nullptr) return nullptr;
  const std::wstring_view view = ViewOf(text);
  const bool utf8 = codePage == kUtf8CodePage;
  const locale_t locale = utf8 ? locale_t() : zel::platform::defaultNarrowLocale();
  const size_t size = utf8 ? zel::platform::utf8Length(view.data(), view.size())
                           : zel::platform::narrowLength(locale, view.data(), view.size());
  if (size > kLongestText) return nullptr;
  auto* bytes = new CByteArray(static_cast<int32_t>(size));
  auto* out = bytes != nullptr ? reinterpret_cast<char*>(bytes->GetData()) : nullptr;
  if (out == nullptr) {
    if (bytes != nullptr) bytes->Release();
    return nullptr;
  }
  if (utf8) {
    zel::platform::utf16ToUtf8(view.data(), view.size(), out);
  } else {
    zel::platform::narrowText(locale, view.data(), view.size(), out);
  }
  return bytes;
}

CString* CEncoding::GetString(unsigned char const* bytes, int32_t length) const {
  if (bytes == nullptr || length < 0) return nullptr;
  // A string holds no NUL, so it ends there.
  const std::string_view text = ViewOf(reinterpret_cast<char const*>(bytes), length);
  const bool utf8 = codePage == kUtf8CodePage;
  const locale_t locale = utf8 ? locale_t() : zel::platform::defaultNarrowLocale();
  const size_t size = utf8 ? zel::platform::utf16Length(text.data(), text.size())
                           : zel::platform::widenedLength(locale, text.data(), text.size());
  TextBuffer<wchar_t> units = AllocateText<wchar_t>(size);
  if (units == nullptr) return nullptr;
  if (utf8) {
    zel::platform::utf8ToUtf16(text.data(), text.size(), units.get());
  } else {
    zel::platform::widenText(locale, text.data(), text.size(), units.get());
  }
  return StringFactory::Adopt(std::move(units), size);
}

}  // namespace Morvalen::Zel
