#include "zel/syntax/mpeg_audio.h"

#include <gtest/gtest.h>

#include <array>

namespace zel::syntax {
namespace {

// ISO/IEC 11172-3 and 13818-3, 2.4.2.3: kbit/s by bitrate_index; layers I to III of MPEG-1, then of
// the low sampling frequencies.
constexpr int kKilobits[15][6] = {{0, 0, 0, 0, 0, 0},
                                  {32, 32, 32, 32, 8, 8},
                                  {64, 48, 40, 48, 16, 16},
                                  {96, 56, 48, 56, 24, 24},
                                  {128, 64, 56, 64, 32, 32},
                                  {160, 80, 64, 80, 40, 40},
                                  {192, 96, 80, 96, 48, 48},
                                  {224, 112, 96, 112, 56, 56},
                                  {256, 128, 112, 128, 64, 64},
                                  {288, 160, 128, 144, 80, 80},
                                  {320, 192, 160, 160, 96, 96},
                                  {352, 224, 192, 176, 112, 112},
                                  {384, 256, 224, 192, 128, 128},
                                  {416, 320, 256, 224, 144, 144},
                                  {448, 384, 320, 256, 160, 160}};
constexpr uint32_t kRates[3] = {44100, 48000, 32000};

// Version code 3 is MPEG-1, 2 is MPEG-2, 0 is MPEG-2.5.
std::array<uint8_t, 4> frameHeader(int version, int layer, int bitRate, int rate, bool padding) {
  return {0xFF, static_cast<uint8_t>(0xE1 | version << 3 | (4 - layer) << 1),
          static_cast<uint8_t>(bitRate << 4 | rate << 2 | (padding ? 2 : 0)), 0x44};
}

// The definition, in slots: a frame of `samples` lasts samples / rate seconds.
uint32_t frameBytes(int layer, uint32_t samples, uint32_t bitRate, uint32_t rate, bool padding) {
  const uint32_t slot = layer == 1 ? 4 : 1;
  const uint64_t slots = uint64_t{samples} * bitRate / (uint64_t{rate} * 8 * slot);
  return (static_cast<uint32_t>(slots) + (padding ? 1 : 0)) * slot;
}

void checkEveryRow(int version, int halvings) {
  for (int layer = 1; layer <= 3; ++layer) {
    const uint32_t samples = layer == 1 ? 384 : layer == 3 && version != 3 ? 576 : 1152;
    for (int index = 1; index < 15; ++index) {
      for (int rate = 0; rate < 3; ++rate) {
        for (const bool padding : {false, true}) {
          MpegAudioHeader header;
          ASSERT_TRUE(
              parseMpegAudioHeader(frameHeader(version, layer, index, rate, padding), header));
          const auto bits =
              static_cast<uint32_t>(kKilobits[index][layer - 1 + (version == 3 ? 0 : 3)]) * 1000;
          EXPECT_EQ(header.layer, layer);
          EXPECT_EQ(header.bitRate, bits);
          EXPECT_EQ(header.sampleRate, kRates[rate] >> halvings);
          EXPECT_EQ(header.samples, samples);
          EXPECT_EQ(header.frameSize,
                    frameBytes(layer, samples, bits, kRates[rate] >> halvings, padding));
        }
      }
    }
  }
}

TEST(MpegAudioHeader, EveryRowOfMpeg1) {
  checkEveryRow(3, 0);
}
TEST(MpegAudioHeader, EveryRowOfLowSamplingFrequencies) {
  checkEveryRow(2, 1);
}
TEST(MpegAudioHeader, EveryRowOfQuarterSamplingFrequencies) {
  checkEveryRow(0, 2);
}

TEST(MpegAudioHeader, KnownFrame) {
  MpegAudioHeader header;
  ASSERT_TRUE(parseMpegAudioHeader(std::array<uint8_t, 4>{0xFF, 0xFD, 0xA4, 0xC0}, header));
  EXPECT_EQ(header.layer, 2);
  EXPECT_EQ(header.bitRate, 192000u);
  EXPECT_EQ(header.sampleRate, 48000u);
  EXPECT_EQ(header.frameSize, 576u);
  EXPECT_EQ(header.channels, 1);
  EXPECT_FALSE(header.hasCrc);
}

TEST(MpegAudioHeader, FreeFormatHasNoSize) {
  MpegAudioHeader header;
  ASSERT_TRUE(parseMpegAudioHeader(frameHeader(3, 2, 0, 1, true), header));
  EXPECT_EQ(header.frameSize, 0u);
}

TEST(MpegAudioHeader, RefusesReservedCodesAndShortBytes) {
  MpegAudioHeader header;
  EXPECT_FALSE(parseMpegAudioHeader(frameHeader(1, 2, 5, 1, false), header));
  EXPECT_FALSE(parseMpegAudioHeader(frameHeader(3, 4, 5, 1, false), header));
  EXPECT_FALSE(parseMpegAudioHeader(frameHeader(3, 2, 15, 1, false), header));
  EXPECT_FALSE(parseMpegAudioHeader(frameHeader(3, 2, 5, 3, false), header));
  const auto good = frameHeader(3, 2, 5, 1, false);
  EXPECT_TRUE(parseMpegAudioHeader(good, header));
  EXPECT_FALSE(parseMpegAudioHeader(std::span(good).first(3), header));
  EXPECT_FALSE(parseMpegAudioHeader({}, header));
}

}  // namespace
}  // namespace zel::syntax
