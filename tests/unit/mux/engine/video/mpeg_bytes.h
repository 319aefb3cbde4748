#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tests/support/header_bits.h"

/// Writes MPEG-1 and MPEG-2 video streams whose headers are right and whose slices are noise.

namespace zel::test {

struct MpegPicture {
  int type = 1;  // 1 I, 2 P, 3 B
  int temporalReference = 0;
  int structure = 3;  // 1 top field, 2 bottom field, 3 frame
  bool topFieldFirst = false;
  bool repeatFirstField = false;
  uint32_t vbvDelay = 20'000;
  size_t bytes = 2'000;  // of slices
};

class MpegBytes {
 public:
  bool mpeg2 = true;
  uint32_t frameRateCode = 3;
  uint32_t bitRate400 = 10'000;
  uint32_t vbvSize = 112;
  uint32_t profileLevel = 0x48;
  bool progressive = false;
  bool lowDelay = false;

  void sequence() {
    HeaderBits bits;
    bits.u(24, 1);
    bits.u(8, 0xB3);
    bits.u(12, 720);
    bits.u(12, 576);
    bits.u(4, 2);
    bits.u(4, frameRateCode);
    bits.u(18, bitRate400 & 0x3FFFF);
    bits.u(1, 1);
    bits.u(10, vbvSize & 0x3FF);
    bits.u(3, 0);
    add(bits.bytes());
    if (mpeg2) extension();
  }

  void extension() {
    HeaderBits bits;
    bits.u(24, 1);
    bits.u(8, 0xB5);
    bits.u(4, 1);
    bits.u(8, profileLevel);
    bits.u(1, progressive);
    bits.u(2, 1);
    bits.u(4, 0);
    bits.u(12, bitRate400 >> 18);
    bits.u(1, 1);
    bits.u(8, vbvSize >> 10);
    bits.u(1, lowDelay);
    bits.u(7, 0);
    add(bits.bytes());
  }

  void group(int hours, int minutes, int seconds, int pictures, bool dropFrame = false) {
    HeaderBits bits;
    bits.u(24, 1);
    bits.u(8, 0xB8);
    bits.u(1, dropFrame);
    bits.u(5, static_cast<uint32_t>(hours));
    bits.u(6, static_cast<uint32_t>(minutes));
    bits.u(1, 1);
    bits.u(6, static_cast<uint32_t>(seconds));
    bits.u(6, static_cast<uint32_t>(pictures));
    bits.u(7, 0x40);
    add(bits.bytes());
  }

  void picture(const MpegPicture& picture) {
    HeaderBits bits;
    bits.u(24, 1);
    bits.u(8, 0);
    bits.u(10, static_cast<uint32_t>(picture.temporalReference));
    bits.u(3, static_cast<uint32_t>(picture.type));
    bits.u(16, picture.vbvDelay);
    bits.u(11, 0x77 << 3);
    add(bits.bytes());
    if (mpeg2) codingExtension(picture);
    slices(picture.bytes);
  }

  void end() { add({0, 0, 1, 0xB7}); }
  void add(const std::vector<uint8_t>& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
  }

  std::vector<uint8_t> bytes;

 private:
  void codingExtension(const MpegPicture& picture) {
    HeaderBits bits;
    bits.u(24, 1);
    bits.u(8, 0xB5);
    bits.u(4, 8);
    bits.u(16, 0xFFFF);
    bits.u(2, 0);
    bits.u(2, static_cast<uint32_t>(picture.structure));
    bits.u(1, picture.topFieldFirst);
    bits.u(5, 0x10);
    bits.u(1, picture.repeatFirstField);
    bits.u(1, 0);
    bits.u(1, progressive);
    bits.u(7, 0);
    add(bits.bytes());
  }

  void slices(size_t count) {
    add({0, 0, 1, 1});
    for (size_t i = 0; i < count; ++i) bytes.push_back(static_cast<uint8_t>(1 + random_() % 255));
  }

  std::mt19937_64 random_{testSeed()};
};

}  // namespace zel::test
