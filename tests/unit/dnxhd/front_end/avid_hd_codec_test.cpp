#include "zel/dnxhd/front_end/avid_hd_codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/failing_allocation.h"
#include "tests/support/failing_thread.h"
#include "tests/support/seed.h"
#include "zel/dnxhd/front_end/comp_info.h"
#include "zel/dnxhd/front_end/uncomp_info.h"

namespace Morvalen::Zel {
namespace {

constexpr size_t kAlignment = 64;
constexpr uint8_t kGuard = 0xA5;

// Aligned memory with bytes behind it that nobody may touch.
class Buffer {
 public:
  explicit Buffer(size_t size) : memory_(size + kAlignment + kGuardBytes, kGuard), size_(size) {
    const auto address = reinterpret_cast<uintptr_t>(memory_.data());
    begin_ = memory_.data() + (kAlignment - address % kAlignment) % kAlignment;
    std::fill_n(begin_, size_, uint8_t{0});
  }
  uint8_t* data() { return begin_; }
  const uint8_t* data() const { return begin_; }
  size_t size() const { return size_; }
  uint8_t& operator[](size_t i) { return begin_[i]; }
  Buffer(const Buffer& other) : Buffer(other.size_) { std::copy_n(other.begin_, size_, begin_); }
  Buffer& operator=(const Buffer&) = delete;
  bool GuardIsWhole() const {
    return std::all_of(begin_ + size_, begin_ + size_ + kGuardBytes,
                       [](uint8_t byte) { return byte == kGuard; });
  }
  friend bool operator==(const Buffer& a, const Buffer& b) {
    return a.size_ == b.size_ && std::equal(a.begin_, a.begin_ + a.size_, b.begin_);
  }

 private:
  static constexpr size_t kGuardBytes = 64;
  std::vector<uint8_t> memory_;
  size_t size_;
  uint8_t* begin_;
};

UnCompInfo recordFor(const CompInfo& row) {
  UnCompInfo record;
  if (row.componentWord == 2) {
    record.pixelLayout = 2;
    record.formatWord = 8;
    record.componentCount = 4;
    record.sampleType = 16;
  }
  if (row.fieldsPerFrame == 2) record.fieldLayout = 1;
  return record;
}

BufferRaster rasterOf(uint32_t id, const UnCompInfo& record) {
  BufferRaster raster;
  EXPECT_EQ(GetBufferRaster(id, record, raster), 0);
  return raster;
}

enum class Picture { kBlack, kRamp, kNoise };

Buffer pictureOf(const BufferRaster& raster, const UnCompInfo& record, Picture picture) {
  Buffer buffer(raster.bufferBytes);
  std::mt19937_64 random(zel::test::testSeed());
  for (size_t i = 0; i + 1 < buffer.size(); i += 2) {
    uint16_t word = 0;
    const size_t x = i % raster.rowBytes;
    const size_t y = i / raster.rowBytes;
    if (picture == Picture::kRamp) word = static_cast<uint16_t>((x / 16 + y) % 200 + 20);
    if (picture == Picture::kNoise) word = static_cast<uint16_t>(random());
    if (picture == Picture::kRamp) word = static_cast<uint16_t>(word | word << 8);
    if (record.sampleType == 16) word &= 0x7FFF;
    if (picture == Picture::kBlack && record.sampleType == 1 && record.pixelLayout == 8) {
      word = 0x1080;  // Cb or Cr, then Y
    }
    std::memcpy(buffer.data() + i, &word, sizeof word);
  }
  return buffer;
}

struct Codec : testing::Test {
  Codec() {
    EXPECT_EQ(AvidHDCodecLibrary::Initialize(), 0);
    codec.reset(AvidHDCodecLibrary::CreateCodec());
  }
  ~Codec() override {
    codec.reset();
    AvidHDCodecLibrary::Terminate();
  }

  void setUp(uint32_t id, uint32_t direction) {
    const CompInfo& row = *FindCompInfo(id);
    ASSERT_EQ(codec->Configure(&record, &row, direction), 0);
  }
  // A frame of the id, of a ramp.
  Buffer encoded(uint32_t id, Picture picture = Picture::kRamp) {
    const CompInfo& row = *FindCompInfo(id);
    const UnCompInfo described = recordFor(row);
    Buffer frame(row.frameBytes);
    EXPECT_EQ(codec->Configure(&described, &row, 1), 0);
    const Buffer input = pictureOf(rasterOf(id, described), described, picture);
    uint32_t bytes = 0;
    EXPECT_EQ(codec->EncodeFrame(input.data(), frame.data(), 0, 0, &bytes), 0);
    EXPECT_EQ(bytes, row.frameBytes);
    EXPECT_TRUE(frame.GuardIsWhole());
    return frame;
  }

  std::unique_ptr<IAvidCodecInterface> codec;
  UnCompInfo record;
};

TEST(CodecLibrary, WithoutTheFlagThereIsNoCodec) {
  ASSERT_FALSE(AvidHDCodecLibrary::IsInitialized());
  EXPECT_EQ(AvidHDCodecLibrary::CreateCodec(), nullptr);
}

TEST(CodecLibrary, TextsOfResults) {
  EXPECT_STREQ(AvidHDCodecLibrary::GetResultText(-17), "HDCODEC ERROR Encode Buffer Overflow");
  EXPECT_STREQ(AvidHDCodecLibrary::GetResultText(-44), "");
  EXPECT_STREQ(AvidHDCodecLibrary::GetResultText(1), "");
  EXPECT_STREQ(AvidHDCodecLibrary::GetResultText(INT32_MIN), "");
}

TEST_F(Codec, WithTheFlagClearNothingIsCoded) {
  Buffer frame = encoded(1252);
  record = recordFor(*FindCompInfo(1252));
  setUp(1252, 2);
  AvidHDCodecLibrary::Terminate();
  Buffer out(1280 * 720 * 2);
  std::array<uint8_t, 256> packets{};
  uint32_t bytes = 7;
  EXPECT_EQ(codec->EncodeFrame(out.data(), frame.data(), 0, 0, &bytes), -8);
  EXPECT_EQ(bytes, 0u);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), -8);
  EXPECT_EQ(codec->SetDecodeThreads(2), -8);
  EXPECT_EQ(codec->SetEncodeThreads(2), -8);
  EXPECT_EQ(codec->InsertMetadata(frame.data(), packets.data()), -8);
  EXPECT_EQ(codec->ExtractMetadata(frame.data(), packets.data()), -8);
  EXPECT_EQ(codec->CheckFrame(1252, frame.data()), -8);
  EXPECT_EQ(codec->CheckFrame(1, frame.data()), -26);  // is looked at first
  // The setters do nothing and say nothing.
  EXPECT_EQ(codec->SetRowBytesForDecode(8), 0);
  EXPECT_EQ(codec->SetRowBytesForEncode(8), 0);
  EXPECT_EQ(codec->SetFieldGapForDecode(8), 0);
  EXPECT_EQ(codec->SetFieldGapForEncode(8), 0);
  EXPECT_EQ(codec->GetLastResult(), 0);
  AvidHDCodecLibrary::Initialize();
}

TEST_F(Codec, FramesWithoutASetUpAreRefused) {
  Buffer memory(4096);
  uint32_t bytes = 7;
  EXPECT_EQ(codec->EncodeFrame(memory.data(), memory.data(), 0, 0, &bytes), -8);
  EXPECT_EQ(bytes, 0u);
  EXPECT_EQ(codec->DecodeFrame(memory.data(), memory.data(), 0, 0), -8);
  EXPECT_EQ(codec->GetLastResult(), -8);
}

TEST_F(Codec, ConfigureRefusesWhatMakesNoSense) {
  const CompInfo& row = *FindCompInfo(1237);
  EXPECT_EQ(codec->Configure(&record, &row, 3), -37);
  EXPECT_EQ(codec->Configure(&record, &row, 4), -37);
  EXPECT_EQ(codec->Configure(nullptr, &row, 1), -37);
  EXPECT_EQ(codec->Configure(nullptr, &row, 0), -37);
  EXPECT_EQ(codec->Configure(nullptr, nullptr, 4), -8);
  EXPECT_EQ(codec->Configure(nullptr, nullptr, 8), -8);
  EXPECT_EQ(codec->Configure(&record, nullptr, 1), -35);
  CompInfo strange = row;
  strange.compressionId = 99;
  EXPECT_EQ(codec->Configure(&record, &strange, 1), -35);
  EXPECT_EQ(codec->GetLastResult(), -35);

  const auto refusedBy = [&](auto change, uint32_t direction) {
    UnCompInfo changed = record;
    change(changed);
    return codec->Configure(&changed, &row, direction);
  };
  EXPECT_EQ(refusedBy([](UnCompInfo& r) { r.resolution = 3; }, 2), -36);
  EXPECT_EQ(refusedBy([](UnCompInfo& r) { r.resolution = 2; }, 1), -36);
  EXPECT_EQ(refusedBy([](UnCompInfo& r) { r.fieldLayout = 3; }, 2), -36);
  EXPECT_EQ(refusedBy([](UnCompInfo& r) { r.fieldLayout = 1024; }, 2), -36);
  EXPECT_EQ(refusedBy([](UnCompInfo& r) { r.rasterWord = 2; }, 2), -36);
  EXPECT_EQ(refusedBy([](UnCompInfo& r) { r.sampleType = 3; }, 2), -16);
  EXPECT_EQ(refusedBy([](UnCompInfo& r) { r.sampleType = 3; }, 1), -16);
  EXPECT_EQ(refusedBy([](UnCompInfo& r) { r.pixelLayout = 5; }, 2), -16);
}

TEST_F(Codec, SamplesThatHaveNoFormatterGiveMinusSeven) {
  const CompInfo& row = *FindCompInfo(1237);
  record.sampleType = 2;
  EXPECT_EQ(codec->Configure(&record, &row, 1), -7);
  EXPECT_EQ(codec->Configure(&record, &row, 2), -7);
  record.sampleType = 32;
  record.pixelLayout = 2;
  EXPECT_EQ(codec->Configure(&record, &row, 1), -7);
  EXPECT_EQ(codec->Configure(&record, &row, 2), -7);
}

TEST_F(Codec, AFailedSetUpEndsCodingUntilTheNext) {
  const Buffer frame = encoded(1252);
  setUp(1252, 2);
  Buffer out(1280 * 720 * 2);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), 0);
  const UnCompInfo good = record;
  record.sampleType = 2;
  EXPECT_EQ(codec->Configure(&record, FindCompInfo(1252), 2), -7);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), -8);
  // What was set up before is still known.
  EXPECT_EQ(codec->Configure(nullptr, nullptr, 8), 0);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), 0);
  record = good;
}

TEST_F(Codec, BothDirectionsStandBesideEachOther) {
  record = recordFor(*FindCompInfo(1251));
  setUp(1251, 1);
  record = recordFor(*FindCompInfo(1252));
  setUp(1252, 2);
  const Buffer input = pictureOf(rasterOf(1251, record), record, Picture::kRamp);
  Buffer frame(458752);
  Buffer out(1280 * 720 * 2);
  uint32_t bytes = 0;
  EXPECT_EQ(codec->EncodeFrame(input.data(), frame.data(), 0, 0, &bytes), 0);
  EXPECT_EQ(bytes, 458752u);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), -4);  // 1251 is not 1252
  EXPECT_EQ(codec->Configure(nullptr, nullptr, 4), 0);
  EXPECT_EQ(codec->EncodeFrame(input.data(), frame.data(), 0, 0, &bytes), 0);
}

TEST_F(Codec, EveryIdFillsItsFrameWhateverThePicture) {
  for (const CompInfo& row : kCompInfos) {
    SCOPED_TRACE(row.compressionId);
    for (const Picture picture : {Picture::kBlack, Picture::kRamp, Picture::kNoise}) {
      const Buffer frame = encoded(row.compressionId, picture);
      const uint8_t* const end = frame.data() + frame.size();
      EXPECT_EQ((std::array<uint8_t, 4>{end[-4], end[-3], end[-2], end[-1]}),
                (std::array<uint8_t, 4>{0x60, 0x0D, 0xC0, 0xDE}));
      EXPECT_EQ(codec->CheckFrame(row.compressionId, frame.data()), 0);
    }
  }
}

TEST_F(Codec, EveryIdDecodesToItsPicture) {
  for (const CompInfo& row : kCompInfos) {
    SCOPED_TRACE(row.compressionId);
    const Buffer frame = encoded(row.compressionId);
    record = recordFor(row);
    setUp(row.compressionId, 2);
    const BufferRaster raster = rasterOf(row.compressionId, record);
    const Buffer input = pictureOf(raster, record, Picture::kRamp);
    Buffer out(raster.bufferBytes);
    ASSERT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), 0);
    EXPECT_TRUE(out.GuardIsWhole());
    // In 8 bits a sample; the ramp has steps, which codes of the lowest rates blur.
    double squares = 0;
    size_t counted = 0;
    const size_t step = record.sampleType == 16 ? 2 : 1;
    for (size_t i = step - 1; i < out.size(); i += step) {
      if (record.pixelLayout == 2 && i / step % 4 == 0) continue;  // alpha
      const double scale = record.sampleType == 16 ? 2 : 1;        // signed: 7 bits in the byte
      const double difference = scale * (int{input.data()[i]} - int{out.data()[i]});
      squares += difference * difference;
      ++counted;
    }
    EXPECT_LT(squares / static_cast<double>(counted), 40.0);
  }
}

TEST_F(Codec, DecodingDoesNotDependOnTheThreadCount) {
  for (const uint32_t id : {1235u, 1243u, 1260u, 1257u}) {
    SCOPED_TRACE(id);
    const Buffer frame = encoded(id);
    record = recordFor(*FindCompInfo(id));
    const BufferRaster raster = rasterOf(id, record);
    Buffer first(raster.bufferBytes);
    codec->SetDecodeThreads(1);
    setUp(id, 2);
    ASSERT_EQ(codec->DecodeFrame(frame.data(), first.data(), 0, 0), 0);
    for (const int32_t threads : {2, 3, 16}) {
      ASSERT_EQ(codec->SetDecodeThreads(threads), 0);
      EXPECT_EQ(codec->GetDecodeThreads(), threads);
      Buffer other(raster.bufferBytes);
      ASSERT_EQ(codec->DecodeFrame(frame.data(), other.data(), 0, 0), 0);
      EXPECT_TRUE(first == other) << threads;
    }
  }
}

TEST_F(Codec, AbsurdThreadCounts) {
  EXPECT_EQ(codec->GetDecodeThreads(), 1);
  EXPECT_EQ(codec->SetDecodeThreads(0), 0);
  EXPECT_EQ(codec->SetDecodeThreads(INT32_MIN), 0);
  EXPECT_EQ(codec->GetDecodeThreads(), 1);
  EXPECT_EQ(codec->SetDecodeThreads(65), -7);
  EXPECT_EQ(codec->SetDecodeThreads(INT32_MAX), -7);
  EXPECT_EQ(codec->GetDecodeThreads(), 1);

  record = recordFor(*FindCompInfo(1252));
  setUp(1252, 1);
  const Buffer input = pictureOf(rasterOf(1252, record), record, Picture::kRamp);
  Buffer frame(303104);
  uint32_t bytes = 0;
  EXPECT_EQ(codec->SetEncodeThreads(1000), 0);
  EXPECT_EQ(codec->EncodeFrame(input.data(), frame.data(), 0, 0, &bytes), 0);
  EXPECT_EQ(codec->SetEncodeThreads(0), 0);  // ends the workers: no frame can be coded
  EXPECT_LT(codec->EncodeFrame(input.data(), frame.data(), 0, 0, &bytes), 0);
  EXPECT_EQ(codec->SetEncodeThreads(3), 0);
  EXPECT_EQ(codec->EncodeFrame(input.data(), frame.data(), 0, 0, &bytes), 0);
}

TEST_F(Codec, RefusedThreadsGiveMinusSeven) {
  record = recordFor(*FindCompInfo(1252));
  const Buffer frame = encoded(1252);
  setUp(1252, 2);
  Buffer out(1280 * 720 * 2);
  {
    const zel::test::FailingThread failing;
    EXPECT_EQ(codec->SetDecodeThreads(4), -7);
    EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), -8);
  }
  EXPECT_EQ(codec->SetDecodeThreads(3), 0);
  EXPECT_EQ(codec->Configure(nullptr, nullptr, 8), 0);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), 0);
}

TEST_F(Codec, UnalignedOutputAndNullPointersAreRefused) {
  const Buffer frame = encoded(1252);
  setUp(1252, 2);
  Buffer out(1280 * 720 * 2 + 16);
  for (const size_t offset : {1u, 8u, 15u}) {
    EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data() + offset, 0, 0), -20);
    EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, static_cast<uint32_t>(offset)), -20);
  }
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data() + 16, 0, 16), 0);
  EXPECT_EQ(codec->DecodeFrame(nullptr, out.data(), 0, 0), -43);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), nullptr, 0, 0), -43);
  uint32_t bytes = 0;
  EXPECT_EQ(codec->EncodeFrame(nullptr, out.data(), 0, 0, &bytes), -43);
  EXPECT_EQ(codec->EncodeFrame(out.data(), nullptr, 0, 0, &bytes), -43);
  EXPECT_EQ(codec->CheckFrame(1252, nullptr), -43);
  EXPECT_EQ(codec->CheckFrame(1252, frame.data() + 8), -19);
}

TEST_F(Codec, UnalignedRowBytesAreToldOfAndNotApplied) {
  const Buffer frame = encoded(1252);
  setUp(1252, 2);
  constexpr uint32_t kWide = 1280 * 2 + 64;
  EXPECT_EQ(codec->SetRowBytesForDecode(kWide), 0);
  EXPECT_EQ(codec->SetRowBytesForDecode(kWide + 8), 0);
  EXPECT_EQ(codec->GetLastResult(), -23);
  EXPECT_EQ(codec->SetRowBytesForEncode(8), 0);
  EXPECT_EQ(codec->GetLastResult(), -22);

  Buffer wide(kWide * 720);
  std::fill_n(wide.data(), wide.size(), kGuard);
  ASSERT_EQ(codec->DecodeFrame(frame.data(), wide.data(), 0, 0), 0);
  codec->SetRowBytesForDecode(0);
  Buffer plain(1280 * 720 * 2);
  ASSERT_EQ(codec->DecodeFrame(frame.data(), plain.data(), 0, 0), 0);
  for (size_t line = 0; line < 720; ++line) {
    ASSERT_TRUE(std::equal(plain.data() + line * 2560, plain.data() + (line + 1) * 2560,
                           wide.data() + line * kWide));
    ASSERT_EQ(wide[line * kWide + 2560], kGuard);
  }
}

TEST_F(Codec, AnUnalignedGapIsToldOfAndApplied) {
  const CompInfo& row = *FindCompInfo(1243);
  record = recordFor(row);
  record.fieldLayout = 4;  // stacked
  const Buffer frame = encoded(1243);
  setUp(1243, 2);
  constexpr size_t kField = 1920 * 2 * 540;
  Buffer plain(2 * kField);
  ASSERT_EQ(codec->DecodeFrame(frame.data(), plain.data(), 0, 0), 0);
  EXPECT_EQ(codec->SetFieldGapForDecode(24), 0);
  EXPECT_EQ(codec->GetLastResult(), -25);
  EXPECT_EQ(codec->SetFieldGapForEncode(8), 0);
  EXPECT_EQ(codec->GetLastResult(), -24);
  Buffer apart(2 * kField + 24);
  ASSERT_EQ(codec->DecodeFrame(frame.data(), apart.data(), 0, 0), 0);
  EXPECT_TRUE(std::equal(plain.data(), plain.data() + kField, apart.data()));
  EXPECT_TRUE(
      std::equal(plain.data() + kField, plain.data() + 2 * kField, apart.data() + kField + 24));
  EXPECT_TRUE(apart.GuardIsWhole());
}

TEST_F(Codec, RowBytesShorterThanALineAreRefused) {
  const Buffer frame = encoded(1252);
  setUp(1252, 2);
  setUp(1252, 1);
  Buffer out(1280 * 720 * 2);
  codec->SetRowBytesForDecode(2544);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), -21);
  codec->SetRowBytesForEncode(16);
  uint32_t bytes = 0;
  Buffer again(303104);
  EXPECT_EQ(codec->EncodeFrame(out.data(), again.data(), 0, 0, &bytes), -21);
  codec->SetRowBytesForDecode(2560);
  EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), 0);
}

TEST_F(Codec, FieldLayoutsPlaceTheFields) {
  const Buffer frame = encoded(1242);
  record = recordFor(*FindCompInfo(1242));
  constexpr size_t kLine = 1920 * 2;
  constexpr size_t kField = kLine * 540;
  const auto decode = [&](uint32_t layout, size_t bytes) {
    record.fieldLayout = layout;
    setUp(1242, 2);
    EXPECT_EQ(rasterOf(1242, record).bufferBytes, bytes) << layout;
    Buffer out(bytes);
    EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), 0);
    EXPECT_TRUE(out.GuardIsWhole());
    return out;
  };
  const Buffer woven = decode(1, 2 * kField);
  EXPECT_TRUE(decode(64, 2 * kField) == woven);
  const Buffer stacked = decode(4, 2 * kField);
  EXPECT_TRUE(decode(128, 2 * kField) == stacked);
  const Buffer swapped = decode(8, 2 * kField);
  EXPECT_TRUE(decode(256, 2 * kField) == swapped);
  const Buffer firstOnly = decode(16, kField);
  EXPECT_TRUE(decode(512, kField) == firstOnly);
  const Buffer secondOnly = decode(32, kField);
  for (size_t line = 0; line < 540; ++line) {
    const uint8_t* const top = woven.data() + 2 * line * kLine;
    ASSERT_TRUE(std::equal(top, top + kLine, stacked.data() + line * kLine));
    ASSERT_TRUE(std::equal(top, top + kLine, swapped.data() + kField + line * kLine));
    ASSERT_TRUE(std::equal(top, top + kLine, firstOnly.data() + line * kLine));
    ASSERT_TRUE(std::equal(top + kLine, top + 2 * kLine, stacked.data() + kField + line * kLine));
    ASSERT_TRUE(std::equal(top + kLine, top + 2 * kLine, swapped.data() + line * kLine));
    ASSERT_TRUE(std::equal(top + kLine, top + 2 * kLine, secondOnly.data() + line * kLine));
  }
}

TEST_F(Codec, WhatTheHeadersSayOfFieldsAndPicturesDoesNotMoveThem) {
  const Buffer frame = encoded(1242);
  record = recordFor(*FindCompInfo(1242));
  setUp(1242, 2);
  const auto decode = [&](const Buffer& compressed) {
    Buffer out(rasterOf(1242, record).bufferBytes);
    EXPECT_EQ(codec->DecodeFrame(compressed.data(), out.data(), 0, 0), 0);
    return out;
  };
  const Buffer picture = decode(frame);
  Buffer secondField = frame;
  ASSERT_EQ(secondField.data()[5], 2);
  secondField.data()[5] = 3;
  EXPECT_TRUE(decode(secondField) == picture);
  // One picture instead of two, says the flag; the id's row says two.
  Buffer onePicture = frame;
  ASSERT_EQ(onePicture.data()[44] & 0x80, 0);
  onePicture.data()[44] |= 0x80;
  EXPECT_TRUE(decode(onePicture) == picture);
}

TEST_F(Codec, SmallerSizesHaveTheirOwnRaster) {
  for (const uint32_t id : {1237u, 1242u, 1258u, 1260u}) {
    const Buffer frame = encoded(id);
    for (const uint32_t resolution : {2u, 4u}) {
      SCOPED_TRACE(std::to_string(id) + " / " + std::to_string(resolution));
      const CompInfo& row = *FindCompInfo(id);
      record = recordFor(row);
      record.resolution = resolution;
      const BufferRaster raster = rasterOf(id, record);
      EXPECT_EQ(raster.width, row.width / resolution);
      setUp(id, 2);
      Buffer out(raster.bufferBytes);
      EXPECT_EQ(codec->DecodeFrame(frame.data(), out.data(), 0, 0), 0);
      EXPECT_TRUE(out.GuardIsWhole());
    }
  }
}

// What can be wrong with a frame, and the word for it.
TEST_F(Codec, DamagedHeadersAreRefusedByTheirWords) {
  const Buffer whole = encoded(1252);
  setUp(1252, 2);
  Buffer out(1280 * 720 * 2);
  const auto decode = [&](size_t at, uint8_t value) {
    Buffer frame = whole;
    frame[at] = value;
    const int decoded = codec->DecodeFrame(frame.data(), out.data(), 0, 0);
    EXPECT_TRUE(out.GuardIsWhole());
    return decoded;
  };
  EXPECT_EQ(decode(0, 1), -3);  // header size
  EXPECT_EQ(decode(3, 0x81), -3);
  EXPECT_EQ(decode(5, 0), -4);  // field code
  EXPECT_EQ(decode(5, 4), -4);
  EXPECT_EQ(decode(5, 2), -4);            // the id has one picture
  EXPECT_EQ(decode(43, 0xE5), -4);        // 1253, another raster
  EXPECT_EQ(decode(40, 1), -4);           // no id
  EXPECT_EQ(decode(368 + 4, 0x7F), -27);  // the second row's offset
  EXPECT_EQ(decode(44, 0), 0);            // whose id says how many pictures: the row wins
}

TEST_F(Codec, DamageAnywhereNeverLeavesTheBuffers) {
  std::mt19937_64 random(zel::test::testSeed());
  for (const uint32_t id : {1252u, 1241u, 1260u, 1256u}) {
    SCOPED_TRACE(id);
    const Buffer whole = encoded(id, Picture::kNoise);
    record = recordFor(*FindCompInfo(id));
    codec->SetDecodeThreads(id == 1252 ? 2 : 1);
    setUp(id, 2);
    Buffer out(rasterOf(id, record).bufferBytes);
    int failures = 0;
    for (int repeat = 0; repeat < 12; ++repeat) {
      Buffer frame = whole;
      for (int flips = 0; flips < 8; ++flips) {
        // Half of them in the header and its row table.
        const size_t at = random() % (flips % 2 == 0 ? 640 : whole.size());
        frame[at] = static_cast<uint8_t>(frame[at] ^ 1u << random() % 8);
      }
      const int result = codec->DecodeFrame(frame.data(), out.data(), 0, 0);
      EXPECT_STRNE(AvidHDCodecLibrary::GetResultText(result), "") << result;
      failures += result < 0 ? 1 : 0;
      const int checked = codec->CheckFrame(id, frame.data());
      EXPECT_STRNE(AvidHDCodecLibrary::GetResultText(checked), "") << checked;
      std::array<uint8_t, 256> packets{};
      const int extracted = codec->ExtractMetadata(frame.data(), packets.data());
      EXPECT_TRUE(extracted == 0 || extracted == -4 || extracted == -3) << extracted;
      ASSERT_TRUE(out.GuardIsWhole());
    }
    EXPECT_GT(failures, 0);
  }
}

TEST_F(Codec, MetadataGoesInAndComesOut) {
  for (const uint32_t id : {1252u, 1242u}) {
    Buffer frame = encoded(id);
    std::array<uint8_t, 256> packets{};
    packets.fill(0xEE);
    EXPECT_EQ(codec->ExtractMetadata(frame.data(), packets.data()), 0);
    EXPECT_EQ(std::count(packets.begin(), packets.end(), 0), 256);
    const std::array<uint8_t, 1> none = {0};
    EXPECT_EQ(codec->InsertMetadata(frame.data(), none.data()), -39);
    // Lines 9 and 570, and a byte that is no marker.
    const std::array<uint8_t, 18> both = {255,  0x89, 0x80, 0x61, 1, 1, 42, 0,    255,
                                          0xBA, 0x84, 0x61, 1,    2, 7, 8,  0x99, 0};
    EXPECT_EQ(codec->InsertMetadata(frame.data(), both.data()), 0);
    EXPECT_EQ(codec->ExtractMetadata(frame.data(), packets.data()), 0);
    EXPECT_TRUE(std::equal(both.begin(), both.end() - 1, packets.begin()));
    EXPECT_EQ(codec->CheckFrame(id, frame.data()), 0);
  }
  Buffer nothing(640);
  EXPECT_EQ(codec->InsertMetadata(nothing.data(), std::array<uint8_t, 8>{255}.data()), -4);
  EXPECT_EQ(codec->InsertMetadata(nullptr, nothing.data()), -43);
  EXPECT_EQ(codec->ExtractMetadata(nothing.data(), nullptr), -43);
}

TEST_F(Codec, ParametersAndLibraryInfo) {
  uint32_t value = 7;
  EXPECT_EQ(codec->GetParameter(3, &value), 0);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(codec->SetParameter(3, 1), 0);
  EXPECT_EQ(codec->GetParameter(3, &value), 0);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(codec->SetParameter(3, 2), -38);
  EXPECT_EQ(codec->SetParameter(2, 1), -42);
  EXPECT_EQ(codec->GetParameter(4, &value), -42);
  EXPECT_EQ(codec->GetParameter(3, nullptr), -43);
  uint32_t words[2] = {9, 9};
  EXPECT_EQ(codec->GetLibraryInfo(&words[0], &words[1]), 1u);
  EXPECT_EQ(words[0], 1u);
  EXPECT_EQ(words[1], 0u);
  EXPECT_EQ(codec->GetLibraryInfo(nullptr, nullptr), 1u);
}

TEST_F(Codec, ResultTextsAreCopiedAsFarAsThereIsRoom) {
  char text[60];
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(codec->GetResultText(-3, text, 7), 0);
  EXPECT_EQ(std::string(text, 8), "HDCODECx");
  EXPECT_EQ(codec->GetResultText(-3, text, sizeof text), 0);
  EXPECT_STREQ(text, "HDCODEC ERROR in BitStream");
  EXPECT_EQ(codec->GetResultText(-9999, text, sizeof text), 0);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(codec->GetResultText(0, nullptr, 5), -43);
}

TEST_F(Codec, WithoutMemoryThereIsNoCodecObject) {
  const zel::test::FailingAllocation failing;
  EXPECT_EQ(AvidHDCodecLibrary::CreateCodec(), nullptr);
}

TEST(BufferRasters, AreRefusedForWhatIsNotCoded) {
  BufferRaster raster;
  UnCompInfo record;
  EXPECT_EQ(GetBufferRaster(1233, record, raster), -9999);
  record.sampleType = 3;
  EXPECT_EQ(GetBufferRaster(1237, record, raster), -16);
  record = {};
  record.resolution = 8;
  EXPECT_EQ(GetBufferRaster(1237, record, raster), -36);
  record = {};
  record.sampleType = 1024;
  ASSERT_EQ(GetBufferRaster(1252, record, raster), 0);
  EXPECT_EQ(raster.rowBytes, 3456u);
  EXPECT_EQ(raster.bufferBytes, 3456u * 720);
}

}  // namespace
}  // namespace Morvalen::Zel
