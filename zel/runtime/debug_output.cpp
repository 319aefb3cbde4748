#include "zel/runtime/debug_output.h"

#include "zel/platform/debug_output.h"

namespace Morvalen::Zel {

void DebugOutput::SetSink(Sink sink, void* user) {
  static_assert(sizeof(int) == sizeof(int32_t));
  zel::platform::setDebugSink({sink, user});
}

void DebugOutput::Write(int32_t level, char const* text) {
  if (text != nullptr) zel::platform::debugText(level, text);
}

}  // namespace Morvalen::Zel
