#include "zel/mux/engine/run/duration.h"

#include <algorithm>
#include <cmath>

#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

namespace {

using namespace Morvalen::Zel;

constexpr int kNoDuration = 40;
constexpr int kNothingToTerminate = 44;
constexpr int kBadDuration = 51;
constexpr int kDriftTooLarge = 12;

constexpr int64_t kTooLong = 86'401;  // seconds
constexpr int32_t kNegative = 3;
constexpr double kTicksPerSecond = 2.7e7;
constexpr double kPacketBits = 1504;
constexpr double kUsualFrameRate = 30;
// 30 parts per million of 27 MHz (ISO/IEC 13818-1, 2.4.2.1).
constexpr double kMostDriftPerSecond = 810;

bool is_set(const tsm_time_code& time) {
  return time.sign != 0;
}

tsm_stream* first_of(const tsm_mux& mux, stream_kind kind) {
  for (const auto& stream : mux.streams) {
    if (stream->programIndex == 0 && stream->kind == kind) {
      return stream.get();
    }
  }
  return nullptr;
}

tsm_stream* terminated_stream(const tsm_mux& mux) {
  for (const auto& stream : mux.streams) {
    if (stream->has2(kTerminated)) return stream.get();
  }
  return nullptr;
}

// The frames that the duration counts are those of the first video.
double counted_frame_period(const tsm_mux& mux) {
  for (const auto& stream : mux.streams) {
    if (stream->kind == stream_kind::video && stream->framePeriod > 0) return stream->framePeriod;
  }
  return 0;
}

// A count of 0 would be no limit.
int64_t at_least_one(double packets) {
  return std::max<int64_t>(static_cast<int64_t>(std::floor(packets)), 1);
}

// A program's clock and its frames don't divide alike: the rest is spread over the whole run.
void spread_drift(tsm_mux& mux, double endTime) {
  const auto packets = static_cast<double>(mux.terminatePacket);
  const double drift = (endTime - packets * kPacketBits / mux.rate * kTicksPerSecond) / packets;
  for (const auto& stream : mux.streams) {
    if (stream->programIndex != 0 || !stream->has(kCarriesPcr)) continue;
    stream->driftPerPacket = drift;
    stream->set2(kDriftOnPcr);
  }
  const double perSecond = std::fabs(drift) * mux.rate / kPacketBits;
  if (perSecond > kMostDriftPerSecond) {
    mux.reports.warn(kDriftTooLarge, no_pid, static_cast<int64_t>(perSecond));
  }
}

void set_termination(tsm_mux& mux, double frames, double period) {
  const double endTime = period > 0 ? frames * period : frames / kUsualFrameRate * kTicksPerSecond;
  // Half a packet is added, less a little: a whole number of packets stays that number.
  mux.terminatePacket = at_least_one((endTime / kTicksPerSecond * mux.rate + 750.2) / kPacketBits);
  spread_drift(mux, endTime);
  tsm_stream* stream = terminated_stream(mux);
  if (stream == nullptr || stream->kind != stream_kind::video) return;
  static_cast<video_state&>(*stream->state).stopDts =
      mux.startTime + endTime + mux.config->overlap * period - 1;
}

}  // namespace

void mark_terminated_stream(tsm_mux& mux) {
  if (!mux.config->terminate) return;
  if (!is_set(mux.config->duration)) {
    mux.reports.fatal(kNoDuration);
    return;
  }
  constexpr stream_kind kByPreference[] = {stream_kind::video, stream_kind::audio,
                                           stream_kind::smpte302m, stream_kind::lpcm};
  tsm_stream* found = nullptr;
  for (const stream_kind kind : kByPreference) {
    found = first_of(mux, kind);
    if (found != nullptr) break;
  }
  if (found == nullptr) {
    mux.reports.fatal(kNothingToTerminate);
    return;
  }
  found->set2(kTerminated);
  mux.terminate = true;
}

void set_duration(tsm_mux& mux) {
  const tsm_time_code& duration = mux.config->duration;
  if (!is_set(duration)) return;
  const int64_t seconds =
      int64_t{duration.hours} * 3600 + int64_t{duration.minutes} * 60 + duration.seconds;
  const int64_t rest = duration.frames;
  const bool isNothing = seconds <= 0 && rest <= 0;
  if (isNothing || seconds >= kTooLong || duration.sign == kNegative) {
    mux.reports.fatal(kBadDuration);
    // Without a length that can be kept to, the streams' own ends count.
    mux.terminate = false;
    return;
  }
  if (mux.config->forceDuration) {
    mux.forceDuration = true;
    const int64_t whole = seconds + rest / 1000;
    mux.endTime = time_from_ticks(static_cast<double>(whole) * kTicksPerSecond + mux.startTime);
  }

  const double period = counted_frame_period(mux);
  const double rate = period > 0 ? kTicksPerSecond / period : kUsualFrameRate;
  auto frames = static_cast<double>(rest);
  if (duration.dropFrame != 0 && period > 0) {
    frames += std::floor(static_cast<double>(seconds) * kTicksPerSecond / period);
  } else {
    frames += static_cast<double>(seconds) * std::floor(rate + 0.5);
  }
  if (mux.terminate) {
    set_termination(mux, frames, period);
    return;
  }
  const double length = period > 0 ? frames * period / kTicksPerSecond : frames / kUsualFrameRate;
  mux.terminatePacket = at_least_one(length * mux.rate / kPacketBits);
}

}  // namespace zel::mux
