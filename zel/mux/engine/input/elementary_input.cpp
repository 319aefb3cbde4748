#include "zel/mux/engine/input/elementary_input.h"

#include <utility>

namespace zel::mux {

void elementary_input::open(int32_t size, int32_t granularity,
                            std::unique_ptr<stream_source> source) {
  size = std::max(size, 2);
  storage_ = std::make_unique_for_overwrite<uint8_t[]>(static_cast<size_t>(size));
  reset_cbuf(buffer_, storage_.get(), size);
  readPosition_ = 0;
  source_ = std::move(source);
  granularity_ = std::max(granularity, 1);
  load_ = nullptr;
  userValue_ = nullptr;
}

void elementary_input::open(int32_t size, load_function function, void* userValue) {
  open(size, 1, nullptr);
  load_ = function;
  userValue_ = userValue;
}

bool elementary_input::load() {
  if (ended() || !opened()) return false;
  const int32_t before = filled();
  if (cbuf_free(buffer_) == 0) return false;
  // A loader may only put all pointers back to the start when there is nothing between them.
  if (before == 0) buffer_.scan = buffer_.read;

  if (load_ != nullptr) {
    const uint8_t* const read = buffer_.read;
    const bool last = load_(userValue_, &buffer_) != 0;
    // A caller's pointers that left the buffer, or moved what is the engine's, end the input rather
    // than the process.
    const bool inside = buffer_.write >= buffer_.start && buffer_.write < buffer_.end;
    const bool kept = before == 0 ? buffer_.read >= buffer_.start && buffer_.read < buffer_.end
                                  : buffer_.read == read;
    if (!inside || !kept) {
      reset_cbuf(buffer_, storage_.get(), buffer_.size);
      finish();
      return false;
    }
    if (last) finish();
    return filled() > before;
  }

  if (before == 0) buffer_.read = buffer_.write = buffer_.scan = buffer_.start;
  // One piece a call: up to the end, or up to the byte that stays free.
  const int32_t straight = cbuf_straight(buffer_, buffer_.write, cbuf_free(buffer_));
  const int32_t ready = source_ == nullptr ? 0 : source_->ready_bytes();
  const int32_t wanted = std::min(straight, std::max(granularity_, ready));
  const int32_t got = source_ == nullptr ? 0 : source_->read(buffer_.write, wanted);
  if (got <= 0) {
    finish();
    return false;
  }
  buffer_.write = cbuf_forward(buffer_, buffer_.write, std::min(got, wanted));
  return true;
}

bool elementary_input::append(std::span<const uint8_t> bytes) {
  const auto count = static_cast<int32_t>(bytes.size());
  if (count > cbuf_free(buffer_)) return false;
  const int32_t first = cbuf_straight(buffer_, buffer_.write, count);
  std::memcpy(buffer_.write, bytes.data(), static_cast<size_t>(first));
  std::memcpy(buffer_.start, bytes.data() + first, static_cast<size_t>(count - first));
  buffer_.write = cbuf_forward(buffer_, buffer_.write, count);
  return true;
}

void elementary_input::grow(int32_t size) {
  if (size <= buffer_.size) return;
  auto larger = std::make_unique_for_overwrite<uint8_t[]>(static_cast<size_t>(size));
  const int32_t held = filled();
  const int32_t scanned = cbuf_distance(buffer_, buffer_.read, buffer_.scan);
  cbuf_copy(buffer_, buffer_.read, larger.get(), held);

  const uint32_t finished = buffer_.finished;
  storage_ = std::move(larger);
  reset_cbuf(buffer_, storage_.get(), size);
  buffer_.write = buffer_.start + held;
  buffer_.scan = buffer_.start + std::min(scanned, held);
  buffer_.finished = finished;
}

}  // namespace zel::mux
