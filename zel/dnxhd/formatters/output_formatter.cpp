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
  std::array<PlanarLine, 2> lines;
  for (size_t i = 0; i < count; ++i) {
    if (i % 2 == 0) GatherLines(samples, row, i, lines);
    WriteLines(lines[i % 2], destination, i);
  }
  return 0;
}

int LineOutputFormatter::WriteLines(PlanarLine& line, const RowLines<uint8_t>& destination,
                                    size_t at) const {
  if (destination.Line(at) != nullptr) {
    WriteLine(line, destination.Line(at), destination.Low(at));
  }
  return 0;
}

}  // namespace zel::dnxhd
