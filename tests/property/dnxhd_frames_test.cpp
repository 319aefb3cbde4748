// What holds for every frame of every id, whatever the picture: its size, its end, that it checks
// and decodes, and that neither other frames, nor threads, nor the instruction set have a part in
// it.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/seed.h"
#include "tests/support/vector_targets.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/bitstream/hd_decoder.h"
#include "zel/dnxhd/encoder/encoder_core.h"
#include "zel/dnxhd/front_end/comp_info.h"
#include "zel/dnxhd/jobs/decode_workers.h"

namespace zel::dnxhd {
namespace {

using Morvalen::Zel::CompInfo;
using Morvalen::Zel::kCompInfos;
using test::AlignedBytes;
using test::DnxhdPlanes;
using test::DnxhdPlanesSource;

constexpr uint8_t kGuard = 0xA5;
constexpr size_t kGuardBytes = 64;

// Patches of all kinds, from black to noise of black and white, in any sizes and shares.
DnxhdPlanes drawn(const VCIDEntry& entry, uint64_t seed) {
  DnxhdPlanes planes(entry);
  std::mt19937_64 random(seed);
  const int top = (1 << entry.depth) - 1;
  const auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };
  const size_t width = entry.width;
  const size_t lines = entry.lines;
  const size_t patches = 1 + below(40);
  for (size_t patch = 0; patch < patches; ++patch) {
    // The first covers the picture.
    const size_t x0 = patch == 0 ? 0 : below(width);
    const size_t y0 = patch == 0 ? 0 : below(lines);
    const size_t x1 = patch == 0 ? width : x0 + 1 + below(width - x0);
    const size_t y1 = patch == 0 ? lines : y0 + 1 + below(lines - y0);
    const size_t kind = below(6);
    const int base = static_cast<int>(below(static_cast<size_t>(top) + 1));
    const int amplitude = 1 << below(entry.depth + 1);
    const size_t period = 1 + below(64);
    for (size_t plane = 0; plane < 3; ++plane) {
      const size_t across = planes.width(plane);
      const size_t shrink = width / across;
      for (size_t y = y0; y < y1; ++y) {
        for (size_t x = x0 / shrink; x < x1 / shrink; ++x) {
          int value = base;
          if (kind == 0) value = patch % 2 == 0 ? 0 : top;
          if (kind == 1)
            value = static_cast<int>((x + y * 3) * static_cast<size_t>(amplitude) / 64);
          if (kind == 2) value += static_cast<int>(random() & static_cast<uint64_t>(amplitude - 1));
          if (kind == 3) value = (random() & 1) != 0 ? top : 0;
          if (kind == 4) value = (x / period + y / period) % 2 != 0 ? top : 0;
          if (kind == 5) value = y % 2 != 0 ? base : top - base;  // as two fields far apart
          planes.plane(plane)[y * across + x] = std::clamp(value, 0, top);
        }
      }
    }
  }
  return planes;
}

class Encoding {
 public:
  Encoding(const VCIDEntry& entry, int32_t threads) : entry_(entry) {
    EXPECT_EQ(core_.RebuildJobs(threads), kSuccessful);
    EXPECT_EQ(core_.Configure(entry, std::make_unique<DnxhdPlanesSource>()), kSuccessful);
  }

  std::vector<uint8_t> operator()(const DnxhdPlanes& picture) {
    const AlignedBytes memory(entry_.frameBytes + kGuardBytes);
    std::fill(memory.bytes().begin(), memory.bytes().end(), kGuard);
    EXPECT_EQ(core_.EncodeFrame(&picture, memory.bytes()), kSuccessful);
    const auto behind = memory.bytes().subspan(entry_.frameBytes);
    EXPECT_TRUE(std::all_of(behind.begin(), behind.end(), [](int b) { return b == kGuard; }));
    const auto frame = memory.bytes().first(entry_.frameBytes);
    EXPECT_EQ(CheckFrame(entry_.compressionId, frame), kSuccessful);
    return {frame.begin(), frame.end()};
  }

 private:
  const VCIDEntry& entry_;
  EncoderCore core_;
};

std::vector<int> decoded(const VCIDEntry& entry, std::span<const uint8_t> frame,
                         RowRunner& runner) {
  DnxhdPlanes planes(entry);
  EXPECT_EQ(FrameDecoder(entry, 1, runner).Decode(frame, Pictures::kAll, planes), kSuccessful);
  return planes.samples();
}

// Each picture ends with zeros and the mark, and the zeros begin where its last row ends.
void expectWholePictures(const VCIDEntry& entry, std::span<const uint8_t> frame) {
  const PictureGeometry geometry = GeometryOf(entry);
  RowReader reader(entry);
  for (size_t i = 0; i < geometry.pictures; ++i) {
    const auto picture = frame.subspan(i * geometry.pictureBytes, geometry.pictureBytes);
    FrameHeader header;
    ASSERT_EQ(ParseFrameHeader(picture, header), kSuccessful);
    EXPECT_EQ(header.rowCount, geometry.mbRows);
    EXPECT_EQ(header.rowOffsets[0], 0u);
    const auto data = picture.subspan(kHeaderBytes);
    size_t end = 0;
    ASSERT_EQ(reader.Check(data, header.rowOffsets[geometry.mbRows - 1], end), kSuccessful);
    ASSERT_LE(end + kEndMark.size(), data.size());
    EXPECT_TRUE(std::all_of(data.begin() + static_cast<ptrdiff_t>(end), data.end() - 4,
                            [](uint8_t byte) { return byte == 0; }));
    EXPECT_TRUE(std::equal(kEndMark.begin(), kEndMark.end(), data.end() - 4));
  }
}

TEST(DnxhdFrames, AnyPictureFillsTheBytesOfItsId) {
  for (const CompInfo& row : kCompInfos) {
    SCOPED_TRACE(row.compressionId);
    const VCIDEntry& entry = *FindEntry(row.compressionId);
    Encoding encode(entry, 1);
    SerialRowRunner serial;
    for (uint64_t round = 0; round < 3; ++round) {
      const uint64_t seed = test::testSeed() * 1000 + row.compressionId * 10 + round;
      SCOPED_TRACE("picture of seed " + std::to_string(seed));
      const std::vector<uint8_t> frame = encode(drawn(entry, seed));
      EXPECT_EQ(frame.size(), row.frameBytes);
      ASSERT_NO_FATAL_FAILURE(expectWholePictures(entry, frame));
      EXPECT_FALSE(decoded(entry, frame, serial).empty());
    }
  }
}

// So a clip can be cut anywhere, and its parts be encoded anywhere: joined they are the whole.
TEST(DnxhdFrames, NothingGoesFromOneFrameToTheNext) {
  for (const uint32_t id : {1235u, 1242u, 1252u, 1256u, 1260u}) {
    SCOPED_TRACE(id);
    const VCIDEntry& entry = *FindEntry(id);
    const std::vector<DnxhdPlanes> clip = {drawn(entry, test::testSeed() + id),
                                           drawn(entry, test::testSeed() + id + 1),
                                           drawn(entry, test::testSeed() + id + 2)};
    for (const int32_t threads : {1, 2}) {
      Encoding whole(entry, threads);
      std::vector<std::vector<uint8_t>> frames;
      for (const DnxhdPlanes& picture : clip) frames.push_back(whole(picture));
      EXPECT_TRUE(Encoding(entry, threads)(clip[2]) == frames[2]);
      EXPECT_TRUE(Encoding(entry, threads)(clip[1]) == frames[1]);
      EXPECT_TRUE(whole(clip[0]) == frames[0]);
      EXPECT_FALSE(frames[0] == frames[1]);
    }
  }
}

TEST(DnxhdFrames, EveryInstructionSetGivesTheSameFramesAndSamples) {
  for (const uint32_t id : {1237u, 1241u, 1253u, 1256u, 1260u}) {
    SCOPED_TRACE(id);
    const VCIDEntry& entry = *FindEntry(id);
    const DnxhdPlanes picture = drawn(entry, test::testSeed() + 7 * id);
    std::vector<uint8_t> frame;
    std::vector<int> samples;
    size_t targets = 0;
    test::forEachVectorTarget([&](const char* target) {
      SCOPED_TRACE(target);
      SerialRowRunner serial;
      const std::vector<uint8_t> one = Encoding(entry, 2)(picture);
      const std::vector<int> made = decoded(entry, one, serial);
      if (++targets > 1) {
        EXPECT_TRUE(one == frame);
        EXPECT_TRUE(made == samples);
      }
      frame = one;
      samples = made;
    });
    EXPECT_GE(targets, 1u);
    const auto workers = DecodeWorkers::Create(3);
    ASSERT_NE(workers, nullptr);
    EXPECT_TRUE(decoded(entry, frame, *workers) == samples);
  }
}

}  // namespace
}  // namespace zel::dnxhd
