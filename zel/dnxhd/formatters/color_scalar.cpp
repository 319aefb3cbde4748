#include <algorithm>

#include "zel/dnxhd/formatters/color_constants.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

namespace zel::dnxhd {

namespace {

int Limited(int value, int depth) {
  return std::clamp(value, int{LowestOf(depth)}, int{HighestOf(depth)});
}

int16_t CodeOf(int32_t sum, int depth, int black) {
  const int shift = ToCodeShift(depth);
  return static_cast<int16_t>(Limited(((sum + (1 << (shift - 1))) >> shift) + black, depth));
}

void ToLuma(const int16_t* red, const int16_t* green, const int16_t* blue, int16_t* y,
            size_t samples, int depth) {
  for (size_t i = 0; i < samples; ++i) {
    y[i] = CodeOf(kLumaRed * red[i] + kLumaGreen * green[i] + kLumaBlue * blue[i], depth,
                  BlackOf(depth));
  }
}

void ToChroma(const int16_t* red, const int16_t* green, const int16_t* blue, int16_t* cb,
              int16_t* cr, size_t samples, int depth) {
  for (size_t i = 0; i < samples; ++i) {
    const int r = red[i];
    const int g = green[i];
    const int b = blue[i];
    cb[i] = CodeOf(kCbRed * r + kCbGreen * g + kCbBlue * b, depth, 0);
    cr[i] = CodeOf(kCrRed * r + kCrGreen * g + kCrBlue * b, depth, 0);
  }
}

int16_t SignalOf(int32_t sum, int depth) {
  const int shift = ToSignalShift(depth);
  return static_cast<int16_t>(std::clamp((sum + (1 << (shift - 1))) >> shift, -32768, 32767));
}

void ToRgb(const int16_t* y, const int16_t* cb, const int16_t* cr, int16_t* red, int16_t* green,
           int16_t* blue, size_t samples, int depth) {
  for (size_t i = 0; i < samples; ++i) {
    const int luma = kLumaToAll * (Limited(y[i], depth) - BlackOf(depth));
    const int b = Limited(cb[i], depth);
    const int r = Limited(cr[i], depth);
    red[i] = SignalOf(luma + kCrToRed * r, depth);
    green[i] = SignalOf(luma + kCbToGreen * b + kCrToGreen * r, depth);
    blue[i] = SignalOf(luma + kCbToBlue * b, depth);
  }
}

void HalvePairs(const int16_t* in, int16_t* out, size_t samples) {
  for (size_t i = 0; i < samples; ++i) {
    out[i] = static_cast<int16_t>((in[2 * i] + in[2 * i + 1] + 1) >> 1);
  }
}

void HalveTent(const int16_t* in, int16_t* out, size_t samples) {
  for (size_t i = 0; i < samples; ++i) {
    const int before = in[i == 0 ? 0 : 2 * i - 1];
    out[i] = static_cast<int16_t>((before + 2 * in[2 * i] + in[2 * i + 1] + 2) >> 2);
  }
}

void DoublePairs(const int16_t* in, int16_t* out, size_t samples) {
  for (size_t i = 0; i < samples; ++i) out[i] = in[i / 2];
}

void DoubleTent(const int16_t* in, int16_t* out, size_t samples) {
  const size_t last = (samples - 1) / 2;
  for (size_t i = 0; i < samples; ++i) {
    const size_t here = i / 2;
    const size_t next = std::min(here + i % 2, last);
    out[i] = static_cast<int16_t>((in[here] + in[next] + 1) >> 1);
  }
}

void Limit(int16_t* plane, size_t samples, int depth) {
  for (size_t i = 0; i < samples; ++i) plane[i] = static_cast<int16_t>(Limited(plane[i], depth));
}

}  // namespace

const ColorKernels& ScalarColorKernels() {
  static constexpr ColorKernels kKernels = {ToLuma,    ToChroma,    ToRgb,      HalvePairs,
                                            HalveTent, DoublePairs, DoubleTent, Limit};
  return kKernels;
}

}  // namespace zel::dnxhd
