#include "tests/unit/mux/engine/engine_fixture.h"

// The 33-bit clock comes round after 26.5 hours. At a low rate a run over it is small.

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

using ClockWrap = EngineFixture;

TEST_F(ClockWrap, ARunOf27HoursPassesTheJudge) {
  // 20 kb/s: 13.3 packets a second, of which PCRs take most.
  run.config->rate = 20'000;
  run.config->psiPatRep = 0.5;
  run.config->psiPmtRep = 0.5;
  program->pcrPer = 90;
  const int seconds = 27 * 3600;
  addData(program, kDataPid, 752, seconds / 2);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  EXPECT_GT(run.packets(), seconds * 13);
  EXPECT_EQ(run.packetsOf(kDataPid), seconds / 2);
  const Verdict verdict = judge({.rate = 20'000,
                                 .longestPcrInterval = 0.26,     // a packet takes 75 ms
                                 .longestTableInterval = 4.1});  // due 2 s after their time
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  EXPECT_GT(verdict.seconds, 26.6 * 3600);
}

// The clock is set anew from the packet count as long as that is exact, and only without PCRI.
TEST_F(ClockWrap, ARunThatStartsRightBeforeTheWrapPassesTheJudge) {
  run.config->rate = 1e6;
  run.config->pcri = 2'576'980'377'600.0 - 2.7e7;
  addData(8e5, 3'000);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.packetsOf(kDataPid), 3'000);
  const Verdict verdict = judge();
  EXPECT_TRUE(verdict.clean()) << verdict.text();
}

}  // namespace
}  // namespace zel::mux
