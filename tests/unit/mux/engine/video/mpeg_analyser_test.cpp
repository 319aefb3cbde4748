#include "zel/mux/engine/video/mpeg_analyser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "tests/support/analysed_video.h"
#include "tests/support/seed.h"
#include "tests/unit/mux/engine/video/any_end.h"
#include "tests/unit/mux/engine/video/mpeg_bytes.h"
#include "zel/mux/engine/clock/tsm_time.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_config;
using Morvalen::Zel::tsm_video;
using test::AnalysedVideo;
using test::analyseVideo;
using test::MpegBytes;
using test::MpegPicture;
using test::VideoFeed;
using test::with;

constexpr double kPeriod = test::kPeriodAt25;
constexpr double kField = kPeriod / 2;

// "IPBB": in decoding order, temporal references as display order has them.
void add_pictures(MpegBytes& stream, const std::string& types, size_t bytes = 2'000) {
  int shown = 0;
  for (size_t i = 0; i < types.size(); ++i) {
    MpegPicture picture;
    picture.bytes = bytes;
    size_t following = i + 1;
    while (following < types.size() && types[following] == 'B') ++following;
    if (types[i] == 'B') {
      picture.type = 3;
      picture.temporalReference = shown++ - 1;
    } else {
      picture.type = types[i] == 'I' ? 1 : 2;
      picture.temporalReference = shown++ + static_cast<int>(following - i - 1);
    }
    stream.picture(picture);
  }
}

MpegBytes stream_of(const std::string& types) {
  MpegBytes stream;
  stream.sequence();
  stream.group(1, 2, 3, 4);
  add_pictures(stream, types);
  return stream;
}

double pts_of(const AnalysedVideo& video, size_t index) {
  return signed_difference(video.units[index].pts, video.firstDts);
}
double dts_of(const AnalysedVideo& video, size_t index) {
  return signed_difference(video.units[index].dts, video.firstDts);
}

TEST(MpegAnalyser, EveryByteBelongsToAUnitHoweverItComes) {
  MpegBytes stream = stream_of("IPBBPBB");
  stream.sequence();
  stream.group(1, 2, 4, 0);
  add_pictures(stream, "IBBPBB", 40'000);
  stream.end();
  const AnalysedVideo whole = analyseVideo(stream.bytes);
  ASSERT_EQ(whole.units.size(), 13u);
  EXPECT_EQ(whole.bytes, stream.bytes);
  EXPECT_EQ(whole.messages, "");
  for (const size_t chunk : {1, 2, 3, 7, 1000}) {
    VideoFeed feed = with([](tsm_config& config, tsm_video&) { config.inBufSiz = 60'000; });
    feed.chunk = chunk;
    const AnalysedVideo pieces = analyseVideo(stream.bytes, feed);
    ASSERT_EQ(pieces.units.size(), whole.units.size()) << chunk;
    EXPECT_EQ(pieces.bytes, stream.bytes) << chunk;
    for (size_t i = 0; i < whole.units.size(); ++i) {
      EXPECT_EQ(pieces.units[i].start, whole.units[i].start);
      EXPECT_EQ(pieces.units[i].size, whole.units[i].size);
      EXPECT_EQ(pieces.units[i].pts, whole.units[i].pts);
    }
  }
}

TEST(MpegAnalyser, AUnitBeginsWithItsHeadersAndSaysWhatItIs) {
  MpegBytes stream = stream_of("IP");
  const auto groupAt = static_cast<int64_t>(stream.bytes.size());
  stream.group(1, 2, 4, 0);
  add_pictures(stream, "I");
  stream.end();
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 3u);
  EXPECT_TRUE(video.units[0].keyPoint);
  EXPECT_TRUE(video.units[0].sequenceHeader);
  EXPECT_TRUE(video.units[0].gop);
  EXPECT_EQ(video.units[0].pictureStart, 12 + 10 + 8);
  EXPECT_FALSE(video.units[1].gop);
  EXPECT_EQ(video.units[1].pictureStart, 0);
  EXPECT_EQ(video.units[1].pictureType, 2);
  EXPECT_EQ(video.units[2].start, groupAt);
  EXPECT_TRUE(video.units[2].gop);
  EXPECT_FALSE(video.units[2].keyPoint) << "nobody can start to decode without a sequence header";
  EXPECT_EQ(video.units[2].start + video.units[2].size, int64_t(stream.bytes.size()))
      << "the sequence's end belongs to the last picture";
}

TEST(MpegAnalyser, TellsWhatTheHeadersSay) {
  MpegBytes stream = stream_of("IPBB");
  const AnalysedVideo video = analyseVideo(stream.bytes);
  const video_characteristics& found = video.characteristics;
  EXPECT_EQ(found.coding, video_coding::mpeg2);
  EXPECT_EQ(found.width, 720);
  EXPECT_EQ(found.height, 576);
  EXPECT_EQ(found.bitRate, 4e6);
  EXPECT_EQ(found.vbvSize, 112);
  EXPECT_EQ(found.vbvDelay, 20'000);
  EXPECT_EQ(found.framePeriod, kPeriod);
  EXPECT_EQ(found.frameRate, 25);
  EXPECT_EQ(found.profile, 4);
  EXPECT_EQ(found.level, 8);
  EXPECT_EQ(video.pmt.streamType, 2);
  EXPECT_TRUE(video.pmt.listed);
  EXPECT_EQ(video.pesId, 0xE0);
  EXPECT_EQ(video.firstDts, 20'000 * 300.0) << "the first vbv_delay";
}

TEST(MpegAnalyser, Mpeg1HasNoExtensions) {
  MpegBytes stream;
  stream.mpeg2 = false;
  stream.bitRate400 = 0x3FFFF;
  stream.vbvSize = 20;
  stream.sequence();
  add_pictures(stream, "IPP");
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.characteristics.coding, video_coding::mpeg1);
  EXPECT_EQ(video.characteristics.bitRate, 3e6) << "a variable rate is not told";
  EXPECT_EQ(video.pmt.streamType, 1);
  EXPECT_EQ(video.units.size(), 3u);
  EXPECT_EQ(video.messages, "");
}

TEST(MpegAnalyser, DefaultsStandInForWhatIsNotTold) {
  MpegBytes stream;
  stream.bitRate400 = 0;
  stream.vbvSize = 0;
  stream.sequence();
  MpegPicture picture;
  picture.vbvDelay = 0;
  stream.picture(picture);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.characteristics.bitRate, 3e6);
  EXPECT_EQ(video.characteristics.vbvSize, 112);
  EXPECT_EQ(video.characteristics.vbvDelay, 50'000);
}

TEST(MpegAnalyser, AVbvDelayNotToldStaysAndTheBufferFillsFirst) {
  MpegBytes stream;
  stream.sequence();
  MpegPicture picture;
  picture.vbvDelay = 0xFFFF;
  stream.picture(picture);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.characteristics.vbvDelay, 65'535);
  const double fill = static_cast<double>(video.limit) * 2.16e8 / 4e6;
  EXPECT_NEAR(video.firstDts, std::min(fill, 2.6e7), 1e-3);
}

TEST(MpegAnalyser, AnAnchorIsShownWhenTheNextIsDecoded) {
  const AnalysedVideo video = analyseVideo(stream_of("IPBBPBB").bytes);
  ASSERT_EQ(video.units.size(), 7u);
  for (size_t i = 0; i < 7; ++i) EXPECT_EQ(dts_of(video, i), static_cast<double>(i) * kPeriod);
  EXPECT_EQ(pts_of(video, 0), 1 * kPeriod);
  EXPECT_EQ(pts_of(video, 1), 4 * kPeriod);
  EXPECT_EQ(pts_of(video, 2), 2 * kPeriod);
  EXPECT_EQ(pts_of(video, 3), 3 * kPeriod);
  EXPECT_EQ(pts_of(video, 4), 7 * kPeriod) << "with one more anchor it would be shown then";
  EXPECT_EQ(video.firstPts, video.units[0].pts);
}

TEST(MpegAnalyser, RemovalEventsAreTheUnits) {
  const AnalysedVideo video = analyseVideo(stream_of("IPBBPBB").bytes);
  ASSERT_EQ(video.removals.size(), video.units.size());
  for (size_t i = 0; i < video.units.size(); ++i) {
    EXPECT_EQ(video.removals[i].time, video.units[i].dts);
    EXPECT_EQ(video.removals[i].size, video.units[i].size);
  }
}

TEST(MpegAnalyser, FieldsOfAFrameAreShownHalfAPeriodApart) {
  MpegBytes stream;
  stream.sequence();
  const auto pair = [&](int first, int second) {
    MpegPicture picture;
    picture.type = first;
    picture.structure = 1;
    stream.picture(picture);
    picture.type = second;
    picture.structure = 2;
    stream.picture(picture);
  };
  pair(1, 2);
  pair(2, 2);
  pair(3, 3);
  pair(2, 2);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 8u);
  for (size_t i = 0; i < 8; ++i) EXPECT_EQ(dts_of(video, i), static_cast<double>(i) * kField);
  const double shown[] = {2, 3, 6, 7, 4, 5, 8, 9};
  for (size_t i = 0; i < 8; ++i) EXPECT_EQ(pts_of(video, i), shown[i] * kField) << i;
}

// In the order of display each picture lasts as long as its fields say, whatever the types are.
TEST(MpegAnalyser, RepeatedFieldsLeaveNoGapInTheDisplay) {
  std::mt19937_64 random(test::testSeed());
  for (int round = 0; round < 60; ++round) {
    MpegBytes stream;
    stream.progressive = random() % 3 == 0;
    stream.sequence();
    const int anchors = 8 + static_cast<int>(random() % 8);
    std::vector<int> fields;  // in decoding order
    const auto add = [&](int type) {
      MpegPicture picture;
      picture.type = type;
      picture.bytes = 100;
      picture.repeatFirstField = random() % 2 == 0;
      picture.topFieldFirst = random() % 2 == 0;
      const int repeated = stream.progressive ? (picture.topFieldFirst ? 6 : 4) : 3;
      fields.push_back(picture.repeatFirstField ? repeated : 2);
      stream.picture(picture);
    };
    for (int i = 0; i < anchors; ++i) {
      add(i == 0 ? 1 : 2);
      for (uint64_t b = i == 0 ? 0 : random() % 3; b > 0; --b) add(3);
    }
    const AnalysedVideo video = analyseVideo(stream.bytes);
    ASSERT_EQ(video.units.size(), fields.size());
    std::vector<std::pair<double, int>> shown;
    for (size_t i = 0; i < fields.size(); ++i) shown.push_back({pts_of(video, i), fields[i]});
    std::sort(shown.begin(), shown.end());
    for (size_t i = 0; i + 1 < shown.size(); ++i) {
      ASSERT_EQ(shown[i + 1].first - shown[i].first, shown[i].second * kField) << i;
    }
    for (size_t i = 0; i < fields.size(); ++i) EXPECT_GE(pts_of(video, i), dts_of(video, i));
  }
}

TEST(MpegAnalyser, LowDelayShowsAtOnceUnlessToldOtherwise) {
  MpegBytes stream;
  stream.lowDelay = true;
  stream.sequence();
  add_pictures(stream, "IPPP");
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 4u);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(video.units[i].pts, video.units[i].dts);

  const AnalysedVideo told =
      analyseVideo(stream.bytes, with([](tsm_config&, tsm_video& v) { v.notLowDelay = true; }));
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(pts_of(told, i), dts_of(told, i) + kPeriod);
}

TEST(MpegAnalyser, BPicturesEndLowDelay) {
  MpegBytes stream;
  stream.lowDelay = true;
  stream.sequence();
  add_pictures(stream, "IPBB");
  EXPECT_EQ(analyseVideo(stream.bytes).messages, "W20 ");

  MpegBytes late;
  late.lowDelay = true;
  late.sequence();
  add_pictures(late, "IPPPPPPPPPPPPP", 30'000);  // more than discovery sees
  add_pictures(late, "PBB");
  EXPECT_EQ(analyseVideo(late.bytes).messages, "W57 ");
}

TEST(MpegAnalyser, LowLatencyDoesNotWaitForTheNextAnchor) {
  const AnalysedVideo video =
      analyseVideo(stream_of("IPBB").bytes, with([](tsm_config&, tsm_video& record) {
                     record.lowLatency = true;
                     record.numBFrames = 2;
                   }));
  ASSERT_EQ(video.units.size(), 4u);
  EXPECT_EQ(pts_of(video, 0), 3 * kPeriod);
  EXPECT_EQ(pts_of(video, 1), 4 * kPeriod);
  EXPECT_EQ(pts_of(video, 2), 2 * kPeriod);
}

TEST(MpegAnalyser, StillPicturesComeAtTheirSpacing) {
  MpegBytes stream;
  stream.sequence();
  for (int i = 0; i < 3; ++i) stream.picture({});
  const AnalysedVideo video = analyseVideo(
      stream.bytes, with([](tsm_config&, tsm_video& record) { record.stillPicSpacing = 50; }));
  ASSERT_EQ(video.units.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(dts_of(video, i), static_cast<double>(i) * 50 * kPeriod);
    EXPECT_EQ(video.units[i].pts, video.units[i].dts);
  }
}

TEST(MpegAnalyser, TellsEachChangeOnce) {
  MpegBytes stream = stream_of("IP");
  stream.bitRate400 = 12'500;
  stream.vbvSize = 100;
  stream.sequence();
  add_pictures(stream, "IP");
  stream.sequence();
  add_pictures(stream, "IP");
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.count("W35"), 1);
  EXPECT_EQ(video.count("W36"), 1);
  EXPECT_NE(video.texts.find("Video bit rate changed to 5000000\n"), std::string::npos);
  EXPECT_NE(video.texts.find("VBV size changed to 100\n"), std::string::npos);
}

TEST(MpegAnalyser, AChangedFrameRateAppliesUnlessItIsConfigured) {
  MpegBytes stream = stream_of("IP");
  stream.frameRateCode = 6;
  stream.sequence();
  add_pictures(stream, "IPP");
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 5u);
  EXPECT_EQ(dts_of(video, 4) - dts_of(video, 3), 540'000);
  const AnalysedVideo fixed =
      analyseVideo(stream.bytes, with([](tsm_config&, tsm_video& v) { v.frameRate = 3; }));
  EXPECT_EQ(dts_of(fixed, 4) - dts_of(fixed, 3), kPeriod);
}

TEST(MpegAnalyser, TheConfiguredFrameRateWins) {
  MpegBytes stream;
  stream.frameRateCode = 4;
  stream.sequence();
  add_pictures(stream, "IPP");
  EXPECT_EQ(analyseVideo(stream.bytes).characteristics.framePeriod, 900'900);
  const AnalysedVideo video =
      analyseVideo(stream.bytes, with([](tsm_config&, tsm_video& v) { v.frameRate = 3; }));
  EXPECT_EQ(video.characteristics.framePeriod, kPeriod);
  EXPECT_EQ(video.characteristics.frameRateCode, 3);
  EXPECT_EQ(dts_of(video, 1), kPeriod);
}

TEST(MpegAnalyser, APairOfNumbersIsAFrameRateUnlessItIsIncompleteOrBesideACode) {
  MpegBytes stream;
  stream.sequence();
  add_pictures(stream, "IPP");
  const auto period = [&](int code, int numerator, int denominator, const char* messages) {
    const AnalysedVideo video =
        analyseVideo(stream.bytes, with([=](tsm_config&, tsm_video& record) {
                       record.frameRate = code;
                       record.frameRateNumerator = numerator;
                       record.frameRateDenominator = denominator;
                     }));
    EXPECT_EQ(video.messages, messages);
    return video.characteristics.framePeriod;
  };
  EXPECT_EQ(period(0, 30000, 1001, ""), 900'900);
  EXPECT_EQ(period(0, 12, 1, ""), 2'250'000);
  EXPECT_EQ(period(0, 30000, 0, "W113 "), kPeriod);
  EXPECT_EQ(period(0, 0, 1001, "W113 "), kPeriod);
  EXPECT_EQ(period(5, 25, 1, "W114 "), 900'000);
}

TEST(MpegAnalyser, IllegalCodesAreToldAndReplaced) {
  for (const uint32_t code : {0u, 9u, 15u}) {
    MpegBytes stream;
    stream.frameRateCode = code;
    stream.sequence();
    add_pictures(stream, "IP");
    stream.sequence();
    add_pictures(stream, "IP");
    const AnalysedVideo video = analyseVideo(stream.bytes);
    EXPECT_EQ(video.messages, "F59 ");
    EXPECT_EQ(video.characteristics.frameRateCode, 4);
    EXPECT_EQ(video.units.size(), 4u);
  }
  for (const int type : {0, 4, 5, 7}) {
    MpegBytes stream = stream_of("I");
    MpegPicture picture;
    picture.type = type;
    stream.picture(picture);
    const AnalysedVideo video = analyseVideo(stream.bytes);
    EXPECT_EQ(video.messages, "F58 ");
    ASSERT_EQ(video.units.size(), 2u);
    EXPECT_EQ(video.units[1].pictureType, 1);
  }
  MpegBytes onlyDc;
  onlyDc.sequence();
  MpegPicture picture;
  picture.type = 4;
  onlyDc.picture(picture);
  EXPECT_EQ(analyseVideo(onlyDc.bytes).messages, "") << "a D picture may come first";
}

TEST(MpegAnalyser, ASequenceExtensionDoesNotComeLater) {
  MpegBytes stream;
  stream.mpeg2 = false;
  stream.sequence();
  add_pictures(stream, "IP");
  stream.mpeg2 = true;
  stream.sequence();
  add_pictures(stream, "IP");
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.count("F57"), 1);
  EXPECT_EQ(video.units.size(), 4u);
}

TEST(MpegAnalyser, ProfileAndLevelLimitTheBuffer) {
  MpegBytes large;
  large.vbvSize = 113;
  large.sequence();
  large.picture({});
  const AnalysedVideo video = analyseVideo(large.bytes);
  EXPECT_EQ(video.messages, "W29 ");
  EXPECT_NE(video.texts.find("Video vbv_size (113) > allowed by profile & level\n"),
            std::string::npos);
  MpegBytes reserved;
  reserved.profileLevel = 0x78;
  reserved.sequence();
  reserved.picture({});
  EXPECT_EQ(analyseVideo(reserved.bytes).messages, "F77 ");
}

TEST(MpegAnalyser, AUnitBeyondTheDecodersBufferIsToldAndGoesOn) {
  MpegBytes stream;
  stream.sequence();
  MpegPicture picture;
  picture.bytes = 300'000;
  stream.picture(picture);
  stream.picture({});
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.messages, "F55 ");
  EXPECT_EQ(video.bytes, stream.bytes) << "the input's buffer has grown";
}

TEST(MpegAnalyser, ABufferSizedForBlocksMustHoldTheVbv) {
  const MpegBytes stream = stream_of("IPP");
  const AnalysedVideo video = analyseVideo(stream.bytes, with([](tsm_config& config, tsm_video&) {
                                             config.blockProcess = true;
                                             config.inBufSiz = 20'000;
                                           }));
  EXPECT_EQ(video.messages, "F61 ");
}

TEST(MpegAnalyser, WithoutASequenceHeaderNothingIsAcquired) {
  const std::vector<uint8_t> junk(1'100'000, 0x5A);
  EXPECT_EQ(analyseVideo({}).messages, "F23 ");
  EXPECT_EQ(analyseVideo(std::span(junk).first(4)).messages, "F23 ");
  std::vector<uint8_t> late = junk;
  const MpegBytes stream = stream_of("IPBB");
  late.insert(late.end(), stream.bytes.begin(), stream.bytes.end());
  const AnalysedVideo never = analyseVideo(late);
  EXPECT_EQ(never.messages, "F23 ");
  EXPECT_FALSE(never.started);
  EXPECT_FALSE(never.pmt.listed);

  late.erase(late.begin(), late.begin() + 200'000);
  const AnalysedVideo found = analyseVideo(late);
  EXPECT_EQ(found.messages, "");
  EXPECT_EQ(found.units.size(), 4u);
  EXPECT_EQ(found.bytes, stream.bytes) << "what stands before the first header is left out";
}

TEST(MpegAnalyser, HeadersWithoutPicturesAreNoVideo) {
  MpegBytes stream;
  for (int i = 0; i < 10; ++i) stream.sequence();
  EXPECT_EQ(analyseVideo(stream.bytes).messages, "F23 ");
}

TEST(MpegAnalyser, AStreamMayEndAnywhere) {
  const MpegBytes stream = stream_of("IPBB");
  test::expectSoundAtAnyEnd(stream.bytes, 120);
}

TEST(MpegAnalyser, OtherKindsOfStreamAreToldByTheirLook) {
  MpegBytes stream = stream_of("IPPPPPPP");
  std::vector<uint8_t> packets;
  for (size_t at = 0; at + 184 <= stream.bytes.size(); at += 184) {
    packets.insert(packets.end(), {0x47, 0x01, 0x00, 0x10});
    packets.insert(packets.end(), stream.bytes.begin() + static_cast<ptrdiff_t>(at),
                   stream.bytes.begin() + static_cast<ptrdiff_t>(at + 184));
  }
  EXPECT_EQ(analyseVideo(packets).count("W88"), 1);

  std::vector<uint8_t> system{0, 0, 1, 0xBA, 0x44, 0, 4, 0, 4, 1, 0, 0, 3, 0xF8};
  system.insert(system.end(), {0, 0, 1, 0xE0, 0x10, 0, 0x80, 0, 0});
  system.insert(system.end(), stream.bytes.begin(), stream.bytes.end());
  EXPECT_EQ(analyseVideo(system).count("W144"), 1);
  EXPECT_EQ(analyseVideo(stream.bytes).messages, "");
}

TEST(MpegAnalyser, ATimeCodeIsThatOfTheGroupAndThePlaceInIt) {
  MpegBytes stream;
  stream.sequence();
  stream.group(9, 59, 59, 24);
  add_pictures(stream, "IPBB");
  stream.group(12, 0, 0, 0);
  add_pictures(stream, "IBB");
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 7u);
  const auto text = [&](size_t index) {
    const video_time_code& code = video.units[index].timeCode;
    return std::to_string(code.hours) + ":" + std::to_string(code.minutes) + ":" +
           std::to_string(code.seconds) + ":" + std::to_string(code.frames);
  };
  EXPECT_EQ(text(0), "9:59:59:24");
  EXPECT_EQ(text(1), "10:0:0:2");
  EXPECT_EQ(text(2), "10:0:0:0");
  EXPECT_EQ(text(3), "10:0:0:1");
  EXPECT_EQ(text(4), "12:0:0:2");
  EXPECT_EQ(text(5), "12:0:0:0");
  EXPECT_TRUE(video.startTimeCode.known);
  EXPECT_EQ(video.startTimeCode.hours, 9);
  EXPECT_EQ(video.startTimeCode.frames, 24);
}

MpegBytes groups_of_a_second(int count) {
  MpegBytes stream;
  for (int second = 0; second < count; ++second) {
    stream.sequence();
    stream.group(10, 0, second, 0);
    add_pictures(stream, "IPBBPBBPBBPBBPBBPBBPBBPBB", 500);
  }
  return stream;
}

TEST(MpegAnalyser, StartAndEndCutByTimeCode) {
  const MpegBytes stream = groups_of_a_second(8);
  const AnalysedVideo video = analyseVideo(stream.bytes, with([](tsm_config& config, tsm_video&) {
                                             config.start = {1, 0, 10, 0, 2, 0, 0};
                                             config.end = {1, 0, 10, 0, 5, 0, 0};
                                           }));
  EXPECT_EQ(video.messages, "");
  ASSERT_EQ(video.units.size(), 75u);
  EXPECT_EQ(video.units[0].timeCode.seconds, 2);
  EXPECT_TRUE(video.units[0].keyPoint);
  EXPECT_EQ(video.units.back().timeCode.seconds, 4);
  EXPECT_EQ(dts_of(video, 0), 0) << "what is left out takes no time";
  EXPECT_EQ(video.startTimeCode.seconds, 2);
}

// Twelve pictures of two and three fields in turn: fifteen frames.
MpegBytes telecined_groups(int count) {
  constexpr int kCoded[] = {0, 3, 1, 2, 6, 4, 5, 9, 7, 8, 11, 10};
  MpegBytes stream;
  stream.frameRateCode = 4;
  for (int group = 0; group < count; ++group) {
    stream.sequence();
    stream.group(10, 0, group / 2, group % 2 * 15);
    for (const int place : kCoded) {
      stream.picture({.type = place == 0                      ? 1
                              : place % 3 == 0 || place == 11 ? 2
                                                              : 3,
                      .temporalReference = place,
                      .topFieldFirst = place % 4 == 0 || place % 4 == 3,
                      .repeatFirstField = place % 2 == 0,
                      .bytes = 500});
    }
  }
  return stream;
}

TEST(MpegAnalyser, TimeCodesNumberTheFramesThatRepeatedFieldsMake) {
  const AnalysedVideo video = analyseVideo(telecined_groups(4).bytes);
  ASSERT_EQ(video.units.size(), 48u);
  // As coded; the eleventh picture is coded before the tenth, and its time is foreseen.
  const int frames[] = {0, 4, 1, 2, 7, 5, 6, 11, 9, 10, 13, 12};
  for (size_t i = 0; i < 48; ++i) {
    EXPECT_EQ(video.units[i].timeCode.seconds, i / 24) << i;
    EXPECT_EQ(video.units[i].timeCode.frames, frames[i % 12] + (i / 12 % 2 == 0 ? 0 : 15)) << i;
  }
}

TEST(MpegAnalyser, CutsInsideAGroupOfRepeatedFieldsComeWhereTheFramesAre) {
  const MpegBytes stream = telecined_groups(8);
  const AnalysedVideo video = analyseVideo(stream.bytes, with([](tsm_config& config, tsm_video&) {
                                             config.start = {1, 0, 10, 0, 1, 5, 0};
                                             config.end = {1, 0, 10, 0, 2, 12, 0};
                                           }));
  EXPECT_EQ(video.messages, "");
  // A group, and of the next the ten pictures that are shown for twelve frames and a half.
  ASSERT_EQ(video.units.size(), 22u);
  EXPECT_TRUE(video.units[0].keyPoint);
  EXPECT_EQ(video.units[0].timeCode.frames, 15);
  EXPECT_EQ(video.units.back().timeCode.frames, 10);
}

TEST(MpegAnalyser, CutsThatAreNotSeenAreTold) {
  const MpegBytes stream = groups_of_a_second(3);
  const auto messages = [&](int start, int end) {
    return analyseVideo(stream.bytes, with([=](tsm_config& config, tsm_video&) {
                          if (start >= 0) config.start = {1, 0, 10, 0, start, 0, 0};
                          if (end >= 0) config.end = {1, 0, 10, 0, end, 0, 0};
                        }))
        .messages;
  };
  EXPECT_EQ(messages(1, 2), "");
  EXPECT_EQ(messages(-1, 30), "W86 ");
  EXPECT_EQ(messages(30, -1), "W87 ");
  EXPECT_EQ(messages(30, 40), "W87 W86 ");
}

TEST(MpegAnalyser, AccessUnitInformationIsDescribed) {
  const MpegBytes stream = stream_of("IPBB");
  const AnalysedVideo video = analyseVideo(
      stream.bytes, with([](tsm_config&, tsm_video& record) { record.auInfo = true; }));
  ASSERT_EQ(video.pmt.descriptors.size(), 1u);
  EXPECT_EQ(video.pmt.descriptors[0], (std::vector<uint8_t>{0x70, 1, 2}));
  const AnalysedVideo none = analyseVideo(stream.bytes, with([](tsm_config& config, tsm_video& v) {
                                            v.auInfo = true;
                                            config.autoDescrMask = 0x3F;
                                          }));
  EXPECT_TRUE(none.pmt.descriptors.empty());
}

TEST(MpegAnalyser, AsManyUnitsWaitAsAreAskedFor) {
  MpegBytes stream;
  stream.sequence();
  add_pictures(stream, "IPBBPBBPBB");
  const auto waiting = [](int32_t units) {
    return with([units](tsm_config&, tsm_video& record) { record.auDepth = units; });
  };
  EXPECT_EQ(analyseVideo(stream.bytes, waiting(0)).leastWaiting, 2u) << "I waits for P";
  const AnalysedVideo five = analyseVideo(stream.bytes, waiting(5));
  EXPECT_EQ(five.leastWaiting, 5u);
  EXPECT_EQ(five.messages, "");
  EXPECT_EQ(five.units.size(), 10u);
  EXPECT_EQ(analyseVideo(stream.bytes, waiting(10)).messages, "");
  const AnalysedVideo eleven = analyseVideo(stream.bytes, waiting(11));
  EXPECT_EQ(eleven.messages, "W137 ");
  EXPECT_EQ(eleven.bytes, stream.bytes);
  EXPECT_EQ(analyseVideo(stream.bytes, waiting(INT32_MAX)).messages, "W137 ");
}

TEST(MpegAnalyser, KeysThatExcludeEachOther) {
  const MpegBytes stream = stream_of("I");
  const auto messages = [&](int length, bool align) {
    return analyseVideo(stream.bytes, with([=](tsm_config&, tsm_video& record) {
                          record.maxPesLen = length;
                          record.pesAlign = align;
                        }))
        .messages;
  };
  EXPECT_EQ(messages(1000, false), "");
  EXPECT_EQ(messages(100, false), "");
  EXPECT_EQ(messages(1000, true), "F75 ");
  EXPECT_EQ(messages(183, true), "F76 ");
}

}  // namespace
}  // namespace zel::mux
