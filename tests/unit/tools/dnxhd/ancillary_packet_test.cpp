#include "tools/zel/dnxhd/ancillary_packet.h"

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

TEST(AncillaryPacket, BytesHaveLineIdentifiersCountAndSum) {
  std::vector<uint8_t> bytes;
  appendPacket({570, 0x61, 0x02, {0x0A, 0xF0}}, bytes);
  // 570 = 4 * 128 + 58; 0x61 + 2 + 2 + 0x0A + 0xF0 = 0x15F
  EXPECT_EQ(bytes, (std::vector<uint8_t>{255, 0x80 | 58, 0x84, 0x61, 2, 2, 0x0A, 0xF0, 0x5F}));
}

TEST(AncillaryPacket, WhatIsWrittenIsRead) {
  const std::vector<AncillaryPacket> packets = {
      {1, 0, 0, {}}, {2047, 255, 255, {255, 0, 1}}, {128, 0x41, 5, std::vector<uint8_t>(200, 9)}};
  std::vector<uint8_t> bytes;
  for (const auto& packet : packets) appendPacket(packet, bytes);
  bytes.resize(bytes.size() + 20);
  EXPECT_EQ(readPackets(bytes), packets);
}

TEST(AncillaryPacket, ReadingEndsAtWhatIsNoPacketOrIsCut) {
  std::vector<uint8_t> bytes;
  appendPacket({9, 1, 2, {3, 4}}, bytes);
  EXPECT_EQ(readPackets(std::span(bytes).first(bytes.size() - 1)).size(), 0u);
  EXPECT_EQ(readPackets({}).size(), 0u);
  EXPECT_EQ(readPackets(std::vector<uint8_t>(300)).size(), 0u);
  EXPECT_EQ(readPackets(std::vector<uint8_t>(6, 255)).size(), 0u);
}

TEST(AncillaryPacket, TextGoesBothWays) {
  const auto packet = parsePacket("9:0x61:1:0aF0");
  ASSERT_TRUE(packet.has_value());
  EXPECT_EQ(*packet, (AncillaryPacket{9, 0x61, 1, {0x0A, 0xF0}}));
  EXPECT_EQ(packetText(*packet), "9:0x61:0x01:0af0");
  EXPECT_EQ(parsePacket(packetText(*packet)), packet);
  EXPECT_EQ(parsePacket("2047:255:255:")->data.size(), 0u);
  EXPECT_EQ(parsePacket("1:0:0:" + std::string(2 * 248, '0'))->data.size(), 248u);
}

TEST(AncillaryPacket, OtherTextIsNone) {
  for (const std::string text :
       {"", "9", "9:1", "9:1:1", "0:1:1:00", "2048:1:1:00", "9:256:1:00", "9:1:256:00", "9:1:1:0",
        "9:1:1:0g", "9:1:1:00:", "-9:1:1:00", "9: 1:1:00"})
    EXPECT_FALSE(parsePacket(text).has_value()) << text;
  EXPECT_FALSE(parsePacket("1:0:0:" + std::string(2 * 249, '0')).has_value());
}

}  // namespace
}  // namespace zel::tool
