#pragma once

#include <cstddef>

// The two forms of the text conversion: the scalar one is the definition, the vector one is what
// runs. Both give the same result for the same input, malformed input included.

namespace zel::platform {

/// From UTF-8 to UTF-16.
struct WideningKernels {
  size_t (*utf16Length)(const char* text, size_t size);
  size_t (*utf8ToUtf16)(const char* text, size_t size, wchar_t* out);
};

/// From UTF-16 to UTF-8.
struct NarrowingKernels {
  size_t (*utf8Length)(const wchar_t* units, size_t count);
  size_t (*utf16ToUtf8)(const wchar_t* units, size_t count, char* out);
};

struct TextKernels : WideningKernels, NarrowingKernels {};

const TextKernels& scalarTextKernels();  // the definition; always complete

// The best that this machine runs.
const WideningKernels& vectorWideningKernels();
const NarrowingKernels& vectorNarrowingKernels();
inline TextKernels vectorTextKernels() {
  return {vectorWideningKernels(), vectorNarrowingKernels()};
}

}  // namespace zel::platform
