#include "tests/support/test_pictures.h"

#include <cassert>
#include <cmath>

namespace zel::test {
namespace {

constexpr int kBars = 16;        // one a bit of the number, the highest first
constexpr int kBarsHeight = 16;  // rows at the top
constexpr int kDark = 40;
constexpr int kBright = 210;

// A smooth pattern with some detail, the same for every machine.
uint8_t textureAt(int x, int y, int number) {
  int const shifted = x + 2 * number;
  int const wave = ((shifted * shifted / 64 + y * 3) & 127);
  int const ramp = wave < 64 ? wave : 127 - wave;
  int const checks = ((shifted >> 4) ^ (y >> 4)) & 1;
  return uint8_t(48 + ramp * 2 + checks * 32);
}

int barOf(int x, int width) {
  return x * kBars / width;
}

bool bitIsSet(int number, int bar) {
  return (number >> (kBars - 1 - bar) & 1) != 0;
}

}  // namespace

TestPictures::TestPictures(int width, int height) : width_(width), height_(height) {
  assert(width >= 64 && height >= 32 && width % 2 == 0 && height % 2 == 0);
}

std::vector<uint8_t> TestPictures::make(int number) const {
  std::vector<uint8_t> picture;
  picture.reserve(size());
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      bool const inBars = y < kBarsHeight;
      uint8_t const bar = bitIsSet(number, barOf(x, width_)) ? kBright : kDark;
      picture.push_back(inBars ? bar : textureAt(x, y, number));
    }
  }
  for (int plane = 0; plane < 2; ++plane) {
    for (int y = 0; y < height_ / 2; ++y) {
      for (int x = 0; x < width_ / 2; ++x) {
        picture.push_back(uint8_t(96 + ((x + number + plane * 40 + y) & 63)));
      }
    }
  }
  return picture;
}

int TestPictures::readNumber(std::span<uint8_t const> picture) const {
  int number = 0;
  for (int bar = 0; bar < kBars; ++bar) {
    int const x = (2 * bar + 1) * width_ / (2 * kBars);
    int const sample = picture[size_t(kBarsHeight / 2) * size_t(width_) + size_t(x)];
    bool const isDark = sample < kDark + 40;
    bool const isBright = sample > kBright - 40;
    if (!isDark && !isBright) return -1;
    number = number << 1 | int(isBright);
  }
  return number;
}

double psnr(std::span<uint8_t const> original, std::span<uint8_t const> decoded) {
  assert(original.size() == decoded.size() && !original.empty());
  double sum = 0.0;
  for (size_t i = 0; i < original.size(); ++i) {
    double const difference = double(original[i]) - double(decoded[i]);
    sum += difference * difference;
  }
  if (sum == 0.0) return 99.0;
  return 10.0 * std::log10(255.0 * 255.0 * double(original.size()) / sum);
}

}  // namespace zel::test
