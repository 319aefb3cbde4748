// A row's codes, read and written on one thread: bytes are those of the coded row.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "bench/dnxhd/kernel_rate.h"
#include "zel/dnxhd/bitstream/row_reader.h"
#include "zel/dnxhd/bitstream/row_writer.h"

namespace {

using namespace zel::dnxhd;

constexpr uint32_t kId = 1238;
constexpr size_t kColumns = bench::kBlocks / 8;

size_t writeRow(const RowWriter& writer, std::vector<uint8_t>& out) {
  static const std::vector<uint16_t> steps(kColumns, 0);
  static const std::vector<uint32_t> flags(kColumns, 0);
  size_t written = 0;
  const ResultWord word = writer.Write(
      {bench::rowOfBlocks().data(), steps.data(), true, flags.data(), flags.data()}, out, written);
  return word == kSuccessful ? written : 0;
}

void writing(benchmark::State& state) {
  const RowWriter writer(*FindEntry(kId));
  std::vector<uint8_t> out(size_t{1} << 18);
  size_t written = 0;
  for (auto unused : state) {
    (void)unused;
    written = writeRow(writer, out);
    benchmark::ClobberMemory();
  }
  if (written == 0) state.SkipWithError("the row wasn't written");
  bench::setRate(state, bench::kBlocks, written);
}
BENCHMARK(writing)->Name("write_row");

// `Store`: with coefficients; otherwise only whether the codes are whole.
template <bool Store>
void reading(benchmark::State& state) {
  std::vector<uint8_t> row(size_t{1} << 18);
  row.resize(writeRow(RowWriter(*FindEntry(kId)), row));
  RowReader reader(*FindEntry(kId));
  std::vector<int16_t> coefficients(64 * bench::kBlocks);
  std::vector<MacroblockFlags> flags(kColumns);
  ResultWord word = kSuccessful;
  size_t end = 0;
  for (auto unused : state) {
    (void)unused;
    word = Store ? reader.Read(row, 0, {coefficients.data(), flags.data()}, end)
                 : reader.Check(row, 0, end);
    benchmark::ClobberMemory();
  }
  if (word != kSuccessful || end != row.size()) state.SkipWithError("the row wasn't read");
  bench::setRate(state, bench::kBlocks, row.size());
}
BENCHMARK(reading<true>)->Name("read_row");
BENCHMARK(reading<false>)->Name("check_row");

}  // namespace
