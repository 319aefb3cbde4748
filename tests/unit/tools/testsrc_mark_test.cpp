#include "tools/zel/testsrc/frame_mark.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/support/external_program.h"
#include "tests/support/seed.h"
#include "tools/zel/media/y4m.h"
#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/picture_source.h"

namespace zel::testsrc {
namespace {

using test::programPath;
using test::runProgram;
using test::ScratchFolder;

PictureOptions sized(uint32_t width, uint32_t height, int depth = 8) {
  PictureOptions options;
  options.width = width;
  options.height = height;
  options.depth = depth;
  return options;
}

LumaView lumaOf(const PictureOptions& options, const std::vector<uint8_t>& frame) {
  const int width = static_cast<int>(options.width);
  return {frame.data(), static_cast<size_t>(width) * (options.depth > 8 ? 2 : 1), width,
          static_cast<int>(options.height), options.depth};
}

std::vector<uint8_t> marked(const PictureOptions& options, const FrameMark& mark) {
  std::vector<uint8_t> frame(frameBytesOf(options), 0x55);
  drawFrameMark(pictureOver(options, frame), mark);
  return frame;
}

TEST(FrameMark, ReadsBackAtEverySizeAndDepth) {
  std::mt19937_64 random(test::testSeed());
  for (const int depth : {8, 10}) {
    for (uint32_t width = 32; width < 2000; width += 1 + width / 20) {
      const PictureOptions options = sized(width, 96, depth);
      for (const uint32_t counter : {uint32_t{0}, UINT32_MAX, static_cast<uint32_t>(random())}) {
        const FrameMark mark{counter, (counter & 1) != 0};
        EXPECT_EQ(readFrameMark(lumaOf(options, marked(options, mark))), mark) << width;
      }
    }
  }
}

TEST(FrameMark, FitsIntoTheSmallestPicture) {
  const PictureOptions options = sized(32, 32);
  EXPECT_EQ(readFrameMark(lumaOf(options, marked(options, {77, false}))), (FrameMark{77, false}));
}

TEST(FrameMark, CellsMeetTheBlocksOfCodecs) {
  EXPECT_EQ(markLayout(1920).cellWidth, 40);
  EXPECT_EQ(markLayout(1280).cellWidth, 24);
  EXPECT_EQ(markLayout(720).cellWidth, 8);
  EXPECT_EQ(markLayout(384).cellWidth, 8);
  EXPECT_EQ(markLayout(383).cellWidth, 4);
  EXPECT_EQ(markLayout(128).columns, 32);
  EXPECT_EQ(markLayout(128).rows, 2);
}

// The layout that docs/testsrc.md promises, cell for cell.
TEST(FrameMark, HasThePromisedLayout) {
  const PictureOptions options = sized(1280, 720);
  const std::vector<uint8_t> frame = marked(options, {0x80000005, true});
  const auto cell = [&](size_t index) { return frame[12 * 1280 + 12 + 24 * index]; };
  EXPECT_EQ(cell(0), 235);
  EXPECT_EQ(cell(1), 16);
  EXPECT_EQ(cell(2), 235);  // the highest bit
  for (size_t i = 3; i <= 30; ++i) EXPECT_EQ(cell(i), 16) << i;
  EXPECT_EQ(cell(31), 235);
  EXPECT_EQ(cell(32), 16);
  EXPECT_EQ(cell(33), 235);  // the lowest
  EXPECT_EQ(cell(34), 235);  // of a second
  EXPECT_EQ(cell(35), 16);
  EXPECT_EQ(frame[size_t{50} * 1280 + 50], 235) << "the flash";
  EXPECT_EQ(marked(options, {5, false})[size_t{50} * 1280 + 50], 16);
}

TEST(FrameMark, BearsNoiseAndOtherLevels) {
  std::mt19937_64 random(test::testSeed());
  const PictureOptions options = sized(640, 64);
  for (uint32_t round = 0; round < 200; ++round) {
    const FrameMark mark{static_cast<uint32_t>(random()), round % 3 == 0};
    std::vector<uint8_t> frame = marked(options, mark);
    const int gain = 128 + static_cast<int>(random() % 128);
    for (uint8_t& sample : frame) {
      const int noise = static_cast<int>(random() % 81) - 40;
      sample = static_cast<uint8_t>(std::clamp(sample * gain / 256 + 20 + noise, 0, 255));
    }
    EXPECT_EQ(readFrameMark(lumaOf(options, frame)), mark) << round;
  }
}

TEST(FrameMark, IsNotSeenWhereThereIsNone) {
  const PictureOptions options = sized(640, 64);
  for (const int level : {0, 16, 128, 255}) {
    const std::vector<uint8_t> flat(frameBytesOf(options), static_cast<uint8_t>(level));
    EXPECT_EQ(readFrameMark(lumaOf(options, flat)), std::nullopt);
  }
  std::mt19937_64 random(test::testSeed());
  std::vector<uint8_t> noise(frameBytesOf(options));
  for (uint8_t& sample : noise) sample = static_cast<uint8_t>(random());
  EXPECT_EQ(readFrameMark(lumaOf(options, noise)), std::nullopt);
}

TEST(FrameMark, IsRefusedWithAnyCellWrong) {
  const PictureOptions options = sized(640, 64);
  const std::vector<uint8_t> good = marked(options, {123456789, false});
  const MarkLayout layout = markLayout(640);
  for (int cell = 0; cell < kMarkCells; ++cell) {
    std::vector<uint8_t> bad = good;
    for (int y = 0; y < layout.cellHeight; ++y) {
      for (int x = 0; x < layout.cellWidth; ++x) {
        uint8_t& sample = bad[static_cast<size_t>(y * 640 + cell * layout.cellWidth + x)];
        sample = static_cast<uint8_t>(251 - sample);
      }
    }
    EXPECT_EQ(readFrameMark(lumaOf(options, bad)), std::nullopt) << cell;
  }
}

TEST(FrameMark, IsNotLookedForOutsideOfThePicture) {
  const std::vector<uint8_t> row(640, 16);
  EXPECT_EQ(readFrameMark({row.data(), 640, 640, 1, 8}), std::nullopt);
  EXPECT_EQ(readFrameMark({row.data(), 3, 3, 3, 8}), std::nullopt);
}

TEST(FrameMark, StandsInEachFieldToo) {
  PictureOptions options = sized(720, 576);
  options.pattern = Pattern::kText;
  options.scan = Scan::kTopFirst;
  PictureSource source(options);
  std::vector<uint8_t> frame(source.frameBytes());
  source.render(41, frame);
  for (const size_t field : {0u, 1u}) {
    const LumaView view = {frame.data() + field * 720, 1440, 720, 288, 8};
    EXPECT_EQ(readFrameMark(view, markLayoutOfField(720)), (FrameMark{41, false}));
  }
}

TEST(FrameMark, TellsTheFramesOfTheSeconds) {
  for (const media::Rational rate : {media::Rational{25, 1}, media::Rational{30000, 1001}}) {
    PictureOptions options = sized(384, 216);
    options.pattern = Pattern::kNoise;
    options.rate = rate;
    PictureSource source(options);
    std::vector<uint8_t> frame(source.frameBytes());
    for (uint64_t i = 0; i < 80; ++i) {
      source.render(i, frame);
      const auto mark = readFrameMark(lumaOf(options, frame));
      ASSERT_TRUE(mark.has_value());
      EXPECT_EQ(mark->counter, i);
      EXPECT_EQ(mark->second, isMarkFrame(rate, i)) << i;
    }
  }
}

// Through an encoder that throws most of the picture away, and an independent decoder.
class FrameMarkCoded : public testing::TestWithParam<Pattern> {};

TEST_P(FrameMarkCoded, SurvivesCoarseCoding) {
  const std::string x265 = programPath("x265");
  const std::string ffmpeg = programPath("ffmpeg");
  if (x265.empty() || ffmpeg.empty()) GTEST_SKIP() << "x265 and ffmpeg are not both installed";
  ScratchFolder folder;
  PictureOptions options = sized(640, 360);
  options.pattern = GetParam();
  constexpr uint64_t kFrames = 32;
  {
    PictureSource source(options);
    media::FileSink sink(folder.file("in.y4m"));
    media::Y4mWriter writer(sink);
    ASSERT_TRUE(writer.writeHeader(source.header()));
    std::vector<uint8_t> frame(source.frameBytes());
    for (uint64_t i = 0; i < kFrames; ++i) {
      source.render(i, frame);
      ASSERT_TRUE(writer.writeFrame(frame));
    }
    ASSERT_TRUE(sink.close());
  }
  const auto encoded =
      runProgram(x265, {"--input", folder.file("in.y4m"), "--crf", "35", "--preset", "superfast",
                        "--output", folder.file("out.hevc")});
  ASSERT_EQ(encoded.exitCode, 0) << encoded.output;
  const auto decoded = runProgram(ffmpeg, {"-v", "error", "-i", folder.file("out.hevc"), "-f",
                                           "yuv4mpegpipe", folder.file("out.y4m")});
  ASSERT_EQ(decoded.exitCode, 0) << decoded.output;

  media::FileSource file(folder.file("out.y4m"));
  media::Y4mReader reader(file);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  std::vector<uint8_t> frame(reader.layout().frameBytes);
  for (uint64_t i = 0; i < kFrames; ++i) {
    ASSERT_EQ(reader.readFrame(frame), media::Y4mResult::kFrame) << reader.error();
    const auto mark = readFrameMark({frame.data(), 640, 640, 360, 8});
    ASSERT_TRUE(mark.has_value()) << "frame " << i;
    EXPECT_EQ(*mark, (FrameMark{static_cast<uint32_t>(i), i == 0 || i == 30}));
  }
  EXPECT_EQ(reader.readFrame(frame), media::Y4mResult::kEnd);
}

INSTANTIATE_TEST_SUITE_P(All, FrameMarkCoded,
                         testing::Values(Pattern::kMotion, Pattern::kText, Pattern::kNoise),
                         [](const auto& row) { return std::string(nameOf(row.param)); });

}  // namespace
}  // namespace zel::testsrc
