#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/mux/engine/pcm/pcm_result.h"

/// PCM audio as it goes into PES packets: the payload of one after the other. Each kind of stream
/// lays out its own.

namespace zel::mux {

struct pcm_unit {
  size_t bytes = 0;    // of the payload
  int64_t frames = 0;  // sampling instants, so the time until the next unit
};

/// The most that any kind makes: an AES3 data set whose size fills its 16 bits.
inline constexpr size_t kMostUnit = 4 + 0xFFFF;

class pcm_units {
 public:
  using result = pcm_result;

  virtual ~pcm_units() = default;

  /// The largest payload, as far as can be told before the run.
  virtual size_t most_bytes() const = 0;
  /// Writes the next payload to `out`, which has room for all that a PES packet can hold.
  virtual result next(std::span<uint8_t> out, pcm_unit& unit) = 0;
};

}  // namespace zel::mux
