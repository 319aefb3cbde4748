#include "zel/mux/engine/psi/psi_stream.h"

#include <gtest/gtest.h>

#include <string>

#include "zel/mux/engine/run/mux.h"
#include "zel/mux/engine/stream/pcr_schedule.h"

namespace zel::mux {
namespace {

int ignore(void*, const uint8_t*, int32_t, int32_t) {
  return 0;
}

struct PsiStream : testing::Test {
  PsiStream() {
    stream.kind = stream_kind::psi;
    stream.set(kPsiStream);
    stream.set_pid(0x20);
    stream.interval = time_from_ticks(2.7e6);
    auto owned = std::make_unique<psi_state>();
    state = owned.get();
    stream.state = std::move(owned);
  }
  void add_section(size_t size, uint8_t fill, double first = 0) {
    psi_section section;
    section.bytes.assign(size, fill);
    section.nextSending = time_from_ticks(first);
    section.interval = time_from_ticks(2.7e6);
    state->sections.push_back(section);
  }
  void send(double ticks) { psi_make_packet(stream, time_from_ticks(ticks), packet, mux); }

  tsm_mux mux{output_writer({}, {}, ignore, nullptr)};
  tsm_stream stream;
  psi_state* state;
  tsm_packet packet{};
};

TEST_F(PsiStream, ASectionStartsBehindAZeroPointerAndStuffingFollows) {
  add_section(20, 0xAA);
  send(0);
  EXPECT_EQ(packet.bytes[1], 0x40);
  EXPECT_EQ(packet.bytes[2], 0x20);
  EXPECT_EQ(packet.bytes[3] & 0xF0, 0x10);
  EXPECT_EQ(packet.bytes[4], 0);
  EXPECT_EQ(packet.bytes[5], 0xAA);
  EXPECT_EQ(packet.bytes[24], 0xAA);
  EXPECT_EQ(packet.bytes[25], 0xFF);
  EXPECT_EQ(packet.bytes[187], 0xFF);
  EXPECT_TRUE(stream.has(kSourceEnded));
  EXPECT_EQ(stream.nextTime, time_from_ticks(2.7e6));
}

TEST_F(PsiStream, SectionsDueAtOneTimeShareAPacketWhereTheyFit) {
  add_section(20, 0xAA);
  add_section(30, 0xBB);
  send(0);
  EXPECT_EQ(packet.bytes[24], 0xAA);
  EXPECT_EQ(packet.bytes[25], 0xBB);
  EXPECT_EQ(packet.bytes[54], 0xBB);
  EXPECT_EQ(packet.bytes[55], 0xFF);
  EXPECT_TRUE(stream.has(kSourceEnded));
}

TEST_F(PsiStream, ASectionThatDoesntFitWholeHasItsOwnPacket) {
  add_section(100, 0xAA);
  add_section(100, 0xBB);
  send(0);
  EXPECT_EQ(packet.bytes[105], 0xFF);
  EXPECT_FALSE(stream.has(kSourceEnded));
  send(0);
  EXPECT_EQ(packet.bytes[5], 0xBB);
  EXPECT_TRUE(stream.has(kSourceEnded));
}

TEST_F(PsiStream, NothingDueGivesANullPacketAndKeepsTheCounter) {
  add_section(20, 0xAA, 5000);
  const uint8_t before = stream.continuity();
  send(0);
  EXPECT_EQ(packet.pid(), kNullPid);
  EXPECT_EQ(stream.continuity(), before);
  EXPECT_EQ(stream.nextTime, time_from_ticks(5000));
}

TEST_F(PsiStream, ALongSectionContinuesPaced) {
  std::string joined;
  add_section(1000, 0xAA);  // 6 packets
  double now = 0;
  for (int i = 0; i < 6; ++i) {
    ASSERT_FALSE(stream.has(kSourceEnded));
    const uint8_t before = stream.continuity();
    send(now);
    EXPECT_EQ(stream.continuity(), (before + 1) & 15);
    EXPECT_EQ((packet.bytes[1] & 0x40) != 0, i == 0);
    joined.append(reinterpret_cast<const char*>(packet.bytes) + (i == 0 ? 5 : 4),
                  i == 0 ? 183 : 184);
    if (i < 5) {
      EXPECT_DOUBLE_EQ(difference_ticks(stream.nextTime, time_from_ticks(now)), 40608);
    }
    now += 40608;
  }
  EXPECT_EQ(joined.find('\xFF'), 1000u);
  EXPECT_TRUE(stream.has(kSourceEnded));
}

TEST_F(PsiStream, MoreThanEightPacketsAreSentAt80Kilobits) {
  add_section(1000, 0xAA);
  add_section(1000, 0xBB);
  send(0);
  EXPECT_TRUE(stream.has(kPacedPsi));
  EXPECT_DOUBLE_EQ(ticks_of(stream.nextTime), 507600);
}

TEST_F(PsiStream, AOneShotSectionIsDroppedOnceSent) {
  add_section(20, 0xAA);
  state->sections[0].oneShot = true;
  add_section(20, 0xBB, 1000);
  send(0);
  ASSERT_EQ(state->sections.size(), 1u);
  EXPECT_EQ(state->sections[0].bytes[0], 0xBB);
  EXPECT_EQ(stream.nextTime, time_from_ticks(1000));
}

TEST_F(PsiStream, ItCarriesThePcrIfNoOtherDoes) {
  add_section(20, 0xAA);
  stream.set(kCarriesPcr);
  stream.set(kDiscontinuityWithPcr);
  stream.pcrStep = time_from_ticks(27000.0 * 90);
  send(0);
  EXPECT_TRUE(stream.has(kPacketHasPcr));
  EXPECT_EQ(packet.bytes[3] & 0x30, 0x30);
  EXPECT_EQ(packet.bytes[4], 7);
  EXPECT_EQ(packet.bytes[5], 0x90);
  EXPECT_EQ(packet.bytes[12], 0);
  EXPECT_EQ(packet.bytes[13], 0xAA);
  EXPECT_EQ(packet.events[0], kEventPcr | kEventPsi | kEventAccessPoint);
}

TEST_F(PsiStream, RateIsThatOfTheSections) {
  add_section(500, 0);
  add_section(250, 0);
  EXPECT_DOUBLE_EQ(psi_rate(*state), 750 * 8 * 10.0);
}

TEST(PcrSchedule, ALateStreamSkipsPcrs) {
  tsm_stream stream;
  stream.set(kCarriesPcr);
  stream.pcrStep = time_from_ticks(100);
  EXPECT_TRUE(pcr_is_due(stream, time_from_ticks(0)));
  schedule_next_pcr(stream, {}, time_from_ticks(350));
  EXPECT_EQ(stream.pcrNext, time_from_ticks(300));
  EXPECT_FALSE(pcr_is_due(stream, time_from_ticks(299)));
}

TEST(PcrSchedule, TheFieldHasBaseReservedOnesAndExtension) {
  uint8_t field[6];
  write_pcr(field, {3, kLowRange - 1, kFractionRange - 1});
  const uint8_t last[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x2B};
  EXPECT_EQ(std::string(field, field + 6), std::string(last, last + 6));
  write_pcr(field, {0, 1, 0});
  const uint8_t first[6] = {0, 0, 0, 0, 0xFE, 0};
  EXPECT_EQ(std::string(field, field + 6), std::string(first, first + 6));
}

}  // namespace
}  // namespace zel::mux
