#include "zel/mux/engine/video/time_code.h"

namespace zel::mux {

namespace {

constexpr int64_t kMinutesOfDay = 24 * 60;

// Numbers that drop frame leaves out at the start of a minute, but for every tenth.
int64_t dropped_numbers(const video_time_code& code, int32_t rounded) {
  if (!code.dropFrame || rounded % 30 != 0) return 0;
  return rounded / 15;
}

int64_t frames_of_day(const video_time_code& code, int32_t rounded, int64_t dropped) {
  const int64_t minutes = code.hours * 60 + code.minutes;
  return (minutes * 60 + code.seconds) * rounded + code.frames - dropped * (minutes - minutes / 10);
}

}  // namespace

video_time_code advanced(const video_time_code& code, int64_t frames, int32_t rounded) {
  if (rounded <= 0 || !code.known) return code;
  const int64_t dropped = dropped_numbers(code, rounded);
  const int64_t ofMinute = 60 * int64_t{rounded};
  const int64_t ofTen = 10 * ofMinute - 9 * dropped;
  const int64_t ofDay = kMinutesOfDay / 10 * ofTen;
  int64_t number = (frames_of_day(code, rounded, dropped) + frames) % ofDay;
  if (number < 0) number += ofDay;

  // Back to the count that leaves numbers out.
  const int64_t tens = number / ofTen;
  const int64_t inTen = number % ofTen;
  int64_t minute = 0;
  if (inTen >= ofMinute) minute = 1 + (inTen - ofMinute) / (ofMinute - dropped);
  number += dropped * (9 * tens + minute);

  video_time_code result = code;
  result.frames = static_cast<uint8_t>(number % rounded);
  const int64_t seconds = number / rounded;
  result.seconds = static_cast<uint8_t>(seconds % 60);
  result.minutes = static_cast<uint8_t>(seconds / 60 % 60);
  result.hours = static_cast<uint8_t>(seconds / 3600 % 24);
  return result;
}

int64_t frames_until(const video_time_code& from, const Morvalen::Zel::tsm_time_code& to,
                     int32_t rounded) {
  if (rounded <= 0) return 0;
  const int64_t dropped = dropped_numbers(from, rounded);
  const int64_t minutes = int64_t{to.hours} * 60 + to.minutes;
  const int64_t there =
      (minutes * 60 + to.seconds) * rounded + to.frames - dropped * (minutes - minutes / 10);
  return there - frames_of_day(from, rounded, dropped);
}

bool is_before(const video_time_code& code, const Morvalen::Zel::tsm_time_code& time) {
  if (code.hours != time.hours) return code.hours < time.hours;
  if (code.minutes != time.minutes) return code.minutes < time.minutes;
  if (code.seconds != time.seconds) return code.seconds < time.seconds;
  return code.frames < time.frames;
}

}  // namespace zel::mux
