#include "zel/mux/engine/run/null_packets.h"

#include <gtest/gtest.h>

#include <string>

namespace zel::mux {
namespace {

TEST(NullPackets, AreStuffingOnTheNullPid) {
  null_packets nulls(true);
  tsm_packet packet{};
  packet.events[0] = 99;
  for (int i = 0; i < 20; ++i) {
    nulls.make(packet);
    EXPECT_EQ(packet.bytes[0], 0x47);
    EXPECT_EQ(packet.bytes[1], 0x1F);
    EXPECT_EQ(packet.bytes[2], 0xFF);
    EXPECT_EQ(packet.bytes[3], 0x10);
    for (size_t place = 4; place < kPacketBytes; ++place) ASSERT_EQ(packet.bytes[place], 0);
    EXPECT_EQ(packet.events[0], 0);
  }
}

TEST(NullPackets, LastBytesSpellTheSignatureRoundAndRound) {
  std::string expected;
  for (int text = 0; kSignature[text] != nullptr; ++text) expected += kSignature[text];
  null_packets nulls;
  tsm_packet packet{};
  for (int round = 0; round < 2; ++round) {
    std::string spelt;
    for (size_t i = 0; i < expected.size(); ++i) {
      int byte = 0;
      for (int bit = 0; bit < 8; ++bit) {
        nulls.make(packet);
        ASSERT_LE(packet.bytes[kPacketBytes - 1], 1);
        byte = byte << 1 | packet.bytes[kPacketBytes - 1];
      }
      spelt += static_cast<char>(byte);
    }
    EXPECT_EQ(spelt, expected);
  }
}

}  // namespace
}  // namespace zel::mux
