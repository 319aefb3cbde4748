// Frames of the encoder in the hands of an independent decoder, FFmpeg's, run as a program.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/external_program.h"
#include "zel/dnxhd/bitstream/block_order.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/bitstream/row_writer.h"
#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/encoder/quant_tables.h"

namespace zel::dnxhd {
namespace {

using test::AlignedBytes;
using test::DnxhdPlanes;
using test::fileContents;
using test::SampleDifference;
using test::sampleDifference;

// A picture with every quantiser the same, written row by row with no more than a writer needs.
ResultWord writePlainPicture(const VCIDEntry& entry, const DnxhdPlanes& source, size_t picture,
                             uint16_t level, std::span<uint8_t> out) {
  const PictureGeometry geometry = GeometryOf(entry);
  const size_t blocks = BlocksOf(CodingModeOf(entry));
  const auto header = out.first<kHeaderBytes>();
  const FieldCode code = geometry.pictures == 1 ? kProgressivePicture
                         : picture == 0         ? kFirstField
                                                : kSecondField;
  WriteFrameHeader(entry, code, header);
  std::vector<int16_t> samples(geometry.mbCols * blocks * kBlockCoefficients);
  std::vector<int16_t> coefficients(samples.size());
  const std::vector<uint16_t> steps(geometry.mbCols, level);
  const std::vector<uint32_t> color(geometry.mbCols, 0);
  const std::vector<uint32_t> field(geometry.mbCols, 0);
  const Weighing luma = LumaWeighing(entry);
  const Weighing chroma = ChromaWeighing(entry);
  const RowWriter writer(entry);
  size_t used = kHeaderBytes;
  for (size_t row = 0; row < geometry.mbRows; ++row) {
    source.macroblockRow(picture, row, samples.data());
    ScalarTransformKernels().forward(samples.data(), geometry.mbCols * blocks);
    for (size_t column = 0; column < geometry.mbCols; ++column) {
      for (const BlockPlace& place : PlacesOf(CodingModeOf(entry))) {
        const size_t at = column * blocks * kBlockCoefficients + place.offset;
        ScalarCoefficientKernels().weigh(samples.data() + at, coefficients.data() + at, 1,
                                         place.component == 0 ? luma : chroma);
      }
    }
    SetRowOffset(header, row, static_cast<uint32_t>(used - kHeaderBytes));
    size_t written = 0;
    const ResultWord result =
        writer.Write({coefficients.data(), steps.data(), true, color.data(), field.data()},
                     out.subspan(used), written);
    if (result != kSuccessful) return result;
    used += written;
  }
  return FinishPicture(out, used);
}

struct PlainCase {
  uint32_t id;
  const char* pixels;
};
constexpr PlainCase kPlainCases[] = {
    {1235, "yuv422p10le"}, {1237, "yuv422p"}, {1238, "yuv422p"}, {1241, "yuv422p10le"},
    {1242, "yuv422p"},     {1243, "yuv422p"}, {1244, "yuv422p"}, {1250, "yuv422p10le"},
    {1251, "yuv422p"},     {1252, "yuv422p"}, {1253, "yuv422p"}, {1256, "yuv444p10le"},
    {1258, "yuv422p"},     {1259, "yuv422p"}, {1260, "yuv422p"},
};

class DnxhdPlainPictures : public testing::TestWithParam<int> {};

TEST_P(DnxhdPlainPictures, DecodeAlikeElsewhere) {
  const std::string ffmpeg = test::programPath("ffmpeg");
  if (ffmpeg.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const PlainCase& one = kPlainCases[GetParam()];
  const VCIDEntry& entry = *FindEntry(one.id);
  const PictureGeometry geometry = GeometryOf(entry);
  const test::ScratchFolder folder;
  DnxhdPlanes source(entry);
  const std::string sourceFile = folder.file("source.yuv");
  const test::ProgramResult made = test::runProgram(
      ffmpeg, {"-v", "error", "-f", "lavfi", "-i",
               "testsrc2=size=" + std::to_string(entry.width) + "x" + std::to_string(entry.lines),
               "-pix_fmt", one.pixels, "-frames:v", "1", "-f", "rawvideo", sourceFile});
  ASSERT_EQ(made.exitCode, 0) << made.output;
  const std::vector<char> raw = fileContents(sourceFile);
  ASSERT_EQ(raw.size(), source.rawSize());
  source.readRaw(raw.data());

  // The finest step that the frame has room for.
  const AlignedBytes frame(entry.frameBytes);
  uint16_t level = 0;
  ResultWord result = kErrorEncodeBufferOverflow;
  for (; level < 10 && result != kSuccessful; ++level) {
    result = kSuccessful;
    for (size_t picture = 0; picture < geometry.pictures && result == kSuccessful; ++picture) {
      result = writePlainPicture(
          entry, source, picture, level,
          frame.bytes().subspan(picture * geometry.pictureBytes, geometry.pictureBytes));
    }
  }
  ASSERT_EQ(result, kSuccessful);
  EXPECT_EQ(CheckFrame(one.id, frame.bytes()), kSuccessful);
  DnxhdPlanes ours(entry);
  DnxhdPlanes peersWay(entry);
  SerialRowRunner runner;
  ASSERT_EQ(FrameDecoder(entry, 1, runner).Decode(frame.bytes(), Pictures::kAll, ours),
            kSuccessful);
  ASSERT_EQ(FrameDecoder(entry, 1, runner, Reconstruction::kThreeQuarters)
                .Decode(frame.bytes(), Pictures::kAll, peersWay),
            kSuccessful);

  const std::string file = folder.file("frame.dnxhd");
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(frame.bytes().data()), entry.frameBytes);
  const std::string decodedFile = folder.file("decoded.yuv");
  const test::ProgramResult decoded = test::runProgram(
      ffmpeg, {"-v", "error", "-f", "dnxhd", "-i", file, "-f", "rawvideo", decodedFile});
  EXPECT_EQ(decoded.exitCode, 0);
  EXPECT_EQ(decoded.output, "");
  const std::vector<char> decodedRaw = fileContents(decodedFile);
  ASSERT_EQ(decodedRaw.size(), source.rawSize());
  DnxhdPlanes peer(entry);
  peer.readRaw(decodedRaw.data());

  const SampleDifference rounding =
      sampleDifference(peersWay.samples(), peer.samples(), entry.depth);
  EXPECT_LE(rounding.largest, entry.depth == 8 ? 1 : 2);
  EXPECT_GT(rounding.psnr, 60.0);
  const SampleDifference loss = sampleDifference(ours.samples(), source.samples(), entry.depth);
  EXPECT_GT(loss.psnr, 30.0);
  std::printf("%u: step %d, %.2f dB; the other decoder: at most %d, %.2f dB\n", one.id,
              1 << (level - 1), loss.psnr, rounding.largest, rounding.psnr);
}

INSTANTIATE_TEST_SUITE_P(Ids, DnxhdPlainPictures,
                         testing::Range(0, static_cast<int>(std::size(kPlainCases))),
                         [](const auto& one) {
                           return "Id" + std::to_string(kPlainCases[one.param].id);
                         });

}  // namespace
}  // namespace zel::dnxhd
