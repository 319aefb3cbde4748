// What the encoder takes and gives back: memory, threads, the caller's pictures, and the same bytes
// for the same input.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/encoder_consumer.h"
#include "tests/support/test_pictures.h"
#include "zel/encoder/x265_encoder_api.h"
#include "zel/runtime/property_keys.h"

namespace Morvalen::Zel {
namespace {

using zel::test::EncoderConsumer;
using zel::test::TestPictures;

constexpr int32_t kWidth = 192;
constexpr int32_t kHeight = 112;

// Begins, encodes and drains one stream, picture by picture, so that several can be interleaved.
// At a constant quantiser: holding a bit rate, x265 looks at what other frame threads have coded so
// far, which is a matter of timing.
class Stream {
 public:
  Stream(int32_t preset, std::string const& commandLine, int32_t threads) {
    consumer_.setNumber(CodeBookProperty::X265Preset, preset);
    consumer_.setNumber(CodeBookProperty::X265RateControlMethod, 1);
    consumer_.setNumber(CodeBookProperty::X265Quantizer, 30);
    consumer_.setText(CodeBookProperty::X265CommandLine, commandLine);
    EXPECT_GT(encoder_->Begin(kWidth, kHeight, 1, 25, threads, 400000), 0);
  }
  ~Stream() { encoder_->Release(); }
  Stream(Stream const&) = delete;
  Stream& operator=(Stream const&) = delete;

  void encode(int number) {
    EXPECT_EQ(encoder_->Encode(TestPictures(kWidth, kHeight).make(number).data(), nullptr), 0);
  }
  std::vector<uint8_t> finish(size_t count) {
    for (size_t i = 0; i < count; ++i) EXPECT_EQ(encoder_->Encode(nullptr, nullptr), 0);
    EXPECT_EQ(consumer_.samples.size(), count);
    return consumer_.stream();
  }

 private:
  EncoderConsumer consumer_;
  CMorvalenX265EncoderApi* encoder_ = CMorvalenX265EncoderApi::Create(&consumer_);
};

std::vector<uint8_t> streamOf(int32_t preset, std::string const& commandLine, int32_t threads,
                              int count) {
  Stream stream(preset, commandLine, threads);
  for (int i = 0; i < count; ++i) stream.encode(i);
  return stream.finish(size_t(count));
}

TEST(EncoderResources, SameInputGivesTheSameBytes) {
  for (int32_t threads : {1, 3}) {
    EXPECT_EQ(streamOf(1, "", threads, 30), streamOf(1, "", threads, 30)) << threads << " threads";
  }
}

TEST(EncoderResources, EncodersAtTheSameTimeDoNotTouchEachOther) {
  // Of different coding tree unit sizes: x265 used to keep that one for the whole process.
  std::vector<uint8_t> const small = streamOf(0, "--ctu 16", 1, 20);
  std::vector<uint8_t> const large = streamOf(0, "--ctu 64", 1, 20);
  ASSERT_NE(small, large);
  Stream one(0, "--ctu 16", 1);
  Stream other(0, "--ctu 64", 1);
  for (int i = 0; i < 20; ++i) {
    one.encode(i);
    other.encode(i);
  }
  EXPECT_EQ(one.finish(20), small);
  EXPECT_EQ(other.finish(20), large);
}

TEST(EncoderResources, EncodersMayRunOnAThreadEach) {
  std::vector<uint8_t> const expected = streamOf(0, "--bframes=2", 2, 20);
  std::vector<std::vector<uint8_t>> streams(3);
  std::vector<std::thread> threads;
  for (auto& stream : streams) {
    threads.emplace_back([&stream] { stream = streamOf(0, "--bframes=2", 2, 20); });
  }
  for (std::thread& thread : threads) thread.join();
  for (auto const& stream : streams) EXPECT_EQ(stream, expected);
}

int threadCount() {
  std::filesystem::directory_iterator const tasks("/proc/self/task");
  return int(std::distance(begin(tasks), end(tasks)));
}

TEST(EncoderResources, ReleaseEndsTheThreads) {
  // The thread sanitizer starts a thread of its own beside a program's first one.
  std::thread([] {}).join();
  int const before = threadCount();
  {
    Stream stream(0, "", 3);
    stream.encode(0);
    EXPECT_GT(threadCount(), before);
  }
  // A thread that was joined may take a moment to leave the list.
  for (int wait = 0; wait < 200 && threadCount() > before; ++wait) usleep(10000);
  EXPECT_EQ(threadCount(), before);
}

// One encoder that got some pictures and is released with them inside.
void encodeAndRelease() {
  Stream stream(0, "", 1);
  for (int i = 0; i < 9; ++i) stream.encode(i);
}

size_t heapBytes() {
  struct mallinfo2 const heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

// x265 3.5 itself keeps some kilobytes of each encoder that it closes (a few hundred bytes for each
// row of coding tree units). An encoder that isn't closed keeps more than a megabyte of this size.
TEST(EncoderResources, TwoHundredEncodersLeaveTheProcessAsItWas) {
  constexpr size_t kKeptByX265 = 12 * 1024;
  constexpr size_t kCount = 200;
  for (int i = 0; i < 5; ++i) encodeAndRelease();  // what is made once for the process
  size_t const before = heapBytes();
  for (size_t i = 0; i < kCount; ++i) encodeAndRelease();
  size_t const after = heapBytes();
  EXPECT_LT(after, before + kCount * kKeptByX265) << "before " << before;
}

// A picture whose last sample is the last of its page: to read on is to crash. It is read-only too.
class FencedPicture {
 public:
  explicit FencedPicture(std::vector<uint8_t> const& picture)
      : page_(size_t(sysconf(_SC_PAGESIZE))),
        size_((picture.size() + page_ - 1) / page_ * page_),
        memory_(static_cast<uint8_t*>(mmap(nullptr, size_ + page_, PROT_READ | PROT_WRITE,
                                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
        data_(memory_ + size_ - picture.size()) {
    std::memcpy(data_, picture.data(), picture.size());
    EXPECT_EQ(mprotect(memory_, size_, PROT_READ), 0);
    EXPECT_EQ(mprotect(memory_ + size_, page_, PROT_NONE), 0);
  }
  ~FencedPicture() { munmap(memory_, size_ + page_); }
  FencedPicture(FencedPicture const&) = delete;
  FencedPicture& operator=(FencedPicture const&) = delete;

  uint8_t const* data() const { return data_; }

 private:
  size_t page_;
  size_t size_;
  uint8_t* memory_;
  uint8_t* data_;
};

TEST(EncoderResources, OnlyThePictureIsReadAndNothingIsWritten) {
  for (char const* line :
       {"", "--interlace tff", "--interlace bff", "--input-csp i400", "--ctu 16"}) {
    SCOPED_TRACE(line);
    EncoderConsumer consumer;
    consumer.setNumber(CodeBookProperty::X265Preset, 0);
    consumer.setText(CodeBookProperty::X265CommandLine, line);
    // Neither length is a multiple of a coding unit's.
    TestPictures const pictures(198, 118);
    auto* const encoder = CMorvalenX265EncoderApi::Create(&consumer);
    ASSERT_GT(encoder->Begin(198, 118, 1, 25, 1, 0), 0);
    for (int i = 0; i < 8; ++i) {
      FencedPicture const picture(pictures.make(i));
      ASSERT_EQ(encoder->Encode(picture.data(), nullptr), 0);
    }
    for (int i = 0; i < 8; ++i) ASSERT_EQ(encoder->Encode(nullptr, nullptr), 0);
    EXPECT_EQ(consumer.samples.size(), 8u);
    encoder->Release();
  }
}

}  // namespace
}  // namespace Morvalen::Zel
