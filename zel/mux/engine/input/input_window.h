#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "zel/mux/engine/input/circular_buffer.h"
#include "zel/mux/engine/input/stream_source.h"

/// Looks at the bytes of a source in one piece.

namespace zel::mux {

class input_window {
 public:
  /// At most `capacity` bytes are there at once.
  input_window(std::unique_ptr<stream_source> source, size_t capacity);

  /// What is there after an attempt to have at least `wanted` bytes, up to the capacity: fewer only
  /// where the source ends.
  std::span<const uint8_t> look(size_t wanted);
  /// Without reading.
  std::span<const uint8_t> seen() const { return {bytes_.data() + begin_, end_ - begin_}; }
  /// Drops what stands in front; it has to be there.
  void drop(size_t count) {
    begin_ += count;
    position_ += static_cast<int64_t>(count);
  }
  /// Where what stands in front lies in the source.
  int64_t position() const { return position_; }
  /// The source's own, in its bytes.
  int64_t take_transition() { return source_->take_transition(); }

 private:
  std::unique_ptr<stream_source> source_;
  std::vector<uint8_t> bytes_;
  size_t begin_ = 0;
  size_t end_ = 0;
  int64_t position_ = 0;
  bool ended_ = false;
};

/// A caller's loader as a source.
class loader_source : public stream_source {
 public:
  using load_function = int (*)(void* userValue, cbuf* buffer);
  loader_source(load_function load, void* userValue, int32_t capacity);

  int32_t read(uint8_t* to, int32_t room) override;

 private:
  load_function load_;
  void* userValue_;
  std::vector<uint8_t> storage_;
  cbuf buffer_;
};

}  // namespace zel::mux
