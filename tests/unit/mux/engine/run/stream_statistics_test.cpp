#include "zel/mux/engine/run/stream_statistics.h"

#include <gtest/gtest.h>

#include "zel/mux/engine/stream/audio_state.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_stream_stats;

TEST(StreamStatistics, TellWhatTheStreamIs) {
  tsm_stream stream;
  stream.kind = stream_kind::psi;
  stream.set_pid(32);
  stream.program = 2;
  stream.set_rate(15040);
  stream.packetsSent = 7;
  const tsm_stream_stats stats = statistics_of(stream);
  EXPECT_EQ(stats.pid, 32);
  EXPECT_EQ(stats.programNumber, 2);
  EXPECT_EQ(stats.kind, Morvalen::Zel::tsm_stream_psi);
  EXPECT_EQ(stats.streamType, 0);
  EXPECT_STREQ(stats.coding, "tables");
  EXPECT_FALSE(stats.carriesPcr);
  EXPECT_EQ(stats.packets, 7);
  EXPECT_EQ(stats.rate, 15040);
  EXPECT_EQ(stats.bufferLimit, 0);
  EXPECT_FALSE(stats.bufferLowestKnown);
}

TEST(StreamStatistics, TellTheCodingAndTheDecodersBuffer) {
  tsm_stream stream;
  stream.kind = stream_kind::video;
  stream.set(kCarriesPcr);
  stream.pmt.listed = true;
  stream.pmt.streamType = 0x1B;
  auto state = std::make_unique<video_state>();
  state->characteristics.coding = video_coding::avc;
  state->characteristics.bitRate = 4e6;
  state->model.limit = 100000;
  state->model.peak = 90000;
  state->model.lowest = -17;
  state->model.lowestKnown = true;
  stream.buffer = &state->model;
  stream.state = std::move(state);
  const tsm_stream_stats stats = statistics_of(stream);
  EXPECT_STREQ(stats.coding, "AVC");
  EXPECT_EQ(stats.streamType, 0x1B);
  EXPECT_TRUE(stats.carriesPcr);
  EXPECT_EQ(stats.elementaryRate, 4e6);
  EXPECT_EQ(stats.bufferLimit, 100000);
  EXPECT_EQ(stats.bufferPeak, 90000);
  EXPECT_EQ(stats.bufferLowest, -17);
  EXPECT_TRUE(stats.bufferLowestKnown);
}

TEST(StreamStatistics, TheHighestLevelMayBeThePresentOne) {
  tsm_stream stream;
  buffer_model model;
  model.limit = 1000;
  model.peak = 300;
  model.level = 700;
  stream.buffer = &model;
  EXPECT_EQ(statistics_of(stream).bufferPeak, 700);
}

std::string audio_coding(audio_kind kind, int layer, bool eac3, int extension) {
  tsm_stream stream;
  stream.kind = stream_kind::audio;
  auto state = std::make_unique<audio_state>();
  state->characteristics.kind = kind;
  state->characteristics.layer = layer;
  state->characteristics.eac3 = eac3;
  state->characteristics.dtsExtension = extension;
  stream.state = std::move(state);
  return statistics_of(stream).coding;
}

TEST(StreamStatistics, NameEveryAudioCoding) {
  EXPECT_EQ(audio_coding(audio_kind::mpeg, 0, false, 0), "AAC in ADTS");
  EXPECT_EQ(audio_coding(audio_kind::mpeg, 1, false, 0), "MPEG audio layer III");
  EXPECT_EQ(audio_coding(audio_kind::mpeg, 2, false, 0), "MPEG audio layer II");
  EXPECT_EQ(audio_coding(audio_kind::mpeg, 3, false, 0), "MPEG audio layer I");
  EXPECT_EQ(audio_coding(audio_kind::ac3, 0, false, 0), "AC-3");
  EXPECT_EQ(audio_coding(audio_kind::ac3, 0, true, 0), "E-AC-3");
  EXPECT_EQ(audio_coding(audio_kind::dts, 0, false, 0), "DTS");
  EXPECT_EQ(audio_coding(audio_kind::dts, 0, false, 2), "DTS-HD");
  EXPECT_EQ(audio_coding(audio_kind::latm, 0, false, 0), "AAC in LATM");
}

}  // namespace
}  // namespace zel::mux
