#include "zel/dnxhd/formatters/frame_formatter.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <optional>

#include "zel/dnxhd/formatters/formatter.h"

namespace zel::dnxhd {

namespace {

// The formatters' own codes in the codec's words.
ResultWord WordOf(int code) {
  if (code == 0) return kSuccessful;
  return code == kMissingMemory ? kErrorInMemoryAllocation : kErrorNoInitialization;
}

// What decides before any class is looked for.
ResultWord CheckFormat(const VCIDEntry& entry, const FrameFormat& format) {
  const uint32_t resolution = format.resolution;
  if (resolution != 1 && resolution != 2 && resolution != 4) return kErrorDecodeModeNotSupported;
  const bool v210 = format.sampleType == kSamplesV210;
  if (!v210 && BytesPerPixel(format.pixelLayout, format.sampleType) == 0) {
    return kErrorDecodeModeNotSupported;
  }
  // Lines that overlap would lead beyond the buffer's end.
  if (format.fieldGap < 0) return kErrorInUnCompInfo;
  const auto rowBytes = static_cast<uint64_t>(std::llabs(RasterOf(entry, format).rowBytes));
  return rowBytes < LineBytes(entry, format) ? kErrorInUnCompInfo : kSuccessful;
}

FormatterInfo_t InfoOf(const VCIDEntry& entry, const FrameFormat& format, const FrameRaster& raster,
                       bool resampler) {
  const PictureGeometry geometry = GeometryOf(entry);
  FormatterInfo_t info{};
  info.samples = {format.pixelLayout, format.formatWord, format.sampleType, format.fieldLayout,
                  format.rasterWord};
  info.rowBytes = raster.rowBytes;
  info.fieldGap = format.fieldGap;
  info.depth = entry.depth;
  info.lines = geometry.lines / format.resolution;
  info.width = raster.width;
  info.mbRows = geometry.mbRows;
  info.mbCols = geometry.mbCols;
  info.limits.fill({0, resampler || entry.depth == 10 ? 1023u : 255u});
  info.seven = 7;
  info.tentFilter = format.tentFilter ? 1 : 0;
  info.bottomPad = geometry.bottomPad;
  return info;
}

Formatter FactoryFor(const VCIDEntry& entry, const FrameFormat& format) {
  Formatter factory;
  factory.useReference = format.useReference ? 1 : 0;
  factory.rgbCoded = IsRgbFamily(entry) ? 1 : 0;
  return factory;
}

}  // namespace

struct EncodeFormatter::State {
  FrameLayout layout;
  PictureGeometry geometry;
  std::unique_ptr<CResampler> resampler;
  std::unique_ptr<CDCTInputFormatter> formatter;
};

EncodeFormatter::EncodeFormatter() = default;
EncodeFormatter::~EncodeFormatter() = default;

ResultWord EncodeFormatter::Make(const VCIDEntry& entry, const FrameFormat& given,
                                 std::unique_ptr<EncodeFormatter>& made) try {
  made.reset();
  FrameFormat format = given;
  format.resolution = 1;
  if (const ResultWord result = CheckFormat(entry, format); result != kSuccessful) return result;
  const Formatter factory = FactoryFor(entry, format);
  std::unique_ptr<EncodeFormatter> formatter(new EncodeFormatter());
  formatter->state_ = std::make_unique<State>(
      State{FrameLayout(entry, format), GeometryOf(entry), nullptr, nullptr});
  State& state = *formatter->state_;
  const FrameRaster& raster = state.layout.Raster();
  if (raster.resampled) {
    state.resampler =
        factory.MakeResampler(ResamplerForm::kQuality, {raster.width, entry.width, false});
    if (state.resampler == nullptr) return kErrorInMemoryAllocation;
  }
  InputFormatterResource resource{};
  static_cast<FormatterInfo_t&>(resource) = InfoOf(entry, format, raster, raster.resampled);
  resource.resampler = state.resampler.get();
  state.formatter = factory.MakeInput(resource.samples);
  if (state.formatter == nullptr) return kErrorInMemoryAllocation;
  const ResultWord result = WordOf(state.formatter->Configure(resource));
  if (result == kSuccessful) made = std::move(formatter);
  return result;
} catch (const std::bad_alloc&) {
  return kErrorInMemoryAllocation;
}

ResultWord EncodeFormatter::FetchRow(const void* frame, size_t picture, size_t row,
                                     int16_t* blocks) const {
  const auto lines = state_->layout.Row(static_cast<const uint8_t*>(frame), picture, row, true);
  const bool last = row + 1 == state_->geometry.mbRows && state_->geometry.bottomPad != 0;
  return WordOf(state_->formatter->FormatRow(lines, blocks, last));
}

struct DecodeFormatter::State {
  FrameLayout layout;
  size_t lines;         // of a picture, at the resolution
  size_t averageLines;  // decoded lines that make one of the application's
  int depth;
  std::unique_ptr<CResampler> resampler;
  std::unique_ptr<ColorConversionDCT> conversion;
  std::unique_ptr<CDCTOutputFormatter> formatter;
};

DecodeFormatter::DecodeFormatter() = default;
DecodeFormatter::~DecodeFormatter() = default;

namespace {

// Lines of decoded blocks for a resampler: limited, and in its scale.
class DecodedLines : public LineSource {
 public:
  DecodedLines(const int16_t* samples, const BlockRow& row, size_t average, int depth)
      : samples_(samples), row_(row), average_(average), depth_(depth) {}

  void GetLine(size_t line, PlanarLine& out) override {
    GatherLine(samples_, row_, line * average_, out);
    ForEachSample(
        [&](int16_t* samples, size_t count, size_t) {
          for (size_t i = 0; i < count; ++i) samples[i] = Limited(samples[i]);
        },
        out);
    if (average_ > 1) AddLines(line * average_, out);
    ForEachSample(
        [&](int16_t* samples, size_t count, size_t) {
          for (size_t i = 0; i < count; ++i) {
            samples[i] = static_cast<int16_t>(samples[i] * (1 << (10 - depth_)));
          }
        },
        out);
  }

 private:
  int16_t Limited(int16_t sample) const {
    const int bound = 1 << (depth_ - 1);
    return static_cast<int16_t>(std::clamp<int>(sample, -bound, bound - 1));
  }

  template <typename Work>
  void ForEachSample(Work work, PlanarLine& line) const {
    for (size_t component = 0; component < 3; ++component) {
      work(line[component], component == 0 ? row_.LumaSamples() : row_.ChromaSamples(), component);
    }
  }

  void AddLines(size_t first, PlanarLine& out) const {
    PlanarLine next;
    for (size_t i = 1; i < average_; ++i) {
      GatherLine(samples_, row_, first + i, next);
      ForEachSample(
          [&](int16_t* samples, size_t count, size_t component) {
            for (size_t j = 0; j < count; ++j) {
              samples[j] = static_cast<int16_t>(samples[j] + Limited(next[component][j]));
            }
          },
          out);
    }
    const int shift = average_ == 2 ? 1 : 2;
    ForEachSample(
        [&](int16_t* samples, size_t count, size_t) {
          for (size_t i = 0; i < count; ++i) {
            samples[i] = static_cast<int16_t>((samples[i] + (1 << (shift - 1))) >> shift);
          }
        },
        out);
  }

  const int16_t* const samples_;
  const BlockRow& row_;
  const size_t average_;
  const int depth_;
};

class FormatterSink : public LineSink {
 public:
  FormatterSink(const CDCTOutputFormatter& formatter, const RowLines<uint8_t>& lines)
      : formatter_(formatter), lines_(lines) {}
  void TakeLine(size_t line, PlanarLine& in) override { formatter_.WriteLines(in, lines_, line); }

 private:
  const CDCTOutputFormatter& formatter_;
  const RowLines<uint8_t>& lines_;
};

}  // namespace

ResultWord DecodeFormatter::Make(const VCIDEntry& entry, const FrameFormat& format,
                                 std::unique_ptr<DecodeFormatter>& made) try {
  made.reset();
  if (const ResultWord result = CheckFormat(entry, format); result != kSuccessful) return result;
  const Formatter factory = FactoryFor(entry, format);
  const PictureGeometry geometry = GeometryOf(entry);
  // Interlaced thin rasters come at full size whatever the resolution: their lines are averaged,
  // and the draft filters do the rest.
  const bool fullBlocks = HasFieldFlag(entry) && format.resolution > 1;
  std::unique_ptr<DecodeFormatter> formatter(new DecodeFormatter());
  formatter->state_ = std::make_unique<State>(
      State{FrameLayout(entry, format), geometry.lines / format.resolution,
            fullBlocks ? format.resolution : 1, entry.depth, nullptr, nullptr, nullptr});
  State& state = *formatter->state_;
  const FrameRaster& raster = state.layout.Raster();
  const bool resampled = raster.resampled || fullBlocks;
  if (resampled) {
    const uint32_t decodedWidth = fullBlocks ? entry.width : entry.width / format.resolution;
    const auto form = format.resolution == 1 ? ResamplerForm::kQuality : ResamplerForm::kDraft;
    state.resampler = factory.MakeResampler(form, {decodedWidth, raster.width, false});
    if (state.resampler == nullptr) return kErrorInMemoryAllocation;
  }
  state.conversion = factory.MakeColorConversion();
  const FormatterInfo_t info = InfoOf(entry, format, raster, resampled);
  state.formatter = factory.MakeOutput(info.samples, info.depth);
  if (state.formatter == nullptr) return kErrorInMemoryAllocation;
  const ResultWord result = WordOf(state.formatter->Configure(info));
  if (result == kSuccessful) made = std::move(formatter);
  return result;
} catch (const std::bad_alloc&) {
  return kErrorInMemoryAllocation;
}

ResultWord DecodeFormatter::WriteRow(const DecodedRow& decoded, void* frame) const {
  const State& state = *state_;
  const size_t rowLines = state.layout.LinesOfRow();
  const size_t first = decoded.row * rowLines;
  if (first >= state.lines) return kSuccessful;
  const size_t count = std::min(rowLines, state.lines - first);
  const auto lines =
      state.layout.Row(static_cast<uint8_t*>(frame), decoded.picture, decoded.row, false);
  const BlockRow row = {decoded.mbCols, decoded.blocks, decoded.blockSize};
  if (row.Lines() < count * state.averageLines) return kErrorNoInitialization;
  if (state.conversion != nullptr) {
    // Macroblocks in RGB become Y, Cb and Cr as the others are.
    state.conversion->ForwardRow(decoded.samples, decoded.flags, decoded.mbCols);
  }
  if (state.resampler == nullptr) {
    return WordOf(state.formatter->WriteRow(decoded.samples, row, lines, count));
  }
  DecodedLines source(decoded.samples, row, state.averageLines, state.depth);
  FormatterSink sink(*state.formatter, lines);
  PlanarLine line;
  return WordOf(state.resampler->ProcessLines(source, line, sink, {0, count}));
}

}  // namespace zel::dnxhd
