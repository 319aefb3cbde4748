#include "zel/mux/engine/packet/stream_rate.h"

#include <gtest/gtest.h>

#include "zel/mux/engine/packet/decoder_limit.h"
#include "zel/mux/engine/packet/first_time_stamp.h"

namespace zel::mux {
namespace {

// Expected figures were each written out term by term, and rounded to 9 places.

TEST(StreamRate, VideoWithOnePesAnAccessUnit) {
  video_rate_inputs in;
  in.bitRate = 4e6;
  in.framesPerSecond = 25;
  EXPECT_NEAR(video_stream_rate(in), (80 * 25 + 72 * 25 + 4e6) * 188 / 184, 1e-6);
  in.padsSmallUnits = true;
  EXPECT_NEAR(video_stream_rate(in), 4003800 * 188.0 / 184 + 1504, 1e-6);
  in.aligned = true;  // instead of the padding
  EXPECT_NEAR(video_stream_rate(in), 4003800 * 188.0 / 184 + 37600, 1e-6);
}

TEST(StreamRate, VideoWithEveryOption) {
  video_rate_inputs in;
  in.bitRate = 8e6;
  in.framesPerSecond = 50;
  in.ptsNpes = 2;
  in.pesNau = 5;
  in.secondLayer = in.insertsDelimiters = in.aligned = in.quadByte = in.hdv = true;
  in.privateData = in.privateExtension = true;
  in.maxPesLength = 2000;
  // stamps 2*80*50/10 = 800; headers 50*72/5 = 720; delimiters 2*6*8*50 = 4800; layer 50*188/5;
  // MaxPESlen 8e6*188/16000 = 94000; aligned 50*1504/5; quad 720; HDV 75200; private 130*400.
  const double expected =
      (800 + 720 + 8e6) * 188 / 184 + 4800 + 1880 + 94000 + 15040 + 720 + 75200 + 52000;
  EXPECT_NEAR(video_stream_rate(in), expected, 1e-6);
}

TEST(StreamRate, AudioByItsOptions) {
  audio_rate_inputs in;
  in.bitRate = 192000;
  in.frameBytes = 576;
  // Headers 192000*14/1152 = 2333.33...
  const double plain = (192000 + 192000.0 * 14 / 1152) * 188 / 184 + 1;
  EXPECT_NEAR(audio_stream_rate(in), plain, 1e-6);
  in.aligned = true;
  EXPECT_NEAR(audio_stream_rate(in), plain + 192000.0 / 1152 * 184, 1e-6);
  in.carriesPcr = true;
  in.pcrPeriod = 40;
  in.privateData = true;
  EXPECT_NEAR(audio_stream_rate(in), plain + 192000.0 / 1152 * 184 + 1801 + 12000, 1e-6);
}

TEST(StreamRate, SmallUnalignedFramesPayForTheirStuffing) {
  audio_rate_inputs in;
  in.bitRate = 32000;
  in.frameBytes = 96;
  const double headers = 32000.0 * 14 / 192;
  const double overhead = 188.0 / 184;
  EXPECT_NEAR(audio_stream_rate(in),
              (32000 + headers) * overhead + 1 + headers * 184 / 192 * overhead, 1e-6);
}

TEST(StreamRate, PcrsAndRounding) {
  EXPECT_EQ(pcr_surcharge(90), 711);
  EXPECT_DOUBLE_EQ(pcr_only_rate(40), 37600);
  EXPECT_EQ(rounded_audio_rate(191901), 192000);
  EXPECT_EQ(rounded_audio_rate(192000), 192000);
}

TEST(DecoderLimit, VideoFromItsVbv) {
  EXPECT_EQ(video_decoder_limit(0, 112, 4e6), 112 * 2048 - 184 - 2000);
  EXPECT_EQ(video_decoder_limit(5000, 112, 4e6), 5000);
  EXPECT_EQ(video_decoder_limit(0, 0, 4e6), kLeastLimit);
}

TEST(DecoderLimit, AudioByTheFirstConditionThatHolds) {
  audio_characteristics audio;
  audio.kind = audio_kind::ac3;
  audio.frameSize = 768;
  audio.bitRate = 192000;
  audio_buffer_choice choice;
  EXPECT_EQ(audio_decoder_limit(choice, audio, 2).bytes, 3400 - 96);
  choice.dvb = true;
  EXPECT_EQ(audio_decoder_limit(choice, audio, 2).bytes, 5320);
  choice.atsc = true;
  EXPECT_EQ(audio_decoder_limit(choice, audio, 2).bytes, 2408);
  audio.eac3 = true;
  EXPECT_EQ(audio_decoder_limit(choice, audio, 2).bytes, 5000);
  choice.blurayDisc = true;
  EXPECT_EQ(audio_decoder_limit(choice, audio, 2).bytes, 18456);
  choice.dbSize = 77777;
  EXPECT_EQ(audio_decoder_limit(choice, audio, 2).bytes, 77777);
}

TEST(DecoderLimit, MpegAudioWithLargeFrames) {
  audio_characteristics audio;
  audio.kind = audio_kind::mpeg;
  audio.layer = 2;
  audio.bitRate = 384000;
  audio.frameSize = 1152;
  EXPECT_EQ(audio_decoder_limit({}, audio, 2).bytes, 3400 - 192);
  audio.frameSize = 2600;
  EXPECT_EQ(audio_decoder_limit({}, audio, 2).bytes, 3336);
  audio.frameSize = 3000;
  EXPECT_EQ(audio_decoder_limit({}, audio, 2).bytes, 3584);
  audio.frameSize = 3585;
  EXPECT_TRUE(audio_decoder_limit({}, audio, 2).frameTooLarge);
  audio.layer = 0;
  audio.channels = 6;
  EXPECT_EQ(audio_decoder_limit({}, audio, 2).bytes, 6 * 1056 + 344);
}

TEST(DecoderLimit, SmallPesPacketsOfLatmCostAShare) {
  audio_characteristics audio;
  audio.kind = audio_kind::latm;
  audio.channels = 2;
  audio.frameSize = 250;
  // 3400 * 14 / 500 = 95, above 80.
  EXPECT_EQ(audio_decoder_limit({}, audio, 2).bytes, 3400 - 95);
  audio.frameSize = 400;
  EXPECT_EQ(audio_decoder_limit({}, audio, 2).bytes, 3400);
}

video_characteristics some_video() {
  video_characteristics video;
  video.coding = video_coding::mpeg2;
  video.framePeriod = 1'080'000;
  video.bitRate = 4e6;
  video.vbvDelay = 20'000;
  return video;
}
constexpr int64_t kLimit = 200'000;  // fills in 10,800,000 ticks at 4 Mb/s

TEST(FirstVideoDts, ByVbvDelay) {
  video_start_inputs in;
  in.delay90k = 100;
  in.leader90k = 10;
  in.streamDelay90k = 1;
  in.startTime = 5000;
  const video_start start = first_video_dts(in, some_video(), kLimit);
  EXPECT_DOUBLE_EQ(start.base, 20'100 * 300);
  EXPECT_DOUBLE_EQ(start.dts, 20'111 * 300 + 5000);
  EXPECT_FALSE(start.holds);
}

TEST(FirstVideoDts, ByTheBuffersFillTimeWithItsCap) {
  video_characteristics video = some_video();
  video.vbvDelay = 65'535;
  EXPECT_DOUBLE_EQ(first_video_dts({}, video, kLimit).dts, 1.08e7);
  EXPECT_DOUBLE_EQ(first_video_dts({}, video, kLimit * 5).dts, 2.6e7);
  video.coding = video_coding::hevc;
  EXPECT_DOUBLE_EQ(first_video_dts({}, video, kLimit * 5).dts, 5.4e7);
  EXPECT_DOUBLE_EQ(first_video_dts({}, video, kLimit * 50).dts, 2.6e8);
  video_start_inputs in;
  in.maxDecodeDelay90k = 30'000;
  EXPECT_DOUBLE_EQ(first_video_dts(in, video, kLimit * 50).dts, 9e6);
  in = {};
  in.maxDelay = true;
  video.vbvDelay = 1000;
  EXPECT_DOUBLE_EQ(first_video_dts(in, video, kLimit).dts, 1.08e7);
}

TEST(FirstVideoDts, ASetTimeStampIsThePtsOfAReorderedStream) {
  video_start_inputs in;
  in.ptsi = 2.7e7;
  in.delay90k = 900;
  video_characteristics video = some_video();
  EXPECT_DOUBLE_EQ(first_video_dts(in, video, kLimit).dts, 2.7e7 + 270'000 - 1'080'000);
  video.lowDelay = true;
  EXPECT_DOUBLE_EQ(first_video_dts(in, video, kLimit).dts, 2.7e7 + 270'000);
  in.notLowDelay = true;
  EXPECT_DOUBLE_EQ(first_video_dts(in, video, kLimit).dts, 2.7e7 + 270'000 - 1'080'000);
}

TEST(FirstVideoDts, LaterStreamsFollowTheFirst) {
  video_start_inputs in;
  in.index = 1;
  in.firstStreamBase = 7e6;
  in.delay90k = 10;
  EXPECT_DOUBLE_EQ(first_video_dts(in, some_video(), kLimit).dts, 7e6 + 3000 - 1'080'000);
  in.independent = true;
  EXPECT_DOUBLE_EQ(first_video_dts(in, some_video(), kLimit).dts, 20'010 * 300 - 1'080'000);
}

TEST(FirstVideoDts, ALateFirstPictureHoldsTheStreamOff) {
  video_start_inputs in;
  in.streamDelay90k = 900'000;
  in.startTime = 1000;
  const video_start start = first_video_dts(in, some_video(), kLimit);
  EXPECT_TRUE(start.holds);
  EXPECT_DOUBLE_EQ(start.holdUntil, 20'000 * 300 + 2.7e8 + 1000 - 1.08e7 - 2.7e6);
}

TEST(FirstVideoDts, ATerminatedStreamStartsOnItsFrameGrid) {
  video_start_inputs in;
  in.terminated = true;
  in.overlap = 5;
  EXPECT_DOUBLE_EQ(first_video_dts(in, some_video(), kLimit).dts, 6 * 1'080'000);
  in.overlap = 15;
  EXPECT_DOUBLE_EQ(first_video_dts(in, some_video(), kLimit).dts, 15 * 1'080'000);
  in.overlap = 61;
  EXPECT_TRUE(first_video_dts(in, some_video(), kLimit).overlapTooLong);
}

audio_characteristics some_audio() {
  audio_characteristics audio;
  audio.kind = audio_kind::mpeg;
  audio.layer = 2;
  audio.bitRate = 192'000;
  audio.period = 648'000;
  audio.frameSize = 576;
  return audio;
}

TEST(FirstAudioPts, FollowsTheVideo) {
  audio_start_inputs in;
  in.hasVideo = true;
  in.videoFirstPts = 1e7;
  in.videoStreamDelay90k = 100;
  in.leader90k = 10;
  in.startTime = 777;
  EXPECT_DOUBLE_EQ(first_audio_pts(in, some_audio(), 3300).pts, 1e7 - 30'000 + 777);
  in.ptsi = 5e6;
  EXPECT_DOUBLE_EQ(first_audio_pts(in, some_audio(), 3300).pts, 5e6 + 3000 + 777);
}

TEST(FirstAudioPts, PreloadsByKindWithoutVideo) {
  audio_characteristics audio = some_audio();
  EXPECT_DOUBLE_EQ(first_audio_pts({}, audio, 3300).pts, 2.16e8 / 192'000 * 3072);
  audio.kind = audio_kind::ac3;
  audio.eac3 = true;
  EXPECT_DOUBLE_EQ(first_audio_pts({}, audio, 3300).pts, 2.16e8 / 192'000 * 5000);
  audio.kind = audio_kind::dts;
  audio.frameSize = 1006;
  EXPECT_DOUBLE_EQ(first_audio_pts({}, audio, 3300).pts, 2.16e8 / 192'000 * 1506);
  audio.kind = audio_kind::latm;
  audio_start_inputs in;
  in.dvbBuf = true;
  EXPECT_DOUBLE_EQ(first_audio_pts(in, audio, 3300).pts, 2.16e8 / 192'000 * 8976);
  audio.bitRate = 0;
  const audio_start start = first_audio_pts(in, audio, 3300);
  EXPECT_TRUE(start.rateMissing);
  EXPECT_DOUBLE_EQ(start.pts, 2.16e8 / 640'000 * 8976);
}

TEST(FirstAudioPts, ASourcesFirstFramesAreLeftOutAndItsGridIsKept) {
  audio_start_inputs in;
  in.hasVideo = true;
  in.followsSource = true;
  // The first of the frames that are at least two periods behind the beginning.
  in.videoFirstPts = -1'400'000;
  audio_start start = first_audio_pts(in, some_audio(), 3300);
  EXPECT_DOUBLE_EQ(start.moved, 5 * 648'000);
  EXPECT_DOUBLE_EQ(start.pts, -1'400'000 + 5 * 648'000);
  EXPECT_FALSE(start.adjustmentFailed);
  in.videoFirstPts = 700'000;
  EXPECT_DOUBLE_EQ(first_audio_pts(in, some_audio(), 3300).moved, 648'000);
  for (const double early : {1'296'000.0, 2'000'000.0, 4e6}) {
    in.videoFirstPts = early;
    start = first_audio_pts(in, some_audio(), 3300);
    EXPECT_DOUBLE_EQ(start.pts, early);
    EXPECT_EQ(start.moved, 0);
  }
  in.sourceSkew = -2 * 2.7e7 - 5;
  EXPECT_EQ(first_audio_pts(in, some_audio(), 3300).skewSeconds, -2);
}

TEST(FirstAudioPts, WithoutAGridTheAdjustmentFails) {
  audio_start_inputs in;
  in.hasVideo = true;
  in.followsSource = true;
  in.videoFirstPts = -5'000;
  audio_characteristics audio = some_audio();
  audio.period = 0;
  const audio_start start = first_audio_pts(in, audio, 3300);
  EXPECT_TRUE(start.adjustmentFailed);
  EXPECT_EQ(start.pts, 0);
}

}  // namespace
}  // namespace zel::mux
