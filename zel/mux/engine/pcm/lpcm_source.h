#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/pcm/lpcm_units.h"
#include "zel/mux/engine/pcm/pcm_source.h"
#include "zel/mux/engine/pcm/set_reader.h"

/// The samples of a linear PCM stream of another multiplex, of either form.

namespace zel::mux {

/// The four bytes in front of a piece.
struct lpcm_header {
  size_t payload = 0;  // bytes behind it
  int channels = 0;    // that are heard
  int carried = 0;     // an even number: HDMV adds a silent one to odd numbers
  int bits = 0;
  int sampleRate = 0;
  uint8_t assignment = 0;  // of HDMV

  bool same_layout(const lpcm_header& other) const {
    return channels == other.channels && bits == other.bits && sampleRate == other.sampleRate &&
           assignment == other.assignment;
  }
  bool resembles(const lpcm_header& other) const {
    return same_layout(other) && sizes_resemble(payload, other.payload);
  }
};

using lpcm_header_bytes = std::span<const uint8_t, kSetHeader>;

/// False where these can't be a header of the form: reserved values, or a size that isn't whole
/// frames.
bool read_hdmv_header(lpcm_header_bytes bytes, lpcm_header& header);
bool read_ieee1394_header(lpcm_header_bytes bytes, lpcm_header& header);

/// The fatal messages about a stream that changes; it ends there.
struct lpcm_change_messages {
  int channels = 0;
  int bits = 0;
  int sampleRate = 0;
};

class lpcm_source : public pcm_source {
 public:
  lpcm_source(std::unique_ptr<elementary_input> input, lpcm_form form, int pid, reporting& reports,
              const lpcm_change_messages& messages);

  /// Finds the first piece. False where there is none.
  bool open();
  const lpcm_header& header() const { return first_; }
  elementary_input& input() { return *input_; }

  int channels() const override { return first_.channels; }
  int bits() const override { return first_.bits; }
  /// In the order of a Wave file's channels.
  result read(int32_t* out, size_t stride, size_t frames, size_t& count) override;

 private:
  result next_piece();

  std::unique_ptr<elementary_input> input_;
  lpcm_form form_;
  set_reader<lpcm_header> reader_;
  int pid_;
  reporting& report_;
  lpcm_change_messages messages_;
  lpcm_header first_;
  std::array<uint8_t, kMostPcmChannels> order_{};
  size_t framesLeft_ = 0;  // of the piece that has been entered
};

}  // namespace zel::mux
