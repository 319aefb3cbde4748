#include "zel/dnxhd/bitstream/hd_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/seed.h"
#include "zel/base/bit_writer.h"
#include "zel/dnxhd/bitstream/check_frame.h"

namespace zel::dnxhd {
namespace {

// A frame whose blocks each hold a DC of their own and a few coefficients.
std::vector<uint8_t> frameOf(const VCIDEntry& entry) {
  const PictureGeometry geometry = GeometryOf(entry);
  std::vector<uint8_t> frame(entry.frameBytes);
  std::mt19937_64 random(test::testSeed());
  for (uint32_t picture = 0; picture < geometry.pictures; ++picture) {
    const auto bytes =
        std::span(frame).subspan(picture * geometry.pictureBytes, geometry.pictureBytes);
    const FieldCode code =
        geometry.pictures == 1 ? kProgressivePicture : (picture == 0 ? kFirstField : kSecondField);
    WriteFrameHeader(entry, code, bytes.first<kHeaderBytes>());
    base::BitWriter out(bytes.subspan(kHeaderBytes));
    for (uint32_t row = 0; row < geometry.mbRows; ++row) {
      SetRowOffset(bytes.first<kHeaderBytes>(), row, static_cast<uint32_t>(out.position() / 8));
      for (uint32_t column = 0; column < geometry.mbCols; ++column) {
        if (HasFieldFlag(entry)) out.writeFlag(random() % 2 != 0);
        out.write(3, HasFieldFlag(entry) ? 10 : 11);
        out.writeFlag(false);
        for (size_t block = 0; block < BlocksOf(CodingModeOf(entry)); ++block) {
          const auto size = static_cast<uint32_t>(random() % 4);
          out.write(entry.dcCodes[size], static_cast<int>(entry.dcLengths[size]));
          out.write(random() & ((1u << size) - 1), static_cast<int>(size));
          for (uint64_t left = random() % 3; left != 0; --left) {
            const size_t level = random() % 9;
            out.write(entry.acCodes[0][level], static_cast<int>(entry.acLengths[0][level]));
            out.writeFlag(random() % 2 != 0);
          }
          out.write(entry.endOfBlockCode, static_cast<int>(entry.endOfBlockLength));
        }
      }
      while (out.position() % 32 != 0) out.writeFlag(false);
    }
    const size_t used = kHeaderBytes + out.finish().size();
    EXPECT_EQ(FinishPicture(bytes, used), kSuccessful);
  }
  return frame;
}

struct Rows : RowTaker {
  ResultWord TakeRow(const DecodedRow& row) override {
    ++count;
    padded += row.lastRowWithPadding ? 1 : 0;
    blockSize = row.blockSize;
    pictures.push_back(row.picture);
    // What lies behind the samples of a reduced block is left over.
    const size_t used = row.blockSize * row.blockSize;
    for (size_t block = 0; block < row.mbCols * row.blocks; ++block) {
      samples.insert(samples.end(), row.samples + 64 * block, row.samples + 64 * block + used);
    }
    return answer;
  }
  ResultWord answer = kSuccessful;
  size_t count = 0;
  size_t padded = 0;
  size_t blockSize = 0;
  std::vector<size_t> pictures;
  std::vector<int16_t> samples;
};

// The rows dealt out backwards over three workers.
class BackwardRunner : public RowRunner {
 public:
  size_t WorkerCount() const override { return 3; }
  ResultWord Run(size_t rows, const Task& task) override {
    for (size_t row = rows; row-- > 0;) {
      if (const ResultWord result = task(row % 3, row); result != kSuccessful) return result;
    }
    return kSuccessful;
  }
};

TEST(HdDecoder, EveryIdDecodesAllRows) {
  SerialRowRunner runner;
  for (const VCIDEntry& entry : VCIDTable) {
    const PictureGeometry geometry = GeometryOf(entry);
    Rows rows;
    ASSERT_EQ(FrameDecoder(entry, 1, runner).Decode(frameOf(entry), Pictures::kAll, rows),
              kSuccessful)
        << entry.compressionId;
    EXPECT_EQ(rows.count, geometry.mbRows * geometry.pictures);
    EXPECT_EQ(rows.padded, geometry.bottomPad != 0 ? geometry.pictures : 0u);
    EXPECT_EQ(rows.blockSize, 8u);
  }
}

TEST(HdDecoder, ScalarAndVectorDecodersAgree) {
  for (const uint32_t id : {1235u, 1237u, 1256u, 1260u}) {
    const VCIDEntry& entry = *FindEntry(id);
    const std::vector<uint8_t> frame = frameOf(entry);
    for (const uint32_t resolution : {1u, 2u, 4u}) {
      FrameHeader header;
      ASSERT_EQ(ParseFrameHeader(frame, header), kSuccessful);
      HDDecoder scalar(entry, resolution);
      HDDecoder_IntelSSE2 vector(entry, resolution);
      Rows fromScalar;
      Rows fromVector;
      const auto data = std::span(frame).subspan(kHeaderBytes);
      for (size_t row = 0; row < header.rowCount; ++row) {
        ASSERT_EQ(scalar.DecodeRow(data, header, 0, row, fromScalar), kSuccessful);
        ASSERT_EQ(vector.DecodeRow(data, header, 0, row, fromVector), kSuccessful);
      }
      EXPECT_EQ(fromScalar.samples, fromVector.samples) << id << " at 1/" << resolution;
    }
  }
}

TEST(HdDecoder, WorkersAndOrderChangeNothing) {
  const VCIDEntry& entry = *FindEntry(1252);
  const std::vector<uint8_t> frame = frameOf(entry);
  SerialRowRunner serial;
  BackwardRunner backward;
  Rows inOrder;
  Rows reversed;
  ASSERT_EQ(FrameDecoder(entry, 1, serial).Decode(frame, Pictures::kAll, inOrder), kSuccessful);
  ASSERT_EQ(FrameDecoder(entry, 1, backward).Decode(frame, Pictures::kAll, reversed), kSuccessful);
  const size_t row = inOrder.samples.size() / inOrder.count;
  std::vector<int16_t> turned;
  for (size_t i = reversed.count; i-- > 0;) {
    const auto at = reversed.samples.begin() + static_cast<ptrdiff_t>(i * row);
    turned.insert(turned.end(), at, at + static_cast<ptrdiff_t>(row));
  }
  EXPECT_EQ(inOrder.samples, turned);
}

TEST(HdDecoder, FieldsCanBeHadAlone) {
  const VCIDEntry& entry = *FindEntry(1242);
  std::vector<uint8_t> frame = frameOf(entry);
  SerialRowRunner runner;
  FrameDecoder decoder(entry, 1, runner);
  frame[5] = kSecondField;  // the order is that of the places all the same
  Rows first;
  Rows second;
  ASSERT_EQ(decoder.Decode(frame, Pictures::kFirstOnly, first), kSuccessful);
  ASSERT_EQ(decoder.Decode(frame, Pictures::kSecondOnly, second), kSuccessful);
  EXPECT_EQ(first.pictures, std::vector<size_t>(34, 0));
  EXPECT_EQ(second.pictures, std::vector<size_t>(34, 1));
  EXPECT_NE(first.samples, second.samples);
}

TEST(HdDecoder, SmallerSizesHaveSmallerBlocksButForOneId) {
  SerialRowRunner runner;
  for (const uint32_t resolution : {2u, 4u}) {
    Rows rows;
    const VCIDEntry& entry = *FindEntry(1237);
    ASSERT_EQ(FrameDecoder(entry, resolution, runner).Decode(frameOf(entry), Pictures::kAll, rows),
              kSuccessful);
    EXPECT_EQ(rows.blockSize, 8u / resolution);
    const VCIDEntry& thin = *FindEntry(1260);
    ASSERT_EQ(FrameDecoder(thin, resolution, runner).Decode(frameOf(thin), Pictures::kAll, rows),
              kSuccessful);
    EXPECT_EQ(rows.blockSize, 8u);
  }
}

TEST(HdDecoder, DamageGivesTheRightWord) {
  const VCIDEntry& entry = *FindEntry(1237);
  const std::vector<uint8_t> whole = frameOf(entry);
  SerialRowRunner runner;
  FrameDecoder decoder(entry, 1, runner);
  const auto decode = [&](std::span<const uint8_t> frame) {
    Rows rows;
    return decoder.Decode(frame, Pictures::kAll, rows);
  };
  EXPECT_EQ(decode(std::span(whole).first(100)), kErrorInBitStream);
  EXPECT_EQ(decode(std::span(whole).first(whole.size() - 1)), kErrorInBitStream);
  std::vector<uint8_t> frame = whole;
  frame[2] = 3;
  EXPECT_EQ(decode(frame), kErrorInBitStream);
  frame = whole;
  frame[42] = 0;
  EXPECT_EQ(decode(frame), kErrorNonHdFormat);
  frame = whole;
  frame[43] = 0xD6;  // 1238
  EXPECT_EQ(decode(frame), kErrorNonHdFormat);
  for (const int code : {0, 2, 4, 255}) {
    frame = whole;
    frame[5] = static_cast<uint8_t>(code);
    EXPECT_EQ(decode(frame), kErrorNonHdFormat) << code;
  }
  frame = whole;
  frame[368] = 0x40;  // the first row's place
  EXPECT_EQ(decode(frame), kErrorInMacroblockIndices);
  frame = whole;
  frame[365] = 67;
  EXPECT_EQ(decode(frame), kErrorInMacroblockIndices);
  frame = whole;
  std::fill(frame.begin() + 640, frame.end(), uint8_t{0});
  EXPECT_EQ(decode(frame), kErrorInHuffmanDecode);
  Rows refusing;
  refusing.answer = kErrorInMemoryAllocation;
  EXPECT_EQ(decoder.Decode(whole, Pictures::kAll, refusing), kErrorInMemoryAllocation);
  EXPECT_EQ(refusing.count, 1u);
}

// What the decoder goes by: the header's size, which picture it is, the id, and the rows' places.
// Of these a wrong bit is told of; every other bit of a header has no part in the picture.
TEST(HdDecoder, EveryBitOfAHeaderIsToldOfOrHasNoEffect) {
  const VCIDEntry& entry = *FindEntry(32769);
  ASSERT_EQ(GeometryOf(entry).mbRows, 8u);
  const std::vector<uint8_t> whole = frameOf(entry);
  SerialRowRunner runner;
  FrameDecoder decoder(entry, 1, runner);
  Rows sound;
  ASSERT_EQ(decoder.Decode(whole, Pictures::kAll, sound), kSuccessful);
  const test::AlignedBytes aligned(whole.size());
  for (size_t bit = 0; bit < 8 * kHeaderBytes; ++bit) {
    std::vector<uint8_t> frame = whole;
    frame[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
    Rows rows;
    const ResultWord result = decoder.Decode(frame, Pictures::kAll, rows);
    const size_t at = bit / 8;
    const auto within = [at](size_t first, size_t end) { return at >= first && at < end; };
    SCOPED_TRACE("byte " + std::to_string(at) + ", bit " + std::to_string(7 - bit % 8));
    if (at < 4) {
      EXPECT_EQ(result, kErrorInBitStream);
    } else if (at == 5 || within(40, 44)) {
      EXPECT_EQ(result, kErrorNonHdFormat);
    } else if (within(356, 360)) {
      EXPECT_EQ(result, kErrorInMacroblockIndices);  // no row table any more
    } else if (within(364, 366)) {
      // Fewer rows than the picture has, or more, which don't matter.
      EXPECT_EQ(result,
                (frame[364] << 8 | frame[365]) < 8 ? kErrorInMacroblockIndices : kSuccessful);
    } else if (within(368, 368 + 4 * 8)) {
      EXPECT_TRUE(result == kSuccessful || result == kErrorInHuffmanDecode ||
                  result == kErrorInMacroblockIndices)
          << result;
      // The check finds each: rows have to end where the next begins.
      std::copy(frame.begin(), frame.end(), aligned.bytes().begin());
      EXPECT_NE(CheckFrame(32769, aligned.bytes()), kSuccessful);
    } else {
      EXPECT_EQ(result, kSuccessful);
      EXPECT_TRUE(rows.samples == sound.samples);
    }
  }
}

TEST(HdDecoder, FlippedBitsOfMacroblocksNeverGiveAnotherWordThanTheirOwn) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t id : {32769u, 32772u}) {
    const VCIDEntry& entry = *FindEntry(id);
    const std::vector<uint8_t> whole = frameOf(entry);
    SerialRowRunner runner;
    FrameDecoder decoder(entry, 1, runner);
    const test::AlignedBytes aligned(whole.size());
    size_t told = 0;
    for (int round = 0; round < 2000; ++round) {
      std::copy(whole.begin(), whole.end(), aligned.bytes().begin());
      const size_t at = kHeaderBytes + random() % 2000;
      aligned.bytes()[at] ^= static_cast<uint8_t>(1u << random() % 8);
      Rows rows;
      const ResultWord decoded = decoder.Decode(aligned.bytes(), Pictures::kAll, rows);
      const ResultWord checked = CheckFrame(id, aligned.bytes());
      ASSERT_TRUE(decoded == kSuccessful || decoded == kErrorInHuffmanDecode) << decoded;
      ASSERT_TRUE(checked == kSuccessful || checked == kErrorInHuffmanDecode ||
                  checked == kErrorInMacroblockIndices)
          << checked;
      // The check reads what the decoder reads, and looks at where rows end besides.
      if (decoded != kSuccessful) {
        ASSERT_NE(checked, kSuccessful);
      }
      told += checked != kSuccessful ? 1 : 0;
    }
    EXPECT_GT(told, 200u);
  }
}

TEST(HdDecoder, AFrameCutAnywhereIsRefused) {
  const VCIDEntry& entry = *FindEntry(32768);
  const std::vector<uint8_t> whole = frameOf(entry);
  SerialRowRunner runner;
  FrameDecoder decoder(entry, 1, runner);
  for (size_t size = 0; size < whole.size(); size += size < 700 ? 1 : 37) {
    // A buffer of its own, so that the address sanitizer sees a read past it.
    const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    Rows rows;
    EXPECT_EQ(decoder.Decode(cut, Pictures::kAll, rows), kErrorInBitStream) << size;
    EXPECT_EQ(rows.count, 0u);
    const test::AlignedBytes aligned(std::max<size_t>(size, 1));
    std::copy(cut.begin(), cut.end(), aligned.bytes().begin());
    EXPECT_EQ(CheckFrame(32768, aligned.bytes().first(size)), kErrorInBitStream) << size;
  }
}

TEST(HdDecoder, MutatedFramesEndOneWayOrTheOther) {
  std::mt19937_64 random(test::testSeed());
  SerialRowRunner runner;
  for (const uint32_t id : {1252u, 1258u, 1260u}) {
    const VCIDEntry& entry = *FindEntry(id);
    const std::vector<uint8_t> whole = frameOf(entry);
    FrameDecoder decoder(entry, 1, runner);
    for (int round = 0; round < 20; ++round) {
      std::vector<uint8_t> frame = whole;
      for (int flips = 0; flips < 20; ++flips) {
        frame[random() % frame.size()] ^= static_cast<uint8_t>(1u << random() % 8);
        frame[640 + random() % 40000] = static_cast<uint8_t>(random());
      }
      Rows rows;
      const ResultWord result = decoder.Decode(frame, Pictures::kAll, rows);
      EXPECT_TRUE(result == kSuccessful || result == kErrorInHuffmanDecode ||
                  result == kErrorInMacroblockIndices || result == kErrorInBitStream ||
                  result == kErrorNonHdFormat)
          << result;
    }
  }
}

}  // namespace
}  // namespace zel::dnxhd
