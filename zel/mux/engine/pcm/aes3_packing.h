#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

/// AES3 data in an MPEG-2 transport stream, the payload of a PES packet: SMPTE ST 302. Four bytes
/// of header, then for each sampling instant all channel pairs. Within a pair each sample goes out
/// least significant bit first, with the bits V, U, C and F behind it.

namespace zel::mux {

inline constexpr size_t kAes3HeaderSize = 4;
inline constexpr int kAes3BlockFrames = 192;

using aes3_channel_status = std::array<uint8_t, 24>;

struct aes3_layout {
  int channels = 2;   // 2, 4, 6 or 8
  int wordSize = 24;  // 16, 20 or 24
  uint8_t channelIdentification = 0;
  bool invalid = false;  // the V bit of every sample
};

/// Bytes of one channel pair: 5, 6 or 7.
constexpr size_t aes3_pair_size(int wordSize) {
  return static_cast<size_t>(wordSize + 4) / 4;
}
/// Bytes of the payload with its header.
constexpr size_t aes3_payload_size(const aes3_layout& layout, size_t frames) {
  return kAes3HeaderSize +
         frames * static_cast<size_t>(layout.channels / 2) * aes3_pair_size(layout.wordSize);
}
/// The most frames of which audio_packet_size, 16 bits, can tell the bytes.
constexpr size_t aes3_most_frames(const aes3_layout& layout) {
  return 0xFFFF / (static_cast<size_t>(layout.channels / 2) * aes3_pair_size(layout.wordSize));
}

/// Writes the header of a data set with `payload` bytes behind it.
void put_aes3_header(uint8_t* out, const aes3_layout& layout, size_t payload);
/// Writes the two subframes of a pair, each in its low wordSize + 4 bits; gives the place behind.
uint8_t* put_aes3_pair(uint8_t* out, uint64_t first, uint64_t second, int wordSize);
/// The sample of a subframe.
int32_t aes3_sample(uint32_t subframe, int wordSize);

/// Frames of the PES packet of video frame `index`, so that after each the sound is within half a
/// sample of the pictures: at 29.97 Hz 1602, 1601, 1602, 1601, 1602 and so on. The period is in
/// 27 MHz ticks. With `pieces` above 1 a picture has that many PES packets, and `index` counts
/// those.
int32_t aes3_frames_of_picture(int64_t index, int64_t framePeriod, int32_t sampleRate = 48000,
                               int pieces = 1);

/// Packs samples, whose place within the AES3 block of 192 frames it keeps from call to call.
class aes3_packer {
 public:
  explicit aes3_packer(const aes3_layout& layout) : layout_(layout) {}

  /// The status of channel 0 to 7, bit 0 of byte 0 first (AES3-3, 4). All zero until set.
  void set_channel_status(int channel, const aes3_channel_status& status);

  /// Writes header and payload of `samples`, which are interleaved by channel and hold the value in
  /// their low `wordSize` bits. At most aes3_most_frames() frames; `out` has room for
  /// aes3_payload_size(). Returns the bytes written.
  size_t pack(std::span<const int32_t> samples, std::span<uint8_t> out);

  /// The next frame begins an AES3 block.
  void restart_block() { blockFrame_ = 0; }

 private:
  uint32_t subframe(uint32_t sample, int channel, bool first) const;

  aes3_layout layout_;
  std::array<aes3_channel_status, 8> status_{};
  int blockFrame_ = 0;
};

}  // namespace zel::mux
