// Lists of files, one of pictures and one of sound for each piece: where a piece begins the two are
// together again.

#include <gtest/gtest.h>

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
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using Bytes = std::vector<uint8_t>;

constexpr int kVideoPid = 0x21;
constexpr int kAudioPid = 0x24;
constexpr size_t kFrameBytes = 576;

class VideoTransitions : public ::testing::Test {
 protected:
  struct frame {
    int file = 0;
    int number = 0;
    double behind = 0;  // the first picture of all, seconds
  };

  std::string write(const std::string& name, const Bytes& bytes) {
    const std::string path = folder_.file(name);
    test::writeFile(path, bytes);
    return path;
  }
  static Bytes pictures(int count) {
    test::MpegBytes media;
    for (int i = 0; i < count; ++i) {
      if (i % 25 == 0) media.sequence();
      media.picture({.type = i % 25 == 0 ? 1 : 2, .temporalReference = i % 25});
    }
    return media.bytes;
  }
  // Layer II at 48 kHz, 24 ms each; they hold the file's number and their own.
  static Bytes frames(int file, int count) {
    Bytes all;
    for (int i = 0; i < count; ++i) {
      Bytes one = test::mpegFrame(0xFD, 10, 1, kFrameBytes);
      one[100] = static_cast<uint8_t>(file);
      one[101] = static_cast<uint8_t>(i >> 8);
      one[102] = static_cast<uint8_t>(i);
      all.insert(all.end(), one.begin(), one.end());
    }
    return all;
  }

  void prepare(test::EngineRun& run) {
    tsm_program* const program = run.addProgram();
    program->pcrPid = 0x1F0;
    program->pcrPer = 40;
    video_ = tsm_add_video(program);
    video_->pid = kVideoPid;
    audio_ = tsm_add_audio(program);
    audio_->pid = kAudioPid;
    audio_->pesNau = 1;
    run.config->stopOnError = false;
  }
  // Pieces of so many pictures and frames.
  void add_pieces(const std::vector<int>& pictureCounts, const std::vector<int>& frameCounts) {
    int number = 0;
    for (const int count : pictureCounts) {
      tarn_array_append_text(&video_->files,
                             write("v" + std::to_string(number++), pictures(count)));
    }
    number = 0;
    for (const int count : frameCounts) {
      const Bytes bytes = frames(number, count);
      tarn_array_append_text(&audio_->files, write("a" + std::to_string(number++), bytes));
    }
  }
  // The frames as they went out, by their PES packets.
  static std::vector<frame> heard(const test::EngineRun& run) {
    test::Findings findings;
    const auto stream = test::readTransportStream(run.bytes, 188, 0, findings);
    const auto seen = test::readPesStream(stream.packets, kVideoPid, findings);
    const auto sound = test::readPesStream(stream.packets, kAudioPid, findings);
    std::vector<frame> all;
    size_t at = 0;
    for (const test::PesPacket& pes : sound.packets) {
      if (pes.pts < 0) continue;
      // A frame a PES packet: the first that commences in it.
      at = (static_cast<size_t>(pes.begin) + kFrameBytes - 1) / kFrameBytes * kFrameBytes;
      if (at + kFrameBytes > sound.data.size()) break;
      const uint8_t* const bytes = sound.data.data() + at;
      all.push_back({bytes[100], bytes[101] << 8 | bytes[102],
                     static_cast<double>(pes.pts - seen.packets.front().pts) / 90'000});
    }
    return all;
  }
  static frame first_of(const std::vector<frame>& all, int file) {
    for (const frame& each : all) {
      if (each.file == file) return each;
    }
    ADD_FAILURE() << "nothing of file " << file;
    return {};
  }

  test::ScratchFolder folder_;
  tsm_video* video_ = nullptr;
  tsm_audio* audio_ = nullptr;
};

TEST_F(VideoTransitions, EachPiecesSoundBeginsWithItsPictures) {
  test::EngineRun run;
  prepare(run);
  // Of two seconds each; the sound is 16 ms longer, 80 ms shorter, and as long.
  add_pieces({50, 50, 50}, {84, 80, 84});
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "") << run.texts;
  const auto all = heard(run);
  EXPECT_NEAR(first_of(all, 0).behind, 0, 2e-5);
  // The frame that would begin 16 ms late is left out; the next one is within half a frame.
  EXPECT_EQ(first_of(all, 1).number, 1);
  EXPECT_NEAR(first_of(all, 1).behind, 84 * 0.024, 2e-5);
  // Where sound is missing the next piece begins when it has to.
  EXPECT_EQ(first_of(all, 2).number, 0);
  EXPECT_NEAR(first_of(all, 2).behind, 4, 2e-5);
}

TEST_F(VideoTransitions, DelaysOfTheConfigurationStay) {
  test::EngineRun run;
  prepare(run);
  add_pieces({50, 50}, {80, 84});
  audio_->streamDelay = 9'000;  // 100 ms
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  const auto all = heard(run);
  EXPECT_NEAR(first_of(all, 0).behind, 0.1, 2e-5);
  EXPECT_NEAR(first_of(all, 1).behind, 2.1, 2e-5);
}

TEST_F(VideoTransitions, SoundGoesOnByItselfWithoutAVsyncOrPairs) {
  for (const bool sync : {false, true}) {
    SCOPED_TRACE(sync);
    test::EngineRun run;
    prepare(run);
    if (sync) {
      add_pieces({50, 50, 50}, {80, 84});  // no pairs
    } else {
      add_pieces({50, 50}, {80, 84});
      audio_->avSync = audio_->transitionCleanUp = false;
    }
    ASSERT_GT(run.multiplex(), 0) << run.texts;
    const auto all = heard(run);
    ASSERT_EQ(all.size(), 164u);
    EXPECT_NEAR(all[80].behind, 80 * 0.024, 2e-5);
  }
}

TEST_F(VideoTransitions, PiecesThatAreNoPairsAreTold) {
  test::EngineRun run;
  prepare(run);
  add_pieces({150, 50}, {84, 84});  // six seconds, and two
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "W37 ") << run.texts;
  EXPECT_NEAR(first_of(heard(run), 1).behind, 84 * 0.024, 2e-5);
}

TEST_F(VideoTransitions, PicturesThatAreTooFarAheadAreExcessiveSkew) {
  test::EngineRun run;
  prepare(run);
  add_pieces({900, 25}, {42, 84});  // 36 seconds, and one
  run.multiplex();
  EXPECT_EQ(run.said, "F97 ") << run.texts;
  EXPECT_TRUE(run.saidText("AVsync: Excessive skew between A/V timing.\n"));
}

class TransportPieces : public VideoTransitions {
 protected:
  // A transport stream of so many pictures and frames.
  Bytes piece(int file, int pictureCount, int frameCount) {
    test::EngineRun run;
    tsm_program* const program = run.addProgram();
    program->pcrPid = 0x1F0;
    program->pcrPer = 40;
    test::MemoryInput seen;
    test::MemoryInput sound;
    seen.bytes = pictures(pictureCount);
    sound.bytes = frames(file, frameCount);
    tsm_video* const video = tsm_add_video(program);
    video->pid = kVideoPid;
    video->user = &seen;
    tsm_audio* const audio = tsm_add_audio(program);
    audio->pid = kAudioPid;
    audio->pesNau = 1;
    audio->pesAlign = true;
    audio->streamDelay = 2'700;  // 30 ms
    audio->user = &sound;
    EXPECT_GT(run.multiplex(), 0) << run.texts;
    return run.bytes;
  }
  void add_file(const std::string& name) {
    tarn_array_append_text(&video_->files, name);
    tarn_array_append_text(&audio_->files, name);
  }
  void take_streams() {
    video_->sourceTsPid = kVideoPid;
    audio_->sourceTsPid = kAudioPid;
  }
};

TEST_F(TransportPieces, KeepTheirOwnDistances) {
  test::EngineRun run;
  prepare(run);
  take_streams();
  add_file(write("0.ts", piece(0, 50, 90)));
  add_file(write("1.ts", piece(1, 50, 78)));
  add_file(write("2.ts", piece(2, 50, 84)));
  ASSERT_GT(run.multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "") << run.texts;
  const auto all = heard(run);
  EXPECT_NEAR(first_of(all, 0).behind, 0.03, 2e-5);
  // 90 frames end at 2.19 s; those of the second piece count from 2.03 s: seven are left out.
  const frame second = first_of(all, 1);
  EXPECT_EQ(second.number, 7);
  EXPECT_NEAR(second.behind, 2.03 + 7 * 0.024, 0.012);
  const frame third = first_of(all, 2);
  EXPECT_EQ(third.number, 0);
  EXPECT_NEAR(third.behind, 4.03, 2e-5);
}

TEST_F(TransportPieces, ARecordingInPiecesIsOneAgain) {
  const Bytes whole = piece(0, 100, 160);
  const auto remultiplexed = [&](const std::vector<size_t>& cuts) {
    test::EngineRun run;
    prepare(run);
    take_streams();
    size_t from = 0;
    int number = 0;
    for (const size_t cut : cuts) {
      const Bytes part(whole.begin() + static_cast<ptrdiff_t>(from),
                       whole.begin() + static_cast<ptrdiff_t>(cut));
      add_file(write("part" + std::to_string(number++) + ".ts", part));
      from = cut;
    }
    EXPECT_GT(run.multiplex(), 0) << run.texts;
    EXPECT_EQ(run.said, "") << run.texts;
    return run.bytes;
  };
  const Bytes once = remultiplexed({whole.size()});
  // In the midst of packets, at their edges, and everywhere within a PES packet.
  const size_t packets = whole.size() / 188;
  EXPECT_TRUE(remultiplexed({packets / 3 * 188, packets / 2 * 188, whole.size()}) == once);
  EXPECT_TRUE(remultiplexed({packets / 3 * 188 + 77, packets / 2 * 188 + 1, whole.size()}) == once);
}

}  // namespace
}  // namespace zel::mux
