#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/pcm/aes3_sets.h"
#include "zel/mux/engine/pcm/pcm_source.h"
#include "zel/mux/engine/pcm/set_reader.h"

/// What an SMPTE ST 302 stream of another multiplex carries, taken out of its data sets.

namespace zel::mux {

/// The fatal messages about a stream that changes; 0: warning 45 instead. Either way it ends there.
struct aes3_change_messages {
  int channels = 0;
  int wordSize = 0;
};

class aes3_source : public pcm_source {
 public:
  aes3_source(std::unique_ptr<elementary_input> input, int pid, reporting& reports,
              const aes3_change_messages& messages)
      : input_(std::move(input)),
        reader_(*input_, read_aes3_header, pid, reports),
        pid_(pid),
        report_(reports),
        messages_(messages) {}

  /// Finds the first data set. False where there is none.
  bool open();
  const aes3_header& header() const { return first_; }
  elementary_input& input() { return *input_; }

  int channels() const override { return first_.channels; }
  int bits() const override { return first_.wordSize; }
  result read(int32_t* out, size_t stride, size_t frames, size_t& count) override;
  /// The same, of subframes as they stand: the sample from its least significant bit on, then V U
  /// C F, in the low wordSize + 4 bits.
  result read_subframes(uint32_t* out, size_t stride, size_t frames, size_t& count);

 private:
  result next_set();

  std::unique_ptr<elementary_input> input_;
  set_reader<aes3_header> reader_;
  int pid_;
  reporting& report_;
  aes3_change_messages messages_;
  aes3_header first_;
  size_t framesLeft_ = 0;  // of the set that has been entered
};

}  // namespace zel::mux
