#include "tools/zel/media/y4m.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/support/external_program.h"
#include "tests/support/seed.h"

namespace zel::media {
namespace {

using test::programPath;
using test::runProgram;
using test::ScratchFolder;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<uint8_t> bytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

// The reader's complaint about a stream's header.
std::string headerError(const std::vector<uint8_t>& stream) {
  MemorySource source(stream);
  Y4mReader reader(source);
  return reader.readHeader() ? "(accepted)" : reader.error();
}

std::string headerError(std::string_view stream) {
  return headerError(bytesOf(stream));
}

Y4mHeader sampleHeader(std::string_view tag = "420mpeg2", uint32_t width = 6, uint32_t height = 4) {
  Y4mHeader header;
  header.width = width;
  header.height = height;
  header.rate = {30000, 1001};
  header.aspect = {1, 1};
  header.interlace = Y4mInterlace::kProgressive;
  header.chroma = findY4mChroma(tag);
  header.range = Y4mRange::kLimited;
  return header;
}

std::vector<uint8_t> randomBytes(size_t count, std::mt19937_64& random) {
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

TEST(Y4mReader, ReadsEveryParameter) {
  const auto stream = bytesOf(
      "YUV4MPEG2 W720 H576 F25:1 It A16:15 C420jpeg XYSCSS=420JPEG XCOLORRANGE=FULL Xnote Q7\n");
  MemorySource source(stream);
  Y4mReader reader(source);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  const Y4mHeader& header = reader.header();
  EXPECT_EQ(header.width, 720u);
  EXPECT_EQ(header.height, 576u);
  EXPECT_EQ(header.rate, (Rational{25, 1}));
  EXPECT_EQ(header.aspect, (Rational{16, 15}));
  EXPECT_EQ(header.interlace, Y4mInterlace::kTopFirst);
  EXPECT_EQ(header.chroma, findY4mChroma("420jpeg"));
  EXPECT_EQ(header.range, Y4mRange::kFull);
  EXPECT_THAT(header.comments, ElementsAre("note"));
  EXPECT_THAT(header.ignored, ElementsAre("Q7"));
  EXPECT_EQ(reader.layout().frameBytes, 720u * 576 * 3 / 2);
}

TEST(Y4mReader, TakesFourTwoZeroWhenNoLayoutIsNamed) {
  const auto stream = bytesOf("YUV4MPEG2 W4 H4\n");
  MemorySource source(stream);
  Y4mReader reader(source);
  ASSERT_TRUE(reader.readHeader());
  EXPECT_EQ(reader.header().chroma->tag, "420jpeg");
  EXPECT_FALSE(reader.header().rate.known());
  EXPECT_EQ(reader.header().interlace, Y4mInterlace::kUnknown);
}

TEST(Y4mReader, TakesTheLayoutOfTheCommentWhenThereIsNoC) {
  const auto stream = bytesOf("YUV4MPEG2 W8 H4 XYSCSS=411\n");
  MemorySource source(stream);
  Y4mReader reader(source);
  ASSERT_TRUE(reader.readHeader());
  EXPECT_EQ(reader.header().chroma->tag, "411");
}

TEST(Y4mReader, LetsCWinOverTheComment) {
  const auto stream = bytesOf("YUV4MPEG2 W8 H4 XYSCSS=411 C444\n");
  MemorySource source(stream);
  Y4mReader reader(source);
  ASSERT_TRUE(reader.readHeader());
  EXPECT_EQ(reader.header().chroma->tag, "444");
}

TEST(Y4mReader, NamesWhatItFound) {
  EXPECT_THAT(headerError(""), HasSubstr("the input is empty"));
  EXPECT_THAT(headerError("RIFF\x01\x02"), HasSubstr("found \"R\""));
  EXPECT_THAT(headerError("YUV4MPEG1 W4\n"), HasSubstr("found \"YUV4MPEG1\""));
  EXPECT_THAT(headerError("YUV4\n"), HasSubstr("found \"YUV4\""));
  EXPECT_THAT(headerError("YUV4MPEG2W4 H4\n"), HasSubstr("YUV4MPEG2W4"));
  EXPECT_THAT(headerError("YUV4MPEG2 W4 H4"), HasSubstr("cut short"));
  EXPECT_THAT(headerError("YUV4MPEG2 H4\n"), HasSubstr("picture size 0x4"));
  EXPECT_THAT(headerError("YUV4MPEG2 W4x H4\n"), HasSubstr("\"W4x\""));
  EXPECT_THAT(headerError("YUV4MPEG2 W-4 H4\n"), HasSubstr("\"W-4\""));
  EXPECT_THAT(headerError("YUV4MPEG2 W4294967297 H4\n"), HasSubstr("\"W4294967297\""));
  EXPECT_THAT(headerError("YUV4MPEG2 W4 H4 F25\n"), HasSubstr("\"F25\""));
  EXPECT_THAT(headerError("YUV4MPEG2 W4 H4 F25:0\n"), HasSubstr("\"F25:0\""));
  EXPECT_THAT(headerError("YUV4MPEG2 W4 H4 A:\n"), HasSubstr("\"A:\""));
  EXPECT_THAT(headerError("YUV4MPEG2 W4 H4 Ix\n"), HasSubstr("\"Ix\""));
  EXPECT_THAT(headerError("YUV4MPEG2 W4 H4 I\n"), HasSubstr("\"I\""));
  EXPECT_THAT(headerError("YUV4MPEG2 W4 H4 C\xFF\x01\n"),
              HasSubstr("\"C\\xFF\\x01\" is not known"));
}

TEST(Y4mReader, RefusesSizesBeyondItsLimits) {
  EXPECT_THAT(headerError("YUV4MPEG2 W65536 H4\n"), HasSubstr("65536x4 is beyond 65535"));
  EXPECT_THAT(headerError("YUV4MPEG2 W65535 H65535 C444p16\n"), HasSubstr("25769017350 bytes"));
  EXPECT_THAT(headerError("YUV4MPEG2 W4294967295 H4294967295\n"), HasSubstr("is beyond"));
  EXPECT_THAT(headerError("YUV4MPEG2 X" + std::string(5000, 'y')), HasSubstr("longer than 4096"));
}

TEST(Y4mReader, ReadsFramesWithTheirParameters) {
  const auto stream = bytesOf(
      "YUV4MPEG2 W2 H1 Im Cmono\n"
      "FRAME Itip Xfirst\nabFRAME\ncdFRAME I3pp\nef");
  MemorySource source(stream);
  Y4mReader reader(source);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  std::vector<uint8_t> frame(2);
  ASSERT_EQ(reader.readFrame(frame), Y4mResult::kFrame);
  EXPECT_EQ(frame, bytesOf("ab"));
  EXPECT_EQ(reader.frameParameters().presentation, 't');
  EXPECT_EQ(reader.frameParameters().temporal, 'i');
  EXPECT_EQ(reader.frameParameters().spatial, 'p');
  EXPECT_THAT(reader.frameParameters().comments, ElementsAre("first"));
  ASSERT_EQ(reader.skipFrame(), Y4mResult::kFrame);
  EXPECT_EQ(reader.frameParameters().presentation, '?');
  ASSERT_EQ(reader.readFrame(frame), Y4mResult::kFrame);
  EXPECT_EQ(frame, bytesOf("ef"));
  EXPECT_EQ(reader.framesRead(), 3u);
  EXPECT_EQ(reader.readFrame(frame), Y4mResult::kEnd);
  EXPECT_EQ(reader.error(), "");
}

// Reads header and frames of 2 bytes; gives the error of the first that fails.
std::string frameError(std::string_view frames, bool skip = false) {
  const auto stream = bytesOf("YUV4MPEG2 W2 H1 Cmono\n" + std::string(frames));
  MemorySource source(stream);
  Y4mReader reader(source);
  EXPECT_TRUE(reader.readHeader()) << reader.error();
  std::vector<uint8_t> frame(2);
  for (;;) {
    const Y4mResult result = skip ? reader.skipFrame() : reader.readFrame(frame);
    if (result == Y4mResult::kEnd) return "(good)";
    if (result == Y4mResult::kFrame) continue;
    EXPECT_EQ(reader.readFrame(frame), Y4mResult::kError) << "after an error";
    return reader.error();
  }
}

TEST(Y4mReader, TellsBadFramesFromTheEnd) {
  EXPECT_EQ(frameError(""), "(good)");
  EXPECT_EQ(frameError("FRAME\nab"), "(good)");
  EXPECT_THAT(frameError("FRAME\nabFRA"),
              HasSubstr("header of frame 1 is cut short after \"FRA\""));
  EXPECT_THAT(frameError("FRAME\nabFRAME\nc"), HasSubstr("frame 1 is cut short: 1 of 2 bytes"));
  EXPECT_THAT(frameError("FRAME\nabFRAME\nc", true), HasSubstr("1 of 2 bytes"));
  EXPECT_THAT(frameError("FRAME\nabcFRAME\n"), HasSubstr("should begin with FRAME; found \"c\""));
  EXPECT_THAT(frameError("FRAMES\nab"), HasSubstr("found \"FRAMES\""));
  EXPECT_THAT(frameError("FRAM\nab"), HasSubstr("found \"FRAM\""));
  EXPECT_THAT(frameError("FRAME Ixyz\nab"), HasSubstr("\"Ixyz\""));
  EXPECT_THAT(frameError("FRAME Itp\nab"), HasSubstr("\"Itp\""));
}

TEST(Y4mReader, RefusesABufferOfTheWrongSize) {
  const auto stream = bytesOf("YUV4MPEG2 W2 H1 Cmono\nFRAME\nab");
  MemorySource source(stream);
  Y4mReader reader(source);
  ASSERT_TRUE(reader.readHeader());
  std::vector<uint8_t> frame(3);
  EXPECT_EQ(reader.readFrame(frame), Y4mResult::kError);
  EXPECT_THAT(reader.error(), HasSubstr("takes 2 bytes"));
}

TEST(Y4mReader, FailsWithoutAHeader) {
  MemorySource source({});
  Y4mReader reader(source);
  EXPECT_EQ(reader.skipFrame(), Y4mResult::kError);
}

TEST(Y4mLayout, RoundsChromaUpAtOddSizes) {
  const Y4mLayout layout = y4mLayout(sampleHeader("420p10", 7, 5));
  EXPECT_EQ(layout.planeCount, 3u);
  EXPECT_EQ(layout.bytesPerSample, 2u);
  EXPECT_EQ(layout.planes[0].bytes, 70u);
  EXPECT_EQ(layout.planes[1].offset, 70u);
  EXPECT_EQ(layout.planes[1].width, 4u);
  EXPECT_EQ(layout.planes[1].height, 3u);
  EXPECT_EQ(layout.planes[2].offset, 94u);
  EXPECT_EQ(layout.frameBytes, 118u);
}

TEST(Y4mLayout, HasAnAlphaPlaneOfFullSize) {
  const Y4mLayout layout = y4mLayout(sampleHeader("444alpha", 3, 2));
  EXPECT_EQ(layout.planeCount, 4u);
  EXPECT_EQ(layout.planes[3].offset, 18u);
  EXPECT_EQ(layout.frameBytes, 24u);
}

TEST(Y4mChromas, AreChosenByDepthAndSubsampling) {
  EXPECT_EQ(chooseY4mChroma(8, 1, 1, 3)->tag, "420mpeg2");
  EXPECT_EQ(chooseY4mChroma(10, 1, 0, 3)->tag, "422p10");
  EXPECT_EQ(chooseY4mChroma(8, 0, 0, 4)->tag, "444alpha");
  EXPECT_EQ(chooseY4mChroma(12, 0, 0, 1)->tag, "mono12");
  EXPECT_EQ(chooseY4mChroma(11, 1, 1, 3), nullptr);
  EXPECT_EQ(findY4mChroma("421"), nullptr);
}

class Y4mEveryChroma : public testing::TestWithParam<Y4mChroma> {};

TEST_P(Y4mEveryChroma, ReadsBackWhatWasWritten) {
  std::mt19937_64 random(test::testSeed());
  for (const uint32_t width : {1u, 5u, 16u}) {
    Y4mHeader header = sampleHeader(GetParam().tag, width, 3);
    header.interlace = Y4mInterlace::kMixed;
    header.comments = {"A=1"};
    MemorySink sink;
    Y4mWriter writer(sink);
    ASSERT_TRUE(writer.writeHeader(header)) << writer.error();
    const auto first = randomBytes(writer.layout().frameBytes, random);
    const auto second = randomBytes(writer.layout().frameBytes, random);
    ASSERT_TRUE(writer.writeFrame(
        first, {.presentation = 'b', .temporal = 'i', .spatial = 'i', .comments = {}}));
    ASSERT_TRUE(writer.writeFrame(second, {.comments = {"mark"}}));

    MemorySource source(sink.bytes());
    Y4mReader reader(source);
    ASSERT_TRUE(reader.readHeader()) << reader.error();
    EXPECT_EQ(reader.header().chroma, header.chroma);
    EXPECT_EQ(reader.header().rate, header.rate);
    EXPECT_EQ(reader.header().range, header.range);
    EXPECT_EQ(reader.header().comments, header.comments);
    std::vector<uint8_t> frame(reader.layout().frameBytes);
    ASSERT_EQ(reader.readFrame(frame), Y4mResult::kFrame) << reader.error();
    EXPECT_EQ(frame, first);
    EXPECT_EQ(reader.frameParameters().presentation, 'b');
    ASSERT_EQ(reader.readFrame(frame), Y4mResult::kFrame) << reader.error();
    EXPECT_EQ(frame, second);
    EXPECT_THAT(reader.frameParameters().comments, ElementsAre("mark"));
    EXPECT_EQ(reader.readFrame(frame), Y4mResult::kEnd);
  }
}

INSTANTIATE_TEST_SUITE_P(All, Y4mEveryChroma,
                         testing::ValuesIn(y4mChromas().begin(), y4mChromas().end()),
                         [](const auto& row) { return std::string(row.param.tag); });

TEST(Y4mWriter, WritesTheHeaderLetterForLetter) {
  MemorySink sink;
  Y4mWriter writer(sink);
  ASSERT_TRUE(writer.writeHeader(sampleHeader("422p10", 1920, 1080)));
  EXPECT_EQ(std::string(sink.bytes().begin(), sink.bytes().end()),
            "YUV4MPEG2 W1920 H1080 F30000:1001 Ip A1:1 C422p10 XYSCSS=422P10 "
            "XCOLORRANGE=LIMITED\n");
}

TEST(Y4mWriter, RefusesWhatNoReaderCouldRead) {
  const auto refusal = [](const Y4mHeader& header) {
    MemorySink sink;
    Y4mWriter writer(sink);
    EXPECT_FALSE(writer.writeHeader(header));
    EXPECT_TRUE(sink.bytes().empty());
    return writer.error();
  };
  EXPECT_THAT(refusal(sampleHeader("420", 0, 4)), HasSubstr("picture size 0x4"));
  EXPECT_THAT(refusal(sampleHeader("no such", 4, 4)), HasSubstr("no chroma format"));
  Y4mHeader header = sampleHeader();
  header.comments = {"two words"};
  EXPECT_THAT(refusal(header), HasSubstr("\"two words\""));
  header.comments = {std::string(4096, 'x')};
  EXPECT_THAT(refusal(header), HasSubstr("longer than 4096"));
}

TEST(Y4mWriter, RefusesFramesOutOfOrderOrOfTheWrongSize) {
  MemorySink sink;
  Y4mWriter writer(sink);
  EXPECT_FALSE(writer.writeFrame({}));
  EXPECT_THAT(writer.error(), HasSubstr("no header"));

  Y4mWriter other(sink);
  ASSERT_TRUE(other.writeHeader(sampleHeader("mono", 2, 2)));
  EXPECT_FALSE(other.writeFrame(std::vector<uint8_t>(5)));
  EXPECT_THAT(other.error(), HasSubstr("takes 4 bytes; the caller gave 5"));
  EXPECT_EQ(other.framesWritten(), 0u);
}

TEST(Y4mWriter, ReportsAFullDisk) {
  FileSink sink("/dev/full");
  ASSERT_EQ(sink.error(), "");
  Y4mWriter writer(sink);
  bool good = writer.writeHeader(sampleHeader("mono", 256, 256));
  const std::vector<uint8_t> frame(256 * 256);
  good = good && writer.writeFrame(frame);
  good = sink.close() && good;
  EXPECT_FALSE(good);
  EXPECT_THAT(sink.error(), HasSubstr("No space left"));
}

// What an independent program writes, in each of the layouts that it knows.
struct PeerFormat {
  const char* pixelFormat;
  const char* tag;
};

void PrintTo(const PeerFormat& format, std::ostream* out) {
  *out << format.pixelFormat;
}

constexpr PeerFormat kPeerFormats[] = {
    {"yuv420p", "420jpeg"},    {"yuv411p", "411"},        {"yuv422p", "422"},
    {"yuv444p", "444"},        {"gray", "mono"},          {"yuv420p9le", "420p9"},
    {"yuv420p10le", "420p10"}, {"yuv420p12le", "420p12"}, {"yuv420p14le", "420p14"},
    {"yuv420p16le", "420p16"}, {"yuv422p9le", "422p9"},   {"yuv422p10le", "422p10"},
    {"yuv422p12le", "422p12"}, {"yuv422p14le", "422p14"}, {"yuv422p16le", "422p16"},
    {"yuv444p9le", "444p9"},   {"yuv444p10le", "444p10"}, {"yuv444p12le", "444p12"},
    {"yuv444p14le", "444p14"}, {"yuv444p16le", "444p16"}, {"gray9le", "mono9"},
    {"gray10le", "mono10"},    {"gray12le", "mono12"},    {"gray16le", "mono16"},
};

std::vector<uint8_t> fileBytes(const std::string& path) {
  FileSource source(path);
  std::vector<uint8_t> bytes;
  for (int byte; (byte = source.readByte()) >= 0;) bytes.push_back(static_cast<uint8_t>(byte));
  EXPECT_EQ(source.error(), "");
  return bytes;
}

class Y4mPeer : public testing::TestWithParam<PeerFormat> {
 protected:
  void SetUp() override {
    ffmpeg_ = programPath("ffmpeg");
    if (ffmpeg_.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  }

  // Frames as bare planes, the peer's and ours to compare.
  void run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"-v", "error", "-y"});
    const auto result = runProgram(ffmpeg_, arguments);
    ASSERT_EQ(result.exitCode, 0) << result.output;
  }

  std::string ffmpeg_;
  ScratchFolder folder_;
};

// Odd sizes on purpose, so that chroma is rounded. Some releases of the peer halve the bytes of a
// deep row instead of its samples, so that an odd width loses half a sample; there it is even.
TEST_P(Y4mPeer, WritesWhatWeRead) {
  const PeerFormat format = GetParam();
  const std::string y4m = folder_.file("in.y4m");
  const std::string raw = folder_.file("in.raw");
  const uint32_t width = findY4mChroma(format.tag)->depth == 8 ? 53 : 54;
  run({"-f", "lavfi", "-i", "testsrc=r=30000/1001:s=" + std::to_string(width) + "x37", "-frames:v",
       "3", "-pix_fmt", format.pixelFormat, "-strict", "-1", y4m});
  run({"-i", y4m, "-f", "rawvideo", raw});
  const std::vector<uint8_t> expected = fileBytes(raw);

  FileSource source(y4m);
  Y4mReader reader(source);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  EXPECT_EQ(reader.header().chroma->tag, format.tag);
  EXPECT_EQ(reader.header().width, width);
  EXPECT_EQ(reader.header().height, 37u);
  EXPECT_EQ(reader.header().rate, (Rational{30000, 1001}));
  std::vector<uint8_t> all;
  std::vector<uint8_t> frame(reader.layout().frameBytes);
  while (reader.readFrame(frame) == Y4mResult::kFrame) {
    all.insert(all.end(), frame.begin(), frame.end());
  }
  EXPECT_EQ(reader.error(), "");
  EXPECT_EQ(reader.framesRead(), 3u);
  EXPECT_TRUE(all == expected);
}

TEST_P(Y4mPeer, ReadsWhatWeWrite) {
  const PeerFormat format = GetParam();
  std::mt19937_64 random(test::testSeed());
  const std::string y4m = folder_.file("out.y4m");
  const std::string raw = folder_.file("out.raw");
  Y4mHeader header = sampleHeader(format.tag, 53, 37);
  std::vector<uint8_t> expected;
  {
    FileSink sink(y4m);
    Y4mWriter writer(sink);
    ASSERT_TRUE(writer.writeHeader(header)) << writer.error();
    for (int i = 0; i < 3; ++i) {
      auto frame = randomBytes(writer.layout().frameBytes, random);
      // Bits above the depth stay clear, as any writer of samples leaves them.
      for (size_t j = 1; header.chroma->depth > 8 && j < frame.size(); j += 2) {
        frame[j] = static_cast<uint8_t>(frame[j] & ((1 << (header.chroma->depth - 8)) - 1));
      }
      ASSERT_TRUE(writer.writeFrame(frame)) << writer.error();
      expected.insert(expected.end(), frame.begin(), frame.end());
    }
    ASSERT_TRUE(sink.close()) << sink.error();
  }
  run({"-i", y4m, "-f", "rawvideo", "-pix_fmt", format.pixelFormat, raw});
  EXPECT_TRUE(fileBytes(raw) == expected);
}

INSTANTIATE_TEST_SUITE_P(All, Y4mPeer, testing::ValuesIn(kPeerFormats),
                         [](const auto& row) { return std::string(row.param.pixelFormat); });

}  // namespace
}  // namespace zel::media
