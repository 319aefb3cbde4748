#include "zel/mux/engine/engine.h"

#include <gtest/gtest.h>

#include "tests/support/engine_run.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct Engine : testing::Test {
  /// A data stream in the program, or (null) at transport level.
  void addData(tsm_program* program, int pid, double rate, MemoryInput& input) {
    tsm_data* record = program != nullptr ? tsm_add_data(program) : tsm_add_data(run.config);
    record->pid = pid;
    record->rate = rate;
    record->user = &input;
    record->createPmtEntry = program != nullptr;
    record->streamType = 6;
  }
  Verdict judge() { return judgeTransportStream(run.bytes); }

  EngineRun run;
};

TEST_F(Engine, AnEmptyProgramGivesItsTablesAndAWarning) {
  run.addProgram();
  run.config->rate = 1e6;
  EXPECT_EQ(run.multiplex(), 1000000);
  EXPECT_EQ(run.said, "W9 ");
  EXPECT_TRUE(run.saidText("Program2: No elementary streams seen: created empty PMT.\n"))
      << run.texts;
  EXPECT_EQ(run.packetsOf(0), 1);
  EXPECT_EQ(run.packetsOf(32), 1);
}

TEST_F(Engine, DataWithAClockOfItsOwnPassesTheJudge) {
  MemoryInput input{rawPackets(0x200, 3000)};
  tsm_program* program = run.addProgram();
  program->pcrPid = 0x1F0;
  program->pcrPer = 40;
  addData(program, 0x200, 1e6, input);
  run.config->rate = 1.5e6;
  EXPECT_EQ(run.multiplex(), 1500000) << run.texts;
  EXPECT_EQ(run.said, "");
  EXPECT_EQ(run.packetsOf(0x200), 3000);
  const Verdict verdict = judge();
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  EXPECT_NEAR(verdict.rate, 1.5e6, 1);
}

}  // namespace
}  // namespace zel::mux
