#include "zel/mux/engine/pcm/pcm_source.h"

#include <algorithm>
#include <array>

namespace zel::mux {

void pcm_source::skip(int64_t frames) {
  constexpr size_t kSamples = 4096;
  std::array<int32_t, kSamples> samples;
  const auto stride = static_cast<size_t>(channels());
  while (frames > 0) {
    const size_t piece = std::min(static_cast<size_t>(frames), kSamples / stride);
    size_t count = 0;
    read(samples.data(), stride, piece, count);
    // A source that has nothing just now isn't waited for: what it has then comes late.
    if (count == 0) return;
    frames -= static_cast<int64_t>(count);
  }
}

}  // namespace zel::mux
