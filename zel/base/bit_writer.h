#pragma once

#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "zel/base/byte_order.h"

namespace zel::base {

/// Writes big-endian bit fields into a caller's buffer. What doesn't fit is counted and dropped and
/// sets a sticky flag, so that a writer of headers asks failed() once. Bits gather in a 64-bit
/// word, which is stored when it's full: finish() brings the rest out.
class BitWriter {
 public:
  BitWriter() = default;
  explicit BitWriter(std::span<uint8_t> out) : out_(out) {}

  /// The low `count` bits of `value`, 0 <= count <= 32; the bits above have to be zero.
  void write(uint64_t value, int count) {
    assert(count >= 0 && count <= 32);
    assert(value >> count == 0);
    put(value, count);
  }

  void writeFlag(bool flag) { put(flag ? 1 : 0, 1); }

  /// 0 <= count <= 64; the bits above have to be zero.
  void writeLong(uint64_t value, int count) {
    assert(count >= 0 && count <= 64);
    assert(count == 64 || value >> count == 0);
    if (count > 32) {
      put(value >> 32, count - 32);
      put(value & 0xFFFFFFFF, 32);
    } else {
      put(value, count);
    }
  }

  /// Two's complement, 1 <= count <= 32; the value has to fit.
  void writeSigned(int32_t value, int count) {
    assert(count >= 1 && count <= 32);
    assert(value >= -(int64_t{1} << (count - 1)) && value < int64_t{1} << (count - 1));
    put(static_cast<uint32_t>(value) & (~uint64_t{0} >> (64 - count)), count);
  }

  /// Unsigned Exp-Golomb code, ue(v) of ITU-T H.264 9.1 and H.265 9.2. At most 2^32 - 2.
  void writeUe(uint32_t value) {
    assert(value != 0xFFFFFFFF);
    const uint64_t code = uint64_t{value} + 1;
    const int width = 64 - std::countl_zero(code);
    put(0, width - 1);
    put(code, width);
  }

  /// Signed Exp-Golomb code, se(v). Everything but -2^31, which has no code.
  void writeSe(int32_t value) {
    assert(value != INT32_MIN);
    writeUe(value > 0 ? 2 * static_cast<uint32_t>(value) - 1
                      : 2 * (0 - static_cast<uint32_t>(value)));
  }

  /// Fills up to the next byte boundary with zeros, or with ones as stuffing in some formats is.
  void align(bool ones = false) {
    const int count = -used_ & 7;
    put(ones ? (1u << count) - 1 : 0, count);
  }
  bool aligned() const { return (used_ & 7) == 0; }

  /// Whole bytes. The writer has to be aligned.
  void writeBytes(std::span<const uint8_t> bytes) {
    assert(aligned());
    while (used_ > 0 && !bytes.empty()) {
      put(bytes.front(), 8);
      bytes = bytes.subspan(1);
    }
    if (bytes.empty()) return;
    if (at_ <= out_.size() && bytes.size() <= out_.size() - at_) {
      std::memcpy(out_.data() + at_, bytes.data(), bytes.size());
    } else {
      for (size_t i = 0; i < bytes.size() && at_ + i < out_.size(); ++i) out_[at_ + i] = bytes[i];
    }
    at_ += bytes.size();
  }

  /// Brings out the bits that are gathered, the last byte filled with zeros, and gives the bytes
  /// written so far. Writing may go on where it was.
  std::span<uint8_t> finish() {
    for (int done = 0; done < used_; done += 8) {
      const size_t place = at_ + static_cast<size_t>(done) / 8;
      if (place < out_.size()) out_[place] = static_cast<uint8_t>(word_ >> (56 - done));
    }
    const size_t bytes = static_cast<size_t>((position() + 7) / 8);
    return out_.first(bytes < out_.size() ? bytes : out_.size());
  }

  /// Bits from the start, those that didn't fit included.
  uint64_t position() const { return uint64_t{at_} * 8 + static_cast<unsigned>(used_); }

  /// Whether more was written than there is room for. Stays set.
  bool failed() const { return position() > uint64_t{out_.size()} * 8; }

 private:
  void put(uint64_t value, int count) {
    const int free = 64 - used_;
    if (count < free) {
      word_ |= value << 1 << (free - count - 1);
      used_ += count;
      return;
    }
    // The word gets full: at most 32 bits come, so that at least half of it was in use.
    const int rest = count - free;
    store(word_ | value >> rest);
    word_ = rest == 0 ? 0 : value << (64 - rest);
    used_ = rest;
  }

  void store(uint64_t word) {
    if (at_ + 8 <= out_.size()) [[likely]] {
      storeBig64(out_.data() + at_, word);
    } else {
      for (size_t i = 0; i < 8 && at_ + i < out_.size(); ++i) {
        out_[at_ + i] = static_cast<uint8_t>(word >> (56 - 8 * i));
      }
    }
    at_ += 8;
  }

  std::span<uint8_t> out_;
  size_t at_ = 0;      // the byte where word_ goes; may be past the end
  uint64_t word_ = 0;  // bits to come, at the top; the rest is zero
  int used_ = 0;       // of word_, 0 to 63
};

}  // namespace zel::base
