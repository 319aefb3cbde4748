// Random multiplexes hold the decoder model of ISO/IEC 13818-1, 2.4.2, by a judge that shares no
// code with the multiplexer; and give the streams back that went in.

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "tests/support/elementary_media.h"
#include "tests/support/external_program.h"
#include "tests/support/multiplexed.h"
#include "tests/support/random_streams.h"
#include "tests/support/seed.h"
#include "tests/support/transport_judge/transport_judge.h"

namespace zel::test {
namespace {

#ifndef ZEL_ROUNDS
#define ZEL_ROUNDS 25
#endif
constexpr int kRounds = ZEL_ROUNDS;

class RandomMultiplex {
 public:
  RandomMultiplex(uint64_t seed, const ScratchFolder& folder) : random_(seed), folder_(folder) {
    const int programs = pick(1, 8);
    for (int number = 1; number <= programs; ++number) addProgram(number);
  }

  /// Without a rate the engine takes what the streams need.
  std::string text(double rate) const {
    std::string text = "Transport*\n" + transport_;
    if (rate > 0) text += "Rate = " + std::to_string(static_cast<int64_t>(rate)) + "\n";
    return text + programs_;
  }
  const std::map<int, std::string>& files() const { return files_; }
  double uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }

 private:
  int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  bool chance(int percent) { return pick(1, 100) <= percent; }

  std::string store(const std::vector<uint8_t>& bytes) {
    const std::string path = folder_.file("stream" + std::to_string(files_.size()));
    writeFile(path, bytes);
    return path;
  }

  void addOption(const char* text, int percent) {
    if (chance(percent)) programs_ += text;
  }
  void addOption(const char* key, int low, int high, int percent) {
    if (chance(percent))
      programs_ += std::string(key) + " = " + std::to_string(pick(low, high)) + "\n";
  }

  void addStream(const std::string& path, int pid) {
    programs_ += "PID = " + std::to_string(pid) + "\nFile = " + path + "\n";
    files_[pid] = path;
    addOption("PESalign = yes\n", 25);
    addOption("TransportPriority = yes\n", 10);
    addOption("RAI = yes\n", 15);
    addOption("PEScopyrt = yes\n", 10);
    addOption("InitDI = yes\n", 10);
  }

  void addProgram(int number) {
    programs_ += "\nProgram" + std::to_string(number) + "*\n";
    // A PCR waits for a packet of its stream: of one at 100 kbit/s, 15 ms beyond PCRper.
    programs_ += "PCRper = " + std::to_string(pick(20, 80)) + "\n";
    addOption("PMTvsn", 0, 31, 20);
    addOption("PCRPES = yes\n", 15);
    const bool hasVideo = chance(80);
    if (hasVideo) {
      programs_ += "Video1$\n";
      addStream(store(randomMpeg2Video(random_, pick(3, 20) * 200'000, kSeconds)),
                number * 64 + 256);
      addOption("AUinfo = yes\n", 15);
      addOption("PTSnPES", 1, 3, 20);
    }
    const int sounds = pick(hasVideo ? 0 : 1, 3);
    for (int i = 1; i <= sounds; ++i) {
      programs_ += "Audio" + std::to_string(i) + "$\n";
      const auto kind = static_cast<AudioFrames>(pick(0, kAudioFrameKinds - 1));
      addStream(store(audioFrames(kind, kSeconds)), number * 64 + 256 + i);
      addOption("PESnau", 1, 4, 50);
    }
    if (number == 1) {
      if (chance(30)) transport_ += "PSIPATrep = " + std::to_string(pick(3, 20)) + "\n";
      if (chance(30)) transport_ += "PSIPMTrep = " + std::to_string(pick(3, 20)) + "\n";
      // Not NoEmptyAF: it puts zero bytes into video, so that streams don't come back as they were.
      if (chance(20)) transport_ += "PktCountMultiple = 8\n";
    }
  }

  static constexpr double kSeconds = 2;
  std::mt19937_64 random_;
  const ScratchFolder& folder_;
  std::string transport_, programs_;
  std::map<int, std::string> files_;
};

TEST(MuxModel, RandomMultiplexesHoldIt) {
  for (int round = 0; round < kRounds; ++round) {
    const ScratchFolder folder;
    RandomMultiplex multiplex(testSeed() * 1000 + static_cast<uint64_t>(round), folder);
    // At the rate that the engine takes by itself, or at a rate with room.
    const Multiplexed tight = multiplexText(multiplex.text(0));
    ASSERT_TRUE(tight.result.done) << tight.said();
    const double factor = multiplex.uniform(1.0, 2.5);
    const std::string text = multiplex.text(tight.result.rate * factor);
    const Multiplexed roomy = multiplexText(text);
    ASSERT_TRUE(roomy.result.done) << roomy.said();
    EXPECT_EQ(roomy.said(), "");
    const Verdict verdict = judgeTransportStream(roomy.bytes);
    EXPECT_TRUE(verdict.clean()) << verdict.text();
    EXPECT_NEAR(verdict.rate, tight.result.rate * factor, 2);
    for (const auto& [pid, path] : multiplex.files())
      EXPECT_TRUE(elementaryStream(roomy.bytes, pid) == fileBytes(path)) << "PID " << pid;
    // The same again is the same bytes.
    if (round % 10 == 0) {
      EXPECT_TRUE(multiplexText(text).bytes == roomy.bytes);
    }
    if (testing::Test::HasFailure()) {
      FAIL() << "round " << round << " with\n" << text;
    }
  }
}

}  // namespace
}  // namespace zel::test
