#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zel/platform/debug_output.h"
#include "zel/runtime/leaks.h"

namespace Morvalen::Zel {

/// What the tracker keeps, and one operation on it. Internal.

inline constexpr uint32_t kBacktraceFrames = 128;

/// Where something happened. The capture of this platform gives names at once, while the modules
/// that they are from are sure to be loaded, so it leaves no frames.
struct CLeaks::Backtrace {
  std::unique_ptr<void*[]> frames;  // kBacktraceFrames entries, null past the last; or none
  std::unique_ptr<char[]> text;     // or none

  bool IsEmpty() const { return frames == nullptr && text == nullptr; }
  /// By frames, then by text; what has none comes first. Negative, zero or positive.
  static int Compare(Backtrace const& a, Backtrace const& b);
  /// Whether both are from one place: the same frames or the same text will do.
  static bool Match(Backtrace const& a, Backtrace const& b);
};

struct CLeaks::ReferenceInfo {
  uint64_t acquires = 0;
  uint64_t trackableReleases = 0;  // answered the only reference that there was
  uint64_t ambiguousReleases = 0;  // answered one of several
  int64_t outstanding = 1;         // references now held; the creation's is the first
  int64_t possible = 1;            // the acquires that those may be from
  uint32_t capacity = 0;
  uint32_t count = 0;
  std::unique_ptr<Backtrace[]> backtraces;  // of `capacity` entries, `count` in use

  /// The next free place, after twice the room has been made when there's none.
  Backtrace& Next();
  void DropBacktraces();
  /// Null comes first. Negative, zero or positive.
  static int Compare(ReferenceInfo const* a, ReferenceInfo const* b);
};

struct CLeaks::Slot {
  CDependenciesObjectVS2012 const* object = nullptr;  // null when free
  // The object's tag, kept so that a report needn't touch an object that may be gone: after
  // tracking has ended objects die unseen.
  uint32_t type = 0;
  Backtrace backtrace;
  std::unique_ptr<ReferenceInfo> references;
};

/// One operation of the tracker: holds the lock for its scope, and keeps the lines that it logs
/// until the lock has been left. A sink may do anything, use objects that report to the tracker
/// too, and have locks of its own; it must not be called with the tracker's lock held.
class CLeaks::Operation {
 public:
  explicit Operation(CLeaks& leaks);
  ~Operation();
  Operation(Operation const&) = delete;
  Operation& operator=(Operation const&) = delete;

  /// Whether it's inside another one: the trace callback's own objects. It has to leave things
  /// alone.
  bool IsNested() const { return nested; }

  void Log(int level, char const* format, ...) __attribute__((format(printf, 3, 4)));

 private:
  struct Line {
    int level;
    std::string text;
  };
  CLeaks& tracker;
  bool nested;
  std::vector<Line> lines;
};

}  // namespace Morvalen::Zel
