#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace zel::test {

/// Planar 4:2:0 pictures to encode: texture that moves, so that motion search has something to
/// find, under a row of bars that spell the picture's number, so that it can be read back from what
/// a decoder makes of it.
class TestPictures {
 public:
  /// At least 64 x 32, both even.
  TestPictures(int width, int height);

  int width() const { return width_; }
  int height() const { return height_; }
  size_t size() const { return lumaSize() * 3 / 2; }
  size_t lumaSize() const { return size_t(width_) * size_t(height_); }

  /// Picture `number` (0 to 65535): Y, U and V without padding.
  std::vector<uint8_t> make(int number) const;

  /// The number that the bars of a picture spell; -1 when they are not bars.
  int readNumber(std::span<uint8_t const> picture) const;

 private:
  int width_;
  int height_;
};

/// Peak signal-to-noise ratio of two blocks of samples, in dB; 99 when they are equal.
double psnr(std::span<uint8_t const> original, std::span<uint8_t const> decoded);

}  // namespace zel::test
