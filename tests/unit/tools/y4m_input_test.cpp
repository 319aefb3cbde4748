#include "tools/zel/y4m_input.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/tools/scratch_folder.h"
#include "tools/zel/failure.h"

namespace zel::tool {
namespace {

constexpr size_t kFrameBytes = 8 * 4 * 2;

std::string stream(const std::string& marks) {
  std::string bytes = "YUV4MPEG2 W8 H4 F25:1 C422\n";
  for (const char mark : marks) bytes += "FRAME\n" + std::string(kFrameBytes, mark);
  return bytes;
}

std::string failureOf(const std::string& path) {
  try {
    Y4mInput input(path, "give a size");
    std::vector<uint8_t> frame(kFrameBytes);
    while (input.read(frame) == ReadResult::kFrame) {
    }
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "none";
}

TEST(Y4mInput, ReadsAndPassesOverFrames) {
  const ScratchFolder folder;
  Y4mInput input(folder.write("in", stream("abc")), "");
  std::vector<uint8_t> frame(kFrameBytes);
  EXPECT_EQ(input.header().width, 8u);
  EXPECT_EQ(input.frameBytes(), kFrameBytes);
  EXPECT_EQ(input.frameCount(), 3u);
  EXPECT_EQ(input.skip(), ReadResult::kFrame);
  EXPECT_EQ(input.read(frame), ReadResult::kFrame);
  EXPECT_EQ(frame, std::vector<uint8_t>(kFrameBytes, 'b'));
  EXPECT_EQ(input.skip(), ReadResult::kFrame);
  EXPECT_EQ(input.skip(), ReadResult::kEnd);
}

TEST(Y4mInput, AFrameThatEndsEarlyIsCutShortReadOrPassedOver) {
  const ScratchFolder folder;
  const std::string whole = stream("ab");
  const std::string path = folder.write("in", whole.substr(0, whole.size() - 1));
  std::vector<uint8_t> frame(kFrameBytes);
  Y4mInput reading(path, "");
  EXPECT_EQ(reading.read(frame), ReadResult::kFrame);
  EXPECT_EQ(reading.read(frame), ReadResult::kCutShort);
  Y4mInput passing(path, "");
  EXPECT_EQ(passing.skip(), ReadResult::kFrame);
  EXPECT_EQ(passing.skip(), ReadResult::kCutShort);
}

TEST(Y4mInput, WhatIsWrongNamesTheFile) {
  const ScratchFolder folder;
  const std::string path = folder.write("in", "");
  EXPECT_EQ(failureOf(path), path + " is empty");
  folder.write("in", "RIFF1234");
  EXPECT_EQ(failureOf(path), path +
                                 ": Y4M stream header should begin with YUV4MPEG2; found \"R\"; "
                                 "give a size");
  folder.write("in", stream("a") + "GARBAGE");
  EXPECT_EQ(failureOf(path), path + ": header of frame 1 should begin with FRAME; found \"G\"");
  EXPECT_NE(failureOf(folder / "none").find("none"), std::string::npos);
}

}  // namespace
}  // namespace zel::tool
