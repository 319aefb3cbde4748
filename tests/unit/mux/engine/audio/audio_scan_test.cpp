#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/audio_frames.h"
#include "tests/support/bytes_source.h"
#include "zel/mux/engine/audio/describe.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/reporting.h"
#include "zel/mux/engine/stream/audio_state.h"

namespace zel::mux {
namespace {

using namespace zel::test;
using Bytes = AudioBytes;

// With places where another file's bytes begin.
class spliced_source final : public BytesSource {
 public:
  spliced_source(Bytes bytes, size_t piece, std::vector<int64_t> transitions)
      : BytesSource(std::move(bytes), piece), transitions_(std::move(transitions)) {}
  int64_t take_transition() override {
    const auto given = static_cast<int64_t>(bytesGiven());
    if (transitions_.empty() || transitions_.front() >= given) return -1;
    const int64_t place = transitions_.front();
    transitions_.erase(transitions_.begin());
    return place;
  }

 private:
  std::vector<int64_t> transitions_;
};

// A stream as the run has it: discovered, then read to its end by a packet maker that takes each
// frame at once.
struct Reading {
  explicit Reading(const Bytes& bytes, int32_t piece = 5000, int32_t skipFrames = 0,
                   std::vector<int64_t> transitions = {}) {
    config.skipFrames = skipFrames;
    config.avSync = config.transitionCleanUp = !transitions.empty();
    state.config = &config;
    state.report = &report;
    report.deliver_to(take, this);
    report.stop_on(false, false);
    state.input.open(60000, piece,
                     std::make_unique<spliced_source>(bytes, static_cast<size_t>(piece),
                                                      std::move(transitions)));
    discover_audio(state);
    discovered = state.characteristics;
    while (scan_audio(state)) {
      if (state.frames.empty()) break;
      const audio_frame next = state.frames.front();
      frames.push_back(next);
      data = data + Bytes(static_cast<size_t>(next.size));
      state.input.skip(static_cast<int32_t>(next.start - state.input.read_position()));
      state.input.take(data.data() + data.size() - next.size, next.size - next.padding);
      state.frames.pop();
      state.model.removals.pop();
    }
  }

  static void take(void* user, int fatal, int32_t code, const char* text) {
    Reading& run = *static_cast<Reading*>(user);
    ++(fatal != 0 ? run.fatals : run.warnings)[code];
    run.texts += text;
  }

  Morvalen::Zel::tsm_stats stats{};
  tsm_time now{};
  reporting report{stats, now};
  Morvalen::Zel::tsm_audio config{};
  audio_state state;
  audio_characteristics discovered;
  std::vector<audio_frame> frames;
  Bytes data;
  std::map<int, int> fatals;
  std::map<int, int> warnings;
  std::string texts;
};

using Codes = std::map<int, int>;

TEST(AudioScan, OneFrameIsAStream) {
  const Bytes bytes = ac3Frame(0, 20, 768);
  Reading run(bytes);
  ASSERT_EQ(run.frames.size(), 1u);
  EXPECT_EQ(run.frames[0].size, 768);
  EXPECT_TRUE(run.frames[0].firstOfSource);
  EXPECT_EQ(run.discovered.bitRate, 192000);
  EXPECT_EQ(run.discovered.period, 864000);
  EXPECT_EQ(run.fatals, Codes{});
  EXPECT_EQ(run.data, bytes);
}

TEST(AudioScan, TimeStampsAreAPeriodApartAndWrap) {
  Reading run(layer2Frame(10, 1, 576) * 200);
  ASSERT_EQ(run.frames.size(), 200u);
  for (size_t i = 0; i < 200; ++i) EXPECT_EQ(run.frames[i].pts, static_cast<double>(i) * 648000);
  EXPECT_EQ(run.discovered.layer, 2);
  EXPECT_EQ(run.discovered.averageFrameSize, 576);
}

TEST(AudioScan, OddAc3SizesAt44100AverageInSilence) {
  Reading run((ac3Frame(1, 20, 834) + ac3Frame(1, 21, 836)) * 10);
  EXPECT_EQ(run.frames.size(), 20u);
  EXPECT_EQ(run.warnings, Codes{});
  // 835 bytes in 1,536 samples are 191,789.06 bit/s.
  EXPECT_EQ(run.discovered.bitRate, 191800);
  EXPECT_NEAR(run.frames[1].pts, 940408.163, 0.001);
}

TEST(AudioScan, ThreeDependentSubstreamsMakeOneAccessUnit) {
  const Bytes unit =
      eac3Frame(0, 0, 768) + eac3Frame(1, 0, 256) + eac3Frame(1, 1, 128) + eac3Frame(1, 2, 64);
  Reading run(unit * 4);
  ASSERT_EQ(run.frames.size(), 4u);
  for (const audio_frame& each : run.frames) {
    EXPECT_EQ(each.size, 768 + 256 + 128 + 64);
    EXPECT_EQ(each.bitRate, (768 + 256 + 128 + 64) * 8 * 48000.0 / 1536 + 4);
  }
  EXPECT_TRUE(run.discovered.eac3);
  EXPECT_EQ(run.fatals, Codes{});
  EXPECT_EQ(run.data, unit * 4);
}

TEST(AudioScan, DependentSubstreamsAddTheirChannels) {
  // 5.1 and two more behind; then a second programme, whose channels are its own.
  const Bytes unit =
      eac3Frame(0, 0, 768, 7, 1) + eac3Frame(1, 0, 256, 6, 0, 0x1A00) + eac3Frame(0, 1, 256, 2);
  Reading run(unit * 3);
  EXPECT_EQ(run.frames.size(), 3u);
  EXPECT_EQ(run.discovered.channels, 8);
}

TEST(AudioScan, ADependentSubstreamFirstIsAnUnderflow) {
  Reading run(eac3Frame(1, 0, 256) + eac3Frame(0, 0, 768) * 2);
  EXPECT_EQ(run.fatals, (Codes{{91, 1}}));
  EXPECT_EQ(run.frames.size(), 2u);
}

TEST(AudioScan, AFirstByteThatIsNoSyncIsFatal) {
  Reading run(Bytes{0x47} + ac3Frame(0, 20, 768) * 2);
  EXPECT_EQ(run.fatals, (Codes{{16, 1}}));
  EXPECT_NE(run.texts.find("First byte = 0x47."), std::string::npos);
  EXPECT_EQ(run.frames.size(), 2u);
}

TEST(AudioScan, NoFrameAtAllIsNeverAcquired) {
  EXPECT_EQ(Reading(Bytes{}).fatals, (Codes{{19, 1}}));
  EXPECT_EQ(Reading(Bytes(9000, 0x33)).fatals, (Codes{{16, 1}, {19, 1}}));
}

TEST(AudioScan, LostSyncNamesTheByteThatWasExpected) {
  const Bytes a = ac3Frame(0, 20, 768);
  EXPECT_EQ(Reading(a + Bytes{0x11} + a).fatals, (Codes{{13, 1}}));
  EXPECT_EQ(Reading(a + Bytes{0x0B, 0x11} + a).fatals, (Codes{{12, 1}}));
  const Bytes m = layer2Frame(10, 1, 576);
  EXPECT_EQ(Reading(m + Bytes{0x11} + m).fatals, (Codes{{15, 1}}));
  EXPECT_EQ(Reading(m + Bytes{0xFF, 0x11} + m).fatals, (Codes{{14, 1}}));
  const Bytes d = adtsFrame(300);
  EXPECT_EQ(Reading(d + Bytes{0xFF, 0x11} + d).fatals, (Codes{{18, 1}}));
  const Bytes t = dtsFrame(16, 1006);
  EXPECT_EQ(Reading(t + Bytes{0x7F, 0xFE, 0x11} + t).fatals, (Codes{{39, 1}}));
  const Bytes l = latmFrame(300, 3, 2, 0);
  EXPECT_EQ(Reading(l + Bytes{0x11} + l).fatals, (Codes{{102, 1}}));
  EXPECT_EQ(Reading(l + Bytes{0x56, 0x11} + l).fatals, (Codes{{101, 1}}));
  Reading run(a + Bytes(5000, 0x22) + a * 3);
  EXPECT_EQ(run.frames.size(), 4u);
  EXPECT_EQ(run.data, a * 4);
}

TEST(AudioScan, ChangesWarn) {
  EXPECT_EQ(Reading(ac3Frame(0, 20, 768) + ac3Frame(2, 20, 1152)).warnings, (Codes{{4, 1}}));
  EXPECT_EQ(Reading(ac3Frame(0, 20, 768) + ac3Frame(0, 22, 896)).warnings, (Codes{{5, 1}}));
  EXPECT_EQ(Reading(ac3Frame(1, 20, 834) + ac3Frame(1, 23, 976)).warnings, (Codes{{5, 1}}));
  EXPECT_EQ(Reading(ac3Frame(0, 20, 768) + eac3Frame(0, 0, 768)).warnings, (Codes{{97, 1}}));
  EXPECT_EQ(Reading(eac3Frame(0, 0, 768) + ac3Frame(0, 20, 768)).warnings, (Codes{{82, 1}}));
  EXPECT_EQ(Reading(layer2Frame(10, 1, 576) + layer2Frame(10, 2, 864)).warnings, (Codes{{7, 1}}));
  EXPECT_EQ(Reading(layer2Frame(10, 1, 576) + adtsFrame(300)).warnings, (Codes{{6, 1}}));
  EXPECT_EQ(Reading(dtsFrame(16, 1006) + dtsFrame(32, 1006)).warnings, (Codes{{42, 1}}));
  EXPECT_EQ(Reading(dtsFrame(16, 1006) + dtsFrame(16, 1008)).warnings, (Codes{{43, 1}}));
  EXPECT_EQ(Reading(latmFrame(300, 3, 2, 0) + latmFrame(300, 3, 1, 0)).warnings, (Codes{{65, 1}}));
  EXPECT_EQ(Reading(latmFrame(300, 3, 2, 0) + latmFrame(300, 4, 2, 0)).warnings, (Codes{{66, 1}}));
  EXPECT_EQ(Reading(latmFrame(300, 3, 2, 0) + latmFrame(300, 3, 2, 1)).warnings, (Codes{{68, 1}}));
}

TEST(AudioScan, MovingBitRatesAreToldOnceThenSilent) {
  EXPECT_EQ(Reading(layer2Frame(10, 1, 576) + layer2Frame(8, 1, 384) * 5).warnings,
            (Codes{{8, 1}}));
  Reading run((layer2Frame(10, 1, 576) + layer2Frame(8, 1, 384)) * 10);
  EXPECT_EQ(run.warnings, (Codes{{8, 1}, {71, 1}}));
  EXPECT_EQ(run.discovered.bitRate, 160000);
}

TEST(AudioScan, DtsExtensionsJoinTheirCore) {
  const Bytes unit = dtsFrame(16, 1006) + dtsExtension(0, 2000) + dtsExtension(1, 500);
  Reading run(unit * 3);
  ASSERT_EQ(run.frames.size(), 3u);
  EXPECT_EQ(run.frames[0].size, 3506);
  EXPECT_EQ(run.frames[1].pts, 288000);
  EXPECT_EQ(run.discovered.dtsExtension, 1);
  EXPECT_EQ(run.fatals, Codes{});
}

TEST(AudioScan, TheRateOfDtsExtensionsIsThatOfTheLargest) {
  const Bytes small = dtsFrame(16, 1006) + dtsExtension(0, 1000);
  const Bytes large = dtsFrame(16, 1006) + dtsExtension(0, 3000);
  // 4,006 bytes in 512 samples of 48 kHz are 3,004,500 bit/s.
  EXPECT_EQ(Reading(small * 3 + large + small * 3).discovered.bitRate, 3'004'500);
}

TEST(AudioScan, DtsExtensionsWithoutACore) {
  Reading run((dtsExtension(0, 2000) + dtsExtension(1, 500)) * 3);
  ASSERT_EQ(run.frames.size(), 3u);
  EXPECT_EQ(run.frames[0].size, 2500);
  EXPECT_EQ(run.frames[2].pts, 2 * 288000);
}

TEST(AudioScan, TheFirstExtensionHasADuration) {
  Reading run(dtsFrame(16, 1006) + dtsExtension(0, 2000, false));
  EXPECT_GE(run.fatals[125], 1);
  EXPECT_EQ(run.frames.size(), 1u);
}

TEST(AudioScan, DtsHdFilesAreChunks) {
  const auto chunk = [](const char* name, const Bytes& bytes) {
    Bytes header(name, name + 8);
    header.resize(16);
    header[14] = static_cast<uint8_t>(bytes.size() >> 8);
    header[15] = static_cast<uint8_t>(bytes.size());
    return header + bytes;
  };
  const Bytes stream = dtsFrame(16, 1006) * 3;
  Reading run(chunk("DTSHDHDR", Bytes(8)) + chunk("AUPR-HDR", Bytes(21)) +
              chunk("STRMDATA", stream) + chunk("FILEINFO", dtsFrame(16, 1006)));
  EXPECT_EQ(run.fatals, Codes{});
  EXPECT_EQ(run.data, stream);
}

TEST(AudioScan, LatmKeepsItsConfiguration) {
  Reading run(latmFrame(300, 6, 6, 0) + sameLatmFrame(200) * 5);
  EXPECT_EQ(run.frames.size(), 6u);
  EXPECT_EQ(run.discovered.channels, 6);
  EXPECT_EQ(run.frames[1].pts, 1152000);
  EXPECT_EQ(run.warnings, Codes{});
}

TEST(AudioScan, ABrokenLatmConfigurationIsFatal) {
  Reading run(latmFrame(300, 3, 2, 0) + latmFrame(300, 13, 2, 0) + latmFrame(300, 3, 2, 0));
  EXPECT_GE(run.fatals[103], 1);
  EXPECT_EQ(run.frames.size(), 2u);
}

TEST(AudioScan, APartialFrameAtTheEndIsDropped) {
  Reading run(adtsFrame(300) * 3 + audioFrame(5, {{0xFFF1, 16}}));
  EXPECT_EQ(run.frames.size(), 3u);
  EXPECT_EQ(run.fatals, Codes{});
  Bytes broken = adtsFrame(300) * 3;
  broken.resize(899);
  EXPECT_EQ(Reading(broken).frames.size(), 2u);
}

TEST(AudioScan, SkippedFramesLeaveNothing) {
  Reading run(adtsFrame(300) * 2 + adtsFrame(400) * 3, 5000, 2);
  ASSERT_EQ(run.frames.size(), 3u);
  EXPECT_EQ(run.frames[0].pts, 0);
  EXPECT_EQ(run.frames[0].size, 400);
  EXPECT_EQ(Reading(adtsFrame(300), 5000, -1).fatals, (Codes{{8, 1}}));
}

TEST(AudioScan, PiecesOfOneByteGiveTheSameFrames) {
  const Bytes bytes = (dtsFrame(16, 1006) + dtsExtension(0, 2000)) * 20;
  Reading whole(bytes);
  Reading pieces(bytes, 1);
  EXPECT_EQ(whole.frames.size(), 20u);
  EXPECT_EQ(pieces.frames.size(), 20u);
  EXPECT_EQ(whole.data, pieces.data);
}

// Files one behind the other.
struct Files : Reading {
  explicit Files(const std::vector<Bytes>& files, int32_t piece = 5000)
      : Reading(joined(files), piece, 0, places(files)) {}

  static Bytes joined(const std::vector<Bytes>& files) {
    Bytes all;
    for (const Bytes& file : files) all = all + file;
    return all;
  }
  static std::vector<int64_t> places(const std::vector<Bytes>& files) {
    std::vector<int64_t> places;
    int64_t at = 0;
    for (const Bytes& file : files) {
      at += static_cast<int64_t>(file.size());
      places.push_back(at);
    }
    places.pop_back();
    return places;
  }
  std::vector<size_t> firsts() const {
    std::vector<size_t> indices;
    for (size_t i = 0; i < frames.size(); ++i) {
      if (frames[i].firstOfSource) indices.push_back(i);
    }
    return indices;
  }
};
Bytes cut(Bytes bytes, size_t size) {
  bytes.resize(size);
  return bytes;
}

TEST(AudioTransitions, WholeFilesFollowEachOther) {
  const Bytes one = layer2Frame(10, 1, 576) * 40;
  for (const int32_t piece : {5000, 1}) {
    Files run({one, one, one}, piece);
    EXPECT_EQ(run.data, one * 3);
    EXPECT_EQ(run.firsts(), (std::vector<size_t>{0, 40, 80}));
    EXPECT_EQ(run.frames.back().pts, 119 * 648'000.0);
    EXPECT_EQ(run.fatals, Codes{});
    EXPECT_EQ(run.warnings, Codes{});
  }
}

TEST(AudioTransitions, AShortRestOfAFrameIsDropped) {
  const Bytes frame = layer2Frame(10, 1, 576);
  Files run({frame * 40 + cut(frame, 200), frame * 40});
  EXPECT_EQ(run.data, frame * 80);
  EXPECT_EQ(run.firsts(), (std::vector<size_t>{0, 40}));
  EXPECT_EQ(run.fatals, Codes{});
  EXPECT_EQ(run.warnings, Codes{});
}

TEST(AudioTransitions, ALongOneIsFilledUp) {
  const Bytes frame = ac3Frame(0, 20, 768);
  Files run({frame * 40 + cut(frame, 500), frame * 40});
  ASSERT_EQ(run.frames.size(), 81u);
  EXPECT_EQ(run.frames[40].padding, 268);
  EXPECT_EQ(run.frames[40].size, 768);
  EXPECT_EQ(run.data, frame * 81);
  EXPECT_EQ(run.firsts(), (std::vector<size_t>{0, 41}));
  EXPECT_EQ(run.frames.back().pts, 80 * 864'000.0);
}

TEST(AudioTransitions, WhatIsLostStaysBelowHalfAFrameInAll) {
  const Bytes frame = adtsFrame(400);
  // Four tenths of a frame at each end: the second, the fourth and the seventh are filled up.
  const Bytes file = frame * 10 + cut(frame, 160);
  Files run(std::vector<Bytes>(9, file));
  std::vector<size_t> filled;
  for (size_t i = 0; i < run.frames.size(); ++i) {
    if (run.frames[i].padding > 0) filled.push_back(i);
  }
  // 0.4, 0.8 - 1, 0.2, 0.6 - 1, 0.0, 0.4, 0.8 - 1, 0.2
  EXPECT_EQ(filled, (std::vector<size_t>{20, 41, 72}));
  EXPECT_EQ(run.frames.size(), 93u);
  EXPECT_EQ(run.fatals, Codes{});
}

TEST(AudioTransitions, PiecesOfOneStreamAreReadOn) {
  const Bytes bytes = (adtsFrame(400) + adtsFrame(371)) * 60;
  std::vector<Bytes> pieces;
  for (size_t at = 0; at < bytes.size(); at += 7'777) {
    pieces.emplace_back(bytes.begin() + static_cast<ptrdiff_t>(at),
                        bytes.begin() + static_cast<ptrdiff_t>(std::min(at + 7'777, bytes.size())));
  }
  Files run(pieces);
  EXPECT_EQ(run.data, bytes);
  EXPECT_EQ(run.firsts(), (std::vector<size_t>{0}));
  EXPECT_EQ(run.fatals, Codes{});
  EXPECT_EQ(run.warnings, Codes{});
}

TEST(AudioTransitions, JunkShorterThanAFrameIsPassedInSilence) {
  const Bytes frame = layer2Frame(10, 1, 576);
  Files run({frame * 40, Bytes(300, 0x22) + frame * 40});
  EXPECT_EQ(run.data, frame * 80);
  EXPECT_EQ(run.fatals, Codes{});
  EXPECT_EQ(run.warnings, Codes{});
}

TEST(AudioTransitions, LongerJunkIsTold) {
  const Bytes frame = layer2Frame(10, 1, 576);
  Files run({frame * 40, Bytes(3'000, 0x22) + frame * 40});
  EXPECT_EQ(run.data, frame * 80);
  EXPECT_EQ(run.fatals, Codes{});
  EXPECT_EQ(run.warnings, (Codes{{38, 1}}));
  EXPECT_NE(run.texts.find("Bad data after audio transition (576)"), std::string::npos);
}

TEST(AudioTransitions, ASubstreamCutOffGoesAndItsFrameStays) {
  const Bytes unit = eac3Frame(0, 0, 768) + eac3Frame(1, 0, 256);
  Files run({unit * 20 + eac3Frame(0, 0, 768) + cut(eac3Frame(1, 0, 256), 200), unit * 20});
  EXPECT_EQ(run.data, unit * 20 + eac3Frame(0, 0, 768) + unit * 20);
  EXPECT_EQ(run.fatals, Codes{});
}

TEST(AudioTransitions, EachDtsHdFileHasItsStream) {
  const auto chunk = [](const char* name, const Bytes& bytes) {
    Bytes header(name, name + 8);
    header.resize(16);
    header[14] = static_cast<uint8_t>(bytes.size() >> 8);
    header[15] = static_cast<uint8_t>(bytes.size());
    return header + bytes;
  };
  const Bytes stream = dtsFrame(16, 1006) * 3;
  const Bytes file = chunk("DTSHDHDR", Bytes(8)) + chunk("STRMDATA", stream) +
                     chunk("FILEINFO", dtsFrame(16, 1006));
  Files run({file, file, stream, file});
  EXPECT_EQ(run.data, stream * 4);
  EXPECT_EQ(run.firsts(), (std::vector<size_t>{0, 3, 6, 9}));
  EXPECT_EQ(run.fatals, Codes{});
}

struct Described {
  explicit Described(const Bytes& bytes, int32_t mask = 7, bool dvb = false, bool legacy = false)
      : reading(Bytes{}) {
    reading.config.dvbBuf = dvb;
    state.config = &reading.config;
    state.report = &reading.report;
    state.stream = &stream;
    state.input.open(60000, 5000, std::make_unique<BytesSource>(bytes, 5000));
    discover_audio(state);
    describe_audio(state, mask, legacy);
    for (const auto& each : stream.pmt.descriptors) tags.push_back(each.front());
  }
  Reading reading;
  tsm_stream stream;
  audio_state state;
  Bytes tags;
};

TEST(DescribeAudio, TypesAndPesIdsByKind) {
  const auto check = [](const Bytes& bytes, bool dvb, int type, int pesId) {
    const Described described(bytes, 0, dvb);
    EXPECT_EQ(described.stream.pmt.streamType, type);
    EXPECT_EQ(described.stream.pesId, pesId);
    EXPECT_TRUE(described.tags.empty());
  };
  check(layer2Frame(10, 1, 576), false, 3, 192);
  check(audioFrame(384, {{0xFFFF, 16}, {4, 4}, {1, 2}, {0, 2}, {0, 8}}), false, 3, 192);
  check(audioFrame(384, {{0xFFFB, 16}, {9, 4}, {1, 2}, {0, 2}, {0, 8}}), false, 4, 192);
  check(adtsFrame(300), false, 15, 192);
  check(latmFrame(300, 3, 2, 0), false, 17, 192);
  check(ac3Frame(0, 20, 768), false, 129, 189);
  check(ac3Frame(0, 20, 768), true, 6, 189);
  check(eac3Frame(0, 0, 768), false, 135, 189);
  check(eac3Frame(0, 0, 768), true, 6, 189);
  check(dtsFrame(16, 1006), false, 6, 189);
}

TEST(DescribeAudio, DescriptorsGoByMaskAndForm) {
  EXPECT_EQ(Described(ac3Frame(0, 20, 768)).tags, (Bytes{0x05, 0x81}));
  EXPECT_EQ(Described(ac3Frame(0, 20, 768), 7, true).tags, (Bytes{0x05, 0x6A}));
  EXPECT_EQ(Described(ac3Frame(0, 20, 768), 6).tags, Bytes{});
  EXPECT_EQ(Described(eac3Frame(0, 0, 768)).tags, (Bytes{0x05, 0xCC}));
  EXPECT_EQ(Described(eac3Frame(0, 0, 768), 7, true).tags, (Bytes{0x05, 0x7A}));
  EXPECT_EQ(Described(eac3Frame(0, 0, 768), 5).tags, Bytes{});
  EXPECT_EQ(Described(dtsFrame(16, 1006)).tags, (Bytes{0x05}));
  EXPECT_EQ(Described(dtsFrame(16, 1006), 7, false, true).tags, (Bytes{0x05, 0x7B}));
  EXPECT_EQ(Described(dtsFrame(16, 1006), 3).tags, Bytes{});
  EXPECT_EQ(Described(adtsFrame(300)).tags, Bytes{});
  const Bytes both = dtsFrame(16, 1006) + dtsExtension(0, 2000);
  EXPECT_EQ(Described(both).stream.pmt.descriptors[0], (Bytes{5, 4, 'D', 'T', 'S', 'H'}));
  EXPECT_EQ(Described(both, 7, false, true).stream.pmt.descriptors[0],
            (Bytes{5, 4, 'D', 'T', 'S', '1'}));
}

TEST(AudioScan, AFullListTakesNoMore) {
  Reading run(Bytes{});
  audio_state state;
  state.report = &run.report;
  state.input.open(60000, 5000, std::make_unique<BytesSource>(adtsFrame(100) * 200, 5000));
  discover_audio(state);
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(scan_audio(state));
  EXPECT_EQ(state.frames.size(), kAudioFrames);
  EXPECT_EQ(state.frames[63].start, 6300);
}

}  // namespace
}  // namespace zel::mux
