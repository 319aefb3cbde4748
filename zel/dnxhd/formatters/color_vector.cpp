#include <algorithm>
#include <cstdint>

#include "zel/dnxhd/formatters/color_constants.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/dnxhd/formatters/color_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
#include "zel/dnxhd/formatters/pair_products.inc"

// Planes have a margin, so that whole vectors are worked on to the end of the line and beyond.

HWY_BEFORE_NAMESPACE();
namespace zel::dnxhd::HWY_NAMESPACE {
namespace {

#if HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR

constexpr size_t kStep = 8;

HWY_INLINE V16 Limited(V16 samples, int depth) {
  const D16 d;
  return hn::Min(hn::Max(samples, hn::Set(d, LowestOf(depth))), hn::Set(d, HighestOf(depth)));
}

template <int Depth>
HWY_INLINE V16 CodeOf(const Wide& sums, int16_t black) {
  const V16 codes = Rounded<ToCodeShift(Depth)>(sums);
  return Limited(hn::Add(codes, hn::Set(D16(), black)), Depth);
}

template <int Depth>
void ToLumaOf(const int16_t* red, const int16_t* green, const int16_t* blue, int16_t* y,
              size_t samples) {
  const D16 d;
  const V16 redGreen = Weights(kLumaRed, kLumaGreen);
  const V16 blueOnly = Weights(kLumaBlue, 0);
  for (size_t i = 0; i < samples; i += kStep) {
    const V16 b = hn::LoadU(d, blue + i);
    const Wide sums = Products(hn::LoadU(d, red + i), hn::LoadU(d, green + i), redGreen) +
                      Products(b, b, blueOnly);
    hn::StoreU(CodeOf<Depth>(sums, BlackOf(Depth)), d, y + i);
  }
}

template <int Depth>
void ToChromaOf(const int16_t* red, const int16_t* green, const int16_t* blue, int16_t* cb,
                int16_t* cr, size_t samples) {
  const D16 d;
  for (size_t i = 0; i < samples; i += kStep) {
    const V16 r = hn::LoadU(d, red + i);
    const V16 g = hn::LoadU(d, green + i);
    const V16 b = hn::LoadU(d, blue + i);
    const Wide toCb =
        Products(r, g, Weights(kCbRed, kCbGreen)) + Products(b, b, Weights(kCbBlue, 0));
    const Wide toCr =
        Products(r, g, Weights(kCrRed, kCrGreen)) + Products(b, b, Weights(kCrBlue, 0));
    hn::StoreU(CodeOf<Depth>(toCb, 0), d, cb + i);
    hn::StoreU(CodeOf<Depth>(toCr, 0), d, cr + i);
  }
}

template <int Depth>
void ToRgbOf(const int16_t* y, const int16_t* cb, const int16_t* cr, int16_t* red, int16_t* green,
             int16_t* blue, size_t samples) {
  const D16 d;
  constexpr int kShift = ToSignalShift(Depth);
  const V16 black = hn::Set(d, BlackOf(Depth));
  for (size_t i = 0; i < samples; i += kStep) {
    const V16 luma = hn::Sub(Limited(hn::LoadU(d, y + i), Depth), black);
    const V16 b = Limited(hn::LoadU(d, cb + i), Depth);
    const V16 r = Limited(hn::LoadU(d, cr + i), Depth);
    const Wide toGreen =
        Products(luma, b, Weights(kLumaToAll, kCbToGreen)) + Products(r, r, Weights(kCrToGreen, 0));
    hn::StoreU(Rounded<kShift>(Products(luma, r, Weights(kLumaToAll, kCrToRed))), d, red + i);
    hn::StoreU(Rounded<kShift>(toGreen), d, green + i);
    hn::StoreU(Rounded<kShift>(Products(luma, b, Weights(kLumaToAll, kCbToBlue))), d, blue + i);
  }
}

void ToLuma(const int16_t* red, const int16_t* green, const int16_t* blue, int16_t* y,
            size_t samples, int depth) {
  const auto kernel = depth == 10 ? ToLumaOf<10> : ToLumaOf<8>;
  kernel(red, green, blue, y, samples);
}
void ToChroma(const int16_t* red, const int16_t* green, const int16_t* blue, int16_t* cb,
              int16_t* cr, size_t samples, int depth) {
  const auto kernel = depth == 10 ? ToChromaOf<10> : ToChromaOf<8>;
  kernel(red, green, blue, cb, cr, samples);
}
void ToRgb(const int16_t* y, const int16_t* cb, const int16_t* cr, int16_t* red, int16_t* green,
           int16_t* blue, size_t samples, int depth) {
  const auto kernel = depth == 10 ? ToRgbOf<10> : ToRgbOf<8>;
  kernel(y, cb, cr, red, green, blue, samples);
}

void HalvePairs(const int16_t* in, int16_t* out, size_t samples) {
  const D16 d;
  const V16 weights = Weights(1, 1);
  for (size_t i = 0; i < samples; i += kStep) {
    const Wide sums = {PairSums(hn::LoadU(d, in + 2 * i), weights),
                       PairSums(hn::LoadU(d, in + 2 * i + kStep), weights)};
    hn::StoreU(Rounded<1>(sums), d, out + i);
  }
}

void HalveTent(const int16_t* in, int16_t* out, size_t samples) {
  const D16 d;
  const V16 weights = Weights(2, 1);
  const V16 before = Weights(1, 0);
  if (samples == 0) return;
  // The sample before the line is its first.
  out[0] = static_cast<int16_t>((3 * in[0] + in[1] + 2) >> 2);
  for (size_t i = 1; i < samples; i += kStep) {
    const int16_t* const at = in + 2 * i;
    const Wide sums =
        Wide{PairSums(hn::LoadU(d, at), weights), PairSums(hn::LoadU(d, at + kStep), weights)} +
        Wide{PairSums(hn::LoadU(d, at - 1), before),
             PairSums(hn::LoadU(d, at + kStep - 1), before)};
    hn::StoreU(Rounded<2>(sums), d, out + i);
  }
}

void DoublePairs(const int16_t* in, int16_t* out, size_t samples) {
  const D16 d;
  for (size_t i = 0; i < samples; i += 2 * kStep) {
    const V16 v = hn::LoadU(d, in + i / 2);
    hn::StoreU(hn::InterleaveLower(d, v, v), d, out + i);
    hn::StoreU(hn::InterleaveUpper(d, v, v), d, out + i + kStep);
  }
}

void DoubleTent(const int16_t* in, int16_t* out, size_t samples) {
  const D16 d;
  const hn::RebindToUnsigned<D16> du;
  const auto top = hn::Set(du, 0x8000);
  for (size_t i = 0; i < samples; i += 2 * kStep) {
    const V16 here = hn::LoadU(d, in + i / 2);
    const auto a = hn::Xor(hn::BitCast(du, here), top);
    const auto b = hn::Xor(hn::BitCast(du, hn::LoadU(d, in + i / 2 + 1)), top);
    const V16 between = hn::BitCast(d, hn::Xor(hn::AverageRound(a, b), top));
    hn::StoreU(hn::InterleaveLower(d, here, between), d, out + i);
    hn::StoreU(hn::InterleaveUpper(d, here, between), d, out + i + kStep);
  }
  // The sample behind the line is its last.
  if (samples != 0) out[samples - 1] = in[(samples - 1) / 2];
}

void Limit(int16_t* plane, size_t samples, int depth) {
  const D16 d;
  for (size_t i = 0; i < samples; i += kStep) {
    hn::StoreU(Limited(hn::LoadU(d, plane + i), depth), d, plane + i);
  }
}

#endif

}  // namespace

ColorKernels ColorKernelsHere() {
#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR
  return ScalarColorKernels();
#else
  return {ToLuma, ToChroma, ToRgb, HalvePairs, HalveTent, DoublePairs, DoubleTent, Limit};
#endif
}

}  // namespace zel::dnxhd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::dnxhd {

HWY_EXPORT(ColorKernelsHere);

ColorKernels VectorColorKernels() {
  return HWY_DYNAMIC_DISPATCH(ColorKernelsHere)();
}

}  // namespace zel::dnxhd
#endif
