#include "zel/mux/engine/video/second_layer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/analysed_video.h"
#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/unit/mux/engine/video/avc_bytes.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_config;
using Morvalen::Zel::tsm_video;
using test::AnalysedVideo;
using test::analyseVideo;
using test::AvcBytes;
using test::AvcPicture;
using test::HeaderBits;
using test::VideoFeed;

// A stream of two views whose second is noise behind right headers, and what each layer should get.
struct TwoLayers {
  AvcBytes stream;
  std::vector<uint8_t> base, dependent;

  void take(std::vector<uint8_t>& layer, const std::function<void()>& write) {
    const size_t from = stream.bytes.size();
    write();
    layer.insert(layer.end(), stream.bytes.begin() + static_cast<ptrdiff_t>(from),
                 stream.bytes.end());
  }
  void subsetSet(uint32_t views) {
    HeaderBits out;
    syntax::AvcSps sps = stream.sps;
    sps.profileIdc = 118;
    sps.id = 1;
    writeSps(out, sps);
    out.flag(true);  // bit_equal_to_one
    out.ue(views - 1);
    for (uint32_t i = 0; i < views; ++i) out.ue(i * 7);
    for (uint32_t i = 1; i < views; ++i) {
      out.ue(0);
      out.ue(0);
    }
    for (uint32_t i = 1; i < views; ++i) {
      out.ue(0);
      out.ue(0);
    }
    out.ue(0);  // one level
    out.u(8, 40);
    out.ue(0);  // one operation point
    out.u(3, 0);
    out.ue(0);
    out.ue(0);
    out.ue(0);
    out.flag(false);
    out.flag(false);
    stream.nal(15, 3, out.rbsp());
  }
  // Of the header extension: 24 bits.
  void extended(int type, uint32_t extension, size_t size) {
    std::vector<uint8_t> rbsp{static_cast<uint8_t>(extension >> 16),
                              static_cast<uint8_t>(extension >> 8),
                              static_cast<uint8_t>(extension)};
    for (size_t i = 0; i < size; ++i) rbsp.push_back(static_cast<uint8_t>(i * 37 | 1));
    stream.nal(type, 2, rbsp);
  }
  void build(uint32_t views, uint32_t extension, int pictures) {
    for (int i = 0; i < pictures; ++i) {
      take(base, [&] {
        stream.delimiter();
        if (i == 0) stream.sets();
      });
      take(dependent, [&] {
        if (i == 0 && views > 0) subsetSet(views);
        extended(14, 0x400007, 0);
      });
      take(base, [&] {
        AvcPicture picture;
        picture.idr = i == 0;
        picture.type = i == 0 ? 'I' : 'P';
        picture.frameNum = static_cast<uint32_t>(i);
        picture.poc = static_cast<uint32_t>(i) * 2;
        stream.picture(picture);
      });
      take(dependent, [&] { extended(20, extension, 300 + static_cast<size_t>(i) * 10); });
    }
  }
};

// non_idr_flag, priority 0, view_id 7, temporal id 0, anchor, inter-view, reserved one.
constexpr uint32_t kView7 = 0x400000 | 7u << 6 | 3;
// svc_extension_flag; dependency_id 1.
constexpr uint32_t kSpatial = 0x800000 | 1u << 12 | 7;
constexpr uint32_t kQuality = 0x800000 | 1u << 8 | 7;

AnalysedVideo analysed(const std::vector<uint8_t>& bytes, int subStreamType, size_t chunk = 999,
                       std::function<void(tsm_config&, tsm_video&)> more = {}) {
  VideoFeed feed;
  feed.chunk = chunk;
  feed.configure = [=](tsm_config& config, tsm_video& record) {
    record.subStreamType = subStreamType;
    record.pidAvcss = 0x1A0;
    if (more) more(config, record);
  };
  return analyseVideo(bytes, feed);
}

TEST(SecondLayer, EachLayerGetsItsNalUnits) {
  TwoLayers layers;
  layers.build(2, kView7, 12);
  for (const size_t chunk : {1, 2, 5, 100, 60'000}) {
    const AnalysedVideo video = analysed(layers.stream.bytes, 1, chunk);
    EXPECT_EQ(video.messages, "W46 ") << chunk;
    ASSERT_EQ(video.units.size(), 12u);
    EXPECT_EQ(video.bytes, layers.base) << chunk;
    EXPECT_EQ(video.dependentBytes, layers.dependent) << chunk;
    for (size_t i = 0; i < 12; ++i) {
      EXPECT_EQ(video.removals[i].size, video.units[i].size + video.units[i].dependentSize);
      // The prefix NAL unit of eight bytes, and the slice.
      if (i == 0) continue;
      EXPECT_EQ(video.units[i].dependentSize, 7 + 7 + 300 + static_cast<int>(i) * 10);
    }
  }
}

TEST(SecondLayer, ItsLineAndDescriptors) {
  TwoLayers layers;
  layers.build(2, kView7, 6);
  const AnalysedVideo video = analysed(layers.stream.bytes, 1);
  EXPECT_EQ(video.pmt.streamType, 27);
  EXPECT_EQ(video.pmt.layerPid, 0x1A0);
  EXPECT_EQ(video.pmt.layerStreamType, 32);
  ASSERT_EQ(video.pmt.layerDescriptors.size(), 2u);
  EXPECT_EQ(video.pmt.layerDescriptors[0][0], 0x31);
  EXPECT_EQ(video.pmt.layerDescriptors[1], (std::vector<uint8_t>{0x04, 4, 0x79, 0xC1, 0x40, 0xC1}));
  EXPECT_EQ(video.characteristics.dependentBitRate, video.characteristics.bitRate)
      << "without a rate of its own the base layer's is doubled";
  EXPECT_EQ(video.characteristics.vbvSize, 2 * (21'000'000 / 8 / 2048));
}

TEST(SecondLayer, WhatIsNotThereIsToldAndTheBaseGoesAlone) {
  AvcBytes stream;
  stream.sets();
  stream.group({{'I', 0}, {'P', 1}, {'P', 2}});
  const AnalysedVideo mvc = analysed(stream.bytes, 1);
  EXPECT_EQ(mvc.messages, "W46 W133 ");
  EXPECT_EQ(mvc.bytes, stream.bytes);
  EXPECT_EQ(mvc.pmt.layerPid, -1);
  EXPECT_EQ(analysed(stream.bytes, 2).messages, "W46 W134 ");
}

TEST(SecondLayer, AViewThatNoSetNames) {
  TwoLayers none, other;
  none.build(0, kView7, 6);
  EXPECT_EQ(analysed(none.stream.bytes, 1).messages, "W46 F139 ");
  other.build(2, kView7 + (1u << 6), 6);
  EXPECT_EQ(analysed(other.stream.bytes, 1).messages, "W46 F139 ");
}

TEST(SecondLayer, OnlySpatialLayersOfSvc) {
  TwoLayers spatial, quality;
  spatial.build(0, kSpatial, 6);
  const AnalysedVideo video = analysed(spatial.stream.bytes, 2);
  EXPECT_EQ(video.messages, "W46 ");
  EXPECT_EQ(video.pmt.layerStreamType, 31);
  ASSERT_EQ(video.pmt.layerDescriptors.size(), 2u);
  EXPECT_EQ(video.pmt.layerDescriptors[0][0], 0x30);
  quality.build(0, kQuality, 6);
  EXPECT_EQ(analysed(quality.stream.bytes, 2).messages, "W46 F151 ");
}

// What the packets of a PID carry, without their PES headers; they have to count on.
std::vector<uint8_t> payload_of(const std::vector<uint8_t>& packets, int pid, int& pesPackets) {
  std::vector<uint8_t> found;
  int counter = -1;
  for (size_t at = 0; at + 188 <= packets.size(); at += 188) {
    const uint8_t* const packet = packets.data() + at;
    if (((packet[1] & 0x1F) << 8 | packet[2]) != pid || (packet[3] & 0x10) == 0) continue;
    if (counter >= 0) {
      EXPECT_EQ(packet[3] & 15, (counter + 1) & 15);
    }
    counter = packet[3] & 15;
    size_t begin = 4;
    if ((packet[3] & 0x20) != 0) begin += 1u + packet[4];
    if ((packet[1] & 0x40) != 0) {
      ++pesPackets;
      EXPECT_EQ(packet[begin + 2], 1);
      EXPECT_EQ(packet[begin + 7] & 0x80, 0x80) << "a time stamp";
      begin += 9u + packet[begin + 8];
    }
    found.insert(found.end(), packet + begin, packet + 188);
  }
  return found;
}

TEST(SecondLayer, EachLayerGoesOutOnItsPid) {
  TwoLayers layers;
  layers.build(2, kView7, 60);
  test::EngineRun run;
  auto* const program = run.addProgram();
  program->pcrPid = 0x1FF;
  auto* const record = tsm_add_video(program);
  test::MemoryInput input;
  input.bytes = layers.stream.bytes;
  record->user = &input;
  record->pid = 0x31;
  record->subStreamType = 1;
  record->pidAvcss = 0x1A0;
  record->rate = 2e6;
  EXPECT_GT(run.multiplex(), 0) << run.texts;
  int basePes = 0, dependentPes = 0;
  EXPECT_EQ(payload_of(run.bytes, 0x31, basePes), layers.base);
  EXPECT_EQ(payload_of(run.bytes, 0x1A0, dependentPes), layers.dependent);
  EXPECT_EQ(basePes, 60);
  EXPECT_EQ(dependentPes, 60);
}

TEST(SecondLayer, LayersOfAMultiplexComeOutOfAPidEach) {
  TwoLayers layers;
  layers.build(2, kView7, 60);
  test::ScratchFolder folder;
  const std::string path = folder.file("mvc.ts");
  for (const bool again : {false, true}) {
    SCOPED_TRACE(again);
    test::EngineRun run;
    auto* const program = run.addProgram();
    program->pcrPid = 0x1FF;
    auto* const record = tsm_add_video(program);
    test::MemoryInput input;
    record->pid = again ? 0x41 : 0x31;
    record->pidAvcss = again ? 0x42 : 0x1A0;
    record->subStreamType = 1;
    record->rate = 2e6;
    if (again) {
      record->sourceTsPid = 0x31;
      record->sourceTsPidAvcss = 0x1A0;
      Morvalen::Zel::tarn_array_append_text(&record->files, path);
    } else {
      input.bytes = layers.stream.bytes;
      record->user = &input;
    }
    EXPECT_GT(run.multiplex(), 0) << run.texts;
    int basePes = 0, dependentPes = 0;
    EXPECT_EQ(payload_of(run.bytes, record->pid, basePes), layers.base);
    EXPECT_EQ(payload_of(run.bytes, record->pidAvcss, dependentPes), layers.dependent);
    EXPECT_EQ(basePes, 60);
    EXPECT_EQ(dependentPes, 60);
    test::writeFile(path, run.bytes);
  }
}

}  // namespace
}  // namespace zel::mux
