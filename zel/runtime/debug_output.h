#pragma once

#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

/// Where the library's diagnostic lines go: the leak tracker's report, the devices' messages. The
/// library prints nothing by itself unless the environment variable ZEL_DEBUG holds a level when
/// the first line is due: then lines of that level and of lower ones go to standard error.
class ZEL_API DebugOutput {
 public:
  static constexpr int32_t Error = 1;
  static constexpr int32_t Warning = 2;
  static constexpr int32_t Information = 5;

  /// Receives one text, with its own line feed where it ends a line; `text` is valid for the call.
  /// `user` is what `SetSink` was given. The call comes on the thread that has something to say,
  /// never on two at a time. It may use the library, `Write` and `SetSink` too; it must not throw.
  using Sink = void (*)(void* user, int32_t level, char const* text);

  /// Replaces the sink for the whole process; null restores the default. `user` is borrowed until
  /// the sink is replaced: when this returns, no other thread is inside the former sink. Don't call
  /// it while holding a lock that the sink takes. Safe on any thread.
  static void SetSink(Sink sink, void* user);

  /// Gives the sink a line of the caller's, so that both sides' lines stay in order. Null is
  /// ignored. Safe on any thread.
  static void Write(int32_t level, char const* text);
};

}  // namespace Morvalen::Zel
