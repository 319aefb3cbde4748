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
    std::thread::id const caller = std::this_thread::get_id();
    if (!isOwner(caller)) {
      mutex_.lock();
      owner_.store(caller, std::memory_order_relaxed);
    }
    ++depth_;
  }
  /// Enters if no other thread is in; whether it did.
  bool tryEnter() {
    std::thread::id const caller = std::this_thread::get_id();
    if (!isOwner(caller)) {
      if (!mutex_.try_lock()) return false;
      owner_.store(caller, std::memory_order_relaxed);
    }
    ++depth_;
    return true;
  }
  /// Leaves once. Does nothing when the calling thread isn't in.
  void leave() {
    if (!heldByCaller() || --depth_ > 0) return;
    owner_.store(std::thread::id(), std::memory_order_relaxed);
    mutex_.unlock();
  }
  bool heldByCaller() const { return isOwner(std::this_thread::get_id()); }

 private:
  // Relaxed is enough: only the calling thread ever stores its own id here.
  bool isOwner(std::thread::id caller) const {
    return owner_.load(std::memory_order_relaxed) == caller;
  }

  std::mutex mutex_;
  std::atomic<std::thread::id> owner_{};
  int32_t depth_ = 0;  // guarded by mutex_
};

}  // namespace zel::platform
