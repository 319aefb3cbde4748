#include "zel/mux/engine/video/avc_analyser.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/analysed_video.h"
#include "tests/unit/mux/engine/video/any_end.h"
#include "tests/unit/mux/engine/video/avc_bytes.h"
#include "zel/mux/engine/clock/tsm_time.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_config;
using Morvalen::Zel::tsm_video;
using test::AnalysedVideo;
using test::analyseVideo;
using test::AvcBytes;
using test::AvcPicture;
using test::VideoFeed;
using test::with;

constexpr double kPeriod = test::kPeriodAt25;

// Twelve frames with the HRD's messages, shown two frames after they are decoded.
AvcBytes timed_stream(uint32_t outputDelay = 4) {
  AvcBytes stream;
  stream.useHrd(2'000'000, 1'000'000);
  for (uint32_t i = 0; i < 12; ++i) {
    stream.delimiter();
    if (i == 0) {
      stream.sets();
      stream.bufferingPeriod(30'000);
    }
    stream.timing(i * 2, outputDelay, 0);
    AvcPicture picture;
    picture.idr = i == 0;
    picture.type = i == 0 ? 'I' : 'P';
    picture.frameNum = i;
    picture.poc = i * 2;
    stream.picture(picture);
  }
  return stream;
}

const std::vector<std::pair<char, int>> kPyramid = {
    {'I', 0}, {'P', 4}, {'B', 2}, {'B', 1}, {'B', 3}, {'P', 8}, {'B', 6}, {'B', 5}, {'B', 7}};

TEST(AvcAnalyser, EveryByteBelongsToAUnitHoweverItComes) {
  const AvcBytes stream = timed_stream();
  const AnalysedVideo whole = analyseVideo(stream.bytes);
  ASSERT_EQ(whole.units.size(), 12u);
  EXPECT_EQ(whole.bytes, stream.bytes);
  EXPECT_EQ(whole.messages, "");
  for (const size_t chunk : {1, 2, 5, 777}) {
    VideoFeed feed = with([](tsm_config& config, tsm_video&) { config.inBufSiz = 5'000; });
    feed.chunk = chunk;
    const AnalysedVideo pieces = analyseVideo(stream.bytes, feed);
    EXPECT_EQ(pieces.bytes, stream.bytes) << chunk;
    ASSERT_EQ(pieces.units.size(), 12u);
    for (size_t i = 0; i < 12; ++i) EXPECT_EQ(pieces.units[i].start, whole.units[i].start);
  }
}

TEST(AvcAnalyser, TellsWhatTheParameterSetsSay) {
  const AnalysedVideo video = analyseVideo(timed_stream().bytes);
  EXPECT_EQ(video.characteristics.coding, video_coding::avc);
  EXPECT_EQ(video.characteristics.width, 720);
  EXPECT_EQ(video.characteristics.height, 576);
  EXPECT_EQ(video.characteristics.bitRate, 2e6);
  EXPECT_EQ(video.characteristics.vbvSize, 1'000'000 / 8 / 2048);
  EXPECT_EQ(video.characteristics.vbvDelay, 30'000);
  EXPECT_EQ(video.characteristics.framePeriod, kPeriod);
  EXPECT_EQ(video.pmt.streamType, 27);
  ASSERT_EQ(video.pmt.descriptors.size(), 1u);
  EXPECT_EQ(video.pmt.descriptors[0], (std::vector<uint8_t>{0x28, 4, 100, 0, 31, 0x3F}));
  EXPECT_EQ(video.firstDts, 30'000 * 300.0);
}

TEST(AvcAnalyser, TheMaskOfAutomaticDescriptorsHasABitForAvc) {
  const AnalysedVideo video =
      analyseVideo(timed_stream().bytes,
                   with([](tsm_config& config, tsm_video&) { config.autoDescrMask = 255 - 32; }));
  EXPECT_TRUE(video.pmt.descriptors.empty());
}

TEST(AvcAnalyser, PictureTimingTellsWhenAPictureIsShown) {
  const AnalysedVideo video = analyseVideo(timed_stream().bytes);
  for (size_t i = 0; i < 12; ++i) {
    EXPECT_EQ(video.decoded(i), static_cast<double>(i));
    EXPECT_EQ(video.shown(i), static_cast<double>(i) + 2);
    EXPECT_TRUE(video.units[i].hasDelimiter);
  }
  EXPECT_TRUE(video.units[0].keyPoint);
  EXPECT_FALSE(video.units[1].keyPoint);
}

TEST(AvcAnalyser, AnOutputDelayTooLongEndsTheUseOfTiming) {
  EXPECT_EQ(analyseVideo(timed_stream(600).bytes).messages, "");
  const AnalysedVideo video = analyseVideo(timed_stream(601).bytes);
  EXPECT_EQ(video.messages, "W67 ");
  EXPECT_NE(video.texts.find("AVC dpb output delay = 601; ignoring"), std::string::npos);
  ASSERT_EQ(video.units.size(), 12u);
  for (size_t i = 0; i < 12; ++i) EXPECT_EQ(video.shown(i), video.decoded(i));
}

TEST(AvcAnalyser, PicturesAreShownInTheOrderOfTheirPoc) {
  AvcBytes stream;
  stream.sets();
  for (int i = 0; i < 4; ++i) stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.messages, "W46 ");
  ASSERT_EQ(video.units.size(), 36u);
  for (size_t i = 0; i < 36; ++i) {
    const double place = kPyramid[i % 9].second + 9.0 * static_cast<double>(i / 9);
    EXPECT_EQ(video.shown(i), place + 2) << i;
    EXPECT_EQ(video.decoded(i), static_cast<double>(i));
  }
  EXPECT_EQ(video.firstPts, video.units[0].pts);
}

TEST(AvcAnalyser, ADepthThatGrowsIsTold) {
  AvcBytes stream;
  stream.sps.vui.bitstreamRestriction = true;
  stream.sps.vui.maxNumReorderFrames = 2;
  stream.sps.vui.maxDecFrameBuffering = 4;
  stream.sets();
  std::vector<std::pair<char, int>> plain;
  for (int i = 0; i < 30; ++i) plain.push_back({i == 0 ? 'I' : 'P', i});
  stream.group(plain);
  stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.count("W74"), 1);
  EXPECT_NE(video.texts.find("try IgnorePOC=Yes or AvcReorderDepth=2."), std::string::npos);
  const AnalysedVideo told = analyseVideo(
      stream.bytes, with([](tsm_config&, tsm_video& record) { record.avcReorderDepth = 2; }));
  EXPECT_EQ(told.count("W74"), 0);
  EXPECT_EQ(told.shown(0), 2);
}

TEST(AvcAnalyser, IgnorePocIsAFixedDelay) {
  AvcBytes stream;
  stream.sets();
  stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(stream.bytes, with([](tsm_config&, tsm_video& record) {
                                             record.ignorePoc = true;
                                             record.avcReorderDepth = 3;
                                           }));
  ASSERT_EQ(video.units.size(), 9u);
  for (size_t i = 0; i < 9; ++i) EXPECT_EQ(video.shown(i), video.decoded(i) + 3);
}

TEST(AvcAnalyser, APocOfZeroOfAPIsBadVideo) {
  AvcBytes stream;
  stream.sets();
  std::vector<std::pair<char, int>> bad;
  for (int i = 0; i < 60; ++i) bad.push_back({i == 0 ? 'I' : 'P', i == 40 ? 0 : i % 30});
  bad[30].second = 29;
  stream.group(bad);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.count("W75"), 1);
  ASSERT_EQ(video.units.size(), 60u);
  for (size_t i = 50; i + 1 < 60; ++i) {
    EXPECT_EQ(video.shown(i + 1) - video.shown(i), 1) << "a fixed delay from there on";
  }
}

TEST(AvcAnalyser, FieldsAreUnitsOfHalfAFrame) {
  AvcBytes stream;
  stream.sps.frameMbsOnly = false;
  stream.sps.picHeightInMapUnits = 18;
  stream.sets();
  const int order[] = {0, 2, 1, 4, 3};
  for (uint32_t frame = 0; frame < 5; ++frame) {
    AvcPicture picture;
    const bool b = frame == 2 || frame == 4;
    picture.type = frame == 0 ? 'I' : b ? 'B' : 'P';
    picture.idr = frame == 0;
    picture.reference = !b;
    picture.frameNum = frame < 2 ? frame : frame == 2 || frame == 3 ? 2 : 3;
    picture.structure = 1;
    picture.poc = static_cast<uint32_t>(order[frame] * 2);
    stream.picture(picture);
    picture.idr = false;
    picture.type = frame == 0 ? 'P' : picture.type;
    picture.structure = 2;
    ++picture.poc;
    stream.picture(picture);
  }
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 10u);
  EXPECT_EQ(video.count("W75"), 0);
  for (size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(video.decoded(i), static_cast<double>(i) / 2);
    EXPECT_EQ(video.shown(i), order[i / 2] + 1 + (i % 2 == 0 ? 0 : 0.5)) << i;
    EXPECT_EQ(video.units[i].fieldStructure, i % 2 == 0 ? 1 : 2);
  }
}

// Both fields of a frame may have one POC; a frame and pairs of fields may take turns.
TEST(AvcAnalyser, FramesAndPairsOfFieldsTakeTurns) {
  AvcBytes stream;
  stream.sps.frameMbsOnly = false;
  stream.sps.mbAdaptiveFrameField = true;
  stream.sps.picHeightInMapUnits = 18;
  stream.sets();
  AvcPicture frame;
  frame.idr = true;
  stream.picture(frame);
  // An anchor and a picture shown before it, each in two fields, then a frame.
  uint32_t frameNum = 1;
  for (const auto& [type, poc] : {std::pair('P', 8u), std::pair('B', 4u)}) {
    AvcPicture field;
    field.type = type;
    field.frameNum = frameNum;
    field.reference = type == 'P';
    field.poc = poc;
    for (const int structure : {1, 2}) {
      field.structure = structure;
      stream.picture(field);
    }
    frameNum = 2;
  }
  AvcPicture last;
  last.type = 'P';
  last.frameNum = 2;
  last.poc = 12;
  stream.picture(last);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 6u);
  const double decoded[] = {0, 1, 1.5, 2, 2.5, 3};
  const double shown[] = {1, 3, 3.5, 2, 2.5, 4};
  const int structures[] = {3, 1, 2, 1, 2, 3};
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(video.decoded(i), decoded[i]) << i;
    EXPECT_EQ(video.shown(i), shown[i]) << i;
    EXPECT_EQ(video.units[i].fieldStructure, structures[i]) << i;
  }
}

TEST(AvcAnalyser, PicStructTellsHowLongAPictureIsShown) {
  constexpr int kFields[] = {2, 2, 2, 2, 2, 3, 3, 4, 6};
  for (uint32_t picStruct : {0u, 3u, 4u, 5u, 6u, 7u, 8u}) {
    AvcBytes stream;
    stream.sps.vui.picStructPresent = true;
    stream.sets();
    for (uint32_t i = 0; i < 4; ++i) {
      stream.timing(0, 0, picStruct);
      AvcPicture picture;
      picture.idr = i == 0;
      picture.type = i == 0 ? 'I' : 'P';
      picture.frameNum = i;
      picture.poc = i * 2;
      stream.picture(picture);
    }
    const AnalysedVideo video = analyseVideo(stream.bytes);
    ASSERT_EQ(video.units.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(video.decoded(i), static_cast<double>(i) * kFields[picStruct] / 2) << picStruct;
      EXPECT_EQ(video.shown(i), video.decoded(i));
    }
  }
}

// Removal and output delay of a picture in ticks of half a frame.
struct ToldTimes {
  char type;
  uint32_t place;  // in display order
  uint32_t removal, output;
};

// An I picture and pyramids of four behind it, as `told` has them and then again, each by `step`
// ticks later.
AvcBytes pyramids(uint32_t picStruct, const std::vector<ToldTimes>& told, uint32_t step) {
  AvcBytes stream;
  stream.useHrd(2'000'000, 1'000'000);
  stream.sps.vui.bitstreamRestriction = true;
  stream.sps.vui.maxNumReorderFrames = 2;
  stream.sps.vui.maxDecFrameBuffering = 4;
  uint32_t frameNum = 0;
  const auto add = [&](const ToldTimes& each, uint32_t round) {
    stream.timing(each.removal + round * step, each.output, picStruct);
    AvcPicture picture;
    picture.type = each.type;
    picture.idr = each.type == 'I';
    picture.reference = each.type != 'B';
    picture.frameNum = frameNum & 0xFF;
    picture.poc = (each.place + 4 * round) * 2 & 0xFF;
    stream.picture(picture);
    if (picture.reference) ++frameNum;
  };
  stream.delimiter();
  stream.sets();
  stream.bufferingPeriod(30'000);
  add(told[0], 0);
  for (uint32_t round = 0; round < 6; ++round) {
    for (size_t i = 1; i < told.size(); ++i) add(told[i], round);
  }
  return stream;
}

// Doubled and trebled frames whose removals stand still or go back, so that an output delay of less
// than the reordering does: every picture has its own time, and none is shown before it's decoded.
TEST(AvcAnalyser, RemovalsThatDoNotGrowLeavePicturesTheirTimesOfDisplay) {
  struct Kind {
    uint32_t picStruct;
    std::vector<ToldTimes> told;
    uint32_t fields;
  };
  const Kind kinds[] = {
      {7, {{'I', 0, 0, 4}, {'P', 4, 4, 16}, {'B', 2, 8, 4}, {'B', 1, 8, 0}, {'B', 3, 16, 0}}, 4},
      {8, {{'I', 0, 0, 4}, {'P', 4, 6, 22}, {'B', 2, 12, 4}, {'B', 1, 10, 0}, {'B', 3, 22, 0}}, 6},
  };
  for (const Kind& kind : kinds) {
    const AvcBytes stream = pyramids(kind.picStruct, kind.told, 4 * kind.fields);
    const AnalysedVideo video = analyseVideo(stream.bytes);
    EXPECT_EQ(video.messages, "");
    ASSERT_EQ(video.units.size(), 25u);
    const double frame = kind.fields / 2.0;
    for (size_t i = 0; i < 25; ++i) {
      const size_t round = i == 0 ? 0 : (i - 1) / 4;
      const size_t place = kind.told[i == 0 ? 0 : (i - 1) % 4 + 1].place + 4 * round;
      // Two frames are reordered.
      EXPECT_EQ(video.shown(i), (static_cast<double>(place) + 2) * frame) << kind.picStruct;
      EXPECT_GE(video.shown(i), video.decoded(i)) << i;
      if (i > 0) {
        EXPECT_GT(video.decoded(i), video.decoded(i - 1)) << i;
      }
    }
    // Nothing is waited for where that is asked for.
    const AnalysedVideo low = analyseVideo(
        stream.bytes, with([](tsm_config&, tsm_video& record) { record.lowLatency = true; }));
    EXPECT_EQ(low.shown(0), 2) << "as told";
    for (size_t i = 0; i < 25; ++i) EXPECT_GE(low.shown(i), low.decoded(i)) << i;
  }
}

// Removals that grow are taken as they are, whatever the frames' own times are.
TEST(AvcAnalyser, RemovalsThatGrowAreKeptWithTheirTimesOfDisplay) {
  const AvcBytes stream = pyramids(
      7, {{'I', 0, 0, 8}, {'P', 4, 3, 21}, {'B', 2, 6, 10}, {'B', 1, 9, 3}, {'B', 3, 14, 6}}, 16);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 25u);
  const double decoded[] = {0, 1.5, 3, 4.5, 7};
  const double shown[] = {4, 12, 8, 6, 10};
  for (size_t i = 0; i < 25; ++i) {
    const size_t at = i == 0 ? 0 : (i - 1) % 4 + 1;
    const double round = i == 0 ? 0 : static_cast<double>((i - 1) / 4) * 8;
    EXPECT_EQ(video.decoded(i), decoded[at] + round) << i;
    EXPECT_EQ(video.shown(i), shown[at] + round) << i;
  }
}

TEST(AvcAnalyser, TimeCodesComeFromPictureTiming) {
  AvcBytes stream;
  stream.sps.vui.picStructPresent = true;
  stream.sets();
  for (uint32_t i = 0; i < 60; ++i) {
    if (i % 30 == 0) stream.timing(0, 0, 0, {1, 2, 3 + i / 25, i % 25});
    AvcPicture picture;
    picture.idr = i % 10 == 0;
    picture.type = picture.idr ? 'I' : 'P';
    picture.frameNum = i % 10;
    picture.poc = i % 10 * 2;
    stream.picture(picture);
  }
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 60u);
  EXPECT_EQ(video.startTimeCode.hours, 1);
  EXPECT_EQ(video.startTimeCode.minutes, 2);
  EXPECT_EQ(video.startTimeCode.seconds, 3);
  EXPECT_EQ(video.units[24].timeCode.frames, 24);
  EXPECT_EQ(video.units[25].timeCode.seconds, 4);
  EXPECT_EQ(video.units[59].timeCode.seconds, 5);
  EXPECT_EQ(video.units[59].timeCode.frames, 9);

  const AnalysedVideo cut = analyseVideo(stream.bytes, with([](tsm_config& config, tsm_video&) {
                                           config.start = {1, 0, 1, 2, 4, 0, 0};
                                           config.end = {1, 0, 1, 2, 5, 5, 0};
                                         }));
  EXPECT_EQ(cut.messages, "W46 ");
  ASSERT_FALSE(cut.units.empty());
  EXPECT_TRUE(cut.units[0].keyPoint) << "picture 30 is the first behind Start to decode from";
  EXPECT_EQ(cut.units[0].timeCode.frames, 5);
  EXPECT_EQ(cut.units.size(), 25u);
}

// A time code a group of twelve pictures, which are shown for fifteen frames.
TEST(AvcAnalyser, TimeCodesNumberTheFramesThatRepeatedFieldsMake) {
  AvcBytes stream;
  stream.sps.vui.picStructPresent = true;
  stream.sps.vui.timing = {true, 1001, 60'000, true};
  stream.sets();
  constexpr uint32_t kPicStructs[] = {5, 4, 6, 3};
  for (uint32_t i = 0; i < 48; ++i) {
    const uint32_t group = i / 12;
    std::vector<uint32_t> clock;
    if (i % 12 == 0) clock = {1, 2, group / 2, group % 2 * 15};
    stream.timing(0, 0, kPicStructs[i % 4], clock);
    AvcPicture picture;
    picture.idr = i % 12 == 0;
    picture.type = picture.idr ? 'I' : 'P';
    picture.frameNum = i % 12;
    picture.poc = i % 12 * 2;
    stream.picture(picture);
  }
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 48u);
  for (size_t i = 0; i < 48; ++i) {
    const size_t frames = (5 * (i / 2) + 3 * (i % 2)) / 2;
    EXPECT_EQ(video.units[i].timeCode.seconds, frames / 30) << i;
    EXPECT_EQ(video.units[i].timeCode.frames, frames % 30) << i;
  }
  const AnalysedVideo cut = analyseVideo(stream.bytes, with([](tsm_config& config, tsm_video&) {
                                           config.start = {1, 0, 1, 2, 0, 5, 0};
                                           config.end = {1, 0, 1, 2, 1, 12, 0};
                                         }));
  ASSERT_EQ(cut.units.size(), 22u);
  EXPECT_EQ(cut.units[0].timeCode.frames, 15);
  EXPECT_EQ(cut.units.back().timeCode.frames, 11);
  for (size_t i = 0; i + 1 < cut.units.size(); ++i) {
    const double period = i % 2 == 0 ? 1.5 : 1;
    EXPECT_NEAR(signed_difference(cut.units[i + 1].dts, cut.units[i].dts), period * 900'900, 1e-3);
  }
}

TEST(AvcAnalyser, ALevelThatIsNotInTheTable) {
  AvcBytes stream;
  stream.sps.levelIdc = 33;
  stream.sets();
  stream.group(kPyramid);
  stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.messages, "F87 W46 ");
  EXPECT_NE(video.texts.find("MPEG-4/h.264/AVC level_idc = 33, not found.\n"), std::string::npos);
  EXPECT_EQ(video.units.size(), 18u);
}

TEST(AvcAnalyser, WithoutARateTheLevelsMaximumLessASixteenthHolds) {
  AvcBytes stream;
  stream.sets();
  stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(stream.bytes);
  // Level 3.1 in High: 14,000 x 1,500.
  EXPECT_EQ(video.characteristics.bitRate, 21e6 - 21e6 / 16);
  EXPECT_EQ(video.characteristics.vbvSize, 21'000'000 / 8 / 2048);
  EXPECT_NE(video.texts.find("used maximum rate 19687500 bps\n"), std::string::npos);
  EXPECT_EQ(video.characteristics.vbvDelay, 50'000);
  const AnalysedVideo told =
      analyseVideo(stream.bytes, with([](tsm_config&, tsm_video& v) { v.rate = 3e6; }));
  EXPECT_EQ(told.messages, "");
  EXPECT_EQ(told.characteristics.bitRate, 3e6);
}

TEST(AvcAnalyser, FrameRatesThatAreNotFixedNotStandardOrNotThere) {
  const auto video = [](std::function<void(syntax::AvcTiming&)> change, int code = 0) {
    AvcBytes stream;
    stream.useHrd(2'000'000, 1'000'000);
    stream.sps.vui.picStructPresent = false;
    change(stream.sps.vui.timing);
    stream.sets();
    stream.group(kPyramid);
    stream.group(kPyramid);
    return analyseVideo(stream.bytes, with([=](tsm_config&, tsm_video& v) { v.frameRate = code; }));
  };
  const AnalysedVideo loose = video([](syntax::AvcTiming& t) { t.fixedFrameRate = false; });
  EXPECT_EQ(loose.messages, "W48 ");
  EXPECT_NE(loose.texts.find("(frame rate ~25 fps)"), std::string::npos);
  const AnalysedVideo odd = video([](syntax::AvcTiming& t) { t.timeScale = 34; });
  EXPECT_EQ(odd.messages, "W76 ");
  EXPECT_NEAR(odd.characteristics.framePeriod, 27e6 / 17, 1e-6);
  EXPECT_EQ(odd.characteristics.frameRateCode, 0);
  for (const auto& gone : {video([](syntax::AvcTiming& t) { t.present = false; }),
                           video([](syntax::AvcTiming& t) { t.timeScale = 0; })}) {
    EXPECT_EQ(gone.messages, "F88 ");
    EXPECT_EQ(gone.characteristics.frameRateCode, 4);
    EXPECT_EQ(gone.units.size(), 18u);
  }
  const AnalysedVideo told = video([](syntax::AvcTiming& t) { t.present = false; }, 3);
  EXPECT_EQ(told.messages, "");
  EXPECT_EQ(told.characteristics.framePeriod, kPeriod);
  ASSERT_EQ(told.pmt.descriptors.size(), 2u) << "the timing that the stream doesn't tell";
  // 90 kHz, a tick is a field.
  EXPECT_EQ(told.pmt.descriptors[1],
            (std::vector<uint8_t>{0x2A, 7, 0x7F, 0xFF, 0, 0, 0x07, 0x08, 0x9F}));
}

TEST(AvcAnalyser, UnitsBeginAsTheStandardSays) {
  AvcBytes stream;
  stream.sets();
  AvcPicture picture;
  picture.idr = true;
  picture.slices = 3;
  stream.picture(picture);
  const auto second = static_cast<int64_t>(stream.bytes.size());
  stream.recoveryPoint();
  picture.idr = false;
  picture.poc = 2;
  stream.picture(picture);
  stream.nal(12, 0, std::vector<uint8_t>(50, 0xFF));  // filler
  const auto third = static_cast<int64_t>(stream.bytes.size());
  picture.type = 'P';
  picture.poc = 4;
  picture.frameNum = 1;
  stream.picture(picture);
  stream.nal(10, 0, {});
  const AnalysedVideo video = analyseVideo(stream.bytes);
  ASSERT_EQ(video.units.size(), 3u);
  EXPECT_EQ(video.units[1].start, second);
  EXPECT_TRUE(video.units[1].keyPoint) << "a recovery point";
  EXPECT_EQ(video.units[2].start, third);
  EXPECT_EQ(video.units[2].pictureType, 2);
  EXPECT_EQ(video.units[2].primaryPicType, 1);
  EXPECT_EQ(video.bytes, stream.bytes);
}

TEST(AvcAnalyser, SeiThatCannotBeIsToldOnce) {
  AvcBytes stream = timed_stream();
  for (int i = 0; i < 3; ++i) {
    stream.nal(6, 0, {1, 200, 1, 2, 3});
    AvcPicture picture;
    picture.type = 'P';
    picture.frameNum = 12 + static_cast<uint32_t>(i);
    picture.poc = 24 + 2 * static_cast<uint32_t>(i);
    stream.picture(picture);
  }
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.messages, "W47 ");
  EXPECT_EQ(video.units.size(), 15u);
}

TEST(AvcAnalyser, ManyPicturesThatWaitForTheirOrderGrowTheBuffer) {
  AvcBytes stream;
  stream.sps.levelIdc = 40;
  stream.sps.picWidthInMbs = 20;
  stream.sps.picHeightInMapUnits = 15;  // sixteen frames may wait
  stream.sets();
  std::vector<std::pair<char, int>> plain;
  for (int i = 0; i < 50; ++i) plain.push_back({i == 0 ? 'I' : 'P', i});
  uint32_t frameNum = 0;
  for (const auto& [type, place] : plain) {
    AvcPicture picture;
    picture.type = type;
    picture.idr = place == 0;
    picture.frameNum = frameNum++;
    picture.poc = static_cast<uint32_t>(place * 2);
    picture.bytes = 200'000;
    stream.picture(picture);
  }
  const AnalysedVideo video = analyseVideo(stream.bytes, with([](tsm_config& config, tsm_video& v) {
                                             config.inBufSiz = 100'000;
                                             v.rate = 1e6;
                                           }));
  EXPECT_EQ(video.units.size(), 50u);
  EXPECT_EQ(video.bytes, stream.bytes);
}

TEST(AvcAnalyser, DelimitersAreInsertedWhereTheyAreMissing) {
  AvcBytes stream;
  stream.sets();
  stream.group(kPyramid);
  const AnalysedVideo video = analyseVideo(
      stream.bytes, with([](tsm_config&, tsm_video& record) { record.insertAvcAud = true; }));
  EXPECT_EQ(video.count("W135"), 1);
  for (size_t i = 0; i < video.units.size(); ++i) {
    EXPECT_EQ(video.units[i].delimiterBytes, 6);
    EXPECT_EQ(video.removals[i].size, video.units[i].size + 6);
  }
  EXPECT_EQ(video.units[0].primaryPicType, 0);
  EXPECT_EQ(video.units[1].primaryPicType, 1);
  EXPECT_EQ(video.units[2].primaryPicType, 2);
}

TEST(AvcAnalyser, TerminationIsNotForAvc) {
  const AnalysedVideo video = analyseVideo(
      timed_stream().bytes, with([](tsm_config& config, tsm_video&) { config.terminate = true; }));
  EXPECT_EQ(video.messages, "W109 ");
}

// The set that the pictures before used is gone by then.
TEST(AvcAnalyser, ASetOfTheSameIdMayReplaceTheOneInUse) {
  AvcBytes stream;
  stream.sets();
  stream.group(kPyramid);
  stream.sps.levelIdc = 40;
  stream.sets();
  stream.group(kPyramid);
  stream.sps.levelIdc = 31;
  stream.sequenceSet();
  const AnalysedVideo video = analyseVideo(stream.bytes);
  EXPECT_EQ(video.units.size(), 18u);
  EXPECT_EQ(video.pmt.descriptors.at(0), (std::vector<uint8_t>{0x28, 4, 100, 0, 31, 0x3F}));
}

TEST(AvcAnalyser, AStreamMayEndAnywhere) {
  const AvcBytes stream = timed_stream();
  test::expectSoundAtAnyEnd(stream.bytes, 160);
}

}  // namespace
}  // namespace zel::mux
