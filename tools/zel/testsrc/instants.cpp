#include "tools/zel/testsrc/instants.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdio>

namespace zel::testsrc {
namespace {

// ceil(count * factor * numerator / denominator). A product of all three may pass 64 bits for long
// runs, so whole multiples of the denominator are taken out first.
uint64_t scaledUp(uint64_t count, uint64_t factor, uint64_t numerator, uint64_t denominator) {
  const uint64_t whole = count / denominator * numerator * factor;
  const uint64_t rest = count % denominator * numerator * factor;
  return whole + (rest + denominator - 1) / denominator;
}

}  // namespace

uint64_t markFrame(media::Rational rate, uint64_t second) {
  return scaledUp(second, 1, rate.numerator, rate.denominator);
}

uint64_t secondOfFrame(media::Rational rate, uint64_t frame) {
  return frame / rate.numerator * rate.denominator +
         frame % rate.numerator * rate.denominator / rate.numerator;
}

bool isMarkFrame(media::Rational rate, uint64_t frame) {
  // At one frame a second or more, the mark of a second starts within that second.
  return markFrame(rate, secondOfFrame(rate, frame)) == frame;
}

uint64_t sampleOfFrame(media::Rational rate, uint64_t frame, uint32_t sampleRate) {
  assert(sampleRate <= 384000);
  return scaledUp(frame, sampleRate, rate.denominator, rate.numerator);
}

int64_t timeOfHalfFrames(media::Rational rate, uint64_t halfFrames) {
  const uint64_t twice = uint64_t{2} * rate.numerator;
  return static_cast<int64_t>(halfFrames / twice * rate.denominator * 65536 +
                              halfFrames % twice * rate.denominator * 65536 / twice);
}

std::string TimeCode::text() const {
  std::array<char, 48> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%02u:%02u:%02u%c%02u", hours, minutes, seconds,
                dropFrame ? ';' : ':', frames);
  return buffer.data();
}

TimeCode timeCodeOfFrame(media::Rational rate, uint64_t frame) {
  rate = media::reduced(rate);
  const uint64_t base = (uint64_t{rate.numerator} + rate.denominator / 2) / rate.denominator;
  TimeCode code;
  code.dropFrame = rate.denominator % 1001 == 0 && base % 30 == 0;
  if (code.dropFrame) {
    // Two numbers of each 30 are left out at the start of every minute but each tenth.
    const uint64_t drop = base / 15;
    const uint64_t perMinute = base * 60 - drop;
    const uint64_t perTenMinutes = perMinute * 10 + drop;
    const uint64_t tens = frame / perTenMinutes;
    const uint64_t rest = frame % perTenMinutes;
    frame += tens * 9 * drop;
    if (rest >= drop) frame += (rest - drop) / perMinute * drop;
  }
  code.frames = static_cast<uint32_t>(frame % base);
  code.seconds = static_cast<uint32_t>(frame / base % 60);
  code.minutes = static_cast<uint32_t>(frame / (base * 60) % 60);
  code.hours = static_cast<uint32_t>(frame / (base * 3600) % 24);
  return code;
}

}  // namespace zel::testsrc
