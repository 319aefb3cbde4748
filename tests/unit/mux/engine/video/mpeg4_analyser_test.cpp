#include "zel/mux/engine/video/mpeg4_analyser.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/analysed_video.h"
#include "tests/support/header_bits.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/video/any_end.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_config;
using Morvalen::Zel::tsm_video;
using test::AnalysedVideo;
using test::analyseVideo;
using test::HeaderBits;

constexpr double kPeriod = test::kPeriodAt25;

// Headers of ISO/IEC 14496-2, 6.2.2 to 6.2.5, and VOPs of noise.
struct Mpeg4Bytes {
  uint8_t profileAndLevel = 0xF3;
  bool fixedRate = true;
  bool lowDelay = false;
  uint32_t bitRate400 = 2'000;
  uint32_t vbvSize = 60;
  std::vector<uint8_t> bytes;

  void add(const std::vector<uint8_t>& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  void objects() {
    add({0, 0, 1, 0xB0, profileAndLevel, 0, 0, 1, 0xB5, 0x89, 0x13, 0, 0, 1, 0});
    layer();
  }
  void layer() {
    HeaderBits bits;
    bits.u(32, 0x120);
    bits.u(1, 1);
    bits.u(8, 1);
    bits.u(1, 0);
    bits.u(4, 1);
    bits.u(1, 1);
    bits.u(2, 1);
    bits.u(1, lowDelay);
    bits.u(1, bitRate400 != 0);
    if (bitRate400 != 0) {
      bits.u(15, bitRate400 >> 15);
      bits.u(1, 1);
      bits.u(15, bitRate400 & 0x7FFF);
      bits.u(1, 1);
      bits.u(15, vbvSize >> 3);
      bits.u(1, 1);
      bits.u(3, vbvSize & 7);
      bits.u(11, 0);
      bits.u(1, 1);
      bits.u(15, 0);
      bits.u(1, 1);
    }
    bits.u(2, 0);
    bits.u(1, 1);
    bits.u(16, 25);
    bits.u(1, 1);
    bits.u(1, fixedRate);
    if (fixedRate) bits.u(5, 1);
    bits.u(1, 1);
    bits.u(13, 352);
    bits.u(1, 1);
    bits.u(13, 288);
    bits.u(1, 1);
    bits.u(8, 0x4F);
    add(bits.bytes());
  }
  void group(uint32_t hours, uint32_t minutes, uint32_t seconds) {
    HeaderBits bits;
    bits.u(32, 0x1B3);
    bits.u(5, hours);
    bits.u(6, minutes);
    bits.u(1, 1);
    bits.u(6, seconds);
    bits.u(6, 0x27);
    add(bits.bytes());
  }
  void vops(const std::string& types) {
    for (const char type : types) {
      HeaderBits bits;
      bits.u(32, 0x1B6);
      bits.u(2, type == 'I' ? 0 : type == 'P' ? 1 : 2);
      bits.u(2, 1);
      bits.u(5, 0);
      bits.u(2, 3);
      bits.u(5, 0x1F);
      add(bits.bytes());
      for (int i = 0; i < 500; ++i) bytes.push_back(static_cast<uint8_t>(1 + random() % 255));
    }
  }
  std::mt19937_64 random{test::testSeed()};
};

AnalysedVideo analysed(const Mpeg4Bytes& stream, int frameRate = 0, double rate = 0) {
  test::VideoFeed feed;
  feed.configure = [=](tsm_config&, tsm_video& record) {
    record.frameRate = frameRate;
    record.rate = rate;
  };
  return analyseVideo(stream.bytes, feed);
}

TEST(Mpeg4Analyser, TellsWhatTheHeadersSay) {
  Mpeg4Bytes stream;
  stream.objects();
  stream.group(1, 2, 3);
  stream.vops("IPBBPBB");
  stream.objects();
  stream.vops("IP");
  const AnalysedVideo video = analysed(stream);
  EXPECT_EQ(video.messages, "");
  EXPECT_EQ(video.characteristics.coding, video_coding::mpeg4_part2);
  EXPECT_EQ(video.characteristics.width, 352);
  EXPECT_EQ(video.characteristics.height, 288);
  EXPECT_EQ(video.characteristics.framePeriod, kPeriod);
  EXPECT_EQ(video.characteristics.bitRate, 800'000);
  EXPECT_EQ(video.characteristics.vbvSize, 60);
  EXPECT_EQ(video.pmt.streamType, 16);
  EXPECT_EQ(video.bytes, stream.bytes);
  ASSERT_EQ(video.units.size(), 9u);
  EXPECT_TRUE(video.units[0].keyPoint);
  EXPECT_TRUE(video.units[7].keyPoint);
  EXPECT_EQ(video.units[0].timeCode.hours, 1);
  EXPECT_EQ(video.units[5].timeCode.seconds, 3);
  EXPECT_EQ(video.units[5].timeCode.frames, 5);
  const double shown[] = {1, 4, 2, 3, 7, 5, 6, 8, 9};
  for (size_t i = 0; i < 9; ++i) {
    EXPECT_EQ(video.shown(i), shown[i]) << i;
  }
}

TEST(Mpeg4Analyser, ALayerMayBeginTheStream) {
  Mpeg4Bytes stream;
  stream.add({0, 0, 1, 0});
  stream.layer();
  stream.vops("IP");
  const AnalysedVideo video = analysed(stream);
  EXPECT_EQ(video.units.size(), 2u);
  EXPECT_EQ(video.bytes, stream.bytes);
}

TEST(Mpeg4Analyser, AFrameRateThatIsNotFixedHasToBeConfigured) {
  Mpeg4Bytes stream;
  stream.fixedRate = false;
  stream.objects();
  stream.vops("IPP");
  const AnalysedVideo video = analysed(stream);
  EXPECT_EQ(video.messages, "F90 ");
  EXPECT_EQ(video.characteristics.frameRateCode, 4);
  const AnalysedVideo told = analysed(stream, 3);
  EXPECT_EQ(told.messages, "");
  EXPECT_EQ(told.characteristics.framePeriod, kPeriod);
}

TEST(Mpeg4Analyser, WithoutARateTheProfilesMaximumHolds) {
  Mpeg4Bytes stream;
  stream.bitRate400 = 0;
  stream.objects();
  stream.vops("IPP");
  const AnalysedVideo video = analysed(stream);
  EXPECT_EQ(video.messages, "W49 ");
  EXPECT_GT(video.characteristics.bitRate, 0);
  EXPECT_NE(
      video.texts.find("used max " +
                       std::to_string(static_cast<int>(video.characteristics.bitRate)) + " bps"),
      std::string::npos);
  EXPECT_EQ(analysed(stream, 0, 1e6).messages, "");

  Mpeg4Bytes unknown;
  unknown.profileAndLevel = 0x7E;
  unknown.bitRate400 = 0;
  unknown.objects();
  unknown.vops("IPP");
  const AnalysedVideo strange = analysed(unknown);
  EXPECT_EQ(strange.messages, "W51 ");
  EXPECT_NE(strange.texts.find("= 0x7E"), std::string::npos);
  EXPECT_EQ(strange.characteristics.bitRate, 3e6);
}

TEST(Mpeg4Analyser, ReservedCodesAreToldOnce) {
  Mpeg4Bytes stream;
  stream.objects();
  stream.vops("IP");
  stream.add({0, 0, 1, 0x30, 1, 2, 0, 0, 1, 0xAF, 3});
  stream.vops("PP");
  const AnalysedVideo video = analysed(stream);
  EXPECT_EQ(video.messages, "W50 ");
  EXPECT_EQ(video.units.size(), 4u);
}

TEST(Mpeg4Analyser, BVopsEndLowDelay) {
  Mpeg4Bytes stream;
  stream.lowDelay = true;
  stream.objects();
  stream.vops("IPP");
  const AnalysedVideo plain = analysed(stream);
  for (const access_unit& unit : plain.units) EXPECT_EQ(unit.pts, unit.dts);
  stream.vops("PBB");
  EXPECT_EQ(analysed(stream).messages, "W20 ");
}

TEST(Mpeg4Analyser, AStreamMayEndAnywhere) {
  Mpeg4Bytes stream;
  stream.objects();
  stream.vops("IPBB");
  test::expectSoundAtAnyEnd(stream.bytes, 90);
}

}  // namespace
}  // namespace zel::mux
