#include "tools/zel/dnxhd/frame_input.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/tools/scratch_folder.h"
#include "tools/zel/failure.h"

namespace zel::tool {
namespace {

using Read = FrameInput::Read;

std::string y4m(const std::string& parameters, size_t frameBytes, const std::string& marks) {
  std::string stream = "YUV4MPEG2 W8 H4 F25:1 " + parameters + "\n";
  for (const char mark : marks) stream += "FRAME\n" + std::string(frameBytes, mark);
  return stream;
}

TEST(FrameInput, Y4mTellsItsFormAndScan) {
  const ScratchFolder folder;
  const auto input = openFrames(folder.write("a", y4m("It C422p10", 128, "ab")), nullptr, {});
  EXPECT_EQ(input->form().name, "yuv422p10");
  EXPECT_EQ(input->width(), 8u);
  EXPECT_EQ(input->height(), 4u);
  EXPECT_EQ(input->interlace(), media::Y4mInterlace::kTopFirst);
  EXPECT_EQ(input->frameBytes(), 128u);
  EXPECT_EQ(input->frameCount(), 2u);
  std::vector<uint8_t> frame(128);
  ASSERT_TRUE(input->skip(1));
  ASSERT_EQ(input->read(frame), Read::kFrame);
  EXPECT_EQ(frame[5], 'b');
  EXPECT_EQ(input->read(frame), Read::kEnd);
}

TEST(FrameInput, RawFramesAreOfTheGivenForm) {
  const ScratchFolder folder;
  const FrameForm& form = *findFrameForm("uyvy");
  const auto input = openFrames(folder.write("a", std::string(64, 'a') + std::string(64, 'b')),
                                &form, PictureSize{8, 4});
  EXPECT_EQ(input->frameBytes(), 64u);
  EXPECT_EQ(input->frameCount(), 2u);
  EXPECT_TRUE(input->skip(1));
  std::vector<uint8_t> frame(64);
  ASSERT_EQ(input->read(frame), Read::kFrame);
  EXPECT_EQ(frame[63], 'b');
  EXPECT_EQ(input->read(frame), Read::kEnd);
}

TEST(FrameInput, AnEndInTheMidstOfAFrameIsTold) {
  const ScratchFolder folder;
  std::vector<uint8_t> frame(64);
  const std::string whole = y4m("C422", 64, "a");
  const auto cut = openFrames(folder.write("a", whole.substr(0, whole.size() - 1)), nullptr, {});
  EXPECT_EQ(cut->read(frame), Read::kCutShort);
  const auto raw =
      openFrames(folder.write("b", std::string(65, 'a')), findFrameForm("uyvy"), PictureSize{8, 4});
  EXPECT_EQ(raw->read(frame), Read::kFrame);
  EXPECT_EQ(raw->read(frame), Read::kCutShort);
  const auto beyond = openFrames(folder / "b", findFrameForm("uyvy"), PictureSize{8, 4});
  EXPECT_FALSE(beyond->skip(2));
}

TEST(FrameInput, RefusesWhatTheCodecDoesNotTake) {
  const ScratchFolder folder;
  for (const char* chroma : {"C420", "C411", "C422p12", "C444alpha", "Cmono"})
    EXPECT_THROW(openFrames(folder.write("a", y4m(chroma, 0, "")), nullptr, {}), Failure) << chroma;
  EXPECT_THROW(openFrames(folder.write("a", ""), nullptr, {}), Failure);
  EXPECT_THROW(openFrames(folder.write("a", "RIFF"), nullptr, {}), Failure);
  EXPECT_THROW(openFrames(folder / "none", nullptr, {}), Failure);
}

}  // namespace
}  // namespace zel::tool
