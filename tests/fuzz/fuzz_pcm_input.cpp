// Any bytes as a PCM input, raw or Wave files, given in pieces of any size: what comes out doesn't
// depend on the pieces.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "tests/support/bytes_source.h"
#include "zel/mux/engine/pcm/pcm_input.h"

namespace {

using namespace zel::mux;

std::vector<int32_t> samplesOf(const uint8_t* data, size_t size, size_t piece, int32_t capacity) {
  Morvalen::Zel::tsm_stats stats;
  tsm_time now;
  reporting reports(stats, now);
  reports.deliver_to([](void*, int, int32_t, const char*) {}, nullptr);
  reports.stop_on(false, false);
  pcm_input input;
  input.bytes().open(
      capacity, 1 << 20,
      std::make_unique<zel::test::BytesSource>(std::vector<uint8_t>(data, data + size), piece));
  input.set_raw({3, 20, false, true, true}, 2);
  input.open({147, 148, 157, 158, 141}, 0x100, reports);
  const auto channels = static_cast<size_t>(input.channels());
  const sample_format& format = input.format();
  // Callers refuse what they can't use before they read.
  if (channels > 8 || format.bytes > 4 || format.bits > 8 * format.bytes) return {};
  std::vector<int32_t> all;
  std::vector<int32_t> some(17 * channels);
  while (true) {
    size_t count = 0;
    const auto result = input.read(some.data(), channels, 17, count);
    if (count > 17) std::abort();
    all.insert(all.end(), some.begin(), some.begin() + static_cast<long>(count * channels));
    if (result == pcm_input::result::ended) return all;
    if (result == pcm_input::result::later) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const size_t piece = data[0] % 97 + 1;
  const auto whole = samplesOf(data + 1, size - 1, size, 1 << 20);
  if (samplesOf(data + 1, size - 1, piece, 128) != whole) std::abort();
  return 0;
}
