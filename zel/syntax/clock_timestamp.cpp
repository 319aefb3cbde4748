#include "zel/syntax/clock_timestamp.h"

namespace zel::syntax {

namespace {

using base::BitReader;

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

}  // namespace

void readClockTime(BitReader& bits, int frameBits, ClockTimestamp& clock) {
  clock.unitsFieldBased = bits.readFlag();
  clock.countingType = read8(bits, 5);
  clock.fullTimestamp = bits.readFlag();
  clock.discontinuity = bits.readFlag();
  clock.cntDropped = bits.readFlag();
  clock.frames = static_cast<uint16_t>(bits.read(frameBits));
  clock.secondsPresent = clock.fullTimestamp || bits.readFlag();
  if (!clock.secondsPresent) return;
  clock.seconds = read8(bits, 6);
  clock.minutesPresent = clock.fullTimestamp || bits.readFlag();
  if (!clock.minutesPresent) return;
  clock.minutes = read8(bits, 6);
  clock.hoursPresent = clock.fullTimestamp || bits.readFlag();
  if (clock.hoursPresent) clock.hours = read8(bits, 5);
}

}  // namespace zel::syntax
