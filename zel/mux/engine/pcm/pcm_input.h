#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/pcm/pcm_source.h"
#include "zel/mux/engine/pcm/sample_format.h"
#include "zel/mux/engine/pcm/wave_parser.h"
#include "zel/mux/engine/run/reporting.h"

/// Samples out of an input: raw, or in Wave files one behind the other. Which of both is told by
/// the first bytes.

namespace zel::mux {

/// The codes under which a kind of stream reports its Wave files.
struct wave_messages {
  int discarded = 0;        // warning: what follows a Wave file is none
  int corrupted = 0;        // warning: the first file's samples can't be found
  int depthChanged = 0;     // fatal
  int channelsChanged = 0;  // fatal
  int rateChanged = 0;      // fatal
};

class pcm_input : public pcm_source {
 public:
  elementary_input& bytes() { return input_; }

  /// What raw samples look like. Before open().
  void set_raw(const sample_format& format, int channels) {
    format_ = format;
    channels_ = channels;
  }
  /// Reads the head, so that format(), channels() and wave() are known.
  void open(const wave_messages& messages, int pid, reporting& reports);

  bool is_wave() const { return wave_; }
  /// What the Wave file says; without one its defaults.
  const wave_format& wave() const { return told_; }
  int channels() const override { return channels_; }
  int bits() const override { return format_.bits; }
  const sample_format& format() const { return format_; }

  result read(int32_t* out, size_t stride, size_t frames, size_t& count) override;

 private:
  enum class search { samples, other, later, over };
  search find_samples();
  result next_file();
  void adopt_wave();
  std::span<const uint8_t> head(uint8_t* copy) const;
  bool fits_first_file();
  bool drop_partial_frame();
  size_t frame_bytes() const {
    return static_cast<size_t>(channels_) * static_cast<size_t>(format_.bytes);
  }
  size_t frames_there() const;
  void read_frames(int32_t* out, size_t stride, size_t frames);

  elementary_input input_;
  wave_parser parser_;
  wave_messages messages_;
  int pid_ = no_pid;
  reporting* report_ = nullptr;
  sample_format format_;
  int channels_ = 2;
  bool wave_ = false;
  bool ended_ = false;
  wave_format told_;
};

}  // namespace zel::mux
