#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace zel::test {

/// Elementary streams made of headers and filling: sound for all that looks at headers, lengths and
/// times, nothing that decodes.

/// MPEG-2 video, Main at Main, 25 pictures a second, an I picture every 12. Pictures have random
/// sizes that a decoder's buffer of the full vbv size holds when it fills at `rate` bits a second,
/// the rate that the sequence header tells.
std::vector<uint8_t> randomMpeg2Video(std::mt19937_64& random, int rate, double seconds);

enum class AudioFrames { kLayer2, kLayer3, kAdts, kAc3, kDts };
inline constexpr int kAudioFrameKinds = 5;
/// Frames of constant size, 128 to 192 kbit/s at 48 kHz.
std::vector<uint8_t> audioFrames(AudioFrames kind, double seconds);

}  // namespace zel::test
