#include "tools/zel/testsrc/sound_source.h"

#include <algorithm>
#include <cassert>

#include "tools/zel/testsrc/fixed_math.h"
#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/options.h"

namespace zel::testsrc {
namespace {

constexpr uint32_t kToneHz = 1000;
constexpr int kQuietest = -40;
constexpr int kLoudest = -12;  // the click, 6 dB louder, must stand out
constexpr uint64_t kMaxChannels = 16;

// 10^(1/20), a step of one decibel, times 2^32.
constexpr uint64_t kDecibel = 4819032567;

// 10^(level/20) times 2^32, for levels of 0 and below.
constexpr uint64_t gainOf(int level) {
  uint64_t gain = uint64_t{1} << 32;
  for (; level < 0; ++level) gain = (gain << 31) / (kDecibel >> 1);
  return gain;
}

}  // namespace

std::string soundFault(const SoundOptions& options) {
  if (options.channels < 1 || options.channels > kMaxChannels) {
    return std::to_string(options.channels) + " channels: 1 to 16 are possible";
  }
  if (options.sampleRate < 8000 || options.sampleRate > 384000) {
    return "sample rate " + std::to_string(options.sampleRate) + " is not within 8000 to 384000";
  }
  if (options.bits != 16 && options.bits != 24 && options.bits != 32) {
    return std::to_string(options.bits) + " bits a sample: 16, 24 and 32 are possible";
  }
  if (options.toneLevel < kQuietest || options.toneLevel > kLoudest) {
    return "tone level " + std::to_string(options.toneLevel) + " is not within -40 to -12 dBFS";
  }
  return rateFault(options.rate);
}

SoundSource::SoundSource(const SoundOptions& options) : options_(options) {
  assert(soundFault(options).empty());
  options_.rate = media::reduced(options.rate);
  const uint64_t fullScale = (uint64_t{1} << (options.bits - 1)) - 1;
  toneAmplitude_ = static_cast<int64_t>((fullScale * (gainOf(options.toneLevel) >> 2)) >> 14);
  clickAmplitude_ = static_cast<int32_t>((fullScale * (gainOf(-6) >> 2)) >> 30);
  clickSamples_ = options.sampleRate / 1000 & ~uint32_t{1};
  guardSamples_ = options.sampleRate / 100;
  gapSamples_ = options.sampleRate / 50;
}

uint64_t SoundSource::samplesOfFrames(uint64_t frames) const {
  return sampleOfFrame(options_.rate, frames, options_.sampleRate);
}

int32_t SoundSource::toneAt(uint64_t sample) const {
  const uint64_t cycle = sample % options_.sampleRate * kToneHz % options_.sampleRate;
  const auto phase = static_cast<uint32_t>((cycle << 32) / options_.sampleRate);
  // sin times 2^30, amplitude times 2^16; the product is rounded once.
  const int64_t product = (sine(phase) * (toneAmplitude_ >> 15) + (int64_t{1} << 30)) >> 31;
  return static_cast<int32_t>(product);
}

int32_t SoundSource::sampleAt(uint64_t sample, uint32_t channel, uint64_t mark,
                              uint64_t nextMark) const {
  const uint64_t since = sample - mark;
  if (since < clickSamples_) {
    return since < clickSamples_ / 2 ? clickAmplitude_ : -clickAmplitude_;
  }
  if (since < clickSamples_ + guardSamples_ || sample + guardSamples_ >= nextMark) return 0;
  const uint64_t identity = options_.sampleRate / 4;
  if (since >= identity) {
    const uint64_t gap = (since - identity) / gapSamples_;
    if (gap % 2 == 0 && gap / 2 <= channel) return 0;
  }
  return toneAt(sample);
}

void SoundSource::render(uint64_t first, std::span<int32_t> out) const {
  assert(out.size() % options_.channels == 0);
  const auto markOfSecond = [this](uint64_t second) {
    return samplesOfFrames(markFrame(options_.rate, second));
  };
  // A mark lies in its second; so the one before `first` is that of this second or the one before.
  uint64_t second = first / options_.sampleRate;
  if (second > 0 && markOfSecond(second) > first) --second;
  uint64_t mark = markOfSecond(second);
  uint64_t nextMark = markOfSecond(second + 1);
  uint64_t sample = first;
  for (size_t at = 0; at < out.size(); at += options_.channels, ++sample) {
    if (sample >= nextMark) {
      mark = nextMark;
      ++second;
      nextMark = markOfSecond(second + 1);
    }
    for (uint32_t channel = 0; channel < options_.channels; ++channel) {
      out[at + channel] = sampleAt(sample, channel, mark, nextMark);
    }
  }
}

}  // namespace zel::testsrc
