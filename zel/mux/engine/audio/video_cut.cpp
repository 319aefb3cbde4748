#include "zel/mux/engine/audio/video_cut.h"

#include <algorithm>
#include <cstdlib>

#include "zel/mux/engine/video/time_code.h"

namespace zel::mux {

namespace {

// Pictures that are shown before one that is decoded before them: more aren't reordered.
constexpr int64_t kMostReordered = 16;

Morvalen::Zel::tsm_time_code written(const video_time_code& code) {
  return {1, code.dropFrame ? 1 : 0, code.hours, code.minutes, code.seconds, code.frames, 0};
}

// In frames. Time codes count in the order of display, which is what sound goes by; where they
// jump, or begin late, the pictures themselves are counted.
double frames_skipped(const video_state& video, int rounded) {
  const double counted = static_cast<double>(video.fieldsLeftOut) / 2;
  if (!video.firstTimeCode.known || !video.startTimeCode.known) return counted;
  const auto told =
      static_cast<double>(frames_until(video.firstTimeCode, written(video.startTimeCode), rounded));
  return std::abs(told - counted) <= kMostReordered ? told : counted;
}

}  // namespace

video_cut cut_of_video(const video_state* video, const Morvalen::Zel::tsm_config& config) {
  video_cut cut;
  if (video == nullptr || video->stream == nullptr) return cut;
  if (video->stream->has(kNoMorePackets)) return cut;
  const video_characteristics& pictures = video->characteristics;
  const int rounded = pictures.frameRateRounded;
  if (video->fieldsLeftOut > 0) {
    cut.skipped = std::max(frames_skipped(*video, rounded), 0.0) * pictures.framePeriod;
  }
  if (is_set(config.end) && video->startTimeCode.known) {
    const int64_t frames = frames_until(video->startTimeCode, config.end, rounded);
    cut.kept = static_cast<double>(std::max<int64_t>(frames, 0)) * pictures.framePeriod;
  }
  return cut;
}

}  // namespace zel::mux
