// Macroblocks of 4:4:4 that are G, B and R, and such that are Y, Cb and Cr, in one frame.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/seed.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/bitstream/row_writer.h"
#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/encoder/quant_tables.h"
#include "zel/dnxhd/formatters/frame_formatter.h"

namespace zel::dnxhd {
namespace {

constexpr size_t kMacroblock = 12 * kBlockCoefficients;

struct Colour {
  int red, green, blue;  // codes of 10 bits, full range
};

// Colours that no component has alone, with slopes.
Colour colourAt(size_t x, size_t y) {
  const auto wave = [](double at) { return static_cast<int>(std::lround(511.5 + 500 * at)); };
  const auto across = static_cast<double>(x);
  const auto down = static_cast<double>(y);
  return {wave(std::sin(across / 90)), wave(std::sin(down / 70)),
          wave(std::cos((across + down) / 110))};
}

// ITU-R BT.709 in double precision.
std::array<int, 3> coded(const Colour& colour, bool asYCbCr) {
  if (!asYCbCr) return {colour.green - 512, colour.blue - 512, colour.red - 512};
  const double red = colour.red / 1023.0, green = colour.green / 1023.0,
               blue = colour.blue / 1023.0;
  const double luma = 0.2126 * red + 0.7152 * green + 0.0722 * blue;
  return {static_cast<int>(std::lround(64 + 876 * luma)) - 512,
          static_cast<int>(std::lround(896 * (blue - luma) / 1.8556)),
          static_cast<int>(std::lround(896 * (red - luma) / 1.5748))};
}

// A frame at step 1, `flags` as mbColorFlag: 0 for Y, Cb and Cr.
std::vector<uint8_t> frameOf(const VCIDEntry& entry, const std::vector<uint32_t>& flags) {
  const PictureGeometry geometry = GeometryOf(entry);
  std::vector<uint8_t> frame(entry.frameBytes);
  const RowWriter writer(entry);
  const std::vector<uint16_t> steps(geometry.mbCols, 0);
  const std::vector<uint32_t> noFields(geometry.mbCols, 0);
  const test::AlignedBytes memory(geometry.mbCols * kMacroblock * 2 * sizeof(int16_t));
  auto* const samples = reinterpret_cast<int16_t*>(memory.bytes().data());
  int16_t* const weighed = samples + geometry.mbCols * kMacroblock;
  for (uint32_t picture = 0; picture < geometry.pictures; ++picture) {
    const auto bytes =
        std::span(frame).subspan(picture * geometry.pictureBytes, geometry.pictureBytes);
    WriteFrameHeader(
        entry,
        geometry.pictures == 1 ? kProgressivePicture : (picture == 0 ? kFirstField : kSecondField),
        bytes.first<kHeaderBytes>());
    size_t used = kHeaderBytes;
    for (size_t row = 0; row < geometry.mbRows; ++row) {
      const size_t first = (picture * geometry.mbRows + row) * geometry.mbCols;
      for (size_t i = 0; i < geometry.mbCols * kMacroblock; ++i) {
        const size_t column = i / kMacroblock;
        const size_t block = i / 64 % 12;
        const size_t x = column * 16 + block % 2 * 8 + i % 8;
        const size_t y = row * 16 + block / 6 * 8 + i % 64 / 8;
        const auto values =
            coded(colourAt(x, y * geometry.pictures + picture), flags[first + column] == 0);
        samples[i] = static_cast<int16_t>(values[block % 6 / 2]);
      }
      const size_t blocks = geometry.mbCols * 12;
      ScalarTransformKernels().forward(samples, blocks);
      ScalarCoefficientKernels().weigh(samples, weighed, blocks, LumaWeighing(entry));
      SetRowOffset(bytes.first<kHeaderBytes>(), row, static_cast<uint32_t>(used - kHeaderBytes));
      size_t written = 0;
      EXPECT_EQ(writer.Write({weighed, steps.data(), true, flags.data() + first, noFields.data()},
                             bytes.subspan(used), written),
                kSuccessful);
      used += written;
    }
    EXPECT_EQ(FinishPicture(bytes, used), kSuccessful);
  }
  return frame;
}

// Of all pixels, in codes of 10 bits.
int largestError(const VCIDEntry& entry, std::span<const uint8_t> frame) {
  FrameFormat format;
  format.pixelLayout = kLayoutRgb;
  format.formatWord = 4;  // R, G, B, A
  format.sampleType = kSamples10_6;
  std::unique_ptr<DecodeFormatter> formatter;
  EXPECT_EQ(DecodeFormatter::Make(entry, format, formatter), kSuccessful);
  std::vector<uint16_t> out(BufferBytes(entry, format) / 2);
  FrameTaker taker(*formatter, out.data());
  SerialRowRunner runner;
  EXPECT_EQ(FrameDecoder(entry, 1, runner).Decode(frame, Pictures::kAll, taker), kSuccessful);
  int largest = 0;
  for (size_t i = 0; i + 3 < out.size(); i += 4) {
    const Colour colour = colourAt(i / 4 % entry.width, i / 4 / entry.width);
    largest = std::max({largest, std::abs((out[i] >> 6) - colour.red),
                        std::abs((out[i + 1] >> 6) - colour.green),
                        std::abs((out[i + 2] >> 6) - colour.blue)});
  }
  return largest;
}

TEST(ColourFlags, MayChangeFromMacroblockToMacroblock) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t id : {1256u, 1257u}) {
    const VCIDEntry& entry = *FindEntry(id);
    const PictureGeometry geometry = GeometryOf(entry);
    const size_t count = size_t{geometry.pictures} * geometry.mbRows * geometry.mbCols;
    std::vector<std::vector<uint32_t>> forms = {std::vector<uint32_t>(count, 0),
                                                std::vector<uint32_t>(count, 1)};
    forms.emplace_back(count);
    for (uint32_t& flag : forms.back()) flag = random() % 2 != 0 ? 0 : 5;
    for (const std::vector<uint32_t>& flags : forms) {
      const std::vector<uint8_t> frame = frameOf(entry, flags);
      const test::AlignedBytes aligned(frame.size());
      std::copy(frame.begin(), frame.end(), aligned.bytes().begin());
      EXPECT_EQ(CheckFrame(id, aligned.bytes()), kSuccessful);
      // Rounding in Y, Cb and Cr of video range, and step 1: a few codes of 1023.
      EXPECT_LE(largestError(entry, frame), 6) << id;
    }
  }
}

}  // namespace
}  // namespace zel::dnxhd
