// Any bytes as a Y4M stream: no crash, no over-read, and what is accepted writes and reads back.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "tools/zel/media/y4m.h"

using zel::media::MemorySink;
using zel::media::MemorySource;
using zel::media::Y4mLimits;
using zel::media::Y4mReader;
using zel::media::Y4mResult;
using zel::media::Y4mWriter;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Y4mLimits limits;
  limits.maxFrameBytes = 1 << 16;
  MemorySource source({data, size});
  Y4mReader reader(source, limits);
  if (!reader.readHeader()) {
    if (reader.error().empty()) std::abort();
    return 0;
  }
  MemorySink sink;
  Y4mWriter writer(sink, limits);
  // Unknown parameters are not carried over, and the writer spells out what was left to defaults.
  const bool copying = writer.writeHeader(reader.header());
  std::vector<uint8_t> frame(reader.layout().frameBytes);
  std::vector<uint8_t> all;
  for (;;) {
    const Y4mResult result = reader.readFrame(frame);
    if (result == Y4mResult::kEnd) break;
    if (result == Y4mResult::kError) {
      if (reader.error().empty()) std::abort();
      break;
    }
    all.insert(all.end(), frame.begin(), frame.end());
    if (copying && !writer.writeFrame(frame, reader.frameParameters())) std::abort();
  }
  if (!copying) return 0;

  MemorySource again(sink.bytes());
  Y4mReader second(again, limits);
  if (!second.readHeader() || second.header().chroma->tag != reader.header().chroma->tag) {
    std::abort();
  }
  size_t offset = 0;
  while (second.readFrame(frame) == Y4mResult::kFrame) {
    if (!std::equal(frame.begin(), frame.end(), all.begin() + static_cast<ptrdiff_t>(offset))) {
      std::abort();
    }
    offset += frame.size();
  }
  if (offset != all.size()) std::abort();
  return 0;
}
