#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace zel::test {

/// Bits one at a time, as the standards define them: what the fast readers and writers are held
/// against.
class SlowBits {
 public:
  explicit SlowBits(std::span<const uint8_t> bytes) {
    for (const uint8_t byte : bytes) {
      for (int i = 7; i >= 0; --i) bits_.push_back((byte >> i & 1) != 0);
    }
  }
  SlowBits() = default;

  uint64_t read(int count) {
    uint64_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 1 | static_cast<unsigned>(next());
    return value;
  }

  uint32_t readUe() {
    int zeros = 0;
    while (zeros < 32 && !failed_ && !next()) ++zeros;
    if (zeros == 32) failed_ = true;
    if (failed_) return 0;
    const uint64_t suffix = read(zeros);
    return static_cast<uint32_t>((uint64_t{1} << zeros) - 1 + suffix);
  }

  void skip(uint64_t count) {
    if (count > bits_.size() - at_ || failed_) {
      failed_ = failed_ || count > 0;
      at_ = bits_.size();
    } else {
      at_ += count;
    }
  }

  bool moreRbspData() const {
    if (failed_) return false;
    size_t last = bits_.size();
    while (last > at_ && !bits_[last - 1]) --last;
    return last > at_ + 1;
  }

  void write(uint64_t value, int count) {
    for (int i = count - 1; i >= 0; --i) bits_.push_back((value >> i & 1) != 0);
  }

  std::vector<uint8_t> bytes() const {
    std::vector<uint8_t> result((bits_.size() + 7) / 8);
    for (size_t i = 0; i < bits_.size(); ++i) {
      if (bits_[i]) result[i / 8] = static_cast<uint8_t>(result[i / 8] | 0x80 >> i % 8);
    }
    return result;
  }

  size_t size() const { return bits_.size(); }
  size_t position() const { return at_; }
  bool failed() const { return failed_; }

 private:
  bool next() {
    if (failed_ || at_ == bits_.size()) {
      failed_ = true;
      return false;
    }
    return bits_[at_++];
  }

  std::vector<bool> bits_;
  size_t at_ = 0;
  bool failed_ = false;
};

}  // namespace zel::test
