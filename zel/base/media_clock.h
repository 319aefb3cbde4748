#pragma once

#include <cstdint>

/// The arithmetic of the system clock of ISO/IEC 13818-1, 2.4.2 and 2.4.3: 33-bit counts of 90 kHz
/// ticks (PTS, DTS, the base of a PCR) and 27 MHz counts of 300 times their range, both of which
/// wrap around after 26.5 hours. Pure arithmetic; who schedules by it has more to say.

namespace zel::base {

inline constexpr int64_t kClock90k = 90000;
inline constexpr int64_t kClock27M = 27000000;
inline constexpr int64_t kTicks27MPer90k = 300;
inline constexpr int64_t kWrap90k = int64_t{1} << 33;
inline constexpr int64_t kWrap27M = kWrap90k * kTicks27MPer90k;
static_assert(kWrap27M == 2576980377600);

/// Into the range [0, modulus), for every value, negative ones too.
constexpr int64_t wrap(int64_t value, int64_t modulus) {
  const int64_t rest = value % modulus;
  return rest < 0 ? rest + modulus : rest;
}
constexpr int64_t wrap90k(int64_t ticks) {
  return ticks & (kWrap90k - 1);
}
constexpr int64_t wrap27M(int64_t ticks) {
  return wrap(ticks, kWrap27M);
}

/// How much later `a` is than `b` the short way round: in [-modulus / 2, modulus / 2). The modulus
/// has to be even. The arguments may be anything whose difference doesn't overflow.
constexpr int64_t wrappedDifference(int64_t a, int64_t b, int64_t modulus) {
  return wrap(a - b + modulus / 2, modulus) - modulus / 2;
}
constexpr int64_t difference90k(int64_t a, int64_t b) {
  return wrappedDifference(a, b, kWrap90k);
}
constexpr int64_t difference27M(int64_t a, int64_t b) {
  return wrappedDifference(a, b, kWrap27M);
}

/// The count without wrap that `ticks` stands for, if it lies within half a range of `reference`.
constexpr int64_t unwrap90k(int64_t ticks, int64_t reference) {
  return reference + difference90k(ticks, reference);
}
constexpr int64_t unwrap27M(int64_t ticks, int64_t reference) {
  return reference + difference27M(ticks, reference);
}

/// value * numerator / denominator, rounded towards minus infinity, exact in between. The
/// denominator has to be positive and the result has to fit.
constexpr int64_t rescaleFloor(int64_t value, int64_t numerator, int64_t denominator) {
  __extension__ using Wide = __int128;
  const Wide product = static_cast<Wide>(value) * numerator;
  const Wide quotient = product / denominator;
  return static_cast<int64_t>(quotient - (product % denominator < 0 ? 1 : 0));
}

/// The same, rounded to the nearest; of two that are as near to the later one.
constexpr int64_t rescaleNearest(int64_t value, int64_t numerator, int64_t denominator) {
  __extension__ using Wide = __int128;
  const Wide product = static_cast<Wide>(value) * numerator * 2 + denominator;
  const Wide twice = static_cast<Wide>(denominator) * 2;
  return static_cast<int64_t>(product / twice - (product % twice < 0 ? 1 : 0));
}

/// A PCR as its field has it: base * 300 + extension is the 27 MHz count. ISO/IEC 13818-1, 2.4.3.5.
struct PcrFields {
  int64_t base;       // 33 bits
  int32_t extension;  // 0 to 299
  constexpr bool operator==(const PcrFields&) const = default;
};
constexpr PcrFields pcrFields(int64_t ticks27M) {
  const int64_t ticks = wrap27M(ticks27M);
  return {ticks / kTicks27MPer90k, static_cast<int32_t>(ticks % kTicks27MPer90k)};
}
constexpr int64_t pcrTicks(PcrFields fields) {
  return fields.base * kTicks27MPer90k + fields.extension;
}

}  // namespace zel::base
