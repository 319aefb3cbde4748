#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>

#include "zel/platform/event.h"

namespace zel::platform {

/// A thread that can be waited for with a time limit, and be given a priority.
///
/// Priorities are steps from what a thread started with, which is what its maker had: negative ones
/// give way to others. A step is one of the system's niceness, so that threads of lower priority
/// still get a share of a busy machine. Raising a priority is what systems refuse without a
/// privilege.
///
/// One thread owns the object and calls its operations.
class Thread {
 public:
  Thread() = default;
  ~Thread() { join(); }
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Runs `body`, which must not throw. False when the system has no thread to give, or when the
  /// object has one already.
  bool start(std::function<void()> body);

  /// Whether there is a thread: one was started, and has not been joined.
  bool exists() const { return exists_; }

  /// Joins the thread if it ends in time; without one there is nothing to wait for. False when it
  /// still runs.
  bool joinWithin(uint32_t milliseconds);
  void join() { joinWithin(Event::kInfinite); }

  /// False when the system refuses, or there is no thread.
  bool setPriority(int steps);
  /// The priority of the calling thread.
  static bool setOwnPriority(int steps);

 private:
  static void* run(void* self);

  pthread_t thread_{};
  bool exists_ = false;
  std::function<void()> body_;
  // There once known_ is set: the system's number, and the niceness that the thread started with.
  std::atomic<int> id_{0};
  std::atomic<int> niceness_{0};
  Event known_{Event::Kind::manualReset};
  Event ended_{Event::Kind::manualReset};
};

}  // namespace zel::platform
