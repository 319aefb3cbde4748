#include "tools/zel/media/wave.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/support/external_program.h"
#include "tests/support/seed.h"

namespace zel::media {
namespace {

using test::programPath;
using test::runProgram;
using test::ScratchFolder;
using testing::HasSubstr;

std::vector<int32_t> randomSamples(size_t count, uint32_t bits, std::mt19937_64& random) {
  std::vector<int32_t> samples(count);
  for (int32_t& sample : samples) {
    sample = static_cast<int32_t>(static_cast<uint32_t>(random())) >> (32 - bits);
  }
  return samples;
}

std::vector<uint8_t> written(const WaveFormat& format, const std::vector<int32_t>& samples,
                             WaveGrowth growth = WaveGrowth::kPlain, bool patchable = true) {
  MemorySink sink(patchable);
  WaveWriter writer(sink);
  EXPECT_TRUE(writer.writeHeader(format, growth)) << writer.error();
  EXPECT_TRUE(writer.write(samples)) << writer.error();
  EXPECT_TRUE(writer.finish()) << writer.error();
  return sink.bytes();
}

uint32_t littleAt(const std::vector<uint8_t>& bytes, size_t offset, int count = 4) {
  uint32_t value = 0;
  for (int i = 0; i < count; ++i) value |= uint32_t{bytes.at(offset + i)} << (8 * i);
  return value;
}

std::string tagAt(const std::vector<uint8_t>& bytes, size_t offset) {
  return {bytes.begin() + static_cast<ptrdiff_t>(offset),
          bytes.begin() + static_cast<ptrdiff_t>(offset) + 4};
}

constexpr WaveFormat kStereo16 = {2, 48000, 16, 0, 0};

TEST(WaveWriter, WritesThePlainHeaderOf44Bytes) {
  const auto file = written(kStereo16, {1, -2, 3, -4});
  ASSERT_EQ(file.size(), 44u + 8);
  EXPECT_EQ(tagAt(file, 0), "RIFF");
  EXPECT_EQ(littleAt(file, 4), 44u);
  EXPECT_EQ(tagAt(file, 8), "WAVE");
  EXPECT_EQ(tagAt(file, 12), "fmt ");
  EXPECT_EQ(littleAt(file, 16), 16u);
  EXPECT_EQ(littleAt(file, 20, 2), 1u);
  EXPECT_EQ(littleAt(file, 22, 2), 2u);
  EXPECT_EQ(littleAt(file, 24), 48000u);
  EXPECT_EQ(littleAt(file, 28), 192000u);
  EXPECT_EQ(littleAt(file, 32, 2), 4u);
  EXPECT_EQ(littleAt(file, 34, 2), 16u);
  EXPECT_EQ(tagAt(file, 36), "data");
  EXPECT_EQ(littleAt(file, 40), 8u);
  EXPECT_EQ(littleAt(file, 46, 2), 0xFFFEu);
}

TEST(WaveWriter, WritesTheExtensibleHeaderForManyChannelsOrDeepSamples) {
  const auto file = written({6, 48000, 24, 20, usualChannelMask(6)}, std::vector<int32_t>(6));
  EXPECT_EQ(littleAt(file, 16), 40u);
  EXPECT_EQ(littleAt(file, 20, 2), 0xFFFEu);
  EXPECT_EQ(littleAt(file, 32, 2), 18u);
  EXPECT_EQ(littleAt(file, 34, 2), 24u);
  EXPECT_EQ(littleAt(file, 36, 2), 22u);
  EXPECT_EQ(littleAt(file, 38, 2), 20u);
  EXPECT_EQ(littleAt(file, 40), 0x3Fu);
  EXPECT_EQ(littleAt(file, 44, 2), 1u);
  EXPECT_EQ(tagAt(file, 60), "data");
  EXPECT_EQ(file.size(), 68u + 18);
}

TEST(WaveWriter, PadsOddDataButDoesNotCountThePadding) {
  const auto file = written({1, 48000, 24, 0, 0}, {0x123456});
  EXPECT_EQ(file.size(), 68u + 4);
  EXPECT_EQ(littleAt(file, 64), 3u);
  EXPECT_EQ(littleAt(file, 4), 64u);
}

TEST(WaveWriter, LeavesSizesOpenInAPipe) {
  const auto file = written(kStereo16, {1, 2}, WaveGrowth::kMayBecomeRf64, false);
  EXPECT_EQ(littleAt(file, 4), 0xFFFFFFFFu);
  EXPECT_EQ(littleAt(file, 40), 0xFFFFFFFFu);
  EXPECT_EQ(file.size(), 48u);
}

TEST(WaveWriter, ReservesRoomForLongFiles) {
  const auto file = written(kStereo16, {1, 2}, WaveGrowth::kMayBecomeRf64);
  EXPECT_EQ(tagAt(file, 0), "RIFF");
  EXPECT_EQ(tagAt(file, 12), "JUNK");
  EXPECT_EQ(littleAt(file, 16), 28u);
  EXPECT_EQ(tagAt(file, 48), "fmt ");
  EXPECT_EQ(littleAt(file, 4), file.size() - 8);
}

TEST(WaveWriter, TellsALengthKnownBeforehandInAPipe) {
  MemorySink pipe(false);
  WaveWriter writer(pipe);
  ASSERT_TRUE(writer.writeHeaderOf(kStereo16, 2));
  ASSERT_TRUE(writer.write(std::vector<int32_t>{1, -2, 3, -4}));
  ASSERT_TRUE(writer.finish()) << writer.error();
  EXPECT_EQ(pipe.bytes(), written(kStereo16, {1, -2, 3, -4}));
}

TEST(WaveWriter, PadsALengthKnownBeforehand) {
  const WaveFormat format = {1, 48000, 24, 0, 0};
  MemorySink pipe(false);
  WaveWriter writer(pipe);
  ASSERT_TRUE(writer.writeHeaderOf(format, 1) && writer.write(std::vector<int32_t>{7}));
  ASSERT_TRUE(writer.finish());
  EXPECT_EQ(pipe.bytes(), written(format, {7}));
}

TEST(WaveWriter, HoldsToTheLengthThatItTold) {
  for (const size_t frames : {0u, 1u, 3u}) {
    MemorySink sink;
    WaveWriter writer(sink);
    ASSERT_TRUE(writer.writeHeaderOf(kStereo16, 2));
    ASSERT_TRUE(writer.write(std::vector<int32_t>(frames * 2)));
    EXPECT_FALSE(writer.finish());
    EXPECT_THAT(writer.error(), HasSubstr("of the 2 that the header tells of"));
  }
}

TEST(WaveWriter, TellsALengthPastFourGigabytesAsRf64) {
  MemorySink pipe(false);
  WaveWriter writer(pipe);
  constexpr uint64_t kFrames = uint64_t{1} << 31;
  ASSERT_TRUE(writer.writeHeaderOf(kStereo16, kFrames));
  EXPECT_EQ(tagAt(pipe.bytes(), 0), "RF64");
  MemorySource source(pipe.bytes());
  WaveReader reader(source);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  EXPECT_EQ(reader.frames(), kFrames);
}

// Counts what it is given and keeps only the head, so that 4 GiB cost no memory.
class HeadSink : public ByteSink {
 public:
  bool write(std::span<const uint8_t> bytes) override {
    const size_t kept = std::min(bytes.size(), size_t{128} - std::min<size_t>(128, head.size()));
    head.insert(head.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(kept));
    size += bytes.size();
    return true;
  }
  bool canPatch() const override { return true; }
  bool patch(uint64_t offset, std::span<const uint8_t> bytes) override {
    EXPECT_LE(offset + bytes.size(), head.size());
    std::copy(bytes.begin(), bytes.end(), head.begin() + static_cast<ptrdiff_t>(offset));
    return true;
  }

  std::vector<uint8_t> head;
  uint64_t size = 0;
};

constexpr WaveFormat kWidest = {255, 48000, 32, 0, 0};
constexpr uint64_t kFourGigabytes = uint64_t{1} << 32;

// Writes frames of the widest format until `bytes` of data are there or the writer refuses.
bool writeData(WaveWriter& writer, uint64_t bytes) {
  const std::vector<int32_t> block(size_t{255} * 4096);
  for (uint64_t done = 0; done < bytes; done += block.size() * 4) {
    if (!writer.write(block)) return false;
  }
  return true;
}

TEST(WaveWriter, BecomesRf64PastFourGigabytes) {
  HeadSink sink;
  WaveWriter writer(sink);
  ASSERT_TRUE(writer.writeHeader(kWidest, WaveGrowth::kMayBecomeRf64));
  ASSERT_TRUE(writeData(writer, kFourGigabytes));
  ASSERT_TRUE(writer.finish()) << writer.error();
  EXPECT_EQ(tagAt(sink.head, 0), "RF64");
  EXPECT_EQ(littleAt(sink.head, 4), 0xFFFFFFFFu);
  EXPECT_EQ(tagAt(sink.head, 12), "ds64");
  const auto wide = [&](size_t at) {
    return uint64_t{littleAt(sink.head, at)} | uint64_t{littleAt(sink.head, at + 4)} << 32;
  };
  EXPECT_EQ(wide(20), sink.size - 8);
  EXPECT_EQ(wide(28), writer.framesWritten() * 255 * 4);
  EXPECT_EQ(wide(36), writer.framesWritten());

  MemorySource source(sink.head);
  WaveReader reader(source);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  EXPECT_EQ(reader.frames(), writer.framesWritten());
}

TEST(WaveWriter, RefusesToOverflowAPlainFile) {
  HeadSink sink;
  WaveWriter writer(sink);
  ASSERT_TRUE(writer.writeHeader(kWidest));
  EXPECT_FALSE(writeData(writer, kFourGigabytes));
  EXPECT_THAT(writer.error(), HasSubstr("4 GiB"));
  EXPECT_LT(sink.size, kFourGigabytes);
}

TEST(WaveWriter, RefusesFormatsThatDoNotExist) {
  const auto refusal = [](const WaveFormat& format) {
    MemorySink sink;
    WaveWriter writer(sink);
    EXPECT_FALSE(writer.writeHeader(format));
    return writer.error();
  };
  EXPECT_THAT(refusal({0, 48000, 16, 0, 0}), HasSubstr("0 channels"));
  EXPECT_THAT(refusal({256, 48000, 16, 0, 0}), HasSubstr("256 channels"));
  EXPECT_THAT(refusal({2, 0, 16, 0, 0}), HasSubstr("sample rate of zero"));
  EXPECT_THAT(refusal({2, 48000, 20, 0, 0}), HasSubstr("20 bits"));
  EXPECT_THAT(refusal({2, 48000, 16, 17, 0}), HasSubstr("17 valid bits"));
  EXPECT_THAT(refusal({255, 0xFFFFFFFF, 16, 0, 0}), HasSubstr("data rate"));
}

TEST(WaveWriter, RefusesCallsOutOfOrder) {
  MemorySink sink;
  WaveWriter early(sink);
  EXPECT_FALSE(early.write({}));
  WaveWriter unfinished(sink);
  EXPECT_FALSE(unfinished.finish());
  WaveWriter half(sink);
  ASSERT_TRUE(half.writeHeader(kStereo16));
  EXPECT_FALSE(half.write(std::vector<int32_t>(3)));
  EXPECT_THAT(half.error(), HasSubstr("whole frames"));
}

class WaveRoundTrip : public testing::TestWithParam<std::tuple<uint32_t, uint32_t, bool>> {};

TEST_P(WaveRoundTrip, ReadsBackWhatWasWritten) {
  const auto [channels, bits, patchable] = GetParam();
  std::mt19937_64 random(test::testSeed());
  const WaveFormat format = {channels, 44100, bits, 0, usualChannelMask(channels)};
  auto samples = randomSamples(size_t{channels} * 1001, bits, random);
  samples[0] = INT32_MAX >> (32 - bits);
  samples[1] = INT32_MIN >> (32 - bits);
  const auto file = written(format, samples, WaveGrowth::kMayBecomeRf64, patchable);

  MemorySource source(file);
  WaveReader reader(source);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  EXPECT_EQ(reader.format().channels, channels);
  EXPECT_EQ(reader.format().sampleRate, 44100u);
  EXPECT_EQ(reader.format().bitsPerSample, bits);
  EXPECT_EQ(reader.format().channelMask, usualChannelMask(channels));
  EXPECT_EQ(reader.lengthKnown(), patchable);
  EXPECT_EQ(reader.frames(), patchable ? 1001u : 0u);
  std::vector<int32_t> all;
  std::vector<int32_t> block(size_t{channels} * 300);
  for (;;) {
    const size_t frames = reader.read(block);
    all.insert(all.end(), block.begin(), block.begin() + static_cast<ptrdiff_t>(frames * channels));
    if (frames < 300) break;
  }
  EXPECT_TRUE(all == samples);
  EXPECT_FALSE(reader.truncated());
  EXPECT_EQ(reader.error(), "");
}

INSTANTIATE_TEST_SUITE_P(All, WaveRoundTrip,
                         testing::Combine(testing::Values(1u, 2u, 3u, 6u, 8u, 255u),
                                          testing::Values(16u, 24u, 32u), testing::Bool()));

std::string headerError(std::vector<uint8_t> file) {
  MemorySource source(file);
  WaveReader reader(source);
  return reader.readHeader() ? "(accepted)" : reader.error();
}

// A stereo file whose bytes at `offset` are overwritten.
std::vector<uint8_t> damaged(size_t offset, std::vector<uint8_t> bytes) {
  auto file = written(kStereo16, {1, 2, 3, 4});
  std::copy(bytes.begin(), bytes.end(), file.begin() + static_cast<ptrdiff_t>(offset));
  return file;
}

TEST(WaveReader, NamesWhatItFound) {
  EXPECT_THAT(headerError({}), HasSubstr("only 0 bytes"));
  EXPECT_THAT(headerError(damaged(0, {'O', 'g', 'g', 0})), HasSubstr("begins with \"Ogg?\""));
  EXPECT_THAT(headerError(damaged(8, {'A', 'V', 'I', ' '})), HasSubstr("form \"AVI \""));
  EXPECT_THAT(headerError(damaged(20, {3, 0})), HasSubstr("floating point"));
  EXPECT_THAT(headerError(damaged(20, {0x55, 0})), HasSubstr("format code 85"));
  EXPECT_THAT(headerError(damaged(22, {0, 0})), HasSubstr("0 channels"));
  EXPECT_THAT(headerError(damaged(34, {8, 0})), HasSubstr("8 bits"));
  EXPECT_THAT(headerError(damaged(32, {5, 0})), HasSubstr("5 bytes should be 4"));
  EXPECT_THAT(headerError(damaged(16, {15, 0})), HasSubstr("fmt chunk of 15 bytes"));
  EXPECT_THAT(headerError(damaged(16, {0, 0, 0, 0x80})), HasSubstr("fmt chunk of 2147483648"));
  EXPECT_THAT(headerError(damaged(20, {0xFE, 0xFF})), HasSubstr("it takes 40"));
  EXPECT_THAT(headerError(damaged(36, {'j', 'u', 'n', 'k', 200})), HasSubstr("in chunk \"junk\""));
  EXPECT_THAT(headerError(damaged(12, {'d', 'a', 't', 'a'})), HasSubstr("data before its format"));
}

TEST(WaveReader, RefusesEveryCutHeader) {
  const auto file = written({6, 48000, 24, 0, 0x3F}, std::vector<int32_t>(6));
  for (size_t size = 0; size < 68; ++size) {
    EXPECT_NE(headerError({file.begin(), file.begin() + static_cast<ptrdiff_t>(size)}),
              "(accepted)")
        << size;
  }
}

TEST(WaveReader, GivesTheWholeFramesOfACutFile) {
  auto file = written(kStereo16, {1, 2, 3, 4, 5, 6});
  file.resize(file.size() - 3);
  MemorySource source(file);
  WaveReader reader(source);
  ASSERT_TRUE(reader.readHeader());
  EXPECT_EQ(reader.frames(), 3u);
  std::vector<int32_t> samples(20);
  EXPECT_EQ(reader.read(samples), 2u);
  EXPECT_EQ(samples[3], 4);
  EXPECT_TRUE(reader.truncated());
}

TEST(WaveReader, PassesOverOtherChunksAndStopsAtTheEndOfTheData) {
  auto file = written(kStereo16, {1, 2, 3, 4});
  const std::vector<uint8_t> odd = {'b', 'e', 'x', 't', 3, 0, 0, 0, 'a', 'b', 'c', 0};
  file.insert(file.begin() + 12, odd.begin(), odd.end());
  file.insert(file.end(), {'L', 'I', 'S', 'T', 2, 0, 0, 0, 9, 9});
  MemorySource source(file);
  WaveReader reader(source);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  std::vector<int32_t> samples(20);
  EXPECT_EQ(reader.read(samples), 2u);
  EXPECT_EQ(reader.read(samples), 0u);
  EXPECT_FALSE(reader.truncated());
}

TEST(WaveReader, TakesDataOfSizeZeroToItsEnd) {
  const auto file = damaged(40, {0, 0, 0, 0});
  MemorySource source(file);
  WaveReader reader(source);
  ASSERT_TRUE(reader.readHeader());
  EXPECT_FALSE(reader.lengthKnown());
  std::vector<int32_t> samples(20);
  EXPECT_EQ(reader.read(samples), 2u);
}

class WavePeer : public testing::TestWithParam<std::pair<const char*, WaveFormat>> {
 protected:
  void SetUp() override {
    ffmpeg_ = programPath("ffmpeg");
    if (ffmpeg_.empty()) GTEST_SKIP() << "ffmpeg is not installed";
  }

  std::string ffmpeg_;
  ScratchFolder folder_;
};

// Ours, copied sample for sample by an independent program, and read again.
TEST_P(WavePeer, CopiesOurFileSampleForSample) {
  const auto [codec, format] = GetParam();
  std::mt19937_64 random(test::testSeed());
  const auto samples = randomSamples(size_t{format.channels} * 5000, format.bitsPerSample, random);
  const std::string ours = folder_.file("ours.wav");
  const std::string theirs = folder_.file("theirs.wav");
  FileSink sink(ours);
  WaveWriter writer(sink);
  ASSERT_TRUE(writer.writeHeader(format) && writer.write(samples) && writer.finish());
  ASSERT_TRUE(sink.close()) << sink.error();
  const auto result = runProgram(
      ffmpeg_, {"-v", "error", "-y", "-i", ours, "-c:a", std::string("pcm_") + codec, theirs});
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(result.output, "");

  FileSource source(theirs);
  WaveReader reader(source);
  ASSERT_TRUE(reader.readHeader()) << reader.error();
  EXPECT_EQ(reader.format().channels, format.channels);
  EXPECT_EQ(reader.format().bitsPerSample, format.bitsPerSample);
  std::vector<int32_t> copy(samples.size() + format.channels);
  EXPECT_EQ(reader.read(copy), 5000u);
  copy.resize(samples.size());
  EXPECT_TRUE(copy == samples);
}

INSTANTIATE_TEST_SUITE_P(All, WavePeer,
                         testing::Values(std::pair{"s16le", WaveFormat{1, 48000, 16, 0, 0}},
                                         std::pair{"s16le", WaveFormat{2, 44100, 16, 0, 0}},
                                         std::pair{"s24le", WaveFormat{2, 48000, 24, 0, 0x3}},
                                         std::pair{"s24le", WaveFormat{6, 48000, 24, 0, 0x3F}},
                                         std::pair{"s32le", WaveFormat{8, 96000, 32, 0, 0x63F}}));

}  // namespace
}  // namespace zel::media
