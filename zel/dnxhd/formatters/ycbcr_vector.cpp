#include <cstdint>
#include <type_traits>

#include "zel/dnxhd/formatters/color_constants.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/dnxhd/formatters/ycbcr_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

// Vectors of eight 16-bit lanes, whatever the target has: sixteen pixels are then two of luma and
// one of each chroma component, and interleaving never has to cross halves of a register. Memory,
// not arithmetic, is what wider ones would wait for.

HWY_BEFORE_NAMESPACE();
namespace zel::dnxhd::HWY_NAMESPACE {
namespace {

#if HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR

namespace hn = hwy::HWY_NAMESPACE;

using D8 = hn::FixedTag<uint8_t, 16>;
using D8Half = hn::FixedTag<uint8_t, 8>;
using D16 = hn::FixedTag<int16_t, 8>;
using D16Half = hn::FixedTag<int16_t, 4>;
using DU16 = hn::FixedTag<uint16_t, 8>;
using D32 = hn::FixedTag<int32_t, 4>;
using DU32 = hn::FixedTag<uint32_t, 4>;
using DF = hn::FixedTag<float, 4>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;

// Lanes of a line's samples: Cb, Y, Cr, Y.
HWY_INLINE V16 Alternating(int16_t chroma, int16_t luma) {
  const D32 d;
  const auto both = static_cast<uint32_t>(static_cast<uint16_t>(chroma)) |
                    static_cast<uint32_t>(static_cast<uint16_t>(luma)) << 16;
  return hn::BitCast(D16(), hn::Set(d, static_cast<int32_t>(both)));
}

template <int Depth>
HWY_INLINE V16 Limited(V16 samples) {
  const D16 d;
  return hn::Min(hn::Max(samples, hn::Set(d, LowestOf(Depth))), hn::Set(d, HighestOf(Depth)));
}

template <int Depth>
HWY_INLINE V16 FromCode10(V16 code) {
  const D16 d;
  if constexpr (Depth == 10) return hn::Sub(code, hn::Set(d, 512));
  const V16 rounded = hn::ShiftRight<2>(hn::Add(code, hn::Set(d, 2)));
  return hn::Sub(hn::Min(rounded, hn::Set(d, 255)), hn::Set(d, 128));
}
template <int Depth>
HWY_INLINE V16 ToCode10(V16 samples) {
  const V16 code = hn::Sub(Limited<Depth>(samples), hn::Set(D16(), LowestOf(Depth)));
  return hn::ShiftLeft<10 - Depth>(code);
}

HWY_INLINE V16 LoadWords(const uint8_t* in) {
  return hn::BitCast(D16(), hn::LoadU(D8(), in));
}
HWY_INLINE void StoreWords(V16 words, uint8_t* out) {
  hn::StoreU(hn::BitCast(D8(), words), D8(), out);
}

// Eight samples of a type; `i`, a multiple of eight, counts the samples of the line.
template <int Depth>
struct Words10_6 {
  static constexpr YCbCrSamples kType = YCbCrSamples::k10_6;
  static constexpr size_t kBytes = 2;
  static HWY_INLINE V16 Load(const uint8_t* in, const uint8_t*, size_t i) {
    const auto words = hn::BitCast(DU16(), LoadWords(in + 2 * i));
    return FromCode10<Depth>(hn::BitCast(D16(), hn::ShiftRight<6>(words)));
  }
  static HWY_INLINE void Store(V16 samples, uint8_t* out, uint8_t*, size_t i) {
    StoreWords(hn::ShiftLeft<6>(ToCode10<Depth>(samples)), out + 2 * i);
  }
};

template <int Depth>
struct Fixed2_14 {
  static constexpr YCbCrSamples kType = YCbCrSamples::k2_14;
  static constexpr size_t kBytes = 2;
  static HWY_INLINE V16 Load(const uint8_t* in, const uint8_t*, size_t i) {
    // (v * span + 2^13) >> 14, as a product of 15 fraction bits.
    const V16 codes = hn::MulFixedPoint15(LoadWords(in + 2 * i),
                                          Alternating(2 * ChromaSpan(Depth), 2 * LumaSpan(Depth)));
    return Limited<Depth>(hn::Add(codes, Alternating(0, BlackOf(Depth))));
  }
  static HWY_INLINE void Store(V16 samples, uint8_t* out, uint8_t*, size_t i) {
    const V16 above = hn::Sub(Limited<Depth>(samples), Alternating(0, BlackOf(Depth)));
    StoreWords(hn::Combine(D16(), Fixed(hn::UpperHalf(D16Half(), above)),
                           Fixed(hn::LowerHalf(D16Half(), above))),
               out + 2 * i);
  }

 private:
  static HWY_INLINE hn::Vec<D16Half> Fixed(hn::Vec<D16Half> above) {
    const D32 d;
    constexpr int kShift = CodeToFixedShift(Depth);
    const V32 scale = hn::OddEven(hn::Set(d, kLumaCodeToFixed), hn::Set(d, kChromaCodeToFixed));
    const V32 product = hn::Mul(hn::PromoteTo(d, above), scale);
    return hn::DemoteTo(D16Half(),
                        hn::ShiftRight<kShift>(hn::Add(product, hn::Set(d, 1 << (kShift - 1)))));
  }
};

template <int Depth>
struct Floats {
  static constexpr YCbCrSamples kType = YCbCrSamples::kFloat;
  static constexpr size_t kBytes = 4;
  static HWY_INLINE V16 Load(const uint8_t* in, const uint8_t*, size_t i) {
    const V16 codes = hn::Combine(D16(), Codes(in + 4 * i + 16), Codes(in + 4 * i));
    return Limited<Depth>(hn::Add(codes, Alternating(0, BlackOf(Depth))));
  }
  static HWY_INLINE void Store(V16 samples, uint8_t* out, uint8_t*, size_t i) {
    const V16 above = hn::Sub(Limited<Depth>(samples), Alternating(0, BlackOf(Depth)));
    Put(hn::LowerHalf(D16Half(), above), out + 4 * i);
    Put(hn::UpperHalf(D16Half(), above), out + 4 * i + 16);
  }

 private:
  static HWY_INLINE hn::Vec<D16Half> Codes(const uint8_t* in) {
    const DF d;
    const auto span = hn::OddEven(hn::Set(d, static_cast<float>(LumaSpan(Depth))),
                                  hn::Set(d, static_cast<float>(ChromaSpan(Depth))));
    const auto codes = hn::Mul(hn::BitCast(d, hn::LoadU(D8(), in)), span);
    const auto numbers = hn::IfThenElseZero(hn::Eq(codes, codes), codes);
    const auto bounded = hn::Min(hn::Max(numbers, hn::Set(d, -4096.0f)), hn::Set(d, 4096.0f));
    return hn::DemoteTo(D16Half(), hn::NearestInt(bounded));
  }
  static HWY_INLINE void Put(hn::Vec<D16Half> above, uint8_t* out) {
    const DF d;
    const auto one = hn::OddEven(hn::Set(d, 1.0f / static_cast<float>(LumaSpan(Depth))),
                                 hn::Set(d, 1.0f / static_cast<float>(ChromaSpan(Depth))));
    const auto values = hn::Mul(hn::ConvertTo(d, hn::PromoteTo(D32(), above)), one);
    hn::StoreU(hn::BitCast(D8(), values), D8(), out);
  }
};

template <int Depth>
struct Planes2_8 {
  static constexpr YCbCrSamples kType = YCbCrSamples::k10_2_8;
  static constexpr size_t kBytes = 1;
  static HWY_INLINE V16 Load(const uint8_t* in, const uint8_t* low, size_t i) {
    const D16 d;
    const V16 high = hn::PromoteTo(d, hn::LoadU(D8Half(), in + i));
    const D16Half half;
    const V16 bytes = hn::Combine(d, hn::Set(half, low[i / 4 + 1]), hn::Set(half, low[i / 4]));
    alignas(16) static constexpr int16_t kToTop[8] = {1, 4, 16, 64, 1, 4, 16, 64};
    const V16 atTop = hn::ShiftRight<6>(hn::Mul(bytes, hn::Load(d, kToTop)));
    return FromCode10<Depth>(hn::Or(hn::ShiftLeft<2>(high), hn::And(atTop, hn::Set(d, 3))));
  }
  static HWY_INLINE void Store(V16 samples, uint8_t* out, uint8_t* low, size_t i) {
    const D16 d;
    const V16 code = ToCode10<Depth>(samples);
    hn::StoreU(hn::DemoteTo(D8Half(), hn::ShiftRight<2>(code)), D8Half(), out + i);
    alignas(16) static constexpr int16_t kPlaces[8] = {64, 16, 4, 1, 64, 16, 4, 1};
    const V16 bits = hn::Mul(hn::And(code, hn::Set(d, 3)), hn::Load(d, kPlaces));
    const hn::FixedTag<uint64_t, 2> d64;
    auto sums = hn::BitCast(d64, bits);
    sums = hn::Add(sums, hn::ShiftRight<32>(sums));
    sums = hn::Add(sums, hn::ShiftRight<16>(sums));
    alignas(16) uint64_t both[2];
    hn::Store(sums, d64, both);
    low[i / 4] = static_cast<uint8_t>(both[0]);
    low[i / 4 + 1] = static_cast<uint8_t>(both[1]);
  }
};

constexpr size_t kStep = 16;  // pixels

template <int Depth>
const YCbCrKernels::OfDepth& Scalar() {
  return Depth == 10 ? ScalarYCbCrKernels().depth10 : ScalarYCbCrKernels().depth8;
}

template <typename Sample, int Depth, typename Places = InPlanes>
void Unpack(const uint8_t* in, const uint8_t* low, int16_t* y, int16_t* cb, int16_t* cr,
            size_t pixels) {
  const D16 d;
  size_t i = 0;
  for (; i + kStep <= pixels; i += kStep) {
    const V16 s0 = Sample::Load(in, low, 2 * i);
    const V16 s1 = Sample::Load(in, low, 2 * i + 8);
    const V16 s2 = Sample::Load(in, low, 2 * i + 16);
    const V16 s3 = Sample::Load(in, low, 2 * i + 24);
    hn::StoreU(hn::ConcatOdd(d, s1, s0), d, y + Places::Luma(i));
    hn::StoreU(hn::ConcatOdd(d, s3, s2), d, y + Places::Luma(i + 8));
    const V16 c0 = hn::ConcatEven(d, s1, s0);
    const V16 c1 = hn::ConcatEven(d, s3, s2);
    hn::StoreU(hn::ConcatEven(d, c1, c0), d, cb + Places::Chroma(i / 2));
    hn::StoreU(hn::ConcatOdd(d, c1, c0), d, cr + Places::Chroma(i / 2));
  }
  if (std::is_same_v<Places, InBlocks> || i == pixels) return;
  Scalar<Depth>().unpack[static_cast<size_t>(Sample::kType)](
      in + 2 * Sample::kBytes * i, low == nullptr ? nullptr : low + i / 2, y + i, cb + i / 2,
      cr + i / 2, pixels - i);
}

// Bytes are the halves of 16-bit words: chroma below, luma above.
template <int Depth, typename Places = InPlanes>
void UnpackBytes(const uint8_t* in, const uint8_t* low, int16_t* y, int16_t* cb, int16_t* cr,
                 size_t pixels) {
  const D16 d;
  const V16 middle = hn::Set(d, 128);
  const auto sampleOf = [&](V16 code)
                            HWY_ATTR { return hn::ShiftLeft<Depth - 8>(hn::Sub(code, middle)); };
  size_t i = 0;
  for (; i + kStep <= pixels; i += kStep) {
    const V16 w0 = LoadWords(in + 2 * i);
    const V16 w1 = LoadWords(in + 2 * i + 16);
    const DU16 du;
    const auto luma = [&](V16 words) HWY_ATTR {
      return hn::BitCast(d, hn::ShiftRight<8>(hn::BitCast(du, words)));
    };
    hn::StoreU(sampleOf(luma(w0)), d, y + Places::Luma(i));
    hn::StoreU(sampleOf(luma(w1)), d, y + Places::Luma(i + 8));
    const V16 byte = hn::Set(d, 255);
    const V16 c0 = hn::And(w0, byte);
    const V16 c1 = hn::And(w1, byte);
    hn::StoreU(sampleOf(hn::ConcatEven(d, c1, c0)), d, cb + Places::Chroma(i / 2));
    hn::StoreU(sampleOf(hn::ConcatOdd(d, c1, c0)), d, cr + Places::Chroma(i / 2));
  }
  if (std::is_same_v<Places, InBlocks> || i == pixels) return;
  Scalar<Depth>().unpack[static_cast<size_t>(YCbCrSamples::k8)](in + 2 * i, low, y + i, cb + i / 2,
                                                                cr + i / 2, pixels - i);
}

// Bytes alone are many enough to be interleaved as such, which takes half the instructions.
template <int Depth>
HWY_INLINE hn::Vec<D8> RoundedBytes(V16 first, V16 second) {
  const D16 d;
  const V16 middle = hn::Set(d, Depth == 10 ? 512 + 2 : 128);
  const auto bytes = [&](V16 samples) HWY_ATTR {
    return hn::DemoteTo(D8Half(), hn::ShiftRight<Depth - 8>(hn::SaturatedAdd(samples, middle)));
  };
  return hn::Combine(D8(), bytes(second), bytes(first));
}

template <int Depth, typename Places = InPlanes>
void PackBytes(const int16_t* y, const int16_t* cb, const int16_t* cr, uint8_t* out, uint8_t* low,
               size_t pixels) {
  const D16 d;
  const D8 d8;
  size_t i = 0;
  for (; i + kStep <= pixels; i += kStep) {
    const auto luma = RoundedBytes<Depth>(hn::LoadU(d, y + Places::Luma(i)),
                                          hn::LoadU(d, y + Places::Luma(i + 8)));
    const auto both = RoundedBytes<Depth>(hn::LoadU(d, cb + Places::Chroma(i / 2)),
                                          hn::LoadU(d, cr + Places::Chroma(i / 2)));
    const auto chroma = hn::InterleaveLower(d8, both, hn::ConcatUpperUpper(d8, both, both));
    hn::StoreU(hn::InterleaveLower(d8, chroma, luma), d8, out + 2 * i);
    hn::StoreU(hn::InterleaveUpper(d8, chroma, luma), d8, out + 2 * i + 16);
  }
  if (std::is_same_v<Places, InBlocks> || i == pixels) return;
  Scalar<Depth>().pack[static_cast<size_t>(YCbCrSamples::k8)](y + i, cb + i / 2, cr + i / 2,
                                                              out + 2 * i, low, pixels - i);
}

template <typename Sample, int Depth, typename Places = InPlanes>
void Pack(const int16_t* y, const int16_t* cb, const int16_t* cr, uint8_t* out, uint8_t* low,
          size_t pixels) {
  const D16 d;
  size_t i = 0;
  for (; i + kStep <= pixels; i += kStep) {
    const V16 blue = hn::LoadU(d, cb + Places::Chroma(i / 2));
    const V16 red = hn::LoadU(d, cr + Places::Chroma(i / 2));
    const V16 c0 = hn::InterleaveLower(d, blue, red);
    const V16 c1 = hn::InterleaveUpper(d, blue, red);
    const V16 y0 = hn::LoadU(d, y + Places::Luma(i));
    const V16 y1 = hn::LoadU(d, y + Places::Luma(i + 8));
    Sample::Store(hn::InterleaveLower(d, c0, y0), out, low, 2 * i);
    Sample::Store(hn::InterleaveUpper(d, c0, y0), out, low, 2 * i + 8);
    Sample::Store(hn::InterleaveLower(d, c1, y1), out, low, 2 * i + 16);
    Sample::Store(hn::InterleaveUpper(d, c1, y1), out, low, 2 * i + 24);
  }
  if (std::is_same_v<Places, InBlocks> || i == pixels) return;
  Scalar<Depth>().pack[static_cast<size_t>(Sample::kType)](
      y + i, cb + i / 2, cr + i / 2, out + 2 * Sample::kBytes * i,
      low == nullptr ? nullptr : low + i / 2, pixels - i);
}

// V210: four words hold s0 to s11, which are Cb, Y, Cr, Y and so on, three a word. `firsts` has the
// lower two of each word side by side, `thirds` the upper one in each even lane.
constexpr size_t kGroup = 6;  // pixels
constexpr size_t kGroupBytes = 16;

using DI8 = hn::FixedTag<int8_t, 16>;

// The lanes of a vector at their new places; -1 makes a zero.
struct Places {
  int8_t lanes[8];
};
HWY_INLINE V16 Placed(V16 samples, const Places& places) {
  alignas(16) int8_t bytes[16];
  for (size_t i = 0; i < 8; ++i) {
    const int8_t lane = places.lanes[i];
    bytes[2 * i] = static_cast<int8_t>(lane < 0 ? -128 : 2 * lane);
    bytes[2 * i + 1] = static_cast<int8_t>(lane < 0 ? -128 : 2 * lane + 1);
  }
  const DI8 d;
  return hn::BitCast(D16(), hn::TableLookupBytesOr0(hn::BitCast(d, samples), hn::Load(d, bytes)));
}

template <int Depth>
void UnpackV210(const uint8_t* in, const uint8_t* low, int16_t* y, int16_t* cb, int16_t* cr,
                size_t pixels) {
  const D16 d;
  const DU32 d32;
  size_t i = 0;
  for (; i + kGroup <= pixels; i += kGroup) {
    const auto words = hn::BitCast(d32, hn::LoadU(D8(), in + i / kGroup * kGroupBytes));
    const auto mask = hn::Set(d32, 1023);
    const auto second = hn::ShiftLeft<6>(hn::And(words, hn::Set(d32, 1023 << 10)));
    const V16 firsts = hn::BitCast(d, hn::Or(hn::And(words, mask), second));
    const V16 thirds = hn::BitCast(d, hn::And(hn::ShiftRight<20>(words), mask));
    const V16 luma = hn::Or(Placed(firsts, {{1, 2, -1, 5, 6, -1, -1, -1}}),
                            Placed(thirds, {{-1, -1, 2, -1, -1, 6, -1, -1}}));
    const V16 chroma = hn::Or(Placed(firsts, {{0, 3, -1, -1, -1, 4, 7, -1}}),
                              Placed(thirds, {{-1, -1, 4, -1, 0, -1, -1, -1}}));
    hn::StoreU(FromCode10<Depth>(luma), d, y + i);
    const V16 both = FromCode10<Depth>(chroma);
    const D16Half half;
    hn::StoreU(hn::LowerHalf(half, both), half, cb + i / 2);
    hn::StoreU(hn::UpperHalf(half, both), half, cr + i / 2);
  }
  if (i == pixels) return;
  Scalar<Depth>().unpack[static_cast<size_t>(YCbCrSamples::kV210)](
      in + i / kGroup * kGroupBytes, low, y + i, cb + i / 2, cr + i / 2, pixels - i);
}

template <int Depth>
void PackV210(const int16_t* y, const int16_t* cb, const int16_t* cr, uint8_t* out, uint8_t* low,
              size_t pixels) {
  const D16 d;
  const D16Half half;
  const DU32 d32;
  size_t i = 0;
  for (; i + kGroup <= pixels; i += kGroup) {
    const V16 luma = ToCode10<Depth>(hn::LoadU(d, y + i));
    const V16 chroma =
        ToCode10<Depth>(hn::Combine(d, hn::LoadU(half, cr + i / 2), hn::LoadU(half, cb + i / 2)));
    const auto firsts = hn::BitCast(d32, hn::Or(Placed(luma, {{-1, 0, 1, -1, -1, 3, 4, -1}}),
                                                Placed(chroma, {{0, -1, -1, 1, 5, -1, -1, 6}})));
    const auto thirds = hn::BitCast(d32, hn::Or(Placed(luma, {{-1, -1, 2, -1, -1, -1, 5, -1}}),
                                                Placed(chroma, {{4, -1, -1, -1, 2, -1, -1, -1}})));
    const auto lowest = hn::And(firsts, hn::Set(d32, 0xFFFF));
    const auto second = hn::ShiftLeft<10>(hn::ShiftRight<16>(firsts));
    const auto words = hn::Or(hn::Or(lowest, second), hn::ShiftLeft<20>(thirds));
    hn::StoreU(hn::BitCast(D8(), words), D8(), out + i / kGroup * kGroupBytes);
  }
  if (i == pixels) return;
  Scalar<Depth>().pack[static_cast<size_t>(YCbCrSamples::kV210)](
      y + i, cb + i / 2, cr + i / 2, out + i / kGroup * kGroupBytes, low, pixels - i);
}

template <int Depth>
YCbCrKernels::OfDepth Kernels() {
  return {{UnpackBytes<Depth>, Unpack<Words10_6<Depth>, Depth>, Unpack<Fixed2_14<Depth>, Depth>,
           Unpack<Floats<Depth>, Depth>, Unpack<Planes2_8<Depth>, Depth>, UnpackV210<Depth>},
          {PackBytes<Depth>, Pack<Words10_6<Depth>, Depth>, Pack<Fixed2_14<Depth>, Depth>,
           Pack<Floats<Depth>, Depth>, Pack<Planes2_8<Depth>, Depth>, PackV210<Depth>},
          {UnpackBytes<Depth, InBlocks>, Unpack<Words10_6<Depth>, Depth, InBlocks>,
           Unpack<Fixed2_14<Depth>, Depth, InBlocks>, Unpack<Floats<Depth>, Depth, InBlocks>,
           Unpack<Planes2_8<Depth>, Depth, InBlocks>},
          {PackBytes<Depth, InBlocks>, Pack<Words10_6<Depth>, Depth, InBlocks>,
           Pack<Fixed2_14<Depth>, Depth, InBlocks>, Pack<Floats<Depth>, Depth, InBlocks>,
           Pack<Planes2_8<Depth>, Depth, InBlocks>}};
}

#endif

}  // namespace

YCbCrKernels YCbCrKernelsHere() {
#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR
  return ScalarYCbCrKernels();  // emulated vectors would be slower
#else
  return {Kernels<8>(), Kernels<10>()};
#endif
}

}  // namespace zel::dnxhd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::dnxhd {

HWY_EXPORT(YCbCrKernelsHere);

YCbCrKernels VectorYCbCrKernels() {
  return HWY_DYNAMIC_DISPATCH(YCbCrKernelsHere)();
}

}  // namespace zel::dnxhd
#endif
