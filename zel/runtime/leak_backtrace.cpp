#include <algorithm>
#include <cstring>

#include "zel/platform/stack_trace.h"
#include "zel/runtime/leak_records.h"

namespace Morvalen::Zel {

namespace {

std::unique_ptr<char[]> CopyOf(char const* text, size_t length) {
  auto copy = std::make_unique<char[]>(length + 1);
  std::copy_n(text, length, copy.get());
  return copy;
}

}  // namespace

// Keeps room for a terminator.
void CLeaks::AppendToScratch(size_t& used, char const* text, size_t length) {
  if (used + length + 1 > scratchSize) {
    const size_t larger = 2 * size_t{scratchSize} + length + 1;
    auto moved = std::make_unique<char[]>(larger);
    std::copy_n(scratch.get(), used, moved.get());
    scratch = std::move(moved);
    scratchSize = static_cast<uint32_t>(larger);
  }
  std::copy_n(text, length, scratch.get() + used);
  used += length;
}

// Frames further in than `innermost` are the tracker's own and left out.
void CLeaks::CaptureBacktrace(Backtrace& backtrace, void const* innermost) {
  if (callback != nullptr) {
    // A copy, since nobody could tell whose the text is otherwise: a provider that answers with a
    // buffer of its own is the common one.
    char const* const text = callback();
    if (text != nullptr) backtrace.text = CopyOf(text, std::strlen(text));
    return;
  }
  static_assert(kBacktraceFrames == zel::platform::kMaxStackFrames);
  void* frames[kBacktraceFrames];
  const size_t count = zel::platform::captureStack(frames, innermost);
  size_t used = 0;
  for (size_t i = 0; i < count; ++i) {
    zel::platform::SymbolName name;
    const size_t length = zel::platform::symbolName(frames[i], name);
    AppendToScratch(used, name.data(), length);
    AppendToScratch(used, "\n", 1);
    // What called `main` is the same for everybody.
    if (std::strcmp(name.data(), "main") == 0) break;
  }
  if (used > 0) backtrace.text = CopyOf(scratch.get(), used);
}

}  // namespace Morvalen::Zel
