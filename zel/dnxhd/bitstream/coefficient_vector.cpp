#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <tuple>

#include "zel/dnxhd/bitstream/block_order.h"
#include "zel/dnxhd/bitstream/coefficient_kernels.h"
#include "zel/dnxhd/tables/weights.h"

// Its counting of bits and its look-ups of 64 bytes halve the time.
#define HWY_WANT_AVX3_DL
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/dnxhd/bitstream/coefficient_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

// Counting the bits of a block at all levels at once, without walking its coefficients:
//
// A level's magnitudes are bytes, and a set of 64 bits says which are not 0. The costs of
// coefficients come out of tables of 16 bytes that fit a vector's lanes, summed up side by side.
// The few that don't fit a byte's table, from 64 on, are added one by one.
//
// Runs are counted on the sets, those of all levels in the lanes of vectors. The positions behind
// at least t zeros are those behind at least t - 1 zeros that have another in front, and how many
// they are, times what the t-th zero adds to the cost of a run, is what they cost.

HWY_BEFORE_NAMESPACE();
namespace zel::dnxhd::HWY_NAMESPACE {
namespace {

#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR || HWY_HAVE_SCALABLE

// Emulated vectors would be slower than the definition.
void WeighBlocks(const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing) {
  ScalarCoefficientKernels().weigh(blocks, out, count, weighing);
}
size_t ListCodes(const int16_t* macroblock, std::span<const BlockPlace> places, uint32_t shift,
                 int32_t* predictors, uint16_t* out) {
  return ScalarCoefficientKernels().list(macroblock, places, shift, predictors, out);
}
void CountAcBits(const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first,
                 uint32_t last, uint32_t* bits) {
  ScalarCoefficientKernels().acBits(blocks, count, cost, first, last, bits);
}

#else

namespace hn = hwy::HWY_NAMESPACE;

using D8 = hn::CappedTag<uint8_t, 64>;
using D16 = hn::Repartition<int16_t, D8>;
using U16 = hn::Repartition<uint16_t, D8>;
using D64 = hn::Repartition<uint64_t, D8>;
using V8 = hn::Vec<D8>;
using V16 = hn::Vec<D16>;
using V64 = hn::Vec<D64>;

constexpr size_t kBytes = hn::MaxLanes(D8());
constexpr size_t kWords = kBytes / 2;
constexpr size_t kQuads = kBytes / 8;
constexpr size_t kByteVectors = kBlockCoefficients / kBytes;  // of a block
constexpr size_t kWordVectors = kBlockCoefficients / kWords;
constexpr size_t kLevelVectors = 8 / kQuads;  // of sets of all levels

template <class D, class M>
HWY_INLINE uint64_t BitsOf(D d, M mask) {
  uint64_t bits = 0;
  hn::StoreMaskBits(d, mask, reinterpret_cast<uint8_t*>(&bits));
  return bits;
}

// The bits of a set that belong to byte vector `i`.
HWY_INLINE hn::Mask<D8> MaskOf(uint64_t set, size_t i) {
  const D8 d;
  uint64_t part = set;
  if constexpr (kBytes < 64) part >>= kBytes * i;
  uint8_t bytes[8];
  std::memcpy(bytes, &part, sizeof(part));
  return hn::LoadMaskBits(d, bytes);
}

#if HWY_TARGET <= HWY_AVX3
// Lanes cross the whole block in one instruction.
class ScanOrder {
 public:
  ScanOrder() {
    alignas(64) uint16_t places[kBlockCoefficients];
    for (size_t k = 0; k < kBlockCoefficients; ++k) places[k] = kScan[k];
    low_ = _mm512_load_si512(places);
    high_ = _mm512_load_si512(places + 32);
  }
  HWY_INLINE void Load(const int16_t* block, V16* out) const {
    const __m512i low = _mm512_loadu_si512(block);
    const __m512i high = _mm512_loadu_si512(block + 32);
    out[0] = V16{_mm512_permutex2var_epi16(low, low_, high)};
    out[1] = V16{_mm512_permutex2var_epi16(low, high_, high)};
  }

 private:
  __m512i low_;
  __m512i high_;
};
#else
struct ScanOrder {
  HWY_INLINE void Load(const int16_t* block, V16* out) const {
    alignas(64) int16_t ordered[kBlockCoefficients];
    for (size_t k = 0; k < kBlockCoefficients; ++k) ordered[k] = block[kScan[k]];
    for (size_t i = 0; i < kWordVectors; ++i) out[i] = hn::Load(D16(), ordered + kWords * i);
  }
};
#endif

void WeighBlocks(const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing) {
  const D16 d;
  const U16 du;
  const ScanOrder order;
  const auto largest = hn::Set(du, weighing.largest);
  const int preShift = static_cast<int>(weighing.preShift);
  const int half = weighing.dcShift == 0 ? 0 : 1 << (weighing.dcShift - 1);
  const int largestDc = weighing.largestDc;
  for (size_t block = 0; block < count; ++block, blocks += 64, out += 64) {
    const int dc = std::clamp((blocks[0] + half) >> weighing.dcShift, -largestDc - 1, largestDc);
    V16 values[kWordVectors];
    order.Load(blocks, values);
    for (size_t i = 0; i < kWordVectors; ++i) {
      const V16 sign = hn::BroadcastSignBit(values[i]);
      const auto magnitude = hn::BitCast(du, hn::Sub(hn::Xor(values[i], sign), sign));
      const auto scale = hn::LoadU(du, weighing.scales.data() + kWords * i);
      const auto level =
          hn::Min(hn::MulHigh(hn::ShiftLeftSame(magnitude, preShift), scale), largest);
      values[i] = hn::Sub(hn::Xor(hn::BitCast(d, level), sign), sign);
    }
    const V16 first = hn::Set(d, static_cast<int16_t>(dc));
    values[0] = hn::IfThenElse(hn::FirstN(d, 1), first, values[0]);
    for (size_t i = 0; i < kWordVectors; ++i) hn::StoreU(values[i], d, out + kWords * i);
  }
}

#if HWY_TARGET <= HWY_AVX3_DL

// A block is one vector of bytes here, a set of coefficients one mask, and one instruction puts the
// members of a set side by side. Distances in the scan are then differences of neighbours: runs
// cost a look-up each, like coefficients.

constexpr __mmask64 kBehindDc = ~uint64_t{1};

// place(i) in lane i.
template <class Place>
HWY_INLINE __m512i LanesOf(Place place) {
  alignas(64) static constexpr auto kPlaces = [] {
    std::array<uint8_t, 64> places{};
    for (size_t i = 0; i < places.size(); ++i) places[i] = static_cast<uint8_t>(Place()(i));
    return places;
  }();
  (void)place;
  return _mm512_load_si512(kPlaces.data());
}
HWY_INLINE __m512i Places() {
  return LanesOf([](size_t i) { return i; });
}
// Of two vectors, what puts 32 lanes of both in turn, from `first` on.
template <size_t First>
HWY_INLINE __m512i InTurn() {
  return LanesOf([](size_t i) { return i % 2 * 64 + i / 2 + First; });
}

// For each member of a set, the distance from the one before it, the first one's from DC; zeros
// behind the last one, where the difference would be negative.
class Distances {
 public:
  Distances() : places_(Places()), before_(_mm512_sub_epi8(places_, _mm512_set1_epi8(1))) {}

  __m512i Of(__mmask64 set) const {
    const __m512i members = _mm512_maskz_compress_epi8(set, places_);
    return _mm512_subs_epu8(members, _mm512_maskz_permutexvar_epi8(kBehindDc, before_, members));
  }

 private:
  __m512i places_;
  __m512i before_;  // 255 of the first lane, which is masked
};

HWY_INLINE __mmask64 MaskOfWords(__mmask32 low, __mmask32 high) {
  return __mmask64{low} | __mmask64{high} << 32;
}

// The low bytes of two vectors of words.
HWY_INLINE __m512i LowBytes(__m512i low, __m512i high) {
  return _mm512_permutex2var_epi8(low, _mm512_add_epi8(Places(), Places()), high);
}

class BlockLister {
 public:
  explicit BlockLister(uint32_t shift)
      : shift_(shift), bits_(_mm_cvtsi32_si128(static_cast<int>(shift))) {}

  HWY_INLINE uint16_t* operator()(const int16_t* block, uint16_t* to) const {
    const __m512i low = _mm512_loadu_si512(block);
    const __m512i high = _mm512_loadu_si512(block + 32);
    const __m512i lowAbove =
        _mm512_srl_epi16(_mm512_maskz_abs_epi16(static_cast<__mmask32>(kBehindDc), low), bits_);
    const __m512i highAbove = _mm512_srl_epi16(_mm512_abs_epi16(high), bits_);
    const __m512i magnitudes = LowBytes(lowAbove, highAbove);
    const __mmask64 negative = MaskOfWords(_mm512_movepi16_mask(low), _mm512_movepi16_mask(high));
    const __m512i large = _mm512_set1_epi16(-static_cast<int16_t>(kEscapeMagnitude));
    if (_mm512_test_epi16_mask(_mm512_or_si512(lowAbove, highAbove), large) == 0) [[likely]] {
      return Put(magnitudes, negative, _mm512_test_epi8_mask(magnitudes, magnitudes), 0, to);
    }
    // Large ones stand at low frequencies: what is up to the last of them goes one by one.
    const __mmask64 escaped = MaskOfWords(_mm512_test_epi16_mask(lowAbove, large),
                                          _mm512_test_epi16_mask(highAbove, large));
    const auto last = static_cast<uint32_t>(63 - std::countl_zero(uint64_t{escaped}));
    to = ListCoefficients(block, last, shift_, to);
    const __mmask64 behind = ~uint64_t{1} << last;
    return Put(magnitudes, negative, _mm512_mask_test_epi8_mask(behind, magnitudes, magnitudes),
               last, to);
  }

 private:
  // Those of a set, which are behind place `last`.
  HWY_INLINE uint16_t* Put(__m512i magnitudes, __mmask64 negative, __mmask64 set, uint32_t last,
                           uint16_t* to) const {
    static_assert(WriteCodes::PairIndex(1, 1, true) == 3 * 64 + 1);
    const __m512i factors = _mm512_set1_epi16(1 << 8 | 64);
    const __m512i twice = _mm512_add_epi8(magnitudes, magnitudes);
    const __m512i withSign = _mm512_mask_add_epi8(twice, negative, twice, _mm512_set1_epi8(1));
    const __m512i coded = _mm512_maskz_compress_epi8(set, withSign);
    __m512i distance = distances_.Of(set);
    if (last != 0) {
      distance =
          _mm512_mask_sub_epi8(distance, 1, distance, _mm512_set1_epi8(static_cast<char>(last)));
    }
    _mm512_storeu_si512(
        to, _mm512_maddubs_epi16(_mm512_permutex2var_epi8(coded, InTurn<0>(), distance), factors));
    _mm512_storeu_si512(
        to + 32,
        _mm512_maddubs_epi16(_mm512_permutex2var_epi8(coded, InTurn<32>(), distance), factors));
    return to + std::popcount(uint64_t{set});
  }

  const uint32_t shift_;
  const __m128i bits_;
  const Distances distances_;
};

// What the lanes of eight vectors come to, in the order of the vectors.
HWY_INLINE __m512i SumsOfEight(const __m512i* v) {
  __m512i pairs[4];
  for (size_t i = 0; i < 4; ++i) {
    pairs[i] = _mm512_add_epi64(_mm512_unpacklo_epi64(v[2 * i], v[2 * i + 1]),
                                _mm512_unpackhi_epi64(v[2 * i], v[2 * i + 1]));
  }
  // Of each pair of vectors, sums of two lanes of one and of the other in turn.
  const auto halves = [](__m512i a, __m512i b) HWY_ATTR {
    return _mm512_add_epi64(_mm512_shuffle_i64x2(a, b, 0x88), _mm512_shuffle_i64x2(a, b, 0xDD));
  };
  const __m512i first = halves(pairs[0], pairs[1]);
  const __m512i second = halves(pairs[2], pairs[3]);
  return halves(first, second);
}

// What a level's coefficients and runs cost, all in lanes of bytes: a code takes 23 bits at most, a
// run 10.
class LevelCosts {
 public:
  explicit LevelCosts(const BitCost& cost)
      : plain_(_mm512_load_si512(cost.plainByMagnitude.data())),
        afterRun_(_mm512_load_si512(cost.afterRunByMagnitude.data())),
        plainEscaped_(_mm512_loadu_si512(cost.ac.data() + 64)),
        afterRunEscaped_(_mm512_loadu_si512(cost.ac.data() + 192)),
        runs_(_mm512_load_si512(cost.runByDistance.data())) {}

  // Of magnitudes below 64, `set` those that aren't 0.
  HWY_INLINE __m512i Of(__m512i magnitudes, __mmask64 set) const {
    return WithRuns(Coefficients(magnitudes, PlainOf(set)), set);
  }

  // Of any, by their low bytes; `escaped` are those from 64 on.
  HWY_INLINE __m512i Of(__m512i magnitudes, __mmask64 set, __mmask64 escaped) const {
    const __mmask64 plain = PlainOf(set);
    const __m512i less = _mm512_sub_epi8(magnitudes, _mm512_set1_epi8(1));
    __m512i costs = Coefficients(magnitudes, plain);
    costs = _mm512_mask_permutexvar_epi8(costs, escaped, less, afterRunEscaped_);
    costs = _mm512_mask_permutexvar_epi8(costs, escaped & plain, less, plainEscaped_);
    return WithRuns(costs, set);
  }

 private:
  // The places right behind a coefficient, DC being one.
  static HWY_INLINE __mmask64 PlainOf(__mmask64 set) { return (set | 1) << 1; }

  HWY_INLINE __m512i Coefficients(__m512i magnitudes, __mmask64 plain) const {
    const __m512i afterRun = _mm512_permutexvar_epi8(magnitudes, afterRun_);
    return _mm512_mask_permutexvar_epi8(afterRun, plain, magnitudes, plain_);
  }
  HWY_INLINE __m512i WithRuns(__m512i costs, __mmask64 set) const {
    return _mm512_add_epi8(costs, _mm512_permutexvar_epi8(distances_.Of(set), runs_));
  }

  const Distances distances_;
  const __m512i plain_;
  const __m512i afterRun_;
  const __m512i plainEscaped_;
  const __m512i afterRunEscaped_;
  const __m512i runs_;
};

HWY_INLINE __m512i AddBytes(__m512i sums, __m512i bytes) {
  return _mm512_add_epi64(sums, _mm512_sad_epu8(bytes, _mm512_setzero_si512()));
}

// The levels of a block with magnitudes from 64 on: one by one while there are any, and then those
// that are left.
HWY_NOINLINE void AddLargeBlock(const LevelCosts& costs, __m512i low, __m512i high, size_t levels,
                                __m512i* sums) {
  const __m512i large = _mm512_set1_epi16(-static_cast<int16_t>(kEscapeMagnitude));
  const __m512i mask = _mm512_set1_epi8(0x7F);
  size_t i = 0;
  for (; i < levels; ++i) {
    const __mmask64 escaped =
        MaskOfWords(_mm512_test_epi16_mask(low, large), _mm512_test_epi16_mask(high, large));
    if (escaped == 0) break;
    const __mmask64 set =
        MaskOfWords(_mm512_test_epi16_mask(low, low), _mm512_test_epi16_mask(high, high));
    sums[i] = AddBytes(sums[i], costs.Of(LowBytes(low, high), set, escaped));
    low = _mm512_srli_epi16(low, 1);
    high = _mm512_srli_epi16(high, 1);
  }
  for (__m512i magnitudes = LowBytes(low, high); i < levels; ++i) {
    const __mmask64 set = _mm512_test_epi8_mask(magnitudes, magnitudes);
    sums[i] = AddBytes(sums[i], costs.Of(magnitudes, set));
    magnitudes = _mm512_and_si512(_mm512_srli_epi16(magnitudes, 1), mask);
  }
}

template <size_t Levels>
void CountLevels(const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first,
                 uint32_t* bits) {
  constexpr size_t kLevelsPerCheck = 3;  // a wrong guess costs more than an empty level or two
  const LevelCosts costs(cost);
  const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(first));
  const __m512i large = _mm512_set1_epi16(-static_cast<int16_t>(kEscapeMagnitude));
  const __m512i mask = _mm512_set1_epi8(0x7F);
  __m512i sums[8];
  for (size_t i = 0; i < 8; ++i) sums[i] = _mm512_setzero_si512();
  // Bytes have room for the costs of some blocks.
  constexpr size_t kBlocksAtOnce = 4;
  while (count > 0) {
    __m512i bytes[Levels];
    for (size_t i = 0; i < Levels; ++i) bytes[i] = _mm512_setzero_si512();
    const size_t now = HWY_MIN(count, kBlocksAtOnce);
    for (const int16_t* const end = blocks + 64 * now; blocks != end; blocks += 64) {
      const __m512i low = _mm512_srl_epi16(
          _mm512_maskz_abs_epi16(static_cast<__mmask32>(kBehindDc), _mm512_loadu_si512(blocks)),
          shift);
      const __m512i high =
          _mm512_srl_epi16(_mm512_abs_epi16(_mm512_loadu_si512(blocks + 32)), shift);
      if (_mm512_test_epi16_mask(_mm512_or_si512(low, high), large) != 0) {
        AddLargeBlock(costs, low, high, Levels, sums);
        continue;
      }
      __m512i magnitudes = LowBytes(low, high);
      HWY_UNROLL(8)
      for (size_t i = 0; i < Levels; ++i) {
        const __mmask64 set = _mm512_test_epi8_mask(magnitudes, magnitudes);
        if (i % kLevelsPerCheck == 0 && set == 0) break;
        bytes[i] = _mm512_add_epi8(bytes[i], costs.Of(magnitudes, set));
        magnitudes = _mm512_and_si512(_mm512_srli_epi16(magnitudes, 1), mask);
      }
    }
    for (size_t i = 0; i < Levels; ++i) sums[i] = AddBytes(sums[i], bytes[i]);
    count -= now;
  }
  alignas(64) uint64_t totals[8];
  _mm512_store_si512(totals, SumsOfEight(sums));
  for (size_t i = 0; i < Levels; ++i) bits[i] += static_cast<uint32_t>(totals[i]);
}

void CountAcBits(const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first,
                 uint32_t last, uint32_t* bits) {
  if (first == 0 && last == 7) return CountLevels<8>(blocks, count, cost, 0, bits);
  for (uint32_t level = first; level <= last; ++level) {
    CountLevels<1>(blocks, count, cost, level, bits + (level - first));
  }
}

#else

// Magnitudes with their signs come from vectors, and where they aren't 0; the rest is walked
// through, one coefficient after the other.
class BlockLister {
 public:
  explicit BlockLister(uint32_t shift) : shift_(shift) {}

  HWY_INLINE uint16_t* operator()(const int16_t* block, uint16_t* to) const {
    const D16 d;
    const U16 du;
    const auto small = hn::Set(du, static_cast<uint16_t>(kEscapeMagnitude - 1));
    alignas(64) std::array<uint16_t, 64> withSigns;
    uint64_t set = 0;
    uint64_t escaped = 0;
    for (size_t i = 0; i < kWordVectors; ++i) {
      const V16 value = hn::LoadU(d, block + kWords * i);
      const auto magnitude =
          hn::ShiftRightSame(hn::BitCast(du, hn::Abs(value)), static_cast<int>(shift_));
      set |= BitsOf(du, hn::Ne(magnitude, hn::Zero(du))) << (kWords * i);
      escaped |= BitsOf(du, hn::Gt(magnitude, small)) << (kWords * i);
      const auto negative = hn::ShiftRight<15>(hn::BitCast(du, value));
      hn::Store(hn::Or(hn::Add(magnitude, magnitude), negative), du, withSigns.data() + kWords * i);
    }
    uint32_t before = 0;
    escaped &= ~uint64_t{1};
    if (escaped != 0) [[unlikely]] {
      before = static_cast<uint32_t>(63 - std::countl_zero(escaped));
      to = ListCoefficients(block, before, shift_, to);
    }
    for (set &= ~uint64_t{1} << before; set != 0; set &= set - 1) {
      const auto k = static_cast<uint32_t>(std::countr_zero(set));
      static_assert(WriteCodes::PairIndex(1, 1, true) == 3 * 64 + 1);
      *to++ = static_cast<uint16_t>(withSigns[k] * 64 + (k - before));
      before = k;
    }
    return to;
  }

 private:
  const uint32_t shift_;
};

// The 16 entries of a table for each row of lanes.
HWY_INLINE V8 TablePart(const std::array<uint8_t, 64>& table, size_t part) {
  return hn::LoadDup128(D8(), table.data() + 16 * part);
}

// Costs of coefficients by magnitude; 0 from 64 on.
class CostTables {
 public:
  explicit CostTables(const BitCost& cost) {
    for (size_t part = 0; part < 4; ++part) {
      plain_[part] = TablePart(cost.plainByMagnitude, part);
      afterRun_[part] = TablePart(cost.afterRunByMagnitude, part);
    }
  }

  V8 Costs(V8 magnitudes, hn::Mask<D8> plain) const {
    const D8 d;
    if (hn::AllFalse(d, hn::Gt(magnitudes, hn::Set(d, 15)))) {
      return hn::IfThenElse(plain, hn::TableLookupBytes(plain_[0], magnitudes),
                            hn::TableLookupBytes(afterRun_[0], magnitudes));
    }
    // An index with its top bit set looks up a 0. For each part of the tables, the magnitudes that
    // it has entries for become indices up to 127, all others higher ones.
    const V8 offset = hn::Set(d, 0x70);
    const V8 limited = hn::Min(magnitudes, hn::Set(d, 127));
    V8 ofPlain = hn::Zero(d);
    V8 ofAfterRun = hn::Zero(d);
    for (size_t part = 0; part < 4; ++part) {
      const V8 index =
          hn::Add(hn::Xor(limited, hn::Set(d, static_cast<uint8_t>(16 * part))), offset);
      ofPlain = hn::Or(ofPlain, hn::TableLookupBytesOr0(plain_[part], index));
      ofAfterRun = hn::Or(ofAfterRun, hn::TableLookupBytesOr0(afterRun_[part], index));
    }
    return hn::IfThenElse(plain, ofPlain, ofAfterRun);
  }

 private:
  V8 plain_[4];
  V8 afterRun_[4];
};

// Runs longer than the steps tell, of which there are few, one by one.
HWY_INLINE void AddLongRuns(V64 behind, const uint64_t* sets, const BitCost& cost, uint32_t* bits) {
  uint64_t left[kQuads];
  hn::StoreU(behind, D64(), left);
  for (size_t lane = 0; lane < kQuads; ++lane) {
    for (; left[lane] != 0; left[lane] &= left[lane] - 1) {
      const int place = std::countr_zero(left[lane]);
      const uint64_t below = (sets[lane] | 1) & ((uint64_t{1} << place) - 1);
      const int zeros = place - (63 - std::countl_zero(below)) - 1;
      bits[lane] += uint32_t{cost.run[static_cast<size_t>(zeros)]} - cost.run[15];
    }
  }
}

// What the runs of all levels cost, level by lane; those past the steps go to `bits`.
HWY_INLINE void AddRunCosts(const uint64_t* sets, const BitCost& cost, V64* sums, uint32_t* bits) {
  constexpr size_t kSteps = std::tuple_size_v<decltype(BitCost::runSteps)>;
  const D64 d;
  for (size_t i = 0; i < kLevelVectors; ++i) {
    const V64 set = hn::LoadU(d, sets + kQuads * i);
    const V64 coded = hn::Or(set, hn::Set(d, 1));  // DC always is
    V64 behind = hn::AndNot(hn::ShiftLeft<1>(coded), set);
    V64 zeros = hn::ShiftLeft<2>(hn::Not(coded));
    for (size_t t = 1;; ++t) {
      if (hn::AllTrue(d, hn::Eq(behind, hn::Zero(d)))) break;
      if (t == kSteps) {
        AddLongRuns(behind, sets + kQuads * i, cost, bits + kQuads * i);
        break;
      }
      if (cost.runSteps[t] != 0) {
        const V64 population = hn::PopulationCount(behind);
        V64 added = population;
        for (int more = 1; more < cost.runSteps[t]; ++more) added = hn::Add(added, population);
        sums[i] = hn::Add(sums[i], added);
      }
      behind = hn::And(behind, zeros);
      zeros = hn::Add(zeros, zeros);
    }
  }
}

HWY_INLINE V8 ToBytes(V16 low, V16 high) {
  const hn::Half<D8> half;
  return hn::Combine(D8(), hn::DemoteTo(half, high), hn::DemoteTo(half, low));
}

// The magnitudes of a block's AC coefficients, whole and limited to bytes.
class BlockMagnitudes {
 public:
  explicit BlockMagnitudes(const int16_t* block) {
    const D16 d;
    for (size_t i = 0; i < kWordVectors; ++i) {
      words_[i] = hn::Abs(hn::LoadU(d, block + kWords * i));
    }
    words_[0] = hn::IfThenZeroElse(hn::FirstN(d, 1), words_[0]);
    V8 most = hn::Zero(D8());
    for (size_t i = 0; i < kByteVectors; ++i) {
      bytes_[i] = ToBytes(words_[2 * i], words_[2 * i + 1]);
      most = hn::Max(most, bytes_[i]);
    }
    fit_ = hn::AllFalse(D8(), hn::Eq(most, hn::Set(D8(), 255)));
  }

  // Byte vector `i` at a level, limited to 255.
  V8 At(size_t i, int level) const {
    const U16 d;
    if (fit_) [[likely]] {
      const int shift = level < 8 ? level : 8;
      const V8 shifted = hn::BitCast(D8(), hn::ShiftRightSame(hn::BitCast(d, bytes_[i]), shift));
      return hn::And(shifted, hn::Set(D8(), static_cast<uint8_t>(255 >> shift)));
    }
    return ToBytes(Shifted(words_[2 * i], level), Shifted(words_[2 * i + 1], level));
  }

 private:
  static V16 Shifted(V16 words, int level) {
    return hn::BitCast(D16(), hn::ShiftRightSame(hn::BitCast(U16(), words), level));
  }

  V16 words_[kWordVectors];
  V8 bytes_[kByteVectors];
  bool fit_;
};

// A magnitude that bytes have no cost of.
HWY_INLINE uint32_t EscapeCost(int16_t value, int level, bool plain, const BitCost& cost) {
  const uint32_t magnitude = static_cast<uint32_t>(value < 0 ? -value : value) >> level;
  const uint32_t index = BitCost::AcIndex(magnitude) - 1;
  return cost.ac[plain ? index : 128 + index];
}

void CountAcBits(const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first,
                 uint32_t last, uint32_t* bits) {
  // How often it is asked whether all higher levels are empty: a wrong guess costs more than
  // counting some for nothing.
  constexpr size_t kLevelsPerCheck = kByteVectors == 1 ? 4 : 1;
  const D8 d8;
  const D64 d64;
  const CostTables tables(cost);
  const size_t levels = last - first + 1;
  V64 coefficientSums[8];
  V64 runSums[kLevelVectors];
  for (size_t i = 0; i < 8; ++i) coefficientSums[i] = hn::Zero(d64);
  for (size_t i = 0; i < kLevelVectors; ++i) runSums[i] = hn::Zero(d64);
  uint32_t more[8] = {};

  // The sets of one block are loaded as vectors only when those of the next are written: loading
  // them right after their single stores would wait for these.
  alignas(64) uint64_t setsOfTwo[2][8];
  for (size_t i = 0; i < kLevelVectors; ++i) {
    hn::Store(hn::Zero(d64), d64, setsOfTwo[1] + kQuads * i);
  }
  for (size_t block = 0; block < count; ++block, blocks += 64) {
    const BlockMagnitudes magnitudes(blocks);
    uint64_t* const sets = setsOfTwo[block % 2];
    for (size_t i = 0; i < kLevelVectors; ++i) {
      hn::Store(hn::Zero(d64), d64, sets + kQuads * i);
    }
    for (size_t i = 0; i < levels; ++i) {
      const int level = static_cast<int>(first + i);
      V8 bytes[kByteVectors];
      uint64_t set = 0;
      uint64_t escaped = 0;
      for (size_t part = 0; part < kByteVectors; ++part) {
        bytes[part] = magnitudes.At(part, level);
        set |= BitsOf(d8, hn::Ne(bytes[part], hn::Zero(d8))) << (kBytes * part % 64);
        escaped |= BitsOf(d8, hn::Gt(bytes[part], hn::Set(d8, 63))) << (kBytes * part % 64);
      }
      if (i % kLevelsPerCheck == 0 && set == 0) break;
      sets[i] = set;
      const uint64_t plain = (set | 1) << 1;
      for (size_t part = 0; part < kByteVectors; ++part) {
        const V8 costs = tables.Costs(bytes[part], MaskOf(plain, part));
        coefficientSums[i] = hn::Add(coefficientSums[i], hn::SumsOf8(costs));
      }
      for (; escaped != 0; escaped &= escaped - 1) {
        const int k = std::countr_zero(escaped);
        more[i] += EscapeCost(blocks[k], level, (plain >> k & 1) != 0, cost);
      }
    }
    AddRunCosts(setsOfTwo[(block + 1) % 2], cost, runSums, more);
  }
  if (count > 0) AddRunCosts(setsOfTwo[(count - 1) % 2], cost, runSums, more);

  uint64_t runs[8];
  for (size_t i = 0; i < kLevelVectors; ++i) hn::StoreU(runSums[i], d64, runs + kQuads * i);
  for (size_t i = 0; i < levels; ++i) {
    const auto sum = hn::GetLane(hn::SumOfLanes(d64, coefficientSums[i]));
    bits[i] += static_cast<uint32_t>(sum + runs[i]) + more[i];
  }
}

#endif

size_t ListCodes(const int16_t* macroblock, std::span<const BlockPlace> places, uint32_t shift,
                 int32_t* predictors, uint16_t* out) {
  const BlockLister list(shift);
  const uint16_t* const begin = out;
  for (const BlockPlace& place : places) {
    const int16_t* const block = macroblock + place.offset;
    const int32_t dc = block[0];
    const int32_t difference = dc - predictors[place.component];
    *out++ = static_cast<uint16_t>(WriteCodes::DcCodeIndex(difference));
    predictors[place.component] = dc;
    out = list(block, out);
    *out++ = WriteCodes::kEndOfBlock;
  }
  return static_cast<size_t>(out - begin);
}

#endif

}  // namespace

void VectorWeigh(const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing) {
  WeighBlocks(blocks, out, count, weighing);
}
size_t VectorList(const int16_t* macroblock, std::span<const BlockPlace> places, uint32_t shift,
                  int32_t* predictors, uint16_t* out) {
  return ListCodes(macroblock, places, shift, predictors, out);
}
void VectorAcBits(const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first,
                  uint32_t last, uint32_t* bits) {
  CountAcBits(blocks, count, cost, first, last, bits);
}

}  // namespace zel::dnxhd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::dnxhd {

HWY_EXPORT(VectorWeigh);
HWY_EXPORT(VectorList);
HWY_EXPORT(VectorAcBits);

const CoefficientKernels& VectorCoefficientKernels() {
  static constexpr CoefficientKernels kKernels = {
      [](const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing) {
        HWY_DYNAMIC_DISPATCH(VectorWeigh)(blocks, out, count, weighing);
      },
      [](const int16_t* macroblock, std::span<const BlockPlace> places, uint32_t shift,
         int32_t* predictors, uint16_t* out) {
        return HWY_DYNAMIC_DISPATCH(VectorList)(macroblock, places, shift, predictors, out);
      },
      [](const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first, uint32_t last,
         uint32_t* bits) {
        HWY_DYNAMIC_DISPATCH(VectorAcBits)(blocks, count, cost, first, last, bits);
      }};
  return kKernels;
}

}  // namespace zel::dnxhd
#endif
