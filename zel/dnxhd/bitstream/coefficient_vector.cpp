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
void SplitBlocks(const int16_t* blocks, size_t count, uint32_t shift, uint16_t* magnitudes,
                 BlockMasks* masks) {
  ScalarCoefficientKernels().split(blocks, count, shift, magnitudes, masks);
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

HWY_INLINE void ToScanOrder(const int16_t* block, int16_t* out) {
  for (size_t k = 0; k < kBlockCoefficients; ++k) out[k] = block[kScan[k]];
}

void WeighBlocks(const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing) {
  const D16 d;
  const U16 du;
  const auto largest = hn::Set(du, weighing.largest);
  const int preShift = static_cast<int>(weighing.preShift);
  const int half = weighing.dcShift == 0 ? 0 : 1 << (weighing.dcShift - 1);
  const int largestDc = weighing.largestDc;
#if HWY_TARGET <= HWY_AVX3
  // Lanes cross the whole block in one instruction.
  alignas(64) uint16_t places[kBlockCoefficients];
  for (size_t k = 0; k < kBlockCoefficients; ++k) places[k] = kScan[k];
  const __m512i placesLow = _mm512_load_si512(places);
  const __m512i placesHigh = _mm512_load_si512(places + 32);
#endif
  for (size_t block = 0; block < count; ++block, blocks += 64, out += 64) {
    const int dc = std::clamp((blocks[0] + half) >> weighing.dcShift, -largestDc - 1, largestDc);
#if HWY_TARGET <= HWY_AVX3
    const __m512i low = _mm512_loadu_si512(blocks);
    const __m512i high = _mm512_loadu_si512(blocks + 32);
    _mm512_storeu_si512(out, _mm512_permutex2var_epi16(low, placesLow, high));
    _mm512_storeu_si512(out + 32, _mm512_permutex2var_epi16(low, placesHigh, high));
#else
    ToScanOrder(blocks, out);
#endif
    for (size_t i = 0; i < kWordVectors; ++i) {
      const V16 value = hn::LoadU(d, out + kWords * i);
      const V16 sign = hn::BroadcastSignBit(value);
      const auto magnitude = hn::BitCast(du, hn::Sub(hn::Xor(value, sign), sign));
      const auto scale = hn::LoadU(du, weighing.scales.data() + kWords * i);
      const auto level =
          hn::Min(hn::MulHigh(hn::ShiftLeftSame(magnitude, preShift), scale), largest);
      hn::StoreU(hn::Sub(hn::Xor(hn::BitCast(d, level), sign), sign), d, out + kWords * i);
    }
    out[0] = static_cast<int16_t>(dc);
  }
}

void SplitBlocks(const int16_t* blocks, size_t count, uint32_t shift, uint16_t* magnitudes,
                 BlockMasks* masks) {
  const D16 d;
  const U16 du;
  const int bits = static_cast<int>(shift);
  for (size_t block = 0; block < count; ++block, blocks += 64, magnitudes += 64) {
    BlockMasks mask{};
    for (size_t i = 0; i < kWordVectors; ++i) {
      const V16 value = hn::LoadU(d, blocks + kWords * i);
      const V16 sign = hn::BroadcastSignBit(value);
      const auto magnitude =
          hn::ShiftRightSame(hn::BitCast(du, hn::Sub(hn::Xor(value, sign), sign)), bits);
      hn::StoreU(magnitude, du, magnitudes + kWords * i);
      mask.nonzero |= BitsOf(du, hn::Ne(magnitude, hn::Zero(du))) << (kWords * i);
      mask.negative |= BitsOf(d, hn::Lt(value, hn::Zero(d))) << (kWords * i);
    }
    masks[block] = {mask.nonzero & ~uint64_t{1}, mask.negative & ~uint64_t{1}};
  }
}

#if HWY_TARGET <= HWY_AVX3_DL

// Costs of coefficients by magnitude; 0 from 64 on.
class CostTables {
 public:
  explicit CostTables(const BitCost& cost)
      : plain_(_mm512_load_si512(cost.plainByMagnitude.data())),
        afterRun_(_mm512_load_si512(cost.afterRunByMagnitude.data())) {}

  V8 Costs(V8 magnitudes, hn::Mask<D8> plain) const {
    const __mmask64 coded = _mm512_cmplt_epu8_mask(magnitudes.raw, _mm512_set1_epi8(64));
    const __m512i costs = _mm512_maskz_permutexvar_epi8(coded, magnitudes.raw, afterRun_);
    return V8{_mm512_mask_permutexvar_epi8(costs, coded & plain.raw, magnitudes.raw, plain_)};
  }

 private:
  __m512i plain_;
  __m512i afterRun_;
};

#else

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

#endif

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
  constexpr size_t kStepsPerCheck = HWY_TARGET <= HWY_AVX3_DL ? 4 : 1;
  static_assert(kSteps % kStepsPerCheck == 0);
  const D64 d;
  for (size_t i = 0; i < kLevelVectors; ++i) {
    const V64 set = hn::LoadU(d, sets + kQuads * i);
    const V64 coded = hn::Or(set, hn::Set(d, 1));  // DC always is
    V64 behind = hn::AndNot(hn::ShiftLeft<1>(coded), set);
    V64 zeros = hn::ShiftLeft<2>(hn::Not(coded));
    for (size_t t = 1;; ++t) {
      // Asking costs more than a step does where a branch goes wrong.
      if (t % kStepsPerCheck == 0 && hn::AllTrue(d, hn::Eq(behind, hn::Zero(d)))) break;
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

}  // namespace

void VectorWeigh(const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing) {
  WeighBlocks(blocks, out, count, weighing);
}
void VectorSplit(const int16_t* blocks, size_t count, uint32_t shift, uint16_t* magnitudes,
                 BlockMasks* masks) {
  SplitBlocks(blocks, count, shift, magnitudes, masks);
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
HWY_EXPORT(VectorSplit);
HWY_EXPORT(VectorAcBits);

const CoefficientKernels& VectorCoefficientKernels() {
  static constexpr CoefficientKernels kKernels = {
      [](const int16_t* blocks, int16_t* out, size_t count, const Weighing& weighing) {
        HWY_DYNAMIC_DISPATCH(VectorWeigh)(blocks, out, count, weighing);
      },
      [](const int16_t* blocks, size_t count, uint32_t shift, uint16_t* magnitudes,
         BlockMasks* masks) {
        HWY_DYNAMIC_DISPATCH(VectorSplit)(blocks, count, shift, magnitudes, masks);
      },
      [](const int16_t* blocks, size_t count, const BitCost& cost, uint32_t first, uint32_t last,
         uint32_t* bits) {
        HWY_DYNAMIC_DISPATCH(VectorAcBits)(blocks, count, cost, first, last, bits);
      }};
  return kKernels;
}

}  // namespace zel::dnxhd
#endif
