#include "zel/platform/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace zel::platform {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
              std::atomic<uint32_t>::is_always_lock_free);

bool futexWait(std::atomic<uint32_t>& word, uint32_t expected, Deadline const& deadline) {
  timespec until{};
  if (deadline) {
    // The steady clock is CLOCK_MONOTONIC, which is what this call measures an absolute time by.
    auto const since = deadline->time_since_epoch();
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
    until.tv_sec = static_cast<time_t>(seconds.count());
    until.tv_nsec = static_cast<long>(std::chrono::nanoseconds(since - seconds).count());
  }
  long const result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG, expected,
                              deadline ? &until : nullptr, nullptr, FUTEX_BITSET_MATCH_ANY);
  return result == 0 || errno != ETIMEDOUT;
}

void futexWake(std::atomic<uint32_t>& word, int count) {
  syscall(SYS_futex, &word, FUTEX_WAKE | FUTEX_PRIVATE_FLAG, count, nullptr, nullptr, 0);
}

}  // namespace zel::platform
