// AAC in its two framings: ADTS, and LATM in LOAS.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "zel/base/bit_writer.h"
#include "zel/syntax/adts.h"
#include "zel/syntax/latm.h"

namespace zel::syntax {
namespace {

constexpr uint32_t kRates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                 16000, 12000, 11025, 8000,  7350,  0,     0,     0};

using Fields = std::initializer_list<std::array<uint32_t, 2>>;

std::vector<uint8_t> bits(Fields fields) {
  std::vector<uint8_t> bytes(64);
  base::BitWriter writer(bytes);
  for (const auto& [value, width] : fields) writer.write(value, static_cast<int>(width));
  const size_t size = writer.finish().size();
  bytes.resize(size);
  return bytes;
}

std::vector<uint8_t> adts(uint32_t rate, uint32_t frameSize, uint32_t noCrc = 1) {
  return bits({{0xFFF, 12},
               {0, 1},
               {0, 2},
               {noCrc, 1},
               {1, 2},
               {rate, 4},
               {0, 1},
               {6, 3},
               {0, 4},
               {frameSize, 13},
               {0x7FF, 11},
               {2, 2}});
}

TEST(AdtsHeader, EverySampleRate) {
  for (uint32_t index = 0; index < 16; ++index) {
    AdtsHeader header;
    EXPECT_EQ(parseAdtsHeader(adts(index, 371), header), kRates[index] != 0) << index;
    EXPECT_EQ(header.sampleRate, kRates[index]);
  }
}

TEST(AdtsHeader, ReadsEveryField) {
  AdtsHeader header;
  ASSERT_TRUE(parseAdtsHeader(adts(3, 8191), header));
  EXPECT_EQ(header.objectType, 2);
  EXPECT_EQ(header.channelConfiguration, 6);
  EXPECT_EQ(header.frameSize, 8191);
  EXPECT_EQ(header.bufferFullness, 0x7FF);
  EXPECT_EQ(header.rawBlocks, 3);
  EXPECT_EQ(header.samples, 3072u);
  EXPECT_FALSE(header.mpeg2);
}

TEST(AdtsHeader, AFrameHoldsItsHeader) {
  AdtsHeader header;
  EXPECT_TRUE(parseAdtsHeader(adts(3, 7), header));
  EXPECT_FALSE(parseAdtsHeader(adts(3, 6), header));
  EXPECT_TRUE(parseAdtsHeader(adts(3, 9, 0), header));
  EXPECT_FALSE(parseAdtsHeader(adts(3, 8, 0), header));
  const auto good = adts(3, 100);
  EXPECT_FALSE(parseAdtsHeader(std::span(good).first(6), header));
}

TEST(AacChannels, EveryConfiguration) {
  constexpr uint8_t kChannels[16] = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 24, 8, 0};
  for (uint32_t i = 0; i < 16; ++i) EXPECT_EQ(aacChannels(i), kChannels[i]) << i;
}

std::vector<uint8_t> loas(Fields fields) {
  std::vector<uint8_t> frame = bits(fields);
  const auto size = static_cast<uint32_t>(frame.size());
  const std::vector<uint8_t> header = bits({{0x2B7, 11}, {size, 13}});
  frame.insert(frame.begin(), header.begin(), header.end());
  return frame;
}

TEST(Loas, SizeCountsItsHeader) {
  const std::vector<uint8_t> frame = loas({{0, 32}, {0, 8}});
  EXPECT_EQ(frame[0], 0x56);
  EXPECT_EQ(loasFrameSize(frame), 8u);
  EXPECT_EQ(loasFrameSize(std::span(frame).first(2)), 0u);
  EXPECT_EQ(loasFrameSize(std::array<uint8_t, 3>{0x56, 0xC0, 0}), 0u);
}

TEST(Latm, PlainConfiguration) {
  LatmConfig config;
  const auto frame = loas(
      {{0, 1}, {0, 1}, {1, 1}, {0, 6}, {0, 4}, {0, 3}, {2, 5}, {3, 4}, {2, 4}, {1, 1}, {0, 32}});
  ASSERT_EQ(parseLatmFrame(frame, config), LatmResult::kConfig);
  EXPECT_EQ(config.audioObjectType, 2);
  EXPECT_EQ(config.sampleRate, 48000u);
  EXPECT_EQ(config.channels, 2);
  EXPECT_EQ(config.samplesPerFrame, 960u);
}

TEST(Latm, AProgramConfigElementCountsTheChannels) {
  LatmConfig config;
  // Front: a single one and a pair; back: a pair; one LFE: 5.1.
  const auto frame = loas({{0, 1}, {0, 1}, {1, 1}, {0, 6}, {0, 4}, {0, 3}, {2, 5}, {3, 4},
                           {0, 4}, {0, 1}, {0, 1}, {0, 1},                  // GASpecificConfig
                           {0, 4}, {1, 2}, {3, 4},                          // tag, type, rate
                           {2, 4}, {0, 4}, {1, 4}, {1, 2}, {0, 3}, {0, 4},  // elements
                           {1, 1}, {0, 4}, {0, 1}, {1, 1}, {0, 3},          // mixdowns
                           {0, 1}, {0, 4}, {1, 1}, {1, 4}, {1, 1}, {2, 4}, {0, 4}, {0, 32}});
  ASSERT_EQ(parseLatmFrame(frame, config), LatmResult::kConfig);
  EXPECT_EQ(config.channelConfiguration, 0);
  EXPECT_EQ(config.channels, 6);
  EXPECT_EQ(config.samplesPerFrame, 1024u);
}

TEST(Latm, SbrSignalsBothRates) {
  LatmConfig config;
  const auto frame = loas({{0, 1},
                           {0, 1},
                           {1, 1},
                           {0, 6},
                           {0, 4},
                           {0, 3},
                           {5, 5},
                           {6, 4},
                           {6, 4},
                           {3, 4},
                           {2, 5},
                           {0, 1},
                           {0, 32}});
  ASSERT_EQ(parseLatmFrame(frame, config), LatmResult::kConfig);
  EXPECT_TRUE(config.sbr);
  EXPECT_FALSE(config.ps);
  EXPECT_EQ(config.sampleRate, 24000u);
  EXPECT_EQ(config.extensionSampleRate, 48000u);
  EXPECT_EQ(config.channels, 6);
  EXPECT_EQ(config.samplesPerFrame, 1024u);
}

TEST(Latm, VersionOneEscapedTypeAndExplicitRate) {
  LatmConfig config;
  const auto frame = loas({{0, 1},
                           {1, 1},
                           {0, 1},
                           {0, 2},
                           {0xFF, 8},
                           {1, 1},
                           {1, 6},
                           {0, 4},
                           {0, 3},
                           {1, 2},
                           {0x0123, 16},
                           {31, 5},
                           {7, 6},
                           {15, 4},
                           {44100, 24},
                           {1, 4},
                           {0, 1},
                           {0, 32}});
  ASSERT_EQ(parseLatmFrame(frame, config), LatmResult::kConfig);
  EXPECT_EQ(config.audioObjectType, 39);
  EXPECT_EQ(config.sampleRate, 44100u);
  EXPECT_EQ(config.samplesPerFrame, 512u);
  EXPECT_EQ(config.subFrames, 2);
}

TEST(Latm, SameConfigurationKeepsTheLast) {
  LatmConfig config;
  config.sampleRate = 123;
  EXPECT_EQ(parseLatmFrame(loas({{1, 1}, {0, 31}}), config), LatmResult::kSameConfig);
  EXPECT_EQ(config.sampleRate, 123u);
}

TEST(Latm, RefusesReservedAndBrokenOff) {
  LatmConfig config;
  config.sampleRate = 123;
  EXPECT_EQ(parseLatmFrame(loas({{0, 1}, {1, 1}, {1, 1}, {0, 29}}), config), LatmResult::kError);
  EXPECT_EQ(parseLatmFrame(loas({{0, 8}}), config), LatmResult::kError);
  auto frame = loas({{1, 1}, {0, 31}});
  frame.pop_back();
  EXPECT_EQ(parseLatmFrame(frame, config), LatmResult::kError);
  EXPECT_EQ(config.sampleRate, 123u);
}

}  // namespace
}  // namespace zel::syntax
