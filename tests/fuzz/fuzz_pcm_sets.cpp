// Any bytes as a PCM stream of another multiplex, of any form: no crash, no over-read, and no more
// samples than went in.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "tests/support/bytes_source.h"
#include "zel/mux/engine/pcm/aes3_source.h"
#include "zel/mux/engine/pcm/lpcm_source.h"

namespace {

using namespace zel::mux;

std::unique_ptr<pcm_source> open_source(unsigned form, std::unique_ptr<elementary_input> input,
                                        reporting& reports) {
  constexpr int kPid = 0x100;
  if (form == 0) {
    auto source = std::make_unique<aes3_source>(std::move(input), kPid, reports,
                                                aes3_change_messages{136, 137});
    return source->open() ? std::move(source) : nullptr;
  }
  auto source = std::make_unique<lpcm_source>(std::move(input),
                                              form == 1 ? lpcm_form::hdmv : lpcm_form::ieee1394,
                                              kPid, reports, lpcm_change_messages{171, 172, 162});
  return source->open() ? std::move(source) : nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  Morvalen::Zel::tsm_stats stats;
  tsm_time now;
  reporting reports(stats, now);
  reports.deliver_to([](void*, int, int32_t, const char*) {}, nullptr);
  reports.stop_on(false, false);
  auto input = std::make_unique<elementary_input>();
  input->open(70'000, 1 << 20,
              std::make_unique<zel::test::BytesSource>(std::vector<uint8_t>(data + 2, data + size),
                                                       data[1] + 1u));
  const auto source = open_source(data[0] % 3u, std::move(input), reports);
  if (source == nullptr) return 0;
  const auto channels = static_cast<size_t>(source->channels());
  if (channels < 1 || channels > kMostPcmChannels) std::abort();
  std::vector<int32_t> some(17 * channels);
  size_t all = 0;
  while (true) {
    size_t count = 0;
    const auto got = source->read(some.data(), channels, 17, count);
    if (count > 17) std::abort();
    all += count * channels;
    if (got != pcm_source::result::ready) break;
  }
  if (all > size) std::abort();
  return 0;
}
