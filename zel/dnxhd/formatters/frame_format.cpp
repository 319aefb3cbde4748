#include "zel/dnxhd/formatters/frame_format.h"

#include <cstdlib>

namespace zel::dnxhd {

namespace {

constexpr uint32_t kV210Pixels = 48;  // lines are whole multiples of these many,
constexpr uint32_t kV210Bytes = 128;  // which take so many bytes

bool HasOneField(uint32_t fieldLayout) {
  return (fieldLayout & (kFirstFieldOnly | kSecondFieldOnly)) != 0;
}
bool AreStacked(uint32_t fieldLayout) {
  return (fieldLayout & (kFieldsStacked | kFieldsSwapped)) != 0;
}

uint32_t WidthOf(const VCIDEntry& entry, const FrameFormat& format) {
  const uint32_t width = format.rasterWord == 1 ? FullWidthOf(entry) : entry.width;
  return width / format.resolution;
}

// Quarter size planes of low bits.
ptrdiff_t LowPlaneBytes(const FrameFormat& format, ptrdiff_t bytes) {
  return format.sampleType == kSamples10_2_8 ? bytes / 4 : 0;
}

}  // namespace

uint32_t BytesPerPixel(uint32_t pixelLayout, uint32_t sampleType) {
  uint32_t samples = 0;
  if (pixelLayout == 1) samples = 1;
  if (pixelLayout == kLayoutRgb) samples = 4;
  if (pixelLayout == kLayoutYCbCr || pixelLayout == kLayoutYCbCr4) samples = 2;
  switch (sampleType) {
    case kSamples8:
    case kSamples10_2_8:
      return samples;
    case kSamples16:
    case kSamples10_6:
    case kSamples2_14:
    case kSamplesSigned16:
      return 2 * samples;
    case kSamplesFloat:
      return 4 * samples;
    default:
      return 0;
  }
}

// The thin rasters are those of 1440 and 960 samples a line; no other row has these widths.
uint32_t FullWidthOf(const VCIDEntry& entry) {
  const bool thin = entry.width == 1440 || entry.width == 960;
  return thin ? entry.width / 3u * 4 : entry.width;
}

uint32_t LineBytes(const VCIDEntry& entry, const FrameFormat& format) {
  const uint32_t width = WidthOf(entry, format);
  if (format.sampleType == kSamplesV210) return (width + 5) / 6 * 16;
  return width * BytesPerPixel(format.pixelLayout, format.sampleType);
}

FrameRaster RasterOf(const VCIDEntry& entry, const FrameFormat& format) {
  FrameRaster raster{};
  raster.width = WidthOf(entry, format);
  raster.lines = entry.lines / format.resolution / (HasOneField(format.fieldLayout) ? 2u : 1u);
  raster.resampled = raster.width != entry.width / format.resolution;
  raster.pictures = GeometryOf(entry).pictures;
  raster.rowBytes = format.rowBytes;
  if (raster.rowBytes == 0) {
    const uint32_t v210 = (raster.width + kV210Pixels - 1) / kV210Pixels * kV210Bytes;
    raster.rowBytes =
        static_cast<int32_t>(format.sampleType == kSamplesV210 ? v210 : LineBytes(entry, format));
  }
  return raster;
}

size_t BufferBytes(const VCIDEntry& entry, const FrameFormat& format) {
  const FrameRaster raster = RasterOf(entry, format);
  const ptrdiff_t bytes = std::abs(ptrdiff_t{raster.rowBytes}) * ptrdiff_t{raster.lines};
  const ptrdiff_t gap = AreStacked(format.fieldLayout) ? format.fieldGap : 0;
  return static_cast<size_t>(bytes + LowPlaneBytes(format, bytes) + gap);
}

Pictures WantedPictures(const FrameFormat& format) {
  if ((format.fieldLayout & kFirstFieldOnly) != 0) return Pictures::kFirstOnly;
  if ((format.fieldLayout & kSecondFieldOnly) != 0) return Pictures::kSecondOnly;
  return Pictures::kAll;
}

FrameLayout::FrameLayout(const VCIDEntry& entry, const FrameFormat& format)
    : raster_(RasterOf(entry, format)), rowLines_(16 / format.resolution) {
  const ptrdiff_t row = raster_.rowBytes;
  const bool low = format.sampleType == kSamples10_2_8;
  const ptrdiff_t field = row * ptrdiff_t{raster_.lines / 2};
  if (HasOneField(format.fieldLayout)) {
    step_ = row;
    const size_t there = (format.fieldLayout & kSecondFieldOnly) != 0 ? 1 : 0;
    fields_[there].present = true;
    fields_[0].high = fields_[1].high = low ? row * ptrdiff_t{raster_.lines} / 4 : 0;
  } else if (AreStacked(format.fieldLayout)) {
    step_ = row;
    const size_t second = (format.fieldLayout & kFieldsSwapped) != 0 ? 0 : 1;
    const ptrdiff_t gap = row < 0 ? -ptrdiff_t{format.fieldGap} : ptrdiff_t{format.fieldGap};
    fields_[second].low = field + (low ? field / 4 : 0) + gap;
    for (Field& one : fields_) {
      one.present = true;
      one.high = one.low + (low ? field / 4 : 0);
    }
  } else {
    step_ = 2 * row;
    fields_[0].high = low ? row * ptrdiff_t{raster_.lines} / 4 : 0;
    fields_[1].high = fields_[0].high + row;
    fields_[1].low = row / 4;
    fields_[0].present = fields_[1].present = true;
  }
  twoPlanes_ = low;
}

}  // namespace zel::dnxhd
