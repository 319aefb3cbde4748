// Any bytes as a transport or program stream that a stream is taken out of: what comes doesn't
// depend on the pieces that the bytes come in, and is no more than went in.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "zel/mux/engine/input/remultiplexing.h"

namespace {

using namespace zel::mux;

class pieces : public stream_source {
 public:
  pieces(const uint8_t* data, size_t size, size_t piece) : at_(data), left_(size), piece_(piece) {}
  int32_t read(uint8_t* to, int32_t room) override {
    const size_t count = std::min({static_cast<size_t>(room), piece_, left_});
    std::memcpy(to, at_, count);
    at_ += count;
    left_ -= count;
    return static_cast<int32_t>(count);
  }

 private:
  const uint8_t* at_;
  size_t left_;
  size_t piece_;
};

struct result {
  std::vector<uint8_t> bytes;
  std::vector<int> warnings;
  int64_t pts = -1;
  bool operator==(const result&) const = default;
};

result take(const uint8_t* data, size_t size, const Morvalen::Zel::tsm_stream_record& record,
            size_t piece, int32_t room) {
  result taken;
  const auto source =
      take_stream(std::make_unique<pieces>(data, size, piece), record,
                  [&](source_warning warning) { taken.warnings.push_back(warning); });
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
