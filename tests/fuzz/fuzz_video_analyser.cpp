// Any bytes as a video stream, behind headers of one of the codings so that its analyser meets
// them: whatever comes, units follow each other, lie in the input and leave in order.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "tests/support/analysed_video.h"

namespace {

// What tells each coding, as an encoder writes it for a small picture.
const std::array<std::vector<uint8_t>, 5> kBeginnings = {{
    {},
    {0,    0, 1, 0xB3, 0x14, 0x00, 0xF0, 0x13, 0x02, 0x71, 0x23,
     0x80, 0, 0, 1,    0xB5, 0x14, 0x8A, 0x00, 0x01, 0x00, 0x00},
    {0, 0, 1,    0xB0, 0xF1, 0,    0,    1,    0xB5, 0xA9, 0x13, 0,    0,    1,    0,   0,
     0, 1, 0x20, 0x08, 0xD4, 0x8D, 0x08, 0x00, 0xCD, 0x0A, 0x04, 0x1E, 0x14, 0x10, 0x3F},
    {0,    0,    0, 1, 0x67, 0x42, 0xC0, 0x0A, 0xDA, 0x08,
     0x0A, 0x12, 0, 0, 0,    1,    0x68, 0xCE, 0x3C, 0x80},
    {0,    0,    0,    1,    0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00, 0x03,
     0x00, 0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x1E, 0x95, 0x98, 0x09, 0,    0,
     0,    1,    0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03,
     0x00, 0x00, 0x03, 0x00, 0x1E, 0xA0, 0x20, 0x81, 0x05, 0x96, 0x56, 0x69, 0x24, 0xCA, 0xE0,
     0x10, 0,    0,    0,    1,    0x44, 0x01, 0xC1, 0x72, 0xB4, 0x62, 0x40},
}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zel;
  if (size < 2 || size > 60'000) return 0;
  std::vector<uint8_t> stream = kBeginnings[data[0] % kBeginnings.size()];
  const uint8_t options = data[1];
  stream.insert(stream.end(), data + 2, data + size);

  test::VideoFeed feed;
  feed.chunk = (options & 1) != 0 ? 7 : 65'536;
  feed.configure = [options](Morvalen::Zel::tsm_config& config, Morvalen::Zel::tsm_video& record) {
    if ((options & 2) != 0) config.inBufSiz = 100;
    record.ignorePoc = (options & 4) != 0;
    record.lowLatency = (options & 8) != 0;
    record.insertAvcAud = record.quadByte = (options & 16) != 0;
    record.stillPicSpacing = (options & 32) != 0 ? 10 : 0;
    record.rate = (options & 64) != 0 ? 1e6 : 0;
    if ((options & 128) != 0) config.start = {1, 0, 0, 0, 1, 0, 0};
  };
  const test::AnalysedVideo video = test::analyseVideo(stream, feed);
  int64_t end = 0;
  for (size_t i = 0; i < video.units.size(); ++i) {
    const mux::access_unit& unit = video.units[i];
    if (unit.start < end || unit.size <= 0) std::abort();
    end = unit.start + unit.size;
    if (end > static_cast<int64_t>(stream.size())) std::abort();
    if (video.removals[i].size != unit.sent_size()) std::abort();
  }
  return 0;
}
