#include "tools/zel/media/md5.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace zel::media {
namespace {

// RFC 1321, 3.4: entry i is the whole part of 2^32 * |sin(i + 1)|. Whatever the last bits of the
// library's sine, none of the 64 lies near enough to a whole number for them to matter.
std::array<uint32_t, 64> makeSines() {
  std::array<uint32_t, 64> sines{};
  for (size_t i = 0; i < sines.size(); ++i)
    sines[i] =
        static_cast<uint32_t>(std::floor(std::fabs(std::sin(static_cast<double>(i + 1))) * 0x1p32));
  return sines;
}

constexpr int kRotations[4][4] = {
    {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

uint32_t little32(const uint8_t* bytes) {
  return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
         uint32_t{bytes[3]} << 24;
}

}  // namespace

void Md5::addBlock(const uint8_t* block) {
  static const std::array<uint32_t, 64> sines = makeSines();
  std::array<uint32_t, 16> words{};
  for (size_t i = 0; i < words.size(); ++i) words[i] = little32(block + 4 * i);
  auto [a, b, c, d] = state_;
  for (uint32_t i = 0; i < 64; ++i) {
    uint32_t mixed = 0;
    uint32_t word = 0;
    switch (i / 16) {
      case 0:
        mixed = (b & c) | (~b & d);
        word = i;
        break;
      case 1:
        mixed = (b & d) | (c & ~d);
        word = 5 * i + 1;
        break;
      case 2:
        mixed = b ^ c ^ d;
        word = 3 * i + 5;
        break;
      default:
        mixed = c ^ (b | ~d);
        word = 7 * i;
        break;
    }
    const uint32_t sum = a + mixed + sines[i] + words[word % 16];
    a = d;
    d = c;
    c = b;
    b += std::rotl(sum, kRotations[i / 16][i % 4]);
  }
  state_[0] += a;
  state_[1] += b;
  state_[2] += c;
  state_[3] += d;
}

void Md5::add(std::span<const uint8_t> bytes) {
  const size_t held = count_ % rest_.size();
  count_ += bytes.size();
  if (held != 0) {
    const size_t taken = std::min(bytes.size(), rest_.size() - held);
    std::copy_n(bytes.data(), taken, rest_.data() + held);
    bytes = bytes.subspan(taken);
    if (held + taken < rest_.size()) return;
    addBlock(rest_.data());
  }
  for (; bytes.size() >= rest_.size(); bytes = bytes.subspan(rest_.size())) addBlock(bytes.data());
  std::copy(bytes.begin(), bytes.end(), rest_.begin());
}

std::string Md5::finish() {
  const uint64_t bits = count_ * 8;
  static constexpr std::array<uint8_t, 64> kPadding = {0x80};
  const size_t held = count_ % rest_.size();
  add(std::span(kPadding).first(held < 56 ? 56 - held : 120 - held));
  std::array<uint8_t, 8> length{};
  for (size_t i = 0; i < length.size(); ++i) length[i] = static_cast<uint8_t>(bits >> (8 * i));
  add(length);
  std::string text;
  constexpr char kDigits[] = "0123456789abcdef";
  for (const uint32_t word : state_) {
    for (int shift = 0; shift < 32; shift += 8) {
      const uint32_t byte = word >> shift & 0xFF;
      text += kDigits[byte >> 4];
      text += kDigits[byte & 15];
    }
  }
  return text;
}

std::string md5Of(std::span<const uint8_t> bytes) {
  Md5 md5;
  md5.add(bytes);
  return md5.finish();
}

}  // namespace zel::media
