#include "zel/dnxhd/bitstream/side_data.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "zel/base/byte_order.h"
#include "zel/dnxhd/bitstream/frame_header.h"

namespace zel::dnxhd {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes packet(uint32_t line, uint8_t count, uint8_t fill) {
  Bytes bytes(count + size_t{7}, fill);
  bytes[0] = 255;
  bytes[1] = static_cast<uint8_t>(128 | (line & 127));
  bytes[2] = static_cast<uint8_t>(line / 128);
  bytes[3] = 0x61;
  bytes[4] = 0x01;
  bytes[5] = count;
  bytes.back() = 0x40;
  return bytes;
}

Bytes joined(std::initializer_list<Bytes> packets) {
  Bytes all;
  for (const Bytes& one : packets) all.insert(all.end(), one.begin(), one.end());
  return all;
}

Bytes frameOf(uint32_t id) {
  const VCIDEntry& entry = *FindEntry(id);
  Bytes frame(entry.frameBytes);
  const bool single = entry.singlePicture == 1;
  WriteFrameHeader(entry, single ? kProgressivePicture : kFirstField,
                   std::span(frame).first<kHeaderBytes>());
  if (!single) {
    WriteFrameHeader(entry, kSecondField,
                     std::span(frame).subspan(frame.size() / 2).first<kHeaderBytes>());
  }
  return frame;
}

Bytes extracted(const Bytes& frame) {
  std::array<uint8_t, kExtractedBytes> out;
  out.fill(0xEE);
  EXPECT_EQ(ExtractMetadata(frame, out), kSuccessful);
  return {out.begin(), out.end()};
}

Bytes padded(Bytes bytes) {
  bytes.resize(kExtractedBytes);
  return bytes;
}

TEST(SideData, APictureGivesBackItsPackets) {
  Bytes frame = frameOf(1237);
  frame[6] |= 0x10;
  const Bytes packets = joined({packet(9, 10, 1), packet(600, 20, 2)});
  Bytes given = packets;
  given.push_back(0);  // the end of the packets
  given.insert(given.end(), 40, 0xFF);
  ASSERT_EQ(InsertMetadata(frame, given), kSuccessful);
  EXPECT_EQ(frame[6], 0x80);
  EXPECT_EQ(frame[95], 0x80);
  EXPECT_EQ(frame[96], packets.size());
  EXPECT_EQ(
      Bytes(frame.begin() + 356 - static_cast<ptrdiff_t>(packets.size()), frame.begin() + 356),
      packets);
  EXPECT_EQ(extracted(frame), padded(packets));
}

TEST(SideData, FieldsTakeTheirOwnLines) {
  Bytes frame = frameOf(1241);
  const Bytes first = packet(563, 4, 1);
  const Bytes second = packet(565, 5, 2);
  ASSERT_EQ(InsertMetadata(frame, joined({second, first})), kSuccessful);
  EXPECT_EQ(frame[96], first.size());
  EXPECT_EQ(frame[frame.size() / 2 + 96], second.size());
  EXPECT_EQ(extracted(frame), padded(joined({first, second})));
}

TEST(SideData, Line564IsDroppedOnInsertion) {
  Bytes frame = frameOf(1241);
  const Bytes before = frame;
  ASSERT_EQ(InsertMetadata(frame, packet(564, 4, 1)), kSuccessful);
  EXPECT_EQ(frame, before);
  // A packet on that line which another writer put into the second field is read.
  const Bytes line = packet(564, 4, 7);
  const size_t half = frame.size() / 2;
  frame[half + 95] = 0x80;
  frame[half + 96] = static_cast<uint8_t>(line.size());
  std::copy(line.begin(), line.end(),
            frame.begin() + static_cast<ptrdiff_t>(half + 356 - line.size()));
  EXPECT_EQ(extracted(frame), padded(line));
  // Byte 5 of the second header decides which lines the second pass takes.
  frame[half + 5] = kFirstField;
  EXPECT_EQ(extracted(frame), padded({}));
}

TEST(SideData, AFieldWithoutPacketsIsLeftAlone) {
  Bytes frame = frameOf(1243);
  const Bytes before = frame;
  ASSERT_EQ(InsertMetadata(frame, packet(600, 8, 1)), kSuccessful);
  EXPECT_TRUE(std::equal(frame.begin(), frame.begin() + 640, before.begin()));
  EXPECT_NE(frame[frame.size() / 2 + 95], before[frame.size() / 2 + 95]);
}

TEST(SideData, NothingIsAddedBeyondWhatTheLengthCanTell) {
  Bytes frame = frameOf(1235);
  const Bytes big = packet(10, 120, 3);  // 127 bytes
  const Bytes packets = joined({big, big, packet(10, 1, 4)});
  ASSERT_EQ(InsertMetadata(frame, packets), kSuccessful);
  EXPECT_EQ(frame[96], 254);
  EXPECT_EQ(extracted(frame), padded(joined({big, big})));
  // A later insertion leaves nothing of the former.
  ASSERT_EQ(InsertMetadata(frame, packet(11, 1, 5)), kSuccessful);
  EXPECT_EQ(extracted(frame), padded(packet(11, 1, 5)));
  for (size_t at = 100; at < 356 - 8; ++at) EXPECT_EQ(frame[at], 0) << at;
}

TEST(SideData, BadPacketsAreRefusedAndChangeNothing) {
  Bytes frame = frameOf(1237);
  Bytes fields = frameOf(1242);
  const Bytes before = frame;
  const Bytes fieldsBefore = fields;
  EXPECT_EQ(InsertMetadata(frame, {}), kErrorInMetadataInsertion);
  EXPECT_EQ(InsertMetadata(frame, Bytes(10, 0xFE)), kErrorInMetadataInsertion);
  Bytes cut = packet(10, 50, 0);
  cut.pop_back();
  EXPECT_EQ(InsertMetadata(frame, cut), kErrorInMetadataInsertion);
  EXPECT_EQ(InsertMetadata(frame, packet(10, 255, 0)), kErrorInMetadataInsertion);
  Bytes badLine = packet(10, 5, 0);
  badLine[1] &= 127;
  EXPECT_EQ(InsertMetadata(fields, joined({packet(9, 2, 0), badLine})), kErrorInMetadataInsertion);
  EXPECT_EQ(frame, before);
  EXPECT_EQ(fields, fieldsBefore);
  EXPECT_EQ(InsertMetadata(frame, badLine), kSuccessful);
}

TEST(SideData, BadFramesGiveTheRightWord) {
  std::array<uint8_t, kExtractedBytes> out{};
  Bytes frame = frameOf(1237);
  frame[5] = 0;
  EXPECT_EQ(ExtractMetadata(frame, out), kErrorNonHdFormat);
  frame[5] = 4;
  EXPECT_EQ(ExtractMetadata(frame, out), kErrorNonHdFormat);
  frame = frameOf(1237);
  frame[42] = 0x77;
  EXPECT_EQ(ExtractMetadata(frame, out), kErrorNonHdFormat);
  EXPECT_EQ(InsertMetadata(frame, packet(1, 1, 1)), kErrorNonHdFormat);
  frame = frameOf(1241);
  EXPECT_EQ(ExtractMetadata(std::span(frame).first(639), out), kErrorInBitStream);
  const auto cut = std::span(frame).first(frame.size() / 2 + 639);
  EXPECT_EQ(ExtractMetadata(cut, out), kErrorInBitStream);
  EXPECT_EQ(InsertMetadata(cut, packet(1, 1, 1)), kErrorInBitStream);
}

TEST(SideData, RandomAreasNeverReadPastTheirEnd) {
  std::mt19937_64 random(test::testSeed());
  Bytes frame = frameOf(1241);
  const size_t half = frame.size() / 2;
  for (int round = 0; round < 2000; ++round) {
    for (const size_t base : {size_t{0}, half}) {
      frame[base + 95] = 0x80;
      frame[base + 96] = static_cast<uint8_t>(random());
      for (size_t at = 100; at < 356; ++at) {
        const uint64_t r = random();
        frame[base + at] = (r & 7) == 0 ? 255 : static_cast<uint8_t>(r >> 8 & 15);
      }
    }
    std::array<uint8_t, kExtractedBytes> out;
    ASSERT_EQ(ExtractMetadata(frame, out), kSuccessful);
    // What comes out is whole packets, then zeros.
    size_t at = 0;
    while (at < out.size() && out[at] == 255) at += out[at + 5] + 7u;
    ASSERT_LE(at, out.size());
    for (; at < out.size(); ++at) ASSERT_EQ(out[at], 0);
  }
}

}  // namespace
}  // namespace zel::dnxhd
