// Finds the frames of an audio stream in its input: hops from header to header, so that only
// headers are ever looked at. Frames stay in the input until the packet maker takes them.
#include <algorithm>
#include <cmath>

#include "zel/base/media_clock.h"
#include "zel/mux/engine/audio/audio_analyser.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

// Fatal messages.
constexpr int kSkipFramesNegative = 8;
constexpr int kTooManyRemovals = 11;
constexpr int kNeverAcquired = 19;

// What the discovery averages over. A caller's loader isn't asked for more than half of the frames
// that can be queued: it may wait for other streams to be read. What is there anyway is looked at,
// and of a file half of the input buffer, so that loud passages count.
constexpr int kDiscoveryFrames = 32;
constexpr int kMostDiscoveryFrames = 1000;

void note_characteristics(audio_state& state, const audio_unit& unit) {
  audio_characteristics& audio = state.characteristics;
  audio.kind = unit.first.kind;
  audio.layer = unit.first.layer;
  audio.eac3 = unit.first.eac3;
  audio.sampleRate = unit.first.sampleRate;
  audio.sampleRateCode = unit.first.sampleRateCode;
  audio.frameSizeCode = unit.first.frameSizeCode;
  audio.frameSize = unit.size;
  audio.maxFrameSize = std::max(audio.maxFrameSize, unit.size);
  audio.period = unit.period;
  audio.channels = unit.channels;
  audio.fourChannelObject = unit.first.kind == audio_kind::latm && unit.channels >= 4;
  audio.dtsExtension = std::max(audio.dtsExtension, unit.extensionKind);
}

// Takes note of a unit; gives whether its parameters are new.
bool accept(audio_state& state, const audio_unit& unit) {
  audio_analyser& own = analyser_of(state);
  const bool changed = own.known && tell_changes(state, unit);
  own.last = unit;
  own.known = true;
  note_characteristics(state, unit);
  return changed;
}

double wrapped(double ticks) {
  constexpr auto kWrap = static_cast<double>(base::kWrap27M);
  return ticks >= kWrap ? ticks - kWrap : ticks;
}

bool add_frame(audio_state& state, const audio_unit& unit, bool newParameters) {
  if (state.model.removals.full()) {
    fatal(state, kTooManyRemovals, static_cast<int64_t>(kRemovalEvents));
    return false;
  }
  audio_analyser& own = analyser_of(state);
  state.frames.push({state.runningPts, unit.start, unit.size, unit.padding, unit.bitRate,
                     newParameters, own.sourceBegan});
  own.sourceBegan = false;
  state.model.removals.push({state.runningPts, unit.size});
  state.runningPts = wrapped(state.runningPts + unit.period);
  return true;
}

void begin(audio_state& state) {
  audio_analyser& own = analyser_of(state);
  if (own.begun) return;
  own.begun = true;
  if (state.config != nullptr) {
    if (state.config->skipFrames < 0) fatal(state, kSkipFramesNegative, state.config->skipFrames);
  }
  own.cleansUp = state.config != nullptr && state.config->transitionCleanUp &&
                 state.config->avSync && state.input.source() != nullptr;
  state.scanPosition = state.input.read_position();
  enter_dtshd_file(state);
  if (state.config != nullptr) leave_out_frames(state, state.config->skipFrames);
}

}  // namespace

void discover_audio(audio_state& state) {
  begin(state);
  audio_analyser& own = analyser_of(state);
  audio_characteristics& audio = state.characteristics;
  const int64_t from = state.scanPosition;
  double bytes = 0;
  double ticks = 0;
  int32_t count = 0;
  audio_unit unit;
  audio_unit first;
  state.firstSizes.clear();
  while (count < kMostDiscoveryFrames && read_unit(state, unit) == unit_result::found) {
    if (count == 0) first = unit;
    own.keep = true;
    ++count;
    state.firstSizes.push_back(unit.size);
    bytes += unit.size;
    ticks += unit.period;
    own.patient = count >= kDiscoveryFrames && state.input.source() == nullptr;
    accept(state, unit);
    // Only looked at: the bytes stay for the run.
    state.scanPosition = unit.end();
    if (unit.end() - state.input.read_position() > state.input.capacity() / 2) break;
  }
  own.keep = own.patient = false;
  if (count == 0) {
    fatal(state, kNeverAcquired);
    state.sourceEnded = true;
    own.loud = true;
    return;
  }
  const int32_t largest = audio.maxFrameSize;
  note_characteristics(state, first);
  audio.maxFrameSize = largest;
  audio.averageFrameSize = bytes / count;
  // Extensions of DTS vary as the sound does, without a limit to a frame: each may be the largest.
  if (first.extension) bytes = static_cast<double>(largest) * count;
  audio.bitRate = std::ceil(bytes * 8 * 2.7e7 / ticks / 100 - 1e-9) * 100;
  own.last = first;
  own.sizeMoved = own.variable = false;
  own.loud = true;
  // Junk before the first frame, where the run goes on in spite of it, was told once.
  state.scanPosition = std::max(from, first.start);
}

void leave_out_frames(audio_state& state, int64_t count) {
  for (audio_unit unit; count > 0; --count) {
    if (read_unit(state, unit) != unit_result::found) return;
    accept(state, unit);
    move_scan(state, unit.end());
  }
}

bool scan_audio(audio_state& state) {
  if (state.sourceEnded) return false;
  begin(state);
  if (state.frames.full()) return true;
  audio_unit unit;
  switch (read_unit(state, unit)) {
    case unit_result::later:
      return true;
    case unit_result::ended:
      state.sourceEnded = true;
      return false;
    case unit_result::found:
      break;
  }
  if (is_before_pictures(state, unit)) {
    move_scan(state, unit.end());
    return true;
  }
  if (state.stopTicks >= 0 && state.queuedTicks + unit.period / 2 > state.stopTicks) {
    state.input.finish();
    state.sourceEnded = true;
    return false;
  }
  state.queuedTicks += unit.period;
  const bool changed = accept(state, unit);
  if (add_frame(state, unit, changed)) state.scanPosition = unit.end();
  return true;
}

}  // namespace zel::mux
