// Streams of independent encoders, FFmpeg's and those that it calls, multiplexed one by one. An
// independent demultiplexer has to find each frame with its size and its time, and gives back the
// stream byte for byte; a judge that shares no code with the engine looks at clocks and buffers.

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct encoding {
  const char* name;
  const char* format;  // of the file
  std::vector<std::string> arguments;
  double period;  // 90 kHz ticks a frame
  int streamType;
  const char* said = "";  // what the engine has to tell
  double rate = 0;        // to be set; 0: as measured
};

std::ostream& operator<<(std::ostream& out, const encoding& each) {
  return out << each.name;
}

const std::vector<encoding>& encodings() {
  static const std::vector<encoding> kEncodings = {
      {"LayerTwo", "mp2", {"-c:a", "mp2", "-ar", "48000", "-b:a", "192k"}, 2160, 3},
      {"LayerTwoPadded", "mp2", {"-c:a", "mp2", "-ar", "44100", "-b:a", "128k"}, 103680 / 44.1, 3},
      {"LayerTwoLowRate", "mp2", {"-c:a", "mp2", "-ar", "22050", "-b:a", "64k"}, 103680 / 22.05, 3},
      {"LayerThree",
       "mp3",
       {"-c:a", "libmp3lame", "-ar", "44100", "-b:a", "160k"},
       103680 / 44.1,
       4},
      {"LayerThreeLowRate", "mp3", {"-c:a", "libmp3lame", "-ar", "24000", "-b:a", "64k"}, 2160, 4},
      {"LayerThreeVariable",
       "mp3",
       {"-c:a", "libmp3lame", "-ar", "48000", "-q:a", "4"},
       2160,
       4,
       "W8 W71 ",
       320'000},
      {"Adts", "adts", {"-c:a", "aac", "-ar", "48000", "-b:a", "160k"}, 1920, 15},
      {"AdtsSixChannels",
       "adts",
       {"-c:a", "aac", "-ar", "44100", "-ac", "6", "-b:a", "320k"},
       92160 / 44.1,
       15},
      {"Latm", "latm", {"-c:a", "aac", "-ar", "48000", "-b:a", "128k"}, 1920, 17},
      {"Ac3", "ac3", {"-c:a", "ac3", "-ar", "48000", "-ac", "6", "-b:a", "448k"}, 2880, 129},
      {"Ac3Padded", "ac3", {"-c:a", "ac3", "-ar", "44100", "-b:a", "192k"}, 138240 / 44.1, 129},
      {"Ac3At32000", "ac3", {"-c:a", "ac3", "-ar", "32000", "-b:a", "96k"}, 4320, 129},
      {"Eac3", "eac3", {"-c:a", "eac3", "-ar", "48000", "-b:a", "192k"}, 2880, 135},
      {"Eac3SixChannels",
       "eac3",
       {"-c:a", "eac3", "-ar", "44100", "-ac", "6", "-b:a", "384k"},
       138240 / 44.1,
       135},
      {"Dts",
       "dts",
       {"-c:a", "dca", "-strict", "-2", "-ar", "48000", "-ac", "6", "-b:a", "768k"},
       960,
       6},
  };
  return kEncodings;
}

struct packet {
  double pts;
  int size;
};

class AudioInteropBase : public ::testing::Test {
 protected:
  static constexpr int kPid = 0x24;

  void SetUp() override {
    ffmpeg_ = programPath("ffmpeg");
    ffprobe_ = programPath("ffprobe");
    if (ffmpeg_.empty() || ffprobe_.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  }

  // What an independent demultiplexer finds.
  std::vector<packet> probe(const std::string& name, const std::string& stream = "a:0") {
    const ProgramResult result =
        runProgram(ffprobe_, {"-v", "error", "-select_streams", stream, "-show_entries",
                              "packet=pts,size", "-of", "csv=p=0", name});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::vector<packet> packets;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
      const size_t comma = line.find(',');
      if (comma == std::string::npos) continue;
      const std::string stamp = line.substr(0, comma);
      packets.push_back(
          {stamp == "N/A" ? -1 : std::stod(stamp), std::stoi(line.substr(comma + 1))});
    }
    return packets;
  }

  std::string ffmpeg_;
  std::string ffprobe_;
  ScratchFolder scratch_;
};

class AudioInterop : public AudioInteropBase, public ::testing::WithParamInterface<encoding> {
 protected:
  // Four seconds of tones that come and go, so that variable rates vary.
  std::vector<uint8_t> encode(const encoding& each) {
    std::vector<std::string> words = {
        "-v",
        "error",
        "-f",
        "lavfi",
        "-i",
        "aevalsrc='0.4*sin(700*t*t)*lt(mod(t,1),0.6)+0.1*(random(0)-0.5)*gt(mod(t,2),1)|"
        "0.3*sin(900*t)':d=4:s=48000"};
    words.insert(words.end(), each.arguments.begin(), each.arguments.end());
    for (const char* word : {"-write_xing", "0", "-id3v2_version", "0"}) {
      if (std::string(each.format) == "mp3") words.emplace_back(word);
    }
    const std::string file = scratch_.file("stream");
    for (const std::string& word : {std::string("-f"), std::string(each.format), file})
      words.push_back(word);
    const ProgramResult result = runProgram(ffmpeg_, words);
    if (result.exitCode != 0) ADD_FAILURE() << result.output;
    return fileBytes(file);
  }
};

TEST_P(AudioInterop, AnIndependentDemultiplexerFindsEveryFrame) {
  const encoding& each = GetParam();
  const std::vector<uint8_t> bytes = encode(each);
  ASSERT_GT(bytes.size(), 10'000u);

  EngineRun run;
  tsm_program* const program = run.addProgram();
  tsm_audio* const record = tsm_add_audio(program);
  MemoryInput input{bytes};
  record->user = &input;
  record->pid = program->pcrPid = kPid;
  program->pcrPer = 40;
  record->rate = each.rate;
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, each.said) << run.texts;

  const Verdict verdict = judgeTransportStream(run.bytes);
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  ASSERT_EQ(verdict.streams.size(), 1u);

  const std::string transport = scratch_.file("out.ts");
  writeFile(transport, run.bytes);
  const std::vector<packet> before = probe(scratch_.file("stream"));
  const std::vector<packet> after = probe(transport);
  ASSERT_EQ(after.size(), before.size());
  ASSERT_GT(after.size(), 40u);
  EXPECT_EQ(verdict.streams[0].units, static_cast<int64_t>(before.size()));
  for (size_t i = 0; i < after.size(); ++i) {
    EXPECT_EQ(after[i].size, before[i].size) << "frame " << i;
    // Half of the times are the demultiplexer's own: it counts on from the PES packet's.
    EXPECT_NEAR(after[i].pts - after[0].pts, static_cast<double>(i) * each.period, 2)
        << "frame " << i;
  }

  const std::string copy = scratch_.file("copy");
  const ProgramResult copied = runProgram(
      ffmpeg_, {"-v", "error", "-i", transport, "-map", "0:a:0", "-c", "copy", "-f", "data", copy});
  EXPECT_EQ(copied.exitCode, 0) << copied.output;
  EXPECT_TRUE(fileBytes(copy) == bytes);
  const ProgramResult decoded =
      runProgram(ffmpeg_, {"-v", "error", "-i", transport, "-f", "null", "-"});
  EXPECT_EQ(decoded.exitCode, 0);
  EXPECT_EQ(decoded.output, "");
}

INSTANTIATE_TEST_SUITE_P(Encodings, AudioInterop, ::testing::ValuesIn(encodings()),
                         [](const auto& instance) { return std::string(instance.param.name); });

// Sound and pictures out of one multiplex, the sound early or late there: what is heard of it stays
// where it was beside the pictures.
class AudioSync : public AudioInteropBase, public ::testing::WithParamInterface<const char*> {};

TEST_P(AudioSync, SoundKeepsItsPlaceBesideThePictures) {
  const std::string source = scratch_.file("in.ts");
  const ProgramResult made = runProgram(ffmpeg_, {"-v",
                                                  "error",
                                                  "-f",
                                                  "lavfi",
                                                  "-i",
                                                  "testsrc=size=352x288:rate=25:duration=5",
                                                  "-itsoffset",
                                                  GetParam(),
                                                  "-f",
                                                  "lavfi",
                                                  "-i",
                                                  "sine=sample_rate=48000:duration=5",
                                                  "-c:v",
                                                  "mpeg2video",
                                                  "-b:v",
                                                  "1M",
                                                  "-maxrate",
                                                  "1M",
                                                  "-bufsize",
                                                  "500k",
                                                  "-bf",
                                                  "2",
                                                  "-c:a",
                                                  "mp2",
                                                  "-b:a",
                                                  "192k",
                                                  "-copyts",
                                                  "-avoid_negative_ts",
                                                  "make_non_negative",
                                                  "-f",
                                                  "mpegts",
                                                  source});
  ASSERT_EQ(made.exitCode, 0) << made.output;

  EngineRun run;
  tsm_program* const program = run.addProgram();
  tsm_video* const video = tsm_add_video(program);
  tsm_audio* const audio = tsm_add_audio(program);
  MemoryInput pictures{fileBytes(source)};
  MemoryInput sound{pictures.bytes};
  video->user = &pictures;
  audio->user = &sound;
  video->sourceTsPid = 0x100;
  audio->sourceTsPid = 0x101;
  video->pid = program->pcrPid = 0x21;
  audio->pid = kPid;
  program->pcrPer = 40;
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  const Verdict verdict = judgeTransportStream(run.bytes);
  EXPECT_TRUE(verdict.clean()) << verdict.text() << run.texts;
  const std::string result = scratch_.file("out.ts");
  writeFile(result, run.bytes);

  const std::vector<packet> heardBefore = probe(source);
  const std::vector<packet> heardAfter = probe(result);
  const double seenBefore = probe(source, "v:0").at(0).pts;
  const double seenAfter = probe(result, "v:0").at(0).pts;
  ASSERT_GT(heardAfter.size(), 100u);
  ASSERT_LE(heardAfter.size(), heardBefore.size());
  const size_t leftOut = heardBefore.size() - heardAfter.size();
  for (size_t i = 0; i < heardAfter.size(); ++i) {
    EXPECT_NEAR(heardAfter[i].pts - seenAfter, heardBefore[i + leftOut].pts - seenBefore, 3)
        << "frame " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Offsets, AudioSync, ::testing::Values("0", "-1.3", "-0.25", "0.4", "1.7"),
                         [](const auto& instance) {
                           std::string name = instance.param;
                           for (char& character : name) {
                             if (character == '-') character = 'm';
                             if (character == '.') character = '_';
                           }
                           return name;
                         });

}  // namespace
}  // namespace zel::mux
