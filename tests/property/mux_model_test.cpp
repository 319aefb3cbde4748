// Random multiplexes hold the decoder model of ISO/IEC 13818-1, 2.4.2, by a judge that shares no
// code with the multiplexer; and give the streams back that went in.

#include <gtest/gtest.h>

#include "tests/support/elementary_media.h"
#include "tests/support/external_program.h"
#include "tests/support/multiplexed.h"
#include "tests/support/random_multiplex.h"
#include "tests/support/seed.h"
#include "tests/support/transport_judge/transport_judge.h"

namespace zel::test {
namespace {

// The slow program goes on where the quick one ends. Names of its own keep its label off the
// others.
#ifdef ZEL_MANY_ROUNDS
#define ZEL_SUITE ManyMuxModels
constexpr int kFirstRound = 25;
constexpr int kRounds = 145;
#else
#define ZEL_SUITE MuxModel
constexpr int kFirstRound = 0;
constexpr int kRounds = 25;
#endif
constexpr int kMediaSeconds = 2;

void expectOnlyWhatHasToBeSaid(const RandomMultiplex& multiplex, const Multiplexed& run) {
  for (const tool::MessageGroup& group : run.result.messages.groups())
    EXPECT_TRUE(multiplex.expects(tool::toText(group))) << tool::toText(group);
}

// Slots that are gone through in a row come to what each by itself does.
void expectTheSameSlotBySlot(const std::string& text, const Multiplexed& run) {
  int64_t packets = 0;
  const Multiplexed traced =
      multiplexText(text, [&](const Morvalen::Zel::tsm_trace_event&) { ++packets; });
  EXPECT_TRUE(traced.bytes == run.bytes);
  EXPECT_GE(packets, traced.result.stats.packetsWritten);
  EXPECT_EQ(traced.result.stats.nullPackets, run.result.stats.nullPackets);
  EXPECT_EQ(traced.said(), run.said());
  ASSERT_EQ(traced.result.streams.size(), run.result.streams.size());
  for (size_t i = 0; i < run.result.streams.size(); ++i) {
    EXPECT_EQ(traced.result.streams[i].packets, run.result.streams[i].packets) << i;
    EXPECT_EQ(traced.result.streams[i].bufferPeak, run.result.streams[i].bufferPeak) << i;
    EXPECT_EQ(traced.result.streams[i].bufferLowest, run.result.streams[i].bufferLowest) << i;
  }
}

void multiplexAtRandom(uint64_t seed, bool again, ElementaryMediaShelf* shelf) {
  const ScratchFolder folder;
  const RandomMultiplex multiplex(seed, folder, shelf);
  // At the rate that the engine takes by itself, then at a rate with room.
  const Multiplexed tight = multiplexText(multiplex.text(0));
  ASSERT_TRUE(tight.result.done) << tight.said();
  const double rate = tight.result.rate * multiplex.roomFactor();
  const std::string text = multiplex.text(rate);
  const Multiplexed roomy = multiplexText(text);
  ASSERT_TRUE(roomy.result.done) << roomy.said();
  expectOnlyWhatHasToBeSaid(multiplex, roomy);
  const Verdict verdict = judgeTransportStream(roomy.bytes, multiplex.judgeOptions());
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  if (!multiplex.variableRate()) {
    EXPECT_NEAR(verdict.rate, rate, 2);
  }
  EXPECT_EQ(multiplex.missing(roomy.bytes), "");
  expectTheSameSlotBySlot(text, roomy);
  expectTheSameSlotBySlot(multiplex.text(0), tight);
  // The same again is the same bytes.
  if (again) {
    EXPECT_TRUE(multiplexText(text).bytes == roomy.bytes);
  }
}

void multiplexManyAtRandom(uint64_t firstSeed, ElementaryMediaShelf* shelf) {
  for (int round = kFirstRound; round < kRounds; ++round) {
    const uint64_t seed = firstSeed + static_cast<uint64_t>(round);
    multiplexAtRandom(seed, round % 10 == 0, shelf);
    if (testing::Test::HasFailure()) {
      const ScratchFolder folder;
      FAIL() << "round " << round << " with\n" << RandomMultiplex(seed, folder, shelf).text(0);
    }
  }
}

TEST(ZEL_SUITE, RandomMultiplexesHoldIt) {
  multiplexManyAtRandom(testSeed() * 1000, nullptr);
}

TEST(ZEL_SUITE, RandomMultiplexesOfEncodersStreamsHoldIt) {
  for (const char* const program : {"ffmpeg", "x264", "x265"})
    if (programPath(program).empty()) GTEST_SKIP() << program << " is not installed";
  ElementaryMediaShelf shelf(kMediaSeconds);
  multiplexManyAtRandom(testSeed() * 1000 + 500, &shelf);
}

#ifndef ZEL_MANY_ROUNDS
// The comparison itself: one wrong byte in any stream is seen.
TEST(MuxModel, AByteThatChangesOnTheWayIsMissed) {
  int streams = 0;
  for (uint64_t seed = 1; streams < 40; ++seed) {
    const ScratchFolder folder;
    const RandomMultiplex multiplex(testSeed() * 1000 + 900 + seed, folder, nullptr);
    Multiplexed run = multiplexText(multiplex.text(0));
    ASSERT_TRUE(run.result.done) << run.said();
    ASSERT_EQ(multiplex.missing(run.bytes), "") << multiplex.text(0);
    const JudgeOptions& options = multiplex.judgeOptions();
    const auto size = static_cast<size_t>(options.packetBytes);
    for (const SentStream& stream : multiplex.streams()) {
      // The last byte of the stream's first packet with payload, or the section's first.
      for (size_t at = static_cast<size_t>(options.stampBefore); at < run.bytes.size();
           at += size) {
        uint8_t* const packet = run.bytes.data() + at;
        const bool carries = (packet[3] & 0x10) != 0;
        if (!carries || ((packet[1] & 0x1F) << 8 | packet[2]) != stream.pid) continue;
        const size_t payload = 4U + ((packet[3] & 0x20) != 0 ? 1U + packet[4] : 0U);
        const size_t place = stream.form == SentStream::Form::kTable ? payload + 1 : 187;
        packet[place] ^= 0x55;
        EXPECT_EQ(multiplex.missing(run.bytes),
                  "PID " + std::to_string(stream.pid) + " isn't what went in\n");
        packet[place] ^= 0x55;
        ++streams;
        break;
      }
    }
  }
}
#endif

}  // namespace
}  // namespace zel::test
