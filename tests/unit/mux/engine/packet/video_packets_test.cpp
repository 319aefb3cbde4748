#include "zel/mux/engine/packet/video_packets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/bytes_source.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/packet/packet_run.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

// A stream of 60 units of random bytes at 25 a second, queued at once, and no analyser.
class VideoPackets : public ::testing::Test {
 protected:
  static constexpr int kUnits = 60;
  static constexpr double kFirst = 1.08e7;
  static constexpr double kPeriod = 1'080'000;

  void build(int smallest, int largest, int64_t limit) {
    std::mt19937 random(static_cast<unsigned>(test::testSeed()));
    auto owned = std::make_unique<video_state>();
    state_ = owned.get();
    stream_.state = std::move(owned);
    stream_.set_pid(0x21);
    stream_.pesId = 0xE0;
    stream_.makePacket = make_video_packet;
    stream_.set_rate(4e6);
    stream_.step_times();
    state_->stream = &stream_;
    state_->config = &config_;
    state_->report = &reports_;
    state_->model.limit = limit;
    state_->characteristics.coding = video_coding::mpeg2;
    state_->characteristics.framePeriod = kPeriod;
    state_->sourceEnded = true;
    double dts = kFirst;
    for (int i = 0; i < kUnits; ++i) {
      access_unit unit;
      unit.start = static_cast<int64_t>(bytes_.size());
      unit.size =
          smallest + static_cast<int>(random() % static_cast<unsigned>(largest - smallest + 1));
      unit.dts = dts;
      unit.pts = dts + (i % 3 == 0 ? kPeriod : 0);
      unit.timed = true;
      unit.keyPoint = i % 12 == 0;
      unit.pictureStart = 3;
      plan_insertions(*state_, unit);
      for (int j = 0; j < unit.size; ++j) bytes_.push_back(static_cast<uint8_t>(random()));
      state_->units.push(unit);
      state_->model.removals.push({dts, unit.sent_size()});
      units_.push_back(unit);
      dts += kPeriod;
    }
    state_->input.open(1 << 21, 1 << 20, std::make_unique<test::BytesSource>(bytes_));
    while (state_->input.load()) {
    }
  }

  outcome run() {
    outcome result;
    packet_run(stream_, state_->model, result).to_the_end(now_);
    return result;
  }

  std::vector<int64_t> expected_pts() const {
    std::vector<int64_t> stamps;
    for (const access_unit& unit : units_) stamps.push_back(static_cast<int64_t>(unit.pts / 300));
    return stamps;
  }

  Morvalen::Zel::tsm_stats stats_;
  tsm_time now_;
  reporting reports_{stats_, now_};
  Morvalen::Zel::tsm_video config_{};
  tsm_stream stream_;
  video_state* state_ = nullptr;
  std::vector<uint8_t> bytes_;
  std::vector<access_unit> units_;
};

TEST_F(VideoPackets, DeliverTheStreamByteForByteWithinTheBuffer) {
  build(300, 12'000, 40'000);
  const outcome result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_EQ(result.pts(), expected_pts());
  EXPECT_LT(result.highest, 40'000);
  EXPECT_GT(result.withheld, 100);
  EXPECT_EQ(stats_.warnings, 0);
}

TEST_F(VideoPackets, UnalignedPesPacketsBeginWithTheRestOfTheUnitBefore) {
  build(300, 12'000, 60'000);
  const outcome result = run();
  ASSERT_EQ(result.pes.size(), units_.size());
  for (size_t i = 0; i < units_.size(); ++i) {
    const auto start = static_cast<size_t>(units_[i].start);
    EXPECT_LE(result.pes[i].at, start);
    EXPECT_LT(start - result.pes[i].at, 184u);
  }
  // Nothing is stuffed but the last packet.
  const size_t headers = units_.size() * 19;
  EXPECT_LE(static_cast<size_t>(result.packets), (bytes_.size() + headers) / 184 + 1);
}

TEST_F(VideoPackets, AlignedUnitsEachBeginAPacket) {
  stream_.set(kAligned);
  build(20, 3'000, 60'000);
  const outcome result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_EQ(result.pts(), expected_pts());
  ASSERT_EQ(result.pes.size(), units_.size());
  for (size_t i = 0; i < units_.size(); ++i) {
    EXPECT_EQ(result.pes[i].at, static_cast<size_t>(units_[i].start));
  }
}

TEST_F(VideoPackets, SmallUnitsArePaddedOnceToldOf) {
  config_.padSmallAu = true;
  build(20, 60, 60'000);
  const outcome result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_EQ(result.pts(), expected_pts());
  EXPECT_EQ(stats_.warnings, 1);
}

// ISO/IEC 13818-1, 2.7.4: at most 0.7 s; more units than that would fit into a packet.
TEST_F(VideoPackets, TinyUnitsDontKeepTimeStampsApart) {
  build(4, 6, 60'000);
  const outcome result = run();
  EXPECT_EQ(result.payload, bytes_);
  ASSERT_GT(result.pts().size(), 2u);
  for (size_t i = 1; i < result.pts().size(); ++i) {
    // A picture's own delay may come on top: one period here.
    EXPECT_LE(result.pts()[i] - result.pts()[i - 1], 63'000 + 3'600) << i;
  }
  EXPECT_EQ(stats_.warnings, 0);
}

TEST_F(VideoPackets, ManyUnitsShareAPesPacket) {
  stream_.PESnau = 5;
  build(300, 4'000, 60'000);
  const outcome result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_EQ(result.pts().size(), units_.size() / 5);
}

TEST_F(VideoPackets, PesPacketsAreCutAtTheirMostLength) {
  config_.maxPesLen = 1'000;
  build(300, 4'000, 60'000);
  const outcome result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_EQ(result.pts(), expected_pts());
  for (size_t i = 1; i < result.pes.size(); ++i) {
    EXPECT_LE(result.pes[i].at - result.pes[i - 1].at, 1'000u);
  }
}

TEST_F(VideoPackets, AWithheldPacketStillCarriesItsPcr) {
  stream_.set(kCarriesPcr);
  stream_.pcrStep = time_from_ticks(40 * 27'000.0);
  build(300, 12'000, 40'000);
  const outcome result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_GT(result.withheldWithPcr, 0);
  EXPECT_GE(result.pcrs, kUnits - 10);
}

TEST_F(VideoPackets, NothingComesMuchTooEarly) {
  build(300, 1'000, 1 << 30);
  state_->model.limit = 1 << 30;
  for (access_unit& unit : units_) unit.pts += 2e8;
  for (size_t i = 0; i < state_->units.size(); ++i) {
    state_->units[i].pts = units_[i].pts;
    state_->model.removals[i].time += 2e8;
  }
  stream_.nextTime = time_from_ticks(0);
  tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
  tsm_packet packet{};
  // 0.963 s before the first PTS, and a tick sooner.
  make_video_packet(stream_, time_from_ticks(units_[0].pts - 26'000'010.0), packet, mux);
  EXPECT_EQ(packet.pid(), kNullPid);
  make_video_packet(stream_, time_from_ticks(units_[0].pts - 25'999'990.0), packet, mux);
  EXPECT_EQ(packet.pid(), 0x21);
}

TEST_F(VideoPackets, AnUnderflowIsToldAndTheRunGoesOn) {
  stream_.set_rate(4e5);
  build(3'000, 6'000, 60'000);
  stream_.set_rate(4e5);
  const outcome result = run();
  EXPECT_EQ(result.payload, bytes_);
  EXPECT_GT(stats_.warnings, 0);
  EXPECT_GT(state_->runningDts, 0);
}

TEST_F(VideoPackets, QuadByteInsertsZerosBeforeThePicture) {
  config_.quadByte = true;
  build(300, 4'000, 60'000);
  const outcome result = run();
  std::vector<uint8_t> expected;
  for (const access_unit& unit : units_) {
    const auto from = bytes_.begin() + unit.start;
    expected.insert(expected.end(), from, from + 3);
    expected.push_back(0);
    expected.insert(expected.end(), from + 3, from + unit.size);
  }
  EXPECT_EQ(result.payload, expected);
}

TEST_F(VideoPackets, TheEndCodeIsAppendedOnce) {
  config_.insertSec = true;
  build(300, 4'000, 60'000);
  const outcome result = run();
  std::vector<uint8_t> expected = bytes_;
  expected.insert(expected.end(), {0, 0, 1, 0xB7});
  EXPECT_EQ(result.payload, expected);
}

}  // namespace
}  // namespace zel::mux
