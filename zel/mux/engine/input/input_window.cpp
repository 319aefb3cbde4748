#include "zel/mux/engine/input/input_window.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

namespace zel::mux {

input_window::input_window(std::unique_ptr<stream_source> source, size_t capacity)
    : source_(std::move(source)), bytes_(capacity) {}

std::span<const uint8_t> input_window::look(size_t wanted) {
  assert(wanted <= bytes_.size());
  while (end_ - begin_ < wanted && !ended_) {
    if (begin_ > 0) {
      std::memmove(bytes_.data(), bytes_.data() + begin_, end_ - begin_);
      end_ -= begin_;
      begin_ = 0;
    }
    const int32_t got =
        source_->read(bytes_.data() + end_, static_cast<int32_t>(bytes_.size() - end_));
    ended_ = got <= 0;
    end_ += static_cast<size_t>(std::max(got, 0));
  }
  return seen();
}

loader_source::loader_source(load_function load, void* userValue, int32_t capacity)
    : load_(load), userValue_(userValue), storage_(static_cast<size_t>(std::max(capacity, 2))) {
  reset_cbuf(buffer_, storage_.data(), static_cast<int32_t>(storage_.size()));
}

int32_t loader_source::read(uint8_t* to, int32_t room) {
  // A loader that gives nothing and doesn't say that it has ended can't be waited for for ever.
  constexpr int kMostCalls = 1000;
  for (int call = 0; call < kMostCalls && cbuf_filled(buffer_) == 0; ++call) {
    if (buffer_.finished != 0) return 0;
    if (load_(userValue_, &buffer_) != 0) buffer_.finished = 1;
    const bool inside = buffer_.write >= buffer_.start && buffer_.write < buffer_.end &&
                        buffer_.read >= buffer_.start && buffer_.read < buffer_.end;
    if (!inside) {
      reset_cbuf(buffer_, storage_.data(), static_cast<int32_t>(storage_.size()));
      buffer_.finished = 1;
    }
  }
  const int32_t count = std::min(cbuf_filled(buffer_), room);
  cbuf_copy(buffer_, buffer_.read, to, count);
  buffer_.read = buffer_.scan = cbuf_forward(buffer_, buffer_.read, count);
  return count;
}

}  // namespace zel::mux
