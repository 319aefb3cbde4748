#include "zel/mux/engine/run/block_input.h"

#include "tests/unit/mux/engine/engine_fixture.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct Blocks {
  std::vector<double> durations;  // to be answered, in order
  std::vector<tsm_block> told;
  std::vector<std::vector<uint8_t>> events;

  static int end(void* user, tsm_block* block) {
    Blocks& self = *static_cast<Blocks*>(user);
    self.events.emplace_back(block->events, block->events + 2 * block->eventCount);
    self.told.push_back(*block);
    if (self.told.size() > self.durations.size()) return 1;
    block->duration = self.durations[self.told.size() - 1];
    return 0;
  }
};

struct BlockInput : EngineFixture {
  BlockInput() {
    run.config->blockProcess = true;
    run.config->progressUser = &blocks;
    run.config->rate = 1.504e6;  // 1,000 packets a second
    run.blockEnd = Blocks::end;
    run.usesProgress = false;
  }
  std::vector<double> pcrs() const {
    std::vector<double> values;
    for (int i = 0; i < run.packets(); ++i) {
      if (pidOf(i) != kPcrPid) continue;
      const uint8_t* pcr = packet(i) + 6;
      const uint64_t base = uint64_t{pcr[0]} << 25 | uint64_t{pcr[1]} << 17 |
                            uint64_t{pcr[2]} << 9 | uint64_t{pcr[3]} << 1 | pcr[4] >> 7;
      values.push_back(static_cast<double>(base) / 90'000);
    }
    return values;
  }

  Blocks blocks;
};

TEST_F(BlockInput, TheCallbackSetsTheLengthOfEachBlockAndEndsTheRun) {
  blocks.durations = {2.7e7, 0.5 * 2.7e7, 2 * 2.7e7};
  addData(1e6, 100'000);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "W21 ");
  ASSERT_EQ(blocks.told.size(), 4u);
  EXPECT_EQ(blocks.told[0].packets, 0);
  EXPECT_EQ(blocks.told[1].packets, 1'000);
  EXPECT_EQ(blocks.told[1].duration, 2.7e7);
  EXPECT_EQ(blocks.told[2].packets, 500);
  EXPECT_EQ(blocks.told[2].firstPacket, 1'000);
  EXPECT_EQ(blocks.told[3].packets, 2'000);
  EXPECT_EQ(run.packets(), 3'500);
}

TEST_F(BlockInput, WithoutACallbackThereIsNoBlock) {
  run.blockEnd = nullptr;
  addData(1e6, 1'000);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "W21 ");
  EXPECT_EQ(run.packets(), 0);
}

TEST_F(BlockInput, ABlockOfNoLengthEndsTheRun) {
  blocks.durations = {2.7e7, -1, 2.7e7};
  addData(1e6, 100'000);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.packets(), 1'000);
}

TEST_F(BlockInput, EventsOfTheBlocksPacketsComeWithIt) {
  run.config->eventNotify = true;
  blocks.durations = {2.7e7, 2.7e7};
  addData(1e6, 100'000);
  ASSERT_GT(multiplex(), 0);
  ASSERT_EQ(blocks.events.size(), 3u);
  for (size_t block = 1; block < 3; ++block) {
    ASSERT_EQ(blocks.events[block].size(), 2'000u);
    for (size_t i = 0; i < 1'000; ++i) {
      const int pid = pidOf(static_cast<int>(i + (block - 1) * 1'000));
      EXPECT_EQ((blocks.events[block][2 * i] & kEventPat) != 0, pid == 0);
      EXPECT_EQ((blocks.events[block][2 * i] & kEventPcr) != 0, pid == kPcrPid);
    }
  }
}

TEST_F(BlockInput, ReverseTimingPutsEachBlockBeforeTheOneGivenFirst) {
  run.config->reverseTiming = true;
  run.config->pcri = 10 * 2.7e7;
  blocks.durations = {2.7e7, 2.7e7, 2.7e7};
  addData(1e6, 100'000);
  ASSERT_GT(multiplex(), 0);
  for (const double pcr : pcrs()) {
    EXPECT_GE(pcr, 7);
    EXPECT_LE(pcr, 10);
  }
  EXPECT_NEAR(pcrs().front(), 9, 0.01);
  EXPECT_NEAR(pcrs().back(), 8, 0.05);
}

}  // namespace
}  // namespace zel::mux
