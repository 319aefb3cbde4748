#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/mux/engine/pcm/pcm_result.h"

/// Samples of PCM, wherever they come from: an input of its own, or a stream of another multiplex.

namespace zel::mux {

class pcm_source {
 public:
  using result = pcm_result;

  virtual ~pcm_source() = default;

  virtual int channels() const = 0;
  /// Of each sample, which is a signed number of so many bits.
  virtual int bits() const = 0;
  /// Reads up to `frames` frames to `out`, a frame's samples one behind the other, frames `stride`
  /// apart; `count` tells how many. Loads its input as needed. Less than `frames` means that the
  /// source has ended, or has nothing just now.
  virtual result read(int32_t* out, size_t stride, size_t frames, size_t& count) = 0;

  /// Passes over `frames` frames, or what there is of them.
  void skip(int64_t frames);
};

/// The most channels that any form of stream has.
inline constexpr size_t kMostPcmChannels = 8;

}  // namespace zel::mux
