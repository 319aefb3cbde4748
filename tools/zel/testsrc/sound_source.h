#pragma once

// The sound that belongs to the test pictures, sample for sample a function of its options:
//
//   A tone of 1000 Hz on every channel, starting at phase zero on sample 0. At each mark (see
//   instants.h), first of all at the very start, it gives way to a click: sample 0 of the click is
//   the first one at or after the start of the frame that flashes. The click is a millisecond of
//   square wave at -6 dBFS, half a millisecond up, half down; ten milliseconds before and after it
//   are silent. From a quarter of a second after the mark on, the tone is interrupted as many times
//   as the channel's number (counted from one): 20 ms of silence, 20 ms of tone, and so on, so that
//   channels can be told apart.

#include <cstdint>
#include <span>
#include <string>

#include "tools/zel/media/rational.h"

namespace zel::testsrc {

struct SoundOptions {
  media::Rational rate = {30000, 1001};  // of the pictures
  uint32_t sampleRate = 48000;
  uint32_t channels = 2;    // 1 to 16
  uint32_t bits = 24;       // 16, 24 or 32
  int32_t toneLevel = -20;  // dB below full scale: -40 to -12
};

/// What is wrong with the options, for people; empty when they are sound.
std::string soundFault(const SoundOptions& options);

class SoundSource {
 public:
  /// `options` must be sound (soundFault is empty).
  explicit SoundSource(const SoundOptions& options);

  /// Samples of each channel that belong to so many frames: up to the first sample of the next.
  uint64_t samplesOfFrames(uint64_t frames) const;

  /// Writes interleaved samples from number `first` on; the size of `out` is a multiple of the
  /// channel count. Values have the width of `bits`.
  void render(uint64_t first, std::span<int32_t> out) const;

 private:
  int32_t sampleAt(uint64_t sample, uint32_t channel, uint64_t mark, uint64_t nextMark) const;
  int32_t toneAt(uint64_t sample) const;

  SoundOptions options_;
  int64_t toneAmplitude_ = 0;  // full scale of `bits`, times 2^16
  int32_t clickAmplitude_ = 0;
  uint64_t clickSamples_ = 0;
  uint64_t guardSamples_ = 0;
  uint64_t gapSamples_ = 0;
};

}  // namespace zel::testsrc
