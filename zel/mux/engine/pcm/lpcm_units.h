#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/pcm/pcm_source.h"
#include "zel/mux/engine/pcm/pcm_units.h"

/// Linear PCM with a short header in front of each piece: the form of HDMV discs, pieces of 5 ms,
/// and the form that goes over IEEE 1394, pieces of 480 frames.

namespace zel::mux {

enum class lpcm_form : int32_t { hdmv = 0, ieee1394 = 1 };

struct lpcm_layout {
  lpcm_form form = lpcm_form::hdmv;
  int channels = 2;
  int bits = 16;  // 16; of HDMV also 20 and 24
  int sampleRate = 48'000;
  uint8_t assignment = 0;             // of HDMV: which speakers the channels are
  std::array<uint8_t, 8> order = {};  // the input's channel that goes out in each place
};

/// The channel_assignment of so many channels, where none is told: 0 for those that have none.
uint8_t hdmv_assignment(int channels);

/// The order of a Wave file's channels as the form has it: behind the first three surround, and the
/// low frequencies last.
std::array<uint8_t, 8> lpcm_default_order(const lpcm_layout& layout);

/// Frames of a piece.
int64_t lpcm_frames(const lpcm_layout& layout);

class lpcm_units : public pcm_units {
 public:
  lpcm_units(const lpcm_layout& layout, std::unique_ptr<pcm_source> input);

  size_t most_bytes() const override;
  result next(std::span<uint8_t> out, pcm_unit& unit) override;

 private:
  void put_header(uint8_t* out, size_t payload) const;

  lpcm_layout layout_;
  std::unique_ptr<pcm_source> input_;
  std::vector<int32_t> samples_;  // of the piece being made
  size_t framesRead_ = 0;
};

}  // namespace zel::mux
