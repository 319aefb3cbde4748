#include "zel/dnxhd/front_end/frame_report.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "zel/base/bit_writer.h"
#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/vcid_table.h"

namespace Morvalen::Zel {
namespace {

using namespace zel::dnxhd;

// Flat pictures, macroblock i of a row with the step i % 3 + 1.
std::vector<uint8_t> frameOf(uint32_t id) {
  const VCIDEntry& entry = *FindEntry(id);
  const PictureGeometry geometry = GeometryOf(entry);
  std::vector<uint8_t> frame(entry.frameBytes);
  for (uint32_t picture = 0; picture < geometry.pictures; ++picture) {
    const auto bytes =
        std::span(frame).subspan(picture * geometry.pictureBytes, geometry.pictureBytes);
    const FieldCode code =
        geometry.pictures == 1 ? kProgressivePicture : (picture == 0 ? kFirstField : kSecondField);
    WriteFrameHeader(entry, code, bytes.first<kHeaderBytes>());
    zel::base::BitWriter out(bytes.subspan(kHeaderBytes));
    for (uint32_t row = 0; row < geometry.mbRows; ++row) {
      SetRowOffset(bytes.first<kHeaderBytes>(), row, static_cast<uint32_t>(out.position() / 8));
      for (uint32_t column = 0; column < geometry.mbCols; ++column) {
        if (HasFieldFlag(entry)) out.writeFlag(column == 0);
        out.write(column % 3 + 1, HasFieldFlag(entry) ? 10 : 11);
        out.writeFlag(false);
        for (int block = 0; block < (IsRgbFamily(entry) ? 12 : 8); ++block) {
          out.write(entry.dcCodes[0], static_cast<int>(entry.dcLengths[0]));
          out.write(entry.endOfBlockCode, static_cast<int>(entry.endOfBlockLength));
        }
      }
      while (out.position() % 32 != 0) out.writeFlag(false);
    }
    EXPECT_EQ(FinishPicture(bytes, kHeaderBytes + out.finish().size()), kSuccessful);
  }
  return frame;
}

TEST(FrameReport, CountsTheStepsOfAllMacroblocks) {
  for (const uint32_t id : {1237u, 1242u, 1256u, 1260u}) {
    SCOPED_TRACE(id);
    const std::vector<uint8_t> frame = frameOf(id);
    auto report = std::make_unique<FrameReport>();
    ASSERT_EQ(ReadFrameReport(frame.data(), frame.size(), *report), 0);
    const VCIDEntry& entry = *FindEntry(id);
    const PictureGeometry geometry = GeometryOf(entry);
    const uint32_t rows = geometry.mbRows * geometry.pictures;
    EXPECT_EQ(report->compressionId, id);
    EXPECT_EQ(report->macroblocks, rows * geometry.mbCols);
    EXPECT_EQ(report->quantisers[1], rows * ((geometry.mbCols + 2) / 3));
    EXPECT_EQ(report->quantisers[1] + report->quantisers[2] + report->quantisers[3],
              report->macroblocks);
    EXPECT_EQ(report->fieldMacroblocks, HasFieldFlag(entry) ? rows : 0u);
    EXPECT_EQ(report->pictures, geometry.pictures);
    EXPECT_EQ(report->fieldCode, geometry.pictures == 1 ? 1u : 2u);
    EXPECT_EQ(report->depth, entry.depth);
    EXPECT_EQ(report->metadataBytes, 0u);
    EXPECT_GT(report->usedBytes, 640u * geometry.pictures);
    EXPECT_LT(report->usedBytes, report->frameBytes);
    EXPECT_STREQ(report->scanText, entry.scanText);
  }
}

TEST(FrameReport, TellsWhatIsWrong) {
  std::vector<uint8_t> frame = frameOf(1237);
  auto report = std::make_unique<FrameReport>();
  EXPECT_EQ(ReadFrameReport(frame.data(), frame.size() - 1, *report), -3);
  EXPECT_EQ(report->width, 1920u);
  EXPECT_EQ(ReadFrameReport(frame.data(), 43, *report), -3);
  EXPECT_EQ(ReadFrameReport(frame.data(), 0, *report), -3);
  frame[40] = 1;
  EXPECT_EQ(ReadFrameReport(frame.data(), frame.size(), *report), -4);
  frame = frameOf(1237);
  frame[3] = 0;
  EXPECT_EQ(ReadFrameReport(frame.data(), frame.size(), *report), -3);
  frame = frameOf(1237);
  frame[368] = 0x7F;
  EXPECT_EQ(ReadFrameReport(frame.data(), frame.size(), *report), -27);
}

TEST(FrameReport, IdsAndSizes) {
  const std::vector<uint8_t> frame = frameOf(1252);
  EXPECT_EQ(ReadCompressionId(frame.data(), 44), 1252u);
  EXPECT_EQ(ReadCompressionId(frame.data(), 43), 0u);
  EXPECT_EQ(ReadCompressionId(frame.data() + 1, 44), 0u);
  EXPECT_EQ(FrameBytesOf(1254), 218592u);
  EXPECT_EQ(FrameBytesOf(32768), 4096u);
  EXPECT_EQ(FrameBytesOf(1), 0u);
}

}  // namespace
}  // namespace Morvalen::Zel
