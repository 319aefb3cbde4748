#include "tools/zel/hevc/picture_input.h"

#include <gtest/gtest.h>

#include "tests/unit/tools/scratch_folder.h"
#include "tools/zel/failure.h"

namespace zel::tool {
namespace {

constexpr size_t kFrameBytes = 16 * 8 * 3 / 2;

std::string frame(char sample) {
  return std::string(kFrameBytes, sample);
}

std::string y4m(const std::string& parameters, const std::string& frames = "") {
  return "YUV4MPEG2 W16 H8" + parameters + "\n" + frames;
}

class PictureInputTest : public ::testing::Test {
 protected:
  std::unique_ptr<PictureInput> open(const std::string& bytes,
                                     std::optional<PictureSize> size = std::nullopt) {
    return openPictures(folder_.write("in", bytes), size);
  }

  std::string failureOf(const std::string& bytes, std::optional<PictureSize> size = std::nullopt) {
    try {
      const auto input = open(bytes, size);
      std::vector<uint8_t> picture(input->format().frameBytes());
      while (input->read(picture) == ReadResult::kFrame) {
      }
    } catch (const std::runtime_error& error) {
      std::string text = error.what();
      const std::string path = folder_ / "in";
      if (const size_t at = text.find(path); at != std::string::npos)
        text.replace(at, path.size(), "in");
      return text;
    }
    return "none";
  }

  ScratchFolder folder_;
};

TEST_F(PictureInputTest, Y4mTellsItsFormat) {
  const auto input = open(y4m(" F30000:1001 It A128:117 C420paldv XCOLORRANGE=FULL"));
  const PictureFormat& format = input->format();
  EXPECT_STREQ(input->container(), "y4m");
  EXPECT_EQ(format.width, 16u);
  EXPECT_EQ(format.height, 8u);
  EXPECT_EQ(format.frameBytes(), kFrameBytes);
  EXPECT_EQ(format.rate, (media::Rational{30000, 1001}));
  EXPECT_EQ(format.aspect, (media::Rational{128, 117}));
  EXPECT_EQ(format.range, media::Y4mRange::kFull);
  EXPECT_EQ(format.interlace, media::Y4mInterlace::kTopFirst);
  EXPECT_EQ(format.chroma, "420paldv");
}

TEST_F(PictureInputTest, Y4mGivesItsPictures) {
  const auto input = open(y4m(" F25:1", "FRAME\n" + frame('a') + "FRAME Xfoo\n" + frame('b')));
  std::vector<uint8_t> picture(kFrameBytes);
  EXPECT_EQ(input->pictureCount(), 2u);
  EXPECT_EQ(input->read(picture), ReadResult::kFrame);
  EXPECT_EQ(picture[0], 'a');
  EXPECT_EQ(input->read(picture), ReadResult::kFrame);
  EXPECT_EQ(picture[kFrameBytes - 1], 'b');
  EXPECT_EQ(input->read(picture), ReadResult::kEnd);
}

TEST_F(PictureInputTest, EverySitingOf420Is420) {
  for (const char* chroma : {"", " C420", " C420jpeg", " C420mpeg2", " C420paldv"})
    EXPECT_NO_THROW(open(y4m(std::string(" F25:1") + chroma))) << chroma;
}

TEST_F(PictureInputTest, OtherSamplingIsNamed) {
  EXPECT_EQ(failureOf(y4m(" F25:1 C422")),
            "in is 4:2:2 8-bit (C422); the encoder takes 4:2:0 8-bit");
  EXPECT_EQ(failureOf(y4m(" F25:1 C420p10")),
            "in is 4:2:0 10-bit (C420p10); the encoder takes 4:2:0 8-bit");
  EXPECT_EQ(failureOf(y4m(" F25:1 Cmono")),
            "in is luma only, 8-bit (Cmono); the encoder takes 4:2:0 8-bit");
  EXPECT_EQ(failureOf(y4m(" F25:1 C444alpha")),
            "in is 4:4:4 8-bit with alpha (C444alpha); the encoder takes 4:2:0 8-bit");
}

TEST_F(PictureInputTest, OddSizesAreNamed) {
  EXPECT_EQ(failureOf("YUV4MPEG2 W15 H8 F25:1\n"),
            "in is 15x8; the encoder takes even widths and heights only");
  EXPECT_EQ(failureOf(frame('a'), PictureSize{16, 7}),
            "in is 16x7; the encoder takes even widths and heights only");
}

TEST_F(PictureInputTest, AnEndInTheMidstIsNoDamage) {
  std::vector<uint8_t> picture(kFrameBytes);
  for (const std::string& end :
       {std::string("F"), std::string("FRAME"), "FRAME\n" + frame('b').substr(1)}) {
    const auto input = open(y4m(" F25:1", "FRAME\n" + frame('a') + end));
    EXPECT_EQ(input->read(picture), ReadResult::kFrame);
    EXPECT_EQ(input->read(picture), ReadResult::kCutShort) << end.size();
  }
}

TEST_F(PictureInputTest, DamageIsAFailure) {
  EXPECT_EQ(failureOf(y4m(" F25:1", "FRAME\n" + frame('a') + "GARBAGE")),
            "in: header of frame 1 should begin with FRAME; found \"G\"");
  EXPECT_EQ(failureOf(""), "in is empty");
  EXPECT_EQ(
      failureOf("RIFF1234"),
      "in: Y4M stream header should begin with YUV4MPEG2; found \"R\"; for raw pictures, give "
      "--size and --rate");
}

TEST_F(PictureInputTest, RawPicturesHaveTheSizeGiven) {
  const auto input = open(frame('a') + frame('b') + "c", PictureSize{16, 8});
  std::vector<uint8_t> picture(kFrameBytes);
  EXPECT_STREQ(input->container(), "raw");
  EXPECT_EQ(input->pictureCount(), 2u);
  EXPECT_EQ(input->read(picture), ReadResult::kFrame);
  EXPECT_EQ(input->read(picture), ReadResult::kFrame);
  EXPECT_EQ(picture[0], 'b');
  EXPECT_EQ(input->read(picture), ReadResult::kCutShort);
  EXPECT_FALSE(input->format().rate.known());
}

TEST_F(PictureInputTest, ASizeBesideAY4mStreamIsWrongUsage) {
  const auto input = open(y4m(" F25:1", "FRAME\n" + frame('a') + frame('b')), PictureSize{16, 8});
  std::vector<uint8_t> picture(kFrameBytes);
  EXPECT_THROW(input->read(picture), WrongUsage);
}

TEST_F(PictureInputTest, SizesThatNoPictureHasAreWrongUsage) {
  EXPECT_THROW(open(frame('a'), PictureSize{65534, 65534}), WrongUsage);
  EXPECT_THROW(open(frame('a'), PictureSize{2147483646, 2}), WrongUsage);
}

TEST_F(PictureInputTest, APipeHasNoCount) {
  EXPECT_EQ(openPictures("/dev/zero", PictureSize{16, 8})->pictureCount(), std::nullopt);
}

TEST_F(PictureInputTest, AMissingFileIsNamed) {
  const std::string path = folder_ / "none";
  try {
    openPictures(path, std::nullopt);
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.what(), path + ": cannot open: No such file or directory");
  }
}

}  // namespace
}  // namespace zel::tool
