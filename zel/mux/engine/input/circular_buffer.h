#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

/// The circular buffer between a stream's source and its analyser. Callers fill it through the load
/// callback, so the record and the rule that one byte always stays free are an interface.

namespace Morvalen::Zel {

/// Read equal to write means empty; one byte always stays free. Everything from `read` to `write`
/// belongs to the engine, the rest to whoever loads. A loader may move `read`, `write` and `scan`
/// back to `start` together when the buffer is empty, and nothing else of them but `write`.
struct cbuf {
  uint8_t* start = nullptr;
  uint8_t* end = nullptr;    // one past the last byte
  uint8_t* read = nullptr;   // the next byte that the engine takes out
  uint8_t* write = nullptr;  // where the next byte goes in
  int32_t size = 0;          // end - start
  uint8_t* scan = nullptr;   // the analyser's position, within [read, write]
  uint32_t finished = 0;     // not 0: nothing comes any more
};

}  // namespace Morvalen::Zel

namespace zel::mux {

using Morvalen::Zel::cbuf;

inline void reset_cbuf(cbuf& buffer, uint8_t* storage, int32_t size) {
  buffer = {storage, storage + size, storage, storage, size, storage, 0};
}

/// Bytes from `from` to `to`, going forward around the end.
inline int32_t cbuf_distance(const cbuf& buffer, const uint8_t* from, const uint8_t* to) {
  const auto plain = static_cast<int32_t>(to - from);
  return plain < 0 ? plain + buffer.size : plain;
}
inline int32_t cbuf_filled(const cbuf& buffer) {
  return cbuf_distance(buffer, buffer.read, buffer.write);
}
/// What may still be loaded.
inline int32_t cbuf_free(const cbuf& buffer) {
  return buffer.size == 0 ? 0 : buffer.size - 1 - cbuf_filled(buffer);
}
/// `at` moved forward by `count` bytes, 0 <= count < size.
inline uint8_t* cbuf_forward(const cbuf& buffer, uint8_t* at, int32_t count) {
  uint8_t* const moved = at + count;
  return moved >= buffer.end ? moved - buffer.size : moved;
}
/// Bytes that lie in one piece from `at` on, out of `count`.
inline int32_t cbuf_straight(const cbuf& buffer, const uint8_t* at, int32_t count) {
  return std::min(count, static_cast<int32_t>(buffer.end - at));
}
/// Copies `count` bytes from `at` on, in at most two spans.
inline void cbuf_copy(const cbuf& buffer, const uint8_t* at, uint8_t* to, int32_t count) {
  if (count <= 0) return;  // `to` may be null then
  const int32_t first = cbuf_straight(buffer, at, count);
  std::memcpy(to, at, static_cast<size_t>(first));
  if (count > first) std::memcpy(to + first, buffer.start, static_cast<size_t>(count - first));
}

}  // namespace zel::mux
