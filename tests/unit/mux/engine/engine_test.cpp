#include "zel/mux/engine/engine.h"

#include <algorithm>
#include <thread>

#include "tests/unit/mux/engine/engine_fixture.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

using Engine = EngineFixture;

TEST_F(Engine, AnEmptyProgramGivesItsTablesAndAWarning) {
  program->pcrPid = -1;
  run.config->rate = 1e6;
  EXPECT_EQ(multiplex(), 1000000);
  EXPECT_EQ(run.said, "W9 ");
  EXPECT_TRUE(run.saidText("Program2: No elementary streams seen: created empty PMT.\n"))
      << run.texts;
  EXPECT_EQ(run.packetsOf(0), 1);
  EXPECT_EQ(run.packetsOf(32), 1);
}

TEST_F(Engine, DataWithAClockOfItsOwnPassesTheJudge) {
  addData(1e6, 3000);
  run.config->rate = 1.5e6;
  EXPECT_EQ(multiplex(), 1500000) << run.texts;
  EXPECT_EQ(run.said, "");
  EXPECT_EQ(run.packetsOf(kDataPid), 3000);
  const Verdict verdict = judge();
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  EXPECT_NEAR(verdict.rate, 1.5e6, 1);
}

TEST_F(Engine, SeveralProgramsAndTransportLevelDataShareTheStream) {
  addData(2e5, 500);
  tsm_program* second = tsm_add_program(run.config);
  second->pcrPid = 0x1F1;
  addData(second, 0x210, 3e5, 700);
  addData(nullptr, 0x300, 1e5, 200);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  EXPECT_EQ(run.packetsOf(0x200), 500);
  EXPECT_EQ(run.packetsOf(0x210), 700);
  EXPECT_EQ(run.packetsOf(0x300), 200);
  // What belongs to no program is told of by no table.
  const Verdict verdict = judge();
  EXPECT_EQ(verdict.findingCount, static_cast<int64_t>(verdict.of(Fault::kUnreferencedPid).size()))
      << verdict.text();
  EXPECT_EQ(run.stats.streams, 8);  // three of data, two of PCRs, PAT, two PMTs
}

TEST_F(Engine, TwoRunsGiveTheSameBytes) {
  addData(1e6, 1000);
  ASSERT_GT(multiplex(), 0);
  const std::vector<uint8_t> first = std::move(run.bytes);
  run.bytes.clear();
  rewind();
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.bytes, first);
}

TEST_F(Engine, ARunInPiecesGivesTheSameBytes) {
  run.config->rate = 2e6;
  addData(1e6, 1000);
  ASSERT_GT(multiplex(), 0);
  const std::vector<uint8_t> whole = std::move(run.bytes);
  run.bytes.clear();
  rewind();
  ASSERT_TRUE(run.open());
  tsm_set_packets_per_call(run.handle, 77);
  int pauses = 0;
  while (true) {
    const int32_t result = run.runOnce();
    if (tsm_finished(run.handle)) {
      EXPECT_EQ(result, 2000000);
      break;
    }
    EXPECT_EQ(result, 0);
    ++pauses;
  }
  EXPECT_EQ(pauses, static_cast<int>(whole.size() / 188 / 77));
  EXPECT_EQ(run.bytes, whole);
  EXPECT_EQ(run.runOnce(), 2000000) << "a finished run stays finished";
  EXPECT_EQ(run.bytes, whole);
}

TEST_F(Engine, StatisticsCountWhatWentOut) {
  run.config->rate = 2e6;
  addData(1e6, 1000);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.stats.packetsWritten, run.packets());
  EXPECT_EQ(run.stats.packetsCounted, run.packets());
  EXPECT_EQ(run.stats.bytesWritten, static_cast<int64_t>(run.bytes.size()));
  EXPECT_EQ(run.stats.nullPackets, run.packetsOf(0x1FFF));
  EXPECT_EQ(run.stats.packetSize, 188);
  EXPECT_EQ(run.stats.warnings, 0);
  EXPECT_EQ(run.stats.errors, 0);
}

TEST_F(Engine, AControlWordEndsTheRunAndNothingMadeIsLost) {
  run.config->outPkts = 500;
  addData(1e6, 100000);
  ASSERT_TRUE(run.open());
  tsm_set_packets_per_call(run.handle, 777);
  EXPECT_EQ(run.runOnce(), 0);
  EXPECT_EQ(run.packets(), 500);
  tsm_set_control(run.handle, kTsmControlEnd);
  EXPECT_EQ(run.runOnce(), 0);
  EXPECT_TRUE(tsm_finished(run.handle));
  EXPECT_EQ(run.packets(), 777);
}

TEST_F(Engine, ProgressCanStopTheRun) {
  run.config->progressPeriod = 100;
  run.stopAtProgress = 3;
  run.config->rate = 2e6;
  addData(1e6, 100000);
  EXPECT_EQ(multiplex(), 2000000);
  EXPECT_EQ(run.packets(), 300);
}

TEST_F(Engine, ProgressIsEvery5000PacketsUnlessSaidOtherwise) {
  run.config->rate = 2e6;
  addData(2e6, 20000);
  multiplex();
  EXPECT_EQ(run.progressCalls, run.packets() / 5000);
}

TEST_F(Engine, ARestartBuildsTheRunAnewFromTheSameConfiguration) {
  run.config->rate = 2e6;
  addData(1e6, 100000);
  ASSERT_TRUE(run.open());
  tsm_set_packets_per_call(run.handle, 1000);
  EXPECT_EQ(run.runOnce(), 0);
  rewind();
  tsm_set_control(run.handle, kTsmControlRestart);
  EXPECT_EQ(run.runOnce(), 2000000);
  EXPECT_FALSE(tsm_finished(run.handle));
  EXPECT_EQ(run.said, "W121 ");
  EXPECT_EQ(run.stats.packetsWritten, 0);
  EXPECT_EQ(run.runOnce(), 0) << "the word is cleared, the limit isn't";
  EXPECT_EQ(run.stats.packetsWritten, 1000);
}

// Receivers that know the version would hold on to the old streams' lists.
TEST_F(Engine, AfterARestartAnEmptyPmtOfTheVersionBeforeGoesFirst) {
  program->pmtVsn = 5;
  run.config->rate = 2e6;
  addData(1e6, 100000);
  ASSERT_TRUE(run.open());
  rewind();
  tsm_set_control(run.handle, kTsmControlRestart);
  ASSERT_EQ(run.runOnce(), 2000000);
  tsm_set_packets_per_call(run.handle, 1000);
  run.bytes.clear();
  EXPECT_EQ(run.runOnce(), 0) << run.texts;
  EXPECT_EQ(run.packets(), 1000);
  EXPECT_GT(run.packetsOf(32), 3);
  const std::vector<uint8_t> payload = firstSection(32);
  EXPECT_EQ(payload[2], 13);
  EXPECT_EQ(payload[5] >> 1 & 31, 4);
  EXPECT_EQ(payload[16], 2) << "the PMT itself follows in the same packet";
  EXPECT_EQ(payload[16 + 5] >> 1 & 31, 5);
  EXPECT_EQ(section(32, 1)[5] >> 1 & 31, 5) << "the empty one goes once";
}

TEST_F(Engine, ARestartOnErrorsWaitsForOne) {
  run.config->stopOnError = false;
  run.config->rate = 2e6;
  addData(1e6, 1000);
  inputs.front().bytes[500 * 188] = 0;  // no sync byte: fatal 10
  ASSERT_TRUE(run.open());
  tsm_set_control(run.handle, kTsmControlRestartOnErrors);
  EXPECT_EQ(run.runOnce(), 2000000);
  EXPECT_EQ(run.said, "F10 W121 ");
  EXPECT_FALSE(tsm_finished(run.handle));
}

TEST_F(Engine, ARestartThatCantOpenItsStreamsIsFatal) {
  run.config->rate = 2e6;
  addData(1e6, 1000);
  ASSERT_TRUE(run.open());
  run.config->data[0] = tsm_add_data(run.config);
  run.config->data[0]->pid = 0x300;  // no rate: fatal 4
  tsm_set_control(run.handle, kTsmControlRestart);
  EXPECT_LT(run.runOnce(), 0);
  EXPECT_EQ(run.said, "W121 F4 F133 ");
  EXPECT_LT(run.runOnce(), 0) << "after a fatal stop only closing is left";
}

TEST_F(Engine, AFatalMessageOfOpeningGivesNoHandle) {
  addData(0, 10);
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F4 ");
}

TEST_F(Engine, WithoutStopOnErrorAFatalMessageLeavesTheStreamOut) {
  run.config->stopOnError = false;
  addData(program, 0x201, 0, 10);
  addData(1e5, 10);
  EXPECT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "F4 ");
  EXPECT_EQ(run.packetsOf(0x200), 10);
  EXPECT_EQ(run.packetsOf(0x201), 0);
}

TEST_F(Engine, AWarningStopsTheRunWhereAskedTo) {
  run.config->stopOnWarning = true;
  program->pcrPid = -1;
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "W9 ");
}

TEST_F(Engine, EveryWriteThatCanFailIsFatalAndEndsTheRun) {
  run.config->rate = 2e6;
  run.config->outPkts = 100;
  addData(1e6, 1000);
  ASSERT_GT(multiplex(), 0);
  const int writes = static_cast<int>(run.writes.size());
  ASSERT_GT(writes, 10);
  for (int n = 1; n <= writes; ++n) {
    run.writes.clear();
    run.bytes.clear();
    run.said.clear();
    run.failAtWrite = n;
    EXPECT_LT(multiplex(), 0);
    EXPECT_EQ(run.said, "F82 ");
    EXPECT_EQ(static_cast<int>(run.writes.size()), n) << "no write behind one that failed";
  }
}

TEST_F(Engine, NullHandlesAndConfigurationsAreHarmless) {
  tsm_stats stats;
  EXPECT_EQ(tsm_open(nullptr, nullptr), nullptr);
  EXPECT_LT(tsm_run(nullptr), 0);
  tsm_get_stats(nullptr, &stats);
  tsm_set_control(nullptr, kTsmControlEnd);
  tsm_set_packets_per_call(nullptr, 3);
  tsm_close(nullptr);
  EXPECT_TRUE(tsm_finished(nullptr));
}

TEST_F(Engine, ClosingWithoutRunningIsFine) {
  addData(1e6, 1000);
  ASSERT_TRUE(run.open());
  run.close();
  EXPECT_EQ(run.packets(), 0);
}

struct ThreadedRun {
  std::vector<uint8_t> bytes;
  std::vector<uint8_t> packets;

  void go(int pid) {
    EngineRun own;
    MemoryInput input{packets};
    tsm_program* program = own.addProgram();
    program->pcrPid = 0x1F0;
    tsm_data* record = tsm_add_data(program);
    record->pid = pid;
    record->rate = 1e6;
    record->user = &input;
    record->createPmtEntry = true;
    ASSERT_TRUE(own.open());
    EXPECT_GT(own.runOnce(), 0);
    own.close();
    bytes = own.bytes;
  }
};

TEST_F(Engine, RunsOnDifferentThreadsDontMeet) {
  ThreadedRun alone, first, second;
  alone.packets = first.packets = second.packets = rawPackets(0x200, 3000);
  alone.go(0x200);
  std::thread one([&] { first.go(0x200); });
  std::thread two([&] { second.go(0x200); });
  one.join();
  two.join();
  EXPECT_EQ(first.bytes, alone.bytes);
  EXPECT_EQ(second.bytes, alone.bytes);
}

}  // namespace
}  // namespace zel::mux
