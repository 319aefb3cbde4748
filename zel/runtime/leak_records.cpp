#include "zel/runtime/leak_records.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <tuple>

namespace Morvalen::Zel {

namespace {

int Sign(bool less, bool greater) {
  return static_cast<int>(greater) - static_cast<int>(less);
}

int CompareFrames(void* const* a, void* const* b) {
  for (uint32_t i = 0; i < kBacktraceFrames; ++i) {
    if (a[i] != b[i]) return std::less<void*>()(a[i], b[i]) ? -1 : 1;
  }
  return 0;
}

}  // namespace

int CLeaks::Backtrace::Compare(Backtrace const& a, Backtrace const& b) {
  if ((a.frames == nullptr) != (b.frames == nullptr)) return a.frames == nullptr ? -1 : 1;
  if (a.frames != nullptr) {
    const int order = CompareFrames(a.frames.get(), b.frames.get());
    if (order != 0) return order;
  }
  if ((a.text == nullptr) != (b.text == nullptr)) return a.text == nullptr ? -1 : 1;
  return a.text != nullptr ? std::strcmp(a.text.get(), b.text.get()) : 0;
}

bool CLeaks::Backtrace::Match(Backtrace const& a, Backtrace const& b) {
  if (a.IsEmpty() && b.IsEmpty()) return true;
  if (a.frames != nullptr && b.frames != nullptr &&
      CompareFrames(a.frames.get(), b.frames.get()) == 0) {
    return true;
  }
  return a.text != nullptr && b.text != nullptr && std::strcmp(a.text.get(), b.text.get()) == 0;
}

CLeaks::Backtrace& CLeaks::ReferenceInfo::Next() {
  if (count == capacity) {
    const uint32_t larger = capacity == 0 ? 1 : 2 * capacity;
    auto moved = std::make_unique<Backtrace[]>(larger);
    std::move(backtraces.get(), backtraces.get() + count, moved.get());
    backtraces = std::move(moved);
    capacity = larger;
  }
  return backtraces[count++];
}

void CLeaks::ReferenceInfo::DropBacktraces() {
  for (uint32_t i = 0; i < count; ++i) backtraces[i] = Backtrace();
  count = 0;
}

int CLeaks::ReferenceInfo::Compare(ReferenceInfo const* a, ReferenceInfo const* b) {
  if (a == nullptr || b == nullptr) return Sign(a == nullptr && b != nullptr, a != nullptr);
  const auto keys = [](ReferenceInfo const& info) {
    return std::tie(info.outstanding, info.possible, info.acquires, info.trackableReleases,
                    info.ambiguousReleases);
  };
  return Sign(keys(*a) < keys(*b), keys(*b) < keys(*a));
}

CLeaks::Operation::Operation(CLeaks& leaks) : tracker(leaks) {
  tracker.lock.Enter();
  nested = tracker.busy;
  tracker.busy = true;
}

CLeaks::Operation::~Operation() {
  tracker.busy = nested;
  tracker.lock.Exit();
  for (Line const& line : lines) zel::platform::debugText(line.level, line.text.c_str());
}

void CLeaks::Operation::Log(int level, char const* format, ...) {
  if (!zel::platform::debugWanted(level)) return;
  std::va_list arguments;
  std::va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  if (length >= 0) {
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, again);
    text.pop_back();
    lines.push_back({level, std::move(text)});
  }
  va_end(again);
  va_end(arguments);
}

}  // namespace Morvalen::Zel
