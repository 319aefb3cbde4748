#include "zel/syntax/ac3.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "zel/base/bit_writer.h"
#include "zel/syntax/eac3.h"

namespace zel::syntax {
namespace {

// ATSC A/52 table 5.18: kbit/s, then words at 48, 44.1 and 32 kHz, by frmsizecod.
constexpr int kFrameSizes[38][4] = {
    {32, 64, 69, 96},        {32, 64, 70, 96},        {40, 80, 87, 120},
    {40, 80, 88, 120},       {48, 96, 104, 144},      {48, 96, 105, 144},
    {56, 112, 121, 168},     {56, 112, 122, 168},     {64, 128, 139, 192},
    {64, 128, 140, 192},     {80, 160, 174, 240},     {80, 160, 175, 240},
    {96, 192, 208, 288},     {96, 192, 209, 288},     {112, 224, 243, 336},
    {112, 224, 244, 336},    {128, 256, 278, 384},    {128, 256, 279, 384},
    {160, 320, 348, 480},    {160, 320, 349, 480},    {192, 384, 417, 576},
    {192, 384, 418, 576},    {224, 448, 487, 672},    {224, 448, 488, 672},
    {256, 512, 557, 768},    {256, 512, 558, 768},    {320, 640, 696, 960},
    {320, 640, 697, 960},    {384, 768, 835, 1152},   {384, 768, 836, 1152},
    {448, 896, 975, 1344},   {448, 896, 976, 1344},   {512, 1024, 1114, 1536},
    {512, 1024, 1115, 1536}, {576, 1152, 1253, 1728}, {576, 1152, 1254, 1728},
    {640, 1280, 1393, 1920}, {640, 1280, 1394, 1920}};

std::array<uint8_t, 16> frame(uint32_t fscod, uint32_t frmsizecod, uint32_t bsid, uint32_t acmod) {
  std::array<uint8_t, 16> bytes{};
  base::BitWriter writer(bytes);
  writer.write(0x0B77, 16);
  writer.write(0xABCD, 16);
  writer.write(fscod, 2);
  writer.write(frmsizecod, 6);
  writer.write(bsid, 5);
  writer.write(2, 3);  // bsmod
  writer.write(acmod, 3);
  if ((acmod & 1) != 0 && acmod != 1) writer.write(1, 2);
  if ((acmod & 4) != 0) writer.write(2, 2);
  if (acmod == 2) writer.write(2, 2);
  writer.write(1, 1);  // lfeon
  writer.write(27, 5);
  writer.write(0, 1);
  writer.write(1, 1);  // langcode
  writer.write(9, 8);
  writer.write(1, 1);  // audprodie
  writer.write(21, 5);
  writer.write(1, 2);
  if (acmod == 0) {
    writer.write(27, 5);
    writer.write(0, 1);
    writer.write(1, 1);
    writer.write(77, 8);
    writer.write(0, 1);
  }
  writer.write(1, 1);
  writer.write(0, 1);
  writer.finish();
  return bytes;
}

TEST(Ac3Header, EveryRowOfTheFrameSizeTable) {
  constexpr uint32_t kRates[3] = {48000, 44100, 32000};
  for (uint32_t code = 0; code < 38; ++code) {
    for (uint32_t fscod = 0; fscod < 3; ++fscod) {
      Ac3Header header;
      ASSERT_TRUE(parseAc3Header(frame(fscod, code, 8, 2), header)) << code << " " << fscod;
      EXPECT_EQ(header.frameSize, static_cast<uint32_t>(kFrameSizes[code][fscod + 1]) * 2);
      EXPECT_EQ(header.bitRate, static_cast<uint32_t>(kFrameSizes[code][0]) * 1000);
      EXPECT_EQ(header.sampleRate, kRates[fscod]);
    }
  }
}

TEST(Ac3Header, ReadsTheFieldsOfEveryMode) {
  for (uint32_t acmod = 0; acmod < 8; ++acmod) {
    Ac3Header header;
    ASSERT_TRUE(parseAc3Header(frame(0, 20, 8, acmod), header));
    EXPECT_EQ(header.acmod, acmod);
    EXPECT_EQ(header.bsmod, 2);
    EXPECT_EQ(header.dsurmod, acmod == 2 ? 2 : 0);
    EXPECT_TRUE(header.lfeon);
    EXPECT_EQ(header.dialnorm, 27);
    EXPECT_EQ(header.langcod, 9);
    EXPECT_EQ(header.mixlevel, 21);
    EXPECT_EQ(header.roomtyp, 1);
    EXPECT_EQ(header.langcod2, acmod == 0 ? 77 : 0);
    EXPECT_TRUE(header.copyrightb);
    EXPECT_FALSE(header.origbs);
  }
}

TEST(Ac3Header, Bsid9And10DivideTheRate) {
  Ac3Header header;
  ASSERT_TRUE(parseAc3Header(frame(0, 20, 10, 2), header));
  EXPECT_EQ(header.sampleRate, 12000u);
  EXPECT_EQ(header.bitRate, 48000u);
  EXPECT_EQ(header.frameSize, 768u);
}

TEST(Ac3Header, RefusesReservedCodesAndShortBytes) {
  Ac3Header header;
  EXPECT_FALSE(parseAc3Header(frame(3, 20, 8, 2), header));
  EXPECT_FALSE(parseAc3Header(frame(0, 38, 8, 2), header));
  EXPECT_FALSE(parseAc3Header(frame(0, 20, 11, 2), header));
  const auto good = frame(0, 20, 8, 2);
  EXPECT_TRUE(parseAc3Header(good, header));
  EXPECT_FALSE(parseAc3Header(std::span(good).first(6), header));
  EXPECT_EQ(ac3Bsid(good), 8);
  EXPECT_EQ(ac3Bsid(std::span(good).first(5)), 0xFF);
}

// A bit string by fields, so that a test reads as the standard's table does.
std::vector<uint8_t> bits(std::initializer_list<std::array<uint32_t, 2>> fields) {
  std::vector<uint8_t> bytes(64);
  base::BitWriter writer(bytes);
  for (const auto& [value, width] : fields) writer.write(value, static_cast<int>(width));
  writer.finish();
  return bytes;
}

TEST(Eac3Header, IndependentStereoWithMixing) {
  const auto bytes = bits({{0x0B77, 16}, {0, 2},       {0, 3},  {767, 11}, {0, 2}, {3, 2}, {1, 3},
                           {0, 1},       {16, 5},      {31, 5}, {0, 1},    {1, 1},  // mixmdate
                           {1, 1},       {40, 6},                                   // pgmscle
                           {1, 1},       {41, 6},                                   // extpgmscle
                           {2, 2},       {0xABC, 12},                               // mixdef 2
                           {1, 1},       {0x2AAA, 14},                              // paninfoe
                           {0, 1},  // frmmixcfginfoe
                           {1, 1},       {5, 3},       {1, 1},  {0, 1}});
  Eac3Header header;
  ASSERT_TRUE(parseEac3Header(bytes, header));
  EXPECT_EQ(header.frameSize, 1536u);
  EXPECT_EQ(header.samples, 1536u);
  EXPECT_EQ(header.sampleRate, 48000u);
  EXPECT_TRUE(header.mixmdate);
  EXPECT_TRUE(header.pgmscle);
  EXPECT_TRUE(header.extpgmscle);
  EXPECT_EQ(header.mixdef, 2);
  EXPECT_TRUE(header.paninfoe);
  EXPECT_TRUE(header.infomdate);
  EXPECT_EQ(header.bsmod, 5);
  EXPECT_TRUE(header.copyrightb);
}

TEST(Eac3Header, LongMixDataIsSkippedByItsLength) {
  const auto bytes =
      bits({{0x0B77, 16}, {0, 2}, {0, 3},  {100, 11}, {0, 2},         {0, 2},
            {2, 3},       {0, 1}, {16, 5}, {31, 5},   {0, 1},         {1, 1},
            {0, 1},       {0, 1}, {3, 2},  {1, 5},    {0xFFFFFF, 24},  // mixdef 3: 8 * (1 + 2) bits
            {1, 1},       {9, 5},                                      // frmmixcfginfoe, one block
            {1, 1},       {3, 3}, {0, 2},  {2, 2}});
  Eac3Header header;
  ASSERT_TRUE(parseEac3Header(bytes, header));
  EXPECT_EQ(header.samples, 256u);
  EXPECT_EQ(header.mixdef, 3);
  EXPECT_EQ(header.bsmod, 3);
  EXPECT_EQ(header.dsurmod, 2);
}

TEST(Eac3Header, DependentSubstreamHasAChannelMap) {
  const auto bytes = bits({{0x0B77, 16},
                           {1, 2},
                           {2, 3},
                           {255, 11},
                           {1, 2},
                           {2, 2},
                           {7, 3},
                           {1, 1},
                           {16, 5},
                           {31, 5},
                           {0, 1},
                           {1, 1},
                           {0x1234, 16},
                           {0, 1},
                           {0, 1}});
  Eac3Header header;
  ASSERT_TRUE(parseEac3Header(bytes, header));
  EXPECT_EQ(header.strmtyp, kEac3Dependent);
  EXPECT_EQ(header.substreamid, 2);
  EXPECT_EQ(header.chanmap, 0x1234);
  EXPECT_EQ(header.samples, 768u);
  EXPECT_EQ(header.sampleRate, 44100u);
}

TEST(Eac3ChannelMap, ModesAndMapsCountTheirChannels) {
  constexpr int kChannels[8] = {2, 1, 2, 3, 3, 4, 4, 5};
  Eac3Header header;
  for (uint8_t mode = 0; mode < 8; ++mode) {
    header.acmod = mode;
    header.lfeon = false;
    EXPECT_EQ(eac3Channels(eac3ChannelMap(header)), kChannels[mode]) << int{mode};
    header.lfeon = true;
    EXPECT_EQ(eac3Channels(eac3ChannelMap(header)), kChannels[mode] + 1) << int{mode};
  }
  // 5.1, and a substream that has the surrounds anew and a pair behind them: 7.1.
  header.acmod = 7;
  Eac3Header dependent;
  dependent.chanmape = true;
  dependent.chanmap = 0x1000 | 0x0800 | 0x0200;
  EXPECT_EQ(eac3Channels(eac3ChannelMap(dependent)), 4);
  EXPECT_EQ(eac3Channels(eac3ChannelMap(header) | eac3ChannelMap(dependent)), 8);
}

TEST(Eac3Header, HalfRatesHaveSixBlocks) {
  constexpr uint32_t kRates[3] = {24000, 22050, 16000};
  for (uint32_t code = 0; code < 4; ++code) {
    const auto bytes = bits({{0x0B77, 16},
                             {0, 2},
                             {0, 3},
                             {255, 11},
                             {3, 2},
                             {code, 2},
                             {1, 3},
                             {0, 1},
                             {16, 5},
                             {31, 5},
                             {0, 1},
                             {0, 1},
                             {0, 1}});
    Eac3Header header;
    ASSERT_EQ(parseEac3Header(bytes, header), code < 3);
    if (code == 3) continue;
    EXPECT_EQ(header.sampleRate, kRates[code]);
    EXPECT_EQ(header.samples, 1536u);
  }
}

}  // namespace
}  // namespace zel::syntax
