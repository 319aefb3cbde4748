#include "zel/mux/engine/pcm/aes3_packing.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <vector>

#include "tests/support/seed.h"

namespace zel::mux {
namespace {

std::vector<uint8_t> packed(aes3_packer& packer, const aes3_layout& layout,
                            const std::vector<int32_t>& samples) {
  const size_t frames = samples.size() / static_cast<size_t>(layout.channels);
  std::vector<uint8_t> out(aes3_payload_size(layout, frames));
  EXPECT_EQ(packer.pack(samples, out), out.size());
  return out;
}

TEST(Aes3Packing, SixteenBitsByHand) {
  const aes3_layout layout{2, 16, 0, false};
  aes3_packer packer(layout);
  // 0x0001 reversed is 8000, then V U C F = 0001; 0x8000 reversed is 0001, then 0000.
  EXPECT_EQ(packed(packer, layout, {0x0001, -0x8000}),
            (std::vector<uint8_t>{0, 5, 0, 0, 0x80, 0x00, 0x10, 0x00, 0x10}));
}

TEST(Aes3Packing, TwentyBitsByHand) {
  const aes3_layout layout{2, 20, 0, true};
  aes3_packer packer(layout);
  EXPECT_EQ(packed(packer, layout, {0x12345, 0x00001}),
            (std::vector<uint8_t>{0, 6, 0, 0x10, 0xA2, 0xC4, 0x89, 0x80, 0x00, 0x08}));
}

TEST(Aes3Packing, TwentyFourBitsByHand) {
  const aes3_layout layout{4, 24, 5, false};
  aes3_packer packer(layout);
  EXPECT_EQ(packed(packer, layout, {1, 2, 3, -1}),
            (std::vector<uint8_t>{0, 14, 0x41, 0x60, 0x80, 0x00, 0x00, 0x14, 0x00, 0x00, 0x00, 0xC0,
                                  0x00, 0x00, 0x1F, 0xFF, 0xFF, 0xF0}));
}

TEST(Aes3Packing, StatusBitsRunThroughTheBlockOf192Frames) {
  const aes3_layout layout{2, 16, 0, false};
  aes3_packer packer(layout);
  aes3_channel_status status{};
  status[0] = 0x81;
  status[23] = 0xD9;
  packer.set_channel_status(0, status);
  const std::vector<uint8_t> out = packed(packer, layout, std::vector<int32_t>(2 * 193));
  for (size_t frame = 0; frame < 193; ++frame) {
    const size_t within = frame % 192;
    const unsigned expected = (status[within / 8] >> within % 8 & 1u) << 1 | (within == 0 ? 1u : 0);
    EXPECT_EQ(out[4 + frame * 5 + 2] >> 4, expected) << frame;
    EXPECT_EQ(out[4 + frame * 5 + 4], 0) << frame;  // the other channel has none
  }
}

TEST(Aes3Packing, ABlockGoesOnFromPacketToPacket) {
  const aes3_layout layout{2, 16, 0, false};
  aes3_packer packer(layout);
  packed(packer, layout, std::vector<int32_t>(2 * 191));
  const std::vector<uint8_t> out = packed(packer, layout, std::vector<int32_t>(2 * 2));
  EXPECT_EQ(out[4 + 2], 0);
  EXPECT_EQ(out[4 + 5 + 2], 0x10);
}

// The standard's unpacking rule, byte by byte, is all that this shares with the packer.
uint32_t bit_reversed(uint8_t byte) {
  uint32_t value = 0;
  for (int i = 0; i < 8; ++i) value |= static_cast<uint32_t>(byte >> i & 1) << (7 - i);
  return value;
}

TEST(Aes3Packing, UnpackedByTheStandardsRuleGivesTheSamples) {
  std::mt19937 random(static_cast<uint32_t>(test::testSeed()));
  for (const int wordSize : {16, 20, 24}) {
    for (const int channels : {2, 4, 6, 8}) {
      const aes3_layout layout{channels, wordSize, 0, false};
      aes3_packer packer(layout);
      std::vector<int32_t> samples(static_cast<size_t>(channels) * 400);
      const uint32_t mask = (1u << wordSize) - 1;
      for (int32_t& sample : samples) sample = static_cast<int32_t>(random() & mask);
      const std::vector<uint8_t> out = packed(packer, layout, samples);
      const size_t pairSize = aes3_pair_size(wordSize);
      for (size_t pair = 0; pair < samples.size() / 2; ++pair) {
        const uint8_t* const b = out.data() + 4 + pair * pairSize;
        const auto r = [&](int i, int keep = 0xFF) {
          return bit_reversed(static_cast<uint8_t>(b[i] & keep));
        };
        uint32_t left = r(1) << 8 | r(0);
        uint32_t right = r(4, 0xF0) << 12 | r(3) << 4 | r(2) >> 4;
        if (wordSize == 20) {
          left |= r(2, 0xF0) << 16;
          right = r(5, 0xF0) << 16 | r(4) << 8 | r(3);
        } else if (wordSize == 24) {
          left |= r(2) << 16;
          right = r(6, 0xF0) << 20 | r(5) << 12 | r(4) << 4 | r(3, 0x0F) >> 4;
        }
        ASSERT_EQ(left, static_cast<uint32_t>(samples[2 * pair]));
        ASSERT_EQ(right & mask, static_cast<uint32_t>(samples[2 * pair + 1]));
      }
    }
  }
}

TEST(Aes3FramesOfPicture, KeepsTheFiveFrameSequence) {
  for (int64_t i = 0; i < 50; ++i) {
    EXPECT_EQ(aes3_frames_of_picture(i, 900900), i % 5 % 2 == 0 ? 1602 : 1601) << i;
    EXPECT_EQ(aes3_frames_of_picture(i, 1080000), 1920);
  }
}

TEST(Aes3FramesOfPicture, NeverDrifts) {
  int64_t frames = 0;
  for (int64_t i = 0; i < 100000; ++i) frames += aes3_frames_of_picture(i, 450450);
  EXPECT_EQ(frames, 100000ll * 450450 * 48000 / 27000000);
}

TEST(Aes3Packing, SizeFieldLimitsTheFrames) {
  EXPECT_EQ(aes3_most_frames({8, 24, 0, false}), 2340u);
  EXPECT_EQ(aes3_most_frames({2, 16, 0, false}), 13107u);
}

}  // namespace
}  // namespace zel::mux
