#include "zel/mux/engine/packet/video_packets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <tuple>
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

  void build(int smallest, int largest, int64_t limit, unsigned round = 0) {
    std::mt19937 random(static_cast<unsigned>(test::testSeed()) + round);
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

// All that a slot has to do with: what it answers, and the stream's state behind it.
using slot_answer = std::tuple<std::vector<uint8_t>, unsigned, uint32_t, int64_t, double>;

// Random streams with random options, each slot at a time of its own.
class RandomVideoPackets : public VideoPackets {
 protected:
  std::vector<slot_answer> answers_of(make_packet_function make, unsigned round) {
    now_ = {};
    stream_ = {};
    config_ = {};
    bytes_.clear();
    units_.clear();
    std::mt19937 random(static_cast<unsigned>(test::testSeed()) + round);
    const auto pick = [&random](int low, int high) {
      return std::uniform_int_distribution<int>(low, high)(random);
    };
    const auto chance = [&pick](int percent) { return pick(1, 100) <= percent; };

    config_.quadByte = chance(20);
    config_.insertAvcAud = chance(20);
    config_.insertSec = chance(20);
    config_.strictVbv = chance(20);
    config_.auInfo = chance(20);
    if (chance(30)) config_.maxPesLen = pick(184, 3'000);
    if (chance(30)) config_.maxDecodeDelay = pick(1'001, 20'000);
    if (chance(30)) stream_.PESnau = static_cast<uint32_t>(pick(1, 4));
    if (chance(30)) stream_.PTSnPES = static_cast<uint32_t>(pick(1, 3));
    for (const uint32_t flag : {kAligned, kTransportPriority, kPcrPes}) {
      if (chance(20)) stream_.set(flag);
    }
    if (chance(60)) {
      stream_.set(kCarriesPcr | kDiscontinuityWithPcr);
      stream_.pcrStep = time_from_ticks(pick(100'000, 2'000'000));
    }
    build(pick(1, 700), pick(700, 14'000), pick(20'000, 60'000), round);
    stream_.makePacket = make;
    state_->noEmptyAf = chance(20);
    if (chance(30)) state_->characteristics.coding = video_coding::avc;

    std::vector<slot_answer> answers;
    tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
    while (!stream_.has(kNoMorePackets) && answers.size() < 100'000) {
      now_ = add(stream_.nextTime, time_from_ticks(pick(0, 9'000)));
      if (chance(2) && stream_.has(kCarriesPcr)) stream_.set(kForcePcr);
      if (chance(1)) stream_.set(kInitDiPending);
      tsm_packet packet{};
      stream_.makePacket(stream_, now_, packet, mux);
      const size_t told = packet.pid() == kNullPid ? size_t{4} : kPacketBytes;
      answers.emplace_back(std::vector<uint8_t>(packet.bytes, packet.bytes + told),
                           packet.events[0] | packet.events[1] << 8, stream_.flags,
                           state_->model.level, state_->cursor.stampedDts);
    }
    EXPECT_TRUE(stream_.has(kNoMorePackets));
    return answers;
  }
};

TEST_F(RandomVideoPackets, TheShortcutComesToWhatThePlanDoes) {
  for (unsigned round = 0; round < 60; ++round) {
    const std::vector<slot_answer> planned = answers_of(plan_video_packet, round);
    const std::vector<slot_answer> made = answers_of(make_video_packet, round);
    ASSERT_EQ(made.size(), planned.size()) << round;
    for (size_t i = 0; i < made.size(); ++i) ASSERT_EQ(made[i], planned[i]) << round << ", " << i;
  }
}

}  // namespace
}  // namespace zel::mux
