#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace zel::media {

/// MD5 (RFC 1321) of bytes that come in pieces: to compare data, not to protect it.
class Md5 {
 public:
  void add(std::span<const uint8_t> bytes);
  /// The digest in hexadecimal. Nothing may be added behind it.
  std::string finish();

 private:
  void addBlock(const uint8_t* block);

  std::array<uint32_t, 4> state_ = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
  std::array<uint8_t, 64> rest_{};
  uint64_t count_ = 0;  // bytes added
};

std::string md5Of(std::span<const uint8_t> bytes);

}  // namespace zel::media
