// The front end on the engine itself: providers of every temper, consumers that fail, passes.

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/plain_transport_stream.h"
#include "tests/support/random_streams.h"
#include "tests/support/seed.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/mux/multiplexer_api.h"
#include "zel/runtime/four_character_code.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

using Container = ContainerProperty;
using Writer = ContainerWriterProperty;
using Bytes = std::vector<uint8_t>;

constexpr int32_t kVideoPid = 0x101;
constexpr int32_t kAudioPid = 0x102;

class Provider : public ITarnwickProvider {
 public:
  explicit Provider(Bytes const& stream) : stream_(stream) {}
  virtual ~Provider() = default;
  int32_t mostAtOnce = 0;  // 0: all that is asked for
  int reads = 0;

  int32_t ReadData(unsigned char* destination, int32_t maximum, int32_t) override {
    ++reads;
    size_t count = std::min(size_t(maximum), stream_.size() - place_);
    if (mostAtOnce > 0) count = std::min(count, size_t(mostAtOnce));
    std::copy_n(stream_.data() + place_, count, destination);
    place_ += count;
    return int32_t(count);
  }
  int GetBitRate(int32_t, int32_t&) override { return 0; }
  int GetLanguageDescriptor(CByteArray*&) override { return -1; }
  int GetDvbAc3Descriptor(CByteArray*&) override { return -1; }

 private:
  Bytes const& stream_;
  size_t place_ = 0;
};

// Has nothing until another thread brings it: a piece at a time.
class BlockingProvider final : public Provider {
 public:
  explicit BlockingProvider(Bytes const& stream)
      : Provider(pieces_), feeder_([this, &stream] { Feed(stream); }) {}
  ~BlockingProvider() override { feeder_.join(); }

  int32_t ReadData(unsigned char* destination, int32_t maximum, int32_t) override {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [this] { return taken_ < pieces_.size() || done_; });
    size_t const count = std::min(size_t(maximum), pieces_.size() - taken_);
    std::copy_n(pieces_.data() + taken_, count, destination);
    taken_ += count;
    return int32_t(count);
  }

 private:
  void Feed(Bytes const& stream) {
    constexpr size_t kPiece = 9973;
    for (size_t place = 0; place < stream.size(); place += kPiece) {
      {
        std::lock_guard const lock(mutex_);
        auto const from = stream.begin() + ptrdiff_t(place);
        pieces_.insert(pieces_.end(), from,
                       from + ptrdiff_t(std::min(kPiece, stream.size() - place)));
      }
      arrived_.notify_one();
      std::this_thread::yield();
    }
    {
      std::lock_guard const lock(mutex_);
      done_ = true;
    }
    arrived_.notify_one();
  }

  std::mutex mutex_;
  std::condition_variable arrived_;
  Bytes pieces_;
  size_t taken_ = 0;
  bool done_ = false;
  std::thread feeder_;
};

class Consumer final : public ITarnwickConsumer {
 public:
  Bytes bytes;
  int writes = 0;
  int failAt = 0;  // counted from 1

  int WriteData(int32_t size, unsigned char const* buffer, int32_t bufferSize) override {
    EXPECT_EQ(size, bufferSize);
    if (++writes == failAt) return -1;
    bytes.insert(bytes.end(), buffer, buffer + size);
    return 0;
  }
  void OnConfigurationMessage(int32_t, int32_t, char const*) override {}
};

class Properties final : public IProperties {};

class MultiplexerRun : public testing::Test {
 protected:
  static zel::test::PlainStream const& plain() {
    static zel::test::PlainStream const stream = zel::test::makePlainTransportStream();
    return stream;
  }
  MultiplexerRun() {
    properties.SetProperty(Container::Mpeg2TransportStreamRate, int32_t{5000000});
    properties.SetProperty(Writer::Mpeg2TransportStreamPcrPer, int32_t{40});
  }

  // All calls in order; the result of the one that failed, or of Multiplex.
  int multiplex(ITarnwickProvider* video, ITarnwickProvider* audio, int32_t pass = 0) {
    if (pass == 0) {
      mux = CTarnwickMultiplexerApi::Create();
      if (int const result = mux->Begin(&consumer, &properties); result < 0) return result;
      if (video != nullptr) {
        int const result = mux->AddVideoStream(kVideoPid, video, &properties,
                                               FourCharacterCode("mpg2"), videoRate, {25, 1});
        if (result < 0) return result;
      }
      if (audio != nullptr) {
        int32_t count = 0;
        int const result = mux->AddAudioStream(kAudioPid, kVideoPid, count, audio, &properties,
                                               FourCharacterCode("mp2 "), 2, 16, 48000, 192000);
        if (result < 0) return result;
        EXPECT_EQ(count, 1);
      }
    }
    return mux->Multiplex(nullptr, pass, pass == 1 ? firstPass.c_str() : nullptr);
  }
  std::string message() const {
    CString const* const text = mux->GetErrorMessage();
    return text != nullptr ? text->GetChars() : "";
  }

  int32_t videoRate = 2000000;
  zel::test::ScratchFolder folder;
  std::string firstPass = folder.file("first.ts");
  Properties properties;
  Consumer consumer;
  RObject<CTarnwickMultiplexerApi> mux;
};

TEST_F(MultiplexerRun, WhatProvidersGiveComesOutAsAStreamThatHoldsTheModel) {
  Provider video(plain().video);
  Provider audio(plain().audio);
  ASSERT_EQ(multiplex(&video, &audio), 0) << message();
  auto const verdict = zel::test::judgeTransportStream(consumer.bytes);
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  EXPECT_TRUE(zel::test::elementaryStream(consumer.bytes, kVideoPid) == plain().video);
  EXPECT_TRUE(zel::test::elementaryStream(consumer.bytes, kAudioPid) == plain().audio);
  EXPECT_EQ(mux->GetErrorMessage(), nullptr);
  EXPECT_EQ(mux->GetConfiguration(), nullptr);
}

TEST_F(MultiplexerRun, OneByteAtATimeGivesTheSameBytes) {
  Provider video(plain().video);
  Provider audio(plain().audio);
  ASSERT_EQ(multiplex(&video, &audio), 0) << message();
  Bytes const whole = std::move(consumer.bytes);
  consumer.bytes.clear();

  Provider slowVideo(plain().video);
  Provider slowAudio(plain().audio);
  slowVideo.mostAtOnce = slowAudio.mostAtOnce = 1;
  ASSERT_EQ(multiplex(&slowVideo, &slowAudio), 0) << message();
  EXPECT_GE(slowVideo.reads, int(plain().video.size()));
  EXPECT_TRUE(consumer.bytes == whole);
}

TEST_F(MultiplexerRun, ABlockingProviderGivesTheSameBytes) {
  Provider video(plain().video);
  Provider audio(plain().audio);
  ASSERT_EQ(multiplex(&video, &audio), 0) << message();
  Bytes const whole = std::move(consumer.bytes);
  consumer.bytes.clear();

  BlockingProvider slowVideo(plain().video);
  BlockingProvider slowAudio(plain().audio);
  ASSERT_EQ(multiplex(&slowVideo, &slowAudio), 0) << message();
  EXPECT_TRUE(consumer.bytes == whole);
}

TEST_F(MultiplexerRun, AConsumerThatFailsEndsTheRunBehindWholePackets) {
  for (int const failAt : {1, 2, 100, 1000}) {
    Provider video(plain().video);
    Provider audio(plain().audio);
    consumer.bytes.clear();
    consumer.writes = 0;
    consumer.failAt = failAt;
    EXPECT_EQ(multiplex(&video, &audio), ZelErrorFailed);
    EXPECT_EQ(consumer.writes, failAt);
    EXPECT_EQ(consumer.bytes.size() % 188, 0u);
    EXPECT_NE(message().find("Error writing to output.\n"), std::string::npos) << message();
    EXPECT_EQ(mux->GetConfiguration(), nullptr);
  }
}

TEST_F(MultiplexerRun, AProviderThatGivesNothingIsNoStream) {
  Bytes const nothing;
  Provider video(plain().video);
  Provider audio(nothing);
  EXPECT_EQ(multiplex(&video, &audio), ZelErrorFailed);
  EXPECT_NE(message().find("Audio never acquired.\n"), std::string::npos) << message();
  EXPECT_TRUE(consumer.bytes.empty());
}

TEST_F(MultiplexerRun, AnEmptyProgramHasAnEmptyMap) {
  EXPECT_EQ(multiplex(nullptr, nullptr), 0) << message();
}

TEST_F(MultiplexerRun, ARateThatIsTooLowIsAnErrorWithAdvice) {
  properties.SetProperty(Container::Mpeg2TransportStreamRate, int32_t{1500000});
  Provider video(plain().video);
  Provider audio(plain().audio);
  EXPECT_EQ(multiplex(&video, &audio), ZelErrorFailed);
  EXPECT_NE(message().find("underflow by "), std::string::npos) << message();
  EXPECT_NE(message().find("Error: packet = "), std::string::npos) << message();
  EXPECT_NE(message().find("Try increasing File Bit Rate in the multiplexer."), std::string::npos);
}

TEST_F(MultiplexerRun, FurtherPassesHaveRoomForWhatCameLate) {
  // The caller says less than the stream has: the first pass sends it too slowly.
  std::mt19937_64 random(zel::test::testSeed());
  Bytes const stream = zel::test::randomMpeg2Video(random, 2000000, 8);
  Bytes const sound = zel::test::audioFrames(zel::test::AudioFrames::kLayer2, 8);
  videoRate = 1650000;
  properties.SetProperty(Writer::TarnwickEnable2Pass, true);
  Provider video(stream);
  Provider audio(sound);
  ASSERT_EQ(multiplex(&video, &audio), ZelErrorOverrun) << message();
  auto const first = zel::test::judgeTransportStream(consumer.bytes);
  EXPECT_TRUE(first.has(zel::test::Fault::kUnderflow)) << first.text();
  zel::test::writeFile(firstPass, consumer.bytes);

  int result = ZelErrorOverrun;
  int pass = 0;
  while (result == ZelErrorOverrun && pass < 6) {
    consumer.bytes.clear();
    result = multiplex(nullptr, nullptr, ++pass);
  }
  EXPECT_EQ(result, 0) << message();
  auto const last = zel::test::judgeTransportStream(consumer.bytes);
  EXPECT_TRUE(last.clean()) << "after pass " << pass << "\n" << last.text();
  EXPECT_TRUE(zel::test::elementaryStream(consumer.bytes, kVideoPid) == stream);
  EXPECT_TRUE(zel::test::elementaryStream(consumer.bytes, kAudioPid) == sound);
  EXPECT_EQ(mux->GetConfiguration(), nullptr);
}

TEST_F(MultiplexerRun, PassesEndWhereTheTransportRateDoes) {
  std::mt19937_64 random(zel::test::testSeed());
  Bytes const stream = zel::test::randomMpeg2Video(random, 2000000, 8);
  videoRate = 1300000;
  properties.SetProperty(Writer::TarnwickEnable2Pass, true);
  properties.SetProperty(Container::Mpeg2TransportStreamRate, int32_t{1450000});
  Provider video(stream);
  int result = multiplex(&video, nullptr);
  zel::test::writeFile(firstPass, consumer.bytes);
  for (int pass = 1; result == ZelErrorOverrun && pass < 50; ++pass)
    result = multiplex(nullptr, nullptr, pass);
  EXPECT_EQ(result, ZelErrorFailed);
  EXPECT_EQ(message(),
            "2-Pass Multiplexing failed. Please disable 2-Pass and try increasing File Bit Rate in "
            "the multiplexer.");
}

TEST_F(MultiplexerRun, AConfigurationFileSaysWhatProvidersAreFor) {
  std::string const path = folder.file("mux.cfg");
  std::ofstream(path) << "Transport*\nRate = 5000000\nProgram1*\nProgramNumber = 77\nPCRper = 40\n"
                         "Video1$\nPID = 0x101\nFile = none.m2v\n"
                         "Audio1$\nPID = 0x102\nFile = none.mp2\n"
                         "Audio2$\nPID = 0x103\nFile = dropped.mp2\n";
  RObject<CString> const text(new CString(path.c_str()));
  properties.SetProperty(Writer::TarnwickConfigFile, static_cast<CString*>(text));
  Provider video(plain().video);
  Provider audio(plain().audio);
  ASSERT_EQ(multiplex(&video, &audio), 0) << message();
  auto const verdict = zel::test::judgeTransportStream(consumer.bytes);
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  ASSERT_EQ(verdict.streams.size(), 2u);
  EXPECT_EQ(verdict.streams[0].programme, 77);
  EXPECT_TRUE(zel::test::elementaryStream(consumer.bytes, kAudioPid) == plain().audio);
}

}  // namespace
}  // namespace Morvalen::Zel
