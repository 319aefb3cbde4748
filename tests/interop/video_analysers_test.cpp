// What the multiplexer's analysers find in streams of other encoders, held against an analyser that
// shares nothing with them: FFmpeg's parsers and decoders, run as programs. Access units, their
// sizes and key pictures have to be the same, and the pictures have to be shown in the order in
// which the decoder puts them out, without gaps.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/analysed_video.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "zel/mux/engine/clock/tsm_time.h"

namespace zel::test {
namespace {

using Words = std::vector<std::string>;

struct Kind {
  std::string name;
  std::string format;  // of the elementary stream, as ffprobe calls it
  Words encoder;
  double period;         // 27 MHz ticks
  std::string messages;  // what may be said of such a stream
};

void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

struct Packet {
  int64_t position = 0;
  int64_t size = 0;
  bool key = false;
};

Words split(const std::string& line, char separator) {
  Words words;
  std::istringstream stream(line);
  for (std::string word; std::getline(stream, word, separator);) words.push_back(word);
  return words;
}

class VideoAnalysers : public testing::TestWithParam<Kind> {
 protected:
  void SetUp() override {
    ffmpeg_ = programPath("ffmpeg");
    ffprobe_ = programPath("ffprobe");
    if (ffmpeg_.empty() || ffprobe_.empty()) GTEST_SKIP() << "ffmpeg and ffprobe are not installed";
    path_ = folder_.file("stream");
  }

  void encode() {
    Words words = {"-v",        "error", "-nostdin", "-y",
                   "-f",        "lavfi", "-i",       "testsrc2=size=320x240:rate=25",
                   "-frames:v", "80"};
    words.insert(words.end(), GetParam().encoder.begin(), GetParam().encoder.end());
    words.insert(words.end(), {"-f", GetParam().format, path_});
    const ProgramResult result = runProgram(ffmpeg_, words);
    ASSERT_EQ(result.exitCode, 0) << result.output;
  }

  // ffprobe tells raw MPEG-1 and MPEG-2 by one parser.
  std::string probedFormat() const {
    const std::string& format = GetParam().format;
    return format == "mpeg2video" || format == "mpeg1video" ? "mpegvideo" : format;
  }
  Words probe(const std::string& what, const std::string& entries) const {
    const ProgramResult result =
        runProgram(ffprobe_, {"-v", "quiet", "-f", probedFormat(), what, "-show_entries", entries,
                              "-of", "csv=p=0", path_});
    EXPECT_EQ(result.exitCode, 0);
    Words lines;
    for (const std::string& line : split(result.output, '\n')) {
      if (!line.empty()) lines.push_back(line);
    }
    return lines;
  }
  std::vector<Packet> packets() const {
    std::vector<Packet> found;
    for (const std::string& line : probe("-show_packets", "packet=size,pos,flags")) {
      const Words words = split(line, ',');
      if (words.size() < 3) continue;
      found.push_back(
          {std::stoll(words[1]), std::stoll(words[0]), words[2].find('K') != std::string::npos});
    }
    return found;
  }
  std::vector<int64_t> shownPositions() const {
    std::vector<int64_t> found;
    for (const std::string& line : probe("-show_frames", "frame=pkt_pos")) {
      // Side data, such as time codes, come as words of their own.
      const std::string position = split(line, ',').front();
      if (position.empty() || position.find_first_not_of("0123456789") != std::string::npos)
        continue;
      found.push_back(std::stoll(position));
    }
    return found;
  }

  std::string ffmpeg_, ffprobe_, path_;
  ScratchFolder folder_;
};

TEST_P(VideoAnalysers, FindWhatAnotherAnalyserFinds) {
  encode();
  if (HasFatalFailure()) return;
  const std::vector<uint8_t> bytes = fileBytes(path_);
  const AnalysedVideo video = analyseVideo(bytes);
  EXPECT_EQ(video.messages, GetParam().messages);
  EXPECT_EQ(video.bytes, bytes);
  EXPECT_NEAR(video.characteristics.framePeriod, GetParam().period, 1e-6);

  const std::vector<Packet> packets = this->packets();
  ASSERT_FALSE(packets.empty());
  // Of a frame in two fields the analyser makes two units. That a zero byte in front of a start
  // code is part of it, FFmpeg's parser of HEVC doesn't count.
  std::map<int64_t, double> pts;
  size_t next = 0;
  for (const Packet& packet : packets) {
    ASSERT_LT(next, video.units.size());
    const mux::access_unit& unit = video.units[next];
    const int64_t zeroByte = packet.position - unit.start;
    ASSERT_TRUE(zeroByte == 0 || (zeroByte == 1 && GetParam().format == "hevc")) << next;
    EXPECT_EQ(
        unit.pictureType == 1 && (unit.keyPoint || GetParam().format == "mpeg2video" ||
                                  GetParam().format == "mpeg1video" || GetParam().format == "m4v"),
        packet.key)
        << next;
    pts[packet.position] = mux::signed_difference(unit.pts, video.firstDts);
    int64_t size = unit.size;
    if (unit.fieldStructure != 3 && ++next < video.units.size() && size < packet.size) {
      size += video.units[next].size;
    }
    EXPECT_NEAR(static_cast<double>(size), static_cast<double>(packet.size),
                GetParam().format == "hevc" ? 1.0 : 0.0);
    ++next;
  }
  EXPECT_EQ(next, video.units.size());

  double last = -1;
  for (const int64_t position : shownPositions()) {
    ASSERT_TRUE(pts.contains(position));
    const double step = pts[position] - last;
    if (last >= 0) {
      EXPECT_NEAR(step, GetParam().period, 1e-3);
    }
    last = pts[position];
  }
  for (const mux::access_unit& unit : video.units) {
    EXPECT_GE(mux::signed_difference(unit.pts, unit.dts), 0);
  }
}

constexpr double k25 = 1'080'000;

const Kind kKinds[] = {
    {"mpeg2_progressive_without_b",
     "mpeg2video",
     {"-c:v", "mpeg2video", "-b:v", "1M", "-maxrate", "1M", "-bufsize", "600k"},
     k25,
     ""},
    {"mpeg2_interlaced_with_b",
     "mpeg2video",
     {"-c:v", "mpeg2video", "-flags", "+ildct+ilme", "-bf", "2", "-b:v", "1M", "-maxrate", "1M",
      "-bufsize", "600k"},
     k25,
     ""},
    {"mpeg2_without_a_rate",
     "mpeg2video",
     {"-c:v", "mpeg2video", "-bf", "2", "-qscale:v", "24"},
     k25,
     ""},
    {"mpeg1_with_b",
     "mpeg1video",
     {"-c:v", "mpeg1video", "-bf", "2", "-b:v", "1M", "-maxrate", "1M", "-bufsize", "600k"},
     k25,
     ""},
    {"mpeg4_with_b", "m4v", {"-c:v", "mpeg4", "-bf", "2", "-qscale:v", "20"}, 900'900, "F90 W49 "},
    {"avc_without_b", "h264", {"-c:v", "libx264", "-bf", "0"}, k25, "W48 W46 "},
    {"avc_pyramid",
     "h264",
     {"-c:v", "libx264", "-bf", "7", "-x264-params",
      "b-pyramid=normal:ref=5:b-adapt=0:force-cfr=1"},
     k25,
     "W46 "},
    {"avc_hrd",
     "h264",
     {"-c:v", "libx264", "-bf", "3", "-b:v", "1M", "-x264-params",
      "b-pyramid=normal:nal-hrd=cbr:vbv-maxrate=1000:vbv-bufsize=1000:bitrate=1000:force-cfr=1:aud="
      "1"},
     k25,
     ""},
    {"avc_mbaff",
     "h264",
     {"-c:v", "libx264", "-bf", "2", "-x264-params", "interlaced=1:b-pyramid=strict:force-cfr=1"},
     k25,
     "W46 "},
    {"avc_mbaff_hrd",
     "h264",
     {"-c:v", "libx264", "-bf", "3", "-b:v", "1M", "-x264-params",
      "interlaced=1:nal-hrd=vbr:vbv-maxrate=1000:vbv-bufsize=1000:force-cfr=1"},
     k25,
     ""},
    {"avc_open_groups_and_slices",
     "h264",
     {"-c:v", "libx264", "-bf", "2", "-x264-params", "open-gop=1:keyint=15:slices=4:force-cfr=1"},
     k25,
     "W46 "},
    {"hevc_without_b",
     "hevc",
     {"-c:v", "libx265", "-x265-params", "log-level=none:bframes=0"},
     k25,
     "W159 "},
    {"hevc_pyramid",
     "hevc",
     {"-c:v", "libx265", "-x265-params", "log-level=none:bframes=8:b-pyramid=1:b-adapt=0"},
     k25,
     "W159 "},
    {"hevc_hrd",
     "hevc",
     {"-c:v", "libx265", "-x265-params",
      "log-level=none:bframes=4:hrd=1:vbv-maxrate=1000:vbv-bufsize=1000:bitrate=900:aud=1"},
     k25,
     ""},
    {"hevc_open_groups_and_slices",
     "hevc",
     {"-c:v", "libx265", "-x265-params",
      "log-level=none:bframes=3:open-gop=1:keyint=15:slices=2:repeat-headers=1"},
     k25,
     "W159 "},
};

INSTANTIATE_TEST_SUITE_P(Kinds, VideoAnalysers, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return kind.param.name; });

// x264 as a program of its own has what FFmpeg doesn't pass on.
class Pulldown : public testing::TestWithParam<bool> {};

TEST_P(Pulldown, PicturesOfTwoAndThreeFieldsFollowEachOther) {
  const std::string ffmpeg = programPath("ffmpeg");
  const std::string x264 = programPath("x264");
  if (ffmpeg.empty() || x264.empty()) GTEST_SKIP() << "ffmpeg and x264 are not installed";
  ScratchFolder folder;
  const std::string raw = folder.file("raw.y4m");
  const std::string path = folder.file("stream.264");
  ASSERT_EQ(runProgram(ffmpeg, {"-v", "error", "-nostdin", "-f", "lavfi", "-i",
                                "testsrc2=size=320x240:rate=24000/1001", "-frames:v", "60",
                                "-pix_fmt", "yuv420p", raw})
                .exitCode,
            0);
  Words words = {"--quiet", "--pulldown", "32", "--bframes", "3", "--force-cfr"};
  if (GetParam()) {
    words.insert(words.end(), {"--nal-hrd", "vbr", "--vbv-maxrate", "1000", "--vbv-bufsize", "1000",
                               "--bitrate", "800"});
  }
  words.insert(words.end(), {"-o", path, raw});
  const ProgramResult result = runProgram(x264, words);
  ASSERT_EQ(result.exitCode, 0) << result.output;

  const AnalysedVideo video = analyseVideo(fileBytes(path));
  ASSERT_EQ(video.units.size(), 60u);
  std::vector<double> times;
  for (const mux::access_unit& unit : video.units) {
    times.push_back(mux::signed_difference(unit.pts, video.firstDts));
    EXPECT_GE(mux::signed_difference(unit.pts, unit.dts), 0);
  }
  std::sort(times.begin(), times.end());
  for (size_t i = 0; i + 2 < times.size(); ++i) {
    EXPECT_NEAR(times[i + 2] - times[i], 2.5 * 900'900, 1e-3) << i;
    EXPECT_NEAR(std::abs(times[i + 1] - times[i] - 1.25 * 900'900), 0.25 * 900'900, 1e-3) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Hrd, Pulldown, testing::Bool(),
                         [](const auto& hrd) { return hrd.param ? "with" : "without"; });

}  // namespace
}  // namespace zel::test
