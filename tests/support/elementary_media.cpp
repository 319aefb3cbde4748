#include "tests/support/elementary_media.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"

namespace zel::test {
namespace {

#define PICTURES "-f lavfi -i testsrc2=size=320x240:rate=25 -t {seconds} -pix_fmt yuv420p "
#define SOUND "-f lavfi -i sine=frequency=440:sample_rate=48000 -t {seconds} -ac 2 "
#define WIDE_SOUND                                                                                 \
  "-f lavfi -i aevalsrc=sin(440*t)|sin(660*t)|sin(880*t)|sin(110*t)|sin(220*t)|sin(550*t):s=48000" \
  ":c=5.1 -t {seconds} "
#define MPEG2 PICTURES "-c:v mpeg2video -b:v 1200k -maxrate 1500k -bufsize 600k -f mpeg2video "

// Without HRD parameters the level's rate is what there is.
constexpr const char* kNoRate = "didn't indicate bit rate; used maximum rate";

// A stream without fixed_vop_rate and VBV parameters tells neither its frame rate nor its bit rate.
constexpr const char* kFrameRate = "FrameRate = 25\nRate = 1500000\n";

constexpr ElementaryMedia kMedia[] = {
    {"mpeg1", "ffmpeg",
     PICTURES "-c:v mpeg1video -b:v 1M -maxrate 1M -bufsize 320k -bf 2 -f mpeg1video {out}",
     "Video"},
    {"mpeg2_no_b", "ffmpeg", MPEG2 "-bf 0 {out}", "Video"},
    {"mpeg2_b", "ffmpeg", MPEG2 "-bf 2 {out}", "Video"},
    {"mpeg2_29_97", "ffmpeg",
     "-f lavfi -i testsrc2=size=352x240:rate=30000/1001 -t {seconds} -pix_fmt yuv420p -c:v "
     "mpeg2video -b:v 1200k -maxrate 1500k -bufsize 600k -bf 2 -f mpeg2video {out}",
     "Video"},
    {"mpeg2_interlaced", "ffmpeg", MPEG2 "-bf 2 -flags +ildct+ilme -top 1 {out}", "Video"},
    {"mpeg4", "ffmpeg",
     PICTURES "-c:v mpeg4 -profile:v 15 -level:v 5 -b:v 1M -maxrate 1M -bufsize 500k -f m4v {out}",
     "Video", "", kFrameRate},
    {"mpeg4_b", "ffmpeg",
     PICTURES
     "-c:v mpeg4 -profile:v 15 -level:v 5 -b:v 1M -maxrate 1M -bufsize 500k -bf 2 -f m4v {out}",
     "Video", "", kFrameRate},
    {"avc_no_b", "x264",
     "--quiet --aud --bframes 0 --preset veryfast --bitrate 1000 --vbv-maxrate 1200 --vbv-bufsize "
     "1000 -o {out} {in}",
     "Video", kNoRate},
    {"avc_b_pyramid", "x264",
     "--quiet --aud --bframes 5 --b-pyramid normal --b-adapt 0 --preset veryfast --bitrate 1000 "
     "--vbv-maxrate 1200 --vbv-bufsize 1000 -o {out} {in}",
     "Video", kNoRate},
    {"avc_mbaff", "x264",
     "--quiet --aud --tff --bframes 3 --preset veryfast --bitrate 1000 --vbv-maxrate 1200 "
     "--vbv-bufsize 1000 -o {out} {in}",
     "Video", kNoRate},
    {"avc_fake_interlaced", "x264",
     "--quiet --aud --fake-interlaced --pic-struct --bframes 2 --preset veryfast --bitrate 1000 "
     "--vbv-maxrate 1200 --vbv-bufsize 1000 -o {out} {in}",
     "Video", kNoRate},
    {"avc_hrd_vbr", "x264",
     "--quiet --aud --nal-hrd vbr --bframes 3 --preset veryfast --bitrate 1000 --vbv-maxrate 1200 "
     "--vbv-bufsize 1000 -o {out} {in}",
     "Video"},
    {"avc_hrd_cbr", "x264",
     "--quiet --aud --nal-hrd cbr --bframes 3 --preset veryfast --bitrate 1000 --vbv-maxrate 1000 "
     "--vbv-bufsize 600 -o {out} {in}",
     "Video"},
    {"avc_open_gop", "x264",
     "--quiet --aud --open-gop --bframes 3 --keyint 25 --preset veryfast --bitrate 1000 "
     "--vbv-maxrate 1200 --vbv-bufsize 1000 -o {out} {in}",
     "Video", kNoRate},
    {"hevc_no_b", "x265",
     "--log-level none --no-progress --aud --bframes 0 --preset ultrafast --bitrate 1000 "
     "--vbv-maxrate 1200 "
     "--vbv-bufsize 1000 -o {out} {in}",
     "Video", kNoRate},
    {"hevc_b_pyramid", "x265",
     "--log-level none --no-progress --aud --bframes 4 --b-pyramid --preset veryfast --bitrate "
     "1000 "
     "--vbv-maxrate 1200 --vbv-bufsize 1000 -o {out} {in}",
     "Video", kNoRate},
    {"hevc_hrd", "x265",
     "--log-level none --no-progress --aud --hrd --bframes 3 --preset ultrafast --bitrate 1000 "
     "--vbv-maxrate "
     "1200 --vbv-bufsize 1000 -o {out} {in}",
     "Video"},
    {"hevc_fields", "x265",
     "--log-level none --no-progress --aud --interlace tff --fps 50 --bframes 2 --preset ultrafast "
     "--bitrate 1000 "
     "--vbv-maxrate 1200 --vbv-bufsize 1000 -o {out} {in}",
     "Video", kNoRate},
    {"mp2", "ffmpeg", SOUND "-c:a mp2 -b:a 192k -f mp2 {out}", "Audio"},
    {"mp2_44100", "ffmpeg", SOUND "-ar 44100 -c:a mp2 -b:a 128k -f mp2 {out}", "Audio"},
    {"mp2_22050", "ffmpeg", SOUND "-ar 22050 -c:a mp2 -b:a 64k -f mp2 {out}", "Audio"},
    {"mp3", "ffmpeg", SOUND "-c:a libmp3lame -b:a 128k -write_xing 0 -id3v2_version 0 -f mp3 {out}",
     "Audio"},
    {"mp3_24000", "ffmpeg",
     SOUND "-ar 24000 -c:a libmp3lame -b:a 64k -write_xing 0 -id3v2_version 0 -f mp3 {out}",
     "Audio"},
    {"adts", "ffmpeg", SOUND "-c:a aac -b:a 128k -f adts {out}", "Audio"},
    {"adts_5_1", "ffmpeg", WIDE_SOUND "-c:a aac -b:a 320k -f adts {out}", "Audio"},
    {"latm", "ffmpeg", SOUND "-c:a aac -b:a 128k -f latm {out}", "Audio"},
    {"ac3", "ffmpeg", SOUND "-c:a ac3 -b:a 192k -f ac3 {out}", "Audio"},
    {"ac3_44100", "ffmpeg", SOUND "-ar 44100 -c:a ac3 -b:a 192k -f ac3 {out}", "Audio"},
    {"ac3_32000", "ffmpeg", SOUND "-ar 32000 -c:a ac3 -b:a 96k -f ac3 {out}", "Audio"},
    {"ac3_5_1", "ffmpeg", WIDE_SOUND "-c:a ac3 -b:a 448k -f ac3 {out}", "Audio"},
    {"eac3", "ffmpeg", SOUND "-c:a eac3 -b:a 128k -f eac3 {out}", "Audio"},
    {"eac3_5_1", "ffmpeg", WIDE_SOUND "-c:a eac3 -b:a 384k -f eac3 {out}", "Audio"},
    {"dts", "ffmpeg", WIDE_SOUND "-c:a dca -strict -2 -b:a 768k -f dts {out}", "Audio"},
};

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (size_t place; (place = text.find(what)) != std::string::npos;)
    text.replace(place, what.size(), by);
  return text;
}

void run(const std::string& program, const std::string& arguments) {
  std::istringstream words(arguments);
  const ProgramResult result =
      runProgram(programPath(program), {std::istream_iterator<std::string>(words), {}});
  if (result.exitCode != 0)
    throw std::runtime_error(program + " " + arguments + "\n" + result.output);
}

}  // namespace

std::span<const ElementaryMedia> allElementaryMedia() {
  return kMedia;
}

const ElementaryMedia* findElementaryMedia(const std::string& name) {
  const auto* const found = std::find_if(std::begin(kMedia), std::end(kMedia),
                                         [&](const auto& each) { return name == each.name; });
  return found == std::end(kMedia) ? nullptr : found;
}

std::string makeElementaryMedia(const ElementaryMedia& media, const std::string& folder,
                                int seconds) {
  if (programPath(media.program).empty() || programPath("ffmpeg").empty()) return {};
  const std::string out = folder + "/" + media.name + ".es";
  std::string arguments = replaced(media.arguments, "{seconds}", std::to_string(seconds));
  if (arguments.find("{in}") != std::string::npos) {
    const std::string pictures = folder + "/pictures" + std::to_string(seconds) + ".y4m";
    if (!std::ifstream(pictures).good())
      run("ffmpeg", replaced("-v error -y " PICTURES "-f yuv4mpegpipe " + pictures, "{seconds}",
                             std::to_string(seconds)));
    arguments = replaced(arguments, "{in}", pictures);
    // x264 tells a stream's container by its name.
    arguments = (std::string(media.program) == "x264" ? "--muxer raw " : "") + arguments;
  } else {
    arguments = "-v error -y " + arguments;
  }
  run(media.program, replaced(arguments, "{out}", out));
  return out;
}

const std::string& ElementaryMediaShelf::file(const ElementaryMedia& media) {
  const auto found = made_.find(media.name);
  if (found != made_.end()) return found->second;
  return made_[media.name] = makeElementaryMedia(media, folder_.file(""), seconds_);
}

}  // namespace zel::test
