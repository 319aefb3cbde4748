#include "zel/dnxhd/encoder/encoder_core.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "tests/support/dnxhd_planes.h"
#include "tests/support/seed.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/front_end/comp_info.h"

namespace zel::dnxhd {
namespace {

using Morvalen::Zel::CompInfo;
using Morvalen::Zel::kCompInfos;

using test::AlignedBytes;
using test::DnxhdPlanes;
using test::DnxhdPlanesSource;

constexpr uint8_t kGuard = 0xA5;

// Slopes, edges and some noise, in thousandths of the range: something for every level.
void fillPicture(DnxhdPlanes& planes, int noise) {
  std::mt19937_64 random(test::testSeed());
  const int top = (1 << planes.depth()) - 1;
  for (size_t plane = 0; plane < 3; ++plane) {
    const size_t width = planes.width(plane);
    for (size_t i = 0; i < planes.plane(plane).size(); ++i) {
      const size_t x = i % width;
      const size_t y = i / width;
      int value = static_cast<int>((x + y * 2 + x * y / 997) % static_cast<size_t>(top));
      if (x / 100 % 3 == 1) value = top / 3;
      if (x > width / 2) value += static_cast<int>(random() % 1000) * noise * top / 1000000;
      planes.plane(plane)[i] = std::min(value, top);
    }
  }
}

class Encoding {
 public:
  explicit Encoding(uint32_t id, int32_t threads = 1)
      : entry(*FindEntry(id)), source(entry), frame(entry.frameBytes + 64) {
    EXPECT_EQ(core.RebuildJobs(threads), kSuccessful);
    EXPECT_EQ(core.Configure(entry, std::make_unique<DnxhdPlanesSource>()), kSuccessful);
    std::fill(frame.bytes().begin(), frame.bytes().end(), kGuard);
  }

  ResultWord encode() { return core.EncodeFrame(&source, frame.bytes()); }
  std::span<uint8_t> bytes() const { return frame.bytes().first(entry.frameBytes); }
  std::vector<uint8_t> copy() const { return {bytes().begin(), bytes().end()}; }
  bool guardHolds() const {
    const auto behind = frame.bytes().subspan(entry.frameBytes);
    return std::all_of(behind.begin(), behind.end(), [](uint8_t b) { return b == kGuard; });
  }

  const VCIDEntry& entry;
  DnxhdPlanes source;
  EncoderCore core;
  AlignedBytes frame;
};

double decodedPsnr(const Encoding& encoding) {
  SerialRowRunner runner;
  DnxhdPlanes decoded(encoding.entry);
  EXPECT_EQ(
      FrameDecoder(encoding.entry, 1, runner).Decode(encoding.bytes(), Pictures::kAll, decoded),
      kSuccessful);
  return test::sampleDifference(decoded.samples(), encoding.source.samples(), encoding.entry.depth)
      .psnr;
}

TEST(EncoderCore, FramesOfEveryIdHaveTheirSizeAndDecode) {
  for (const CompInfo& row : kCompInfos) {
    SCOPED_TRACE(row.compressionId);
    Encoding encoding(row.compressionId);
    fillPicture(encoding.source, 100);
    ASSERT_EQ(encoding.encode(), kSuccessful);
    EXPECT_EQ(encoding.entry.frameBytes, row.frameBytes);
    EXPECT_TRUE(encoding.guardHolds());
    EXPECT_EQ(CheckFrame(row.compressionId, encoding.bytes()), kSuccessful);
    EXPECT_TRUE(std::equal(kEndMark.begin(), kEndMark.end(), encoding.bytes().end() - 4));
    EXPECT_GT(decodedPsnr(encoding), row.frameBytes < 300000 ? 26.0 : 30.0);
    // The budget is used: what is left over is small.
    const size_t zeros =
        static_cast<size_t>(std::find_if(encoding.bytes().rbegin() + 4, encoding.bytes().rend(),
                                         [](uint8_t b) { return b != 0; }) -
                            encoding.bytes().rbegin());
    EXPECT_LT(zeros, row.frameBytes / 20);
  }
}

TEST(EncoderCore, AFlatBlackFrameIsAsLongAsAnyOther) {
  for (const uint32_t id : {1237u, 1241u, 1256u, 1258u}) {
    Encoding encoding(id);
    ASSERT_EQ(encoding.encode(), kSuccessful);
    const size_t pictureBytes = GeometryOf(encoding.entry).pictureBytes;
    for (size_t end = pictureBytes; end <= encoding.entry.frameBytes; end += pictureBytes) {
      EXPECT_TRUE(std::equal(kEndMark.begin(), kEndMark.end(),
                             encoding.bytes().begin() + static_cast<ptrdiff_t>(end) - 4));
      EXPECT_EQ(encoding.bytes()[end - 5], 0);
    }
    EXPECT_TRUE(encoding.guardHolds());
    EXPECT_GT(decodedPsnr(encoding), 100.0);
    const auto levels = encoding.core.ChosenLevels();
    EXPECT_EQ(std::count(levels.begin(), levels.end(), 0), static_cast<ptrdiff_t>(levels.size()));
  }
}

TEST(EncoderCore, NoiseOfTheFullRangeEncodesAtEveryId) {
  for (const CompInfo& row : kCompInfos) {
    SCOPED_TRACE(row.compressionId);
    Encoding encoding(row.compressionId);
    std::mt19937_64 random(test::testSeed() + row.compressionId);
    for (const int kind : {0, 1}) {
      const int top = (1 << encoding.entry.depth) - 1;
      for (size_t plane = 0; plane < 3; ++plane) {
        for (int& sample : encoding.source.plane(plane)) {
          const uint64_t r = random();
          sample = kind == 0 ? static_cast<int>(r) & top : (r & 1) != 0 ? top : 0;
        }
      }
      ASSERT_EQ(encoding.encode(), kSuccessful) << "kind " << kind;
      EXPECT_EQ(CheckFrame(row.compressionId, encoding.bytes()), kSuccessful);
      EXPECT_TRUE(encoding.guardHolds());
    }
  }
}

TEST(EncoderCore, TheSameJobsGiveTheSameBytesWhateverTheThreads) {
  for (const uint32_t id : {1237u, 1241u, 1252u, 1260u}) {
    SCOPED_TRACE(id);
    const std::vector<std::vector<int32_t>> likeCounts = {{2, 3}, {4, 5, 7}, {8, 10, 30}};
    for (const std::vector<int32_t>& threads : likeCounts) {
      std::set<std::vector<uint8_t>> results;
      for (const int32_t count : threads) {
        Encoding encoding(id, count);
        fillPicture(encoding.source, 200);
        for (int run = 0; run < 2; ++run) {
          ASSERT_EQ(encoding.encode(), kSuccessful);
          results.insert(encoding.copy());
        }
      }
      EXPECT_EQ(results.size(), 1u) << threads[0];
    }
  }
}

TEST(EncoderCore, ThreadsCanChangeBetweenFrames) {
  Encoding encoding(1237);
  fillPicture(encoding.source, 100);
  ASSERT_EQ(encoding.encode(), kSuccessful);
  const std::vector<uint8_t> first = encoding.copy();
  ASSERT_EQ(encoding.core.RebuildJobs(8), kSuccessful);
  ASSERT_EQ(encoding.encode(), kSuccessful);
  EXPECT_EQ(CheckFrame(1237, encoding.bytes()), kSuccessful);
  // None at all until there are some again.
  ASSERT_EQ(encoding.core.RebuildJobs(0), kSuccessful);
  EXPECT_EQ(encoding.encode(), kErrorNoInitialization);
  ASSERT_EQ(encoding.core.RebuildJobs(-7), kSuccessful);
  ASSERT_EQ(encoding.core.RebuildJobs(100000), kSuccessful);
  EXPECT_EQ(encoding.core.Plan().searchJobs, 8u);
  ASSERT_EQ(encoding.encode(), kSuccessful);
  ASSERT_EQ(encoding.core.RebuildJobs(1), kSuccessful);
  ASSERT_EQ(encoding.encode(), kSuccessful);
  EXPECT_EQ(encoding.copy(), first);
}

TEST(EncoderCore, TenThreadsHaveTenHandlersAndEightJobs) {
  Encoding encoding(1237, 10);
  EXPECT_EQ(encoding.core.Plan().threads, 10u);
  EXPECT_EQ(encoding.core.Plan().transformRows.size(), 8u);
  EXPECT_EQ(encoding.core.Plan().searchHandlers, 8u);
  EXPECT_EQ(encoding.encode(), kSuccessful);
}

TEST(EncoderCore, GeometriesWithoutATableAreRefused) {
  for (const uint32_t id : {32768u, 32769u, 32770u, 32771u, 32772u, 32773u, 36864u}) {
    EncoderCore core;
    EXPECT_EQ(core.Configure(*FindEntry(id), std::make_unique<DnxhdPlanesSource>()),
              kErrorInMemoryAllocation)
        << id;
    AlignedBytes out(1 << 20);
    DnxhdPlanes source(*FindEntry(id));
    EXPECT_EQ(core.EncodeFrame(&source, out.bytes()), kErrorNoInitialization);
  }
}

TEST(EncoderCore, WrongPictureCountsAndSourcesAreRefused) {
  EncoderCore core;
  VCIDEntry entry = *FindEntry(1237);
  entry.singlePicture = 2;
  EXPECT_EQ(core.Configure(entry, std::make_unique<DnxhdPlanesSource>()),
            kErrorEncodeModeNotSupported);
  EXPECT_EQ(core.Configure(*FindEntry(1237), nullptr), kErrorNoInitialization);
  EXPECT_EQ(core.SetSource(nullptr), kErrorNoInitialization);
}

TEST(EncoderCore, NothingIsEncodedWithoutAllItTakes) {
  EncoderCore core;
  AlignedBytes out(FindEntry(1237)->frameBytes);
  DnxhdPlanes source(*FindEntry(1237));
  EXPECT_EQ(core.EncodeFrame(&source, out.bytes()), kErrorNoInitialization);
  ASSERT_EQ(core.Configure(*FindEntry(1237), std::make_unique<DnxhdPlanesSource>()), kSuccessful);
  EXPECT_EQ(core.EncodeFrame(nullptr, out.bytes()), kErrorNoInitialization);
  EXPECT_EQ(core.EncodeFrame(&source, out.bytes().first(out.bytes().size() - 1)),
            kErrorEncodeBufferOverflow);
  EXPECT_EQ(core.EncodeFrame(&source, {}), kErrorEncodeBufferOverflow);
  EXPECT_EQ(core.EncodeFrame(&source, out.bytes()), kSuccessful);
}

class FailingSource : public RowSource {
 public:
  ResultWord FetchRow(const void*, size_t, size_t row, int16_t* blocks) const override {
    std::fill_n(blocks, 120 * 8 * 64, int16_t{0});
    return row == 40 ? kErrorInMemoryAllocation : kSuccessful;
  }
};

TEST(EncoderCore, ASourcesFailureIsTheFrames) {
  for (const int32_t threads : {1, 2, 8}) {
    Encoding encoding(1237, threads);
    const std::vector<uint8_t> unused(1);
    ASSERT_EQ(encoding.core.SetSource(std::make_unique<FailingSource>()), kSuccessful);
    EXPECT_EQ(encoding.encode(), kErrorInMemoryAllocation);
    // The next frame starts from free workers.
    ASSERT_EQ(encoding.core.SetSource(std::make_unique<DnxhdPlanesSource>()), kSuccessful);
    EXPECT_EQ(encoding.encode(), kSuccessful);
  }
}

// Another encoder, in its slowest mode, leaves zeros behind its rows. They decode by the row table,
// but the check wants each row to end where the next begins.
TEST(EncoderCore, GapsBetweenRowsDecodeAndDontPassTheCheck) {
  constexpr uint32_t kGap = 8;
  Encoding encoding(1253);
  for (size_t i = 0; i < encoding.source.plane(0).size(); ++i) {
    encoding.source.plane(0)[i] = static_cast<int>(i % 1920 / 9 + i % 1920 / 200 % 2 * 20);
  }
  ASSERT_EQ(encoding.encode(), kSuccessful);
  const double before = decodedPsnr(encoding);
  FrameHeader header;
  ASSERT_EQ(ParseFrameHeader(encoding.bytes(), header), kSuccessful);
  const auto data = encoding.bytes().subspan(kHeaderBytes);
  ASSERT_LT(header.rowOffsets[67] + 8000 + 67 * kGap, data.size());
  // From the last row on, so that nothing is overwritten before it has moved.
  for (uint32_t row = 67; row > 0; --row) {
    const uint32_t from = header.rowOffsets[row];
    const uint32_t to = from + row * kGap;
    const uint32_t bytes = (row == 67 ? static_cast<uint32_t>(data.size()) - 4 - 67 * kGap
                                      : header.rowOffsets[row + 1]) -
                           from;
    std::copy_backward(data.begin() + from, data.begin() + from + bytes, data.begin() + to + bytes);
    std::fill_n(data.begin() + to - kGap, kGap, uint8_t{0});
    SetRowOffset(encoding.bytes().first<kHeaderBytes>(), row, to);
  }
  EXPECT_EQ(CheckFrame(1253, encoding.bytes()), kErrorInMacroblockIndices);
  EXPECT_DOUBLE_EQ(decodedPsnr(encoding), before);
}

// The last macroblock row of 1080 lines has 8 lines of picture: nothing below them is asked for.
TEST(EncoderCore, TheLastRowsMissingLinesAreTheSources) {
  for (const uint32_t id : {1237u, 1241u}) {
    Encoding encoding(id);
    fillPicture(encoding.source, 0);
    ASSERT_EQ(encoding.encode(), kSuccessful);
    FrameHeader header;
    ASSERT_EQ(ParseFrameHeader(encoding.bytes(), header), kSuccessful);
    EXPECT_EQ(header.rowCount, GeometryOf(encoding.entry).mbRows);
    EXPECT_EQ(GeometryOf(encoding.entry).bottomPad, id == 1237 ? 8u : 4u);
    EXPECT_GT(decodedPsnr(encoding), 45.0);
  }
}

TEST(EncoderCore, TheModelsFramesDecodeToo) {
  for (const uint32_t id : {1237u, 1241u, 1260u}) {
    SCOPED_TRACE(id);
    Encoding encoding(id, 2);
    fillPicture(encoding.source, 60);
    encoding.core.SetCodingControl(kModelControl);
    ASSERT_EQ(encoding.encode(), kSuccessful);
    EXPECT_EQ(CheckFrame(id, encoding.bytes()), kSuccessful);
    EXPECT_GT(decodedPsnr(encoding), 30.0);
    // A rebuild goes back to the search.
    ASSERT_EQ(encoding.core.RebuildJobs(2), kSuccessful);
    const std::vector<uint8_t> byModel = encoding.copy();
    ASSERT_EQ(encoding.encode(), kSuccessful);
    EXPECT_NE(encoding.copy(), byModel);
  }
}

TEST(EncoderCore, InterlacedMotionIsCodedByFields) {
  Encoding encoding(1260);
  // Two fields a good way apart: lines alternate between two pictures.
  for (size_t plane = 0; plane < 3; ++plane) {
    const size_t width = encoding.source.width(plane);
    for (size_t i = 0; i < encoding.source.plane(plane).size(); ++i) {
      const size_t x = i % width + (i / width % 2 != 0 ? 37 : 0);
      encoding.source.plane(plane)[i] = static_cast<int>(x * 7 % 220);
    }
  }
  ASSERT_EQ(encoding.encode(), kSuccessful);
  const auto flags = encoding.core.FieldFlags();
  EXPECT_GT(std::count_if(flags.begin(), flags.end(), [](uint32_t flag) { return flag != 0; }),
            static_cast<ptrdiff_t>(flags.size() / 2));
  EXPECT_GT(decodedPsnr(encoding), 35.0);
}

}  // namespace
}  // namespace zel::dnxhd
