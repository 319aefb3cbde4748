#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Lines of pixels between the application's layouts and planes of samples.
//
// A plane is a line of one component, 16 bits a sample, centred on 0 in the depth of the
// compression: the code less 2^(depth - 1). Kernels that take samples from outside of the codec,
// or decoded ones, limit them to the depth; what a plane then holds is always within it.
//
// Planes have room for kPlaneMargin samples more than the line is long: kernels may read and write
// those. Packed lines are touched only where the line has pixels.

namespace zel::dnxhd {

inline constexpr size_t kMaxLine = 1920;
inline constexpr size_t kPlaneMargin = 32;

/// A line of a picture in planes: Y, Cb and Cr, or R, G and B.
struct PlanarLine {
  static constexpr size_t kRoom = kMaxLine + kPlaneMargin;
  alignas(64) std::array<std::array<int16_t, kRoom>, 3> planes;
  int16_t* operator[](size_t component) { return planes[component].data(); }
  const int16_t* operator[](size_t component) const { return planes[component].data(); }
};

/// How samples of Y, Cb, Y, Cr are stored.
///
/// Codes of 8 and 10 bits go over into each other by two zero bits, and by rounding half up. Fixed
/// and floating point are the signals of ITU-R BT.709: Y' from 0 for black to 1 for white (codes 16
/// to 235, or 64 to 940), Cb and Cr from -0.5 to 0.5 (16 to 240, or 64 to 960).
enum class YCbCrSamples : size_t { k8, k10_6, k2_14, kFloat, k10_2_8, kV210, kCount };

/// Of a line; V210 has none, and the plane of low bits, which has four samples a byte, is not
/// counted.
constexpr size_t BytesOfSample(YCbCrSamples samples) {
  constexpr std::array<uint8_t, static_cast<size_t>(YCbCrSamples::kV210)> kBytes = {1, 2, 2, 4, 1};
  return kBytes[static_cast<size_t>(samples)];
}

/// RGB samples: full range, 0 is black and the largest code white; 1.0 in fixed point. The planes
/// beside them are fixed point too, with 14 fraction bits.
enum class RgbSamples : size_t { k8, k10_6, k2_14, kSigned16, kCount };

/// `low` is the plane of low bits; others than k10_2_8 have none. `pixels` is even.
using UnpackYCbCr = void (*)(const uint8_t* in, const uint8_t* low, int16_t* y, int16_t* cb,
                             int16_t* cr, size_t pixels);
using PackYCbCr = void (*)(const int16_t* y, const int16_t* cb, const int16_t* cr, uint8_t* out,
                           uint8_t* low, size_t pixels);

/// Where the samples of a line stand: side by side, or by eights in a row of macroblocks of 8
/// blocks, counted from the component's first sample of the line.
struct InPlanes {
  static constexpr size_t Luma(size_t i) { return i; }
  static constexpr size_t Chroma(size_t i) { return i; }
};
struct InBlocks {
  static constexpr size_t Luma(size_t i) { return i / 16 * 512 + i % 16 / 8 * 64 + i % 8; }
  static constexpr size_t Chroma(size_t i) { return i / 8 * 512 + i % 8; }
};

struct YCbCrKernels {
  struct OfDepth {
    std::array<UnpackYCbCr, static_cast<size_t>(YCbCrSamples::kCount)> unpack;
    std::array<PackYCbCr, static_cast<size_t>(YCbCrSamples::kCount)> pack;
    /// The same with samples InBlocks, of whole macroblocks: `pixels` is a multiple of 16, which
    /// V210's groups don't meet. It has none.
    std::array<UnpackYCbCr, static_cast<size_t>(YCbCrSamples::kV210)> unpackToBlocks;
    std::array<PackYCbCr, static_cast<size_t>(YCbCrSamples::kV210)> packFromBlocks;
  };
  OfDepth depth8;
  OfDepth depth10;
};

const YCbCrKernels& ScalarYCbCrKernels();  // the definition
YCbCrKernels VectorYCbCrKernels();         // the best that this machine runs

/// Places of the samples in a pixel of four.
struct RgbOrder {
  uint8_t red;
  uint8_t green;
  uint8_t blue;
  uint8_t alpha;
};

using UnpackRgb = void (*)(const uint8_t* in, RgbOrder order, int16_t* red, int16_t* green,
                           int16_t* blue, size_t pixels);
/// Alpha is written as opaque.
using PackRgb = void (*)(const int16_t* red, const int16_t* green, const int16_t* blue,
                         RgbOrder order, uint8_t* out, size_t pixels);

struct RgbKernels {
  std::array<UnpackRgb, static_cast<size_t>(RgbSamples::kCount)> unpack;
  std::array<PackRgb, static_cast<size_t>(RgbSamples::kCount)> pack;
};

const RgbKernels& ScalarRgbKernels();
RgbKernels VectorRgbKernels();

/// The matrices of ITU-R BT.709, full range RGB in fixed point to video range codes and back; and
/// the chroma planes of half the width.
struct ColorKernels {
  void (*toLuma)(const int16_t* red, const int16_t* green, const int16_t* blue, int16_t* y,
                 size_t samples, int depth);
  void (*toChroma)(const int16_t* red, const int16_t* green, const int16_t* blue, int16_t* cb,
                   int16_t* cr, size_t samples, int depth);
  void (*toRgb)(const int16_t* y, const int16_t* cb, const int16_t* cr, int16_t* red,
                int16_t* green, int16_t* blue, size_t samples, int depth);

  // To half as many samples, `samples` of them, and to twice as many, `samples` of these. A pair's
  // mean and its repetition, or the tent of 1, 2 and 1 around the first sample of each pair. The
  // sample before the line is its first, the one behind it its last. In and out differ.
  void (*halvePairs)(const int16_t* in, int16_t* out, size_t samples);
  void (*halveTent)(const int16_t* in, int16_t* out, size_t samples);
  void (*doublePairs)(const int16_t* in, int16_t* out, size_t samples);
  void (*doubleTent)(const int16_t* in, int16_t* out, size_t samples);

  // Limits samples to the depth, in place.
  void (*limit)(int16_t* plane, size_t samples, int depth);
};

const ColorKernels& ScalarColorKernels();
ColorKernels VectorColorKernels();

}  // namespace zel::dnxhd
