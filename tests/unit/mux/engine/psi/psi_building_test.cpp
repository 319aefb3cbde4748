#include "zel/mux/engine/psi/psi_building.h"

#include <cmath>

#include "tests/unit/mux/engine/engine_fixture.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

struct PsiBuilding : EngineFixture {
  PsiBuilding() { run.config->rate = 2e6; }
  void addDescriptor(TarnArray& to, uint8_t tag, int size) {
    std::vector<uint8_t> bytes(static_cast<size_t>(size) + 2, 0xAB);
    bytes[0] = tag;
    bytes[1] = static_cast<uint8_t>(size);
    ASSERT_TRUE(tarn_array_append_bytes(&to, bytes));
  }
  static int pidAt(const std::vector<uint8_t>& bytes, size_t place) {
    return (bytes[place] & 0x1F) << 8 | bytes[place + 1];
  }
  /// PIDs of the PMT's lines, in order; for lines without descriptors.
  std::vector<int> linePids() const {
    const std::vector<uint8_t> pmt = firstSection(32);
    const size_t end = 3u + ((pmt[1] & 15) << 8 | pmt[2]) - 4;
    std::vector<int> pids;
    for (size_t at = 12; at + 5 <= end; at += 5) pids.push_back(pidAt(pmt, at + 1));
    return pids;
  }
};

TEST_F(PsiBuilding, TablesTellWhatIsConfigured) {
  run.config->patTsid = 0x1234;
  run.config->patVsn = 9;
  run.config->nitPid = 0x40;
  program->programNumber = 7;
  program->pmtPid = 0x100;
  program->pmtVsn = 21;
  addDescriptor(program->descriptors, 0x05, 4);
  tsm_data* record = addData(1e6, 100);
  record->streamType = 0x90;
  addDescriptor(record->descriptors, 0x52, 1);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_TRUE(judge().clean()) << judge().text();

  const std::vector<uint8_t> pat = firstSection(0);
  EXPECT_EQ(pat[3] << 8 | pat[4], 0x1234);
  EXPECT_EQ(pat[5], 0xC0 | 9 << 1 | 1);
  EXPECT_EQ(pat[8] << 8 | pat[9], 0);
  EXPECT_EQ(pidAt(pat, 10), 0x40);
  EXPECT_EQ(pat[12] << 8 | pat[13], 7);
  EXPECT_EQ(pidAt(pat, 14), 0x100);

  const std::vector<uint8_t> pmt = firstSection(0x100);
  EXPECT_EQ(pmt[3] << 8 | pmt[4], 7);
  EXPECT_EQ(pmt[5], 0xC0 | 21 << 1 | 1);
  EXPECT_EQ(pidAt(pmt, 8), kPcrPid);
  EXPECT_EQ(pmt[11], 6);
  EXPECT_EQ(pmt[12], 0x05);
  EXPECT_EQ(pmt[18], 0x90);
  EXPECT_EQ(pidAt(pmt, 19), kDataPid);
  EXPECT_EQ(pmt[22], 3);
  EXPECT_EQ(pmt[23], 0x52);
}

TEST_F(PsiBuilding, NoPsiWhereNoneIsWanted) {
  run.config->createPsi = false;
  addData(1e6, 100);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.packetsOf(0), 0);
  EXPECT_EQ(run.packetsOf(32), 0);
}

TEST_F(PsiBuilding, RepetitionIsAsConfigured) {
  run.config->psiPatRep = 4;
  run.config->psiPmtRep = 20;
  addData(1.5e6, 10'000);
  ASSERT_GT(multiplex(), 0);
  const double seconds = run.packets() * 1504 / 2e6;
  EXPECT_NEAR(run.packetsOf(0), seconds * 4, 2);
  EXPECT_NEAR(run.packetsOf(32), seconds * 20, 2);
}

TEST_F(PsiBuilding, ARepetitionOfNothingIsFatal) {
  addData(1e6, 100);
  run.config->psiPatRep = 0;
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F41 ");
  run.said.clear();
  run.config->psiPatRep = 10;
  run.config->psiPmtRep = -3;
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F42 ");
  EXPECT_TRUE(run.saidText("PSIPMTrep = -3, must be greater than zero.\n"));
}

TEST_F(PsiBuilding, RepetitionsOutOfAllBoundsDoNoHarm) {
  run.config->stopOnError = false;
  run.config->progressPeriod = 100;
  run.stopAtProgress = 5;
  addData(1e6, 1'000);
  for (const double repetition : {std::nan(""), -1e300, 1e-300, 1e6, 1e300}) {
    run.config->psiPatRep = run.config->psiPmtRep = repetition;
    run.progressCalls = 0;
    EXPECT_GT(multiplex(), 0) << repetition;
  }
}

TEST_F(PsiBuilding, WithoutStoppingTheTableStillComesOnce) {
  run.config->stopOnError = false;
  run.config->psiPatRep = 0;
  addData(1e6, 1'000);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.packetsOf(0), 1);
}

TEST_F(PsiBuilding, PmtOrderSortsAndNoneStandsBehind) {
  addData(program, 0x201, 1e5, 10)->pmtOrder = 0;
  addData(program, 0x202, 1e5, 10)->pmtOrder = 3;
  addData(program, 0x203, 1e5, 10)->pmtOrder = 1;
  addData(program, 0x204, 1e5, 10)->pmtOrder = 0;
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(linePids(), (std::vector<int>{0x203, 0x202, 0x201, 0x204}));
}

TEST_F(PsiBuilding, WithoutOrdersLinesStandAsBuilt) {
  addData(program, 0x203, 1e5, 10);
  addData(program, 0x201, 1e5, 10);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(linePids(), (std::vector<int>{0x203, 0x201}));
}

TEST_F(PsiBuilding, ProgramsShareAPmtPid) {
  addData(1e5, 100);
  tsm_program* second = tsm_add_program(run.config);
  second->pmtPid = 32;
  second->pcrPid = 0x1F1;
  addData(second, 0x210, 1e5, 100);
  ASSERT_GT(multiplex(), 0);
  EXPECT_TRUE(judge().clean()) << judge().text();
  // Both sections are due at the same time, and fit into one packet.
  const std::vector<uint8_t> payload = firstSection(32);
  const size_t next = 3u + ((payload[1] & 15) << 8 | payload[2]);
  EXPECT_EQ(payload[3] << 8 | payload[4], 2);
  EXPECT_EQ(payload[next], 2);
  EXPECT_EQ(payload[next + 3] << 8 | payload[next + 4], 3);
}

// 12 bytes, descriptors, a line of 5 bytes, CRC: 1,023 with 1,002 of descriptors.
struct PmtSize : PsiBuilding {
  void fill(int last) {
    tsm_data* record = addData(1e6, 1'000);
    for (int i = 0; i < 3; ++i) addDescriptor(record->descriptors, 0x80, 255);
    addDescriptor(record->descriptors, 0x80, last);
  }
};

TEST_F(PmtSize, OfExactly1023BytesPasses) {
  fill(1002 - 3 * 257 - 2);
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.said, "W16 ") << "ten a second are above 80 kb/s";
  EXPECT_TRUE(run.saidText("PSI aggregate bitrate exceeds 80Kbps limit by 1840 bps.\n"));
  const std::vector<uint8_t> pmt = firstSection(32);
  EXPECT_EQ((pmt[1] & 15) << 8 | pmt[2], 1020);
  EXPECT_FALSE(judge().has(Fault::kSectionCrc)) << judge().text();
}

TEST_F(PmtSize, Of1024BytesIsFatal) {
  fill(1003 - 3 * 257 - 2);
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F7 ");
  EXPECT_TRUE(run.saidText("PMT size = 1024, exceeds single section limit.\n"));
}

TEST_F(PmtSize, IsCutWhereTheRunGoesOn) {
  run.config->stopOnError = false;
  run.config->psiPmtRep = 5;
  fill(200);
  addDescriptor(run.config->programs->data[0]->descriptors, 0x80, 255);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "F7 ");
  const std::vector<uint8_t> pmt = firstSection(32);
  EXPECT_EQ((pmt[1] & 15) << 8 | pmt[2], 1020);
  EXPECT_FALSE(judge().has(Fault::kSectionCrc));
}

TEST_F(PsiBuilding, APatThatIsTooLargeIsFatal) {
  run.config->programs->pcrPid = 0x1FFF;
  for (int i = 1; i < 253; ++i) tsm_add_program(run.config)->pcrPid = 0x1FFF;
  // 8 bytes, 252 programs, CRC: 1,020; one more is 1,024.
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said.substr(run.said.size() - 3), "F6 ");
  EXPECT_TRUE(run.saidText("PAT size = 1024, exceeds single section limit.\n"));
}

TEST_F(PsiBuilding, DescriptorsWithWrongLengthsAreToldOfAndStay) {
  tsm_data* record = addData(1e6, 100);
  const uint8_t bad[] = {0x52, 9, 1};
  tarn_array_append_bytes(&record->descriptors, bad);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "W78 ");
  EXPECT_TRUE(run.saidText("Descriptor length(s) incorrect: program_number=2.\n"));
  const std::vector<uint8_t> pmt = firstSection(32);
  EXPECT_TRUE(std::equal(bad, bad + 3, pmt.begin() + 17));
}

TEST_F(PsiBuilding, SelectionAndDiscontinuityInformationComeOnTheirPids) {
  run.config->dit = true;
  run.config->ditTransition = 1;
  run.config->sit = true;
  run.config->sitPeriod = 250;
  run.config->sitVersion = 4;
  run.config->sitServiceId = 0x321;
  run.config->sitRunningStatus = 4;
  addDescriptor(run.config->sitTransDescr, 0x63, 8);
  addData(1.2e6, 5'000);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "");
  EXPECT_EQ(run.packetsOf(0x1E), 1);
  const double seconds = run.packets() * 1504 / 2e6;
  EXPECT_NEAR(run.packetsOf(0x1F), seconds * 4, 1);
  EXPECT_EQ(firstSection(0x1E)[0], 0x7E);
  const std::vector<uint8_t> sit = firstSection(0x1F);
  EXPECT_EQ(sit[0], 0x7F);
  EXPECT_EQ(sit[5] >> 1 & 31, 4);
  EXPECT_EQ(sit[9], 10);
  EXPECT_EQ(sit[20] << 8 | sit[21], 0x321);
}

TEST_F(PsiBuilding, ASitThatIsTooLongIsToldOf) {
  run.config->sit = true;
  for (int i = 0; i < 5; ++i) addDescriptor(run.config->sitTransDescr, 0x63, 255);
  addData(1e6, 100);
  ASSERT_GT(multiplex(), 0);
  EXPECT_TRUE(run.saidText("Descriptor length(s) incorrect: program_number=31.\n")) << run.texts;
}

TEST_F(PsiBuilding, TransportPriorityReachesTheTables) {
  program->transportPriority = true;
  addData(1e6, 100);
  ASSERT_GT(multiplex(), 0);
  for (int i = 0; i < run.packets(); ++i) {
    if (pidOf(i) == 32) {
      EXPECT_EQ(packet(i)[1] & 0x20, 0x20);
    } else if (pidOf(i) == 0) {
      EXPECT_EQ(packet(i)[1] & 0x20, 0);
    }
  }
}

}  // namespace
}  // namespace zel::mux
