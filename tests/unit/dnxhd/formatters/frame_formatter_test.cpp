#include "zel/dnxhd/formatters/frame_formatter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/seed.h"
#include "tests/support/vector_targets.h"
#include "zel/dnxhd/formatters/block_lines.h"
#include "zel/dnxhd/formatters/resampler.h"

namespace zel::dnxhd {
namespace {

constexpr uint8_t kGuard = 0x5C;
constexpr uint32_t kIds[] = {1235, 1237, 1241, 1242, 1244, 1250,  1251, 1253,
                             1256, 1257, 1258, 1259, 1260, 32773, 36864};

const VCIDEntry& entryOf(uint32_t id) {
  return *FindEntry(id);
}

size_t blocksOf(const VCIDEntry& entry) {
  return IsRgbFamily(entry) ? 12 : 8;
}

// A frame in a buffer with guard bytes around it, at any address.
class Buffer {
 public:
  Buffer(const VCIDEntry& entry, const FrameFormat& format, size_t shift = 0)
      : size_(BufferBytes(entry, format)), at_(kMargin + shift), bytes_(size_ + 2 * kMargin + 64) {
    std::fill(bytes_.begin(), bytes_.end(), kGuard);
    const int32_t row = RasterOf(entry, format).rowBytes;
    // A picture on its head starts with the last line of the buffer.
    if (row < 0) first_ = size_ - static_cast<size_t>(-row);
  }
  uint8_t* frame() { return bytes_.data() + at_ + first_; }
  std::span<uint8_t> bytes() { return std::span(bytes_).subspan(at_, size_); }
  bool guardsStand() const {
    const auto is = [](uint8_t byte) { return byte == kGuard; };
    return std::all_of(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(at_), is) &&
           std::all_of(bytes_.begin() + static_cast<ptrdiff_t>(at_ + size_), bytes_.end(), is);
  }

 private:
  static constexpr size_t kMargin = 256;
  size_t size_;
  size_t at_;
  size_t first_ = 0;
  std::vector<uint8_t> bytes_;
};

// Rows as they come from the application go back to it as if they had been coded.
class Loop {
 public:
  Loop(const VCIDEntry& entry, const FrameFormat& in, const FrameFormat& out)
      : entry_(entry),
        geometry_(GeometryOf(entry)),
        flags_(geometry_.mbCols, {true, false}),
        blocks_(geometry_.mbCols * blocksOf(entry) * 64 + 8) {
    EXPECT_EQ(EncodeFormatter::Make(entry, in, encode_), kSuccessful);
    EXPECT_EQ(DecodeFormatter::Make(entry, out, decode_), kSuccessful);
  }

  int16_t* fetch(const void* frame, size_t picture, size_t row) {
    auto* const aligned = reinterpret_cast<int16_t*>(
        (reinterpret_cast<uintptr_t>(blocks_.data()) + 15) & ~uintptr_t{15});
    EXPECT_EQ(encode_->FetchRow(frame, picture, row, aligned), kSuccessful);
    return aligned;
  }

  void write(int16_t* blocks, size_t picture, size_t row, void* frame, size_t blockSize = 8) {
    const bool last = row + 1 == geometry_.mbRows && geometry_.bottomPad != 0;
    const DecodedRow decoded = {blocks,    flags_.data(),      geometry_.mbCols, blocksOf(entry_),
                                blockSize, entry_.depth,       picture,          row,
                                last,      geometry_.bottomPad};
    EXPECT_EQ(decode_->WriteRow(decoded, frame), kSuccessful);
  }

  void run(const void* from, void* to) {
    for (size_t picture = 0; picture < geometry_.pictures; ++picture) {
      for (size_t row = 0; row < geometry_.mbRows; ++row) {
        write(fetch(from, picture, row), picture, row, to);
      }
    }
  }

  const PictureGeometry& geometry() const { return geometry_; }
  MacroblockFlags* flags() { return flags_.data(); }

 private:
  const VCIDEntry& entry_;
  const PictureGeometry geometry_;
  std::unique_ptr<EncodeFormatter> encode_;
  std::unique_ptr<DecodeFormatter> decode_;
  std::vector<MacroblockFlags> flags_;
  std::vector<int16_t> blocks_;
};

void fillWithAnything(std::span<uint8_t> bytes, std::mt19937_64& random) {
  for (size_t i = 0; i < bytes.size(); i += 8) {
    const uint64_t eight = random();
    std::memcpy(bytes.data() + i, &eight, std::min<size_t>(8, bytes.size() - i));
  }
}

// Buffers that hold what both depths hold: codes of 8 bits.
void fillWithBytes(std::span<uint8_t> bytes, uint32_t sampleType, std::mt19937_64& random) {
  if (sampleType == kSamples8) {
    fillWithAnything(bytes, random);
  } else if (sampleType == kSamples10_6) {
    for (size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = i % 2 == 0 ? uint8_t{0} : static_cast<uint8_t>(random());
    }
  } else {
    for (size_t i = 0; i + 3 < bytes.size(); i += 4) {
      uint32_t word = 0;
      for (int third = 0; third < 3; ++third) {
        word |= static_cast<uint32_t>(random() % 256 * 4) << (10 * third);
      }
      std::memcpy(bytes.data() + i, &word, 4);
    }
  }
}

struct Layout {
  uint32_t fieldLayout;
  int32_t extraRowBytes;
  int32_t fieldGap;
  bool onItsHead;
};
constexpr Layout kLayouts[] = {{64, 0, 0, false}, {1, 32, 0, false},  {2, 0, 0, true},
                               {4, 0, 48, false}, {128, 16, 0, true}, {8, 0, 0, false},
                               {256, 0, 16, true}};

TEST(FrameFormatter, WhatGoesInComesOut) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t id : kIds) {
    const VCIDEntry& entry = entryOf(id);
    if (IsRgbFamily(entry)) continue;
    for (const uint32_t type : {kSamples8, kSamples10_6, kSamplesV210}) {
      for (const Layout& layout : kLayouts) {
        // Every layout with every type would take its time.
        if (type != kSamples8 && layout.fieldLayout > 1 && entry.width != 1280) continue;
        SCOPED_TRACE(std::to_string(id) + " type " + std::to_string(type) + " fields " +
                     std::to_string(layout.fieldLayout));
        FrameFormat format;
        format.sampleType = type;
        format.fieldLayout = layout.fieldLayout;
        format.fieldGap = layout.fieldGap;
        format.rasterWord = 4;
        format.rowBytes = RasterOf(entry, format).rowBytes + layout.extraRowBytes;
        if (layout.onItsHead) format.rowBytes = -format.rowBytes;
        Buffer in(entry, format, random() % 64);
        Buffer out(entry, format, random() % 64);
        fillWithBytes(in.bytes(), type, random);
        Loop loop(entry, format, format);
        loop.run(in.frame(), out.frame());
        EXPECT_TRUE(out.guardsStand());
        // What no pixel covers stays as it was.
        const size_t row = static_cast<size_t>(std::abs(format.rowBytes));
        const size_t used = LineBytes(entry, format);
        // The last group of a line may hold more than pixels.
        const size_t whole = type == kSamplesV210 ? entry.width / 6u * 16 : used;
        const size_t gapAt = layout.fieldGap == 0 ? ~size_t{0} : entry.lines / 2u * row;
        size_t lines = 0;
        for (size_t at = 0; at + row <= in.bytes().size(); at += row) {
          if (at == gapAt) at += static_cast<size_t>(layout.fieldGap);
          ASSERT_TRUE(std::equal(in.bytes().begin() + static_cast<ptrdiff_t>(at),
                                 in.bytes().begin() + static_cast<ptrdiff_t>(at + whole),
                                 out.bytes().begin() + static_cast<ptrdiff_t>(at)))
              << "line " << lines;
          for (size_t i = used; i < row; ++i) ASSERT_EQ(out.bytes()[at + i], kGuard);
          ++lines;
        }
        EXPECT_EQ(lines, entry.lines);
      }
    }
  }
}

TEST(FrameFormatter, TwoPlanesLieOneBehindTheOther) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t id : {1235u, 1241u, 1250u}) {
    const VCIDEntry& entry = entryOf(id);
    for (const uint32_t fieldLayout : {64u, 4u, 8u}) {
      FrameFormat format;
      format.sampleType = kSamples10_2_8;
      format.fieldLayout = fieldLayout;
      Buffer in(entry, format);
      Buffer out(entry, format);
      const size_t row = size_t{2} * entry.width;
      ASSERT_EQ(in.bytes().size(), row * entry.lines * 5 / 4);
      fillWithAnything(in.bytes(), random);
      Loop loop(entry, format, format);
      loop.run(in.frame(), out.frame());
      EXPECT_TRUE(out.guardsStand());
      EXPECT_TRUE(std::equal(in.bytes().begin(), in.bytes().end(), out.bytes().begin()));

      // The first sample of the first line, in the low plane's first byte and behind that plane.
      const size_t planeOf = fieldLayout == 64 ? entry.lines : entry.lines / 2;
      const size_t high = planeOf * row / 4;
      const int code = in.bytes()[high] << 2 | in.bytes()[0] >> 6;
      const size_t topField = fieldLayout == 8 && loop.geometry().pictures == 2 ? 1 : 0;
      const int16_t* const blocks = loop.fetch(in.frame(), topField, 0);
      if (fieldLayout != 8 || loop.geometry().pictures == 2) {
        EXPECT_EQ(blocks[256] + 512, code) << id << " " << fieldLayout;
      }
    }
  }
}

TEST(FrameFormatter, OneFieldServesBothAndIsWrittenAlone) {
  std::mt19937_64 random(test::testSeed());
  const VCIDEntry& entry = entryOf(1242);
  for (const uint32_t fieldLayout : {16u, 512u, 32u}) {
    FrameFormat format;
    format.fieldLayout = fieldLayout;
    Buffer in(entry, format);
    ASSERT_EQ(in.bytes().size(), size_t{1920} * 2 * 540);
    fillWithBytes(in.bytes(), kSamples8, random);
    Buffer out(entry, format);
    Loop loop(entry, format, format);
    const size_t there = fieldLayout == 32 ? 1 : 0;
    for (size_t row = 0; row < loop.geometry().mbRows; ++row) {
      // The other field's row is the same, and writing it changes nothing.
      const int16_t* const blocks = loop.fetch(in.frame(), 1 - there, row);
      const std::vector<int16_t> other(blocks, blocks + size_t{120} * 512);
      int16_t* const same = loop.fetch(in.frame(), there, row);
      ASSERT_TRUE(std::equal(other.begin(), other.end(), same));
      loop.write(same, 1 - there, row, out.frame());
    }
    for (const uint8_t byte : out.bytes()) ASSERT_EQ(byte, kGuard);
    for (size_t row = 0; row < loop.geometry().mbRows; ++row) {
      loop.write(loop.fetch(in.frame(), there, row), there, row, out.frame());
    }
    EXPECT_TRUE(out.guardsStand());
    EXPECT_TRUE(std::equal(in.bytes().begin(), in.bytes().end(), out.bytes().begin()));
  }
  FrameFormat format;
  EXPECT_EQ(WantedPictures(format), Pictures::kAll);
  format.fieldLayout = 512;
  EXPECT_EQ(WantedPictures(format), Pictures::kFirstOnly);
  format.fieldLayout = 32;
  EXPECT_EQ(WantedPictures(format), Pictures::kSecondOnly);
}

// Layout and sample type of every class that there is.
std::vector<FrameFormat> formatsOf(const VCIDEntry& entry, bool input) {
  std::vector<FrameFormat> formats;
  for (const uint32_t type : {kSamples8, kSamples10_6, kSamples2_14, kSamplesSigned16,
                              kSamplesFloat, kSamples10_2_8, kSamplesV210}) {
    for (const uint32_t layout : {kLayoutRgb, kLayoutYCbCr4, kLayoutYCbCr}) {
      const bool rgb = layout == kLayoutRgb;
      if (rgb ? type > kSamplesSigned16 : type == kSamplesSigned16) continue;
      if (!rgb && input && IsRgbFamily(entry)) continue;
      for (const uint32_t formatWord : {4u, 8u}) {
        FrameFormat format;
        format.pixelLayout = layout;
        format.sampleType = type;
        format.formatWord = formatWord;
        format.tentFilter = formatWord == 4;
        formats.push_back(format);
      }
    }
  }
  return formats;
}

TEST(FrameFormatter, ScalarAndVectorClassesFetchTheSame) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t id : {1250u, 1251u, 1258u, 1256u}) {
    const VCIDEntry& entry = entryOf(id);
    const PictureGeometry geometry = GeometryOf(entry);
    for (FrameFormat format : formatsOf(entry, true)) {
      SCOPED_TRACE(std::to_string(id) + " type " + std::to_string(format.sampleType) + " layout " +
                   std::to_string(format.pixelLayout));
      Buffer in(entry, format, random() % 16);
      fillWithAnything(in.bytes(), random);
      const auto fetched = [&](bool reference) {
        format.useReference = reference;
        std::unique_ptr<EncodeFormatter> formatter;
        EXPECT_EQ(EncodeFormatter::Make(entry, format, formatter), kSuccessful);
        std::vector<int16_t> blocks(geometry.mbCols * blocksOf(entry) * 64);
        std::vector<int16_t> all;
        for (const size_t row : {size_t{0}, size_t{geometry.mbRows} - 1}) {
          EXPECT_EQ(formatter->FetchRow(in.frame(), 0, row, blocks.data()), kSuccessful);
          all.insert(all.end(), blocks.begin(), blocks.end());
        }
        return all;
      };
      const std::vector<int16_t> base = fetched(true);
      const int bound = 1 << (entry.depth - 1);
      EXPECT_GE(*std::min_element(base.begin(), base.end()), -bound);
      EXPECT_LT(*std::max_element(base.begin(), base.end()), bound);
      test::forEachVectorTarget(
          [&](const char* target) { EXPECT_TRUE(fetched(false) == base) << target; });
    }
  }
}

TEST(FrameFormatter, ScalarAndVectorClassesWriteTheSame) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t id : {1250u, 1251u, 1258u, 1256u, 1260u}) {
    const VCIDEntry& entry = entryOf(id);
    const PictureGeometry geometry = GeometryOf(entry);
    for (FrameFormat format : formatsOf(entry, false)) {
      for (const uint32_t resolution : {1u, 2u, 4u}) {
        for (const uint32_t rasterWord : {1u, 4u}) {
          if (rasterWord == 4 && FullWidthOf(entry) == entry.width) continue;
          SCOPED_TRACE(std::to_string(id) + " type " + std::to_string(format.sampleType) +
                       " layout " + std::to_string(format.pixelLayout) + " resolution " +
                       std::to_string(resolution) + " raster " + std::to_string(rasterWord));
          format.resolution = resolution;
          format.rasterWord = rasterWord;
          std::vector<int16_t> blocks(geometry.mbCols * blocksOf(entry) * 64);
          const bool wild = random() % 2 == 0;
          fillWithAnything({reinterpret_cast<uint8_t*>(blocks.data()), 2 * blocks.size()}, random);
          for (int16_t& sample : blocks) {
            if (!wild) sample = static_cast<int16_t>(sample % (1 << (entry.depth - 1)));
          }
          std::vector<MacroblockFlags> flags(geometry.mbCols, {true, false});
          for (MacroblockFlags& flag : flags) flag.color = random() % 4 == 0;
          const auto written = [&](bool reference) {
            format.useReference = reference;
            std::unique_ptr<DecodeFormatter> formatter;
            EXPECT_EQ(DecodeFormatter::Make(entry, format, formatter), kSuccessful);
            Buffer out(entry, format, random() % 16);
            for (const size_t row : {size_t{0}, size_t{geometry.mbRows} - 1}) {
              std::vector<int16_t> own = blocks;
              const DecodedRow decoded = {own.data(),
                                          flags.data(),
                                          geometry.mbCols,
                                          blocksOf(entry),
                                          HasFieldFlag(entry) ? 8 : 8 / resolution,
                                          entry.depth,
                                          0,
                                          row,
                                          row != 0 && geometry.bottomPad != 0,
                                          geometry.bottomPad};
              EXPECT_EQ(formatter->WriteRow(decoded, out.frame()), kSuccessful);
            }
            EXPECT_TRUE(out.guardsStand());
            return std::vector<uint8_t>(out.bytes().begin(), out.bytes().end());
          };
          const std::vector<uint8_t> base = written(true);
          test::forEachVectorTarget(
              [&](const char* target) { EXPECT_TRUE(written(false) == base) << target; });
        }
      }
    }
  }
}

TEST(FrameFormatter, OfTheLastRowTheLinesBelowThePictureAreFilled) {
  std::mt19937_64 random(test::testSeed());
  const struct {
    uint32_t id;
    uint32_t layout;
    uint32_t missing;
  } kCases[] = {{1237, kLayoutYCbCr, 8}, {1237, kLayoutRgb, 8}, {1241, kLayoutYCbCr, 4},
                {1244, kLayoutYCbCr, 4}, {1256, kLayoutRgb, 8}, {1252, kLayoutYCbCr, 0}};
  for (const auto& one : kCases) {
    SCOPED_TRACE(std::to_string(one.id) + " " + std::to_string(one.layout));
    const VCIDEntry& entry = entryOf(one.id);
    FrameFormat format;
    format.pixelLayout = one.layout;
    if (one.layout == kLayoutRgb) format.formatWord = 8;
    Buffer buffer(entry, format);
    fillWithAnything(buffer.bytes(), random);
    Loop loop(entry, format, format);
    const PictureGeometry& geometry = loop.geometry();
    ASSERT_EQ(geometry.bottomPad, one.missing);
    const BlockRow row = {geometry.mbCols, blocksOf(entry), 8};
    const size_t samples = row.mbCols * row.blocks * 64;
    for (size_t picture = 0; picture < geometry.pictures; ++picture) {
      for (const size_t at : {size_t{0}, size_t{geometry.mbRows} - 1}) {
        const int16_t* const fetched = loop.fetch(buffer.frame(), picture, at);
        std::vector<int16_t> filled(fetched, fetched + samples);
        FillMissingLines(filled.data(), row, geometry.bottomPad);
        // What is filled already stays as it is.
        const bool isFilled = std::equal(filled.begin(), filled.end(), fetched);
        EXPECT_EQ(isFilled, at != 0 || one.missing == 0);
      }
    }
  }
}

TEST(FrameFormatter, WhatHasNoFormatterIsRefused) {
  const struct {
    uint32_t id;
    uint32_t layout;
    uint32_t type;
    ResultWord encode;
    ResultWord decode;
  } kCases[] = {
      {1237, kLayoutYCbCr, kSamples16, kErrorInMemoryAllocation, kErrorInMemoryAllocation},
      {1237, kLayoutRgb, kSamples16, kErrorInMemoryAllocation, kErrorInMemoryAllocation},
      {1237, kLayoutRgb, kSamplesFloat, kErrorInMemoryAllocation, kErrorInMemoryAllocation},
      {1237, kLayoutRgb, kSamples10_2_8, kErrorInMemoryAllocation, kErrorInMemoryAllocation},
      {1237, kLayoutYCbCr, kSamplesSigned16, kErrorInMemoryAllocation, kErrorInMemoryAllocation},
      {1237, 1, kSamples8, kErrorInMemoryAllocation, kErrorInMemoryAllocation},
      {1256, kLayoutYCbCr, kSamples8, kErrorInMemoryAllocation, kSuccessful},
      {1256, kLayoutRgb, kSamples8, kSuccessful, kSuccessful},
      {1256, kLayoutYCbCr, kSamplesV210, kErrorInMemoryAllocation, kSuccessful},
      {1237, kLayoutYCbCr, 3, kErrorDecodeModeNotSupported, kErrorDecodeModeNotSupported},
      {1237, kLayoutYCbCr, 0, kErrorDecodeModeNotSupported, kErrorDecodeModeNotSupported},
      {1237, 3, kSamples8, kErrorDecodeModeNotSupported, kErrorDecodeModeNotSupported},
      {1237, kLayoutYCbCr, kSamplesV210, kSuccessful, kSuccessful},
  };
  for (const auto& one : kCases) {
    SCOPED_TRACE(std::to_string(one.id) + " " + std::to_string(one.layout) + " " +
                 std::to_string(one.type));
    FrameFormat format;
    format.pixelLayout = one.layout;
    format.sampleType = one.type;
    std::unique_ptr<EncodeFormatter> encode;
    EXPECT_EQ(EncodeFormatter::Make(entryOf(one.id), format, encode), one.encode);
    EXPECT_EQ(encode != nullptr, one.encode == kSuccessful);
    std::unique_ptr<DecodeFormatter> decode;
    EXPECT_EQ(DecodeFormatter::Make(entryOf(one.id), format, decode), one.decode);
    EXPECT_EQ(decode != nullptr, one.decode == kSuccessful);
  }
  FrameFormat format;
  std::unique_ptr<DecodeFormatter> decode;
  format.resolution = 3;
  EXPECT_EQ(DecodeFormatter::Make(entryOf(1237), format, decode), kErrorDecodeModeNotSupported);
  format.resolution = 1;
  format.rowBytes = 3839;
  EXPECT_EQ(DecodeFormatter::Make(entryOf(1237), format, decode), kErrorInUnCompInfo);
  format.rowBytes = -3839;
  EXPECT_EQ(DecodeFormatter::Make(entryOf(1237), format, decode), kErrorInUnCompInfo);
  format.rowBytes = 3840;
  EXPECT_EQ(DecodeFormatter::Make(entryOf(1237), format, decode), kSuccessful);
  format.fieldGap = -16;
  EXPECT_EQ(DecodeFormatter::Make(entryOf(1237), format, decode), kErrorInUnCompInfo);
}

TEST(FrameFormatter, RowsAreAsLongAsTheirPixels) {
  const struct {
    uint32_t id;
    uint32_t layout;
    uint32_t type;
    uint32_t resolution;
    uint32_t rasterWord;
    int32_t rowBytes;
    uint32_t lines;
  } kCases[] = {
      {1237, kLayoutYCbCr, kSamples8, 1, 1, 3840, 1080},
      {1237, kLayoutRgb, kSamples8, 1, 1, 7680, 1080},
      {1237, kLayoutYCbCr, kSamples10_6, 1, 1, 7680, 1080},
      {1237, kLayoutYCbCr, kSamplesFloat, 1, 1, 15360, 1080},
      {1235, kLayoutYCbCr, kSamplesV210, 1, 1, 5120, 1080},
      {1250, kLayoutYCbCr, kSamplesV210, 1, 1, 3456, 720},
      {1235, kLayoutYCbCr, kSamples10_2_8, 1, 1, 3840, 1080},
      {1244, kLayoutYCbCr, kSamples8, 1, 1, 3840, 1080},
      {1244, kLayoutYCbCr, kSamples8, 1, 4, 2880, 1080},
      {1258, kLayoutYCbCr, kSamples8, 1, 1, 2560, 720},
      {1258, kLayoutYCbCr, kSamples8, 2, 4, 960, 360},
      {1260, kLayoutYCbCr, kSamples8, 4, 1, 960, 270},
  };
  for (const auto& one : kCases) {
    FrameFormat format;
    format.pixelLayout = one.layout;
    format.sampleType = one.type;
    format.resolution = one.resolution;
    format.rasterWord = one.rasterWord;
    const FrameRaster raster = RasterOf(entryOf(one.id), format);
    EXPECT_EQ(raster.rowBytes, one.rowBytes) << one.id;
    EXPECT_EQ(raster.lines, one.lines) << one.id;
  }
}

// Flat colours keep their value at every size, and through every resampler.
TEST(FrameFormatter, FlatPicturesStayFlatAtEverySize) {
  for (const uint32_t id : kIds) {
    const VCIDEntry& entry = entryOf(id);
    const PictureGeometry geometry = GeometryOf(entry);
    for (const uint32_t resolution : {1u, 2u, 4u}) {
      for (const uint32_t rasterWord : {1u, 4u}) {
        SCOPED_TRACE(std::to_string(id) + " at 1/" + std::to_string(resolution) + " raster " +
                     std::to_string(rasterWord));
        FrameFormat format;
        format.resolution = resolution;
        format.rasterWord = rasterWord;
        std::unique_ptr<DecodeFormatter> formatter;
        ASSERT_EQ(DecodeFormatter::Make(entry, format, formatter), kSuccessful);
        Buffer out(entry, format);
        const int scale = entry.depth == 10 ? 4 : 1;
        std::vector<MacroblockFlags> flags(geometry.mbCols, {true, false});
        for (size_t picture = 0; picture < geometry.pictures; ++picture) {
          for (size_t row = 0; row < geometry.mbRows; ++row) {
            std::vector<int16_t> blocks(geometry.mbCols * blocksOf(entry) * 64);
            for (size_t i = 0; i < blocks.size(); ++i) {
              const size_t block = i / 64 % blocksOf(entry);
              const size_t component =
                  IsRgbFamily(entry) ? block % 6 / 2 : (block < 4 ? 0 : block / 2 - 1);
              constexpr int kCodes[] = {77, 140, 33};
              blocks[i] = static_cast<int16_t>(scale * (kCodes[component] - 128));
            }
            const DecodedRow decoded = {blocks.data(),
                                        flags.data(),
                                        geometry.mbCols,
                                        blocksOf(entry),
                                        HasFieldFlag(entry) ? 8 : 8 / resolution,
                                        entry.depth,
                                        picture,
                                        row,
                                        row + 1 == geometry.mbRows,
                                        geometry.bottomPad};
            ASSERT_EQ(formatter->WriteRow(decoded, out.frame()), kSuccessful);
          }
        }
        EXPECT_TRUE(out.guardsStand());
        constexpr uint8_t kPixels[] = {140, 77, 33, 77};
        size_t wrong = 0;
        for (size_t i = 0; i < out.bytes().size(); ++i) wrong += out.bytes()[i] != kPixels[i % 4];
        EXPECT_EQ(wrong, 0u);
      }
    }
  }
}

TEST(FrameFormatter, ThinRastersKeepTheirPicture) {
  // A wave of 40 pixels goes through both resamplings; the ends of the line are a little off.
  for (const uint32_t id : {1244u, 1258u, 1259u, 1260u}) {
    const VCIDEntry& entry = entryOf(id);
    FrameFormat format;
    Buffer in(entry, format);
    Buffer out(entry, format);
    const auto row = static_cast<size_t>(RasterOf(entry, format).rowBytes);
    for (size_t i = 0; i < in.bytes().size(); ++i) {
      const double x = static_cast<double>(i % row / 2);
      in.bytes()[i] = static_cast<uint8_t>(std::lround(128 + 90 * std::sin(x / 40 * 6.2831853)));
    }
    Loop loop(entry, format, format);
    loop.run(in.frame(), out.frame());
    EXPECT_TRUE(out.guardsStand());
    int largest = 0;
    for (size_t i = 0; i < in.bytes().size(); ++i) {
      const size_t x = i % row / 2;
      if (x < 16 || x >= row / 2 - 16) continue;
      largest = std::max(largest, std::abs(in.bytes()[i] - out.bytes()[i]));
    }
    EXPECT_LE(largest, 2) << id;
  }
}

// Full size goes through the long filter, the smaller ones through the short: lines of the picture
// are what that form makes of the decoded ones.
TEST(FrameFormatter, ThinRastersOfHalfAndQuarterSizeGoThroughTheDraftForm) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t id : {1244u, 1258u, 1259u}) {
    const VCIDEntry& entry = entryOf(id);
    const PictureGeometry geometry = GeometryOf(entry);
    for (const uint32_t resolution : {1u, 2u, 4u}) {
      SCOPED_TRACE(std::to_string(id) + " at 1/" + std::to_string(resolution));
      FrameFormat format;
      format.resolution = resolution;
      const FrameRaster raster = RasterOf(entry, format);
      const uint32_t thin = entry.width / resolution;
      ASSERT_EQ(raster.width, thin / 3 * 4);
      const size_t blockSize = 8 / resolution;
      const BlockRow row = {geometry.mbCols, 8, blockSize};
      std::vector<int16_t> blocks(geometry.mbCols * 8 * 64);
      for (int16_t& sample : blocks)
        sample = static_cast<int16_t>(static_cast<int>(random() % 220) - 110);
      // The line as the other form, and as the right one, makes it.
      std::vector<std::vector<int>> made;
      for (const ResamplerForm form : {ResamplerForm::kQuality, ResamplerForm::kDraft}) {
        const auto resampler = MakeResampler(form, true, {thin, raster.width, false});
        ASSERT_NE(resampler, nullptr);
        PlanarLine in, out;
        GatherLine(blocks.data(), row, 1, in);
        for (size_t i = 0; i < row.LumaSamples(); ++i)
          in[0][i] = static_cast<int16_t>(in[0][i] * 4);
        ASSERT_EQ(resampler->FilterCentredY(in[0], out[0]), 0);
        std::vector<int> luma(raster.width);
        for (size_t x = 0; x < luma.size(); ++x) {
          luma[x] = std::clamp((out[0][x] + 512 + 2) >> 2, 0, 255);
        }
        made.push_back(luma);
      }
      ASSERT_NE(made[0], made[1]);
      Buffer out(entry, format);
      Loop loop(entry, FrameFormat{}, format);
      loop.write(blocks.data(), 0, 0, out.frame(), blockSize);
      const size_t line = geometry.pictures * static_cast<size_t>(raster.rowBytes);
      std::vector<int> written(raster.width);
      for (size_t x = 0; x < written.size(); ++x) written[x] = out.bytes()[line + 2 * x + 1];
      EXPECT_EQ(written, made[resolution == 1 ? 0 : 1]);
    }
  }
}

TEST(FrameFormatter, ColoursOfRgbFramesComeBack) {
  // Flat areas of 16 pixels, so that chroma of half the width loses nothing inside of them.
  std::mt19937_64 random(test::testSeed());
  const struct {
    uint32_t id;
    int bound;  // 8 bits of Y, Cb and Cr have fewer colours than RGB
  } kCases[] = {{1235, 1}, {1237, 3}, {1256, 1}};
  for (const auto& one : kCases) {
    const VCIDEntry& entry = entryOf(one.id);
    FrameFormat format;
    format.pixelLayout = kLayoutRgb;
    format.formatWord = 8;
    Buffer in(entry, format);
    Buffer out(entry, format);
    for (size_t i = 0; i < in.bytes().size(); i += 64) {
      const auto colour = static_cast<uint32_t>(random()) | 0xFF000000u;
      for (size_t j = 0; j < 64; j += 4) std::memcpy(in.bytes().data() + i + j, &colour, 4);
    }
    Loop loop(entry, format, format);
    loop.run(in.frame(), out.frame());
    EXPECT_TRUE(out.guardsStand());
    int largest = 0;
    for (size_t i = 0; i < in.bytes().size(); ++i) {
      largest = std::max(largest, std::abs(in.bytes()[i] - out.bytes()[i]));
    }
    EXPECT_LE(largest, one.bound) << one.id;
    EXPECT_EQ(out.bytes()[3], 255);
  }
}

TEST(FrameFormatter, MacroblocksInRgbLookAsTheOthersDo) {
  // Pure green as Y, Cb and Cr, and as G, B and R.
  const VCIDEntry& entry = entryOf(1256);
  FrameFormat format;
  format.pixelLayout = kLayoutRgb;
  format.formatWord = 8;
  Loop loop(entry, format, format);
  Buffer out(entry, format);
  std::vector<int16_t> blocks(size_t{120} * 12 * 64);
  for (size_t i = 0; i < blocks.size(); ++i) {
    const size_t component = i / 64 % 6 / 2;
    const bool rgb = i / (12 * 64) % 2 == 1;
    constexpr int kYCbCr[] = {64 + 627, 512 - 345, 512 - 407};
    constexpr int kGbr[] = {1023, 0, 0};
    blocks[i] = static_cast<int16_t>((rgb ? kGbr : kYCbCr)[component] - 512);
  }
  for (size_t i = 0; i < 120; ++i) loop.flags()[i].color = i % 2 == 0;
  loop.write(blocks.data(), 0, 3, out.frame());
  const uint8_t* const pixel = out.bytes().data() + size_t{48} * 7680;
  for (size_t i = 0; i < size_t{16} * 7680; i += 4) {
    ASSERT_LE(pixel[i], 1);
    ASSERT_GE(pixel[i + 1], 254);
    ASSERT_LE(pixel[i + 2], 1);
  }
}

}  // namespace
}  // namespace zel::dnxhd
