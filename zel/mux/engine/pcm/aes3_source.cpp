#include "zel/mux/engine/pcm/aes3_source.h"

#include <algorithm>
#include <array>

namespace zel::mux {

namespace {

constexpr int kChanged = 45;
constexpr size_t kMostPairBytes = 7;

}  // namespace

bool aes3_source::open() {
  if (reader_.find(first_) != result::ready) return false;
  reader_.accept(first_);
  return true;
}

// Enters the next set, whose header is dropped.
pcm_source::result aes3_source::next_set() {
  aes3_header header;
  const result found = reader_.enter(first_, header, [this](const aes3_header& changed) {
    const int code = changed.channels != first_.channels ? messages_.channels : messages_.wordSize;
    code != 0 ? report_.fatal(code, pid_) : report_.warn(kChanged, pid_);
  });
  if (found == result::ready) framesLeft_ = header.frames();
  return found;
}

pcm_source::result aes3_source::read_subframes(uint32_t* out, size_t stride, size_t frames,
                                               size_t& count) {
  const auto pairs = static_cast<size_t>(first_.channels / 2);
  const size_t pairBytes = aes3_pair_size(first_.wordSize);
  const int width = first_.wordSize + 4;
  std::array<uint8_t, kMostPcmChannels / 2 * kMostPairBytes> bytes;
  for (count = 0; count < frames; ++count, out += stride) {
    while (framesLeft_ == 0) {
      const result found = next_set();
      if (found != result::ready) return found;
    }
    input_->take(bytes.data(), static_cast<int32_t>(pairs * pairBytes));
    --framesLeft_;
    const uint8_t* at = bytes.data();
    for (size_t pair = 0; pair < pairs; ++pair) {
      uint64_t both = 0;
      for (size_t i = 0; i < pairBytes; ++i) both = both << 8 | *at++;
      out[2 * pair] = static_cast<uint32_t>(both >> width);
      out[2 * pair + 1] = static_cast<uint32_t>(both & ((uint64_t{1} << width) - 1));
    }
  }
  return result::ready;
}

pcm_source::result aes3_source::read(int32_t* out, size_t stride, size_t frames, size_t& count) {
  const auto channels = static_cast<size_t>(first_.channels);
  std::array<uint32_t, kMostPcmChannels> subframes;
  for (count = 0; count < frames; ++count, out += stride) {
    size_t one = 0;
    const result got = read_subframes(subframes.data(), channels, 1, one);
    if (one == 0) return got;
    for (size_t channel = 0; channel < channels; ++channel) {
      out[channel] = aes3_sample(subframes[channel], first_.wordSize);
    }
  }
  return result::ready;
}

}  // namespace zel::mux
