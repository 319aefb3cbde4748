#include "zel/dnxhd/formatters/input_formatter.h"

#include <algorithm>

#include "zel/dnxhd/formatters/resampler.h"

namespace zel::dnxhd {

namespace {

constexpr size_t kRowLines = 16;

// Columns beyond the picture are its last one.
void RepeatLast(int16_t* plane, size_t samples, size_t wanted) {
  if (wanted > samples) std::fill(plane + samples, plane + wanted, plane[samples - 1]);
}

}  // namespace

// The lines of a row as they come from the application.
class LineInputFormatter::RowSource : public LineSource {
 public:
  RowSource(const LineInputFormatter& formatter, const RowLines<const uint8_t>& lines)
      : formatter_(formatter), lines_(lines) {}
  void GetLine(size_t line, PlanarLine& out) override {
    formatter_.ReadLine(lines_.Line(line), lines_.Low(line), out);
  }

 private:
  const LineInputFormatter& formatter_;
  const RowLines<const uint8_t>& lines_;
};

// Where shrunken lines go: their scale is that of 10 bits.
class LineInputFormatter::BlockSink : public LineSink {
 public:
  BlockSink(const BlockRow& row, int depth, int16_t* blocks)
      : row_(row), depth_(depth), blocks_(blocks) {}
  void TakeLine(size_t line, PlanarLine& in) override {
    for (size_t component = 0; component < 3; ++component) {
      const size_t samples = component == 0 ? row_.LumaSamples() : row_.ChromaSamples();
      for (size_t i = 0; i < samples; ++i) {
        in[component][i] = static_cast<int16_t>(in[component][i] >> (10 - depth_));
      }
    }
    SpreadLine(in, row_, line, blocks_);
  }

 private:
  const BlockRow& row_;
  const int depth_;
  int16_t* const blocks_;
};

int LineInputFormatter::Configure(const InputFormatterResource& info) {
  if (info.width > kMaxLine || info.width % 2 != 0 || info.width == 0) return kMissingResource;
  if (info.mbCols * kRowLines > kMaxLine || info.bottomPad >= kRowLines) return kMissingResource;
  info_ = info;
  return 0;
}

void LineInputFormatter::ReadToBlocks(const BlockReader& reader,
                                      const RowLines<const uint8_t>& source, const BlockRow& row,
                                      size_t lines, int16_t* destination) const {
  for (size_t x = 0; x < info_.width; x += kPixelsAtOnce) {
    const size_t pixels = std::min<size_t>(kPixelsAtOnce, info_.width - x);
    int16_t* const blocks = destination + InBlocks::Luma(x);
    for (size_t i = 0; i < lines; ++i) {
      const uint8_t* const low = source.Low(i);
      // Sixteen lines at once are more than processors see coming.
      const size_t next = reader.bytesPerPixel * (x + pixels);
      const size_t end = reader.bytesPerPixel * std::min<size_t>(x + 2 * pixels, info_.width);
      for (size_t at = next; at < end; at += 64) __builtin_prefetch(source.Line(i) + at);
      const auto to = LinePlaces(blocks, row, i);
      reader.unpack(source.Line(i) + reader.bytesPerPixel * x,
                    low == nullptr ? nullptr : low + x / 2, to[0], to[1], to[2], pixels);
    }
  }
}

int LineInputFormatter::FormatRow(const RowLines<const uint8_t>& source, int16_t* destination,
                                  bool lastRowFlag) const {
  const size_t missing = lastRowFlag ? info_.bottomPad : 0;
  const size_t present = kRowLines - missing;
  const BlockRow row = {info_.mbCols, blocks_, 8};
  RowSource lines(*this, source);
  if (info_.resampler != nullptr) {
    BlockSink sink(row, info_.depth, destination);
    PlanarLine shrunken;
    const int result = info_.resampler->ProcessLines(lines, shrunken, sink, {0, present});
    if (result != 0) return result;
  } else if (const BlockReader reader = ReaderToBlocks();
             reader.unpack != nullptr && blocks_ == 8 && info_.width == row.LumaSamples()) {
    ReadToBlocks(reader, source, row, present, destination);
  } else {
    const size_t chroma = blocks_ == 12 ? info_.width : info_.width / 2;
    PlanarLine line;
    for (size_t i = 0; i < present; ++i) {
      lines.GetLine(i, line);
      RepeatLast(line[0], info_.width, row.LumaSamples());
      RepeatLast(line[1], chroma, row.ChromaSamples());
      RepeatLast(line[2], chroma, row.ChromaSamples());
      SpreadLine(line, row, i, destination);
    }
  }
  FillMissingLines(destination, row, missing);
  return 0;
}

}  // namespace zel::dnxhd
