#include "tools/zel/dnxhd/frame_form.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstring>

namespace zel::tool {
namespace {

using Layout = FrameForm::Layout;

constexpr uint32_t k8 = 1;
constexpr uint32_t k10_6 = 4;
constexpr uint32_t k2_14 = 8;
constexpr uint32_t kSigned16 = 16;
constexpr uint32_t kFloat = 32;
constexpr uint32_t k10_2_8 = 64;
constexpr uint32_t kV210 = 1024;

constexpr uint32_t kRgb = 2;
constexpr uint32_t kYCbCr = 8;
constexpr uint32_t kAlphaFirst = 8;  // in bytes: blue first
constexpr uint32_t kRedFirst = 4;

// The first planar row of a sampling is the one of Y4M streams. Samples of 4:4:4 go through the
// codec's fixed-point RGB, which holds colours outside of the RGB cube as well.
constexpr FrameForm kForms[] = {
    {"yuv422p", "planar 4:2:2, 8 bits", Layout::kPlanar422, 8, k8, kYCbCr, 2},
    {"yuv422p10", "planar 4:2:2, 10 bits in two bytes", Layout::kPlanar422, 10, k10_6, kYCbCr, 2},
    {"yuv444p", "planar 4:4:4, 8 bits", Layout::kPlanar444, 8, k2_14, kRgb, kRedFirst},
    {"yuv444p10", "planar 4:4:4, 10 bits in two bytes", Layout::kPlanar444, 10, k2_14, kRgb,
     kRedFirst},
    {"uyvy", "Cb Y Cr Y, 8 bits", Layout::kPacked, 0, k8, kYCbCr, 2},
    {"uyvy10", "Cb Y Cr Y, 16-bit words with the value in the top 10 bits", Layout::kPacked, 0,
     k10_6, kYCbCr, 2},
    {"uyvy2.14", "Cb Y Cr Y, 16-bit fixed point with 14 fraction bits", Layout::kPacked, 0, k2_14,
     kYCbCr, 2},
    {"uyvyf32", "Cb Y Cr Y, 32-bit floating point", Layout::kPacked, 0, kFloat, kYCbCr, 2},
    {"uyvy2+8", "Cb Y Cr Y, a plane of the low 2 bits and one of the top 8", Layout::kPacked, 0,
     k10_2_8, kYCbCr, 2},
    {"v210", "6 pixels of 10 bits in 16 bytes, lines of a multiple of 48 pixels", Layout::kPacked,
     0, kV210, kYCbCr, 2},
    {"rgb24", "R G B, 8 bits", Layout::kRgb24, 0, k8, kRgb, kRedFirst},
    {"rgba", "R G B A, 8 bits", Layout::kPacked, 0, k8, kRgb, kRedFirst},
    {"bgra", "B G R A, 8 bits", Layout::kPacked, 0, k8, kRgb, kAlphaFirst},
    {"rgba10", "R G B A, 16-bit words with the value in the top 10 bits", Layout::kPacked, 0, k10_6,
     kRgb, kRedFirst},
    {"argb64", "A R G B, signed 16-bit words, 32767 is white", Layout::kPacked, 0, kSigned16, kRgb,
     kAlphaFirst},
    {"rgba64", "R G B A, signed 16-bit words, 32767 is white", Layout::kPacked, 0, kSigned16, kRgb,
     kRedFirst},
    {"rgba2.14", "R G B A, 16-bit fixed point with 14 fraction bits", Layout::kPacked, 0, k2_14,
     kRgb, kRedFirst},
};

size_t planarSampleBytes(const FrameForm& form) {
  return form.depth > 8 ? 2 : 1;
}

// Samples of planes, whatever their depth.
class Plane {
 public:
  Plane(const FrameForm& form, std::span<const uint8_t> bytes)
      : wide_(form.depth > 8), bytes_(bytes) {}
  uint32_t operator[](size_t i) const {
    return wide_ ? uint32_t{bytes_[2 * i]} | uint32_t{bytes_[2 * i + 1]} << 8 : bytes_[i];
  }

 private:
  bool wide_;
  std::span<const uint8_t> bytes_;
};

class PlaneWriter {
 public:
  PlaneWriter(const FrameForm& form, std::span<uint8_t> bytes)
      : wide_(form.depth > 8), bytes_(bytes) {}
  void set(size_t i, uint32_t value) {
    if (!wide_) {
      bytes_[i] = static_cast<uint8_t>(value);
      return;
    }
    bytes_[2 * i] = static_cast<uint8_t>(value);
    bytes_[2 * i + 1] = static_cast<uint8_t>(value >> 8);
  }

 private:
  bool wide_;
  std::span<uint8_t> bytes_;
};

template <class Byte>
struct ThreePlanes {
  std::span<Byte> y, cb, cr;
};

template <class Byte>
ThreePlanes<Byte> planesOf(const FrameForm& form, size_t lumaSamples, std::span<Byte> file) {
  const size_t luma = lumaSamples * planarSampleBytes(form);
  const size_t chroma = form.layout == Layout::kPlanar422 ? luma / 2 : luma;
  return {file.first(luma), file.subspan(luma, chroma), file.subspan(luma + chroma, chroma)};
}

void pack422(const FrameForm& form, size_t samples, std::span<const uint8_t> file,
             std::span<uint8_t> buffer) {
  const auto planes = planesOf(form, samples, file);
  const Plane y(form, planes.y);
  const Plane cb(form, planes.cb);
  const Plane cr(form, planes.cr);
  if (form.depth == 8) {
    for (size_t i = 0; i < samples / 2; ++i) {
      buffer[4 * i] = static_cast<uint8_t>(cb[i]);
      buffer[4 * i + 1] = static_cast<uint8_t>(y[2 * i]);
      buffer[4 * i + 2] = static_cast<uint8_t>(cr[i]);
      buffer[4 * i + 3] = static_cast<uint8_t>(y[2 * i + 1]);
    }
    return;
  }
  const auto put = [&buffer](size_t i, uint32_t value) {
    const auto word = static_cast<uint16_t>(value << 6);
    std::memcpy(buffer.data() + 2 * i, &word, sizeof word);
  };
  for (size_t i = 0; i < samples / 2; ++i) {
    put(4 * i, cb[i]);
    put(4 * i + 1, y[2 * i]);
    put(4 * i + 2, cr[i]);
    put(4 * i + 3, y[2 * i + 1]);
  }
}

void unpack422(const FrameForm& form, size_t samples, std::span<const uint8_t> buffer,
               std::span<uint8_t> file) {
  const auto planes = planesOf(form, samples, file);
  PlaneWriter y(form, planes.y);
  PlaneWriter cb(form, planes.cb);
  PlaneWriter cr(form, planes.cr);
  const auto get = [&](size_t i) -> uint32_t {
    if (form.depth == 8) return buffer[i];
    uint16_t word = 0;
    std::memcpy(&word, buffer.data() + 2 * i, sizeof word);
    return word >> 6;
  };
  for (size_t i = 0; i < samples / 2; ++i) {
    cb.set(i, get(4 * i));
    y.set(2 * i, get(4 * i + 1));
    cr.set(i, get(4 * i + 2));
    y.set(2 * i + 1, get(4 * i + 3));
  }
}

// ITU-R BT.709: codes of video range to R'G'B' from 0 to 1, and back.
struct VideoRange {
  double black, luma, middle, chroma;
  explicit VideoRange(int depth)
      : black(16 << (depth - 8)),
        luma(219 << (depth - 8)),
        middle(128 << (depth - 8)),
        chroma(224 << (depth - 8)) {}
};
constexpr double kRedShare = 0.2126;
constexpr double kBlueShare = 0.0722;
constexpr double kGreenShare = 1 - kRedShare - kBlueShare;
constexpr double kOne = 16384;

int16_t fixedOf(double value) {
  return static_cast<int16_t>(std::clamp(std::lround(value * kOne), -32768L, 32767L));
}

void pack444(const FrameForm& form, size_t samples, std::span<const uint8_t> file,
             std::span<uint8_t> buffer) {
  const auto planes = planesOf(form, samples, file);
  const Plane y(form, planes.y);
  const Plane cb(form, planes.cb);
  const Plane cr(form, planes.cr);
  const VideoRange range(form.depth);
  for (size_t i = 0; i < samples; ++i) {
    const double luma = (y[i] - range.black) / range.luma;
    const double blue = luma + (cb[i] - range.middle) / range.chroma * 2 * (1 - kBlueShare);
    const double red = luma + (cr[i] - range.middle) / range.chroma * 2 * (1 - kRedShare);
    const double green = (luma - kRedShare * red - kBlueShare * blue) / kGreenShare;
    const int16_t pixel[4] = {fixedOf(red), fixedOf(green), fixedOf(blue),
                              static_cast<int16_t>(kOne)};
    std::memcpy(buffer.data() + i * sizeof pixel, pixel, sizeof pixel);
  }
}

void unpack444(const FrameForm& form, size_t samples, std::span<const uint8_t> buffer,
               std::span<uint8_t> file) {
  const auto planes = planesOf(form, samples, file);
  PlaneWriter y(form, planes.y);
  PlaneWriter cb(form, planes.cb);
  PlaneWriter cr(form, planes.cr);
  const VideoRange range(form.depth);
  const long most = (1L << form.depth) - 1;
  const auto code = [most](double value) {
    return static_cast<uint32_t>(std::clamp(std::lround(value), 0L, most));
  };
  for (size_t i = 0; i < samples; ++i) {
    int16_t pixel[4];
    std::memcpy(pixel, buffer.data() + i * sizeof pixel, sizeof pixel);
    const double red = pixel[0] / kOne;
    const double green = pixel[1] / kOne;
    const double blue = pixel[2] / kOne;
    const double luma = kRedShare * red + kGreenShare * green + kBlueShare * blue;
    y.set(i, code(luma * range.luma + range.black));
    cb.set(i, code((blue - luma) / (2 * (1 - kBlueShare)) * range.chroma + range.middle));
    cr.set(i, code((red - luma) / (2 * (1 - kRedShare)) * range.chroma + range.middle));
  }
}

}  // namespace

std::span<const FrameForm> frameForms() {
  return kForms;
}

const FrameForm* findFrameForm(std::string_view name) {
  const auto* const found =
      std::ranges::find_if(kForms, [name](const FrameForm& row) { return row.name == name; });
  return found == std::end(kForms) ? nullptr : found;
}

const FrameForm* formOfY4m(const media::Y4mChroma& chroma) {
  if (chroma.planes != 3 || chroma.verticalShift != 0 || chroma.horizontalShift > 1) return nullptr;
  const Layout layout = chroma.horizontalShift == 1 ? Layout::kPlanar422 : Layout::kPlanar444;
  const auto* const found = std::ranges::find_if(kForms, [&](const FrameForm& row) {
    return row.layout == layout && row.depth == chroma.depth;
  });
  return found == std::end(kForms) ? nullptr : found;
}

const media::Y4mChroma* y4mOfForm(const FrameForm& form) {
  if (!form.isPlanar()) return nullptr;
  return media::chooseY4mChroma(form.depth, form.layout == Layout::kPlanar422 ? 1 : 0, 0, 3);
}

Morvalen::Zel::UnCompInfo recordOf(const FrameForm& form) {
  Morvalen::Zel::UnCompInfo record;
  record.pixelLayout = form.pixelLayout;
  record.formatWord = form.formatWord;
  record.componentCount = form.isRgbForCodec() ? 4 : 1;
  record.sampleType = form.sampleType;
  return record;
}

size_t fileFrameBytes(const FrameForm& form, uint32_t width, uint32_t lines) {
  const size_t pixels = size_t{width} * lines;
  switch (form.layout) {
    case Layout::kPlanar422:
      return pixels * 2 * planarSampleBytes(form);
    case Layout::kPlanar444:
      return pixels * 3 * planarSampleBytes(form);
    case Layout::kRgb24:
      return pixels * 3;
    case Layout::kPacked:
      break;
  }
  if (form.sampleType == kV210) return size_t{(width + 47) / 48} * 128 * lines;
  const size_t pixelBytes = form.isRgbForCodec() ? 4 : 2;
  switch (form.sampleType) {
    case k8:
      return pixels * pixelBytes;
    case k10_2_8:
      return pixels * pixelBytes * 5 / 4;
    case kFloat:
      return pixels * pixelBytes * 4;
    default:
      return pixels * pixelBytes * 2;
  }
}

void packForCodec(const FrameForm& form, uint32_t width, uint32_t lines,
                  std::span<const uint8_t> file, std::span<uint8_t> buffer) {
  assert(form.layout != Layout::kPacked);
  const size_t pixels = size_t{width} * lines;
  if (form.layout == Layout::kPlanar422) return pack422(form, pixels, file, buffer);
  if (form.layout == Layout::kPlanar444) return pack444(form, pixels, file, buffer);
  for (size_t i = 0; i < pixels; ++i) {
    for (size_t component = 0; component < 3; ++component)
      buffer[4 * i + component] = file[3 * i + component];
    buffer[4 * i + 3] = 255;
  }
}

void unpackFromCodec(const FrameForm& form, uint32_t width, uint32_t lines,
                     std::span<const uint8_t> buffer, std::span<uint8_t> file) {
  assert(form.layout != Layout::kPacked);
  const size_t pixels = size_t{width} * lines;
  if (form.layout == Layout::kPlanar422) return unpack422(form, pixels, buffer, file);
  if (form.layout == Layout::kPlanar444) return unpack444(form, pixels, buffer, file);
  for (size_t i = 0; i < pixels; ++i) {
    for (size_t component = 0; component < 3; ++component)
      file[3 * i + component] = buffer[4 * i + component];
  }
}

}  // namespace zel::tool
