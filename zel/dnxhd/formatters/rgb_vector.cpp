#include <cstdint>

#include "zel/dnxhd/formatters/color_constants.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/dnxhd/formatters/rgb_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace zel::dnxhd::HWY_NAMESPACE {
namespace {

#if HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR

namespace hn = hwy::HWY_NAMESPACE;

using D8 = hn::FixedTag<uint8_t, 16>;
using D8Half = hn::FixedTag<uint8_t, 8>;
using D16 = hn::FixedTag<int16_t, 8>;
using DU16 = hn::FixedTag<uint16_t, 8>;
using D32 = hn::FixedTag<int32_t, 4>;
using V16 = hn::Vec<D16>;

constexpr size_t kStep = 8;  // pixels

HWY_INLINE V16 Bounded(V16 fixed) {
  const D16 d;
  return hn::Min(hn::Max(fixed, hn::Zero(d)), hn::Set(d, kFixedOne));
}

// Eight pixels of four words each, a vector a component. Lines may start anywhere, so that all is
// loaded as bytes.
HWY_INLINE void LoadWordQuads(const uint8_t* in, V16* v) {
  const D16 d;
  V16 pairs[4];
  for (size_t i = 0; i < 4; ++i) pairs[i] = hn::BitCast(d, hn::LoadU(D8(), in + 16 * i));
  for (size_t half = 0; half < 2; ++half) {
    // Pixels 0 to 3, then 4 to 7: lanes of one component each, two of them a vector.
    const V16 a = hn::InterleaveLower(d, pairs[2 * half], pairs[2 * half + 1]);
    const V16 b = hn::InterleaveUpper(d, pairs[2 * half], pairs[2 * half + 1]);
    pairs[2 * half] = hn::InterleaveLower(d, a, b);
    pairs[2 * half + 1] = hn::InterleaveUpper(d, a, b);
  }
  v[0] = hn::ConcatLowerLower(d, pairs[2], pairs[0]);
  v[1] = hn::ConcatUpperUpper(d, pairs[2], pairs[0]);
  v[2] = hn::ConcatLowerLower(d, pairs[3], pairs[1]);
  v[3] = hn::ConcatUpperUpper(d, pairs[3], pairs[1]);
}

HWY_INLINE void StoreWordQuads(const V16* v, uint8_t* out) {
  const D16 d;
  const D32 d32;
  const auto store = [&](V16 first, V16 second, uint8_t* at) HWY_ATTR {
    const auto a = hn::BitCast(d32, first);
    const auto b = hn::BitCast(d32, second);
    hn::StoreU(hn::BitCast(D8(), hn::InterleaveLower(d32, a, b)), D8(), at);
    hn::StoreU(hn::BitCast(D8(), hn::InterleaveUpper(d32, a, b)), D8(), at + 16);
  };
  store(hn::InterleaveLower(d, v[0], v[1]), hn::InterleaveLower(d, v[2], v[3]), out);
  store(hn::InterleaveUpper(d, v[0], v[1]), hn::InterleaveUpper(d, v[2], v[3]), out + 32);
}

struct Bytes {
  static constexpr RgbSamples kType = RgbSamples::k8;
  static constexpr size_t kBytes = 1;
  static constexpr int16_t kOpaque = 255;
  static HWY_INLINE void Load(const uint8_t* in, V16* v) {
    const D8Half d8;
    hn::Vec<D8Half> c[4];
    hn::LoadInterleaved4(d8, in, c[0], c[1], c[2], c[3]);
    for (size_t i = 0; i < 4; ++i) v[i] = hn::PromoteTo(D16(), c[i]);
  }
  static HWY_INLINE void Store(const V16* v, uint8_t* out) {
    const D8Half d8;
    hn::StoreInterleaved4(hn::DemoteTo(d8, v[0]), hn::DemoteTo(d8, v[1]), hn::DemoteTo(d8, v[2]),
                          hn::DemoteTo(d8, v[3]), d8, out);
  }
  static HWY_INLINE V16 ToFixed(V16 v) {
    return hn::Add(hn::ShiftLeft<6>(v), hn::ShiftRight<2>(hn::Add(v, hn::Set(D16(), 2))));
  }
  static HWY_INLINE V16 FromFixed(V16 v) {
    return hn::MulFixedPoint15(Bounded(v), hn::Set(D16(), 2 * 255));
  }
};

struct Words {
  static constexpr size_t kBytes = 2;
  static HWY_INLINE void Load(const uint8_t* in, V16* v) { LoadWordQuads(in, v); }
  static HWY_INLINE void Store(const V16* v, uint8_t* out) { StoreWordQuads(v, out); }
};

struct Words10_6 : Words {
  static constexpr RgbSamples kType = RgbSamples::k10_6;
  static constexpr int16_t kOpaque = static_cast<int16_t>(0xFFC0);
  static HWY_INLINE V16 ToFixed(V16 v) {
    const D16 d;
    const V16 code = hn::BitCast(d, hn::ShiftRight<6>(hn::BitCast(DU16(), v)));
    return hn::Add(hn::ShiftLeft<4>(code), hn::ShiftRight<6>(hn::Add(code, hn::Set(d, 32))));
  }
  static HWY_INLINE V16 FromFixed(V16 v) {
    return hn::ShiftLeft<6>(hn::MulFixedPoint15(Bounded(v), hn::Set(D16(), 2 * 1023)));
  }
};

struct Fixed2_14 : Words {
  static constexpr RgbSamples kType = RgbSamples::k2_14;
  static constexpr int16_t kOpaque = kFixedOne;
  static HWY_INLINE V16 ToFixed(V16 v) { return v; }
  static HWY_INLINE V16 FromFixed(V16 v) { return v; }
};

struct Signed16 : Words {
  static constexpr RgbSamples kType = RgbSamples::kSigned16;
  static constexpr int16_t kOpaque = 32767;
  // (v + 1) >> 1, which 16 bits can't hold in between.
  static HWY_INLINE V16 ToFixed(V16 v) {
    return hn::Add(hn::ShiftRight<1>(v), hn::And(v, hn::Set(D16(), 1)));
  }
  static HWY_INLINE V16 FromFixed(V16 v) { return hn::SaturatedAdd(v, v); }
};

template <typename Sample>
void Unpack(const uint8_t* in, RgbOrder order, int16_t* red, int16_t* green, int16_t* blue,
            size_t pixels) {
  const D16 d;
  size_t i = 0;
  for (; i + kStep <= pixels; i += kStep) {
    V16 v[4];
    Sample::Load(in + 4 * Sample::kBytes * i, v);
    hn::StoreU(Sample::ToFixed(v[order.red]), d, red + i);
    hn::StoreU(Sample::ToFixed(v[order.green]), d, green + i);
    hn::StoreU(Sample::ToFixed(v[order.blue]), d, blue + i);
  }
  if (i == pixels) return;
  ScalarRgbKernels().unpack[static_cast<size_t>(Sample::kType)](
      in + 4 * Sample::kBytes * i, order, red + i, green + i, blue + i, pixels - i);
}

template <typename Sample>
void Pack(const int16_t* red, const int16_t* green, const int16_t* blue, RgbOrder order,
          uint8_t* out, size_t pixels) {
  const D16 d;
  size_t i = 0;
  for (; i + kStep <= pixels; i += kStep) {
    V16 v[4];
    v[order.red] = Sample::FromFixed(hn::LoadU(d, red + i));
    v[order.green] = Sample::FromFixed(hn::LoadU(d, green + i));
    v[order.blue] = Sample::FromFixed(hn::LoadU(d, blue + i));
    v[order.alpha] = hn::Set(d, Sample::kOpaque);
    Sample::Store(v, out + 4 * Sample::kBytes * i);
  }
  if (i == pixels) return;
  ScalarRgbKernels().pack[static_cast<size_t>(Sample::kType)](
      red + i, green + i, blue + i, order, out + 4 * Sample::kBytes * i, pixels - i);
}

#endif

}  // namespace

RgbKernels RgbKernelsHere() {
#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR
  return ScalarRgbKernels();
#else
  return {{Unpack<Bytes>, Unpack<Words10_6>, Unpack<Fixed2_14>, Unpack<Signed16>},
          {Pack<Bytes>, Pack<Words10_6>, Pack<Fixed2_14>, Pack<Signed16>}};
#endif
}

}  // namespace zel::dnxhd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::dnxhd {

HWY_EXPORT(RgbKernelsHere);

RgbKernels VectorRgbKernels() {
  return HWY_DYNAMIC_DISPATCH(RgbKernelsHere)();
}

}  // namespace zel::dnxhd
#endif
