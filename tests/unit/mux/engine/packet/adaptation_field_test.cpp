#include "zel/mux/engine/packet/adaptation_field.h"

#include <gmock/gmock.h>

#include <array>
#include <random>
#include <vector>

#include "tests/support/adaptation_parser.h"
#include "tests/support/seed.h"
#include "zel/mux/engine/packet/clock_insertion.h"
#include "zel/mux/engine/packet/packet_header.h"

namespace zel::mux {
namespace {

using test::ParsedPacket;
using test::parsePacket;
using ::testing::ElementsAre;

tsm_packet started(int pid = 0x31, unsigned continuity = 5) {
  tsm_packet packet{};
  put_ts_header(packet.bytes, pid, false, false, false, true, continuity);
  return packet;
}
std::optional<ParsedPacket> parsed(const tsm_packet& packet) {
  return parsePacket(std::span<const uint8_t, 188>(packet.bytes, 188));
}
std::vector<uint8_t> head(const tsm_packet& packet, size_t count) {
  return {packet.bytes, packet.bytes + count};
}

TEST(PacketHeader, BytesStandAsIn13818) {
  std::array<uint8_t, 4> bytes;
  put_ts_header(bytes.data(), 0x1ABC, true, true, true, true, 9);
  EXPECT_THAT(bytes, ElementsAre(0x47, 0x7A, 0xBC, 0x39));
  put_ts_header(bytes.data(), 0x1FFF, false, false, false, true, 0);
  EXPECT_THAT(bytes, ElementsAre(0x47, 0x1F, 0xFF, 0x10));
}

TEST(PacketHeader, CounterStepsBeforeEachPacketAndGoesBack) {
  tsm_stream stream;
  stream.set_pid(0x123);
  stream.set_continuity(14);
  tsm_packet packet;
  begin_packet(stream, packet, true);
  EXPECT_EQ(packet.bytes[3], 0x1F);
  put_back_continuity(stream);
  begin_packet(stream, packet, false);
  EXPECT_EQ(packet.bytes[3], 0x1F);
  begin_packet(stream, packet, false);
  EXPECT_EQ(packet.bytes[3], 0x10);
  EXPECT_EQ(stream.pid(), 0x123);
  put_back_continuity(stream);
  EXPECT_EQ(stream.continuity(), 15);
}

TEST(AdaptationField, InitialDiscontinuityCreatesTwoBytes) {
  tsm_packet packet = started();
  EXPECT_EQ(add_adaptation_flags(packet, kDiscontinuityFlag), 2);
  EXPECT_EQ(head(packet, 6), (std::vector<uint8_t>{0x47, 0x00, 0x31, 0x35, 0x01, 0x80}));
  EXPECT_EQ(add_adaptation_flags(packet, kRandomAccessFlag), 0);
  EXPECT_EQ(packet.bytes[5], 0xC0);
}

TEST(AdaptationField, PcrAloneTakesEightBytes) {
  tsm_packet packet = started();
  EXPECT_EQ(add_pcr(packet), 8);
  // Base 2^32 + 1, extension 299.
  write_pcr(packet.bytes + kPcrPlace, {2, 1, (299u << 20) + 200});
  EXPECT_EQ(head(packet, 12), (std::vector<uint8_t>{0x47, 0x00, 0x31, 0x35, 0x07, 0x10, 0x80, 0x00,
                                                    0x00, 0x00, 0xFF, 0x2B}));
  EXPECT_EQ(add_pcr(packet), 0);
}

TEST(AdaptationField, PcrMovesTheRestBackSixBytes) {
  tsm_packet packet = started();
  const std::array<uint8_t, 2> data{0xAA, 0x55};
  EXPECT_EQ(add_private_data(packet, data), 5);
  EXPECT_EQ(add_pcr(packet), 6);
  EXPECT_EQ(add_splice_countdown(packet, -3), 1);
  EXPECT_EQ(head(packet, 16), (std::vector<uint8_t>{0x47, 0x00, 0x31, 0x35, 11, 0x16, 0, 0, 0, 0, 0,
                                                    0, 0xFD, 2, 0xAA, 0x55}));
}

TEST(AdaptationField, StuffingOfOneByteIsALengthOfZero) {
  tsm_packet packet = started();
  EXPECT_EQ(add_stuffing(packet, 1), 1);
  EXPECT_EQ(packet.bytes[3], 0x35);
  EXPECT_EQ(packet.bytes[4], 0);
  EXPECT_EQ(payload_place(packet), 5);
  EXPECT_EQ(add_stuffing(packet, 3), 3);
  EXPECT_EQ(head(packet, 8), (std::vector<uint8_t>{0x47, 0, 0x31, 0x35, 3, 0, 0xFF, 0xFF}));
}

TEST(AdaptationField, AWholePacketOfStuffingHasNoPayload) {
  tsm_packet packet = started();
  add_pcr(packet);
  write_pcr(packet.bytes + kPcrPlace, {0, 77, 0});
  stuff_whole(packet);
  const auto read = parsed(packet);
  ASSERT_TRUE(read);
  EXPECT_FALSE(read->hasPayload);
  EXPECT_EQ(read->fieldLength, 183);
  EXPECT_EQ(read->pcrBase, 77);
  EXPECT_EQ(read->stuffing, 176);
}

TEST(AdaptationField, FractionsBelowATickNeverReach300) {
  tsm_packet packet = started();
  add_pcr(packet);
  write_pcr(packet.bytes + kPcrPlace, {3, 0x7FFFFFFF, kFractionRange - 1});
  stuff_whole(packet);
  const auto read = parsed(packet);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->pcrBase, (int64_t{1} << 33) - 1);
  EXPECT_EQ(read->pcrExtension, 299);
}

TEST(AdaptationField, RandomSequencesKeepAValidPacket) {
  std::mt19937 random(static_cast<unsigned>(test::testSeed()));
  for (int round = 0; round < 20000; ++round) {
    tsm_packet packet = started(static_cast<int>(random() % 8192), random() % 16);
    int used = kTsHeaderBytes;
    int flags = 0;
    std::optional<int> countdown;
    std::optional<std::vector<uint8_t>> data;
    bool pcr = false;
    for (int step = 0; step < 6; ++step) {
      switch (random() % 5) {
        case 0:
          flags |= kDiscontinuityFlag;
          used += add_adaptation_flags(packet, kDiscontinuityFlag);
          break;
        case 1:
          used += add_pcr(packet);
          if (!pcr) write_pcr(packet.bytes + kPcrPlace, {1, 1234567, (55u << 20) + 200});
          pcr = true;
          break;
        case 2:
          countdown = static_cast<int8_t>(random());
          used += add_splice_countdown(packet, static_cast<int8_t>(*countdown));
          break;
        case 3: {
          std::vector<uint8_t> bytes(random() % 40);
          for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
          used += add_private_data(packet, bytes);
          if (!data) data = bytes;
          break;
        }
        case 4:
          used += add_adaptation_flags(packet, 0);
          break;
      }
    }
    used += add_stuffing(packet, static_cast<int>(random() % static_cast<unsigned>(189 - used)));
    ASSERT_EQ(payload_place(packet), used);
    const auto read = parsed(packet);
    ASSERT_TRUE(read) << "round " << round;
    EXPECT_EQ(static_cast<int>(read->payloadAt), used);
    EXPECT_EQ(read->pcrBase.has_value(), pcr);
    if (pcr) {
      EXPECT_EQ(read->pcrBase, (int64_t{1} << 31) + 1234567);
      EXPECT_EQ(read->pcrExtension, 55);
    }
    EXPECT_EQ(read->countdown, countdown);
    EXPECT_EQ(read->privateData, data);
    EXPECT_EQ(read->flags & kDiscontinuityFlag, flags);
  }
}

TEST(PcrSchedule, ALateStreamSkipsPcrs) {
  tsm_stream stream;
  stream.pcrStep = time_from_ticks(1000);
  stream.pcrNext = time_from_ticks(5000);
  EXPECT_FALSE(pcr_is_due(stream, time_from_ticks(9000)));
  stream.set(kCarriesPcr);
  EXPECT_FALSE(pcr_is_due(stream, time_from_ticks(4999)));
  EXPECT_TRUE(pcr_is_due(stream, time_from_ticks(5000)));
  const tsm_time now = time_from_ticks(9500);
  tsm_packet packet = started();
  EXPECT_EQ(insert_pcr(stream, packet, now, now), 8);
  EXPECT_TRUE(stream.has(kPacketHasPcr));
  EXPECT_NEAR(ticks_of(stream.pcrNext), 9000, 1);
  EXPECT_TRUE(pcr_is_due(stream, now));
}

TEST(PcrSchedule, AForcedPcrSetsTheScheduleAnewWithItsDiscontinuity) {
  tsm_stream stream;
  stream.pcrStep = time_from_ticks(1000);
  stream.pcrNext = time_from_ticks(50000);
  stream.set(kCarriesPcr | kForcePcr | kDiscontinuityWithPcr);
  const tsm_time now = time_from_ticks(300);
  EXPECT_TRUE(pcr_is_due(stream, now));
  tsm_packet packet = started();
  EXPECT_EQ(insert_pcr(stream, packet, now, now), 8);
  EXPECT_EQ(packet.bytes[5], 0x90);
  EXPECT_EQ(packet.events[0], kEventPcr | kEventAccessPoint);
  EXPECT_NEAR(ticks_of(stream.pcrNext), 1300, 1);
  EXPECT_FALSE(stream.has(kForcePcr) || stream.has(kDiscontinuityWithPcr));
}

}  // namespace
}  // namespace zel::mux
