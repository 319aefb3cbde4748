#include "zel/mux/engine/run/building.h"

#include <cmath>

#include "tests/unit/mux/engine/engine_fixture.h"

// What opening settles: rate, clocks, PIDs, output. Seen from outside, through whole runs.

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

using Building = EngineFixture;

// PAT and PMT ten times a second, and a PCR every 40 ms.
constexpr double kTables = 2 * 10 * 1504;
constexpr double kClock = 1.504e6 / 40;

TEST_F(Building, WithoutARateTheStreamsSumAndAMarginMakeIt) {
  addData(1e6, 10);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_NEAR(run.rate, 1e6 + kTables + kClock + 15'000, 1);
}

TEST_F(Building, ASmallSumGetsATenth) {
  addData(1e4, 10);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_NEAR(run.rate, (1e4 + kTables + kClock) * 1.1, 1);
}

TEST_F(Building, WithNothingInItARunHasARateAllTheSame) {
  program->pcrPid = -1;
  run.config->createPsi = false;
  EXPECT_GT(multiplex(), 0);
  EXPECT_EQ(run.packets(), 0);
}

TEST_F(Building, AStreamThatDoesntFitIsToldAndRunsAllTheSame) {
  run.config->rate = 9e5;
  addData(1e6, 500);
  EXPECT_EQ(multiplex(), 900'000);
  EXPECT_EQ(run.said, "W11 ");
  EXPECT_TRUE(run.saidText("Components exceed configured transport rate by 167680 bps.\n"))
      << run.texts;
  EXPECT_EQ(run.packetsOf(kDataPid), 500);
}

TEST_F(Building, RatesThatAreNoneAreAsIfNotSet) {
  addData(1e5, 1);
  for (const double rate : {-5.0, 0.5, std::nan(""), -HUGE_VAL}) {
    run.config->rate = rate;
    EXPECT_NEAR(multiplex(), 1e5 + kTables + kClock + 15'000, 1) << rate;
  }
}

TEST_F(Building, AHugeRateIsCutToWhatTheInterfaceTells) {
  run.config->rate = 1e300;
  addData(1e9, 100);
  EXPECT_EQ(multiplex(), 2147483647);
  EXPECT_EQ(run.packetsOf(kDataPid), 100);
}

TEST_F(Building, AClockPidThatNamesNoStreamGetsOne) {
  run.config->rate = 2e6;
  addData(1e6, 2000);
  ASSERT_GT(multiplex(), 0);
  const double seconds = run.packets() * 1504 / 2e6;
  EXPECT_NEAR(run.packetsOf(kPcrPid), seconds / 0.04, 1.5);
  // The first tells of the discontinuity; DisablePCRDI doesn't.
  for (int i = 0; i < run.packets(); ++i) {
    if (pidOf(i) != kPcrPid) continue;
    EXPECT_EQ(packet(i)[5], 0x90);
    break;
  }
}

TEST_F(Building, DisablePcrDiKeepsTheDiscontinuityAway) {
  run.config->disablePcrDi = true;
  addData(1e6, 100);
  ASSERT_GT(multiplex(), 0);
  for (int i = 0; i < run.packets(); ++i) {
    if (pidOf(i) == kPcrPid) {
      EXPECT_EQ(packet(i)[5], 0x10);
    }
  }
  EXPECT_GT(run.packetsOf(kPcrPid), 0);
}

TEST_F(Building, AProgramMayHaveNoClock) {
  program->pcrPid = 0x1FFF;
  addData(1e6, 100);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "");
  const std::vector<uint8_t> pmt = firstSection(32);
  EXPECT_EQ((pmt[8] & 0x1F) << 8 | pmt[9], 0x1FFF);
  EXPECT_EQ(run.packetsOf(0x1FFF), run.stats.nullPackets);
}

TEST_F(Building, ThePmtsOwnPidCanCarryTheClock) {
  program->pcrPid = 32;
  program->pcrPer = 90;
  run.config->psiPmtRep = 25;
  addData(1e6, 3000);
  ASSERT_GT(multiplex(), 0) << run.texts;
  const Verdict verdict = judge({.longestPcrInterval = 0.14});
  EXPECT_TRUE(verdict.clean()) << verdict.text();
}

TEST_F(Building, IllegalPidsAreToldOf) {
  program->pcrPid = 5;
  program->pmtPid = 0x1FFF;
  addData(program, 3, 1e6, 10);
  ASSERT_GT(multiplex(), 0);
  EXPECT_TRUE(run.saidText("PCR PID = 0x0005, illegal value\n")) << run.texts;
  EXPECT_TRUE(run.saidText("PMT PID = 0x1FFF, illegal value\n"));
  EXPECT_TRUE(run.saidText("Elementary stream PID = 0x0003, illegal value\n"));
}

TEST_F(Building, PacketsGrowForTheirStamps) {
  run.config->pktTs = true;
  run.config->pktTsBytes = 4;
  run.config->pktSize = 190;
  addData(1e6, 10);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "W39 ");
  EXPECT_TRUE(run.saidText("Packet size increased for time stamp to 192 bytes\n"));
  EXPECT_EQ(run.stats.packetSize, 192);
  EXPECT_EQ(run.bytes.size() % 192, 0u);
}

TEST_F(Building, StampsOfTooManyBytesOrBitsAreFatal) {
  run.config->pktTs = true;
  run.config->pktTsBytes = 9;
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F52 ");
  run.said.clear();
  run.config->pktTsBytes = 8;
  run.config->pktSize = 196;
  run.config->pktTsBits = 65;
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F89 ");
}

TEST_F(Building, PacketSizesOutOfRangeAre188) {
  for (const int32_t size : {0, 187, 513, -1}) {
    run.config->pktSize = size;
    ASSERT_TRUE(run.open());
    run.runOnce();
    EXPECT_EQ(run.stats.packetSize, 188) << size;
    run.close();
  }
}

TEST_F(Building, BurstsNeedCountAndSpacingAndAConstantRate) {
  run.config->burstNulls = true;
  run.config->burstNullsCount = 3;
  ASSERT_TRUE(run.open());
  run.close();
  EXPECT_EQ(run.said, "W102 W9 ");
}

TEST_F(Building, NullsComeInBurstsWhereAskedFor) {
  run.config->burstNulls = true;
  run.config->burstNullsCount = 3;
  run.config->burstNullsSpacing = 10;
  run.config->rate = 2e6;
  addData(2e6, 1000);
  ASSERT_GT(multiplex(), 0);
  for (int i = 0; i + 13 <= run.packets(); i += 13) {
    for (int k = 10; k < 13; ++k) EXPECT_EQ(pidOf(i + k), 0x1FFF) << i + k;
  }
}

TEST_F(Building, TheEndIsPaddedToAMultiple) {
  run.config->pktCountMultiple = 4;
  run.config->rate = 2e6;
  for (const int packets : {100, 101, 102, 103}) {
    run.bytes.clear();
    if (program->data[0] == nullptr) addData(2e6, packets);
    inputs.front() = {rawPackets(kDataPid, packets)};
    ASSERT_GT(multiplex(), 0);
    EXPECT_EQ(run.packets() % 4, 0) << packets;
    EXPECT_EQ(run.packetsOf(kDataPid), packets);
  }
}

TEST_F(Building, ACountThatIsAMultipleGetsNoPadding) {
  run.config->rate = 2e6;
  addData(2e6, 100);
  ASSERT_GT(multiplex(), 0);
  const int packets = run.packets();
  run.config->pktCountMultiple = packets;
  run.bytes.clear();
  rewind();
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.packets(), packets);
}

TEST_F(Building, KindsThatThisEngineCantMakeAreFatal) {
  tsm_scte35* record = tsm_add_scte35(program);
  record->pid = 0x1F2;
  tarn_array_append_text(&record->files, "cues.xml");
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F105 ");
  EXPECT_TRUE(run.saidText("Could not open SCTE35 file cues.xml.\n"));
}

TEST_F(Building, LeaderDelaysTheFirstPackets) {
  run.config->leader = 90'000;
  run.config->rate = 1.504e6;
  addData(1e6, 10);
  ASSERT_GT(multiplex(), 0);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(pidOf(i), 0x1FFF) << i;
  EXPECT_NE(pidOf(1001), 0x1FFF);
}

TEST_F(Building, PcriSetsTheClocksStart) {
  run.config->pcri = 12'345'678;
  run.config->rate = 1.504e6;
  addData(1e6, 1000);
  ASSERT_GT(multiplex(), 0);
  EXPECT_TRUE(judge().clean()) << judge().text();
  for (int i = 0; i < run.packets(); ++i) {
    if (pidOf(i) != kPcrPid) continue;
    const uint8_t* pcr = packet(i) + 6;
    const uint64_t base =
        uint64_t{pcr[0]} << 25 | uint64_t{pcr[1]} << 17 | pcr[2] << 9 | pcr[3] << 1 | pcr[4] >> 7;
    EXPECT_NEAR(static_cast<double>(base), 12'345'678 / 300 + i * 90, 1);
    break;
  }
}

TEST_F(Building, ASmoothingBufferHoldsAStreamToItsLeak) {
  run.config->rate = 3e6;
  tsm_data* record = addData(2e6, 1000);
  record->sbSize = 188 * 4;
  record->sbRate = 500'000;
  ASSERT_GT(multiplex(), 0);
  const double seconds = run.packets() * 1504 / 3e6;
  EXPECT_NEAR(1000 * 1504 / seconds, 500'000, 20'000);
}

TEST_F(Building, StreamsOfAProgramShareItsSmoothingBuffer) {
  run.config->rate = 3e6;
  addData(program, 0x200, 1e6, 500);
  addData(program, 0x201, 1e6, 500);
  program->sbSize = 188 * 4;
  program->sbRate = 500'000;
  ASSERT_GT(multiplex(), 0);
  const double seconds = run.packets() * 1504 / 3e6;
  EXPECT_NEAR(1000 * 1504 / seconds, 500'000, 20'000);
}

TEST_F(Building, ADescriptorThatNoTextCouldGiveIsLeftOut) {
  run.config->stopOnError = false;
  tsm_table* const record = tsm_add_table(program);
  record->pid = 0x300;
  record->createPmtEntry = true;
  record->repeat = false;
  const std::vector<uint8_t> table = {0x80, 0x30, 1, 0};
  tarn_array_append_bytes(&record->tables, table);
  const std::vector<uint8_t> fits = {0x80, 1, 7};
  tarn_array_append_bytes(&record->descriptors, fits);
  tarn_array_append_bytes(&record->descriptors, std::vector<uint8_t>(261, 0x81));
  multiplex();
  EXPECT_EQ(run.said, "F1 ");
  EXPECT_TRUE(run.saidText("Descriptors limited to 256 bytes, Descriptor2 too large.\n"));
}

TEST_F(Building, Smpte302mNeedsAPid) {
  run.config->stopOnError = false;
  tsm_smpte302m* const record = tsm_add_smpte302m(program);
  record->pid = 0;
  multiplex();
  EXPECT_EQ(run.said.substr(0, 4), "F66 ");
}

}  // namespace
}  // namespace zel::mux
