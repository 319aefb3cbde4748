// Every kind of elementary stream that independent encoders write, multiplexed: judged by the
// checker that shares no code with the multiplexer, and read by two independent demultiplexers.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "tests/interop/mux/kinds_table.h"
#include "tests/support/elementary_media.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/multiplexed.h"
#include "tests/support/transport_judge/transport_judge.h"

namespace zel::test {
namespace {

constexpr int kSeconds = 6;
constexpr int kVideoPid = 0x101;
constexpr int kAudioPid = 0x102;

// The streams are made once for all tests.
ElementaryMediaShelf& mediaShelf() {
  static ElementaryMediaShelf shelf(kSeconds);
  return shelf;
}
std::string mediaFile(const ElementaryMedia& media) {
  return mediaShelf().file(media);
}

std::string textOf(const std::string& video, const std::string& keys, const std::string& audio) {
  std::string text = "Transport*\nRate = 10000000\nProgram1*\n";
  if (!video.empty()) text += "Video1$\nPID = 0x101\nFile = " + video + "\n" + keys;
  if (!audio.empty()) text += "Audio1$\nPID = 0x102\nFile = " + audio + "\n";
  return text;
}

class StreamKinds : public testing::TestWithParam<ElementaryMedia> {
 protected:
  void SetUp() override {
    const ElementaryMedia& media = GetParam();
    isVideo_ = std::string(media.section) == "Video";
    source_ = mediaFile(media);
    if (source_.empty()) GTEST_SKIP() << media.program << " is not installed";
    // The other half of the programme: video carries the clock.
    const ElementaryMedia& other = *findElementaryMedia(isVideo_ ? "mp2" : "mpeg2_b");
    const std::string companion = mediaFile(other);
    multiplexed_ = isVideo_ ? multiplexText(textOf(source_, media.keys, companion))
                            : multiplexText(textOf(companion, "", source_));
    ASSERT_TRUE(multiplexed_.result.done) << multiplexed_.said();
    ASSERT_FALSE(multiplexed_.bytes.empty());
  }

  int pid() const { return isVideo_ ? kVideoPid : kAudioPid; }
  std::string outputFile() {
    const std::string path = folder_.file("out.ts");
    writeFile(path, multiplexed_.bytes);
    return path;
  }

  bool isVideo_ = true;
  std::string source_;
  Multiplexed multiplexed_;
  ScratchFolder folder_;
};

TEST_P(StreamKinds, HoldTheModelOfTheDecoder) {
  // What the table of media says, and nothing else.
  const std::string expected = GetParam().warning;
  const std::string said = multiplexed_.said();
  EXPECT_EQ(multiplexed_.result.messages.groups().size(), expected.empty() ? 0u : 1u) << said;
  EXPECT_NE(said.find(expected), std::string::npos) << said;
  const Verdict verdict = judgeTransportStream(multiplexed_.bytes);
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  EXPECT_NEAR(verdict.rate, 1e7, 1);
}

TEST_P(StreamKinds, ComeBackByteForByte) {
  EXPECT_TRUE(elementaryStream(multiplexed_.bytes, pid()) == fileBytes(source_));
  const std::string copy = folder_.file("copy.es");
  const ProgramResult result = runProgram(
      programPath("ffmpeg"), {"-v", "error", "-y", "-copyts", "-i", outputFile(), "-map",
                              isVideo_ ? "0:v:0" : "0:a:0", "-c", "copy", "-f", "data", copy});
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(result.output, "");
  const std::vector<uint8_t> back = fileBytes(copy);
  const std::vector<uint8_t> whole = fileBytes(source_);
  EXPECT_EQ(back.size(), whole.size());
  EXPECT_TRUE(back == whole);
}

TEST_P(StreamKinds, DecodeWithoutAnError) {
  const ProgramResult result = runProgram(
      programPath("ffmpeg"), {"-v", "error", "-i", outputFile(), "-map", "0", "-f", "null", "-"});
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(result.output, "");
}

TEST_P(StreamKinds, AreReadByASecondDemultiplexer) {
  const std::string launch = programPath("gst-launch-1.0");
  if (launch.empty()) GTEST_SKIP() << "gst-launch-1.0 is not installed";
  const std::string copy = folder_.file("copy.es");
  const std::string caps = isVideo_ ? "video/mpeg;video/x-h264;video/x-h265"
                                    : "audio/mpeg;audio/x-ac3;audio/x-eac3;audio/x-dts";
  const ProgramResult result =
      runProgram(launch, {"-q", "filesrc", "location=" + outputFile(), "!", "tsdemux", "!",
                          "capsfilter", "caps=" + caps, "!", "filesink", "location=" + copy});
  if (result.output.find("no element \"tsdemux\"") != std::string::npos)
    GTEST_SKIP() << "tsdemux is not installed";
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(result.output, "");
  // Tables go out by their deadlines, and packets of a stream may go before the first of them: what
  // comes before the tables is lost to this demultiplexer, up to the next PES packet.
  const std::vector<uint8_t> back = fileBytes(copy);
  const std::vector<uint8_t> whole = fileBytes(source_);
  ASSERT_LE(back.size(), whole.size());
  EXPECT_LT(whole.size() - back.size(), whole.size() / 20);
  EXPECT_TRUE(std::equal(back.rbegin(), back.rend(), whole.rbegin()));
}

// The tool's own way, and the page that tells of it.
TEST_P(StreamKinds, HaveACommandLineThatTheJudgePasses) {
  const KindRun run = runKind(GetParam(), mediaShelf(), folder_, ZEL_COMMAND);
  EXPECT_EQ(run.exitCode, 0) << run.said;
  EXPECT_NE(run.said.find(GetParam().warning), std::string::npos) << run.said;
  EXPECT_TRUE(run.verdict.clean()) << run.verdict.text();
  EXPECT_FALSE(run.source.empty());
  EXPECT_TRUE(run.back == run.source);
}

TEST(StreamKindsPage, HasARowForEveryKindAndNoOther) {
  std::ifstream page(ZEL_KINDS_PAGE);
  ASSERT_TRUE(page.good()) << ZEL_KINDS_PAGE;
  std::vector<std::string> rows;
  for (std::string line; std::getline(page, line);)
    if (line.find("`zel mux") != std::string::npos && line[0] == '|') rows.push_back(line);
  ASSERT_EQ(rows.size(), allElementaryMedia().size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const ElementaryMedia& media = allElementaryMedia()[i];
    const std::string expected = kindRowBegin(media) + "0 | ";
    EXPECT_EQ(rows[i].substr(0, expected.size()), expected);
    EXPECT_NE(rows[i].find(" | yes | "), std::string::npos) << rows[i];
  }
}

INSTANTIATE_TEST_SUITE_P(Media, StreamKinds, testing::ValuesIn(allElementaryMedia()),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace zel::test
