#include "zel/mux/engine/audio/open_audio.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/audio_frames.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/stream/audio_state.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using test::operator+;
using test::operator*;
using message_list = std::vector<std::pair<bool, int>>;  // fatal, code

int write_nothing(void*, const uint8_t*, int32_t, int32_t) {
  return 0;
}

// Frames of layer 2, 192 kbit/s at 48 kHz: 576 bytes, 24 ms.
std::vector<uint8_t> layer2(int frames) {
  std::vector<uint8_t> bytes;
  for (int i = 0; i < frames; ++i) {
    const size_t at = bytes.size();
    bytes.resize(at + 576);
    bytes[at] = 0xFF;
    bytes[at + 1] = 0xFD;
    bytes[at + 2] = 0xA4;
  }
  return bytes;
}

// A run of one program with one audio stream, whose bytes come from the record's file.
class OpenAudio : public ::testing::Test {
 protected:
  OpenAudio()
      : config_(tsm_config_new(), tsm_config_free),
        path_(std::filesystem::temp_directory_path() /
              ("zel_open_audio_" + std::to_string(getpid()))) {
    program_ = tsm_add_program(config_.get());
    record_ = tsm_add_audio(program_);
    record_->pid = 0x24;
    mux_.config = config_.get();
    mux_.reports.stop_on(false, false);
    mux_.reports.deliver_to(
        [](void* user, int fatal, int32_t code, const char* text) {
          static_cast<OpenAudio*>(user)->messages_.emplace_back(fatal != 0, code);
          static_cast<OpenAudio*>(user)->texts_ += text;
        },
        this);
  }
  ~OpenAudio() override { std::filesystem::remove(path_); }

  void write(const std::vector<uint8_t>& bytes) {
    std::ofstream file(path_, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(tarn_array_append_text(&record_->files, path_.string()));
  }

  // As building does it, a video stream that starts at `videoPts` before it, if that isn't 0.
  void build(double videoPts = 0) {
    stream_ = open_audio(*record_, *program_, nullptr, mux_);
    if (stream_ == nullptr) return;
    set_up_stream(*stream_, *record_, program_, mux_);
    if (videoPts > 0) {
      video_.stream = &videoStream_;
      video_.config = &videoRecord_;
      video_.firstPts = videoPts;
      state().firstVideo = &video_;
    }
    start_audio(*stream_, mux_);
  }
  audio_state& state() { return static_cast<audio_state&>(*stream_->state); }

  std::unique_ptr<tsm_config, void (*)(tsm_config*)> config_;
  std::filesystem::path path_;
  tsm_program* program_ = nullptr;
  tsm_audio* record_ = nullptr;
  tsm_video videoRecord_{};
  tsm_stream videoStream_;
  video_state video_;
  tsm_mux mux_{output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr)};
  std::unique_ptr<tsm_stream> stream_;
  message_list messages_;
  std::string texts_;
};

TEST_F(OpenAudio, FindsOutWhatTheStreamIs) {
  write(layer2(40));
  build();
  ASSERT_NE(stream_, nullptr);
  EXPECT_EQ(stream_->kind, stream_kind::audio);
  EXPECT_EQ(stream_->pid(), 0x24);
  EXPECT_TRUE(stream_->pmt.listed);
  EXPECT_EQ(stream_->pmt.streamType, 3);
  EXPECT_EQ(stream_->pesId, 192);
  EXPECT_EQ(state().characteristics.bitRate, 192'000);
  EXPECT_EQ(state().model.limit, 3'304);  // 3,400 less half a thousandth of the bit rate
  // (R + H) * 188 / 184 + 1, H of 9 + 5 bytes for each PES packet of two frames
  EXPECT_NEAR(stream_->rate, (192'000 + 192'000.0 * 14 / 1'152) * 188 / 184 + 1, 1e-6);
  // Without video the first PTS is the preload of 3,072 bytes: 128 ms.
  EXPECT_EQ(stream_->firstPts, 3'456'000);
  EXPECT_FALSE(stream_->has2(kHold));
  EXPECT_TRUE(messages_.empty()) << texts_;
}

TEST_F(OpenAudio, ProgrammesOfEac3BesideTheFirstAreDescribed) {
  using test::eac3Frame;
  // 7.1 channels of an independent and a dependent substream; a second programme, stereo.
  const auto unit =
      eac3Frame(0, 0, 1024, 7, 1) + eac3Frame(1, 0, 512, 2, 0, 0x0800) + eac3Frame(0, 1, 256, 2);
  write(unit * 40);
  record_->dvbBuf = true;
  config_->autoDescrMask = 2;
  build();
  ASSERT_NE(stream_, nullptr);
  const auto& descriptors = stream_->pmt.descriptors;
  ASSERT_EQ(descriptors.size(), 2u);
  EXPECT_EQ(descriptors[1][0], 0x7A);
  EXPECT_EQ(descriptors[1][2], 0xC4);   // type, bsid, the first other substream
  EXPECT_EQ(descriptors[1][3] & 7, 6);  // several
  EXPECT_EQ(descriptors[1][5], 0x40 | 2);
}

TEST_F(OpenAudio, StartsWithTheVideo) {
  write(layer2(40));
  record_->delay = 900;
  record_->streamDelay = 90;
  config_->leader = 9'000;
  videoRecord_.streamDelay = 450;
  // First picture at 0.6 s, of which 5 ms are its own delay and 100 ms the leader.
  build(0.6 * 2.7e7);
  EXPECT_DOUBLE_EQ(stream_->firstPts, 0.6 * 2.7e7 + (900 + 90 - 450) * 300);
  // The buffer of 3,304 bytes fills in 137.7 ms; a tenth of a second before that it may begin.
  EXPECT_TRUE(stream_->has2(kHold));
  EXPECT_NEAR(ticks_of(stream_->holdUntil),
              stream_->firstPts - 3'304 * 8 / 192'000.0 * 2.7e7 - 2.7e6, 1);
}

TEST_F(OpenAudio, AVideoThatNeverStartedGivesNoStart) {
  write(layer2(40));
  videoStream_.set(kNoMorePackets);
  build(0.6 * 2.7e7);
  EXPECT_EQ(stream_->firstPts, 3'456'000);
}

TEST_F(OpenAudio, ASetRateIsTheStreams) {
  write(layer2(40));
  record_->rate = 256'000;
  build();
  EXPECT_EQ(state().characteristics.bitRate, 256'000);
  EXPECT_NEAR(stream_->rate, (256'000 + 256'000.0 * 14 / 1'152) * 188 / 184 + 1, 1e-6);
}

TEST_F(OpenAudio, ASetStreamTypeAndStreamIdStay) {
  write(layer2(40));
  record_->streamType = 4;
  record_->pesId = 0xC5;
  build();
  EXPECT_EQ(stream_->pmt.streamType, 4);
  EXPECT_EQ(stream_->pesId, 0xC5);
}

TEST_F(OpenAudio, WithoutAFileIsFatal) {
  build();
  EXPECT_EQ(stream_, nullptr);
  EXPECT_EQ(messages_, (message_list{{true, 28}}));
  EXPECT_NE(texts_.find("for program 2."), std::string::npos);
}

TEST_F(OpenAudio, AFileThatIsntThereIsFatal) {
  ASSERT_TRUE(tarn_array_append_text(&record_->files, path_.string()));
  build();
  EXPECT_EQ(stream_, nullptr);
  EXPECT_EQ(messages_, (message_list{{true, 32}}));
  EXPECT_NE(texts_.find(path_.string()), std::string::npos);
}

TEST_F(OpenAudio, AnEmptyFileEndsTheStream) {
  write({});
  build();
  ASSERT_NE(stream_, nullptr);
  EXPECT_EQ(messages_, (message_list{{true, 19}}));
  EXPECT_TRUE(stream_->has(kNoMorePackets));
  EXPECT_TRUE(stream_->has(kSourceEnded));
  EXPECT_FALSE(stream_->pmt.listed);
}

TEST_F(OpenAudio, APesPacketThatTheInputDoesntHoldIsTold) {
  write(layer2(40));
  record_->avSync = false;  // 60,000 bytes and the read size
  record_->pesNau = 120;
  build();
  EXPECT_EQ(messages_, (message_list{{false, 13}}));
  EXPECT_NE(texts_.find("in PID 0x0024"), std::string::npos);
}

TEST_F(OpenAudio, ALoaderOfTheCallerStandsInForFiles) {
  struct feed {
    std::vector<uint8_t> bytes;
    size_t at;
  } own{layer2(40), 0};
  record_->user = &own;
  stream_ = open_audio(
      *record_, *program_,
      [](void* user, cbuf* buffer) {
        auto& from = *static_cast<feed*>(user);
        while (from.at < from.bytes.size()) {
          uint8_t* const next =
              buffer->write + 1 == buffer->end ? buffer->start : buffer->write + 1;
          if (next == buffer->read) return 0;
          *buffer->write = from.bytes[from.at++];
          buffer->write = next;
        }
        return 1;
      },
      mux_);
  ASSERT_NE(stream_, nullptr);
  set_up_stream(*stream_, *record_, program_, mux_);
  start_audio(*stream_, mux_);
  EXPECT_EQ(state().characteristics.bitRate, 192'000);
  EXPECT_TRUE(messages_.empty()) << texts_;
}

// The whole stream through the seam that the slot loop uses.
TEST_F(OpenAudio, SendsEveryFrameOnceStarted) {
  write(layer2(200));
  build();
  stream_->nextTime = time_from_ticks(1);
  stream_->dueTime = add(stream_->nextTime, stream_->interval);
  std::vector<uint8_t> payload;
  for (int slot = 0; slot < 10'000 && !stream_->has(kNoMorePackets); ++slot) {
    tsm_packet packet{};
    stream_->makePacket(*stream_, stream_->nextTime, packet, mux_);
    if (packet.pid() == kNullPid) continue;
    size_t at = 4 + ((packet.bytes[3] & 0x20) != 0 ? 1u + packet.bytes[4] : 0u);
    if ((packet.bytes[1] & 0x40) != 0) at += 9u + packet.bytes[at + 8];
    payload.insert(payload.end(), packet.bytes + at, packet.bytes + 188);
  }
  EXPECT_EQ(payload, layer2(200));
  EXPECT_TRUE(messages_.empty()) << texts_;
}

}  // namespace
}  // namespace zel::mux
