#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace zel::platform {

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// Sleeps while `word` holds `expected`, until woken or until the deadline. May return for no
/// reason, so look at the word again. False when the deadline has passed.
bool futexWait(std::atomic<uint32_t>& word, uint32_t expected, Deadline const& deadline);

/// Wakes up to `count` threads that sleep on the word. The word may be gone already: only its
/// address is used, and at worst somebody else is woken for no reason.
void futexWake(std::atomic<uint32_t>& word, int count);

}  // namespace zel::platform
