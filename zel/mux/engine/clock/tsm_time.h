#pragma once

#include <cmath>
#include <cstdint>

/// The engine's clock: a 27 MHz count that wraps with the 33-bit time stamps of ISO/IEC 13818-1,
/// kept as three words so that billions of additions carry no rounding. Doubles in 27 MHz ticks go
/// in and out where a stream's own arithmetic (frame periods, time stamps) meets the clock.

namespace zel::mux {

/// 2^33 * 300 ticks of 27 MHz: all times run modulo this.
inline constexpr double timeWrap = 2576980377600.0;

/// Fractions of a 90 kHz tick: 300 * 2^20.
inline constexpr uint32_t kFractionRange = 314572800;
inline constexpr uint32_t kLowRange = uint32_t{1} << 31;

/// The packet slot's length is this over the rate in bits per second: 188 * 8 * 27,000,000.
inline constexpr double kPacketBitTicks = 4.0608e10;
/// Bytes times this over bits per second are ticks: 8 * 27,000,000.
inline constexpr double kByteTicks = 2.16e8;

/// high and low together are a 33-bit count of 90 kHz ticks; fraction counts 1/1,048,576 of a
/// 27 MHz tick and stays below kFractionRange.
struct tsm_time {
  uint32_t high = 0;  // 2 bits
  uint32_t low = 0;   // 31 bits
  uint32_t fraction = 0;

  constexpr bool operator==(const tsm_time&) const = default;
};

/// Adds or subtracts whole wraps until 0 <= ticks < timeWrap. What is no number becomes 0.
inline double normalise(double ticks) {
  if (ticks >= 0 && ticks < timeWrap) return ticks;
  if (!std::isfinite(ticks)) return 0;
  const double rest = std::fmod(ticks, timeWrap);  // exact, and the same as repeated steps
  const double result = rest < 0 ? rest + timeWrap : rest;
  return result < timeWrap ? result : 0;
}

/// a - b, the short way round: within half a wrap either way.
inline double signed_difference(double a, double b) {
  double difference = a - b;
  if (difference > timeWrap / 2) difference -= timeWrap;
  if (difference < -timeWrap / 2) difference += timeWrap;
  return difference;
}

/// From a count of 27 MHz ticks, of any sign and size.
inline tsm_time time_from_ticks(double ticks) {
  const double base = normalise(ticks) / 300.0;
  const double whole = std::floor(base);
  tsm_time time;
  time.high = static_cast<uint32_t>(std::floor(whole * 4.656612873077393e-10));
  time.low = static_cast<uint32_t>(whole - time.high * 2147483648.0);
  time.fraction = static_cast<uint32_t>((base - whole) * 314572800.5);
  // The constant's half rounds the very last fractions up to a whole tick: it is carried.
  if (time.fraction >= kFractionRange) {
    time.fraction -= kFractionRange;
    if (++time.low == kLowRange) {
      time.low = 0;
      ++time.high;
    }
  }
  time.high &= 3;
  return time;
}

inline double ticks_of(const tsm_time& time) {
  return (time.high * 2147483648.0 + time.low) * 300.0 + time.fraction * 0x1p-20;
}

constexpr tsm_time add(const tsm_time& a, const tsm_time& b) {
  tsm_time sum{a.high + b.high, a.low + b.low, a.fraction + b.fraction};
  if (sum.fraction >= kFractionRange) {
    sum.fraction -= kFractionRange;
    ++sum.low;
  }
  sum.high = (sum.high + (sum.low >> 31)) & 3;
  sum.low &= kLowRange - 1;
  return sum;
}

inline tsm_time add_ticks(const tsm_time& time, double ticks) {
  return add(time, time_from_ticks(ticks));
}

/// a - b modulo the wrap, word by word with borrows.
constexpr tsm_time subtract(const tsm_time& a, const tsm_time& b) {
  const uint32_t borrowLow = a.fraction < b.fraction ? 1 : 0;
  const uint32_t low = a.low - b.low - borrowLow;
  const uint32_t borrowHigh = low >> 31;
  return {(a.high - b.high - borrowHigh) & 3, low & (kLowRange - 1),
          a.fraction - b.fraction + borrowLow * kFractionRange};
}

/// -1 where a stands before b, 0 where they are equal, 1 where it stands behind. Circular: a time
/// more than 2^32 ticks of 90 kHz ahead counts as behind.
constexpr int compare(const tsm_time& a, const tsm_time& b) {
  const tsm_time difference = subtract(a, b);
  if ((difference.high & 2) != 0) return -1;
  return (difference.high | difference.low | difference.fraction) != 0 ? 1 : 0;
}
constexpr bool is_before(const tsm_time& a, const tsm_time& b) {
  return (subtract(a, b).high & 2) != 0;
}

/// a - b in 27 MHz ticks. The high word is dropped: right for spans below 2^31 ticks of 90 kHz.
inline double difference_ticks(const tsm_time& a, const tsm_time& b) {
  const tsm_time difference = subtract(a, b);
  return difference.low * 300.0 + difference.fraction * 0x1p-20;
}

}  // namespace zel::mux
