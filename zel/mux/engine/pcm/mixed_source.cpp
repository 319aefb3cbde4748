#include "zel/mux/engine/pcm/mixed_source.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <utility>

#include "zel/mux/engine/pcm/sample_format.h"

namespace zel::mux {

joined_source::joined_source(std::vector<std::unique_ptr<pcm_source>> sources) {
  for (auto& source : sources) {
    input each;
    each.firstChannel = static_cast<size_t>(channels_);
    channels_ += source->channels();
    bits_ = std::max(bits_, source->bits());
    each.source = std::move(source);
    inputs_.push_back(std::move(each));
  }
  block_.resize(kBlock * static_cast<size_t>(channels_));
}

// False where the source has nothing just now.
bool joined_source::fill(input& from) {
  if (from.ended || from.framesRead == kBlock) return true;
  const auto stride = static_cast<size_t>(channels_);
  int32_t* at = block_.data() + from.framesRead * stride + from.firstChannel;
  size_t count = 0;
  const result got = from.source->read(at, stride, kBlock - from.framesRead, count);
  const int bits = from.source->bits();
  for (size_t frame = 0; frame < count; ++frame, at += stride) {
    for (int channel = 0; channel < from.source->channels(); ++channel) {
      at[channel] = resized_sample(at[channel], bits, bits_);
    }
  }
  from.framesRead += count;
  from.ended = got == result::ended;
  return got != result::later;
}

pcm_source::result joined_source::next_block() {
  if (taken_ > 0) {
    std::ranges::fill(block_, 0);
    for (input& each : inputs_) each.framesRead = 0;
    taken_ = blockFrames_ = 0;
  }
  bool complete = true;
  for (input& each : inputs_) complete = fill(each) && complete;
  if (!complete) return result::later;
  for (const input& each : inputs_) blockFrames_ = std::max(blockFrames_, each.framesRead);
  return blockFrames_ == 0 ? result::ended : result::ready;
}

pcm_source::result joined_source::read(int32_t* out, size_t stride, size_t frames, size_t& count) {
  const auto channels = static_cast<size_t>(channels_);
  for (count = 0; count < frames; ++count, ++taken_, out += stride) {
    if (taken_ == blockFrames_) {
      const result next = next_block();
      if (next != result::ready) return next;
    }
    std::copy_n(block_.data() + taken_ * channels, channels, out);
  }
  return result::ready;
}

int32_t downmix_source::mix(const int32_t* samples, const coefficients& by) const {
  double sum = 0;
  for (int channel = 0; channel < source_->channels(); ++channel) {
    sum += samples[channel] * by[static_cast<size_t>(channel)];
  }
  const double most = std::ldexp(1.0, source_->bits() - 1);
  return static_cast<int32_t>(std::clamp(std::nearbyint(sum), -most, most - 1));
}

pcm_source::result downmix_source::read(int32_t* out, size_t stride, size_t frames, size_t& count) {
  std::array<int32_t, kMostPcmChannels> samples;
  assert(static_cast<size_t>(source_->channels()) <= samples.size());
  for (count = 0; count < frames; ++count, out += stride) {
    size_t one = 0;
    const result got = source_->read(samples.data(), samples.size(), 1, one);
    if (one == 0) return got;
    out[0] = mix(samples.data(), left_);
    out[1] = mix(samples.data(), right_);
  }
  return result::ready;
}

}  // namespace zel::mux
