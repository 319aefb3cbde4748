#include "zel/dnxhd/front_end/data_types.h"

#include "zel/runtime/video_format.h"

namespace Morvalen::Zel {

namespace {

constexpr uint32_t kThinWidth = 1440;
constexpr uint32_t kV210Pixels = 48;  // rows are whole multiples of so many pixels
constexpr uint32_t kSamples8 = 1;
constexpr uint32_t kSamplesSigned16 = 16;
constexpr uint32_t kSamplesV210 = 1024;

UnCompInfo Defaults(uint32_t width, int32_t fieldMode) {
  const bool fields = fieldMode == 2 || fieldMode == 3;
  UnCompInfo record;
  record.fieldWord = fields ? 32 : 64;
  record.fieldLayout = fields ? 1 : 64;
  // Whatever the compression: the width is all that tells a thin raster.
  record.rasterWord = width == kThinWidth ? 4 : 1;
  return record;
}

void SetRgb(UnCompInfo& record, uint32_t sampleType) {
  record.sampleType = sampleType;
  record.pixelLayout = 2;
  record.formatWord = 8;
  record.componentCount = 4;
}

uint32_t V210Width(uint32_t width) {
  return (width + kV210Pixels - 1) / kV210Pixels * kV210Pixels;
}

}  // namespace

DataTypes DataTypesForEncode(uint32_t format, uint32_t width, int32_t fieldMode) {
  DataTypes types{Defaults(width, fieldMode), 0};
  if (format == VideoFormat::Packed422UYVY_10) {
    types.record.sampleType = kSamplesV210;
    types.rowBytes = V210Width(width) * 8 / 3;
  } else if (format == VideoFormat::PackedARGB_64) {
    SetRgb(types.record, kSamplesSigned16);
    types.rowBytes = width * 8;
  } else {
    types.record.sampleType = kSamples8;
    types.rowBytes = width * 2;
  }
  return types;
}

std::optional<DataTypes> DataTypesForDecode(uint32_t format, uint32_t width, int32_t fieldMode) {
  DataTypes types{Defaults(width, fieldMode), 0};
  if (format == VideoFormat::Packed422UYVY) {
    types.record.sampleType = kSamples8;
    types.rowBytes = width * 2;
  } else if (format == VideoFormat::Packed422UYVY_10) {
    types.record.sampleType = kSamplesV210;
    types.rowBytes = V210Width(width) * 8 / 3;
  } else if (format == VideoFormat::PackedBGRA) {
    SetRgb(types.record, kSamples8);
    types.record.rgbOutput = 1;
    types.rowBytes = width * 4;
  } else if (format == VideoFormat::PackedARGB_64) {
    SetRgb(types.record, kSamplesSigned16);
    types.record.rgbOutput = 1;
    types.rowBytes = width * 8;
  } else {
    return std::nullopt;
  }
  return types;
}

}  // namespace Morvalen::Zel
