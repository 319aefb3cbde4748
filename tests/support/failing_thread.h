#pragma once

namespace zel::test {

/// While one lives, the process can make only `allowed` more threads: creating others fails as it
/// does when the system has none left. For programs that link zel_failing_thread.
class FailingThread {
 public:
  explicit FailingThread(int allowed = 0);
  ~FailingThread();
  FailingThread(FailingThread const&) = delete;
  FailingThread& operator=(FailingThread const&) = delete;
};

/// While one lives, the system lets nobody change a priority.
class FailingPriority {
 public:
  FailingPriority();
  ~FailingPriority();
  FailingPriority(FailingPriority const&) = delete;
  FailingPriority& operator=(FailingPriority const&) = delete;
};

}  // namespace zel::test
