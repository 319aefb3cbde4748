// Start and End name pictures; the sound that goes with the pictures that are left out goes too,
// and what stays keeps its place beside the pictures that stay.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/audio_frames.h"
#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/transport_judge/pes_stream.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "tests/support/transport_judge/transport_stream.h"
#include "tests/unit/mux/engine/video/mpeg_bytes.h"
#include "zel/mux/engine/audio/video_cut.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using Bytes = std::vector<uint8_t>;

constexpr int kVideoPid = 0x21;
constexpr int kAudioPid = 0x24;
constexpr int kPcmPid = 0x1100;
constexpr int kSeconds = 9;
constexpr double kFrameSeconds = 0.024;
constexpr size_t kFrameBytes = 576;

// A group of pictures a second, from 10:00:00:00 on.
Bytes video() {
  test::MpegBytes media;
  for (int i = 0; i < 25 * kSeconds; ++i) {
    if (i % 25 == 0) {
      media.sequence();
      media.group(10, 0, i / 25, 0);
    }
    media.picture({.type = i % 25 == 0 ? 1 : 2, .temporalReference = i % 25});
  }
  return media.bytes;
}

// Groups of twelve pictures that are shown for fifteen frames of 29.97 a second, two and three
// fields in turn.
Bytes telecined() {
  constexpr int kCoded[] = {0, 3, 1, 2, 6, 4, 5, 9, 7, 8, 11, 10};
  test::MpegBytes media;
  media.frameRateCode = 4;
  for (int group = 0; group < 2 * kSeconds; ++group) {
    media.sequence();
    media.group(10, 0, group / 2, group % 2 * 15);
    for (const int place : kCoded) {
      const bool anchor = place % 3 == 0 || place == 11;
      media.picture({.type = place == 0 ? 1
                             : anchor   ? 2
                                        : 3,
                     .temporalReference = place,
                     .topFieldFirst = place % 4 == 0 || place % 4 == 3,
                     .repeatFirstField = place % 2 == 0});
    }
  }
  return media.bytes;
}

// Layer II; each frame holds its number.
Bytes audio() {
  Bytes all;
  for (int i = 0; i < kSeconds / kFrameSeconds; ++i) {
    Bytes frame = test::mpegFrame(0xFD, 10, 1, kFrameBytes);
    frame[100] = static_cast<uint8_t>(i >> 8);
    frame[101] = static_cast<uint8_t>(i);
    all.insert(all.end(), frame.begin(), frame.end());
  }
  return all;
}

// 48 kHz, two channels of 16 bits: a number of milliseconds in each sample.
Bytes samples() {
  Bytes all;
  for (int i = 0; i < kSeconds * 48'000; ++i) {
    const auto value = static_cast<uint16_t>(i / 48);
    for (int channel = 0; channel < 2; ++channel) {
      all.push_back(static_cast<uint8_t>(value));
      all.push_back(static_cast<uint8_t>(value >> 8));
    }
  }
  return all;
}

class CutByTimeCode : public ::testing::Test {
 protected:
  struct sound {
    double behindVideo = 0;  // of its first time stamp, seconds
    Bytes bytes;
  };

  void prepare(test::EngineRun& run) {
    program_ = run.addProgram();
    program_->pcrPid = 0x1F0;
    program_->pcrPer = 40;
  }
  // From second `start` to second `end`; below 0: not given.
  static void cut(test::EngineRun& run, int start, int end) {
    if (start >= 0) run.config->start = {1, 0, 10, 0, start, 0, 0};
    if (end >= 0) run.config->end = {1, 0, 10, 0, end, 0, 0};
  }
  tsm_video* add_video() {
    tsm_video* const record = tsm_add_video(program_);
    record->pid = kVideoPid;
    record->user = &videoInput_;
    return record;
  }
  tsm_audio* add_audio() {
    tsm_audio* const record = tsm_add_audio(program_);
    record->pid = kAudioPid;
    record->pesNau = 1;
    record->user = &audioInput_;
    return record;
  }
  tsm_lpcm* add_pcm() {
    tsm_lpcm* const record = tsm_add_lpcm(program_);
    record->pid = kPcmPid;
    record->pesId = 189;
    record->nChannels = 2;
    record->samplingFrequency = 48'000;
    record->wordSize = 16;
    record->user = &pcmInput_;
    return record;
  }

  static sound sound_of(const test::EngineRun& run, int pid) {
    test::Findings findings;
    const auto stream = test::readTransportStream(run.bytes, 188, 0, findings);
    const auto pictures = test::readPesStream(stream.packets, kVideoPid, findings);
    const auto heard = test::readPesStream(stream.packets, pid, findings);
    sound result;
    EXPECT_FALSE(pictures.packets.empty());
    EXPECT_FALSE(heard.packets.empty());
    if (pictures.packets.empty() || heard.packets.empty()) return result;
    const int64_t behind = heard.packets.front().pts - pictures.packets.front().pts;
    result.behindVideo = static_cast<double>(behind) / 90'000;
    result.bytes = heard.data;
    return result;
  }
  static void expect_clean(const test::EngineRun& run, int pictures) {
    EXPECT_EQ(run.said, "") << run.texts;
    const test::Verdict verdict = test::judgeTransportStream(run.bytes);
    EXPECT_TRUE(verdict.clean()) << verdict.text();
    EXPECT_EQ(verdict.streams.at(0).units, pictures);
  }
  static int first_frame(const sound& heard) { return heard.bytes[100] << 8 | heard.bytes[101]; }
  static int last_frame(const sound& heard) {
    const size_t at = heard.bytes.size() - kFrameBytes;
    return heard.bytes[at + 100] << 8 | heard.bytes[at + 101];
  }
  // Frames between two seconds, to the nearest, and where the first of them belongs.
  static void expect_frames(const sound& heard, double start, double end) {
    const int first = static_cast<int>(std::lround(start / kFrameSeconds));
    const int behind = static_cast<int>(std::lround(end / kFrameSeconds));
    EXPECT_EQ(first_frame(heard), first);
    EXPECT_EQ(last_frame(heard), behind - 1);
    EXPECT_EQ(heard.bytes.size(), static_cast<size_t>(behind - first) * kFrameBytes);
    EXPECT_NEAR(heard.behindVideo, first * kFrameSeconds - start, 2e-5);
  }

  tsm_program* program_ = nullptr;
  test::MemoryInput videoInput_{video()};
  test::MemoryInput audioInput_{audio()};
  test::MemoryInput pcmInput_{samples()};
};

TEST_F(CutByTimeCode, SoundBeginsAndEndsWithThePictures) {
  test::EngineRun run;
  prepare(run);
  cut(run, 2, 5);
  add_video();
  add_audio();
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  expect_clean(run, 75);
  expect_frames(sound_of(run, kAudioPid), 2, 5);
}

TEST_F(CutByTimeCode, StartAloneAndEndAloneDoTheirPart) {
  for (const bool start : {true, false}) {
    SCOPED_TRACE(start);
    videoInput_.place = audioInput_.place = 0;
    test::EngineRun run;
    prepare(run);
    cut(run, start ? 3 : -1, start ? -1 : 3);
    add_video();
    add_audio();
    ASSERT_GT(run.multiplex(), 0) << run.texts;
    expect_clean(run, start ? 150 : 75);
    expect_frames(sound_of(run, kAudioPid), start ? 3 : 0, start ? kSeconds : 3);
  }
}

TEST_F(CutByTimeCode, DelaysOfTheConfigurationStay) {
  test::EngineRun run;
  prepare(run);
  cut(run, 2, 5);
  add_video();
  add_audio()->streamDelay = 4'500;  // 50 ms
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  expect_clean(run, 75);
  const sound heard = sound_of(run, kAudioPid);
  EXPECT_EQ(first_frame(heard), 83);
  EXPECT_NEAR(heard.behindVideo, 83 * kFrameSeconds - 2 + 0.05, 2e-5);
}

TEST_F(CutByTimeCode, PcmIsCutToTheSample) {
  test::EngineRun run;
  prepare(run);
  cut(run, 2, 5);
  add_video();
  add_pcm();
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "") << run.texts;
  const sound heard = sound_of(run, kPcmPid);
  EXPECT_NEAR(heard.behindVideo, 0, 2e-5);
  // PES packets of 5 ms: four bytes of header, 240 frames of big-endian samples.
  constexpr size_t kPes = 4 + 240 * 4;
  ASSERT_EQ(heard.bytes.size(), 600 * kPes);
  EXPECT_EQ(heard.bytes[4] << 8 | heard.bytes[5], 2'000);
  EXPECT_EQ(heard.bytes[heard.bytes.size() - 2] << 8 | heard.bytes.back(), 4'999);
}

// Both cuts stand inside groups whose pictures are shown for other times than a frame.
TEST_F(CutByTimeCode, RepeatedFieldsAreTimeThatPasses) {
  constexpr double kFrame = 1001.0 / 30'000;
  videoInput_.bytes = telecined();
  test::EngineRun run;
  prepare(run);
  run.config->start = {1, 0, 10, 0, 2, 5, 0};
  run.config->end = {1, 0, 10, 0, 5, 12, 0};
  add_video();
  add_audio();
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  // From 2:15 on, where a group begins: five groups, and of the sixth ten pictures, twelve frames
  // and a half.
  expect_clean(run, 5 * 12 + 10);
  expect_frames(sound_of(run, kAudioPid), 75 * kFrame, 162 * kFrame);

  test::Findings findings;
  const auto stream = test::readTransportStream(run.bytes, 188, 0, findings);
  std::vector<int64_t> shown;
  for (const auto& each : test::readPesStream(stream.packets, kVideoPid, findings).packets) {
    shown.push_back(each.pts);
  }
  std::sort(shown.begin(), shown.end());
  ASSERT_EQ(shown.size(), 70u);
  for (size_t i = 0; i < shown.size(); ++i) {
    const double fields = 5.0 * static_cast<double>(i / 2) + (i % 2 == 0 ? 0 : 3);
    EXPECT_NEAR(static_cast<double>(shown[i] - shown[0]), fields * kFrame * 45'000, 1) << i;
  }
}

TEST_F(CutByTimeCode, StreamsOutOfOneMultiplexKeepTheirPlaces) {
  test::ScratchFolder folder;
  const std::string path = folder.file("source.ts");
  double behind = 0;
  {
    test::EngineRun run;
    prepare(run);
    add_video();
    add_audio()->streamDelay = 900;  // 10 ms
    ASSERT_GT(run.multiplex(), 0) << run.texts;
    behind = sound_of(run, kAudioPid).behindVideo;
    test::writeFile(path, run.bytes);
  }
  EXPECT_NEAR(behind, 0.01, 2e-5);
  test::EngineRun run;
  prepare(run);
  cut(run, 3, 6);
  tsm_video* const pictures = add_video();
  tsm_audio* const heard = add_audio();
  pictures->user = heard->user = nullptr;
  pictures->sourceTsPid = kVideoPid;
  heard->sourceTsPid = kAudioPid;
  tarn_array_append_text(&pictures->files, path);
  tarn_array_append_text(&heard->files, path);
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  expect_clean(run, 75);
  const sound found = sound_of(run, kAudioPid);
  // Frame n stands n * 24 ms + 10 ms behind the source's first picture.
  const int first = static_cast<int>(std::lround((3 - 0.01) / kFrameSeconds));
  const int last = static_cast<int>(std::lround((6 - 0.01) / kFrameSeconds)) - 1;
  EXPECT_EQ(first_frame(found), first);
  EXPECT_EQ(last_frame(found), last);
  EXPECT_NEAR(found.behindVideo, first * kFrameSeconds + 0.01 - 3, 2e-5);
}

TEST_F(CutByTimeCode, AnEndBeforeAnythingLeavesNoSound) {
  test::EngineRun run;
  prepare(run);
  cut(run, 4, 4);
  run.config->stopOnError = false;
  add_video();
  add_audio();
  run.multiplex();
  EXPECT_TRUE(test::elementaryStream(run.bytes, kAudioPid).empty());
}

TEST(VideoCut, WhereTimeCodesJumpPicturesAreCounted) {
  video_state video;
  tsm_stream stream;
  tsm_config* const config = tsm_config_new();
  video.stream = &stream;
  video.characteristics.framePeriod = 1'080'000;
  video.characteristics.frameRateRounded = 25;
  video.fieldsLeftOut = 100;
  video.firstTimeCode = {10, 0, 0, 0, false, true};
  video.startTimeCode = {10, 0, 2, 2, false, true};
  EXPECT_EQ(cut_of_video(&video, *config).skipped, 52 * 1'080'000.0);  // reordered by two
  video.startTimeCode = {11, 0, 2, 2, false, true};
  EXPECT_EQ(cut_of_video(&video, *config).skipped, 50 * 1'080'000.0);
  EXPECT_LT(cut_of_video(&video, *config).kept, 0);
  config->end = {1, 0, 11, 0, 4, 2, 0};
  EXPECT_EQ(cut_of_video(&video, *config).kept, 2 * 2.7e7);
  config->end = {1, 0, 10, 59, 0, 0, 0};
  EXPECT_EQ(cut_of_video(&video, *config).kept, 0);
  EXPECT_TRUE(cut_of_video(nullptr, *config).is_none());
  tsm_config_free(config);
}

TEST(VideoCut, DropFrameCountsTheFramesThatAreThere) {
  video_state video;
  tsm_stream stream;
  tsm_config* const config = tsm_config_new();
  video.stream = &stream;
  video.characteristics.framePeriod = 900'900;
  video.characteristics.frameRateRounded = 30;
  video.startTimeCode = {0, 0, 59, 28, true, true};
  config->end = {1, 1, 0, 1, 0, 2, 0};  // 00 and 01 are left out
  EXPECT_EQ(cut_of_video(&video, *config).kept, 2 * 900'900.0);
  tsm_config_free(config);
}

}  // namespace
}  // namespace zel::mux
