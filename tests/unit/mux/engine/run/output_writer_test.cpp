#include "zel/mux/engine/run/output_writer.h"

#include <gtest/gtest.h>

#include "zel/mux/engine/run/burst_nulls.h"
#include "zel/mux/engine/run/null_packets.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_stats;

struct Sink {
  std::vector<uint8_t> bytes;
  std::vector<int32_t> kinds;
  int failAt = 0;

  static int write(void* user, const uint8_t* data, int32_t size, int32_t kind) {
    Sink& sink = *static_cast<Sink*>(user);
    sink.kinds.push_back(kind);
    if (static_cast<int>(sink.kinds.size()) == sink.failAt) return 1;
    sink.bytes.insert(sink.bytes.end(), data, data + size);
    return 0;
  }
};

tsm_packet packet_of(int value) {
  tsm_packet packet{};
  packet.bytes[0] = 0x47;
  packet.bytes[3] = 0x10;
  packet.bytes[4] = static_cast<uint8_t>(value);
  packet.events[0] = 0xE0;
  packet.events[1] = 0xE1;
  return packet;
}

TEST(OutputWriter, WritesEachPacketAtOnceWithItsKind) {
  Sink sink;
  tsm_stats stats;
  output_writer writer({}, {}, Sink::write, &sink);
  null_packets nulls;
  tsm_packet stuffing{};
  nulls.make(stuffing);
  EXPECT_TRUE(writer.put(packet_of(1), stats));
  EXPECT_TRUE(writer.put(stuffing, stats));
  EXPECT_EQ(sink.kinds, (std::vector<int32_t>{kPacketKind, kNullPacketKind}));
  EXPECT_EQ(sink.bytes.size(), 376u);
  EXPECT_EQ(stats.packetsWritten, 2);
  EXPECT_EQ(stats.packetsCounted, 2);
  EXPECT_EQ(stats.nullPackets, 1);
  EXPECT_EQ(stats.bytesWritten, 376);
}

TEST(OutputWriter, GathersPacketsAndFlushesTheRest) {
  Sink sink;
  tsm_stats stats;
  output_writer writer({.bufferedPackets = 3}, {}, Sink::write, &sink);
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(writer.put(packet_of(i), stats));
  EXPECT_EQ(sink.bytes.size(), 3u * 188);
  EXPECT_TRUE(writer.flush());
  EXPECT_TRUE(writer.flush());
  ASSERT_EQ(sink.bytes.size(), 5u * 188);
  EXPECT_EQ(sink.kinds.size(), 2u);
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(sink.bytes[i * 188 + 4], i);
}

// Packets that are made in their places come out as those that were copied do.
TEST(OutputWriter, TakesPacketsFromTheirPlaces) {
  const auto layouts = {output_writer::layout{.bufferedPackets = 3}, output_writer::layout{},
                        output_writer::layout{.packetSize = 192, .bufferedPackets = 3},
                        output_writer::layout{.packetSize = 190, .events = true}};
  for (const output_writer::layout& form : layouts) {
    Sink copied, placed;
    tsm_stats copiedStats, placedStats;
    output_writer copying(form, {}, Sink::write, &copied);
    output_writer placing(form, {}, Sink::write, &placed);
    tsm_packet own{};
    for (int i = 0; i < 7; ++i) {
      ASSERT_TRUE(copying.put(packet_of(i), copiedStats));
      tsm_packet& place = placing.place_of_next(own);
      EXPECT_EQ(&place == &own, form.packetSize != 188);
      place = packet_of(i);
      ASSERT_TRUE(placing.put(place, placedStats));
    }
    EXPECT_TRUE(copying.flush() && placing.flush());
    EXPECT_EQ(placed.bytes.size(), 7u * static_cast<size_t>(form.packetSize));
    EXPECT_EQ(placed.bytes, copied.bytes);
    EXPECT_EQ(placed.kinds, copied.kinds);
    EXPECT_EQ(placedStats.bytesWritten, copiedStats.bytesWritten);
  }
}

// A stamp has to stand beside the packet.
TEST(OutputWriter, StampedPacketsHaveNoPlace) {
  Sink sink;
  output_writer writer({}, packet_time_stamps(4, 0, false, true), Sink::write, &sink);
  tsm_packet own{};
  EXPECT_EQ(&writer.place_of_next(own), &own);
}

TEST(OutputWriter, TellsWhichWriteFailed) {
  Sink sink;
  sink.failAt = 3;
  tsm_stats stats;
  output_writer writer({}, {}, Sink::write, &sink);
  EXPECT_TRUE(writer.put(packet_of(0), stats));
  EXPECT_TRUE(writer.put(packet_of(1), stats));
  EXPECT_FALSE(writer.put(packet_of(2), stats));
}

TEST(OutputWriter, EventBytesStandBehindThePacket) {
  Sink sink;
  tsm_stats stats;
  output_writer writer({.packetSize = 192, .events = true}, {}, Sink::write, &sink);
  ASSERT_TRUE(writer.put(packet_of(7), stats));
  ASSERT_EQ(sink.bytes.size(), 192u);
  EXPECT_EQ(sink.bytes[188], 0xE0);
  EXPECT_EQ(sink.bytes[189], 0xE1);
  EXPECT_EQ(sink.bytes[190], 0);
}

TEST(OutputWriter, AStampMayPrecedeThePacketHighByteFirst) {
  Sink sink;
  tsm_stats stats;
  packet_time_stamps stamps(4, 0, false, true);
  stamps.set_rate(40608000.0);  // 1,000 ticks a packet
  output_writer writer({.packetSize = 192}, stamps, Sink::write, &sink);
  ASSERT_TRUE(writer.put(packet_of(7), stats));
  ASSERT_TRUE(writer.put(packet_of(8), stats));
  EXPECT_EQ(sink.bytes[0], 0);
  EXPECT_EQ(sink.bytes[4], 0x47);
  EXPECT_EQ(sink.bytes[192 + 2], 1000 >> 8);
  EXPECT_EQ(sink.bytes[192 + 3], 1000 & 255);
  EXPECT_EQ(sink.bytes[192 + 8], 8);
}

TEST(OutputWriter, DroppedNullsAreCountedAndStamped) {
  Sink sink;
  tsm_stats stats;
  packet_time_stamps stamps(4, 0, true, false);
  stamps.set_rate(40608000.0);
  output_writer writer({.packetSize = 192, .dropNulls = true}, stamps, Sink::write, &sink);
  tsm_packet stuffing{};
  stuffing.make_null();
  ASSERT_TRUE(writer.put(stuffing, stats));
  ASSERT_TRUE(writer.put(packet_of(1), stats));
  ASSERT_EQ(sink.bytes.size(), 192u);
  EXPECT_EQ(sink.bytes[188], 1000 & 255);
  EXPECT_EQ(sink.bytes[189], 1000 >> 8);
  EXPECT_EQ(stats.packetsWritten, 2);
}

TEST(PacketTimeStamps, FractionsDontDrift) {
  const double rate = 38785317.6;
  packet_time_stamps stamps(8, 0, false, false);
  stamps.set_rate(rate);
  const int packets = 1000000;
  for (int i = 0; i < packets; ++i) stamps.advance();
  uint8_t bytes[8];
  stamps.write(bytes);
  uint64_t value = 0;
  for (const uint8_t byte : bytes) value = value << 8 | byte;
  // One part in 2^24 of a tick is lost a packet at most.
  EXPECT_NEAR(static_cast<double>(value), 4.0608e10 / rate * packets, 1.1);
}

TEST(PacketTimeStamps, AreMaskedToTheirBits) {
  packet_time_stamps stamps(2, 9, false, false);
  stamps.set_rate(40608000.0);
  stamps.advance();
  uint8_t bytes[2];
  stamps.write(bytes);
  EXPECT_EQ(bytes[0] << 8 | bytes[1], 1000 & 511);
}

TEST(BurstNulls, FollowEverySpacing) {
  burst_nulls bursts(2, 3);
  std::string seen;
  for (int i = 0; i < 12; ++i) {
    seen += bursts.wants_null() ? 'n' : '.';
    bursts.packet_sent();
  }
  EXPECT_EQ(seen, "...nn...nn..");
}

TEST(BurstNulls, NeverComeUnlessArmed) {
  burst_nulls bursts;
  for (int i = 0; i < 100; ++i) {
    EXPECT_FALSE(bursts.wants_null());
    bursts.packet_sent();
  }
}

}  // namespace
}  // namespace zel::mux
