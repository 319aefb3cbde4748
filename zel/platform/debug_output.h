#pragma once

#include <cstdarg>

/// The one way out for diagnostic lines. A line has a level, and goes to the sink: the caller's, or
/// the default one, which writes to standard error what the environment variable ZEL_DEBUG lets
/// through (ZEL_DEBUG=1 errors, 2 warnings too, 5 everything). Nothing is added to a text, so a
/// line that should end does so with its own line feed.
///
/// Formats are checked by the compiler, so 64-bit values are written with PRId64 and its kin; the
/// "%I64d" of another platform prints the same digits that way.

namespace zel::platform {

/// Levels are open numbers; these are the ones in use. Smaller is graver.
enum DebugLevel : int { kDebugError = 1, kDebugWarning = 2, kDebugInformation = 5 };

/// Receives one text. Called with the output's lock held, so never by two threads at a time; it may
/// write debug output itself, and it may replace the sink. It must not throw.
struct DebugSink {
  void (*write)(void* user, int level, const char* text) = nullptr;
  void* user = nullptr;
};

/// Replaces the sink and returns the former one; an empty sink stands for the default. When it
/// returns, no other thread is inside the former sink, so what that used can go.
DebugSink setDebugSink(DebugSink sink);

/// Whether a text of `level` would reach anybody: to save the work of making an expensive one.
bool debugWanted(int level);

/// Hands `text` to the sink as it stands.
void debugText(int level, const char* text);

/// Formats as printf does, and hands the result to the sink. Safe on every thread.
void debugOutput(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void debugOutputV(int level, const char* format, std::va_list arguments)
    __attribute__((format(printf, 2, 0)));

/// The level in the text of ZEL_DEBUG: 0, which lets nothing through, if there is none. A text that
/// is no number asks for everything, as `ZEL_DEBUG=yes` does.
int debugLevelFrom(const char* text);

}  // namespace zel::platform
