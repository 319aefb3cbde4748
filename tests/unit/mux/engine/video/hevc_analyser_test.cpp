#include "zel/mux/engine/video/hevc_analyser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "tests/support/analysed_video.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/video/any_end.h"
#include "tests/unit/syntax/hevc_test_writer.h"
#include "zel/base/annex_b.h"
#include "zel/syntax/hevc_nal.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_config;
using Morvalen::Zel::tsm_video;
using test::AnalysedVideo;
using test::analyseVideo;
using test::HeaderBits;
using test::VideoFeed;
using test::with;

constexpr double kPeriod = test::kPeriodAt25;

// Streams whose headers are right and whose slice data is noise.
struct HevcBytes {
  HevcBytes() {
    sps.profileTierLevel.general.idc = 1;
    sps.profileTierLevel.general.compatibility = 0x60000000;
    sps.profileTierLevel.general.progressiveSource = true;
    sps.profileTierLevel.generalLevelIdc = 93;
    sps.width = 416;
    sps.height = 240;
    sps.log2Ctb = 6;
    sps.log2MaxPocLsb = 8;
    sps.ordering[0] = {4, 2, 0};
    sps.vuiPresent = true;
    sps.vui.timing = {true, 1, 25, false, 0};
  }
  syntax::HevcSps sps;
  std::vector<uint8_t> bytes;
  std::mt19937_64 random{test::testSeed()};

  void useHrd(uint64_t bitsPerSecond, uint64_t bits) {
    sps.vui.hrdPresent = true;
    syntax::HevcHrd& hrd = sps.vui.hrd;
    hrd.nalPresent = true;
    auto& layer = hrd.subLayers[0];
    layer.fixedPicRateGeneral = layer.fixedPicRateWithinCvs = true;
    layer.nal = {{static_cast<uint32_t>(bitsPerSecond / 64 - 1),
                  static_cast<uint32_t>(bits / 16 - 1), 0, 0, false}};
  }
  void nal(int type, const std::vector<uint8_t>& rbsp, bool zeroByte = false) {
    if (zeroByte) bytes.push_back(0);
    bytes.insert(bytes.end(), {0, 0, 1, static_cast<uint8_t>(type << 1), 1});
    base::appendEmulationPrevention(rbsp, bytes);
  }
  void delimiter() { nal(syntax::kHevcDelimiter, {0x50}, true); }
  void sets() {
    HeaderBits out;
    writeSps(out, sps);
    nal(syntax::kHevcSps, out.rbsp(), true);
    HeaderBits pps;
    pps.ue(0);
    pps.ue(sps.id);
    pps.u(7, 0);
    pps.ue(0);
    pps.ue(0);
    pps.se(0);
    pps.u(3, 0);
    pps.se(0);
    pps.se(0);
    pps.u(10, 0);
    pps.ue(0);
    pps.u(2, 0);
    nal(syntax::kHevcPps, pps.rbsp(), true);
  }
  void sei(uint8_t type, const std::vector<uint8_t>& payload) {
    std::vector<uint8_t> rbsp{type, static_cast<uint8_t>(payload.size())};
    rbsp.insert(rbsp.end(), payload.begin(), payload.end());
    rbsp.push_back(0x80);
    nal(syntax::kHevcPrefixSei, rbsp);
  }
  void bufferingPeriod(uint32_t delay90k) {
    HeaderBits out;
    out.ue(0);
    out.flag(false);
    out.flag(false);
    out.u(24, 0);
    out.u(24, delay90k);
    out.u(24, 0);
    sei(0, out.bytes());
  }
  void timing(uint32_t removal, uint32_t output, uint32_t picStruct = 0) {
    HeaderBits out;
    if (sps.vui.frameFieldInfoPresent) {
      out.u(4, picStruct);
      out.u(3, 0);
    }
    if (sps.vui.hrdPresent) {
      out.u(24, removal - 1);
      out.u(24, output);
    }
    sei(1, out.bytes());
  }
  void timeCode(uint32_t hours, uint32_t minutes, uint32_t seconds, uint32_t frames) {
    HeaderBits out;
    out.u(2, 1);
    out.flag(true);
    out.u(6, 0);
    out.flag(true);  // full_timestamp_flag
    out.u(2, 0);
    out.u(9, frames);
    out.u(6, seconds);
    out.u(6, minutes);
    out.u(5, hours);
    out.u(5, 0);
    sei(136, out.bytes());
  }
  void picture(int type, char slice, uint32_t poc, int slices = 1) {
    for (int i = 0; i < slices; ++i) {
      HeaderBits out;
      out.flag(i == 0);
      if (type >= 16 && type <= 23) out.flag(false);
      out.ue(0);
      if (i > 0) out.u(5, static_cast<uint32_t>(i));  // of 7 x 4 blocks
      out.ue(slice == 'B' ? 0 : slice == 'P' ? 1 : 2);
      if (type != syntax::kHevcIdrWRadl && type != syntax::kHevcIdrNLp) out.u(8, poc & 0xFF);
      std::vector<uint8_t> rbsp = out.rbsp();
      for (int j = 0; j < 500; ++j) rbsp.push_back(static_cast<uint8_t>(random()));
      rbsp.push_back(0x80);
      nal(type, rbsp);
    }
  }
  // By type and place of display, in decoding order.
  void group(const std::vector<std::pair<char, int>>& pictures, int first = syntax::kHevcIdrWRadl) {
    for (size_t i = 0; i < pictures.size(); ++i) {
      const auto [slice, place] = pictures[i];
      const int type = i == 0 ? first : slice == 'B' ? 0 : 1;
      picture(type, slice, static_cast<uint32_t>(place));
    }
  }
};

const std::vector<std::pair<char, int>> kPyramid = {
    {'I', 0}, {'P', 4}, {'B', 2}, {'B', 1}, {'B', 3}, {'P', 8}, {'B', 6}, {'B', 5}, {'B', 7}};

TEST(HevcAnalyser, TellsWhatTheParameterSetsSay) {
  HevcBytes stream;
  stream.useHrd(2'000'000, 1'000'000);
  for (uint32_t i = 0; i < 8; ++i) {
    stream.delimiter();
    if (i == 0) {
      stream.sets();
      stream.bufferingPeriod(40'000);
    }
    stream.timing(i == 0 ? 1 : i, 2);
    stream.picture(i == 0 ? syntax::kHevcIdrNLp : 1, i == 0 ? 'I' : 'P', i, 2);
  }
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.messages, "");
  EXPECT_EQ(video.characteristics.coding, video_coding::hevc);
  EXPECT_EQ(video.characteristics.width, 416);
  EXPECT_EQ(video.characteristics.bitRate, 2'200'000) << "bits of NAL units: 1,100 for 1,000";
  EXPECT_EQ(video.characteristics.vbvSize, 1'000'000 / 8 / 2048);
  EXPECT_EQ(video.characteristics.vbvDelay, 40'000);
  EXPECT_EQ(video.characteristics.framePeriod, kPeriod);
  EXPECT_EQ(video.pmt.streamType, 36);
  ASSERT_EQ(video.pmt.descriptors.size(), 1u);
  EXPECT_EQ(video.pmt.descriptors[0],
            (std::vector<uint8_t>{0x38, 13, 0x01, 0x60, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 93, 0x1F}));
  ASSERT_EQ(video.units.size(), 8u);
  EXPECT_EQ(video.bytes, stream.bytes);
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(video.decoded(i), static_cast<double>(i));
    EXPECT_EQ(video.shown(i), static_cast<double>(i) + 2);
  }
  EXPECT_TRUE(video.units[0].keyPoint);
  EXPECT_EQ(video.units[1].pictureType, 2);
  for (const size_t chunk : {1, 3, 1000}) {
    VideoFeed feed = with([](tsm_config& config, tsm_video&) { config.inBufSiz = 2'000; });
    feed.chunk = chunk;
    EXPECT_EQ(analyseVideo(stream.bytes, feed).bytes, stream.bytes) << chunk;
  }
}

TEST(HevcAnalyser, PicturesAreShownInTheOrderOfTheirPoc) {
  HevcBytes stream;
  stream.sets();
  for (int i = 0; i < 4; ++i) stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.messages, "W159 ");
  ASSERT_EQ(video.units.size(), 36u);
  for (size_t i = 0; i < 36; ++i) {
    EXPECT_EQ(video.shown(i), kPyramid[i % 9].second + 9.0 * static_cast<double>(i / 9) + 2);
  }
}

TEST(HevcAnalyser, LeadingPicturesAreShownBeforeTheirRandomAccessPoint) {
  HevcBytes stream;
  stream.sps.ordering[0].maxNumReorderPics = 1;
  stream.sets();
  stream.picture(syntax::kHevcCra, 'I', 8);
  stream.picture(syntax::kHevcRaslN, 'B', 6);
  stream.picture(syntax::kHevcRaslN, 'B', 7);
  stream.picture(syntax::kHevcTrailR, 'P', 9);
  stream.picture(syntax::kHevcTrailR, 'P', 10);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 5u);
  const double order[] = {2, 0, 1, 3, 4};
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(video.shown(i), order[i] + 1) << i;
  EXPECT_TRUE(video.units[0].keyPoint);
}

TEST(HevcAnalyser, ADepthThatGrowsIsToldAndIgnorePocIsAFixedDelay) {
  HevcBytes stream;
  stream.sets();
  std::vector<std::pair<char, int>> plain;
  for (int i = 0; i < 30; ++i) plain.push_back({i == 0 ? 'I' : 'P', i});
  stream.group(plain);
  stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.count("W149"), 1);
  EXPECT_NE(video.texts.find("try IgnorePOC=Yes or HevcReorderDepth=2."), std::string::npos);
  const AnalysedVideo fixed = analyseVideo(stream.bytes, with([](tsm_config&, tsm_video& record) {
                                             record.ignorePoc = true;
                                             record.hevcReorderDepth = 4;
                                           }));
  EXPECT_EQ(fixed.messages, "W159 ");
  for (size_t i = 0; i < fixed.units.size(); ++i) EXPECT_EQ(fixed.shown(i), fixed.decoded(i) + 4);
}

TEST(HevcAnalyser, FieldsOfASequenceOfFieldsAreUnitsOfHalfAFrame) {
  HevcBytes stream;
  stream.sps.vui.fieldSeq = true;
  stream.sps.vui.frameFieldInfoPresent = true;
  stream.sps.vui.timing.timeScale = 50;
  stream.sets();
  for (uint32_t i = 0; i < 8; ++i) {
    stream.timing(0, 0, i % 2 == 0 ? 1 : 2);
    stream.picture(i == 0 ? syntax::kHevcIdrNLp : 1, i == 0 ? 'I' : 'P', i);
  }
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.messages, "W159 ");
  EXPECT_EQ(video.characteristics.framePeriod, kPeriod);
  ASSERT_EQ(video.units.size(), 8u);
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(video.decoded(i), static_cast<double>(i) / 2);
    EXPECT_EQ(video.shown(i), video.decoded(i));
    EXPECT_EQ(video.units[i].fieldStructure, i % 2 == 0 ? 1 : 2);
  }
}

TEST(HevcAnalyser, LevelsAndRatesThatCannotBe) {
  HevcBytes stream;
  stream.sps.profileTierLevel.generalLevelIdc = 94;
  stream.sets();
  stream.group(kPyramid);
  stream.group(kPyramid);
  const AnalysedVideo without = analyseVideo(stream.bytes);
  EXPECT_EQ(without.messages, "F173 W159 ");
  EXPECT_NE(without.texts.find("general_level_idc = 94 is Invalid. Bit rate must"),
            std::string::npos);
  EXPECT_EQ(without.characteristics.bitRate, 12'375'000) << "as of level 4";

  HevcBytes rated;
  rated.sps.profileTierLevel.generalLevelIdc = 94;
  rated.useHrd(2'000'000, 1'000'000);
  rated.sets();
  rated.group(kPyramid);
  EXPECT_EQ(analyseVideo(rated.bytes).messages, "W156 ");

  HevcBytes fast;
  fast.useHrd(1'000'000'000, 100'000'000);
  fast.sets();
  fast.group(kPyramid);
  const AnalysedVideo limited = analyseVideo(fast.bytes);
  EXPECT_EQ(limited.messages, "W157 ");
  EXPECT_EQ(limited.characteristics.bitRate, 880e6);
}

TEST(HevcAnalyser, WithoutARateTheLevelsMaximumLessASixteenthHolds) {
  HevcBytes stream;
  stream.sets();
  stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.characteristics.bitRate, 11e6 - 11e6 / 16);
  EXPECT_EQ(video.characteristics.vbvSize, 11'000'000 / 8 / 2048);
  EXPECT_NE(video.texts.find("used maximum rate 10312500 bps\n"), std::string::npos);
}

TEST(HevcAnalyser, FrameRates) {
  const auto video = [](std::function<void(syntax::HevcTiming&)> change, int code = 0) {
    HevcBytes stream;
    change(stream.sps.vui.timing);
    stream.sets();
    stream.group(kPyramid);
    return analyseVideo(stream.bytes, with([=](tsm_config&, tsm_video& v) { v.frameRate = code; }));
  };
  EXPECT_EQ(video([](syntax::HevcTiming& t) { t.timeScale = 17; }).messages, "W160 W159 ");
  const AnalysedVideo none = video([](syntax::HevcTiming& t) { t.present = false; });
  EXPECT_EQ(none.messages, "W159 ");
  EXPECT_EQ(none.characteristics.frameRateCode, 4);
  const AnalysedVideo told = video([](syntax::HevcTiming& t) { t.present = false; }, 3);
  EXPECT_EQ(told.characteristics.framePeriod, kPeriod);
  ASSERT_EQ(told.pmt.descriptors.size(), 2u) << "the timing that the stream doesn't tell";
  EXPECT_EQ(told.pmt.descriptors[1],
            (std::vector<uint8_t>{0x3F, 7, 3, 0x7F, 0xFF, 0, 0, 0x0E, 0x10}));
}

TEST(HevcAnalyser, TimeCodesComeFromTheirMessage) {
  HevcBytes stream;
  stream.sets();
  for (uint32_t i = 0; i < 30; ++i) {
    if (i % 10 == 0) stream.timeCode(1, 2, 3 + i / 25, i % 25);
    stream.picture(i % 10 == 0 ? syntax::kHevcIdrNLp : 1, i % 10 == 0 ? 'I' : 'P', i % 10);
  }
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 30u);
  EXPECT_TRUE(video.startTimeCode.known);
  EXPECT_EQ(video.startTimeCode.hours, 1);
  EXPECT_EQ(video.units[29].timeCode.seconds, 4);
  EXPECT_EQ(video.units[29].timeCode.frames, 4);
}

TEST(HevcAnalyser, SeiThatCannotBeIsToldOnce) {
  HevcBytes stream;
  stream.sets();
  for (uint32_t i = 0; i < 4; ++i) {
    stream.nal(syntax::kHevcPrefixSei, {1, 200, 1, 2});
    stream.picture(i == 0 ? syntax::kHevcIdrNLp : 1, i == 0 ? 'I' : 'P', i);
  }
  EXPECT_EQ(analyseVideo(stream.bytes).count("W158"), 1);
}

TEST(HevcAnalyser, AStreamMayEndAnywhere) {
  HevcBytes stream;
  stream.sets();
  stream.group(kPyramid);
  test::expectSoundAtAnyEnd(stream.bytes, 120);
}

}  // namespace
}  // namespace zel::mux
