#pragma once

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/base/byte_order.h"

namespace zel::base {

/// Reads big-endian bit fields. Past the end it yields zeros and sets a sticky flag, so a parser
/// asks failed() once per header, not once per field. A field that crosses the end yields the bits
/// that are there, then zeros.
///
/// The state is one bit position: each read loads the 64 bits at its byte anew, which needs no
/// refill and no bookkeeping, so that reads of fixed widths run in parallel in the machine. The
/// last eight bytes are kept in a word, which stands in where a load would pass the end.
///
/// The bytes are borrowed for the reader's life. Copying a reader is cheap and saves its place.
class BitReader {
 public:
  constexpr BitReader() = default;
  explicit constexpr BitReader(std::span<const uint8_t> bytes)
      : bytes_(bytes.data()), size_(bytes.size()), end_(uint64_t{bytes.size()} * 8) {
    if (size_ >= 8) {
      tailBegin_ = size_ - 8;
      tail_ = loadBig64(bytes_ + tailBegin_);
      return;
    }
    for (size_t i = 0; i < size_; ++i) tail_ |= uint64_t{bytes_[i]} << 8 * (7 - i);
  }

  /// 0 <= count <= 32.
  constexpr uint32_t read(int count) {
    const uint32_t value = peek(count);
    bit_ += static_cast<unsigned>(count);
    return value;
  }

  constexpr bool readFlag() { return read(1) != 0; }

  /// 0 <= count <= 64.
  constexpr uint64_t readLong(int count) {
    assert(count >= 0 && count <= 64);
    if (count <= 32) return read(count);
    const uint64_t high = read(count - 32);
    return high << 32 | read(32);
  }

  /// Two's complement, 1 <= count <= 32.
  constexpr int32_t readSigned(int count) {
    assert(count >= 1 && count <= 32);
    return static_cast<int32_t>(read(count) << (32 - count)) >> (32 - count);
  }

  /// The next bits without moving on; what lies past the end is zero. 0 <= count <= 32.
  constexpr uint32_t peek(int count) const {
    assert(count >= 0 && count <= 32);
    // Two shifts, since one by 64 has no meaning.
    return static_cast<uint32_t>(window() >> 1 >> (63 - count));
  }

  constexpr void skip(uint64_t count) {
    // A length from the stream may be anything: stay one past the end rather than wrap.
    bit_ += std::min(count, end_ + 1 - std::min(bit_, end_));
  }

  /// Unsigned Exp-Golomb code, ue(v) of ITU-T H.264 9.1 and H.265 9.2: 0 to 2^32 - 2. A longer code
  /// fails and gives 0.
  constexpr uint32_t readUe() {
    const uint64_t next = window();
    const int zeros = std::countl_zero(next);
    // Of the 64 bits at least 57 are the stream's: codes of up to 28 zeros are whole.
    if (zeros > 28) return readLongUe();
    bit_ += static_cast<unsigned>(2 * zeros + 1);
    return static_cast<uint32_t>(next >> (63 - 2 * zeros)) - 1;
  }

  /// Signed Exp-Golomb code, se(v) of H.264 9.1.1 and H.265 9.2.2: 0, 1, -1, 2, -2...
  constexpr int32_t readSe() {
    const uint32_t code = readUe();
    const auto magnitude = static_cast<int32_t>((uint64_t{code} + 1) >> 1);
    return (code & 1) != 0 ? magnitude : -magnitude;
  }

  /// Truncated Exp-Golomb code, te(v) of H.264 9.1, for values up to `largest`.
  constexpr uint32_t readTe(uint32_t largest) {
    return largest > 1 ? readUe() : static_cast<uint32_t>(!readFlag());
  }

  /// Moves to the next byte boundary, if not at one.
  constexpr void align() { bit_ = (bit_ + 7) & ~uint64_t{7}; }
  constexpr bool aligned() const { return (bit_ & 7) == 0; }

  /// Takes `count` bytes at once, as a view of the source. The reader has to be aligned. If there
  /// are fewer it fails and the view is empty.
  constexpr std::span<const uint8_t> readBytes(size_t count) {
    assert(aligned());
    if (count > bitsLeft() / 8) {
      fail();
      return {};
    }
    const std::span<const uint8_t> view(bytes_ + bit_ / 8, count);
    bit_ += uint64_t{count} * 8;
    return view;
  }

  /// more_rbsp_data() of H.264 7.2 and H.265 7.2: whether anything stands before the last set bit,
  /// which is the stop bit of the payload.
  constexpr bool moreRbspData() const {
    size_t last = size_;
    while (last > bit_ / 8 && bytes_[last - 1] == 0) --last;
    if (last == 0 || last <= bit_ / 8) return false;
    const uint64_t stop = uint64_t{last} * 8 - 1 - std::countr_zero(bytes_[last - 1]);
    return bit_ < stop;
  }

  /// Bits from the start; beyond the source's size once the reader has failed.
  constexpr uint64_t position() const { return bit_; }
  constexpr uint64_t bitsLeft() const { return bit_ < end_ ? end_ - bit_ : 0; }

  /// Whether any read went past the end, or met a code that can't be. Stays set.
  constexpr bool failed() const { return bit_ > end_; }
  /// For a parser that met a value which can't be: from here on there are zeros only.
  constexpr void fail() { bit_ = std::max(bit_, end_ + 1); }

 private:
  // The stream's next 57 bits at least, at the top.
  constexpr uint64_t window() const {
    const uint64_t byte = bit_ / 8;
    const auto within = static_cast<unsigned>(bit_ & 7);
    if (byte + 8 <= size_) [[likely]]
      return loadBig64(bytes_ + byte) << within;
    const uint64_t used = byte - tailBegin_;
    return used < 8 ? tail_ << 8 * used << within : 0;
  }

  constexpr uint32_t readLongUe() {
    int zeros = 0;
    while (zeros < 32 && !failed() && !readFlag()) ++zeros;
    if (zeros < 32 && !failed()) {
      const uint32_t suffix = read(zeros);
      if (!failed()) return (uint32_t{1} << zeros) - 1 + suffix;
    }
    fail();
    return 0;
  }

  const uint8_t* bytes_ = nullptr;
  size_t size_ = 0;
  uint64_t end_ = 0;  // in bits
  uint64_t bit_ = 0;  // beyond end_: failed
  size_t tailBegin_ = 0;
  uint64_t tail_ = 0;  // the last bytes, from tailBegin_, at the top
};

}  // namespace zel::base
