#include "tests/support/transport_judge/transport_judge.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "tests/support/plain_transport_stream.h"

// Who judges the judge: a correct stream, and streams broken in one place each.

namespace zel::test {
namespace {

constexpr size_t kPacket = 188;

JudgeOptions strict() {
  JudgeOptions options;
  options.longestPcrInterval = 0.041;
  options.longestTableInterval = 0.11;
  return options;
}

int pidOf(const uint8_t* packet) {
  return (packet[1] & 0x1F) << 8 | packet[2];
}
bool startsUnit(const uint8_t* packet) {
  return (packet[1] & 0x40) != 0;
}
bool hasPcr(const uint8_t* packet) {
  return (packet[3] & 0x20) != 0 && packet[4] > 0 && (packet[5] & 0x10) != 0;
}

// The nth packet that a test likes, as the place of its first byte.
size_t nthPacket(const std::vector<uint8_t>& bytes, int nth,
                 const std::function<bool(const uint8_t*)>& likes) {
  for (size_t place = 0; place < bytes.size(); place += kPacket)
    if (likes(&bytes[place]) && nth-- == 0) return place;
  ADD_FAILURE() << "no such packet";
  return 0;
}
std::function<bool(const uint8_t*)> onPid(int pid) {
  return [pid](const uint8_t* packet) { return pidOf(packet) == pid; };
}
std::function<bool(const uint8_t*)> unitOn(int pid) {
  return [pid](const uint8_t* packet) { return pidOf(packet) == pid && startsUnit(packet); };
}

// Where the PES header of a packet lies.
uint8_t* pesOf(uint8_t* packet) {
  return packet + 4 + ((packet[3] & 0x20) != 0 ? packet[4] + 1 : 0);
}

// Only this fault, and at least once.
void expectOnly(Fault fault, const std::vector<uint8_t>& bytes, int pid = -2) {
  const Verdict verdict = judgeTransportStream(bytes, strict());
  EXPECT_TRUE(verdict.has(fault)) << verdict.text();
  for (const Finding& finding : verdict.findings) {
    EXPECT_EQ(finding.fault, fault) << toText(finding);
    if (pid >= 0) {
      EXPECT_EQ(finding.pid, pid) << toText(finding);
    }
  }
}

class TransportJudge : public testing::Test {
 protected:
  PlainStream stream = makePlainTransportStream();
  std::vector<uint8_t>& bytes = stream.bytes;
};

TEST_F(TransportJudge, HasNothingToSayOfACorrectStream) {
  const Verdict verdict = judgeTransportStream(bytes, strict());
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  EXPECT_NEAR(verdict.rate, 4e6, 10);
  EXPECT_LT(verdict.worstPcrError, 40e-9);
  ASSERT_EQ(verdict.streams.size(), 2U);
  EXPECT_EQ(verdict.streams[0].coding, Coding::kMpeg2Video);
  EXPECT_EQ(verdict.streams[0].units, 74);
  EXPECT_EQ(verdict.streams[1].coding, Coding::kMpegAudio);
  EXPECT_EQ(verdict.streams[1].units, 124);
  EXPECT_NEAR(verdict.streams[0].peaks.longestDelay, 0.2, 0.005);
  EXPECT_EQ(verdict.streams[0].facts.decoderBuffer, 112 * 2048);
}

TEST_F(TransportJudge, GivesTheElementaryStreamsBack) {
  EXPECT_EQ(elementaryStream(bytes, PlainStream::kVideoPid), stream.video);
  EXPECT_EQ(elementaryStream(bytes, PlainStream::kAudioPid), stream.audio);
}

TEST_F(TransportJudge, FollowsTheClockAcrossItsWrap) {
  PlainStreamSettings settings;
  settings.startTicks = 300 * (int64_t{1} << 33) - 27000000;
  const Verdict verdict = judgeTransportStream(makePlainTransportStream(settings).bytes, strict());
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  EXPECT_NEAR(verdict.streams.at(0).lastDecode - verdict.streams.at(0).firstDecode, 73 * 0.04,
              1e-3);
}

TEST_F(TransportJudge, TellsOfALostSyncByte) {
  bytes[kPacket * 700] = 0x46;
  EXPECT_TRUE(judgeTransportStream(bytes).has(Fault::kSync));
}

TEST_F(TransportJudge, TellsOfBytesBehindTheLastPacket) {
  bytes.resize(bytes.size() + 20);
  expectOnly(Fault::kSync, bytes);
}

TEST_F(TransportJudge, TellsOfAFlippedCounter) {
  const size_t place = nthPacket(bytes, 300, onPid(PlainStream::kVideoPid));
  bytes[place + 3] ^= 4;
  expectOnly(Fault::kContinuity, bytes, PlainStream::kVideoPid);
}

TEST_F(TransportJudge, TakesADuplicateOnceAndNoMore) {
  // A null packet behind a video packet of a picture's middle becomes its copy, and then the next.
  size_t place = 0;
  for (size_t i = kPacket; i + 2 * kPacket < bytes.size() && place == 0; i += kPacket)
    if (pidOf(&bytes[i]) == PlainStream::kVideoPid && !hasPcr(&bytes[i]) &&
        pidOf(&bytes[i + kPacket]) == 0x1FFF && pidOf(&bytes[i + 2 * kPacket]) == 0x1FFF)
      place = i;
  ASSERT_NE(place, 0U);
  std::copy_n(&bytes[place], kPacket, &bytes[place + kPacket]);
  EXPECT_TRUE(judgeTransportStream(bytes, strict()).clean());
  std::copy_n(&bytes[place], kPacket, &bytes[place + 2 * kPacket]);
  EXPECT_TRUE(judgeTransportStream(bytes, strict()).has(Fault::kContinuity));
}

TEST_F(TransportJudge, TellsOfADroppedPacket) {
  const size_t second = nthPacket(bytes, 12, onPid(PlainStream::kAudioPid));
  std::vector<uint8_t> null(kPacket);
  null[0] = 0x47;
  null[1] = 0x1F;
  null[2] = 0xFF;
  null[3] = 0x10;
  std::copy(null.begin(), null.end(), bytes.begin() + static_cast<std::ptrdiff_t>(second));
  const Verdict verdict = judgeTransportStream(bytes, strict());
  EXPECT_TRUE(verdict.has(Fault::kContinuity)) << verdict.text();
  EXPECT_TRUE(verdict.has(Fault::kPesSyntax) || verdict.has(Fault::kUnitSyntax)) << verdict.text();
}

TEST_F(TransportJudge, TellsOfAShiftedPcrAndBlamesNoOther) {
  const size_t place = nthPacket(bytes, 20, hasPcr);
  bytes[place + 11] = static_cast<uint8_t>(bytes[place + 11] ^ 0x20);  // 32 ticks, 1.2 us
  const Verdict verdict = judgeTransportStream(bytes, strict());
  ASSERT_EQ(verdict.of(Fault::kPcrAccuracy).size(), 1U) << verdict.text();
  EXPECT_EQ(verdict.findingCount, 1);
  EXPECT_NEAR(std::abs(verdict.findings[0].amount), 32 / 0.027, 60);
}

TEST_F(TransportJudge, TakesARateAgainstTheOneThatThePcrsShow) {
  JudgeOptions options = strict();
  options.rate = 4000100;
  EXPECT_TRUE(judgeTransportStream(bytes, options).has(Fault::kPcrAccuracy));
  options.rate = 4000000;
  EXPECT_TRUE(judgeTransportStream(bytes, options).clean());
}

TEST_F(TransportJudge, TellsOfPcrsThatAreFarApart) {
  PlainStreamSettings settings;
  settings.pcrPeriod = 0.12;
  const Verdict verdict = judgeTransportStream(makePlainTransportStream(settings).bytes);
  EXPECT_TRUE(verdict.has(Fault::kPcrInterval)) << verdict.text();
  EXPECT_FALSE(verdict.has(Fault::kPcrAccuracy));
}

TEST_F(TransportJudge, TellsOfTablesThatAreFarApart) {
  PlainStreamSettings settings;
  settings.tablePeriod = 0.7;
  const Verdict verdict = judgeTransportStream(makePlainTransportStream(settings).bytes);
  EXPECT_TRUE(verdict.has(Fault::kPatInterval)) << verdict.text();
  EXPECT_TRUE(verdict.has(Fault::kPmtInterval)) << verdict.text();
}

TEST_F(TransportJudge, TellsOfAWrongCrc) {
  const size_t place = nthPacket(bytes, 3, onPid(PlainStream::kPmtPid));
  bytes[place + 20] ^= 1;
  const Verdict verdict = judgeTransportStream(bytes);
  EXPECT_EQ(verdict.of(Fault::kSectionCrc).size(), 1U) << verdict.text();
  EXPECT_EQ(verdict.findingCount, 1);
}

TEST_F(TransportJudge, TellsOfAPidThatNoTableNames) {
  const size_t place = nthPacket(bytes, 100, onPid(0x1FFF));
  bytes[place + 1] = 0x01;
  bytes[place + 2] = 0x55;
  expectOnly(Fault::kUnreferencedPid, bytes, 0x155);
}

TEST_F(TransportJudge, TellsOfATimeStampThatGoesBack) {
  const size_t place = nthPacket(bytes, 30, unitOn(PlainStream::kVideoPid));
  uint8_t* pes = pesOf(&bytes[place]);
  pes[12] = static_cast<uint8_t>(pes[12] - 0x40);  // 8,192 ticks, 91 ms earlier
  EXPECT_TRUE(judgeTransportStream(bytes, strict()).has(Fault::kTimestampOrder));
}

TEST_F(TransportJudge, TellsOfADelayedDecodingTime) {
  // All stamps 1.1 s later: the data wait too long, and the buffer gets too full.
  PlainStreamSettings settings;
  settings.delay = 1.3;
  const Verdict verdict = judgeTransportStream(makePlainTransportStream(settings).bytes, strict());
  EXPECT_TRUE(verdict.has(Fault::kDelay)) << verdict.text();
  EXPECT_TRUE(verdict.has(Fault::kMultiplexBuffer)) << verdict.text();
  EXPECT_TRUE(verdict.has(Fault::kElementaryBuffer)) << verdict.text();
  EXPECT_FALSE(verdict.has(Fault::kUnderflow));
}

TEST_F(TransportJudge, TellsOfUnderflowWhenAUnitIsLate) {
  PlainStreamSettings settings;
  settings.delay = 0.02;  // the last byte takes 0.04 s to come
  const Verdict verdict = judgeTransportStream(makePlainTransportStream(settings).bytes, strict());
  const std::vector<Finding> late = verdict.of(Fault::kUnderflow);
  ASSERT_FALSE(late.empty());
  EXPECT_NEAR(late.front().seconds, 0.015, 0.01);
  for (const Finding& finding : late)
    if (finding.pid == PlainStream::kVideoPid) {
      EXPECT_NEAR(finding.amount, 4900, 500);
    }
  EXPECT_FALSE(verdict.has(Fault::kElementaryBuffer));
}

// A stream of 40 Mbit/s in which five packets of audio come in a row: TB leaks at 2 Mbit/s. Gives
// the place of the last of them.
size_t crowdAudio(std::vector<uint8_t>& fast) {
  PlainStreamSettings settings;
  settings.rate = 40000000;
  settings.seconds = 0.6;
  fast = makePlainTransportStream(settings).bytes;
  EXPECT_TRUE(judgeTransportStream(fast).clean());
  const size_t first = nthPacket(fast, 9, onPid(PlainStream::kAudioPid));
  std::vector<size_t> places;
  for (size_t i = first; places.size() < 5; i += kPacket)
    if (pidOf(&fast[i]) == PlainStream::kAudioPid) places.push_back(i);
  // Held back to stand right before the last of them.
  size_t to = places.back();
  for (size_t i = places.size() - 1; i-- > 0;) {
    to -= kPacket;
    while (pidOf(&fast[to]) != 0x1FFF && to != places[i]) to -= kPacket;
    std::swap_ranges(fast.begin() + static_cast<std::ptrdiff_t>(places[i]),
                     fast.begin() + static_cast<std::ptrdiff_t>(places[i] + kPacket),
                     fast.begin() + static_cast<std::ptrdiff_t>(to));
  }
  return places.back();
}

TEST_F(TransportJudge, TellsOfAnOverfullTransportBuffer) {
  std::vector<uint8_t> fast;
  crowdAudio(fast);
  const Verdict verdict = judgeTransportStream(fast);
  EXPECT_TRUE(verdict.has(Fault::kTransportBuffer)) << verdict.text();
  EXPECT_FALSE(verdict.has(Fault::kContinuity)) << verdict.text();
}

// 2.4.2.2: when bytes come is told by the PCRs before and behind them.
TEST_F(TransportJudge, KnowsNoTimesBehindTheLastClockOfAVariableRate) {
  std::vector<uint8_t> fast;
  const size_t last = crowdAudio(fast);
  JudgeOptions options;
  options.constantRate = false;
  EXPECT_TRUE(judgeTransportStream(fast, options).has(Fault::kTransportBuffer));
  size_t lastClock = 0;
  for (size_t place = 0; place < fast.size(); place += kPacket)
    if (hasPcr(&fast[place]) && place < last) lastClock = place;
  ASSERT_GT(lastClock, 0U);
  for (size_t place = lastClock + kPacket; place < fast.size(); place += kPacket)
    if (hasPcr(&fast[place])) fast[place + 5] &= 0xEF;
  EXPECT_FALSE(judgeTransportStream(fast, options).has(Fault::kTransportBuffer));
}

TEST_F(TransportJudge, SurvivesWhatIsNoTransportStream) {
  EXPECT_TRUE(judgeTransportStream({}).has(Fault::kNoPat));
  std::vector<uint8_t> noise(188 * 400);
  uint32_t state = 1;
  for (uint8_t& byte : noise) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<uint8_t>(state >> 24);
  }
  EXPECT_FALSE(judgeTransportStream(noise).clean());
  for (size_t i = 0; i < noise.size(); i += kPacket) noise[i] = 0x47;
  EXPECT_FALSE(judgeTransportStream(noise).clean());
}

}  // namespace
}  // namespace zel::test
