#include "zel/mux/engine/input/stream_content.h"

#include <gtest/gtest.h>

#include <random>
#include <string_view>
#include <vector>

#include "tests/support/plain_transport_stream.h"
#include "tests/support/seed.h"
#include "tests/unit/syntax/avc_test_writer.h"
#include "tests/unit/syntax/hevc_test_writer.h"
#include "zel/base/annex_b.h"

namespace Morvalen::Zel {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes one, const Bytes& other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

Bytes text(std::string_view characters) {
  return {characters.begin(), characters.end()};
}

// `size` bytes, of which the first are `header`; what fills it is no sync word.
Bytes frame(Bytes header, size_t size) {
  header.resize(size, 0x21);
  return header;
}

Bytes times(int count, const Bytes& piece) {
  Bytes all;
  for (int i = 0; i < count; ++i) all = std::move(all) + piece;
  return all;
}

Bytes layer2() {
  return frame({0xFF, 0xFD, 0x84, 0x00}, 384);
}  // 128 kb/s at 48 kHz
Bytes layer3() {
  return frame({0xFF, 0xFB, 0x94, 0x00}, 384);
}  // 128 kb/s at 48 kHz
Bytes adts() {
  return frame({0xFF, 0xF1, 0x4C, 0x80, 0x20, 0x1F, 0xFC}, 256);
}
Bytes latm() {
  return frame({0x56, 0xE0, 0xFD}, 256);
}
Bytes ac3() {
  return frame({0x0B, 0x77, 0, 0, 0x14, 0x40, 0x43, 0xE1, 0, 0}, 768);
}
Bytes eac3() {
  return frame({0x0B, 0x77, 0x01, 0x7F, 0x34, 0x87, 0x20, 0, 0, 0}, 768);
}
Bytes dts() {
  return frame({0x7F, 0xFE, 0x80, 0x01, 0xFC, 0x3C, 0x3F, 0xF0, 0xB5, 0xE0}, 1024);
}

Bytes unit(uint8_t code, const Bytes& payload) {
  return Bytes{0, 0, 1, code} + payload;
}

Bytes annexB(const Bytes& header, const Bytes& rbsp) {
  Bytes out = Bytes{0, 0, 0, 1} + header;
  zel::base::appendEmulationPrevention(rbsp, out);
  return out;
}

Bytes avc() {
  zel::test::RandomFields random(1);
  zel::test::HeaderBits bits;
  zel::test::writeSps(bits, zel::test::randomSps(random));
  return annexB({0x09}, {0xF0}) + annexB({0x67}, bits.rbsp()) + annexB({0x65}, Bytes(200, 0x55));
}

Bytes hevc() {
  zel::test::RandomFields random(2);
  zel::test::HeaderBits bits;
  zel::test::writeSps(bits, zel::test::randomHevcSps(random));
  return annexB({0x42, 0x01}, bits.rbsp()) + annexB({0x26, 0x01}, Bytes(200, 0x55));
}

Bytes mpeg4() {
  return unit(0xB0, {0xF5}) + unit(0xB5, {0x09}) + unit(0x00, {}) + unit(0x20, Bytes(20, 0x31)) +
         unit(0xB6, Bytes(100, 0x31));
}

Bytes mpegVideo(bool two) {
  const Bytes sequence = {0x2D, 0x02, 0x40, 0x23, 0xFF, 0xFF, 0xE0, 0x18};
  return unit(0xB3, sequence) + (two ? unit(0xB5, {0x14, 0x82, 0, 1, 0, 0}) : Bytes()) +
         unit(0xB8, {0, 8, 0, 0}) + unit(0x00, {0, 0x0F, 0xFF, 0xF8}) +
         unit(0x01, Bytes(100, 0x41));
}

TEST(StreamContent, AudioIsKnownByItsFrames) {
  EXPECT_EQ(tsm_recognise(times(4, layer2())), tsm_content::mpeg_audio);
  EXPECT_EQ(tsm_recognise(times(4, layer3())), tsm_content::mpeg_audio);
  EXPECT_EQ(tsm_recognise(times(4, adts())), tsm_content::adts);
  EXPECT_EQ(tsm_recognise(times(4, latm())), tsm_content::latm);
  EXPECT_EQ(tsm_recognise(times(4, ac3())), tsm_content::ac3);
  EXPECT_EQ(tsm_recognise(times(4, eac3())), tsm_content::eac3);
  EXPECT_EQ(tsm_recognise(times(4, dts())), tsm_content::dts);
  EXPECT_EQ(tsm_recognise(text("DTSHDHDR") + Bytes(100)), tsm_content::dts);
}

TEST(StreamContent, AudioMayStartLateAndBeShort) {
  EXPECT_EQ(tsm_recognise(Bytes(1000, 0x33) + times(4, ac3())), tsm_content::ac3);
  EXPECT_EQ(tsm_recognise(layer2()), tsm_content::mpeg_audio);  // one frame is all there is
  EXPECT_EQ(tsm_recognise(text("ID3") + Bytes{4, 0, 0, 0, 0, 0x20, 0x10} + Bytes(4112, 0xFF) +
                          times(4, layer3())),
            tsm_content::mpeg_audio);
}

TEST(StreamContent, OneSyncWordAmongOtherBytesIsNoAudio) {
  EXPECT_EQ(tsm_recognise(Bytes(1000, 0x33) + layer2() + Bytes(3000, 0x33)), tsm_content::unknown);
}

TEST(StreamContent, VideoIsKnownByItsHeaders) {
  EXPECT_EQ(tsm_recognise(mpegVideo(false)), tsm_content::mpeg1_video);
  EXPECT_EQ(tsm_recognise(mpegVideo(true)), tsm_content::mpeg2_video);
  EXPECT_EQ(tsm_recognise(mpeg4()), tsm_content::mpeg4_video);
  EXPECT_EQ(tsm_recognise(avc()), tsm_content::avc);
  EXPECT_EQ(tsm_recognise(hevc()), tsm_content::hevc);
}

TEST(StreamContent, StartCodesWithoutHeadersAreNoVideo) {
  EXPECT_EQ(tsm_recognise(times(20, unit(0x01, Bytes(50, 0x41)))), tsm_content::unknown);
  EXPECT_EQ(tsm_recognise(annexB({0x67}, {0x42}) + annexB({0x65}, Bytes(200, 0x55))),
            tsm_content::unknown);
}

TEST(StreamContent, VideoStartsEarly) {
  EXPECT_EQ(tsm_recognise(Bytes(300, 0x33) + avc()), tsm_content::avc);
  EXPECT_EQ(tsm_recognise(Bytes(9000, 0) + avc()), tsm_content::avc);
  EXPECT_EQ(tsm_recognise(Bytes(9000, 0x33) + avc()), tsm_content::unknown);
}

TEST(StreamContent, ContainersAreKnownByTheirMarks) {
  EXPECT_EQ(tsm_recognise(text("RIFF....WAVEfmt ")), tsm_content::wave);
  EXPECT_EQ(tsm_recognise(text("RF64....WAVEds64")), tsm_content::wave);
  EXPECT_EQ(tsm_recognise(text("RIFF....AVI ")), tsm_content::unknown);
  EXPECT_EQ(tsm_recognise(unit(0xBA, Bytes(20, 0x44))), tsm_content::program_stream);
  EXPECT_EQ(tsm_recognise(text("<?xml version=\"1.0\"?><a/>")), tsm_content::xml);
  EXPECT_EQ(tsm_recognise(text("\xEF\xBB\xBF \n<tables>")), tsm_content::xml);
  const auto plain = zel::test::makePlainTransportStream({.seconds = 0.2});
  EXPECT_EQ(tsm_recognise(plain.bytes), tsm_content::transport_stream);
  EXPECT_EQ(tsm_recognise(std::span(plain.bytes).subspan(100)), tsm_content::transport_stream);
  EXPECT_EQ(tsm_recognise(plain.video), tsm_content::mpeg2_video);
  EXPECT_EQ(tsm_recognise(plain.audio), tsm_content::mpeg_audio);
}

TEST(StreamContent, NothingAndNoiseAreUnknown) {
  EXPECT_EQ(tsm_recognise({}), tsm_content::unknown);
  EXPECT_EQ(tsm_recognise(Bytes(100000, 0)), tsm_content::unknown);
  std::mt19937_64 random(zel::test::testSeed());
  for (int round = 0; round < 20; ++round) {
    Bytes noise(size_t{1} << round);
    for (uint8_t& each : noise) each = static_cast<uint8_t>(random());
    const tsm_content found = tsm_recognise(noise);
    // Three frames on end by chance: less than one in a million for noise of this size.
    EXPECT_EQ(found, tsm_content::unknown) << tsm_content_name(found) << " in " << noise.size();
  }
}

TEST(StreamContent, EveryCutOfEveryKindIsTheKindOrUnknown) {
  for (const Bytes& whole : {times(3, ac3()), times(3, eac3()), avc(), hevc(), mpegVideo(true)}) {
    const tsm_content content = tsm_recognise(whole);
    for (size_t size = 0; size < whole.size(); ++size) {
      const tsm_content cut = tsm_recognise(std::span(whole).first(size));
      if (cut == tsm_content::mpeg1_video) continue;  // of MPEG-2 without its extension
      EXPECT_TRUE(cut == content || cut == tsm_content::unknown)
          << tsm_content_name(content) << " cut to " << size << " is " << tsm_content_name(cut);
    }
  }
}

TEST(StreamContent, EveryKindHasAName) {
  for (int i = 0; i <= static_cast<int>(tsm_content::xml); ++i)
    EXPECT_GT(std::string_view(tsm_content_name(tsm_content(i))).size(), 4u);
}

}  // namespace
}  // namespace Morvalen::Zel
