#include "zel/mux/engine/pcm/lpcm_units.h"

#include <algorithm>
#include <utility>

#include "zel/base/byte_order.h"
#include "zel/mux/engine/pcm/sample_format.h"

namespace zel::mux {

namespace {

constexpr size_t kHeader = 4;
constexpr int64_t kHdmvPiecesPerSecond = 200;
// Over IEEE 1394 a piece has six access units of 80 frames.
constexpr int64_t kUnitFrames = 80;
constexpr uint8_t kUnits = 6;
constexpr uint8_t kSubstream = 0xA0;

size_t sample_bytes(const lpcm_layout& layout) {
  return layout.bits == 16 ? 2 : 3;
}

uint8_t hdmv_rate_code(int sampleRate) {
  return sampleRate == 192'000 ? 5 : sampleRate == 96'000 ? 4 : 1;
}

}  // namespace

uint8_t hdmv_assignment(int channels) {
  switch (channels) {
    case 2:
      return 3;
    case 4:
      return 7;  // two in front, two behind
    case 6:
      return 9;
    case 8:
      return 11;
    default:
      return 0;
  }
}

std::array<uint8_t, 8> lpcm_default_order(const lpcm_layout& layout) {
  if (layout.form == lpcm_form::hdmv && layout.channels == 6) return {0, 1, 2, 4, 5, 3, 6, 7};
  if (layout.form == lpcm_form::hdmv && layout.channels == 8) return {0, 1, 2, 6, 4, 5, 7, 3};
  return {0, 1, 2, 3, 4, 5, 6, 7};
}

int64_t lpcm_frames(const lpcm_layout& layout) {
  return layout.form == lpcm_form::hdmv ? layout.sampleRate / kHdmvPiecesPerSecond
                                        : kUnits * kUnitFrames;
}

lpcm_units::lpcm_units(const lpcm_layout& layout, std::unique_ptr<pcm_source> input)
    : layout_(layout),
      input_(std::move(input)),
      samples_(static_cast<size_t>(lpcm_frames(layout) * layout.channels)) {}

size_t lpcm_units::most_bytes() const {
  return kHeader + samples_.size() * sample_bytes(layout_);
}

void lpcm_units::put_header(uint8_t* out, size_t payload) const {
  if (layout_.form == lpcm_form::hdmv) {
    base::storeBig16(out, static_cast<uint16_t>(payload));
    out[2] = static_cast<uint8_t>(layout_.assignment << 4 | hdmv_rate_code(layout_.sampleRate));
    out[3] = static_cast<uint8_t>((layout_.bits - 12) / 4 << 6);
    return;
  }
  const int rate = layout_.sampleRate == 44'100 ? 1 : 2;
  out[0] = kSubstream;
  out[1] = kUnits;
  out[2] = 0;  // no emphasis
  out[3] = static_cast<uint8_t>(rate << 3 | (layout_.channels - 1));
}

pcm_units::result lpcm_units::next(std::span<uint8_t> out, pcm_unit& unit) {
  const auto channels = static_cast<size_t>(layout_.channels);
  const auto wanted = static_cast<size_t>(lpcm_frames(layout_));
  size_t count = 0;
  const pcm_source::result got =
      input_->read(samples_.data() + framesRead_ * channels, channels, wanted - framesRead_, count);
  framesRead_ += count;
  if (got == pcm_source::result::later) return result::later;
  if (framesRead_ == 0) return result::ended;

  // A piece has its size: what is missing of the last one is silence.
  std::fill(samples_.begin() + static_cast<ptrdiff_t>(framesRead_ * channels), samples_.end(), 0);
  framesRead_ = 0;
  const size_t bytes = sample_bytes(layout_);
  put_header(out.data(), samples_.size() * bytes);
  uint8_t* at = out.data() + kHeader;
  const int from = input_->bits();
  for (size_t frame = 0; frame < wanted; ++frame) {
    const int32_t* const samples = samples_.data() + frame * channels;
    for (size_t channel = 0; channel < channels; ++channel) {
      const int32_t sample = resized_sample(samples[layout_.order[channel]], from, layout_.bits);
      const auto value = static_cast<uint32_t>(sample)
                         << (8 * static_cast<int>(bytes) - layout_.bits);
      for (size_t i = bytes; i-- > 0;) *at++ = static_cast<uint8_t>(value >> (8 * i));
    }
  }
  unit.bytes = most_bytes();
  unit.frames = static_cast<int64_t>(wanted);
  return result::ready;
}

}  // namespace zel::mux
