// PCM out of other multiplexes: passed on, combined, mixed down, and brought into another form.

#include "zel/mux/engine/pcm/remultiplexed_pcm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "tests/support/seed.h"
#include "tests/unit/mux/engine/input/multiplex_bytes.h"
#include "tests/unit/mux/engine/pcm/data_set.h"
#include "tests/unit/mux/engine/pcm/pcm_run.h"
#include "zel/mux/engine/pcm/aes3_packing.h"
#include "zel/mux/engine/pcm/lpcm_units.h"
#include "zel/mux/engine/pcm/open_lpcm.h"
#include "zel/mux/engine/pcm/open_smpte302m.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using test::Bytes;
using test::DataSet;
using test::SentPes;

constexpr int kPid = 0x1100;
constexpr int kSource = 0x21;
constexpr int64_t kFirst = 90'000;  // PTS of sources
using Samples = std::vector<int32_t>;

Samples random_samples(size_t count, int bits, unsigned salt) {
  std::mt19937_64 random(test::testSeed() + salt);
  Samples samples(count);
  for (int32_t& each : samples) each = static_cast<int32_t>(random()) >> (32 - bits);
  return samples;
}

class RemultiplexedPcm : public test::PcmRun {
 protected:
  // A stream of payloads, `seconds` each, in a transport stream.
  struct part {
    int pid = kSource;
    int64_t pts = kFirst;
    double seconds = 0.02;
    std::vector<Bytes> units;
  };
  std::string multiplex(const std::vector<part>& parts) {
    Bytes bytes;
    for (const part& each : parts) {
      test::TsPackets source(each.pid);
      for (size_t i = 0; i < each.units.size(); ++i) {
        const auto time = static_cast<int64_t>(static_cast<double>(i) * each.seconds * 90'000);
        test::append(bytes, source.whole(test::pes(0xBD, each.units[i], {each.pts + time})));
      }
    }
    return file("in" + std::to_string(files_++) + ".ts", bytes);
  }

  // Data sets of 960 frames.
  static std::vector<Bytes> sets(const Samples& samples, int channels, int bits) {
    aes3_layout layout;
    layout.channels = channels;
    layout.wordSize = bits;
    aes3_packer packer(layout);
    for (int channel = 0; channel < channels; ++channel) {
      aes3_channel_status status{};
      for (size_t i = 0; i < status.size(); ++i) status[i] = static_cast<uint8_t>(7 * i + 3);
      packer.set_channel_status(channel, status);
    }
    const auto step = static_cast<size_t>(960 * channels);
    std::vector<Bytes> all;
    for (size_t at = 0; at < samples.size(); at += step) {
      const size_t count = std::min(step, samples.size() - at);
      Bytes unit(aes3_payload_size(layout, count / static_cast<size_t>(channels)));
      packer.pack(std::span(samples).subspan(at, count), unit);
      all.push_back(unit);
    }
    return all;
  }

  // Pieces of HDMV linear PCM: header and samples as they stand.
  static std::vector<Bytes> hdmv(const Samples& samples, int channels, int bits,
                                 unsigned assignment, unsigned rateCode = 1) {
    const auto step = static_cast<size_t>(240 * channels);
    std::vector<Bytes> all;
    for (size_t at = 0; at + step <= samples.size(); at += step) {
      Bytes unit(4);
      for (size_t i = at; i < at + step; ++i) {
        const auto value = static_cast<uint32_t>(samples[i]) << (bits == 16 ? 0 : 24 - bits);
        if (bits > 16) unit.push_back(static_cast<uint8_t>(value >> 16));
        unit.push_back(static_cast<uint8_t>(value >> 8));
        unit.push_back(static_cast<uint8_t>(value));
      }
      const size_t payload = unit.size() - 4;
      unit[0] = static_cast<uint8_t>(payload >> 8);
      unit[1] = static_cast<uint8_t>(payload);
      unit[2] = static_cast<uint8_t>(assignment << 4 | rateCode);
      unit[3] = static_cast<uint8_t>((bits - 12) / 4 << 6);
      all.push_back(unit);
    }
    return all;
  }

  tsm_smpte302m& smpte302m(const std::string& name, int pid = kSource) {
    record_ = tsm_add_smpte302m(program);
    record_->pid = kPid;
    record_->sourceTsPid = pid;
    if (!name.empty()) tarn_array_append_text(&record_->pairFiles[0], name);
    return *record_;
  }
  tsm_lpcm& lpcm(const std::string& name) {
    tsm_lpcm* const record = tsm_add_lpcm(program);
    record->pid = kPid;
    record->sourceTsPid = kSource;
    tarn_array_append_text(&record->files, name);
    return *record;
  }
  // Units as they went out; what is told but that there are no pictures.
  std::vector<SentPes> send() {
    if (add(*record_, open_smpte302m, start_smpte302m) != nullptr) run();
    std::erase(told, 85);
    return pesOf(kPid);
  }
  std::vector<SentPes> send(tsm_lpcm& record) {
    if (add(record, open_lpcm, start_lpcm) != nullptr) run();
    return pesOf(kPid);
  }
  static Samples samples_of(const std::vector<SentPes>& all) {
    Samples samples;
    for (const SentPes& each : all) {
      const DataSet set = test::unpack(each.payload);
      samples.insert(samples.end(), set.samples.begin(), set.samples.end());
    }
    return samples;
  }
  // HDMV pieces back to samples.
  static Samples hdmv_samples(const std::vector<SentPes>& all, int bits) {
    Samples samples;
    const size_t size = bits == 16 ? 2 : 3;
    for (const SentPes& each : all) {
      for (size_t at = 4; at + size <= each.payload.size(); at += size) {
        uint32_t value = 0;
        for (size_t i = 0; i < size; ++i) value = value << 8 | each.payload[at + i];
        samples.push_back(static_cast<int32_t>(value << (32 - 8 * size)) >> (32 - bits));
      }
    }
    return samples;
  }

  tsm_smpte302m* record_ = nullptr;
  int files_ = 0;
};

TEST_F(RemultiplexedPcm, HdmvPiecesComeOutAsTheyWentIn) {
  for (const int bits : {16, 20, 24}) {
    SCOPED_TRACE(bits);
    startAnew();
    const auto units = hdmv(random_samples(6 * 240 * 20, bits, 1), 6, bits, 9);
    const auto all = send(lpcm(multiplex({{kSource, kFirst, 0.005, units}})));
    ASSERT_EQ(all.size(), units.size());
    for (size_t i = 0; i < units.size(); ++i) EXPECT_EQ(all[i].payload, units[i]) << i;
    EXPECT_TRUE(told.empty());
    EXPECT_EQ(mux.streams.back()->pmt.streamType, 0x80);
  }
}

TEST_F(RemultiplexedPcm, TheFormOfIeee1394ComesOutAsItWentIn) {
  std::vector<Bytes> units;
  for (unsigned i = 0; i < 20; ++i) {
    Bytes unit = {0xA0, 6, 0, 2 << 3 | 1};
    for (const int32_t sample : random_samples(2 * 480, 16, i)) {
      unit.push_back(static_cast<uint8_t>(sample >> 8));
      unit.push_back(static_cast<uint8_t>(sample));
    }
    units.push_back(unit);
  }
  tsm_lpcm& record = lpcm(multiplex({{kSource, kFirst, 0.01, units}}));
  record.pesLpcmType = 1;
  const auto all = send(record);
  ASSERT_EQ(all.size(), units.size());
  for (size_t i = 0; i < units.size(); ++i) EXPECT_EQ(all[i].payload, units[i]) << i;
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(mux.streams.back()->pmt.streamType, 0x83);
}

TEST_F(RemultiplexedPcm, ALinearPcmStreamThatChangesEndsThere) {
  struct row {
    int channels, bits;
    unsigned assignment;
    int code;
  };
  for (const row& other : {row{6, 16, 9, -171}, row{2, 24, 3, -172}}) {
    startAnew();
    const auto first = hdmv(random_samples(2 * 240 * 6, 16, 1), 2, 16, 3);
    auto units = first;
    for (const Bytes& each : hdmv(random_samples(6 * 240 * 6, other.bits, 2), other.channels,
                                  other.bits, other.assignment)) {
      units.push_back(each);
    }
    const auto all = send(lpcm(multiplex({{kSource, kFirst, 0.005, units}})));
    EXPECT_EQ(told, (std::vector<int>{other.code}));
    ASSERT_EQ(all.size(), first.size());
    EXPECT_EQ(all.back().payload, first.back());
  }
}

TEST_F(RemultiplexedPcm, WhatHoldsNoLinearPcmIsTold) {
  const std::string name = multiplex({{kSource, kFirst, 0.02, {test::pattern(3'000, 1)}}});
  EXPECT_TRUE(send(lpcm(name)).empty());
  EXPECT_EQ(told.back(), -94);
}

TEST_F(RemultiplexedPcm, PairsAreCombinedBitForBitWhereTheyBelong) {
  constexpr size_t kFrames = 20 * 960;
  Samples pairs[3];
  std::vector<part> parts;
  for (unsigned i = 0; i < 3; ++i) {
    pairs[i] = random_samples(2 * kFrames, 20, i);
    // Each begins 10 ms behind the one before: 480 frames.
    parts.push_back({kSource + static_cast<int>(i), kFirst + i * 900, 0.02, sets(pairs[i], 2, 20)});
  }
  tsm_smpte302m& record = smpte302m(multiplex(parts), 0);
  record.remuxToCombine = 3;
  for (int i = 0; i < 3; ++i) record.srcTsPidToCombine[i] = kSource + i;
  const auto all = send();
  EXPECT_TRUE(told.empty());
  ASSERT_FALSE(all.empty());
  const DataSet first = test::unpack(all[0].payload);
  EXPECT_EQ(first.channels, 6);
  EXPECT_EQ(first.bits, 20);
  const Samples samples = samples_of(all);
  ASSERT_EQ(samples.size(), 6 * kFrames);
  for (size_t frame = 0; frame < kFrames; ++frame) {
    for (size_t channel = 0; channel < 6; ++channel) {
      const size_t from = frame + (2 - channel / 2) * 480;
      const int32_t sample = from < kFrames ? pairs[channel / 2][2 * from + channel % 2] : 0;
      ASSERT_EQ(samples[6 * frame + channel], sample) << frame << " " << channel;
    }
  }
  // The channel status and the blocks of each pair go with its samples.
  for (size_t frame = 0; frame < 960; ++frame) {
    for (size_t pair = 0; pair < 3; ++pair) {
      const size_t from = (frame + (2 - pair) * 480) % 192;
      const unsigned status = (7 * (from / 8) + 3) >> from % 8 & 1u;
      EXPECT_EQ(first.flags[6 * frame + 2 * pair], status << 1 | (from == 0 ? 1u : 0u));
      EXPECT_EQ(first.flags[6 * frame + 2 * pair + 1], status << 1);
    }
  }
}

TEST_F(RemultiplexedPcm, WhatCantBeCombinedIsTold) {
  const auto stereo = sets(random_samples(2 * 960 * 4, 16, 1), 2, 16);
  const auto wide = sets(random_samples(2 * 960 * 4, 24, 2), 2, 24);
  const auto four = sets(random_samples(4 * 960 * 4, 16, 3), 4, 16);
  const std::string name = multiplex(
      {{0x21, kFirst, 0.02, stereo}, {0x22, kFirst, 0.02, wide}, {0x23, kFirst, 0.02, four}});
  struct row {
    int count;
    int second;
    int code;
  };
  for (const row& each :
       {row{5, 0x22, -130}, row{2, 0x22, -131}, row{2, 0x23, -132}, row{2, 0, -72}}) {
    SCOPED_TRACE(each.code);
    startAnew();
    tsm_smpte302m& record = smpte302m(name, 0);
    record.remuxToCombine = each.count;
    record.srcTsPidToCombine[0] = 0x21;
    record.srcTsPidToCombine[1] = each.second;
    EXPECT_TRUE(send().empty());
    EXPECT_EQ(told, (std::vector<int>{each.code}));
  }
}

TEST_F(RemultiplexedPcm, ChannelsAreMixedDownToTwo) {
  constexpr size_t kFrames = 5 * 960;
  const Samples in = random_samples(6 * kFrames, 24, 1);
  tsm_smpte302m& record = smpte302m(multiplex({{kSource, kFirst, 0.02, sets(in, 6, 24)}}));
  record.downmixToStereo = 1;
  const double left[] = {1, 0, 0.7071, 0, 0.5, 0, 0, 0};
  const double right[] = {0, 1, 0.7071, 0, 0, -0.5, 0, 0};
  std::copy(std::begin(left), std::end(left), record.dmCoefL);
  std::copy(std::begin(right), std::end(right), record.dmCoefR);
  const Samples out = samples_of(send());
  EXPECT_TRUE(told.empty());
  ASSERT_EQ(out.size(), 2 * kFrames);
  int clipped = 0;
  for (size_t frame = 0; frame < kFrames; ++frame) {
    for (size_t side = 0; side < 2; ++side) {
      double sum = 0;
      for (size_t i = 0; i < 6; ++i) sum += in[6 * frame + i] * (side == 0 ? left : right)[i];
      const double kept = std::clamp(sum, -8'388'608.0, 8'388'607.0);
      clipped += kept != sum ? 1 : 0;
      ASSERT_NEAR(out[2 * frame + side], kept, 0.5001) << frame;
    }
  }
  EXPECT_GT(clipped, 100);
}

TEST_F(RemultiplexedPcm, AMixOfAStreamThatChangesEndsThere) {
  const auto first = sets(random_samples(4 * 960 * 4, 16, 1), 4, 16);
  struct row {
    int channels, bits, code;
  };
  for (const row& other : {row{6, 16, -136}, row{4, 20, -137}}) {
    startAnew();
    auto units = first;
    const auto size = static_cast<size_t>(other.channels) * 960 * 4;
    for (const Bytes& each :
         sets(random_samples(size, other.bits, 2), other.channels, other.bits)) {
      units.push_back(each);
    }
    smpte302m(multiplex({{kSource, kFirst, 0.02, units}})).downmixToStereo = 1;
    const Samples out = samples_of(send());
    EXPECT_EQ(told, (std::vector<int>{other.code}));
    EXPECT_EQ(out.size(), 2u * 960 * 4);
  }
}

TEST_F(RemultiplexedPcm, OnlyTransportStreamsAreMixedDown) {
  tsm_smpte302m& record = smpte302m(file("raw", Bytes(48'000)), 0);
  record.downmixToStereo = 1;
  EXPECT_TRUE(send().empty());
  EXPECT_EQ(told, (std::vector<int>{-138}));
}

TEST_F(RemultiplexedPcm, CombinedPairsAreMixedDownToo) {
  constexpr size_t kFrames = 4 * 960;
  const Samples one = random_samples(2 * kFrames, 16, 1);
  const Samples two = random_samples(2 * kFrames, 16, 2);
  tsm_smpte302m& record = smpte302m(
      multiplex({{0x21, kFirst, 0.02, sets(one, 2, 16)}, {0x22, kFirst, 0.02, sets(two, 2, 16)}}),
      0);
  record.remuxToCombine = 2;
  record.srcTsPidToCombine[0] = 0x21;
  record.srcTsPidToCombine[1] = 0x22;
  record.downmixToStereo = 1;
  std::fill(std::begin(record.dmCoefL), std::end(record.dmCoefL), 0.0);
  record.dmCoefL[3] = 1;  // the right channel of the second pair
  const Samples out = samples_of(send());
  EXPECT_TRUE(told.empty());
  ASSERT_EQ(out.size(), 2 * kFrames);
  for (size_t i = 0; i < kFrames; ++i) {
    ASSERT_EQ(out[2 * i], two[2 * i + 1]);
    ASSERT_EQ(out[2 * i + 1], one[2 * i + 1]);
  }
}

TEST_F(RemultiplexedPcm, Smpte302mBecomesHdmv) {
  constexpr size_t kFrames = 4 * 960;
  const Samples in = random_samples(6 * kFrames, 24, 1);
  tsm_smpte302m& record = smpte302m(multiplex({{kSource, kFirst, 0.02, sets(in, 6, 24)}}));
  record.remuxLpcmType = 1;
  record.lpcmSinkType = 1;
  const auto all = send();
  EXPECT_TRUE(told.empty());
  const Samples out = hdmv_samples(all, 24);
  ASSERT_EQ(out.size(), in.size());
  // Discs have surround before the low frequencies.
  constexpr size_t kOrder[] = {0, 1, 2, 4, 5, 3};
  for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], in[i / 6 * 6 + kOrder[i % 6]]) << i;
  EXPECT_EQ(mux.streams.back()->pmt.streamType, 0x80);
  EXPECT_TRUE(mux.streams.back()->pmt.descriptors.empty());
}

TEST_F(RemultiplexedPcm, Smpte302mIsCutToSixteenBitsForIeee1394) {
  constexpr size_t kFrames = 4 * 960;
  const Samples in = random_samples(2 * kFrames, 20, 1);
  tsm_smpte302m& record = smpte302m(multiplex({{kSource, kFirst, 0.02, sets(in, 2, 20)}}));
  record.remuxLpcmType = 1;
  record.lpcmSinkType = 2;
  const auto all = send();
  EXPECT_EQ(told, (std::vector<int>{146}));
  const Samples out = hdmv_samples(all, 16);
  ASSERT_EQ(out.size(), in.size());
  for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], in[i] >> 4) << i;
  EXPECT_EQ(all[0].payload[0], 0xA0);
}

TEST_F(RemultiplexedPcm, HdmvBecomesSmpte302m) {
  constexpr size_t kFrames = 20 * 240;
  const Samples in = random_samples(8 * kFrames, 16, 1);
  tsm_smpte302m& record = smpte302m(multiplex({{kSource, kFirst, 0.005, hdmv(in, 8, 16, 11)}}));
  record.remuxLpcmType = 1;
  record.lpcmSrcType = 1;
  const auto all = send();
  EXPECT_TRUE(told.empty());
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(test::unpack(all[0].payload).channels, 8);
  const Samples out = samples_of(all);
  ASSERT_EQ(out.size(), in.size());
  constexpr size_t kOrder[] = {0, 1, 2, 6, 4, 5, 7, 3};
  for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i / 8 * 8 + kOrder[i % 8]], in[i]) << i;
  EXPECT_EQ(mux.streams.back()->pmt.streamType, 6);
}

TEST_F(RemultiplexedPcm, WhatNoOtherFormHasIsTold) {
  const auto mono = hdmv(random_samples(2 * 240 * 8, 16, 1), 2, 16, 1);  // with a silent channel
  const auto fast = hdmv(random_samples(2 * 240 * 8, 16, 1), 2, 16, 3, 4);
  const auto four = sets(random_samples(4 * 960 * 4, 16, 3), 4, 16);
  struct row {
    std::vector<Bytes> units;
    int source, sink;
    std::vector<int> codes;
  };
  for (const row& each : {row{mono, 1, 0, {-153}}, row{fast, 1, 0, {-154}}, row{four, 0, 2, {-156}},
                          row{four, 5, 0, {-94}}, row{four, 0, 7, {-94}}}) {
    startAnew();
    tsm_smpte302m& record = smpte302m(multiplex({{kSource, kFirst, 0.02, each.units}}));
    record.remuxLpcmType = 1;
    record.lpcmSrcType = each.source;
    record.lpcmSinkType = each.sink;
    EXPECT_TRUE(send().empty());
    EXPECT_EQ(told, each.codes);
  }
}

}  // namespace
}  // namespace zel::mux
