#include "zel/mux/engine/pcm/aes3_packing.h"

#include <cassert>

#include "zel/base/byte_order.h"
#include "zel/base/media_clock.h"

namespace zel::mux {
namespace {

constexpr uint32_t reversed(uint32_t value) {
  value = (value >> 1 & 0x55555555) | (value & 0x55555555) << 1;
  value = (value >> 2 & 0x33333333) | (value & 0x33333333) << 2;
  value = (value >> 4 & 0x0F0F0F0F) | (value & 0x0F0F0F0F) << 4;
  value = (value >> 8 & 0x00FF00FF) | (value & 0x00FF00FF) << 8;
  return value >> 16 | value << 16;
}

}  // namespace

void put_aes3_header(uint8_t* out, const aes3_layout& layout, size_t payload) {
  const auto channels = static_cast<uint32_t>(layout.channels / 2 - 1);
  const auto bits = static_cast<uint32_t>((layout.wordSize - 16) / 4);
  base::storeBig32(out, static_cast<uint32_t>(payload) << 16 | channels << 14 |
                            uint32_t{layout.channelIdentification} << 6 | bits << 4);
}

uint8_t* put_aes3_pair(uint8_t* out, uint64_t first, uint64_t second, int wordSize) {
  const int width = wordSize + 4;
  const uint64_t both = (first << width | second) << (64 - 2 * width);
  const size_t size = aes3_pair_size(wordSize);
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(both >> (56 - 8 * i));
  return out + size;
}

int32_t aes3_sample(uint32_t subframe, int wordSize) {
  return static_cast<int32_t>(reversed(subframe >> 4)) >> (32 - wordSize);
}

int32_t aes3_frames_of_picture(int64_t index, int64_t framePeriod, int32_t sampleRate, int pieces) {
  const auto until = [=](int64_t units) {
    return base::rescaleNearest(units * framePeriod, sampleRate, base::kClock27M * pieces);
  };
  return static_cast<int32_t>(until(index + 1) - until(index));
}

void aes3_packer::set_channel_status(int channel, const aes3_channel_status& status) {
  assert(channel >= 0 && channel < 8);
  status_[static_cast<size_t>(channel)] = status;
}

// The sample from its least significant bit on, then V U C F, in the low wordSize + 4 bits.
uint32_t aes3_packer::subframe(uint32_t sample, int channel, bool first) const {
  const auto at = static_cast<unsigned>(blockFrame_);
  const uint32_t status = status_[static_cast<size_t>(channel)][at / 8] >> at % 8 & 1u;
  const uint32_t audio = reversed(sample << (32 - layout_.wordSize)) &
                         static_cast<uint32_t>((uint64_t{1} << layout_.wordSize) - 1);
  return audio << 4 | (layout_.invalid ? 8u : 0u) | status << 1 | (first ? 1u : 0u);
}

size_t aes3_packer::pack(std::span<const int32_t> samples, std::span<uint8_t> out) {
  const auto channels = static_cast<size_t>(layout_.channels);
  const size_t frames = samples.size() / channels;
  const size_t size = aes3_payload_size(layout_, frames);
  assert(frames <= aes3_most_frames(layout_) && size <= out.size());
  put_aes3_header(out.data(), layout_, size - kAes3HeaderSize);

  uint8_t* at = out.data() + kAes3HeaderSize;
  for (size_t frame = 0; frame < frames; ++frame) {
    for (size_t channel = 0; channel < channels; channel += 2) {
      const int32_t* const pair = samples.data() + frame * channels + channel;
      const auto place = static_cast<int>(channel);
      // F stands in the first subframe of the first pair of a block, of every pair alike.
      const uint64_t a = subframe(static_cast<uint32_t>(pair[0]), place, blockFrame_ == 0);
      const uint64_t b = subframe(static_cast<uint32_t>(pair[1]), place + 1, false);
      at = put_aes3_pair(at, a, b, layout_.wordSize);
    }
    blockFrame_ = blockFrame_ + 1 == kAes3BlockFrames ? 0 : blockFrame_ + 1;
  }
  return size;
}

}  // namespace zel::mux
