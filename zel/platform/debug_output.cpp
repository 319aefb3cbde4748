#include "zel/platform/debug_output.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <mutex>

namespace zel::platform {

namespace {

struct Output {
  // Recursive, so that a sink can log. It's held while the sink runs: lines don't mix, and a sink
  // that has been replaced is out of use.
  std::recursive_mutex mutex;
  DebugSink sink;                    // guarded by mutex
  std::atomic<bool> hasSink{false};  // spares the formatting when nobody listens
  const int defaultLevel = debugLevelFrom(std::getenv("ZEL_DEBUG"));
};

// Never destroyed: objects that die at process exit may still have something to say.
Output& output() {
  static Output& instance = *new Output;
  return instance;
}

}  // namespace

int debugLevelFrom(const char* text) {
  if (text == nullptr || *text == '\0') return 0;
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text || value > std::numeric_limits<int>::max())
    return std::numeric_limits<int>::max();
  return value < 0 ? 0 : static_cast<int>(value);
}

DebugSink setDebugSink(DebugSink sink) {
  Output& out = output();
  const std::lock_guard hold(out.mutex);
  const DebugSink former = out.sink;
  out.sink = sink;
  out.hasSink.store(sink.write != nullptr, std::memory_order_relaxed);
  return former;
}

bool debugWanted(int level) {
  Output& out = output();
  return out.hasSink.load(std::memory_order_relaxed) || out.defaultLevel >= level;
}

void debugText(int level, const char* text) {
  Output& out = output();
  const std::lock_guard hold(out.mutex);
  // A copy: the sink may replace itself.
  const DebugSink sink = out.sink;
  if (sink.write != nullptr) {
    sink.write(sink.user, level, text);
  } else if (out.defaultLevel >= level) {
    std::fputs(text, stderr);
  }
}

void debugOutput(int level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  debugOutputV(level, format, arguments);
  va_end(arguments);
}

void debugOutputV(int level, const char* format, std::va_list arguments) {
  if (!debugWanted(level)) return;
  char line[1024];
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  if (length >= 0 && static_cast<size_t>(length) < sizeof line) {
    debugText(level, line);
  } else if (length >= 0) {
    const size_t size = static_cast<size_t>(length) + 1;
    const auto text = std::make_unique<char[]>(size);
    std::vsnprintf(text.get(), size, format, again);
    debugText(level, text.get());
  }
  va_end(again);
}

}  // namespace zel::platform
