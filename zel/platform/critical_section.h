#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

namespace zel::platform {

/// A recursive mutex that knows its owner. Making one and using it uncontended costs no system
/// call.
///
/// The owner is kept beside a plain mutex, rather than in a recursive one, so that leaving a
/// section that the caller isn't in can be ignored and so that a caller can ask whether it is in.
class CriticalSection {
 public:
  CriticalSection() = default;
  CriticalSection(CriticalSection const&) = delete;
  CriticalSection& operator=(CriticalSection const&) = delete;

  /// Enters, waiting for another thread to leave; the same thread may enter again.
  void enter() {
    if (heldByCaller()) {
      ++depth_;
      return;
    }
    mutex_.lock();
    own();
  }
  /// Enters if no other thread is in; whether it did.
  bool tryEnter() {
    if (heldByCaller()) {
      ++depth_;
      return true;
    }
    if (!mutex_.try_lock()) return false;
    own();
    return true;
  }
  /// Leaves once. Does nothing when the calling thread isn't in.
  void leave() {
    if (!heldByCaller() || --depth_ > 0) return;
    owner_.store(std::thread::id(), std::memory_order_relaxed);
    mutex_.unlock();
  }
  bool heldByCaller() const {
    // Relaxed is enough: only the calling thread ever stores its own id here.
    return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

 private:
  void own() {
    owner_.store(std::this_thread::get_id(), std::memory_order_relaxed);
    depth_ = 1;
  }

  std::mutex mutex_;
  std::atomic<std::thread::id> owner_{};
  int32_t depth_ = 0;  // guarded by mutex_
};

}  // namespace zel::platform
