// Decodes DNxHD frames into an application's layout on one thread and says how long that took of
// the processor's time, for comparison with other decoders over the same file:
//
//   decode_frames FILE ROUNDS [uyvy|v210|10_6|bgra|none] [full|half|quarter]
//
// "none" leaves the samples where the inverse transform has put them.

#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "zel/base/byte_order.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/formatters/frame_formatter.h"

namespace {

using namespace zel::dnxhd;

struct NoTaker : RowTaker {
  ResultWord TakeRow(const DecodedRow&) override { return kSuccessful; }
};

double processorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec) * 1e-6;
}

FrameFormat formatOf(const std::string& name) {
  FrameFormat format;
  if (name == "v210") format.sampleType = kSamplesV210;
  if (name == "10_6") format.sampleType = kSamples10_6;
  if (name == "bgra") {
    format.pixelLayout = kLayoutRgb;
    format.formatWord = 8;
  }
  return format;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) {
    std::fprintf(stderr, "usage: decode_frames FILE ROUNDS [LAYOUT] [SIZE]\n");
    return 2;
  }
  std::ifstream in(arguments[1], std::ios::binary);
  const std::vector<char> file{std::istreambuf_iterator<char>(in), {}};
  if (file.size() < kHeaderBytes) return 1;
  const auto* const bytes = reinterpret_cast<const uint8_t*>(file.data());
  const VCIDEntry* const entry = FindEntry(zel::base::loadBig32(bytes + 40));
  if (entry == nullptr) return 1;
  const std::string layout = count > 3 ? arguments[3] : "uyvy";
  const std::string size = count > 4 ? arguments[4] : "full";
  FrameFormat format = formatOf(layout);
  format.resolution = size == "half" ? 2 : (size == "quarter" ? 4 : 1);

  SerialRowRunner runner;
  FrameDecoder decoder(*entry, format.resolution, runner);
  std::unique_ptr<DecodeFormatter> formatter;
  if (DecodeFormatter::Make(*entry, format, formatter) != kSuccessful) return 1;
  std::vector<uint8_t> frame(BufferBytes(*entry, format));
  NoTaker none;
  FrameTaker taker(*formatter, frame.data());
  RowTaker& rows = layout == "none" ? static_cast<RowTaker&>(none) : taker;

  const int rounds = std::atoi(arguments[2]);
  size_t frames = 0;
  const double begin = processorSeconds();
  for (int round = 0; round < rounds; ++round) {
    for (size_t at = 0; at + entry->frameBytes <= file.size(); at += entry->frameBytes) {
      if (decoder.Decode({bytes + at, entry->frameBytes}, Pictures::kAll, rows) != kSuccessful) {
        std::fprintf(stderr, "frame %zu does not decode\n", frames);
        return 1;
      }
      ++frames;
    }
  }
  const double seconds = processorSeconds() - begin;
  std::printf("%u %s %s: %zu frames, %.1f a second of one processor\n", entry->compressionId,
              layout.c_str(), size.c_str(), frames, static_cast<double>(frames) / seconds);
  return 0;
}
