#pragma once

#include <memory>
#include <vector>

#include "zel/mux/engine/pcm/aes3_source.h"
#include "zel/mux/engine/pcm/pcm_units.h"
#include "zel/mux/engine/pcm/smpte302m_units.h"

/// SMPTE ST 302 streams of a pair of channels each as one stream of all pairs. Bits go as they
/// stand, so that what is no PCM (Dolby E) and the channel status stay what they are; each pair
/// keeps its own blocks.

namespace zel::mux {

class aes3_combiner : public pcm_units {
 public:
  /// Sources of one word size, open, whose next frames belong together.
  aes3_combiner(std::vector<std::unique_ptr<aes3_source>> sources, const pcm_cadence& cadence);

  size_t most_bytes() const override;
  result next(std::span<uint8_t> out, pcm_unit& unit) override;

 private:
  struct input {
    std::unique_ptr<aes3_source> source;
    size_t framesRead = 0;  // of the unit being made
    bool ended = false;
  };

  bool gather(input& from, size_t index, size_t frames);
  size_t put(std::span<uint8_t> out, size_t frames) const;

  aes3_layout layout_;
  pcm_cadence cadence_;
  std::vector<input> inputs_;
  std::vector<uint32_t> subframes_;  // of the unit being made, interleaved
  int64_t index_ = 0;
};

}  // namespace zel::mux
