#pragma once

#include <cstdint>

/// The frame rates that streams are timed by: frame_rate_code of ISO/IEC 13818-2, table 6-4, and
/// three rates beyond it that AVC and HEVC have.

namespace zel::mux {

struct frame_rate_row {
  int32_t code;
  double period;  // 27 MHz ticks
  double rate;    // frames per second
  int32_t rounded;
};

inline constexpr frame_rate_row kFrameRates[] = {
    {1, 1126125, 24000.0 / 1001, 24}, {2, 1125000, 24, 24},  {3, 1080000, 25, 25},
    {4, 900900, 30000.0 / 1001, 30},  {5, 900000, 30, 30},   {6, 540000, 50, 50},
    {7, 450450, 60000.0 / 1001, 60},  {8, 450000, 60, 60},   {9, 225225, 120000.0 / 1001, 120},
    {10, 225000, 120, 120},           {11, 1800000, 15, 15},
};

inline constexpr int32_t kDefaultFrameRateCode = 4;

constexpr const frame_rate_row* find_frame_rate(int32_t code) {
  for (const frame_rate_row& row : kFrameRates) {
    if (row.code == code) return &row;
  }
  return nullptr;
}

/// The row of `numerator` / `denominator` frames per second, or one of code 0 with its own ticks
/// where no row is within a tick of it. Both have to be above 0.
constexpr frame_rate_row frame_rate_of(double numerator, double denominator) {
  const double period = 27e6 * denominator / numerator;
  for (const frame_rate_row& row : kFrameRates) {
    const double difference = period - row.period;
    if (difference < 1 && difference > -1) return row;
  }
  const double rate = numerator / denominator;
  if (rate >= 1e9) return {0, period, rate, 0};
  const auto below = static_cast<int32_t>(rate);
  return {0, period, rate, rate - below < 0.5 ? below : below + 1};
}

}  // namespace zel::mux
