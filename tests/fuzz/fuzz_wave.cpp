// Any bytes as a Wave file: no crash, no over-read, and what is accepted writes and reads back.
#include <cstdlib>
#include <vector>

#include "tools/zel/media/wave.h"

using zel::media::MemorySink;
using zel::media::MemorySource;
using zel::media::WaveReader;
using zel::media::WaveWriter;

namespace {

// Reads in blocks of a few frames, so that block edges fall within the data.
std::vector<int32_t> readAll(WaveReader& reader) {
  const size_t channels = reader.format().channels;
  std::vector<int32_t> block(channels * 7);
  std::vector<int32_t> all;
  while (const size_t frames = reader.read(block)) {
    all.insert(all.end(), block.begin(), block.begin() + static_cast<ptrdiff_t>(frames * channels));
  }
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MemorySource source({data, size});
  WaveReader reader(source);
  if (!reader.readHeader()) {
    if (reader.error().empty()) std::abort();
    return 0;
  }
  const std::vector<int32_t> samples = readAll(reader);
  if (samples.size() > size) std::abort();

  MemorySink sink;
  WaveWriter writer(sink);
  if (!writer.writeHeader(reader.format()) || !writer.write(samples) || !writer.finish()) {
    std::abort();
  }
  MemorySource again(sink.bytes());
  WaveReader second(again);
  if (!second.readHeader() || readAll(second) != samples || second.truncated()) std::abort();
  return 0;
}
