#include "zel/mux/engine/packet/decoder_limit.h"

#include <gtest/gtest.h>

namespace zel::mux {
namespace {

audio_buffer_choice record(bool audio_buffer_choice::*model = nullptr) {
  audio_buffer_choice choice;
  if (model != nullptr) choice.*model = true;
  return choice;
}

audio_characteristics stream(audio_kind kind, int frameSize, int channels = 2) {
  audio_characteristics audio;
  audio.kind = kind;
  audio.frameSize = frameSize;
  audio.channels = channels;
  return audio;
}

int64_t limit(const audio_characteristics& audio, const audio_buffer_choice& config = record()) {
  return audio_decoder_limit(config, audio, 2).bytes;
}

TEST(AudioBufferLimit, Ac3ByModel) {
  const audio_characteristics ac3 = stream(audio_kind::ac3, 768);
  EXPECT_EQ(limit(ac3, record(&audio_buffer_choice::blurayDisc)), 18456);
  EXPECT_EQ(limit(ac3, record(&audio_buffer_choice::atsc)), 2408);
  EXPECT_EQ(limit(ac3, record(&audio_buffer_choice::cable)), 2408);
  EXPECT_EQ(limit(ac3, record(&audio_buffer_choice::dvb)), 5320);
  EXPECT_EQ(limit(ac3, record(&audio_buffer_choice::a52Year2012)), 4456);
  EXPECT_EQ(limit(ac3), 3400);
}

TEST(AudioBufferLimit, Eac3ByModel) {
  audio_characteristics eac3 = stream(audio_kind::ac3, 768);
  eac3.eac3 = true;
  EXPECT_EQ(limit(eac3, record(&audio_buffer_choice::blurayDisc)), 18456);
  EXPECT_EQ(limit(eac3, record(&audio_buffer_choice::cable)), 2408);
  EXPECT_EQ(limit(eac3, record(&audio_buffer_choice::atsc)), 5000);
  EXPECT_EQ(limit(eac3, record(&audio_buffer_choice::a52Year2012)), 25192);
  EXPECT_EQ(limit(eac3, record(&audio_buffer_choice::dvb)), 3400);  // no row: as all else
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
  EXPECT_EQ(limit(dts, record(&audio_buffer_choice::blurayDisc)), 43788);
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
  EXPECT_EQ(limit(dvb, record(&audio_buffer_choice::dvb)), 3400);
  dvb.fourChannelObject = true;
  EXPECT_EQ(limit(dvb, record(&audio_buffer_choice::dvb)), 8792);
}

TEST(AudioBufferLimit, SmallFramesLoseRoomToHeaders) {
  // 3400 * 14 / F is 80 at F = 595 and above from 587 on down.
  EXPECT_EQ(limit(stream(audio_kind::latm, 297)), 3400);
  EXPECT_EQ(limit(stream(audio_kind::latm, 293)), 3400 - 81);
  EXPECT_EQ(limit(stream(audio_kind::latm, 1)), kLeastLimit);
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
  EXPECT_FALSE(audio_decoder_limit(record(), mpeg, 2).frameTooLarge);
  mpeg.frameSize = 3585;
  EXPECT_TRUE(audio_decoder_limit(record(), mpeg, 2).frameTooLarge);
}

TEST(AudioBufferLimit, ConfiguredSizeGoesBeforeAll) {
  audio_buffer_choice config = record(&audio_buffer_choice::blurayDisc);
  config.dbSize = 12345;
  EXPECT_EQ(limit(stream(audio_kind::ac3, 768), config), 12345);
  EXPECT_EQ(limit(stream(audio_kind::latm, 1), config), 12345);
}

}  // namespace
}  // namespace zel::mux
