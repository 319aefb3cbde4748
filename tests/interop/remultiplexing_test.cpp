// Streams taken out of transport and program streams that an independent program made, against what
// that program takes out itself.

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "zel/mux/engine/input/file_source.h"
#include "zel/mux/engine/input/remultiplexing.h"

namespace zel::test {
namespace {

using namespace zel::mux;

struct Multiplex {
  const char* name;
  std::vector<std::string> coding;  // options of both streams
  const char* format;
  std::vector<std::string> container;
  // Video and audio: by PID, or by stream_id and substream.
  int video, audio, subtype;
  bool byPid;
};

class RemultiplexingInterop : public testing::TestWithParam<Multiplex> {
 protected:
  void make(const std::string& ffmpeg, const Multiplex& shape) {
    std::vector<std::string> arguments = {"-v",
                                          "error",
                                          "-y",
                                          "-f",
                                          "lavfi",
                                          "-i",
                                          "testsrc=size=176x144:rate=25",
                                          "-f",
                                          "lavfi",
                                          "-i",
                                          "sine=sample_rate=48000",
                                          "-t",
                                          "4"};
    arguments.insert(arguments.end(), shape.coding.begin(), shape.coding.end());
    arguments.insert(arguments.end(), shape.container.begin(), shape.container.end());
    arguments.insert(arguments.end(), {"-f", shape.format, folder.file("in")});
    const ProgramResult made = runProgram(ffmpeg, arguments);
    ASSERT_EQ(made.exitCode, 0) << made.output;
  }

  std::vector<uint8_t> copied(const std::string& ffmpeg, const std::string& stream) {
    const ProgramResult result =
        runProgram(ffmpeg, {"-v", "error", "-y", "-i", folder.file("in"), "-map", stream, "-c",
                            "copy", "-f", "data", folder.file("out")});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return fileBytes(folder.file("out"));
  }

  std::vector<uint8_t> taken(int id, int subtype, bool byPid, int64_t& pts) {
    Morvalen::Zel::tsm_stream_record record{};
    (byPid ? record.sourceTsPid : record.sourceStreamId) = id;
    record.sourceStreamSubtype = subtype;
    auto file = std::make_unique<file_source>(std::vector<std::string>{folder.file("in")},
                                              [](const char*) {});
    EXPECT_TRUE(file->open());
    const auto source = take_stream(std::move(file), record, [](source_warning warning) {
      ADD_FAILURE() << "warning " << warning;
    });
    std::vector<uint8_t> all;
    std::vector<uint8_t> some(5000);
    for (int32_t got = source->read(some.data(), 5000); got > 0;
         got = source->read(some.data(), 5000)) {
      all.insert(all.end(), some.begin(), some.begin() + got);
    }
    pts = source->first_pts90k();
    return all;
  }

  ScratchFolder folder;
};

TEST_P(RemultiplexingInterop, TakesTheSameBytes) {
  const std::string ffmpeg = programPath("ffmpeg");
  if (ffmpeg.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const Multiplex& shape = GetParam();
  ASSERT_NO_FATAL_FAILURE(make(ffmpeg, shape));
  int64_t videoPts = -1;
  int64_t audioPts = -1;
  const auto video = taken(shape.video, 0, shape.byPid, videoPts);
  const auto audio = taken(shape.audio, shape.subtype, shape.byPid, audioPts);
  EXPECT_GT(video.size(), 10'000u);
  EXPECT_GT(audio.size(), 10'000u);
  EXPECT_TRUE(video == copied(ffmpeg, "0:v:0"));
  EXPECT_TRUE(audio == copied(ffmpeg, "0:a:0"));
  // Sound and pictures begin together, but for the encoders' delays.
  EXPECT_GT(videoPts, 0);
  EXPECT_NEAR(static_cast<double>(videoPts - audioPts), 0, 9'000);
}

const std::vector<std::string> kMpeg2 = {"-c:v", "mpeg2video", "-bf", "2", "-c:a", "mp2"};
const std::vector<std::string> kDisc = {"-c:v", "mpeg2video", "-c:a", "ac3"};
const std::vector<std::string> kMpeg1 = {"-c:v", "mpeg1video", "-c:a", "mp2"};

std::string nameOf(const testing::TestParamInfo<Multiplex>& parameter) {
  return parameter.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Multiplexes, RemultiplexingInterop,
    testing::Values(Multiplex{"TransportByPid", kMpeg2, "mpegts", {}, 0x100, 0x101, 0, true},
                    Multiplex{"TransportByStreamId", kMpeg2, "mpegts", {}, 0xE0, 0xC0, 0, false},
                    Multiplex{"TransportOf192Bytes",
                              kMpeg2,
                              "mpegts",
                              {"-mpegts_m2ts_mode", "1"},
                              0x1011,
                              0x1100,
                              0,
                              true},
                    Multiplex{"Program", kMpeg2, "vob", {}, 0xE0, 0xC0, 0, false},
                    Multiplex{"ProgramWithSubstream", kDisc, "vob", {}, 0xE0, 0xBD, 0x80, false},
                    Multiplex{"ProgramWithSubstreamFound", kDisc, "vob", {}, 0xE0, 0xBD, 0, false},
                    Multiplex{"System", kMpeg1, "mpeg", {}, 0xE0, 0xC0, 0, false}),
    nameOf);

}  // namespace
}  // namespace zel::test
