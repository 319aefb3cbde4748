#include "zel/mux/circular_buffer_loading.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <vector>

#include "tests/support/seed.h"

namespace Morvalen::Zel {
namespace {

// Delivers counting bytes, as many a call as a script says; notes what it was asked for.
class ScriptedProvider final : public ITarnwickProvider {
 public:
  struct Call {
    unsigned char* destination;
    int32_t maximum;
    int32_t index;
  };
  std::deque<int32_t> deliveries;  // then: all that is asked for
  std::vector<Call> calls;
  std::vector<uint8_t> delivered;

  int32_t ReadData(unsigned char* destination, int32_t maximum, int32_t index) override {
    calls.push_back({destination, maximum, index});
    int32_t count = maximum;
    if (!deliveries.empty()) {
      count = std::min(deliveries.front(), maximum);
      deliveries.pop_front();
    }
    for (int32_t i = 0; i < count; ++i) {
      destination[i] = next++;
      delivered.push_back(destination[i]);
    }
    return count;
  }
  int GetBitRate(int32_t, int32_t&) override { return 0; }
  int GetLanguageDescriptor(CByteArray*&) override { return -1; }
  int GetDvbAc3Descriptor(CByteArray*&) override { return -1; }

 private:
  uint8_t next = 1;
};

class CircularBufferLoading : public testing::Test {
 protected:
  void place(int32_t read, int32_t write) {
    buffer.read = storage.data() + read;
    buffer.write = storage.data() + write;
    buffer.scan = buffer.read;
  }
  int load() { return LoadFromProvider(stream, buffer); }
  ptrdiff_t writePlace() const { return buffer.write - buffer.start; }

  std::vector<uint8_t> storage = std::vector<uint8_t>(16);
  cbuf buffer{
      storage.data(), storage.data() + 16, storage.data(), storage.data(), 16, storage.data(), 0};
  ScriptedProvider provider;
  TarnStreamInfo stream{&provider, 3};
};

TEST_F(CircularBufferLoading, AnEmptyBufferStartsOverAndLeavesOneByteFree) {
  place(9, 9);
  EXPECT_EQ(load(), 0);
  ASSERT_EQ(provider.calls.size(), 1U);
  EXPECT_EQ(provider.calls[0].destination, storage.data());
  EXPECT_EQ(provider.calls[0].maximum, 15);
  EXPECT_EQ(provider.calls[0].index, 3);
  EXPECT_EQ(buffer.read, storage.data());
  EXPECT_EQ(buffer.scan, storage.data());
  EXPECT_EQ(writePlace(), 15);
}

TEST_F(CircularBufferLoading, AnEmptyBufferWithoutDataIsTheEnd) {
  provider.deliveries = {0};
  EXPECT_EQ(load(), 1);
  EXPECT_EQ(buffer.read, buffer.write);
}

TEST_F(CircularBufferLoading, AFinishedBufferIsNotFilled) {
  buffer.finished = 1;
  EXPECT_EQ(load(), 1);
  EXPECT_TRUE(provider.calls.empty());
}

TEST_F(CircularBufferLoading, BehindTheWrapOneReadGoesUpToTheReader) {
  place(10, 4);
  EXPECT_EQ(load(), 0);
  ASSERT_EQ(provider.calls.size(), 1U);
  EXPECT_EQ(provider.calls[0].maximum, 5);
  EXPECT_EQ(writePlace(), 9);
  EXPECT_EQ(load(), 0);  // full: nobody is asked
  EXPECT_EQ(provider.calls.size(), 1U);
}

TEST_F(CircularBufferLoading, BehindTheWrapNothingIsTheEnd) {
  place(10, 4);
  provider.deliveries = {0};
  EXPECT_EQ(load(), 1);
  EXPECT_EQ(writePlace(), 4);
}

TEST_F(CircularBufferLoading, AroundTheEndTakesTwoReads) {
  place(5, 11);
  EXPECT_EQ(load(), 0);
  ASSERT_EQ(provider.calls.size(), 2U);
  EXPECT_EQ(provider.calls[0].maximum, 5);
  EXPECT_EQ(provider.calls[1].maximum, 4);
  EXPECT_EQ(provider.calls[1].destination, storage.data());
  EXPECT_EQ(writePlace(), 4);
}

TEST_F(CircularBufferLoading, WithTheReaderAtTheStartTheLastByteStaysFree) {
  place(0, 11);
  EXPECT_EQ(load(), 0);
  ASSERT_EQ(provider.calls.size(), 1U);
  EXPECT_EQ(provider.calls[0].maximum, 4);
  EXPECT_EQ(writePlace(), 15);
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(provider.calls.size(), 1U);
}

TEST_F(CircularBufferLoading, AShortFirstReadAsksForNoMore) {
  place(5, 11);
  provider.deliveries = {2};
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(provider.calls.size(), 1U);
  EXPECT_EQ(writePlace(), 13);
}

TEST_F(CircularBufferLoading, TheSecondReadMayFindNothingBehindAFirstThatFoundSome) {
  place(5, 11);
  provider.deliveries = {5, 0};
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(writePlace(), 0);
  provider.deliveries = {0};
  EXPECT_EQ(load(), 1);
}

TEST_F(CircularBufferLoading, AWriterAtTheEndTakesOnlyTheSecondRead) {
  place(5, 16);
  provider.deliveries = {0};
  EXPECT_EQ(load(), 1);
  EXPECT_EQ(provider.calls.size(), 1U);
  EXPECT_EQ(provider.calls[0].maximum, 4);
}

// What was read out is what was delivered, in order, whatever the sizes: a queue is the model.
TEST(CircularBufferLoadingAtRandom, KeepsEveryByteInOrder) {
  std::mt19937_64 random(zel::test::testSeed());
  for (int round = 0; round < 300; ++round) {
    std::vector<uint8_t> storage(2 + random() % 60);
    cbuf buffer{storage.data(),
                storage.data() + storage.size(),
                storage.data(),
                storage.data(),
                int32_t(storage.size()),
                storage.data(),
                0};
    ScriptedProvider provider;
    TarnStreamInfo const stream{&provider, 0};
    size_t taken = 0;
    for (int step = 0; step < 200; ++step) {
      provider.calls.clear();
      provider.deliveries = {int32_t(1 + random() % 40), int32_t(1 + random() % 40)};
      size_t const held = provider.delivered.size() - taken;
      ASSERT_EQ(LoadFromProvider(stream, buffer), 0);
      ASSERT_LE(provider.calls.size(), 2U);
      size_t const nowHeld = provider.delivered.size() - taken;
      ASSERT_LT(nowHeld, storage.size());
      const bool hadRoom = held < storage.size() - 1;
      ASSERT_TRUE(!hadRoom || nowHeld > held);
      ASSERT_EQ(size_t(zel::mux::cbuf_filled(buffer)), nowHeld);
      for (size_t count = random() % (nowHeld + 1); count > 0; --count) {
        if (buffer.read == buffer.end) buffer.read = buffer.start;
        ASSERT_EQ(*buffer.read, provider.delivered[taken]);
        ++taken;
        buffer.read = zel::mux::cbuf_forward(buffer, buffer.read, 1);
      }
    }
  }
}

}  // namespace
}  // namespace Morvalen::Zel
