#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

/// The byte stream format of ITU-T H.264 and H.265, Annex B: units behind start codes. MPEG-1/2 and
/// MPEG-4 part 2 video have the same start codes and are walked by the same functions.

namespace zel::base {

/// The place of the first start code prefix, 00 00 01, at or after `from`; the size if there is
/// none.
size_t findStartCode(std::span<const uint8_t> bytes, size_t from = 0);

/// One unit, without its start code and without the zeros that may trail it.
struct NalUnit {
  std::span<const uint8_t> bytes;  // never empty; a view of the stream
  size_t startCode = 0;            // place of the start code's first byte in the stream
  int startCodeSize = 0;           // 3, or 4 when a zero byte stands before the prefix
};

/// The units of a piece of stream, in order: `for (const NalUnit& unit : NalUnits(bytes))`. What
/// stands before the first start code is passed over, as are start codes with nothing behind them.
/// The last unit reaches to the end of the bytes, whole or not.
class NalUnits {
 public:
  explicit NalUnits(std::span<const uint8_t> stream)
      : stream_(stream), prefix_(findStartCode(stream)) {}

  /// Gives the next unit; false at the end, and then `unit` is unchanged.
  bool next(NalUnit& unit);

  class Iterator;
  inline Iterator begin() const;
  std::default_sentinel_t end() const { return {}; }

 private:
  std::span<const uint8_t> stream_;
  size_t prefix_;  // of the next unit; the stream's size at the end
};

class NalUnits::Iterator {
 public:
  using value_type = NalUnit;
  using difference_type = ptrdiff_t;

  explicit Iterator(const NalUnits& units) : units_(units) { ++*this; }
  const NalUnit& operator*() const { return unit_; }
  const NalUnit* operator->() const { return &unit_; }
  Iterator& operator++() {
    valid_ = units_.next(unit_);
    return *this;
  }
  void operator++(int) { ++*this; }
  bool operator==(std::default_sentinel_t) const { return !valid_; }

 private:
  NalUnits units_;
  NalUnit unit_;
  bool valid_ = false;
};

NalUnits::Iterator NalUnits::begin() const {
  return Iterator(*this);
}

/// Copies a unit without its emulation prevention bytes: each 00 00 03 becomes 00 00 (H.264 7.3.1,
/// H.265 7.3.1.1). `out` needs room for as many bytes as the unit has and may be the unit itself;
/// the result is the count written.
size_t removeEmulationPrevention(std::span<const uint8_t> unit, uint8_t* out);

/// The same into a vector, whose contents it replaces; the unit has to lie elsewhere.
void removeEmulationPrevention(std::span<const uint8_t> unit, std::vector<uint8_t>& out);

/// The way back, added at the end of `out`: a 03 wherever two zeros would be followed by 00, 01, 02
/// or 03, and at the end of a payload that ends in a zero (H.264 7.4.1, H.265 7.4.2).
void appendEmulationPrevention(std::span<const uint8_t> payload, std::vector<uint8_t>& out);

}  // namespace zel::base
