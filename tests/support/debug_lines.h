#pragma once

#include <string>
#include <vector>

#include "zel/platform/debug_output.h"

namespace zel::test {

/// Collects what goes to the debug output while it lives.
class DebugLines {
 public:
  DebugLines() : former_(platform::setDebugSink({write, this})) {}
  ~DebugLines() { platform::setDebugSink(former_); }
  DebugLines(const DebugLines&) = delete;
  DebugLines& operator=(const DebugLines&) = delete;

  /// The texts so far, one after the other; forgets them.
  std::string take() {
    std::string all;
    for (const auto& text : texts_) all += text;
    clear();
    return all;
  }
  /// The levels of the texts so far.
  const std::vector<int>& levels() const { return levels_; }
  void clear() {
    texts_.clear();
    levels_.clear();
  }

 private:
  static void write(void* user, int level, const char* text) {
    auto& lines = *static_cast<DebugLines*>(user);
    lines.levels_.push_back(level);
    lines.texts_.push_back(text);
  }

  platform::DebugSink former_;
  std::vector<int> levels_;
  std::vector<std::string> texts_;
};

}  // namespace zel::test
