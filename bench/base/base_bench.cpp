// The ground floor: bits, CRC, and the search for start codes.

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "zel/base/annex_b.h"
#include "zel/base/bit_reader.h"
#include "zel/base/bit_writer.h"
#include "zel/base/crc32.h"
#include "zel/base/zero_search.h"

namespace zel::base {

namespace {

constexpr size_t kMegabyte = 1 << 20;

std::vector<uint8_t> randomBytes(size_t size) {
  std::mt19937_64 random(1);
  std::vector<uint8_t> bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

// Small numbers, as headers and motion data have them.
std::vector<uint32_t> smallNumbers(size_t count) {
  std::mt19937_64 random(1);
  std::geometric_distribution<uint32_t> small(0.2);
  std::vector<uint32_t> numbers(count);
  for (uint32_t& number : numbers) number = small(random);
  return numbers;
}

void countBytes(benchmark::State& state, size_t perRun) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(perRun));
}

void readFixed(benchmark::State& state) {
  const auto bytes = randomBytes(kMegabyte);
  const int width = static_cast<int>(state.range(0));
  for (auto _ : state) {
    BitReader reader(bytes);
    uint32_t sum = 0;
    while (!reader.failed()) sum += reader.read(width);
    benchmark::DoNotOptimize(sum);
  }
  countBytes(state, kMegabyte);
}
BENCHMARK(readFixed)->Arg(1)->Arg(5)->Arg(32);

void readExpGolomb(benchmark::State& state) {
  const auto numbers = smallNumbers(100000);
  std::vector<uint8_t> bytes(numbers.size() * 8);
  BitWriter writer(bytes);
  for (const uint32_t number : numbers) writer.writeUe(number);
  const auto coded = writer.finish();
  for (auto _ : state) {
    BitReader reader(coded);
    uint32_t sum = 0;
    for (size_t i = 0; i < numbers.size(); ++i) sum += reader.readUe();
    benchmark::DoNotOptimize(sum);
  }
  countBytes(state, coded.size());
  state.counters["codes/s"] = benchmark::Counter(static_cast<double>(numbers.size()),
                                                 benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(readExpGolomb);

void writeExpGolomb(benchmark::State& state) {
  const auto numbers = smallNumbers(100000);
  std::vector<uint8_t> bytes(numbers.size() * 8);
  size_t size = 0;
  for (auto _ : state) {
    BitWriter writer(bytes);
    for (const uint32_t number : numbers) writer.writeUe(number);
    size = writer.finish().size();
    benchmark::DoNotOptimize(bytes.data());
  }
  countBytes(state, size);
  state.counters["codes/s"] = benchmark::Counter(static_cast<double>(numbers.size()),
                                                 benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(writeExpGolomb);

void sectionCrc(benchmark::State& state) {
  const auto bytes = randomBytes(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(crc32(bytes));
  countBytes(state, bytes.size());
}
BENCHMARK(sectionCrc)->Arg(32)->Arg(1024)->Arg(kMegabyte);

template <const ZeroSearchKernels& (*kernels)()>
void searchStartCode(benchmark::State& state) {
  // Random bytes as coded video is: a hit is what ends each unit, 16 KiB apart.
  auto bytes = randomBytes(kMegabyte);
  for (size_t at = 0; at + 3 <= bytes.size(); at += 16384) {
    bytes[at] = bytes[at + 1] = 0;
    bytes[at + 2] = 1;
  }
  const auto find = kernels().findZeroZero;
  for (auto _ : state) {
    size_t hits = 0;
    for (size_t at = 0; at < bytes.size(); ++hits) {
      at += find(bytes.data() + at, bytes.size() - at, 1) + 3;
    }
    benchmark::DoNotOptimize(hits);
  }
  countBytes(state, bytes.size());
}
BENCHMARK(searchStartCode<scalarZeroSearch>);
BENCHMARK(searchStartCode<vectorZeroSearch>);

void removeProtection(benchmark::State& state) {
  std::vector<uint8_t> unit;
  appendEmulationPrevention(randomBytes(kMegabyte), unit);
  std::vector<uint8_t> payload(unit.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(removeEmulationPrevention(unit, payload.data()));
  }
  countBytes(state, unit.size());
}
BENCHMARK(removeProtection);

}  // namespace

}  // namespace zel::base

BENCHMARK_MAIN();
