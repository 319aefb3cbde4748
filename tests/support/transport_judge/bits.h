#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zel::test {

/// Bits of a header, most significant first; zeros behind the end. The judge's own: what it judges
/// reads with another reader, and one mistake shall not hide the other.
class HeaderBits {
 public:
  explicit HeaderBits(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  uint32_t take(unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i) value = value << 1 | takeBit();
    return value;
  }
  bool flag() { return takeBit() != 0; }
  void pass(unsigned count) { place_ += count; }
  uint32_t ue() {
    unsigned zeros = 0;
    while (zeros < 32 && !ended() && !flag()) ++zeros;
    return zeros >= 32 ? 0 : (uint32_t{1} << zeros) - 1 + take(zeros);
  }
  int32_t se() {
    const uint32_t code = ue();
    const auto half = static_cast<int32_t>((code + 1) / 2);
    return code % 2 == 1 ? half : -half;
  }
  bool ended() const { return place_ >= bytes_.size() * 8; }

 private:
  uint32_t takeBit() {
    const size_t byte = place_ / 8;
    const auto bit = static_cast<unsigned>(7 - place_ % 8);
    ++place_;
    return byte < bytes_.size() ? bytes_[byte] >> bit & 1U : 0;
  }

  std::span<const uint8_t> bytes_;
  size_t place_ = 0;
};

/// The payload of a NAL unit: 00 00 03 without its 03.
inline std::vector<uint8_t> withoutEmulation(std::span<const uint8_t> unit) {
  std::vector<uint8_t> out;
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    out.push_back(byte);
  }
  return out;
}

}  // namespace zel::test
