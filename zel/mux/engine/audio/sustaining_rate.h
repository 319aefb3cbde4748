#pragma once

#include <cstdint>
#include <span>

namespace zel::mux {

/// The least rate, in bits per second, at which frames of these sizes, `period` 27 MHz ticks apart,
/// each are in the decoder's buffer in time, when no more than `buffer` bytes of them can be there
/// before. At most their average for frames of one size; more where a loud passage is longer than
/// the buffer. 0 where there are fewer than two frames.
double sustaining_rate(std::span<const int32_t> sizes, double period, int64_t buffer);

}  // namespace zel::mux
