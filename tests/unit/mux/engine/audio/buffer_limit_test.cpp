#include "zel/mux/engine/audio/buffer_limit.h"

#include <gtest/gtest.h>

#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_audio;

tsm_audio record(bool tsm_audio::*model = nullptr) {
  tsm_audio config{};
  config.pesNau = 2;
  if (model != nullptr) config.*model = true;
  return config;
}

audio_characteristics stream(audio_kind kind, int frameSize, int channels = 2) {
  audio_characteristics audio;
  audio.kind = kind;
  audio.frameSize = frameSize;
  audio.channels = channels;
  return audio;
}

int64_t limit(const audio_characteristics& audio, const tsm_audio& config = record()) {
  return find_audio_buffer_limit(audio, config).limit;
}

TEST(AudioBufferLimit, Ac3ByModel) {
  const audio_characteristics ac3 = stream(audio_kind::ac3, 768);
  EXPECT_EQ(limit(ac3, record(&tsm_audio::bdBuf)), 18456);
  EXPECT_EQ(limit(ac3, record(&tsm_audio::atscBuf)), 2408);
  EXPECT_EQ(limit(ac3, record(&tsm_audio::clBuf)), 2408);
  EXPECT_EQ(limit(ac3, record(&tsm_audio::dvbBuf)), 5320);
  EXPECT_EQ(limit(ac3, record(&tsm_audio::a52Y2012Buf)), 4456);
  EXPECT_EQ(limit(ac3), 3400);
}

TEST(AudioBufferLimit, Eac3ByModel) {
  audio_characteristics eac3 = stream(audio_kind::ac3, 768);
  eac3.eac3 = true;
  EXPECT_EQ(limit(eac3, record(&tsm_audio::bdBuf)), 18456);
  EXPECT_EQ(limit(eac3, record(&tsm_audio::clBuf)), 2408);
  EXPECT_EQ(limit(eac3, record(&tsm_audio::atscBuf)), 5000);
  EXPECT_EQ(limit(eac3, record(&tsm_audio::a52Y2012Buf)), 25192);
  EXPECT_EQ(limit(eac3, record(&tsm_audio::dvbBuf)), 3400);  // no row: as all else
}

TEST(AudioBufferLimit, AdtsByChannels) {
  EXPECT_EQ(limit(stream(audio_kind::mpeg, 400, 0)), 1400);
  EXPECT_EQ(limit(stream(audio_kind::mpeg, 400, 1)), 1400);
  EXPECT_EQ(limit(stream(audio_kind::mpeg, 400, 2)), 2456);
  EXPECT_EQ(limit(stream(audio_kind::mpeg, 400, 6)), 6680);
}

TEST(AudioBufferLimit, DtsByExtension) {
  audio_characteristics dts = stream(audio_kind::dts, 5000);
  EXPECT_EQ(limit(dts), 8904);
  EXPECT_EQ(limit(dts, record(&tsm_audio::bdBuf)), 43788);
  dts.dtsExtension = 1;
  EXPECT_EQ(limit(dts), 17630);
  dts.dtsExtension = 2;
  EXPECT_EQ(limit(dts), 66248 - 66248 * 14 / 10000);
}

TEST(AudioBufferLimit, LatmByChannels) {
  EXPECT_EQ(limit(stream(audio_kind::latm, 2000, 2)), 3400);
  EXPECT_EQ(limit(stream(audio_kind::latm, 2000, 3)), 8792);
  EXPECT_EQ(limit(stream(audio_kind::latm, 2000, 8)), 8792);
  EXPECT_EQ(limit(stream(audio_kind::latm, 2000, 9)), 12620);
  EXPECT_EQ(limit(stream(audio_kind::latm, 2000, 12)), 12620);
  EXPECT_EQ(limit(stream(audio_kind::latm, 2000, 13)), 51032 - 51032 * 14 / 4000);
  audio_characteristics dvb = stream(audio_kind::latm, 2000, 6);
  EXPECT_EQ(limit(dvb, record(&tsm_audio::dvbBuf)), 3400);
  dvb.fourChannelObject = true;
  EXPECT_EQ(limit(dvb, record(&tsm_audio::dvbBuf)), 8792);
}

TEST(AudioBufferLimit, SmallFramesLoseRoomToHeaders) {
  // 3400 * 14 / F is 80 at F = 595 and above from 587 on down.
  EXPECT_EQ(limit(stream(audio_kind::latm, 297)), 3400);
  EXPECT_EQ(limit(stream(audio_kind::latm, 293)), 3400 - 81);
  EXPECT_EQ(limit(stream(audio_kind::latm, 1)), 0);
}

TEST(AudioBufferLimit, MpegAudioByBitRateAndFrame) {
  audio_characteristics mpeg = stream(audio_kind::mpeg, 576);
  mpeg.layer = 2;
  mpeg.bitRate = 192000;
  EXPECT_EQ(limit(mpeg), 3304);
  mpeg.bitRate = 1e7;
  EXPECT_EQ(limit(mpeg), 2848);
  mpeg.frameSize = 2112;
  EXPECT_EQ(limit(mpeg), 2848);
  mpeg.frameSize = 2113;
  EXPECT_EQ(limit(mpeg), 2849);
  mpeg.frameSize = 3584;
  EXPECT_EQ(limit(mpeg), 3584);
  EXPECT_FALSE(find_audio_buffer_limit(mpeg, record()).frameTooLarge);
  mpeg.frameSize = 3585;
  EXPECT_TRUE(find_audio_buffer_limit(mpeg, record()).frameTooLarge);
}

TEST(AudioBufferLimit, ConfiguredSizeGoesBeforeAll) {
  tsm_audio config = record(&tsm_audio::bdBuf);
  config.dbSize = 12345;
  EXPECT_EQ(limit(stream(audio_kind::ac3, 768), config), 12345);
  EXPECT_EQ(limit(stream(audio_kind::latm, 1), config), 12345);
}

TEST(AudioFramePeriod, GoesByTheRate) {
  EXPECT_DOUBLE_EQ(audio_frame_period(1536, 48000), 864000);
  EXPECT_NEAR(audio_frame_period(1536, 44100), 940408.163, 0.001);
  EXPECT_DOUBLE_EQ(audio_frame_period(1536, 32000), 1296000);
  EXPECT_NEAR(audio_frame_period(1152, 44100), 705306.122, 0.001);
  EXPECT_NEAR(audio_frame_period(384, 44100), 235102.041, 0.001);
  EXPECT_NEAR(audio_frame_period(1536, 22050), 1880816.327, 0.001);
  EXPECT_EQ(audio_frame_period(1536, 0), 0);
}

}  // namespace
}  // namespace zel::mux
