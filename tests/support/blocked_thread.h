#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace zel::test {

/// A thread whose body is expected to block, and a way to know that it has.
class BlockedThread {
 public:
  explicit BlockedThread(std::function<void()> body);
  ~BlockedThread();  // joins

  /// Returns once the thread sleeps in the kernel, or has ended.
  void awaitBlocked();
  /// Whether the body has returned.
  bool ended() const { return ended_.load(); }
  void join();

 private:
  std::atomic<int> id_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace zel::test
