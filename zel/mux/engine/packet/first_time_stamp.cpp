#include "zel/mux/engine/packet/first_time_stamp.h"

#include <algorithm>
#include <cmath>

#include "zel/mux/engine/clock/tsm_time.h"

namespace zel::mux {

namespace {

constexpr double kTicks90k = 300;
constexpr double kTenthSecond = 2.7e6;
constexpr int32_t kVbvDelayNotTold = 65'535;
constexpr int32_t kMostOverlap = 60;

bool is_nal_coded(video_coding coding) {
  return coding == video_coding::avc || coding == video_coding::hevc;
}

// The time that the whole buffer takes to fill at the stream's rate.
double fill_time(int64_t limit, double bitRate) {
  return bitRate > 0 ? static_cast<double>(limit) * kByteTicks / bitRate : 0;
}

double snapped_up(double ticks, double period, int32_t overlap) {
  if (period <= 0) return ticks;
  const double frames = std::max(std::ceil(ticks / period), static_cast<double>(overlap));
  return frames * period;
}

double video_base(const video_start_inputs& in, const video_characteristics& video, int64_t limit) {
  // Reordering shows a picture one period after its DTS at the least; what is set is the PTS.
  const bool immediate = (video.lowDelay && !in.notLowDelay) || video.stillPicture;
  const double reorder = immediate ? 0 : video.framePeriod;
  if (in.ptsi > 0) return in.delay90k * kTicks90k + in.ptsi - reorder;
  if (in.index > 0) {
    const double base = in.independent ? (in.delay90k + video.vbvDelay) * kTicks90k
                                       : in.delay90k * kTicks90k + in.firstStreamBase;
    return base - reorder;
  }
  if (!in.maxDelay && video.vbvDelay != kVbvDelayNotTold) {
    return (in.delay90k + video.vbvDelay) * kTicks90k;
  }
  const double most = is_nal_coded(video.coding) ? 2.6e8 : 2.6e7;
  return std::min(fill_time(limit, video.bitRate) + in.delay90k * kTicks90k, most);
}

}  // namespace

video_start first_video_dts(const video_start_inputs& in, const video_characteristics& video,
                            int64_t limit) {
  video_start start;
  start.base = video_base(in, video, limit);
  if (in.maxDecodeDelay90k > 0) {
    start.base = std::min(start.base, in.maxDecodeDelay90k * kTicks90k);
  }
  double dts = start.base + in.leader90k * kTicks90k + in.streamDelay90k * kTicks90k;
  if (in.terminated) {
    start.overlapTooLong = in.overlap > kMostOverlap;
    dts = snapped_up(dts, video.framePeriod, in.overlap);
  }
  const double fill = fill_time(limit, video.bitRate);
  start.holds = fill > 0 && dts > fill + kTenthSecond;
  start.dts = dts + in.startTime;
  start.holdUntil = start.dts - fill - kTenthSecond;
  return start;
}

namespace {

// Bytes that stand in the buffer before the first frame is taken, for streams without video.
double preload_bytes(const audio_characteristics& audio, bool dvbBuf) {
  if (audio.kind == audio_kind::latm && dvbBuf) return 8'976;
  if (audio.kind == audio_kind::ac3 && audio.eac3) return 5'000;
  if (audio.kind == audio_kind::dts && audio.frameSize > 0) return audio.frameSize + 500;
  return 3'072;
}

}  // namespace

audio_start first_audio_pts(const audio_start_inputs& in, const audio_characteristics& audio,
                            int64_t limit) {
  audio_start start;
  double bitRate = audio.bitRate;
  if (in.ptsi > 0 && !in.independent && in.hasVideo) {
    start.pts = in.ptsi;
  } else if (in.hasVideo && !in.independent) {
    start.pts = in.videoFirstPts - (in.videoStreamDelay90k + in.leader90k) * kTicks90k;
  } else {
    if (bitRate <= 0) {
      start.rateMissing = true;
      bitRate = 640'000;
    }
    const double bytes = in.preloadBytes > 0 ? in.preloadBytes : preload_bytes(audio, in.dvbBuf);
    start.pts = kByteTicks / bitRate * bytes;
  }
  const double withVideo = start.pts + (in.leader90k + in.delay90k + in.streamDelay90k) * kTicks90k;
  start.pts = withVideo + in.foundDelay90k * kTicks90k;
  if (in.beginsWithVideo && audio.period > 0 && start.pts < withVideo - audio.period / 2) {
    start.moved = std::ceil((withVideo - start.pts) / audio.period - 0.5) * audio.period;
    start.pts += start.moved;
  }

  if (in.followsSource) {
    // Frames of before the beginning, and those that couldn't arrive in time, are left out: the
    // grid of the others stays, and with it their place beside the pictures. Moving them nearer to
    // zero instead would put sound and pictures apart.
    const double nearZero = std::max(audio.period * 2, 2'700'000.0);
    const double soonest = audio.period * 2;
    if (start.pts <= nearZero && start.pts < soonest && audio.period > 0) {
      const double more = std::ceil((soonest - start.pts) / audio.period) * audio.period;
      start.moved += more;
      start.pts += more;
    }
    if (start.pts < 0) {
      start.pts = 0;
      start.adjustmentFailed = true;
    }
    start.skewSeconds = static_cast<int64_t>(in.sourceSkew / 2.7e7);
  }
  start.behindVideo = start.pts - withVideo;
  if (in.terminated) {
    start.overlapTooLong = in.overlap > kMostOverlap;
    start.pts = snapped_up(start.pts, in.videoFramePeriod, in.overlap);
  }
  const double fill = fill_time(limit, bitRate);
  start.holds = fill > 0 && start.pts > fill + kTenthSecond;
  start.pts += in.startTime;
  start.holdUntil = start.pts - fill - kTenthSecond;
  return start;
}

}  // namespace zel::mux
