#include <algorithm>
#include <array>
#include <cstdint>

#include "zel/dnxhd/formatters/resampler.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zel/dnxhd/formatters/resampler_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
#include "zel/dnxhd/formatters/pair_products.inc"

// Eight groups at once: the line is split into as many planes as a group consumes samples, so that
// what one tap multiplies in neighbouring groups lies side by side. Two taps make one instruction.

HWY_BEFORE_NAMESPACE();
namespace zel::dnxhd::HWY_NAMESPACE {
namespace {

#if HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR

constexpr size_t kGroups = 8;  // at once

// (x + half) >> shift for what is positive, -((half - x) >> shift) for the rest.
template <int Shift>
HWY_INLINE V32 RoundedAway(V32 x) {
  const D32 d;
  const V32 magnitude = hn::ShiftRight<Shift>(hn::Add(hn::Abs(x), hn::Set(d, 1 << (Shift - 1))));
  return hn::IfThenElse(hn::Lt(x, hn::Zero(d)), hn::Neg(magnitude), magnitude);
}

HWY_INLINE V16 Clamped(V16 x, int16_t low, int16_t high) {
  const D16 d;
  return hn::Min(hn::Max(x, hn::Set(d, low)), hn::Set(d, high));
}

struct Quality {
  static HWY_INLINE V16 Result(const Wide& sums) {
    const V16 rounded =
        Narrowed(RoundedAway<kTapShift + 2>(sums.low), RoundedAway<kTapShift + 2>(sums.high));
    return hn::ShiftLeft<2>(Clamped(rounded, -128, 127));
  }
};

struct Draft {
  static HWY_INLINE V16 Result(const Wide& sums) {
    return Clamped(Rounded<kTapShift>(sums), 0, 255);
  }
};

constexpr size_t kPlaneRoom = kMaxLine / 2 + 64;
struct Split {
  alignas(64) std::array<std::array<int16_t, kPlaneRoom>, 4> planes;
};

// Reads beyond the line, to whole vectors.
HWY_INLINE void SplitLine(const int16_t* line, size_t advance, size_t count, Split& out) {
  const D16 d;
  V16 v0, v1, v2, v3;
  auto& p = out.planes;
  for (size_t i = 0; i < count; i += kGroups) {
    const int16_t* const at = line + advance * i;
    if (advance == 3) {
      hn::LoadInterleaved3(d, at, v0, v1, v2);
    } else if (advance == 2) {
      hn::LoadInterleaved2(d, at, v0, v1);
    } else {
      hn::LoadInterleaved4(d, at, v0, v1, v2, v3);
      hn::StoreU(v3, d, p[3].data() + i);
    }
    if (advance != 2) hn::StoreU(v2, d, p[2].data() + i);
    hn::StoreU(v0, d, p[0].data() + i);
    hn::StoreU(v1, d, p[1].data() + i);
  }
}

constexpr size_t kMaxPairs = 12;

// A phase, made ready for all groups of a line: where the samples of two taps stand in the planes.
struct Pair {
  const int16_t* first;
  const int16_t* second;
  int16_t firstTap;
  int16_t secondTap;
};
struct PhasePairs {
  std::array<Pair, kMaxPairs> pairs;
  size_t count;
};

PhasePairs PairsOf(const Split& split, const FilterDescription& filter, size_t phase) {
  const FilterDescription::Phase& at = filter.phases[phase];
  const auto samples = [&](size_t tap) {
    const size_t place = at.inputOffset + tap;
    return split.planes[place % filter.advance].data() + place / filter.advance;
  };
  const int16_t* const taps = filter.taps + at.tapsAt;
  PhasePairs made;
  made.count = at.tapCount / 2;
  for (size_t i = 0; i < made.count; ++i) {
    made.pairs[i] = {samples(2 * i), samples(2 * i + 1), taps[2 * i], taps[2 * i + 1]};
  }
  return made;
}

template <typename Form>
HWY_INLINE V16 PhaseOf(const PhasePairs& phase, size_t group) {
  const D16 d;
  Wide sums = {hn::Zero(D32()), hn::Zero(D32())};
  for (size_t i = 0; i < phase.count; ++i) {
    const Pair& pair = phase.pairs[i];
    sums = sums + Products(hn::LoadU(d, pair.first + group), hn::LoadU(d, pair.second + group),
                           Weights(pair.firstTap, pair.secondTap));
  }
  return Form::Result(sums);
}

template <typename Form>
void FilterLine(const int16_t* extended, const FilterDescription& filter, int16_t* out,
                size_t groups) {
  const D16 d;
  Split split;
  SplitLine(extended, filter.advance, groups + kGroups, split);
  const size_t phases = filter.phaseCount;
  std::array<PhasePairs, 4> pairs;
  for (size_t phase = 0; phase < phases; ++phase) pairs[phase] = PairsOf(split, filter, phase);
  for (size_t group = 0; group < groups; group += kGroups) {
    V16 made[4];
    for (size_t phase = 0; phase < phases; ++phase) {
      made[phase] = PhaseOf<Form>(pairs[phase], group);
    }
    // The last groups may be fewer than a vector's.
    alignas(16) int16_t last[4 * kGroups];
    const bool whole = group + kGroups <= groups;
    int16_t* const to = whole ? out + phases * group : last;
    if (phases == 4) {
      hn::StoreInterleaved4(made[0], made[1], made[2], made[3], d, to);
    } else if (phases == 3) {
      hn::StoreInterleaved3(made[0], made[1], made[2], d, to);
    } else if (phases == 2) {
      hn::StoreInterleaved2(made[0], made[1], d, to);
    } else {
      hn::StoreU(made[0], d, to);
    }
    if (!whole) std::copy_n(last, phases * (groups - group), out + phases * group);
  }
}

void Reduce(const int16_t* in, int16_t* out, size_t samples, bool offset) {
  const D16 d;
  const V16 middle = hn::Set(d, offset ? 512 : 0);
  for (size_t i = 0; i < samples; i += 8) {
    const V16 x = Clamped(hn::SaturatedSub(hn::LoadU(d, in + i), middle), -508, 507);
    const V16 magnitude = hn::ShiftRight<2>(hn::Add(hn::Abs(x), hn::Set(d, 2)));
    const V16 rounded = hn::IfThenElse(hn::Lt(x, hn::Zero(d)), hn::Neg(magnitude), magnitude);
    hn::StoreU(hn::ShiftLeft<2>(Clamped(rounded, -128, 127)), d, out + i);
  }
}

#endif

}  // namespace

ResampleKernels ResampleKernelsHere() {
#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR
  return ScalarResampleKernels();
#else
  return {Reduce, FilterLine<Quality>, FilterLine<Draft>};
#endif
}

}  // namespace zel::dnxhd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zel::dnxhd {

HWY_EXPORT(ResampleKernelsHere);

ResampleKernels VectorResampleKernels() {
  return HWY_DYNAMIC_DISPATCH(ResampleKernelsHere)();
}

}  // namespace zel::dnxhd
#endif
