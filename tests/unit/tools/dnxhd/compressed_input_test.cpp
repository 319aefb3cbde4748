#include "tools/zel/dnxhd/compressed_input.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/unit/tools/scratch_folder.h"
#include "tools/zel/failure.h"
#include "zel/dnxhd/bitstream/frame_header.h"

namespace zel::tool {
namespace {

// The frame's header, and zeros with a mark of its own.
std::string frameOf(uint32_t id, char mark) {
  const dnxhd::VCIDEntry& entry = *dnxhd::FindEntry(id);
  std::string frame(entry.frameBytes, '\0');
  std::span<uint8_t> bytes(reinterpret_cast<uint8_t*>(frame.data()), frame.size());
  dnxhd::WriteFrameHeader(entry, dnxhd::kProgressivePicture, bytes.first<dnxhd::kHeaderBytes>());
  frame.back() = mark;
  return frame;
}

std::string failureOf(const std::string& path) {
  try {
    const CompressedInput input(path);
    return "none";
  } catch (const Failure& failure) {
    return failure.what();
  }
}

TEST(CompressedInput, ReadsFramesOfTheFirstOnesSize) {
  const ScratchFolder folder;
  CompressedInput input(folder.write("a", frameOf(1253, 'a') + frameOf(1253, 'b')));
  EXPECT_EQ(input.id(), 1253u);
  EXPECT_EQ(input.frameBytes(), 188416u);
  EXPECT_EQ(input.frameCount(), 2u);
  ASSERT_EQ(input.next(), CompressedInput::Read::kFrame);
  EXPECT_EQ(input.frame().back(), 'a');
  EXPECT_EQ(input.index(), 0u);
  ASSERT_EQ(input.next(), CompressedInput::Read::kFrame);
  EXPECT_EQ(input.frame().back(), 'b');
  EXPECT_EQ(input.index(), 1u);
  EXPECT_EQ(input.next(), CompressedInput::Read::kEnd);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(input.frame().data()) % 16, 0u);
}

TEST(CompressedInput, SkipsFrames) {
  const ScratchFolder folder;
  const std::string path =
      folder.write("a", frameOf(1253, 'a') + frameOf(1253, 'b') + frameOf(1253, 'c'));
  CompressedInput input(path);
  input.skip(2);
  ASSERT_EQ(input.next(), CompressedInput::Read::kFrame);
  EXPECT_EQ(input.frame().back(), 'c');
  EXPECT_EQ(input.index(), 2u);
  CompressedInput beyond(path);
  beyond.skip(9);
  EXPECT_EQ(beyond.next(), CompressedInput::Read::kEnd);
}

TEST(CompressedInput, TellsAFrameThatIsCutShort) {
  const ScratchFolder folder;
  CompressedInput input(folder.write("a", frameOf(1253, 'a') + std::string(100, 'x')));
  EXPECT_EQ(input.frameCount(), 1u);
  ASSERT_EQ(input.next(), CompressedInput::Read::kFrame);
  ASSERT_EQ(input.next(), CompressedInput::Read::kCutShort);
  EXPECT_EQ(input.bytesOfCut(), 100u);
  EXPECT_EQ(input.index(), 1u);
}

TEST(CompressedInput, RefusesWhatIsNoDnxhd) {
  const ScratchFolder folder;
  EXPECT_EQ(failureOf(folder.write("a", "")), folder / "a" + " is empty");
  EXPECT_EQ(failureOf(folder.write("a", "RIFF")),
            folder / "a" + " doesn't begin with a DNxHD frame");
  std::string frame = frameOf(1253, 'a');
  frame[40] = 1;
  EXPECT_EQ(failureOf(folder.write("a", frame)),
            folder / "a" + " begins with a frame of id 16778469, which is not known");
  EXPECT_NE(failureOf(folder / "none").find("No such file"), std::string::npos);
}

}  // namespace
}  // namespace zel::tool
