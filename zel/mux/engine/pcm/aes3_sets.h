#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/pcm/aes3_packing.h"
#include "zel/mux/engine/pcm/pcm_units.h"
#include "zel/mux/engine/pcm/set_reader.h"
#include "zel/mux/engine/run/reporting.h"

/// SMPTE ST 302 streams that come out of another multiplex: their AES3 data sets, one behind the
/// other.

namespace zel::mux {

/// The four bytes that a data set begins with.
struct aes3_header {
  size_t payload = 0;  // bytes behind it
  int channels = 0;
  int wordSize = 0;
  uint8_t channelIdentification = 0;

  size_t frames() const {
    return payload / (static_cast<size_t>(channels / 2) * aes3_pair_size(wordSize));
  }
  bool same_layout(const aes3_header& other) const {
    return channels == other.channels && wordSize == other.wordSize;
  }
  /// Among samples much looks like a header: less does that tells the same, and nearly the size.
  bool resembles(const aes3_header& other) const {
    return same_layout(other) && sizes_resemble(payload, other.payload) &&
           channelIdentification == other.channelIdentification;
  }
};

/// False where these can't be a data set's: reserved values, or a size that isn't whole frames.
bool read_aes3_header(std::span<const uint8_t, kAes3HeaderSize> bytes, aes3_header& header);

/// Passes data sets on bit for bit, so that validity, user data, channel status and the place of
/// blocks stay as they are. Bytes between them, which damage leaves, are passed over with warning
/// 61; a change of layout is warning 45.
class aes3_sets : public pcm_units {
 public:
  aes3_sets(elementary_input& input, int pid, reporting& reports)
      : input_(input),
        reader_(input, read_aes3_header, pid, reports),
        pid_(pid),
        report_(reports) {}

  /// Reads ahead to learn the layout and how large data sets are. False where there is none.
  bool read_ahead();
  const aes3_header& first() const { return first_; }
  double units_per_second() const { return 48'000.0 / averageFrames_; }

  size_t most_bytes() const override { return mostBytes_; }
  result next(std::span<uint8_t> out, pcm_unit& unit) override;

 private:
  elementary_input& input_;
  set_reader<aes3_header> reader_;
  int pid_;
  reporting& report_;
  aes3_header first_;
  size_t mostBytes_ = 0;
  double averageFrames_ = 0;
};

}  // namespace zel::mux
