#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/pcm/aes3_packing.h"
#include "zel/mux/engine/pcm/pcm_source.h"
#include "zel/mux/engine/pcm/pcm_units.h"

/// PCM inputs side by side as the AES3 data sets of one SMPTE ST 302 stream.

namespace zel::mux {

/// How the sound is cut: a data set lasts as long as a picture, or an even part of one.
struct pcm_cadence {
  int64_t period = 0;  // of a picture, 27 MHz ticks
  int pieces = 1;      // data sets of a picture

  double units_per_second() const { return 2.7e7 * pieces / static_cast<double>(period); }
  int64_t frames(int64_t index) const {
    return aes3_frames_of_picture(index, period, 48'000, pieces);
  }
  /// Of the longest unit.
  int64_t most_frames() const { return (period * 48'000) / (27'000'000LL * pieces) + 1; }
};

/// A data set leaves this much of the decoder's buffer for what arrives before it goes.
inline constexpr size_t kMostDataSet = 60'000;

/// Without pictures to go by: 20 ms, which are 960 frames and so five whole AES3 blocks.
inline constexpr int64_t kCadenceWithoutVideo = 540'000;

/// The pictures' own cadence, in as many pieces as it takes for a data set of at most `mostBytes`.
pcm_cadence cadence_of_pictures(int64_t framePeriod, const aes3_layout& layout, size_t mostBytes);

class smpte302m_units : public pcm_units {
 public:
  /// An input and its place among the stream's channels.
  struct source {
    std::unique_ptr<pcm_source> input;
    int firstChannel = 0;
    bool doubled = false;   // one channel, which goes into both of its pair
    size_t framesRead = 0;  // of the unit being made
    bool ended = false;
  };

  smpte302m_units(const aes3_layout& layout, const pcm_cadence& cadence,
                  std::vector<source> sources);

  void set_channel_status(int channel, const aes3_channel_status& status) {
    packer_.set_channel_status(channel, status);
  }

  size_t most_bytes() const override;
  result next(std::span<uint8_t> out, pcm_unit& unit) override;

 private:
  bool gather(source& from, size_t frames);
  void fit_words(const source& from, size_t frames);

  aes3_layout layout_;
  pcm_cadence cadence_;
  aes3_packer packer_;
  std::vector<source> sources_;
  std::vector<int32_t> samples_;  // of the unit being made, interleaved
  int64_t index_ = 0;
};

/// The channel status that the record says for each of its first `channels` channels.
void set_channel_status(smpte302m_units& units, const Morvalen::Zel::tsm_smpte302m& record,
                        int channels);

}  // namespace zel::mux
