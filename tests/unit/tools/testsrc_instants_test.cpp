#include "tools/zel/testsrc/instants.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/seed.h"

namespace zel::testsrc {
namespace {

using media::Rational;
__extension__ using Wide = unsigned __int128;

constexpr Rational kRates[] = {{24000, 1001}, {24, 1}, {25, 1},  {30000, 1001},   {30, 1}, {50, 1},
                               {60000, 1001}, {60, 1}, {120, 1}, {1000000, 33367}};

// Checked against arithmetic that cannot overflow, from the first second to days later.
TEST(Instants, MarksAreTheFirstFramesOfTheirSeconds) {
  for (const Rational rate : kRates) {
    for (const uint64_t from : {uint64_t{0}, uint64_t{3600}, uint64_t{1000000}}) {
      for (uint64_t second = from; second < from + 100; ++second) {
        const uint64_t frame = markFrame(rate, second);
        const Wide start = Wide{frame} * rate.denominator;
        EXPECT_GE(start, Wide{second} * rate.numerator);
        EXPECT_LT(start, Wide{second} * rate.numerator + rate.denominator);
        EXPECT_TRUE(isMarkFrame(rate, frame));
        EXPECT_EQ(secondOfFrame(rate, frame), second);
        EXPECT_FALSE(isMarkFrame(rate, frame + 1));
      }
    }
  }
}

TEST(Instants, EachSecondHasOneMark) {
  for (const Rational rate : kRates) {
    uint64_t marks = 0;
    const uint64_t frames = markFrame(rate, 200);
    for (uint64_t frame = 0; frame < frames; ++frame) marks += isMarkFrame(rate, frame) ? 1 : 0;
    EXPECT_EQ(marks, 200u) << media::toText(rate);
  }
}

TEST(Instants, SamplesAreTheFirstOfTheirFrames) {
  std::mt19937_64 random(test::testSeed());
  for (const Rational rate : kRates) {
    for (const uint32_t sampleRate : {44100u, 48000u, 384000u}) {
      for (int i = 0; i < 2000; ++i) {
        const uint64_t frame = random() % (i < 1000 ? 5000 : 100000000);
        const Wide start = Wide{frame} * rate.denominator * sampleRate;
        const Wide sample = sampleOfFrame(rate, frame, sampleRate);
        EXPECT_GE(sample * rate.numerator, start);
        EXPECT_LT(sample * rate.numerator, start + rate.numerator);
      }
    }
  }
}

// After an hour of NTSC, 107892 frames have taken exactly 3600 s less 36/10 of a thousandth.
TEST(Instants, NothingHasDriftedAfterAnHour) {
  constexpr Rational kNtsc = {30000, 1001};
  EXPECT_EQ(sampleOfFrame(kNtsc, 5, 48000), 8008u);
  EXPECT_EQ(sampleOfFrame(kNtsc, 107890, 48000), 172796624u);
  EXPECT_EQ(markFrame(kNtsc, 3600), 107893u);
  EXPECT_EQ(sampleOfFrame(kNtsc, 107893, 48000), 172801429u);  // 172801428.8
  EXPECT_EQ(sampleOfFrame({25, 1}, 90000, 48000), 172800000u);
  EXPECT_EQ(sampleOfFrame({24, 1}, 86400, 48000), 172800000u);
  EXPECT_EQ(sampleOfFrame({60, 1}, 216000, 48000), 172800000u);
  for (uint64_t frame = 107000; frame < 108000; ++frame) {
    const uint64_t exact = frame * 1001 * 48;  // in thousandths over 30
    EXPECT_EQ(sampleOfFrame(kNtsc, frame, 48000), (exact + 29) / 30) << frame;
  }
}

TEST(Instants, HalfFramesAreTimedWithoutDrift) {
  EXPECT_EQ(timeOfHalfFrames({25, 1}, 50), 65536);
  EXPECT_EQ(timeOfHalfFrames({25, 1}, 1), 65536 / 50);
  EXPECT_EQ(timeOfHalfFrames({30000, 1001}, 60000), int64_t{1001} * 65536);
  EXPECT_EQ(timeOfHalfFrames({30000, 1001}, uint64_t{60000} * 1000000),
            int64_t{1001} * 65536 * 1000000);
}

TEST(TimeCode, CountsPlainly) {
  EXPECT_EQ(timeCodeOfFrame({25, 1}, 0).text(), "00:00:00:00");
  EXPECT_EQ(timeCodeOfFrame({25, 1}, 25 * 3661 + 7).text(), "01:01:01:07");
  EXPECT_EQ(timeCodeOfFrame({24000, 1001}, 24 * 60).text(), "00:01:00:00");
  EXPECT_EQ(timeCodeOfFrame({25, 1}, 25 * 86400).text(), "00:00:00:00");
}

// SMPTE ST 12-1: frames 0 and 1 are left out at each minute but the tenth ones.
TEST(TimeCode, DropsNumbersOfNtsc) {
  constexpr Rational kNtsc = {30000, 1001};
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 1799).text(), "00:00:59;29");
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 1800).text(), "00:01:00;02");
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 3597).text(), "00:01:59;29");
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 3598).text(), "00:02:00;02");
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 17981).text(), "00:09:59;29");
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 17982).text(), "00:10:00;00");
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 17984).text(), "00:10:00;02");
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 107892).text(), "01:00:00;00");
  EXPECT_EQ(timeCodeOfFrame(kNtsc, 2589408).text(), "00:00:00;00");
  EXPECT_EQ(timeCodeOfFrame({60000, 2002}, 1800).text(), "00:01:00;02");
  EXPECT_EQ(timeCodeOfFrame({60000, 1001}, 3600).text(), "00:01:00;04");
  EXPECT_EQ(timeCodeOfFrame({60000, 1001}, 3599).text(), "00:00:59;59");
}

// Every frame has a number of its own, in order, that exists.
TEST(TimeCode, NeverRepeatsWithinADay) {
  for (const Rational rate : {Rational{30000, 1001}, Rational{60000, 1001}}) {
    uint64_t last = 0;
    const uint64_t base = rate.numerator / 1000;
    for (uint64_t frame = 1; frame < 40000; ++frame) {
      const TimeCode code = timeCodeOfFrame(rate, frame);
      const uint64_t number =
          ((code.hours * 60 + code.minutes) * 60 + code.seconds) * base + code.frames;
      const uint64_t dropped = base / 15;
      ASSERT_TRUE(number == last + 1 || number == last + 1 + dropped) << frame;
      ASSERT_TRUE(code.minutes % 10 == 0 || code.seconds != 0 || code.frames >= dropped) << frame;
      last = number;
    }
  }
}

}  // namespace
}  // namespace zel::testsrc
