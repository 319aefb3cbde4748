#include "zel/mux/engine/packet/audio_packets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/bytes_source.h"
#include "tests/support/counted_allocations.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/packet/packet_run.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

// A stream of 64 frames of random bytes at 24 ms, queued at once, and no analyser.
class AudioPackets : public ::testing::Test {
 protected:
  static constexpr int kFrames = 64;
  static constexpr double kFirst = 5.4e6;
  static constexpr double kPeriod = 648'000;

  void build(int smallest, int largest, int64_t limit, int gap = 0) {
    std::mt19937 random(static_cast<unsigned>(test::testSeed()));
    auto owned = std::make_unique<audio_state>();
    state_ = owned.get();
    stream_.state = std::move(owned);
    stream_.set_pid(0x24);
    stream_.pesId = 0xC0;
    stream_.makePacket = make_audio_packet;
    stream_.set_rate(8 * 1.12 * (largest + 20) / (kPeriod / 2.7e7));
    stream_.step_times();
    state_->stream = &stream_;
    state_->config = &config_;
    state_->report = &reports_;
    reports_.stop_on(false, false);
    reports_.deliver_to(
        [](void* user, int fatal, int32_t code, const char*) {
          static_cast<outcome*>(user)->messages.emplace_back(fatal != 0, code);
        },
        &result_);
    state_->model.limit = limit;
    state_->characteristics.period = kPeriod;
    state_->sourceEnded = true;
    std::vector<uint8_t> input;
    double pts = kFirst;
    for (int i = 0; i < kFrames; ++i) {
      for (int j = 0; j < gap; ++j) input.push_back(0xEE);  // bytes of no frame
      audio_frame frame;
      frame.start = static_cast<int64_t>(input.size());
      frame.size =
          smallest + static_cast<int>(random() % static_cast<unsigned>(largest - smallest + 1));
      frame.pts = pts;
      starts_.push_back(bytes_.size());
      for (int j = 0; j < frame.size; ++j) {
        bytes_.push_back(static_cast<uint8_t>(random()));
        input.push_back(bytes_.back());
      }
      state_->frames.push(frame);
      state_->model.removals.push({pts, frame.size});
      frames_.push_back(frame);
      pts += kPeriod;
    }
    const auto size = static_cast<int32_t>(input.size());
    state_->input.open(size + 2, size, std::make_unique<test::BytesSource>(std::move(input)));
    while (state_->input.load()) {
    }
  }

  void carry_clock(int milliseconds) {
    stream_.set(kCarriesPcr);
    stream_.pcrStep = time_from_ticks(milliseconds * 27'000.0);
  }

  const outcome& run() {
    packet_run packets(stream_, state_->model, result_);
    packets.noEmptyFields = state_->noEmptyAf;
    packets.to_the_end(now_);
    for (const pes_packet& packet : result_.pes) EXPECT_EQ(packet.told, packet.bytes);
    return result_;
  }

  int64_t stamp(size_t frame) const { return static_cast<int64_t>(frames_[frame].pts / 300); }

  // Every PES packet has the time stamp of the first frame that commences in it.
  void expect_stamps_of_commencing_frames() const {
    for (const pes_packet& packet : result_.pes) {
      const auto first = std::lower_bound(starts_.begin(), starts_.end(), packet.at);
      const bool commences = first != starts_.end() && *first < packet.at + packet.bytes;
      EXPECT_EQ(packet.pts, commences ? stamp(static_cast<size_t>(first - starts_.begin())) : -1);
    }
  }

  Morvalen::Zel::tsm_stats stats_;
  tsm_time now_;
  reporting reports_{stats_, now_};
  Morvalen::Zel::tsm_audio config_{};
  tsm_stream stream_;
  audio_state* state_ = nullptr;
  std::vector<uint8_t> bytes_;
  std::vector<size_t> starts_;
  std::vector<audio_frame> frames_;
  outcome result_;
};

TEST_F(AudioPackets, DeliverTheStreamByteForByteWithinTheBuffer) {
  build(300, 1'200, 3'584);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_LT(result.highest, 3'584);
  EXPECT_GT(result.withheld, 50);
  EXPECT_TRUE(result.messages.empty());
  expect_stamps_of_commencing_frames();
}

TEST_F(AudioPackets, AFrameAPesPacketHasItsTimeStamp) {
  build(300, 1'200, 3'584);
  run();
  ASSERT_EQ(result_.pts().size(), frames_.size());
  for (size_t i = 0; i < frames_.size(); ++i) EXPECT_EQ(result_.pts()[i], stamp(i));
}

TEST_F(AudioPackets, PesPacketsEndWithTransportPackets) {
  stream_.PESnau = 3;
  build(300, 1'200, 5'000);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  for (size_t i = 0; i + 1 < result.pes.size(); ++i) EXPECT_EQ(result.pes[i].stuffing, 0);
  // Three frames commence in each, so that the headers cost what the stream's rate allows for.
  EXPECT_EQ(result.pts().size(), (frames_.size() + 2) / 3);
  const size_t headers = result.pes.size() * 14;
  EXPECT_LE(static_cast<size_t>(result.packets), (bytes_.size() + headers) / 184 + 1);
}

TEST_F(AudioPackets, FramesSmallerThanAPacketKeepTheirTimes) {
  build(20, 90, 3'000);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  expect_stamps_of_commencing_frames();
  for (size_t i = 0; i + 1 < result.pes.size(); ++i) EXPECT_EQ(result.pes[i].stuffing, 0);
}

TEST_F(AudioPackets, APcrTakesNoMoreThanItsBytes) {
  carry_clock(40);
  stream_.PESnau = 2;
  build(700, 900, 3'584);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_GT(result.pcrs, kFrames * 24 / 40 - 5);
  // A PES packet whose PCR came unforeseen ends in a packet of eight bytes.
  int broken = 0;
  for (const pes_packet& packet : result.pes) broken += packet.stuffing > 16 ? 1 : 0;
  EXPECT_LE(broken, 3);
}

TEST_F(AudioPackets, AWithheldPacketStillCarriesItsPcr) {
  carry_clock(20);
  build(300, 1'200, 2'000);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_GT(result.withheldWithPcr, 0);
}

TEST_F(AudioPackets, AlignedPesPacketsAreWholeFramesEachInPacketsOfTheirOwn) {
  stream_.set(kAligned);
  stream_.set2(kHeaderAlignment);
  stream_.PESnau = 2;
  build(100, 900, 4'000);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  ASSERT_EQ(result.pes.size(), frames_.size() / 2);
  for (size_t i = 0; i < result.pes.size(); ++i) {
    EXPECT_EQ(result.pes[i].at, starts_[2 * i]);
    EXPECT_EQ(result.pes[i].pts, stamp(2 * i));
    EXPECT_TRUE(result.pes[i].aligned);
  }
}

TEST_F(AudioPackets, LowLatencyLetsNoFrameWaitForTheNext) {
  config_.lowLatency = true;
  build(100, 900, 4'000);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  ASSERT_EQ(result.pes.size(), frames_.size());
  for (size_t i = 0; i < result.pes.size(); ++i) {
    EXPECT_EQ(result.pes[i].at, starts_[i]);
    EXPECT_FALSE(result.pes[i].aligned);
  }
}

TEST_F(AudioPackets, NoFieldIsEmptyWhereThatIsForbidden) {
  // 169 bytes fill the first packet but for one byte.
  stream_.set(kAligned);
  for (const bool forbidden : {false, true}) {
    SCOPED_TRACE(forbidden);
    stream_.flags &= ~static_cast<uint32_t>(kSourceEnded | kNoMorePackets);
    bytes_.clear();
    starts_.clear();
    frames_.clear();
    result_ = {};
    build(169, 169, 3'000);
    state_->noEmptyAf = forbidden;
    const outcome& result = run();
    EXPECT_EQ(result.payload, bytes_);
    EXPECT_EQ(result.packets, forbidden ? 2 * kFrames : kFrames);
  }
}

TEST_F(AudioPackets, TimeStampsGoInEveryNthPesPacket) {
  stream_.PTSnPES = 4;
  build(300, 1'200, 3'584);
  run();
  ASSERT_EQ(result_.pts().size(), frames_.size() / 4);
  for (size_t i = 0; i < result_.pts().size(); ++i) EXPECT_EQ(result_.pts()[i], stamp(4 * i));
}

TEST_F(AudioPackets, WhatLiesBetweenFramesStaysBehind) {
  build(300, 1'200, 3'584, 7);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  expect_stamps_of_commencing_frames();
}

TEST_F(AudioPackets, APesPacketThatSixteenBitsCantHoldIsCutAndToldOnce) {
  stream_.PESnau = 30;
  build(4'000, 4'000, 1 << 20);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_EQ(result.messages, (std::vector<std::pair<bool, int>>{{false, 3}}));
  for (const pes_packet& packet : result.pes) EXPECT_LE(packet.bytes, 65'527u);
}

TEST_F(AudioPackets, AFrameLongerThanAPesPacketIsSentInSeveral) {
  stream_.set(kAligned);
  stream_.set2(kHeaderAlignment);
  build(100'000, 100'000, 1 << 20);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  ASSERT_EQ(result.pes.size(), 2u * kFrames);
  for (size_t i = 0; i < result.pes.size(); ++i) {
    EXPECT_EQ(result.pes[i].pts, i % 2 == 0 ? stamp(i / 2) : -1);
    EXPECT_EQ(result.pes[i].aligned, i % 2 == 0);
  }
}

TEST_F(AudioPackets, MoreFramesAPesPacketThanTheListHoldsAreFatal) {
  stream_.PESnau = 65;
  build(300, 300, 1 << 20);
  state_->sourceEnded = false;  // more might come, but for the full list
  tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
  tsm_packet packet{};
  make_audio_packet(stream_, time_from_ticks(kFirst - kPeriod), packet, mux);
  EXPECT_EQ(result_.messages, (std::vector<std::pair<bool, int>>{{true, 25}}));
  // Where the run goes on, the PES packet holds what there is.
  EXPECT_EQ(packet.pid(), 0x24);
  EXPECT_EQ(packet.bytes[8] << 8 | packet.bytes[9], 64 * 300 / 184 * 184 - 14 + 8);
}

TEST_F(AudioPackets, AStreamShorterThanAPesPacketIsTold) {
  stream_.PESnau = kFrames + 1;
  build(300, 1'200, 1 << 20);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_EQ(result.messages, (std::vector<std::pair<bool, int>>{{false, 14}}));
}

TEST_F(AudioPackets, NothingComesMuchTooEarly) {
  build(300, 300, 1 << 20);
  for (size_t i = 0; i < state_->frames.size(); ++i) {
    state_->frames[i].pts += 2e8;
    state_->model.removals[i].time += 2e8;
  }
  tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
  tsm_packet packet{};
  // 0.963 s before the PTS of the frame that the packet brings, and a tick sooner.
  const double pts = kFirst + 2e8;
  make_audio_packet(stream_, time_from_ticks(pts - 26'000'010.0), packet, mux);
  EXPECT_EQ(packet.pid(), kNullPid);
  make_audio_packet(stream_, time_from_ticks(pts - 25'999'990.0), packet, mux);
  EXPECT_EQ(packet.pid(), 0x24);
  // The second packet begins the second frame, which is due one period later.
  make_audio_packet(stream_, time_from_ticks(pts - 25'999'990.0), packet, mux);
  EXPECT_EQ(packet.pid(), kNullPid);
}

TEST_F(AudioPackets, AnUnderflowIsToldAndTheRunGoesOn) {
  build(900, 1'200, 5'000);
  stream_.set_rate(1e5);
  state_->runningPts = kFirst;
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  ASSERT_FALSE(result.messages.empty());
  for (const auto& message : result.messages) EXPECT_EQ(message, std::make_pair(false, 1));
  EXPECT_EQ(state_->runningPts, kFirst + kPeriod * static_cast<double>(result.messages.size()));
}

TEST_F(AudioPackets, RandomAccessAndTheInitialDiscontinuityAreMarked) {
  stream_.set(kAligned | kInitDiPending);
  stream_.set2(kRandomAccess);
  build(300, 300, 4'000);
  tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
  std::vector<int> flags;
  while (flags.size() < 4) {
    now_ = stream_.nextTime;
    tsm_packet packet{};
    make_audio_packet(stream_, now_, packet, mux);
    if (packet.pid() == kNullPid) continue;
    const auto parsed = test::parsePacket(std::span<const uint8_t, 188>(packet.bytes, 188));
    ASSERT_TRUE(parsed);
    flags.push_back(parsed->flags);
  }
  EXPECT_EQ(flags, (std::vector<int>{0xC0, 0x00, 0x40, 0x00}));
}

TEST_F(AudioPackets, ThePcrOfAPesStartGoesWithIt) {
  carry_clock(1'000);
  stream_.set(kPcrPes);
  build(300, 900, 4'000);
  const outcome& result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_GE(result.pcrs, static_cast<int>(result.pes.size()));
}

TEST_F(AudioPackets, AFrameIsToBeSentUntilItsLastByteIs) {
  build(300, 300, 4'000);
  const size_t frames = state_->model.removals.size();
  EXPECT_EQ(audio_units_to_send(stream_), frames);
  tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
  tsm_packet packet{};
  make_audio_packet(stream_, stream_.nextTime, packet, mux);
  const size_t found = state_->model.removals.size();
  EXPECT_EQ(audio_units_to_send(stream_), found);
  make_audio_packet(stream_, stream_.nextTime, packet, mux);
  EXPECT_EQ(audio_units_to_send(stream_), state_->model.removals.size() - 1);
}

TEST_F(AudioPackets, AllocateNothing) {
  build(300, 1'200, 3'584);
  tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
  const long before = test::allocationCount();
  int packets = 0;
  for (; packets < 100'000 && !stream_.has(kNoMorePackets); ++packets) {
    tsm_packet packet{};
    make_audio_packet(stream_, stream_.nextTime, packet, mux);
  }
  EXPECT_TRUE(stream_.has(kNoMorePackets));
  EXPECT_GT(packets, 200);
  EXPECT_EQ(test::allocationCount(), before);
}

}  // namespace
}  // namespace zel::mux
