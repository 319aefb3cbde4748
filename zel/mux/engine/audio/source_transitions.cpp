#include <algorithm>

#include "zel/mux/engine/audio/audio_analyser.h"

// Files one behind the other are one stream, and its time goes on from frame to frame. A file that
// was cut anywhere ends in the middle of a frame: the rest of it is dropped, or filled up with
// zeros to its length, whichever keeps the sound that is lost or added below half a frame in all.
// A file may also simply be the next piece of the one before: there the frame goes on.

namespace zel::mux {
namespace {

// Warnings.
constexpr int kCleanupFailed = 37;
constexpr int kBadDataBehind = 38;

bool header_stands_at(audio_state& state, int64_t position) {
  header_bytes bytes;
  audio_frame_header header;
  return read_audio_header(peek(state, position, bytes), state.characteristics.kind, header);
}

// The part of a frame that lies before the transition goes.
file_passage drop_fragment(audio_state& state, double frames) {
  analyser_of(state).lostFrames += frames;
  move_scan(state, next_transition(state));
  return file_passage::passed;
}

}  // namespace

int64_t next_transition(audio_state& state) {
  const audio_analyser& own = analyser_of(state);
  return own.transitions.empty() ? kNoPlace : own.transitions[0];
}

file_passage enter_next_file(audio_state& state) {
  audio_analyser& own = analyser_of(state);
  file_passage passage = file_passage::inside;
  while (state.scanPosition >= next_transition(state)) {
    if (own.keep) return file_passage::ended;
    own.transitions.pop();
    own.sourceBegan = own.searching = true;
    ++own.filesPassed;
    own.leftOut = 0;
    own.lost = false;
    enter_dtshd_file(state);
    passage = file_passage::passed;
  }
  return passage;
}

file_passage cross_transition(audio_state& state, audio_unit& unit) {
  audio_analyser& own = analyser_of(state);
  own.searching = false;
  // What lies behind the frame has to be there, or the transition isn't known yet.
  if (own.cleansUp) available(state, unit.start, int64_t{unit.size} + kAudioHeaderBytes);
  const int64_t place = next_transition(state);
  if (place <= unit.start || place >= unit.end()) return file_passage::inside;
  if (own.keep) return file_passage::ended;
  if (!header_stands_at(state, place) && header_stands_at(state, unit.end())) {
    own.transitions.pop();
    ++own.filesPassed;
    return file_passage::inside;
  }
  const auto there = static_cast<int32_t>(place - unit.start);
  const double part = static_cast<double>(there) / unit.size;
  if (own.lostFrames + part < 0.5 || !own.loud) return drop_fragment(state, part);
  if (unit.first.joins || unit.first.kind != own.last.first.kind) {
    warn(state, kCleanupFailed, there);
    return drop_fragment(state, part);
  }
  own.lostFrames += part - 1;
  unit.padding = unit.size - there;
  return file_passage::inside;
}

file_passage search_behind_transition(audio_state& state) {
  audio_analyser& own = analyser_of(state);
  // Less than a header before the next file.
  const int64_t place = next_transition(state);
  if (place != kNoPlace && place - state.scanPosition < kAudioHeaderBytes) {
    if (own.keep) return file_passage::ended;
    return drop_fragment(state, 0);
  }
  if (!own.searching || !own.known) return file_passage::inside;
  own.searching = false;
  const int32_t reach = std::max(state.characteristics.frameSize, 1);
  for (int32_t skipped = 1; skipped <= reach; ++skipped) {
    if (!header_stands_at(state, state.scanPosition + skipped)) continue;
    move_scan(state, state.scanPosition + skipped);
    return file_passage::passed;
  }
  warn(state, kBadDataBehind, reach);
  move_scan(state, state.scanPosition +
                       std::min<int64_t>(reach, available(state, state.scanPosition, reach)));
  own.lost = true;
  return file_passage::passed;
}

}  // namespace zel::mux
