#include "zel/mux/engine/pcm/wave_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/unit/mux/engine/pcm/wave_bytes.h"

namespace zel::mux {
namespace {

using test::plainWave;
using test::WaveBytes;
using phase = wave_parser::phase;

struct Read {
  std::vector<uint8_t> samples;
  std::vector<wave_format> formats;
  phase end = phase::start;
  size_t rest = 0;  // bytes that weren't taken
};

// Gives the parser `piece` more bytes whenever it wants more.
Read readAll(const std::vector<uint8_t>& stream, size_t piece) {
  Read read;
  wave_parser parser;
  size_t taken = 0;
  size_t given = 0;
  int files = 0;
  while (true) {
    const size_t there = given - taken;
    if (parser.at() == phase::samples) {
      if (parser.files() != files) read.formats.push_back(parser.format());
      files = parser.files();
      const auto count = static_cast<size_t>(std::min<uint64_t>(there, parser.samples_left()));
      read.samples.insert(read.samples.end(), stream.begin() + taken,
                          stream.begin() + taken + count);
      taken += count;
      const bool whole = parser.samples_left() == count;
      parser.take_samples(count);
      if (count > 0 || whole) continue;
    } else if (parser.at() == phase::no_wave || parser.at() == phase::corrupted) {
      break;
    } else if (there >= parser.wanted()) {
      const size_t done = parser.advance(std::span(stream).subspan(taken, there));
      EXPECT_LE(done, there);
      taken += done;
      continue;
    }
    if (given == stream.size()) break;
    given = std::min(given + piece, stream.size());
  }
  read.end = parser.at();
  read.rest = stream.size() - taken;
  return read;
}

Read readAnyWay(const std::vector<uint8_t>& stream) {
  const Read whole = readAll(stream, stream.size() + 1);
  for (const size_t piece : {1, 2, 3, 7, 41}) {
    const Read pieces = readAll(stream, piece);
    EXPECT_EQ(pieces.samples, whole.samples) << piece;
    EXPECT_EQ(pieces.formats, whole.formats) << piece;
    EXPECT_EQ(pieces.end, whole.end) << piece;
    EXPECT_EQ(pieces.rest, whole.rest) << piece;
  }
  return whole;
}

const std::vector<uint8_t> kSamples = {1, 2, 3, 4, 5, 6, 7, 8};

TEST(WaveParser, PlainFile) {
  const Read read = readAnyWay(plainWave(2, 2, kSamples));
  EXPECT_EQ(read.samples, kSamples);
  ASSERT_EQ(read.formats.size(), 1u);
  EXPECT_EQ(read.formats[0], (wave_format{true, 2, 48000, 2, 16}));
  EXPECT_EQ(read.end, phase::start);
}

TEST(WaveParser, ExtensibleTellsTheValidBits) {
  const auto bytes =
      WaveBytes().file("RIFF", 0).extensible(4, 96000, 3, 20).chunk("data", kSamples).closed();
  const Read read = readAnyWay(bytes.bytes());
  EXPECT_EQ(read.samples, kSamples);
  ASSERT_EQ(read.formats.size(), 1u);
  EXPECT_EQ(read.formats[0], (wave_format{true, 4, 96000, 3, 20}));
}

TEST(WaveParser, ExtensibleOfFloatsIsNotLinear) {
  const auto bytes =
      WaveBytes().file("RIFF", 0).extensible(2, 48000, 4, 32, 3).chunk("data", kSamples).closed();
  const Read read = readAnyWay(bytes.bytes());
  ASSERT_EQ(read.formats.size(), 1u);
  EXPECT_FALSE(read.formats[0].linear);
}

TEST(WaveParser, LongFormsTakeTheSizeFromTheirOwnChunk) {
  for (const char* id : {"RF64", "BW64"}) {
    const auto bytes = WaveBytes()
                           .file(id, 0xFFFFFFFF)
                           .sizes64(0, 8)
                           .format(2, 48000, 2, 16)
                           .text("data")
                           .little(4, 0xFFFFFFFF)
                           .raw(kSamples)
                           .chunk("LIST", {9, 9, 9, 9});
    const Read read = readAnyWay(bytes.bytes());
    EXPECT_EQ(read.samples, kSamples) << id;
  }
}

TEST(WaveParser, OtherChunksAnywhereEvenOnesOfOddSize) {
  const auto bytes = WaveBytes()
                         .file("RIFF", 0)
                         .chunk("JUNK", std::vector<uint8_t>(77, 0x52))
                         .format(2, 48000, 2, 16)
                         .chunk("LIST", {1, 2, 3})
                         .chunk("fact", {1, 2, 3, 4})
                         .chunk("data", kSamples)
                         .chunk("id3 ", {5})
                         .closed();
  const Read read = readAnyWay(bytes.bytes());
  EXPECT_EQ(read.samples, kSamples);
  EXPECT_EQ(read.end, phase::start);
  EXPECT_EQ(read.rest, 0u);
}

TEST(WaveParser, SamplesOfOddSizeArePadded) {
  const std::vector<uint8_t> odd = {1, 2, 3};
  auto bytes = WaveBytes().raw(plainWave(1, 1, odd)).raw(plainWave(1, 1, odd));
  const Read read = readAnyWay(bytes.bytes());
  EXPECT_EQ(read.samples, (std::vector<uint8_t>{1, 2, 3, 1, 2, 3}));
  EXPECT_EQ(read.formats.size(), 2u);
}

TEST(WaveParser, UnknownSizesReachToTheEnd) {
  for (const uint32_t size : {0u, 0xFFFFFFFFu}) {
    const auto bytes = WaveBytes()
                           .file("RIFF", size)
                           .format(2, 48000, 2, 16)
                           .text("data")
                           .little(4, size)
                           .raw(kSamples);
    EXPECT_EQ(readAnyWay(bytes.bytes()).samples, kSamples) << size;
  }
  const auto unfinished = WaveBytes()
                              .file("RF64", 0xFFFFFFFF)
                              .sizes64(0, 0)
                              .format(2, 48000, 2, 16)
                              .text("data")
                              .little(4, 0xFFFFFFFF)
                              .raw(kSamples);
  EXPECT_EQ(readAnyWay(unfinished.bytes()).samples, kSamples);
}

TEST(WaveParser, AFileWithoutSamplesIsPassedOver) {
  const auto bytes = WaveBytes().raw(plainWave(2, 2, {})).raw(plainWave(2, 2, kSamples));
  const Read read = readAnyWay(bytes.bytes());
  EXPECT_EQ(read.samples, kSamples);
  EXPECT_EQ(read.formats.size(), 2u);
}

TEST(WaveParser, TheNextFileOfOneThatWasCutIsSeen) {
  // Its size says that more is to come.
  const auto bytes = WaveBytes()
                         .file("RIFF", 5000)
                         .format(2, 48000, 2, 16)
                         .chunk("data", kSamples)
                         .raw(plainWave(2, 2, {1, 1, 1, 1}));
  EXPECT_EQ(readAnyWay(bytes.bytes()).samples,
            (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 1, 1, 1, 1}));
}

TEST(WaveParser, WhatFollowsAFileAndIsNoneStops) {
  const auto bytes =
      WaveBytes().raw(plainWave(2, 2, kSamples)).text("no Wave file at all, but text");
  const Read read = readAnyWay(bytes.bytes());
  EXPECT_EQ(read.samples, kSamples);
  EXPECT_EQ(read.end, phase::no_wave);
  EXPECT_EQ(read.rest, 29u);
}

TEST(WaveParser, NothingIsTakenOfWhatIsNoWaveFile) {
  const auto bytes = WaveBytes().text("RIFF").little(4, 100).text("AVI LIST");
  const Read read = readAnyWay(bytes.bytes());
  EXPECT_EQ(read.end, phase::no_wave);
  EXPECT_EQ(read.rest, bytes.bytes().size());
}

TEST(WaveParser, SamplesWithoutAFormatAreCorrupted) {
  const auto noFormat = WaveBytes().file("RIFF", 0).chunk("data", kSamples).closed();
  EXPECT_EQ(readAnyWay(noFormat.bytes()).end, phase::corrupted);
  const auto shortFormat =
      WaveBytes().file("RIFF", 0).chunk("fmt ", {1, 0, 2, 0}).chunk("data", kSamples).closed();
  EXPECT_EQ(readAnyWay(shortFormat.bytes()).end, phase::corrupted);
  const auto noBlock =
      WaveBytes().file("RIFF", 0).format(2, 48000, 0, 16).chunk("data", kSamples).closed();
  EXPECT_EQ(readAnyWay(noBlock.bytes()).end, phase::corrupted);
  const auto tooManyBits =
      WaveBytes().file("RIFF", 0).format(2, 48000, 2, 24).chunk("data", kSamples).closed();
  EXPECT_EQ(readAnyWay(tooManyBits.bytes()).end, phase::corrupted);
}

TEST(WaveParser, ATruncatedHeadYieldsNothing) {
  const std::vector<uint8_t> whole = plainWave(2, 2, kSamples);
  for (size_t size = 0; size < whole.size() - kSamples.size(); ++size) {
    const Read read = readAnyWay({whole.begin(), whole.begin() + static_cast<long>(size)});
    EXPECT_TRUE(read.samples.empty()) << size;
  }
}

}  // namespace
}  // namespace zel::mux
