#pragma once

#include <cmath>
#include <cstdint>

/// The engine's clock: a 27 MHz count that wraps with the 33-bit time stamps of ISO/IEC 13818-1,
/// kept in whole fractions of a tick so that billions of additions carry no rounding. Doubles in
/// 27 MHz ticks go in and out where a stream's own arithmetic (frame periods, time stamps) meets
/// the clock.

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

/// Three words: high (2 bits) and low (31 bits) together are a 33-bit count of 90 kHz ticks;
/// fraction counts 1/1,048,576 of a 27 MHz tick and stays below kFractionRange. All of them are
/// kept as one count of such fractions, which takes 62 bits: sums and comparisons are the engine's
/// most frequent work.
class tsm_time {
 public:
  constexpr tsm_time() = default;
  constexpr tsm_time(uint32_t high, uint32_t low, uint32_t fraction)
      : count_((uint64_t{high} * kLowRange + low) * kFractionRange + fraction) {}

  constexpr uint32_t high() const { return static_cast<uint32_t>(base() / kLowRange); }
  constexpr uint32_t low() const { return static_cast<uint32_t>(base() % kLowRange); }
  constexpr uint32_t fraction() const { return static_cast<uint32_t>(count_ % kFractionRange); }
  /// Whole 90 kHz ticks: high and low.
  constexpr uint64_t base() const { return count_ / kFractionRange; }

  constexpr bool operator==(const tsm_time&) const = default;

  friend constexpr tsm_time add(const tsm_time& a, const tsm_time& b);
  friend constexpr tsm_time subtract(const tsm_time& a, const tsm_time& b);
  friend constexpr bool is_before(const tsm_time& a, const tsm_time& b);
  friend constexpr double ticks_of(const tsm_time& time);
  friend constexpr double difference_ticks(const tsm_time& a, const tsm_time& b);

 private:
  static constexpr uint64_t kWrap = (uint64_t{1} << 33) * kFractionRange;

  constexpr explicit tsm_time(uint64_t count) : count_(count) {}
  /// Exact in front of one rounding.
  static constexpr double ticks(uint64_t count) {
    return static_cast<double>(static_cast<int64_t>(count)) * 0x1p-20;
  }

  uint64_t count_ = 0;  // below kWrap
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
  auto high = static_cast<uint32_t>(std::floor(whole * 4.656612873077393e-10));
  auto low = static_cast<uint32_t>(whole - high * 2147483648.0);
  auto fraction = static_cast<uint32_t>((base - whole) * 314572800.5);
  // The constant's half rounds the very last fractions up to a whole tick: it is carried.
  if (fraction >= kFractionRange) {
    fraction -= kFractionRange;
    if (++low == kLowRange) {
      low = 0;
      ++high;
    }
  }
  return {high & 3, low, fraction};
}

constexpr double ticks_of(const tsm_time& time) {
  return tsm_time::ticks(time.count_);
}

constexpr tsm_time add(const tsm_time& a, const tsm_time& b) {
  const uint64_t sum = a.count_ + b.count_;
  return tsm_time(sum < tsm_time::kWrap ? sum : sum - tsm_time::kWrap);
}

inline tsm_time add_ticks(const tsm_time& time, double ticks) {
  return add(time, time_from_ticks(ticks));
}

/// a - b modulo the wrap.
constexpr tsm_time subtract(const tsm_time& a, const tsm_time& b) {
  const uint64_t difference = a.count_ - b.count_;
  return tsm_time(a.count_ < b.count_ ? difference + tsm_time::kWrap : difference);
}

/// Circular: a time more than 2^32 ticks of 90 kHz ahead counts as behind.
constexpr bool is_before(const tsm_time& a, const tsm_time& b) {
  return subtract(a, b).count_ >= tsm_time::kWrap / 2;
}
constexpr const tsm_time& earlier(const tsm_time& a, const tsm_time& b) {
  return is_before(b, a) ? b : a;
}
/// -1 where a stands before b, 0 where they are equal, 1 where it stands behind.
constexpr int compare(const tsm_time& a, const tsm_time& b) {
  if (is_before(a, b)) return -1;
  return a == b ? 0 : 1;
}

/// a - b in 27 MHz ticks. The high word is dropped: right for spans below 2^31 ticks of 90 kHz.
constexpr double difference_ticks(const tsm_time& a, const tsm_time& b) {
  constexpr uint64_t kRange = uint64_t{kLowRange} * kFractionRange;
  return tsm_time::ticks(subtract(a, b).count_ % kRange);
}

}  // namespace zel::mux
