// Pictures that are shown for other times than their frame's own, as an independent encoder writes
// them with and without the timing of a buffer model: an independent demultiplexer has to find
// every picture at its time of display, and the judge finds nothing against the multiplex.

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::test {
namespace {

using namespace Morvalen::Zel;
using Words = std::vector<std::string>;

struct Pulldown {
  const char* name;
  Words arguments;
  double tick;             // of the stream's clock, in 90 kHz; half a frame
  std::vector<int> cycle;  // ticks from one picture to the next, in display order
  const char* said = "";   // such a frame rate has no row in the table
};

void PrintTo(const Pulldown& pulldown, std::ostream* out) {
  *out << pulldown.name;
}

const std::vector<Pulldown>& pulldowns() {
  static const std::vector<Pulldown> kPulldowns = {
      {"none", {"--pic-struct"}, 1875, {2}},
      {"22", {"--pulldown", "22"}, 1875, {2}},
      {"32", {"--pulldown", "32"}, 1500, {3, 2}},
      {"64", {"--pulldown", "64"}, 1875, {4, 6}},
      {"euro", {"--pulldown", "euro"}, 1800, {3, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2}},
      {"double", {"--pulldown", "double"}, 937.5, {4}, "W76 "},
      {"triple", {"--pulldown", "triple"}, 625, {6}, "W76 "},
  };
  return kPulldowns;
}

// Which pictures are reordered, and how far.
struct Reordering {
  const char* name;
  Words arguments;
};

void PrintTo(const Reordering& reordering, std::ostream* out) {
  *out << reordering.name;
}

const std::vector<Reordering>& reorderings() {
  static const std::vector<Reordering> kReorderings = {
      {"b", {"--bframes", "2", "--b-adapt", "0", "--b-pyramid", "none"}},
      {"pyramid", {"--bframes", "3", "--b-adapt", "0"}},
      {"adaptive", {"--bframes", "5", "--b-adapt", "2"}},
  };
  return kReorderings;
}

class PulldownInterop
    : public testing::TestWithParam<std::tuple<Pulldown, Reordering, const char*>> {
 protected:
  void SetUp() override {
    ffmpeg_ = programPath("ffmpeg");
    ffprobe_ = programPath("ffprobe");
    x264_ = programPath("x264");
    if (ffmpeg_.empty() || ffprobe_.empty() || x264_.empty()) {
      GTEST_SKIP() << "ffmpeg and x264 are not installed";
    }
  }

  static const std::string& pictures(const std::string& ffmpeg) {
    static const ScratchFolder kFolder;
    static const std::string kPath = [&] {
      std::string path = kFolder.file("raw.y4m");
      runProgram(ffmpeg,
                 {"-v", "error", "-nostdin", "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=24",
                  "-frames:v", "96", "-pix_fmt", "yuv420p", path});
      return path;
    }();
    return kPath;
  }

  std::vector<uint8_t> encode() {
    const auto& [pulldown, reordering, hrd] = GetParam();
    const std::string path = folder_.file("stream.264");
    Words words = {"--quiet",       "--preset", "veryfast",  "--force-cfr", "--muxer",       "raw",
                   "--keyint",      "40",       "--bitrate", "1000",        "--vbv-maxrate", "1000",
                   "--vbv-bufsize", "1000"};
    words.insert(words.end(), pulldown.arguments.begin(), pulldown.arguments.end());
    words.insert(words.end(), reordering.arguments.begin(), reordering.arguments.end());
    if (std::string(hrd) != "none") words.insert(words.end(), {"--nal-hrd", hrd});
    words.insert(words.end(), {"-o", path, pictures(ffmpeg_)});
    const ProgramResult result = runProgram(x264_, words);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return fileBytes(path);
  }

  std::string ffmpeg_, ffprobe_, x264_;
  ScratchFolder folder_;
};

TEST_P(PulldownInterop, EveryPictureIsShownInItsTurnForItsTime) {
  const Pulldown& pulldown = std::get<0>(GetParam());
  EngineRun run;
  tsm_program* const program = run.addProgram();
  tsm_video* const record = tsm_add_video(program);
  MemoryInput input{encode()};
  record->user = &input;
  record->pid = program->pcrPid = 0x31;
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  const bool told = std::string(std::get<2>(GetParam())) != "none";
  EXPECT_EQ(run.said, std::string(pulldown.said) + (told ? "" : "W46 ")) << run.texts;

  const Verdict verdict = judgeTransportStream(run.bytes);
  EXPECT_TRUE(verdict.clean()) << verdict.text();

  const std::string path = folder_.file("out.ts");
  writeFile(path, run.bytes);
  const ProgramResult probed = runProgram(
      ffprobe_, {"-v", "error", "-show_entries", "packet=pts,dts", "-of", "csv=p=0", path});
  ASSERT_EQ(probed.exitCode, 0) << probed.output;
  std::vector<double> shown;
  double last = -1;
  std::istringstream lines(probed.output);
  for (std::string line; std::getline(lines, line);) {
    const size_t comma = line.find(',');
    if (comma == std::string::npos) continue;
    shown.push_back(std::stod(line));
    const double decoded = std::stod(line.substr(comma + 1));
    EXPECT_GT(decoded, last) << line;
    EXPECT_GE(shown.back(), decoded) << line;
    last = decoded;
  }
  ASSERT_EQ(shown.size(), 96u);
  std::sort(shown.begin(), shown.end());
  double expected = shown[0];
  for (size_t i = 0; i < shown.size(); ++i) {
    EXPECT_NEAR(shown[i], expected, 1.01) << "picture " << i;
    expected += pulldown.tick * pulldown.cycle[i % pulldown.cycle.size()];
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, PulldownInterop,
                         testing::Combine(testing::ValuesIn(pulldowns()),
                                          testing::ValuesIn(reorderings()),
                                          testing::Values("none", "cbr")),
                         [](const auto& kind) {
                           return std::string(std::get<0>(kind.param).name) + "_" +
                                  std::get<1>(kind.param).name + "_" + std::get<2>(kind.param);
                         });

}  // namespace
}  // namespace zel::test
