// Any bytes as a transport or program stream that a stream is taken out of: what comes doesn't
// depend on the pieces that the bytes come in, and is no more than went in.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "tests/support/bytes_source.h"
#include "zel/mux/engine/input/remultiplexing.h"

namespace {

using namespace zel::mux;

struct result {
  std::vector<uint8_t> bytes;
  std::vector<int> warnings;
  int64_t pts = -1;
  bool operator==(const result&) const = default;
};

result take(const uint8_t* data, size_t size, const Morvalen::Zel::tsm_stream_record& record,
            size_t piece, int32_t room) {
  result taken;
  const auto source = take_stream(
      std::make_unique<zel::test::BytesSource>(std::vector<uint8_t>(data, data + size), piece),
      record, [&](source_warning warning) { taken.warnings.push_back(warning); });
  std::vector<uint8_t> some(static_cast<size_t>(room));
  for (int32_t got = source->read(some.data(), room); got > 0;
       got = source->read(some.data(), room)) {
    if (got > room) std::abort();
    taken.bytes.insert(taken.bytes.end(), some.begin(), some.begin() + got);
  }
  taken.pts = source->first_pts90k();
  if (taken.bytes.size() > size) std::abort();
  return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  Morvalen::Zel::tsm_stream_record record{};
  // The stream that is asked for: a PID, or a stream_id and perhaps a substream.
  if ((data[0] & 1) != 0) {
    record.sourceTsPid = 0x100 | data[1];
  } else {
    record.sourceStreamId = data[1] | 0x80;
    record.sourceStreamSubtype = data[2];
  }
  const size_t piece = data[3] + 1u;
  data += 4;
  size -= 4;
  const result whole = take(data, size, record, size + 1, 1 << 16);
  if (!(take(data, size, record, piece, 61) == whole)) std::abort();
  return 0;
}
