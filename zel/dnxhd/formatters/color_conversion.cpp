#include "zel/dnxhd/formatters/color_conversion.h"

#include <algorithm>
#include <array>

namespace zel::dnxhd {

void ColorConversion::Halve(const int16_t* in, int16_t* out, size_t samples) const {
  (tentFilter_ ? kernels_.halveTent : kernels_.halvePairs)(in, out, samples);
}

void ColorConversion::FromRgb(const PlanarLine& rgb, PlanarLine& out, size_t pixels,
                              int depth) const {
  kernels_.toLuma(rgb[0], rgb[1], rgb[2], out[0], pixels, depth);
  kernels_.toChroma(rgb[0], rgb[1], rgb[2], out[1], out[2], pixels, depth);
}

// The matrix is linear: halving its input is halving its output, but for one rounding less.
void ColorConversion::FromRgbTo422(const PlanarLine& rgb, PlanarLine& out, size_t pixels,
                                   int depth) const {
  kernels_.toLuma(rgb[0], rgb[1], rgb[2], out[0], pixels, depth);
  PlanarLine half;
  for (size_t i = 0; i < 3; ++i) Halve(rgb[i], half[i], pixels / 2);
  kernels_.toChroma(half[0], half[1], half[2], out[1], out[2], pixels / 2, depth);
}

void ColorConversion::ToRgb(const PlanarLine& in, PlanarLine& rgb, size_t pixels, int depth) const {
  kernels_.toRgb(in[0], in[1], in[2], rgb[0], rgb[1], rgb[2], pixels, depth);
}

void ColorConversion::ToRgbFrom422(const PlanarLine& in, PlanarLine& rgb, size_t pixels,
                                   int depth) const {
  PlanarLine full;
  const auto twice = tentFilter_ ? kernels_.doubleTent : kernels_.doublePairs;
  twice(in[1], full[1], pixels);
  twice(in[2], full[2], pixels);
  kernels_.toRgb(in[0], full[1], full[2], rgb[0], rgb[1], rgb[2], pixels, depth);
}

void ColorConversion::To422(PlanarLine& line, size_t pixels) const {
  PlanarLine half;
  for (size_t i = 1; i < 3; ++i) {
    Halve(line[i], half[i], pixels / 2);
    std::copy_n(half[i], pixels / 2, line[i]);
  }
}

void ColorConversion::Limit(PlanarLine& line, size_t lumaSamples, size_t chromaSamples,
                            int depth) const {
  kernels_.limit(line[0], lumaSamples, depth);
  kernels_.limit(line[1], chromaSamples, depth);
  kernels_.limit(line[2], chromaSamples, depth);
}

namespace {

constexpr int kDepth = 10;
constexpr int kMiddle = 1 << (kDepth - 1);
constexpr size_t kBlocks = 12;
constexpr size_t kBlockPair = 2 * kBlockCoefficients;
// Places of the components in a half of a macroblock.
constexpr size_t kFirst = 0;               // Y or G
constexpr size_t kSecond = kBlockPair;     // Cb or B
constexpr size_t kThird = 2 * kBlockPair;  // Cr or R

using Pair = std::array<int16_t, kBlockPair>;

// Codes of 10 bits, in the words that the RGB kernels know: B, G, R and what there is no use for.
using Words = std::array<uint16_t, 4 * kBlockPair>;
constexpr RgbOrder kOrder = {2, 1, 0, 3};
constexpr auto k10_6 = static_cast<size_t>(RgbSamples::k10_6);

uint16_t WordOf(int16_t sample) {
  return static_cast<uint16_t>((std::clamp<int>(sample, -kMiddle, kMiddle - 1) + kMiddle) << 6);
}
int16_t SampleOf(uint16_t word) {
  return static_cast<int16_t>((word >> 6) - kMiddle);
}

template <typename Convert>
void ForEachHalf(int16_t* blocks, const MacroblockFlags* flags, size_t mbCols, bool converted,
                 Convert convert) {
  for (size_t column = 0; column < mbCols; ++column) {
    if (flags[column].color != converted) continue;
    int16_t* const macroblock = blocks + column * kBlocks * kBlockCoefficients;
    convert(macroblock);
    convert(macroblock + 3 * kBlockPair);
  }
}

}  // namespace

void ColorConversionDCT::ForwardRow(int16_t* blocks, const MacroblockFlags* flags,
                                    size_t mbCols) const {
  ForEachHalf(blocks, flags, mbCols, converted_, [this](int16_t* half) {
    Words words{};
    for (size_t i = 0; i < kBlockPair; ++i) {
      words[4 * i] = WordOf(half[kSecond + i]);
      words[4 * i + 1] = WordOf(half[kFirst + i]);
      words[4 * i + 2] = WordOf(half[kThird + i]);
    }
    Pair red, green, blue;
    rgb_.unpack[k10_6](reinterpret_cast<const uint8_t*>(words.data()), kOrder, red.data(),
                       green.data(), blue.data(), kBlockPair);
    colors_.toLuma(red.data(), green.data(), blue.data(), half + kFirst, kBlockPair, kDepth);
    colors_.toChroma(red.data(), green.data(), blue.data(), half + kSecond, half + kThird,
                     kBlockPair, kDepth);
  });
}

void ColorConversionDCT::InverseRow(int16_t* blocks, const MacroblockFlags* flags,
                                    size_t mbCols) const {
  ForEachHalf(blocks, flags, mbCols, converted_, [this](int16_t* half) {
    Pair red, green, blue;
    colors_.toRgb(half + kFirst, half + kSecond, half + kThird, red.data(), green.data(),
                  blue.data(), kBlockPair, kDepth);
    Words words;
    rgb_.pack[k10_6](red.data(), green.data(), blue.data(), kOrder,
                     reinterpret_cast<uint8_t*>(words.data()), kBlockPair);
    for (size_t i = 0; i < kBlockPair; ++i) {
      half[kSecond + i] = SampleOf(words[4 * i]);
      half[kFirst + i] = SampleOf(words[4 * i + 1]);
      half[kThird + i] = SampleOf(words[4 * i + 2]);
    }
  });
}

}  // namespace zel::dnxhd
