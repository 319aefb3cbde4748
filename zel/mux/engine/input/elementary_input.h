#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "zel/mux/engine/input/circular_buffer.h"
#include "zel/mux/engine/input/stream_source.h"

/// One stream's input: its circular buffer, who fills it, and positions in it. Positions count the
/// bytes of the stream from its first one, so that they hold when the buffer grows or wraps around;
/// what lies in [read_position(), end_position()) can be looked at.

namespace zel::mux {

/// Fills the free space of the buffer; not 0 means the end of input. The signature of the load
/// callback of tsm_set_callbacks.
using load_function = int (*)(void* userValue, cbuf* buffer);

class elementary_input {
 public:
  /// Allocates `size` bytes; `source` fills them, at most `granularity` bytes a call of load(), or
  /// as many as it says are ready.
  void open(int32_t size, int32_t granularity, std::unique_ptr<stream_source> source);
  /// The same with a caller's callback, which fills as much as it likes.
  void open(int32_t size, load_function function, void* userValue);
  bool opened() const { return storage_ != nullptr; }

  /// Gets more bytes. False when none came: the source has ended (ended() tells) or there is no
  /// room. A callback that delivers nothing without telling the end leaves ended() false.
  bool load();
  /// The source has given everything; what the buffer holds is the rest.
  bool ended() const { return buffer_.finished != 0; }
  /// Nothing more comes: for sources cut by an end time code.
  void finish() { buffer_.finished = 1; }

  int64_t read_position() const { return readPosition_; }
  int64_t end_position() const { return readPosition_ + cbuf_filled(buffer_); }
  int32_t filled() const { return cbuf_filled(buffer_); }
  int32_t room() const { return cbuf_free(buffer_); }
  int32_t capacity() const { return buffer_.size; }

  /// The byte at `position`, read_position() <= position < end_position().
  uint8_t at(int64_t position) const { return *place(position); }
  /// The bytes from `position` on that lie in one piece: at least one before end_position().
  std::span<const uint8_t> straight(int64_t position) const {
    const uint8_t* const from = place(position);
    const auto left = static_cast<int32_t>(end_position() - position);
    return {from, static_cast<size_t>(cbuf_straight(buffer_, from, left))};
  }
  /// Copies `count` bytes from `position` on without taking them out; all of them have to be there.
  void copy(int64_t position, uint8_t* to, int32_t count) const {
    cbuf_copy(buffer_, place(position), to, count);
  }
  /// Takes out the next `count` bytes.
  void take(uint8_t* to, int32_t count) {
    cbuf_copy(buffer_, buffer_.read, to, count);
    skip(count);
  }
  /// Drops the next `count` bytes.
  void skip(int32_t count) {
    buffer_.read = cbuf_forward(buffer_, buffer_.read, count);
    readPosition_ += count;
  }
  /// Adds bytes behind what was loaded. False, and nothing done, when there's no room.
  bool append(std::span<const uint8_t> bytes);

  /// Makes the buffer at least `size` bytes; what it holds keeps its positions.
  void grow(int32_t size);

  cbuf& buffer() { return buffer_; }
  const cbuf& buffer() const { return buffer_; }
  stream_source* source() { return source_.get(); }

 private:
  uint8_t* place(int64_t position) const {
    return cbuf_forward(buffer_, buffer_.read, static_cast<int32_t>(position - readPosition_));
  }

  cbuf buffer_;
  int64_t readPosition_ = 0;
  std::unique_ptr<uint8_t[]> storage_;
  std::unique_ptr<stream_source> source_;
  int32_t granularity_ = 0;
  load_function load_ = nullptr;
  void* userValue_ = nullptr;
};

}  // namespace zel::mux
