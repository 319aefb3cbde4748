#include <cstdint>

#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/bitstream/transform_constants.h"

// It multiplies and adds to a sum in one.
#define HWY_WANT_AVX3_DL
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/dnxhd/bitstream/transform_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

// A row of a block is eight 16-bit lanes of a vector; where vectors are wider, they have the same
// row of two or four blocks. A pass runs over eight rows at once: rows are interleaved in pairs, so
// that one instruction multiplies a pair by two constants and adds up. Even and odd inputs of the
// inverse share their products; the forward transform takes sums and differences of samples first.

#if HWY_TARGET == HWY_AVX3_DL
// Highway asks the machine for the VNNI of wide vectors, but the compiler only for that of AVX2.
#undef HWY_TARGET_STR
#define HWY_TARGET_STR \
  HWY_TARGET_STR_AVX3  \
  ",vpclmulqdq,avx512vbmi,avx512vbmi2,vaes,avxvnni,avx512bitalg,avx512vpopcntdq,avx512vnni"
#endif

HWY_BEFORE_NAMESPACE();
namespace zel::dnxhd::HWY_NAMESPACE {
namespace {

#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR

// Emulated vectors would be slower than the definition.
void InverseBlocks(int16_t* blocks, size_t count, int fraction) {
  ScalarTransformKernels().inverse(blocks, count, fraction);
}
void ReducedBlocks(int16_t* blocks, size_t count, int fraction, int size) {
  ScalarTransformKernels().inverseReduced(blocks, count, fraction, size);
}
void ForwardBlocks(int16_t* blocks, size_t count) {
  ScalarTransformKernels().forward(blocks, count);
}
void Forward8Blocks(int16_t* blocks, size_t count) {
  ScalarTransformKernels().forward8(blocks, count);
}

#else

namespace hn = hwy::HWY_NAMESPACE;

#if HWY_MAX_BYTES >= 64 && !HWY_HAVE_SCALABLE
constexpr size_t kAtOnce = 4;
#elif HWY_MAX_BYTES >= 32 && !HWY_HAVE_SCALABLE
constexpr size_t kAtOnce = 2;
#else
constexpr size_t kAtOnce = 1;
#endif
using D16 = hn::FixedTag<int16_t, 8 * kAtOnce>;
using D32 = hn::FixedTag<int32_t, 4 * kAtOnce>;
using DRow = hn::FixedTag<int16_t, 8>;
using VRow = hn::Vec<DRow>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;

// The two halves of a row of 32-bit sums.
struct Wide {
  V32 low;
  V32 high;
};

// Rows a and b in pairs: lane for lane one of a and one of b.
struct Pairs {
  V16 low;
  V16 high;
};

HWY_INLINE Pairs PairsOf(V16 a, V16 b) {
  const D16 d;
  return {hn::InterleaveLower(d, a, b), hn::InterleaveUpper(d, a, b)};
}

// a * first + b * second, on top of `sum`.
HWY_INLINE Wide Product(const Pairs& pairs, int16_t first, int16_t second, const Wide& sum) {
  const D16 d;
  const D32 d32;
  const auto both = hn::BitCast(
      d, hn::Set(d32,
                 static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(first)) |
                                      static_cast<uint32_t>(static_cast<uint16_t>(second)) << 16)));
#if HWY_TARGET <= HWY_AVX3_DL
  return {V32{_mm512_dpwssd_epi32(sum.low.raw, pairs.low.raw, both.raw)},
          V32{_mm512_dpwssd_epi32(sum.high.raw, pairs.high.raw, both.raw)}};
#else
  V32 restLow = hn::Zero(d32);
  V32 restHigh = hn::Zero(d32);
  const V32 low = hn::ReorderWidenMulAccumulate(d32, pairs.low, both, hn::Zero(d32), restLow);
  const V32 high = hn::ReorderWidenMulAccumulate(d32, pairs.high, both, hn::Zero(d32), restHigh);
  return {hn::Add(sum.low, hn::RearrangeToOddPlusEven(low, restLow)),
          hn::Add(sum.high, hn::RearrangeToOddPlusEven(high, restHigh))};
#endif
}

HWY_INLINE Wide Same(int32_t value) {
  return {hn::Set(D32(), value), hn::Set(D32(), value)};
}

HWY_INLINE Wide Sum(const Wide& a, const Wide& b) {
  return {hn::Add(a.low, b.low), hn::Add(a.high, b.high)};
}
HWY_INLINE Wide Difference(const Wide& a, const Wide& b) {
  return {hn::Sub(a.low, b.low), hn::Sub(a.high, b.high)};
}

// What sums that are shifted by this start from.
template <int Shift>
HWY_INLINE Wide Half() {
  return Same(1 << (Shift - 1));
}

template <int Shift>
HWY_INLINE V16 Shifted(const Wide& sum) {
  const V32 low = hn::ShiftRight<Shift>(sum.low);
  const V32 high = hn::ShiftRight<Shift>(sum.high);
  // Its order is that of the interleaving before: each block by itself.
  return hn::ReorderDemote2To(D16(), low, high);
}

template <int Shift>
HWY_INLINE void InversePass(V16* rows) {
  const Pairs p02 = PairsOf(rows[0], rows[2]);
  const Pairs p46 = PairsOf(rows[4], rows[6]);
  const Pairs p13 = PairsOf(rows[1], rows[3]);
  const Pairs p57 = PairsOf(rows[5], rows[7]);
  V16 out[8];
  const auto even = [&](int16_t c0, int16_t c2, int16_t c4, int16_t c6) HWY_ATTR {
    return Product(p46, c4, c6, Product(p02, c0, c2, Half<Shift>()));
  };
  const auto odd = [&](int16_t c1, int16_t c3, int16_t c5, int16_t c7)
                       HWY_ATTR { return Product(p57, c5, c7, Product(p13, c1, c3, Same(0))); };
  const auto put = [&](size_t x, const Wide& evens, const Wide& odds) HWY_ATTR {
    out[x] = Shifted<Shift>(Sum(evens, odds));
    out[7 - x] = Shifted<Shift>(Difference(evens, odds));
  };
  put(0, even(kC0, kC2, kC4, kC6), odd(kC1, kC3, kC5, kC7));
  put(1, even(kC0, kC6, -kC4, -kC2), odd(kC3, -kC7, -kC1, -kC5));
  put(2, even(kC0, -kC6, -kC4, kC2), odd(kC5, -kC1, kC7, kC3));
  put(3, even(kC0, -kC2, kC4, -kC6), odd(kC7, -kC5, kC3, -kC1));
  for (size_t i = 0; i < 8; ++i) rows[i] = out[i];
}

// Sums and differences of samples that mirror each other have 16 bits in both passes: between them
// no value of samples within their range passes 512 * 8 * 2^kForwardFraction / sqrt(8). Those of
// samples themselves have room for another bit: where `Samples`, even frequencies are halved again.
template <int Shift, bool Samples>
HWY_INLINE void ForwardPass(V16* rows) {
  V16 sums[4];
  V16 differences[4];
  for (size_t i = 0; i < 4; ++i) {
    sums[i] = hn::Add(rows[i], rows[7 - i]);
    differences[i] = hn::Sub(rows[i], rows[7 - i]);
  }
  const auto frequency = [](const Pairs& pairs, size_t k, const Wide& sum)
                             HWY_ATTR { return Product(pairs, kBasis[k][0], kBasis[k][1], sum); };
  const auto rest = [](const Pairs& pairs, size_t k, const Wide& sum)
                        HWY_ATTR { return Product(pairs, kBasis[k][2], kBasis[k][3], sum); };
  const Pairs differences01 = PairsOf(differences[0], differences[1]);
  const Pairs differences23 = PairsOf(differences[2], differences[3]);
  for (size_t k = 1; k < 8; k += 2) {
    const Wide first = frequency(differences01, k, Half<Shift>());
    rows[k] = Shifted<Shift>(rest(differences23, k, first));
  }
  if constexpr (Samples) {
    // The basis functions of even frequencies mirror themselves once more, with the same sign for
    // every other one of them.
    const Pairs same = PairsOf(hn::Add(sums[0], sums[3]), hn::Add(sums[1], sums[2]));
    const Pairs opposite = PairsOf(hn::Sub(sums[0], sums[3]), hn::Sub(sums[1], sums[2]));
    for (size_t k = 0; k < 8; k += 2) {
      rows[k] = Shifted<Shift>(frequency(k % 4 == 0 ? same : opposite, k, Half<Shift>()));
    }
  } else {
    const Pairs sums01 = PairsOf(sums[0], sums[1]);
    const Pairs sums23 = PairsOf(sums[2], sums[3]);
    for (size_t k = 0; k < 8; k += 2) {
      rows[k] = Shifted<Shift>(rest(sums23, k, frequency(sums01, k, Half<Shift>())));
    }
  }
}

HWY_INLINE void Transpose(V16* r) {
  const D16 d;
  const hn::Repartition<int32_t, D16> d32;
  const hn::Repartition<int64_t, D16> d64;
  V16 a[8];
  for (size_t i = 0; i < 4; ++i) {
    a[2 * i] = hn::InterleaveLower(d, r[2 * i], r[2 * i + 1]);
    a[2 * i + 1] = hn::InterleaveUpper(d, r[2 * i], r[2 * i + 1]);
  }
  V32 b[8];
  for (size_t i = 0; i < 2; ++i) {
    for (size_t j = 0; j < 2; ++j) {
      const V32 x = hn::BitCast(d32, a[4 * i + j]);
      const V32 y = hn::BitCast(d32, a[4 * i + j + 2]);
      b[4 * i + 2 * j] = hn::InterleaveLower(d32, x, y);
      b[4 * i + 2 * j + 1] = hn::InterleaveUpper(d32, x, y);
    }
  }
  for (size_t i = 0; i < 4; ++i) {
    const auto x = hn::BitCast(d64, b[i]);
    const auto y = hn::BitCast(d64, b[i + 4]);
    r[2 * i] = hn::BitCast(d, hn::InterleaveLower(d64, x, y));
    r[2 * i + 1] = hn::BitCast(d, hn::InterleaveUpper(d64, x, y));
  }
}

// A vector of rows of eight, of which `row(i)` gives those of the blocks that are worked on at
// once.
template <class Row>
HWY_INLINE V16 RowsOf(Row row) {
#if HWY_MAX_BYTES >= 64 && !HWY_HAVE_SCALABLE
  const hn::Half<D16> half;
  return hn::Combine(D16(), hn::Combine(half, row(3), row(2)), hn::Combine(half, row(1), row(0)));
#elif HWY_MAX_BYTES >= 32 && !HWY_HAVE_SCALABLE
  return hn::Combine(D16(), row(1), row(0));
#else
  return row(0);
#endif
}
// The other way: calls put(i, row).
template <class Put>
HWY_INLINE void ToRows(V16 values, Put put) {
#if HWY_MAX_BYTES >= 64 && !HWY_HAVE_SCALABLE
  const hn::Half<D16> half;
  const auto low = hn::LowerHalf(half, values);
  const auto high = hn::UpperHalf(half, values);
  put(0, hn::LowerHalf(DRow(), low));
  put(1, hn::UpperHalf(DRow(), low));
  put(2, hn::LowerHalf(DRow(), high));
  put(3, hn::UpperHalf(DRow(), high));
#elif HWY_MAX_BYTES >= 32 && !HWY_HAVE_SCALABLE
  put(0, hn::LowerHalf(DRow(), values));
  put(1, hn::UpperHalf(DRow(), values));
#else
  put(0, values);
#endif
}

#if HWY_MAX_BYTES >= 64 && !HWY_HAVE_SCALABLE
// Four rows of four blocks: from block by block to row by row, and back.
HWY_INLINE void TransposeRows(const V16* in, V16* out) {
  const auto a = _mm512_shuffle_i64x2(in[0].raw, in[1].raw, 0x44);
  const auto b = _mm512_shuffle_i64x2(in[2].raw, in[3].raw, 0x44);
  const auto c = _mm512_shuffle_i64x2(in[0].raw, in[1].raw, 0xEE);
  const auto e = _mm512_shuffle_i64x2(in[2].raw, in[3].raw, 0xEE);
  out[0] = V16{_mm512_shuffle_i64x2(a, b, 0x88)};
  out[1] = V16{_mm512_shuffle_i64x2(a, b, 0xDD)};
  out[2] = V16{_mm512_shuffle_i64x2(c, e, 0x88)};
  out[3] = V16{_mm512_shuffle_i64x2(c, e, 0xDD)};
}
#endif

// The rows of `there` blocks; the last one stands for those that are missing, too.
HWY_INLINE void LoadBlocks(const int16_t* blocks, size_t there, V16* rows) {
#if HWY_MAX_BYTES >= 64 && !HWY_HAVE_SCALABLE
  if (there == kAtOnce) [[likely]] {
    V16 halves[2][kAtOnce];
    for (size_t i = 0; i < kAtOnce; ++i) {
      halves[0][i] = hn::LoadU(D16(), blocks + 64 * i);
      halves[1][i] = hn::LoadU(D16(), blocks + 64 * i + 32);
    }
    TransposeRows(halves[0], rows);
    TransposeRows(halves[1], rows + 4);
    return;
  }
#endif
  for (size_t y = 0; y < 8; ++y) {
    rows[y] = RowsOf([&](size_t i) HWY_ATTR {
      return hn::LoadU(DRow(), blocks + 64 * HWY_MIN(i, there - 1) + 8 * y);
    });
  }
}
HWY_INLINE void StoreBlocks(const V16* rows, int16_t* blocks, size_t there) {
#if HWY_MAX_BYTES >= 64 && !HWY_HAVE_SCALABLE
  if (there == kAtOnce) [[likely]] {
    V16 halves[2][kAtOnce];
    TransposeRows(rows, halves[0]);
    TransposeRows(rows + 4, halves[1]);
    for (size_t i = 0; i < kAtOnce; ++i) {
      hn::StoreU(halves[0][i], D16(), blocks + 64 * i);
      hn::StoreU(halves[1][i], D16(), blocks + 64 * i + 32);
    }
    return;
  }
#endif
  for (size_t y = 0; y < 8; ++y) {
    ToRows(rows[y], [&](size_t i, VRow row) HWY_ATTR {
      if (i < there) hn::StoreU(row, DRow(), blocks + 64 * i + 8 * y);
    });
  }
}

// Whether nothing but the first value of each block is there.
HWY_INLINE bool IsFlat(const V16* rows) {
  const D16 d;
  alignas(16) static constexpr int16_t kRest[8] = {0, -1, -1, -1, -1, -1, -1, -1};
  const V16 rest = hn::Or(hn::Or(hn::Or(rows[1], rows[2]), hn::Or(rows[3], rows[4])),
                          hn::Or(hn::Or(rows[5], rows[6]),
                                 hn::Or(rows[7], hn::And(rows[0], hn::LoadDup128(d, kRest)))));
  return hn::AllTrue(d, hn::Eq(rest, hn::Zero(d)));
}

// Both passes of such blocks.
template <int Fraction>
HWY_INLINE void FillFlat(int16_t* block) {
  constexpr int kFirst = kBasisFraction - Fraction;
  constexpr int kSecond = kBasisFraction + Fraction;
  const auto limited = [](int32_t value)
                           HWY_ATTR { return HWY_MIN(HWY_MAX(value, -32768), 32767); };
  const int32_t between = limited((block[0] * kC0 + (1 << (kFirst - 1))) >> kFirst);
  const int32_t sample = limited((between * kC0 + (1 << (kSecond - 1))) >> kSecond);
  const auto all = hn::Set(DRow(), static_cast<int16_t>(sample));
  for (size_t i = 0; i < 8; ++i) hn::StoreU(all, DRow(), block + 8 * i);
}

template <int Fraction>
void InverseOf(int16_t* blocks, size_t count) {
  for (size_t i = 0; i < count; i += kAtOnce, blocks += 64 * kAtOnce) {
    const size_t there = HWY_MIN(kAtOnce, count - i);
    V16 rows[8];
    LoadBlocks(blocks, there, rows);
    if (IsFlat(rows)) {
      for (size_t block = 0; block < there; ++block) FillFlat<Fraction>(blocks + 64 * block);
      continue;
    }
    InversePass<kBasisFraction - Fraction>(rows);
    Transpose(rows);
    InversePass<kBasisFraction + Fraction>(rows);
    Transpose(rows);
    StoreBlocks(rows, blocks, there);
  }
}

void InverseBlocks(int16_t* blocks, size_t count, int fraction) {
  if (fraction == 3) {
    InverseOf<3>(blocks, count);
  } else {
    InverseOf<5>(blocks, count);
  }
}

// Blocks of 4 by 4, side by side: `rows` are four rows of each.
template <int Shift>
HWY_INLINE void ReducedPass(V16* rows) {
  const Pairs p01 = PairsOf(rows[0], rows[1]);
  const Pairs p23 = PairsOf(rows[2], rows[3]);
  const auto row = [&](int16_t c0, int16_t c1, int16_t c2, int16_t c3) HWY_ATTR {
    return Shifted<Shift>(Product(p23, c2, c3, Product(p01, c0, c1, Half<Shift>())));
  };
  rows[0] = row(kC0, kC2, kC4, kC6);
  rows[1] = row(kC0, kC6, -kC4, -kC2);
  rows[2] = row(kC0, -kC6, -kC4, kC2);
  rows[3] = row(kC0, -kC2, kC4, -kC6);
}

// Each of the blocks by itself.
HWY_INLINE void TransposePair(V16* r) {
  const D16 d;
  const hn::Repartition<int32_t, D16> d32;
  const hn::Repartition<int64_t, D16> d64;
  const auto lower01 = hn::BitCast(d32, hn::InterleaveLower(d, r[0], r[1]));
  const auto lower23 = hn::BitCast(d32, hn::InterleaveLower(d, r[2], r[3]));
  const auto upper01 = hn::BitCast(d32, hn::InterleaveUpper(d, r[0], r[1]));
  const auto upper23 = hn::BitCast(d32, hn::InterleaveUpper(d, r[2], r[3]));
  // Columns 0 and 1, then 2 and 3: of the first block, and of the second one.
  const auto a01 = hn::BitCast(d64, hn::InterleaveLower(d32, lower01, lower23));
  const auto a23 = hn::BitCast(d64, hn::InterleaveUpper(d32, lower01, lower23));
  const auto b01 = hn::BitCast(d64, hn::InterleaveLower(d32, upper01, upper23));
  const auto b23 = hn::BitCast(d64, hn::InterleaveUpper(d32, upper01, upper23));
  r[0] = hn::BitCast(d, hn::InterleaveLower(d64, a01, b01));
  r[1] = hn::BitCast(d, hn::InterleaveUpper(d64, a01, b01));
  r[2] = hn::BitCast(d, hn::InterleaveLower(d64, a23, b23));
  r[3] = hn::BitCast(d, hn::InterleaveUpper(d64, a23, b23));
}

// Blocks of 4 by 4 that are worked on at once: two where a row of 8 by 8 is one.
constexpr size_t kHalvesAtOnce = 2 * kAtOnce;

HWY_INLINE V16 LoadHalfRow(const int16_t* row) {
  return RowsOf([&](size_t i) HWY_ATTR {
    const hn::FixedTag<int16_t, 4> half;
    const int16_t* const first = row + 128 * i;
    return hn::Combine(DRow(), hn::LoadU(half, first + 64), hn::LoadU(half, first));
  });
}
HWY_INLINE void StorePairs(V16 pairs, int16_t* to) {
  ToRows(pairs, [&](size_t i, VRow pair) HWY_ATTR { hn::StoreU(pair, DRow(), to + 128 * i); });
}

template <int Fraction>
void HalfOf(int16_t* blocks, size_t count) {
  const D16 d;
  const hn::Repartition<int64_t, D16> d64;
  for (size_t i = 0; i < count; i += kHalvesAtOnce, blocks += 64 * kHalvesAtOnce) {
    V16 rows[4];
    for (size_t y = 0; y < 4; ++y) rows[y] = LoadHalfRow(blocks + 8 * y);
    ReducedPass<kBasisFraction - Fraction>(rows);
    TransposePair(rows);
    ReducedPass<kBasisFraction + Fraction>(rows);
    TransposePair(rows);
    for (size_t y = 0; y < 4; y += 2) {
      const auto upper = hn::BitCast(d64, rows[y]);
      const auto lower = hn::BitCast(d64, rows[y + 1]);
      StorePairs(hn::BitCast(d, hn::InterleaveLower(d64, upper, lower)), blocks + 4 * y);
      StorePairs(hn::BitCast(d, hn::InterleaveUpper(d64, upper, lower)), blocks + 64 + 4 * y);
    }
  }
}

// Sums and differences of four values leave nothing for vectors to do at quarter size.
void ReducedBlocks(int16_t* blocks, size_t count, int fraction, int size) {
  const size_t vectors = size == 4 ? count / kHalvesAtOnce * kHalvesAtOnce : 0;
  if (fraction == 3) {
    HalfOf<3>(blocks, vectors);
  } else {
    HalfOf<5>(blocks, vectors);
  }
  ScalarTransformKernels().inverseReduced(blocks + 64 * vectors, count - vectors, fraction, size);
}

template <int Scale>
void ForwardOf(int16_t* blocks, size_t count) {
  for (size_t i = 0; i < count; i += kAtOnce, blocks += 64 * kAtOnce) {
    const size_t there = HWY_MIN(kAtOnce, count - i);
    V16 rows[8];
    LoadBlocks(blocks, there, rows);
    for (size_t y = 0; y < 8; ++y) rows[y] = hn::ShiftLeft<Scale>(rows[y]);
    Transpose(rows);
    ForwardPass<kBasisFraction - kForwardFraction, true>(rows);
    Transpose(rows);
    ForwardPass<kBasisFraction + kForwardFraction, false>(rows);
    StoreBlocks(rows, blocks, there);
  }
}
void ForwardBlocks(int16_t* blocks, size_t count) {
  ForwardOf<0>(blocks, count);
}
void Forward8Blocks(int16_t* blocks, size_t count) {
  ForwardOf<kForward8Scale>(blocks, count);
}

#endif

}  // namespace

void VectorInverse(int16_t* blocks, size_t count, int fraction) {
  InverseBlocks(blocks, count, fraction);
}
void VectorReduced(int16_t* blocks, size_t count, int fraction, int size) {
  ReducedBlocks(blocks, count, fraction, size);
}
void VectorForward(int16_t* blocks, size_t count) {
  ForwardBlocks(blocks, count);
}
void VectorForward8(int16_t* blocks, size_t count) {
  Forward8Blocks(blocks, count);
}

}  // namespace zel::dnxhd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::dnxhd {

HWY_EXPORT(VectorInverse);
HWY_EXPORT(VectorReduced);
HWY_EXPORT(VectorForward);
HWY_EXPORT(VectorForward8);

const TransformKernels& VectorTransformKernels() {
  static constexpr TransformKernels kKernels = {
      [](int16_t* blocks, size_t count, int fraction) {
        HWY_DYNAMIC_DISPATCH(VectorInverse)(blocks, count, fraction);
      },
      [](int16_t* blocks, size_t count, int fraction, int size) {
        HWY_DYNAMIC_DISPATCH(VectorReduced)(blocks, count, fraction, size);
      },
      [](int16_t* blocks, size_t count) {
        HWY_DYNAMIC_DISPATCH(VectorForward)
        (blocks, count);
      },
      [](int16_t* blocks, size_t count) {
        HWY_DYNAMIC_DISPATCH(VectorForward8)
        (blocks, count);
      }};
  return kKernels;
}

}  // namespace zel::dnxhd
#endif
