#include "zel/mux/multiplexer_api.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "zel/runtime/four_character_code.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

using Container = ContainerProperty;
using Writer = ContainerWriterProperty;

// An engine that does what a test says instead of a run.
struct FakeEngine {
  static inline FakeEngine* current = nullptr;
  std::function<int()> run = [] { return 0; };
  tsm_stats stats;
  int32_t rate = 8000000;
  bool opens = true;
  int installed = 0;
  int runs = 0;
  int closed = 0;
  tsm_config* config = nullptr;
  tsm_error_callback error = nullptr;
  tsm_progress_callback progress = nullptr;

  FakeEngine() { current = this; }
  EngineCalls calls() const {
    EngineCalls table;
    table.setCallbacks = [](tsm_progress_callback onProgress, tsm_write_callback,
                            tsm_error_callback onError, tsm_load_callback, tsm_block_end_callback) {
      ++current->installed;
      current->error = onError;
      current->progress = onProgress;
    };
    table.open = [](tsm_config* opened, int32_t* settled) -> void* {
      current->config = opened;
      *settled = current->rate;
      return current->opens ? current : nullptr;
    };
    table.run = [](void*) {
      ++current->runs;
      return current->run();
    };
    table.getStats = [](void*, tsm_stats* counters) { *counters = current->stats; };
    table.close = [](void*) { ++current->closed; };
    return table;
  }
  void say(bool fatal, char const* text) {
    error(config->errorUser, fatal ? 1 : 0, 7, text);
    ++(fatal ? stats.errors : stats.warnings);
  }
};

class Provider final : public ITarnwickProvider {
 public:
  int32_t measured = 0;
  int32_t ReadData(unsigned char*, int32_t, int32_t) override { return 0; }
  int GetBitRate(int32_t, int32_t& rate) override {
    rate = measured;
    return 0;
  }
  int GetLanguageDescriptor(CByteArray*&) override { return -1; }
  int GetDvbAc3Descriptor(CByteArray*&) override { return -1; }
};

class Consumer final : public ITarnwickConsumer {
 public:
  int WriteData(int32_t, unsigned char const*, int32_t) override { return 0; }
  void OnConfigurationMessage(int32_t, int32_t, char const*) override {}
};

class Properties final : public IProperties {};

class MultiplexerApi : public testing::Test {
 protected:
  MultiplexerApi() : calls(fake.calls()), mux(CTarnwickMultiplexerApi::Create(calls)) {}
  // Nothing frees the configuration of a multiplex that was never run.
  ~MultiplexerApi() override {
    if (mux->GetConfiguration() != nullptr) tsm_config_free(mux->GetConfiguration());
  }

  int begin() { return mux->Begin(&consumer, &properties); }
  tsm_config& config() { return *mux->GetConfiguration(); }
  int addVideo(int32_t rate, uint32_t code = FourCharacterCode("h264")) {
    return mux->AddVideoStream(33, &provider, &properties, code, rate, Rational64{25, 1});
  }

  FakeEngine fake;
  EngineCalls calls;
  Properties properties;
  Provider provider;
  Consumer consumer;
  RObject<CTarnwickMultiplexerApi> mux;
};

constexpr char kUnderflow[] =
    "Warning: packet = 100, PID = 0x0021, time = 2.00s\nVideo decoder underflow by 1000 bytes.\n";

TEST_F(MultiplexerApi, PropertiesReachTheConfiguration) {
  properties.SetProperty(Container::Mpeg2TransportStreamId, int32_t{77});
  properties.SetProperty(Container::Mpeg2TransportPatVersion, int32_t{3});
  properties.SetProperty(Container::Mpeg2TransportStreamPcrPid, int32_t{40});
  properties.SetProperty(Writer::Mpeg2TransportPcrOnEveryPesHeader, true);
  properties.SetProperty(Writer::Mpeg2TransportNoEmptyAdaptationFields, true);
  properties.SetProperty(Writer::Mpeg2TransportVariableBitrate, true);
  properties.SetProperty(Writer::Mpeg2TransportPatRepetitionRate, 4.0);
  properties.SetProperty(Writer::Mpeg2TransportPmtRepetitionRate, 5.0);
  properties.SetProperty(Container::Mpeg2TransportStreamRate, int32_t{6000000});
  properties.SetProperty(Container::Mpeg2TransportStreamPmtPid, int32_t{80});
  properties.SetProperty(Container::Mpeg2TransportStreamProgramNumber, int32_t{9});
  properties.SetProperty(Writer::Mpeg2TransportStreamPcrPer, int32_t{35});
  ASSERT_EQ(begin(), 0);
  EXPECT_EQ(config().patTsid, 77);
  EXPECT_EQ(config().patVsn, 3);
  EXPECT_TRUE(config().noEmptyAf);
  EXPECT_TRUE(config().vbr);
  EXPECT_EQ(config().psiPatRep, 4.0);
  EXPECT_EQ(config().psiPmtRep, 5.0);
  EXPECT_EQ(config().rate, 6e6);
  EXPECT_EQ(config().programs->pcrPid, 40);
  EXPECT_TRUE(config().programs->pcrPes);
  EXPECT_EQ(config().programs->pmtPid, 80);
  EXPECT_EQ(config().programs->programNumber, 9);
  EXPECT_EQ(config().programs->pcrPer, 35);
  EXPECT_EQ(config().writeUser, &consumer);
}

TEST_F(MultiplexerApi, PacketTimeStampKeysCountOnlyWithTheirSwitch) {
  properties.SetProperty(Writer::Mpeg2TransportPacketTimestampSizeBits, int32_t{30});
  properties.SetProperty(Writer::Mpeg2TransportPacketTimestampPrecedesPacket, true);
  ASSERT_EQ(begin(), 0);
  EXPECT_EQ(config().pktTsBits, 0);
  EXPECT_FALSE(config().pktTsPre);
}

TEST_F(MultiplexerApi, AReadThatFailsEndsBegin) {
  unsigned char const eight[8] = {};
  properties.SetProperty(Container::Mpeg2TransportStreamId, 8, eight);
  EXPECT_EQ(begin(), ZelErrorInvalidArgument);
}

TEST_F(MultiplexerApi, AThresholdOfOneIsNone) {
  ASSERT_EQ(begin(), 0);
  EXPECT_TRUE(config().stopOnError);
  EXPECT_FALSE(config().stopOnWarning);
  tsm_stats many;
  many.warnings = 50;
  EXPECT_EQ(CTarnwickMultiplexerApi::ProgressHandler(config().progressUser, &many), 0);
}

TEST_F(MultiplexerApi, AThresholdOfTwoStopsAboveTwoMessages) {
  properties.SetProperty(Writer::TarnwickErrorThreshold, int32_t{2});
  properties.SetProperty(Writer::TarnwickErrorBehavior, int32_t{2});
  ASSERT_EQ(begin(), 0);
  EXPECT_FALSE(config().stopOnError);
  EXPECT_FALSE(config().stopOnWarning);
  tsm_stats stats;
  stats.warnings = 2;
  EXPECT_EQ(CTarnwickMultiplexerApi::ProgressHandler(config().progressUser, &stats), 0);
  stats.errors = 1;
  EXPECT_EQ(CTarnwickMultiplexerApi::ProgressHandler(config().progressUser, &stats), -1);
}

TEST_F(MultiplexerApi, TheVideoRateComesFromPropertyThenArgumentThenProvider) {
  ASSERT_EQ(begin(), 0);
  provider.measured = 123;
  ASSERT_EQ(addVideo(0), 0);
  ASSERT_EQ(addVideo(5000), 0);
  properties.SetProperty(Writer::Mpeg2TransportVideoBitrate, int32_t{777});
  ASSERT_EQ(addVideo(5000, FourCharacterCode("hvc1")), 0);
  EXPECT_EQ(config().programs->video[0]->rate, 123);
  EXPECT_EQ(config().programs->video[1]->rate, 5000);
  EXPECT_EQ(config().programs->video[2]->rate, 777);
  EXPECT_EQ(config().programs->video[1]->frameRateNumerator, 0);
  EXPECT_EQ(config().programs->video[2]->frameRateNumerator, 25);
  EXPECT_EQ(mux->GetComponentRate(), 10000);
}

TEST_F(MultiplexerApi, PcmBecomesSmpte302mWithAPairAProviderIndex) {
  ASSERT_EQ(begin(), 0);
  int32_t pairs = 0;
  EXPECT_EQ(mux->AddAudioStream(36, 33, pairs, &provider, &properties, FourCharacterCode("in24"), 4,
                                24, 48000, 0),
            0);
  EXPECT_EQ(pairs, 2);
  tsm_smpte302m const& stream = *config().programs->smpte302m[0];
  EXPECT_TRUE(stream.byteReversed);
  EXPECT_EQ(stream.rate, 48000 * 192 / 7);
  EXPECT_EQ(static_cast<TarnStreamInfo const*>(stream.pairUser[1])->index, 1);
  EXPECT_EQ(stream.channelStatusData[3][0], 0x81);
  EXPECT_EQ(stream.refVideoPid, 33);
  EXPECT_EQ(mux->AddAudioStream(36, 0, pairs, &provider, &properties, FourCharacterCode("sowt"), 3,
                                16, 48000, 0),
            ZelErrorNotSupported);
}

TEST_F(MultiplexerApi, MoreThanThirtyTwoInputsAreRefused) {
  ASSERT_EQ(begin(), 0);
  for (int i = 0; i < 32; ++i) ASSERT_EQ(mux->AddDataStream(1, 100 + i, &provider), 0);
  EXPECT_EQ(mux->AddDataStream(1, 200, &provider), ZelErrorQueueFull);
  EXPECT_EQ(addVideo(1000), ZelErrorQueueFull);
  EXPECT_EQ(config().programs->video[0], nullptr);
}

TEST_F(MultiplexerApi, ACleanRunAnswersZeroAndFreesTheConfiguration) {
  properties.SetProperty(Container::Mpeg2TransportStreamRate, int32_t{1000000});
  properties.SetProperty(Container::Mpeg2TransportStreamHeadroom, int32_t{10});
  ASSERT_EQ(begin(), 0);
  double rate = 0;
  fake.run = [&] {
    rate = fake.config->rate;
    return 0;
  };
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), 0);
  EXPECT_EQ(rate, 1100000);
  EXPECT_EQ(fake.closed, 1);
  EXPECT_EQ(mux->GetConfiguration(), nullptr);
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), ZelErrorNotReady);
}

TEST_F(MultiplexerApi, RecordsThatNobodyBoundAreDropped) {
  ASSERT_EQ(begin(), 0);
  tsm_add_video(config().programs);
  bool dropped = false;
  fake.run = [&] {
    dropped = fake.config->programs->video[0] == nullptr;
    return 0;
  };
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), 0);
  EXPECT_TRUE(dropped);
}

TEST_F(MultiplexerApi, AnUnderflowInASinglePassBecomesAnErrorWithAdvice) {
  ASSERT_EQ(begin(), 0);
  fake.run = [&] {
    fake.say(false, kUnderflow);
    return 0;
  };
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), ZelErrorFailed);
  EXPECT_EQ(std::string(mux->GetErrorMessage()->GetChars()),
            "Error" + std::string(kUnderflow).substr(7) +
                " Try increasing File Bit Rate in the multiplexer. If that fails, enable 2-Pass "
                "Multiplexing.");
}

TEST_F(MultiplexerApi, OtherWarningsFailNothing) {
  ASSERT_EQ(begin(), 0);
  fake.run = [&] {
    fake.say(false, "Warning: packet = 1, time = 0.00s\nProgram1: nothing.\n");
    return 0;
  };
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), 0);
}

TEST_F(MultiplexerApi, WhatIsCutOffALongTextIsNotSearched) {
  ASSERT_EQ(begin(), 0);
  fake.run = [&] {
    fake.say(false, (std::string(1020, 'x') + "underflow").c_str());
    return 0;
  };
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), 0);
}

TEST_F(MultiplexerApi, AFatalMessageIsTheText) {
  ASSERT_EQ(begin(), 0);
  fake.run = [&] {
    fake.say(true, "Fatal Error: disk\n");
    return -1;
  };
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), ZelErrorFailed);
  EXPECT_STREQ(mux->GetErrorMessage()->GetChars(), "Fatal Error: disk\n");
}

TEST_F(MultiplexerApi, TheSecondPassReadsTheFirstAndGivesVideoMoreRoom) {
  properties.SetProperty(Writer::TarnwickEnable2Pass, true);
  ASSERT_EQ(begin(), 0);
  ASSERT_EQ(addVideo(2000000), 0);
  fake.run = [&] {
    fake.say(false, kUnderflow);  // 1,000 bytes in 2 s: 4,000 bits a second
    return 0;
  };
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), ZelErrorOverrun);
  ASSERT_EQ(mux->Multiplex(nullptr, 1, "first.ts"), ZelErrorOverrun);
  tsm_video const& video = *config().programs->video[0];
  EXPECT_EQ(video.rateAdjustment, 4000 + 8192);
  EXPECT_EQ(video.user, nullptr);
  EXPECT_EQ(video.sourceTsPid, 33);
  EXPECT_EQ(tarn_array_text(&video.files, 0), "first.ts");
  fake.stats = {};
  fake.run = [] { return 0; };
  EXPECT_EQ(mux->Multiplex(nullptr, 2, nullptr), 0);
  EXPECT_EQ(fake.installed, 3);
}

TEST_F(MultiplexerApi, APassThatCannotFitFailsWithoutRunning) {
  properties.SetProperty(Writer::TarnwickEnable2Pass, true);
  fake.rate = 2005000;
  ASSERT_EQ(begin(), 0);
  ASSERT_EQ(addVideo(2000000), 0);
  fake.run = [&] {
    fake.say(false, kUnderflow);
    return 0;
  };
  EXPECT_EQ(mux->Multiplex(nullptr, 0, nullptr), ZelErrorOverrun);
  EXPECT_EQ(mux->Multiplex(nullptr, 1, "first.ts"), ZelErrorFailed);
  EXPECT_EQ(fake.runs, 1);
  EXPECT_TRUE(mux->GetErrorMessage()->StartsWith("2-Pass Multiplexing failed.", true));
}

TEST_F(MultiplexerApi, AMissingConfigurationFileIsToldInAProperty) {
  RObject<CString> path(new CString("/nowhere/at/all.cfg"));
  properties.SetProperty(Writer::TarnwickConfigFile, static_cast<CString*>(path));
  EXPECT_EQ(begin(), ZelErrorCancelled);
  unsigned char text[64] = {};
  EXPECT_EQ(properties.GetProperty("ErrorMessage", 64, text), 36);
  EXPECT_STREQ(reinterpret_cast<char*>(text), "Tarnwick configuration file missing");
}

TEST_F(MultiplexerApi, WithoutAnEngineItSaysSo) {
  EngineCalls const none;
  RObject<CTarnwickMultiplexerApi> bare(CTarnwickMultiplexerApi::Create(none));
  EXPECT_EQ(bare->Begin(&consumer, &properties), ZelErrorNotSupported);
}

}  // namespace
}  // namespace Morvalen::Zel
