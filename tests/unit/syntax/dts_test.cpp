#include "zel/syntax/dts.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "zel/base/bit_writer.h"

namespace zel::syntax {
namespace {

std::vector<uint8_t> core(uint32_t nblks, uint32_t fsize, uint32_t sfreq) {
  std::vector<uint8_t> bytes(16);
  base::BitWriter writer(bytes);
  writer.write(0x7FFE8001, 32);
  writer.write(1, 1);
  writer.write(31, 5);
  writer.write(0, 1);
  writer.write(nblks, 7);
  writer.write(fsize, 14);
  writer.write(9, 6);
  writer.write(sfreq, 4);
  writer.write(15, 5);
  writer.write(0, 5);
  writer.write(2, 3);
  writer.write(1, 1);
  writer.write(0, 1);
  writer.write(2, 2);
  writer.finish();
  return bytes;
}

TEST(DtsCoreHeader, EverySampleRate) {
  constexpr uint32_t kRates[16] = {0,     8000, 16000, 32000, 0,     0,     11025, 22050,
                                   44100, 0,    0,     12000, 24000, 48000, 96000, 192000};
  for (uint32_t code = 0; code < 16; ++code) {
    DtsCoreHeader header;
    EXPECT_EQ(parseDtsCoreHeader(core(15, 1005, code), header), kRates[code] != 0) << code;
    EXPECT_EQ(header.sampleRate, kRates[code]);
  }
}

TEST(DtsCoreHeader, ReadsEveryField) {
  DtsCoreHeader header;
  ASSERT_TRUE(parseDtsCoreHeader(core(15, 1005, 13), header));
  EXPECT_TRUE(header.normalFrame);
  EXPECT_EQ(header.deficitSamples, 31);
  EXPECT_EQ(header.samples, 512u);
  EXPECT_EQ(header.frameSize, 1006u);
  EXPECT_EQ(header.amode, 9);
  EXPECT_EQ(header.rate, 15);
  EXPECT_EQ(header.extAudioId, 2);
  EXPECT_TRUE(header.extAudio);
  EXPECT_EQ(header.lff, 2);
}

TEST(DtsCoreHeader, RefusesWhatIsTooSmallOrShort) {
  DtsCoreHeader header;
  EXPECT_TRUE(parseDtsCoreHeader(core(5, 95, 13), header));
  EXPECT_FALSE(parseDtsCoreHeader(core(4, 95, 13), header));
  EXPECT_FALSE(parseDtsCoreHeader(core(5, 94, 13), header));
  const auto good = core(15, 1005, 13);
  EXPECT_FALSE(parseDtsCoreHeader(std::span(good).first(10), header));
}

std::vector<uint8_t> extension(bool wide, uint32_t headerSize, uint32_t frameSize, bool fixed,
                               uint32_t clock, uint32_t duration) {
  std::vector<uint8_t> bytes(16);
  base::BitWriter writer(bytes);
  writer.write(0x64582025, 32);
  writer.write(0, 8);
  writer.write(1, 2);
  writer.write(wide ? 1 : 0, 1);
  writer.write(headerSize - 1, wide ? 12 : 8);
  writer.write(frameSize - 1, wide ? 20 : 16);
  writer.write(fixed ? 1 : 0, 1);
  writer.write(clock, 2);
  writer.write(duration, 3);
  writer.finish();
  return bytes;
}

TEST(DtsExtensionHeader, EveryClockAndDuration) {
  constexpr uint32_t kClocks[4] = {32000, 44100, 48000, 48000};
  for (uint32_t clock = 0; clock < 4; ++clock) {
    for (uint32_t duration = 0; duration < 8; ++duration) {
      DtsExtensionHeader header;
      ASSERT_TRUE(
          parseDtsExtensionHeader(extension(false, 40, 2012, true, clock, duration), header));
      EXPECT_EQ(header.referenceClock, kClocks[clock]);
      EXPECT_EQ(header.durationSamples, (duration + 1) * 512);
      EXPECT_EQ(header.headerSize, 40u);
      EXPECT_EQ(header.frameSize, 2012u);
      EXPECT_EQ(header.index, 1);
    }
  }
}

TEST(DtsExtensionHeader, WideSizes) {
  DtsExtensionHeader header;
  ASSERT_TRUE(parseDtsExtensionHeader(extension(true, 4000, 900000, false, 0, 0), header));
  EXPECT_EQ(header.headerSize, 4000u);
  EXPECT_EQ(header.frameSize, 900000u);
  EXPECT_FALSE(header.hasStaticFields);
  EXPECT_EQ(header.referenceClock, 0u);
}

TEST(DtsExtensionHeader, AHeaderLiesWithinItsSubstream) {
  DtsExtensionHeader header;
  EXPECT_TRUE(parseDtsExtensionHeader(extension(false, 40, 40, true, 2, 0), header));
  EXPECT_FALSE(parseDtsExtensionHeader(extension(false, 40, 39, true, 2, 0), header));
  EXPECT_FALSE(parseDtsExtensionHeader(extension(false, 4, 39, true, 2, 0), header));
  const auto good = extension(false, 40, 2012, true, 2, 0);
  EXPECT_FALSE(parseDtsExtensionHeader(std::span(good).first(8), header));
}

// A substream with one presentation of one asset, up to its coding.
std::vector<uint8_t> asset(uint32_t channels, uint32_t codingMode, uint32_t components,
                           bool mixes = false, uint32_t remapSets = 0) {
  std::vector<uint8_t> bytes(64);
  base::BitWriter writer(bytes);
  const auto write = [&](uint32_t value, int width) { writer.write(value, width); };
  write(0x64582025, 32);
  write(0, 8 + 2 + 1);
  write(40 - 1, 8);
  write(2012 - 1, 16);
  write(1, 1);  // static fields
  write(2, 2);  // 48 kHz
  write(0, 3);  // 512 samples
  write(1, 1);  // a time stamp
  write(0, 32);
  write(0, 4);
  write(0, 3);  // one presentation
  write(0, 3);  // one asset
  write(1, 1);  // of the first substream
  write(1, 8);
  write(mixes, 1);
  if (mixes) {
    write(0, 2);
    write(1, 2);  // masks of eight bits
    write(1, 2);  // two of them
    write(0, 16);
  }
  write(1900, 16);  // nuAssetFsize
  write(30, 9);
  write(0, 3);
  write(1, 1);  // a type
  write(3, 4);
  write(1, 1);  // a language
  write(0x656E67, 24);
  write(1, 1);  // two bytes of text
  write(1, 10);
  write(0x6869, 16);
  write(23, 5);
  write(12, 4);
  write(channels - 1, 8);
  write(1, 1);  // one to one
  if (channels > 2) write(1, 1);
  if (channels > 6) write(0, 1);
  write(1, 1);  // a mask of eight bits
  write(1, 2);
  write(0x0F, 8);
  write(remapSets, 3);
  write(1, 1);  // dynamic range
  write(0, 8);
  write(1, 1);  // dialogue level
  write(0, 5);
  if (channels > 2) write(0, 8);
  if (mixes) write(0, 1);
  write(codingMode, 2);
  if (codingMode == 0) write(components, 12);
  writer.finish();
  return bytes;
}

TEST(DtsExtensionHeader, TellsHowItsFirstAssetIsCoded) {
  DtsExtensionHeader header;
  for (const uint32_t channels : {2, 6, 8}) {
    for (const bool mixes : {false, true}) {
      ASSERT_TRUE(parseDtsExtensionHeader(asset(channels, 0, 0x210, mixes), header));
      EXPECT_TRUE(header.assetKnown);
      EXPECT_EQ(header.channels, channels);
      EXPECT_EQ(header.components, 0x210);
      EXPECT_TRUE(isDtsLossless(header));
      ASSERT_TRUE(parseDtsExtensionHeader(asset(channels, 0, 0x020, mixes), header));
      EXPECT_EQ(header.components, 0x020);
      EXPECT_FALSE(isDtsLossless(header));
      ASSERT_TRUE(parseDtsExtensionHeader(asset(channels, 1, 0, mixes), header));
      EXPECT_TRUE(isDtsLossless(header));
      ASSERT_TRUE(parseDtsExtensionHeader(asset(channels, 2, 0, mixes), header));
      EXPECT_EQ(header.codingMode, 2);
      EXPECT_FALSE(isDtsLossless(header));
    }
  }
}

TEST(DtsExtensionHeader, AnAssetThatCantBeReadIsNotKnown) {
  DtsExtensionHeader header;
  ASSERT_TRUE(parseDtsExtensionHeader(asset(6, 1, 0, false, 2), header));
  EXPECT_FALSE(header.assetKnown);
  EXPECT_FALSE(isDtsLossless(header));
  const auto whole = asset(6, 1, 0);
  ASSERT_TRUE(parseDtsExtensionHeader(std::span(whole).first(20), header));
  EXPECT_FALSE(header.assetKnown);
  EXPECT_EQ(header.frameSize, 2012u);
}

TEST(DtsHdChunk, IdentifierAndSize) {
  const std::array<uint8_t, 16> bytes{'D', 'T', 'S', 'H', 'D', 'H', 'D', 'R',
                                      0,   0,   0,   0,   0,   0,   1,   2};
  DtsHdChunk chunk;
  ASSERT_TRUE(parseDtsHdChunk(bytes, chunk));
  EXPECT_EQ(chunk.identifier, kDtsHdFileChunk);
  EXPECT_EQ(chunk.size, 258u);
  EXPECT_FALSE(parseDtsHdChunk(std::span(bytes).first(15), chunk));
}

}  // namespace
}  // namespace zel::syntax
