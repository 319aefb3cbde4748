#include "zel/mux/engine/audio/sustaining_rate.h"

#include <algorithm>

namespace zel::mux {

// Whichever frame a passage begins with, the buffer can at best be full when that frame leaves.
// What the passage has beyond that has to come while it lasts.
double sustaining_rate(std::span<const int32_t> sizes, double period, int64_t buffer) {
  if (period <= 0) return 0;
  double most = 0;  // bytes per period
  for (size_t first = 0; first < sizes.size(); ++first) {
    double bytes = sizes[first];
    for (size_t last = first + 1; last < sizes.size(); ++last) {
      bytes += sizes[last];
      const double missing = bytes - static_cast<double>(buffer);
      most = std::max(most, missing / static_cast<double>(last - first));
    }
  }
  return most * 8 * 2.7e7 / period;
}

}  // namespace zel::mux
