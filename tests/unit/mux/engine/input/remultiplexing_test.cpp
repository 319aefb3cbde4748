#include "zel/mux/engine/input/remultiplexing.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/bytes_source.h"
#include "tests/unit/mux/engine/input/multiplex_bytes.h"
#include "zel/mux/engine/input/input_window.h"
#include "zel/mux/engine/input/program_stream_source.h"
#include "zel/mux/engine/input/transport_stream_source.h"

namespace zel::mux {
namespace {

using namespace zel::test;

struct Taken {
  Bytes bytes;
  std::vector<int> warnings;
  int64_t pts = -2;
  int64_t dts = -2;
};

Taken takeOnce(const Bytes& multiplex, int pid, int streamId, int subtype, size_t piece,
               int32_t room) {
  Taken taken;
  Morvalen::Zel::tsm_stream_record record{};
  record.sourceTsPid = pid;
  record.sourceStreamId = streamId;
  record.sourceStreamSubtype = subtype;
  const auto source =
      take_stream(std::make_unique<BytesSource>(multiplex, piece), record,
                  [&](source_warning warning) { taken.warnings.push_back(warning); });
  Bytes some(static_cast<size_t>(room));
  while (true) {
    const int32_t count = source->read(some.data(), room);
    EXPECT_LE(count, room);
    if (count <= 0) break;
    taken.bytes.insert(taken.bytes.end(), some.begin(), some.begin() + count);
  }
  EXPECT_EQ(source->read(some.data(), room), 0);
  taken.pts = source->first_pts90k();
  taken.dts = source->first_dts90k();
  return taken;
}

// However the bytes come and however many are asked for.
Taken take(const Bytes& multiplex, int pid, int streamId = 0, int subtype = 0) {
  const Taken whole = takeOnce(multiplex, pid, streamId, subtype, 1 << 20, 1 << 20);
  for (const size_t piece : {1, 100, 5000}) {
    const Taken pieces = takeOnce(multiplex, pid, streamId, subtype, piece, 77);
    EXPECT_EQ(pieces.bytes, whole.bytes) << piece;
    EXPECT_EQ(pieces.warnings, whole.warnings) << piece;
    EXPECT_EQ(pieces.pts, whole.pts) << piece;
  }
  return whole;
}

// 40 packets that aren't wanted, so that the grid is seen.
Bytes others(int count = 40) {
  TsPackets packets(0x1ABC);
  Bytes bytes;
  for (int i = 0; i < count; ++i) append(bytes, packets.one(pattern(184, 3), false));
  return bytes;
}

constexpr int kPid = 0x123;

TEST(TransportStreamSource, PayloadOfAllPesPacketsInOrder) {
  TsPackets packets(kPid);
  Bytes stream = others();
  Bytes expected;
  for (uint8_t i = 0; i < 20; ++i) {
    const Bytes payload = pattern(37u * i + 1, i);
    append(stream, packets.whole(pes(0xC0, payload, {90'000 + 3'600 * i, -1, i, true})));
    append(stream, others(1));
    append(expected, payload);
  }
  const Taken taken = take(stream, kPid);
  EXPECT_EQ(taken.bytes, expected);
  EXPECT_TRUE(taken.warnings.empty());
  EXPECT_EQ(taken.pts, 90'000);
  EXPECT_EQ(taken.dts, 90'000);
}

TEST(TransportStreamSource, PacketsOfEverySizeAndPlace) {
  TsPackets packets(kPid);
  Bytes plain = others();
  const Bytes payload = pattern(3'000, 5);
  append(plain, packets.whole(pes(0xE0, payload, {8'589'934'591, 8'589'930'000, 0, false})));
  for (const size_t size : {188, 192, 204, 208, 511}) {
    for (const size_t first : {0, 4, 100}) {
      Bytes stream = pattern(first, 1);
      for (size_t at = 0; at < plain.size(); at += 188) {
        stream.insert(stream.end(), plain.begin() + static_cast<long>(at),
                      plain.begin() + static_cast<long>(at + 188));
        append(stream, pattern(size - 188, 2));
      }
      const Taken taken = takeOnce(stream, kPid, 0, 0, 1 << 20, 1 << 20);
      EXPECT_EQ(taken.bytes, payload) << size << " " << first;
      EXPECT_TRUE(taken.warnings.empty());
      EXPECT_EQ(taken.pts, 8'589'934'591);
      EXPECT_EQ(taken.dts, 8'589'930'000);
    }
  }
}

TEST(TransportStreamSource, AHeaderInSeveralPackets) {
  TsPackets packets(kPid);
  Bytes stream = others();
  const Bytes payload = pattern(500, 7);
  append(stream, packets.whole(pes(0xBD, payload, {1'234, -1, 200, true}), 11));
  const Taken taken = take(stream, kPid);
  EXPECT_EQ(taken.bytes, payload);
  EXPECT_EQ(taken.pts, 1'234);
}

TEST(TransportStreamSource, WhatStandsBeforeTheFirstUnitIsNoPartOfIt) {
  TsPackets packets(kPid);
  Bytes stream = others();
  append(stream, packets.one(pattern(184, 9), false));
  append(stream, packets.whole(pes(0xE0, pattern(300, 1))));
  const Taken taken = take(stream, kPid);
  EXPECT_EQ(taken.bytes, pattern(300, 1));
  EXPECT_EQ(taken.pts, -1);
}

TEST(TransportStreamSource, APacketThatComesTwiceCountsOnce) {
  TsPackets packets(kPid);
  Bytes stream = others();
  const Bytes unit = packets.whole(pes(0xE0, pattern(800, 1)));
  for (size_t at = 0; at < unit.size(); at += 188) {
    const Bytes packet(unit.begin() + static_cast<long>(at),
                       unit.begin() + static_cast<long>(at + 188));
    append(stream, packet);
    append(stream, packet);
  }
  EXPECT_EQ(take(stream, kPid).bytes, pattern(800, 1));
}

TEST(TransportStreamSource, LostSyncIsToldOnceAndFoundAgain) {
  TsPackets packets(kPid);
  Bytes stream = others();
  append(stream, packets.whole(pes(0xE0, pattern(300, 1))));
  append(stream, others());
  append(stream, pattern(777, 4));
  append(stream, others());
  append(stream, packets.whole(pes(0xE0, pattern(400, 2))));
  append(stream, others());
  const Taken taken = take(stream, kPid);
  Bytes expected = pattern(300, 1);
  append(expected, pattern(400, 2));
  EXPECT_EQ(taken.bytes, expected);
  EXPECT_EQ(taken.warnings, (std::vector<int>{61}));
}

TEST(TransportStreamSource, DamagedScrambledAndOverfullPacketsAreTold) {
  for (const int fault : {0, 1, 2}) {
    TsPackets packets(kPid);
    Bytes stream = others();
    append(stream, packets.whole(pes(0xE0, pattern(300, 1))));
    Bytes bad = packets.one(pattern(100, 8), false);
    if (fault == 0) bad[1] |= 0x80;
    if (fault == 1) bad[3] |= 0x80;
    if (fault == 2) bad[4] = 184;
    append(stream, bad);
    append(stream, packets.whole(pes(0xE0, pattern(50, 2))));
    const Taken taken = take(stream, kPid);
    Bytes expected = pattern(300, 1);
    append(expected, pattern(50, 2));
    EXPECT_EQ(taken.bytes, expected) << fault;
    EXPECT_EQ(taken.warnings, (std::vector<int>{62})) << fault;
  }
}

TEST(TransportStreamSource, AUnitThatIsNoPesPacketIsLost) {
  TsPackets packets(kPid);
  Bytes stream = others();
  append(stream, packets.whole(pes(0xC0, pattern(300, 1))));
  append(stream, packets.whole(pattern(400, 3)));
  append(stream, packets.whole(pes(0xC0, pattern(50, 2))));
  const Taken taken = take(stream, kPid);
  Bytes expected = pattern(300, 1);
  append(expected, pattern(50, 2));
  EXPECT_EQ(taken.bytes, expected);
  EXPECT_EQ(taken.warnings, (std::vector<int>{64}));
}

TEST(TransportStreamSource, LengthsBoundSoundButNotVideo) {
  for (const uint8_t id : {uint8_t{0xC0}, uint8_t{0xE0}}) {
    TsPackets packets(kPid);
    Bytes unit = pes(id, pattern(600, 1));
    unit[4] = 0;
    unit[5] = 103;  // of 603
    const Bytes stream = [&] {
      Bytes all = others();
      append(all, packets.whole(unit));
      return all;
    }();
    EXPECT_EQ(take(stream, kPid).bytes.size(), id == 0xC0 ? 100u : 600u);
  }
}

TEST(TransportStreamSource, ALengthShorterThanTheHeaderIsNotBelieved) {
  TsPackets packets(kPid);
  Bytes unit = pes(0xE0, pattern(600, 1), {90'000, -1, 0, true});
  unit[4] = 0;
  unit[5] = 2;
  Bytes stream = others();
  append(stream, packets.whole(unit));
  const Taken taken = take(stream, kPid);
  EXPECT_EQ(taken.bytes, pattern(600, 1));
  EXPECT_TRUE(taken.warnings.empty());
}

TEST(TransportStreamSource, AStreamIdFindsItsPid) {
  TsPackets sound(0x200);
  TsPackets video(0x201);
  Bytes stream = others();
  append(stream, sound.whole(pes(0xC1, pattern(300, 1))));
  append(stream, video.whole(pes(0xE0, pattern(700, 2))));
  append(stream, sound.whole(pes(0xC1, pattern(200, 3))));
  append(stream, video.whole(pes(0xE0, pattern(100, 4))));
  Bytes expected = pattern(700, 2);
  append(expected, pattern(100, 4));
  EXPECT_EQ(take(stream, 0, 0xE0).bytes, expected);
  EXPECT_TRUE(take(stream, 0, 0xE3).bytes.empty());
}

TEST(TransportStreamSource, WhatIsNoneIsToldAndEmpty) {
  const Taken taken = take(pattern(10'000, 1), kPid);
  EXPECT_TRUE(taken.bytes.empty());
  EXPECT_EQ(taken.warnings, (std::vector<int>{61}));
  EXPECT_TRUE(take({}, kPid).warnings.empty());
}

TEST(TransportStreamSource, ACutLastPacketIsLeftOut) {
  TsPackets packets(kPid);
  Bytes stream = others();
  append(stream, packets.whole(pes(0xE0, pattern(361, 1))));
  append(stream, packets.one(pattern(184, 6), false));
  stream.resize(stream.size() - 50);
  EXPECT_EQ(take(stream, kPid).bytes, pattern(361, 1));
}

TEST(ProgramStreamSource, PayloadOfOneStreamInBothForms) {
  for (const bool mpeg1 : {false, true}) {
    const auto packet = [mpeg1](uint8_t id, const Bytes& payload, const PesShape& shape = {}) {
      return mpeg1 ? mpeg1Packet(id, payload, shape) : pes(id, payload, shape);
    };
    Bytes stream;
    Bytes expected;
    for (uint8_t i = 0; i < 7; ++i) {
      append(stream, packHeader(mpeg1, mpeg1 ? 0 : i));
      if (i == 0) append(stream, {0, 0, 1, 0xBB, 0, 6, 0x80, 0, 1, 4, 0x20, 0xFF});
      append(stream, packet(0xE0, pattern(900, i), {45'000 + i, 44'000 + i, i, true}));
      append(stream, {0, 0, 1, 0xBE, 0, 3, 0xFF, 0xFF, 0xFF});
      append(stream, packet(0xC0, pattern(100u + i, i)));
      append(expected, pattern(900, i));
    }
    append(stream, {0, 0, 1, 0xB9});
    const Taken taken = take(stream, 0, 0xE0);
    EXPECT_EQ(taken.bytes, expected) << mpeg1;
    EXPECT_TRUE(taken.warnings.empty()) << mpeg1;
    EXPECT_EQ(taken.pts, 45'000);
    EXPECT_EQ(taken.dts, 44'000);
  }
}

Bytes substream(uint8_t number, const Bytes& payload) {
  Bytes bytes = {number, 1, 0, 1};
  append(bytes, payload);
  return bytes;
}

TEST(ProgramStreamSource, OneSubstreamOfAPrivateStream) {
  Bytes stream = packHeader(false);
  append(stream, pes(0xBD, substream(0x20, pattern(50, 1))));
  append(stream, pes(0xBD, substream(0x81, pattern(60, 2))));
  append(stream, pes(0xBD, substream(0x80, pattern(70, 3))));
  append(stream, pes(0xBD, substream(0x81, pattern(80, 4))));
  Bytes first = pattern(60, 2);
  append(first, pattern(80, 4));
  EXPECT_EQ(take(stream, 0, 0xBD, 0x81).bytes, first);
  EXPECT_EQ(take(stream, 0, 0xBD, 0x80).bytes, pattern(70, 3));
  // Not named: the first that has sound.
  EXPECT_EQ(take(stream, 0, 0xBD).bytes, first);
}

TEST(ProgramStreamSource, APrivateStreamWithoutSubstreamsIsWhole) {
  Bytes stream = packHeader(false);
  Bytes frame = {0x0B, 0x77};
  append(frame, pattern(50, 1));
  append(stream, pes(0xBD, frame));
  EXPECT_EQ(take(stream, 0, 0xBD).bytes, frame);
}

TEST(ProgramStreamSource, DamageIsToldAndPassedOver) {
  const Bytes good = pes(0xC0, pattern(90, 1));
  struct Case {
    Bytes damage;
    int warning;
  };
  Bytes wrongPack = packHeader(false);
  wrongPack[4] = 0x84;
  Bytes longHeader = pes(0xC0, pattern(20, 3));
  longHeader[8] = 200;
  const Bytes noMpeg1 = {0, 0, 1, 0xC0, 0, 4, 0x12, 0x34, 0x56, 0x78};
  const Case cases[] = {{pattern(33, 2), 22},
                        {wrongPack, 23},
                        {{0, 0, 1, 0xB3, 0x12, 0x34, 0x56}, 24},
                        {noMpeg1, 63},
                        {longHeader, 64}};
  for (const Case& each : cases) {
    Bytes stream = packHeader(false);
    append(stream, good);
    append(stream, each.damage);
    append(stream, packHeader(false));
    append(stream, good);
    const Taken taken = take(stream, 0, 0xC0);
    Bytes expected = pattern(90, 1);
    append(expected, pattern(90, 1));
    EXPECT_EQ(taken.bytes, expected) << each.warning;
    EXPECT_EQ(taken.warnings, (std::vector<int>{each.warning}));
  }
}

TEST(ProgramStreamSource, ACutLastPacketGivesWhatIsThere) {
  Bytes stream = packHeader(false);
  append(stream, pes(0xC0, pattern(90, 1)));
  stream.resize(stream.size() - 40);
  EXPECT_EQ(take(stream, 0, 0xC0).bytes.size(), 50u);
}

struct Letters {
  int left = 0;
  int calls = 0;
};

int load_letters(void* user, cbuf* buffer) {
  auto& letters = *static_cast<Letters*>(user);
  if (++letters.calls % 3 != 0) return 0;  // nothing just now
  if (letters.left == 0) return 1;
  *buffer->write = static_cast<uint8_t>(letters.left--);
  buffer->write = cbuf_forward(*buffer, buffer->write, 1);
  return 0;
}

TEST(LoaderSource, AsksAgainUntilTheEnd) {
  Letters letters{200, 0};
  loader_source source(load_letters, &letters, 16);
  uint8_t bytes[7];
  int count = 0;
  for (int32_t got = source.read(bytes, 7); got > 0; got = source.read(bytes, 7)) count += got;
  EXPECT_EQ(count, 200);
}

TEST(LoaderSource, OneThatNeverGivesAnythingEnds) {
  loader_source source([](void*, cbuf*) { return 0; }, nullptr, 16);
  uint8_t byte = 0;
  EXPECT_EQ(source.read(&byte, 1), 0);
}

}  // namespace
}  // namespace zel::mux
