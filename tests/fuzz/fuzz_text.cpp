// Any bytes as text: the vector form of the conversions gives what the scalar one gives, in buffers
// of exactly the size that was asked for, and what has been UTF-8 once stays as it is. Then the
// parsers of text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "zel/platform/text_kernels.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/four_character_text.h"
#include "zel/runtime/string.h"

using Morvalen::Zel::ByteArray;
using Morvalen::Zel::CByteArray;
using Morvalen::Zel::CString;
using Morvalen::Zel::String;
using zel::platform::scalarTextKernels;
using zel::platform::TextKernels;
using zel::platform::vectorTextKernels;

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

// Vectors, not strings: no byte behind the end that a kernel could read unseen.
std::vector<wchar_t> widen(const TextKernels& kernels, const std::vector<char>& text) {
  std::vector<wchar_t> out(kernels.utf16Length(text.data(), text.size()));
  check(out.size() <= text.size());
  check(kernels.utf8ToUtf16(text.data(), text.size(), out.data()) == out.size());
  return out;
}

std::vector<char> narrow(const TextKernels& kernels, const std::vector<wchar_t>& units) {
  std::vector<char> out(kernels.utf8Length(units.data(), units.size()));
  check(kernels.utf16ToUtf8(units.data(), units.size(), out.data()) == out.size());
  return out;
}

void convertBytes(const std::vector<char>& text) {
  const std::vector<wchar_t> wide = widen(scalarTextKernels(), text);
  check(widen(vectorTextKernels(), text) == wide);
  const std::vector<char> back = narrow(scalarTextKernels(), wide);
  check(narrow(vectorTextKernels(), wide) == back);
  check(widen(vectorTextKernels(), back) == wide);
}

void convertUnits(const uint8_t* data, size_t size) {
  std::vector<wchar_t> units;
  for (size_t i = 0; i + 1 < size; i += 2) {
    units.push_back(static_cast<wchar_t>(data[i] | data[i + 1] << 8));
  }
  const std::vector<char> text = narrow(scalarTextKernels(), units);
  check(narrow(vectorTextKernels(), units) == text);
  check(narrow(vectorTextKernels(), widen(vectorTextKernels(), text)) == text);
  // As elements of 32 bits too, most of which are no units.
  std::vector<wchar_t> elements(size / sizeof(wchar_t));
  if (!elements.empty()) std::memcpy(elements.data(), data, elements.size() * sizeof(wchar_t));
  check(narrow(vectorTextKernels(), elements) == narrow(scalarTextKernels(), elements));
}

void parse(const std::string& bytes) {
  const String text(bytes.c_str());
  check(static_cast<size_t>(text->GetLength()) <= std::strlen(bytes.c_str()));
  check(std::wcslen(text->GetWChars()) == static_cast<size_t>(text->GetLength()));
  char code[Morvalen::Zel::kFourCharacterTextSize];
  Morvalen::Zel::FourCharacterText(text->ToFour(), code);
  check(String(code)->ToFour() == text->ToFour());
  const ByteArray padded(text->ToBytes(64));
  if (padded != nullptr) check(padded.GetLength() == 64);
  CByteArray* array = nullptr;
  if (CByteArray::FromHexString(bytes.c_str(), array) != 0) {
    check(array == nullptr);
  } else {
    const ByteArray holder(array);
    const String again(CString::FromBytes(array));
    check(again->EqualsIgnoreCase(bytes.c_str()));
  }
  text->ToInt64();
  text->ToDouble();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  convertBytes(std::vector<char>(text, text + size));
  convertUnits(data, size);
  parse(std::string(text, size));
  return 0;
}
