#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// What the kernels' benchmarks tell alike, and work on.

namespace zel::dnxhd::bench {

/// Blocks of a row of 1920 pixels in 4:2:2.
inline constexpr size_t kBlocks = 120 * 8;

/// `items` a round, pixels or blocks, and `bytes` of the samples, coefficients or codes that a
/// round reads or writes. The cycles are those of the clock that the system names; the "/s" that is
/// printed behind them stands behind every rate.
inline void setRate(benchmark::State& state, size_t items, size_t bytes) {
  const auto rounds = static_cast<double>(state.iterations());
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(items));
  state.counters["bytes/cycle"] = benchmark::Counter(
      rounds * static_cast<double>(bytes) / benchmark::CPUInfo::Get().cycles_per_second,
      benchmark::Counter::kIsRate);
}

/// A row of macroblocks of about 20 coefficients a block, at the step of 1.
inline const std::vector<int16_t>& rowOfBlocks() {
  static const std::vector<int16_t> blocks = [] {
    std::vector<int16_t> made(64 * kBlocks);
    uint32_t random = 1;
    for (size_t i = 0; i < made.size(); ++i) {
      random = random * 1664525 + 1013904223;
      const auto reach = static_cast<uint32_t>(200 / (i % 64 + 1) + 2);
      const auto value = static_cast<int>((random >> 8) % reach);
      made[i] = static_cast<int16_t>((random >> 30 & 1) != 0 ? -value : value);
    }
    return made;
  }();
  return blocks;
}

}  // namespace zel::dnxhd::bench
