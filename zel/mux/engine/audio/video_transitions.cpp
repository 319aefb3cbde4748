// Sound and pictures of a file rarely have the same length. Where files follow each other in pairs
// what one is longer than the other would add up: so each file's sound begins anew where its
// pictures do, to the nearest frame. What sound is too much of is left out; where it is missing,
// time goes on without it.

#include <algorithm>

#include "zel/base/media_clock.h"
#include "zel/mux/engine/audio/audio_analyser.h"
#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {
namespace {

constexpr int kExcessiveSkew = 97;  // fatal
constexpr int kCleanupFailed = 37;  // a warning
// Files that are further apart than this aren't pairs.
constexpr double kMostSkew = 2.7e7;

// Looks as far ahead as the pictures' lists allow. False where their file doesn't begin there.
bool find_transition(video_state& video, size_t number) {
  const auto known = [&] {
    return video.transitions.size() >= number && video.transitions[number - 1].pts >= 0;
  };
  while (!known()) {
    if (video.sourceEnded || video.scan == nullptr) return false;
    const size_t queued = video.units.size();
    const int64_t scanned = video.scanPosition;
    video.scan(video);
    if (video.units.size() == queued && video.scanPosition == scanned) return false;
  }
  return true;
}

// How far behind the file's first picture its first frame belongs.
double delay_in_file(audio_state& state, const video_transition& pictures, int64_t start) {
  if (pictures.sourcePts90k < 0 || state.input.source() == nullptr) return 0;
  const auto heard = state.input.source()->stamp_at(start);
  if (!heard) return 0;
  return static_cast<double>(base::difference90k(heard->pts90k, pictures.sourcePts90k)) * 300;
}

}  // namespace

bool is_before_pictures(audio_state& state, const audio_unit& unit) {
  audio_analyser& own = analyser_of(state);
  if (!state.followsVideo || !own.sourceBegan || own.filesPassed == 0) return false;
  video_state& video = *state.firstVideo;
  if (!find_transition(video, own.filesPassed)) {
    // Pictures that have ended can't be followed any more.
    if (!video.sourceEnded) fatal(state, kExcessiveSkew);
    state.followsVideo = false;
    return false;
  }
  const video_transition& pictures = video.transitions[own.filesPassed - 1];
  const double wanted =
      normalise(pictures.pts + state.delayToVideo + delay_in_file(state, pictures, unit.start));
  // With the file's frames that were left out, `unit` itself says no more where it belongs where
  // there are no time stamps.
  const double here = pictures.sourcePts90k < 0 ? wanted + own.leftOut : wanted;
  const double late = signed_difference(here, state.runningPts);
  if (late < -kMostSkew || late > kMostSkew) {
    warn(state, kCleanupFailed, static_cast<int64_t>(late / 27'000));
    return false;
  }
  if (late < -unit.period / 2) {
    own.leftOut += unit.period;
    return true;
  }
  if (late > unit.period / 2) {
    state.queuedTicks += late;
    state.runningPts = normalise(here);
  }
  return false;
}

}  // namespace zel::mux
