#include "zel/dnxhd/formatters/output_formatter.h"

#include <array>

namespace zel::dnxhd {

int LineOutputFormatter::Configure(const FormatterInfo_t& info) {
  if (info.depth != depth_) return kMissingResource;
  if (info.width > kMaxLine || info.width % 2 != 0 || info.width == 0) return kMissingResource;
  info_ = info;
  return 0;
}

int LineOutputFormatter::WriteRow(const int16_t* samples, const BlockRow& row,
                                  const RowLines<uint8_t>& destination, size_t count) const {
  if (row.LumaSamples() < info_.width) return kMissingResource;
  const BlockWriter writer = WriterFromBlocks();
  if (writer.pack != nullptr && row.blocks == 8 && row.blockSize == 8 &&
      row.LumaSamples() == info_.width) {
    WriteFromBlocks(writer, samples, row, destination, count);
    return 0;
  }
  std::array<PlanarLine, 2> lines;
  for (size_t i = 0; i < count; ++i) {
    if (i % 2 == 0) GatherLines(samples, row, i, lines);
    WriteLines(lines[i % 2], destination, i);
  }
  return 0;
}

void LineOutputFormatter::WriteFromBlocks(const BlockWriter& writer, const int16_t* samples,
                                          const BlockRow& row, const RowLines<uint8_t>& destination,
                                          size_t count) const {
  for (size_t x = 0; x < info_.width; x += kPixelsAtOnce) {
    const size_t pixels = std::min<size_t>(kPixelsAtOnce, info_.width - x);
    const int16_t* const blocks = samples + InBlocks::Luma(x);
    for (size_t i = 0; i < count; ++i) {
      uint8_t* const out = destination.Line(i);
      if (out == nullptr) continue;
      uint8_t* const low = destination.Low(i);
      const auto from = LinePlaces(blocks, row, i);
      writer.pack(from[0], from[1], from[2], out + writer.bytesPerPixel * x,
                  low == nullptr ? nullptr : low + x / 2, pixels);
    }
  }
}

int LineOutputFormatter::WriteLines(PlanarLine& line, const RowLines<uint8_t>& destination,
                                    size_t at) const {
  if (destination.Line(at) != nullptr) {
    WriteLine(line, destination.Line(at), destination.Low(at));
  }
  return 0;
}

}  // namespace zel::dnxhd
