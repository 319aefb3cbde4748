#include <algorithm>

#include "zel/mux/engine/audio/audio_analyser.h"
#include "zel/mux/engine/run/reporting.h"
#include "zel/syntax/dts.h"

namespace zel::mux {

audio_analyser& analyser_of(audio_state& state) {
  if (state.analyser == nullptr) state.analyser = std::make_unique<audio_analyser>();
  return static_cast<audio_analyser&>(*state.analyser);
}

namespace {

int pid_of(const audio_state& state) {
  return state.stream != nullptr ? state.stream->pid() : no_pid;
}

void note_transitions(audio_state& state) {
  audio_analyser& own = analyser_of(state);
  if (!own.cleansUp) return;
  while (!own.transitions.full()) {
    const int64_t place = state.input.source()->take_transition();
    if (place < 0) return;
    own.transitions.push(place);
  }
}

bool load(audio_state& state) {
  const bool loaded = state.input.load();
  note_transitions(state);
  return loaded;
}

// Loads up to `position`, past bytes of no frame.
bool advance_to(audio_state& state, int64_t position) {
  while (state.input.end_position() < position) {
    move_scan(state, state.input.end_position());
    if (!load(state)) return false;
  }
  move_scan(state, position);
  return true;
}

}  // namespace

void warn(audio_state& state, int code, int64_t argument) {
  if (analyser_of(state).loud) state.report->warn(code, pid_of(state), argument);
}

void fatal(audio_state& state, int code, int64_t argument) {
  state.report->fatal(code, pid_of(state), argument);
}

int64_t available(audio_state& state, int64_t position, int64_t count) {
  elementary_input& input = state.input;
  const int64_t end = analyser_of(state).dataEnd;
  const bool loads = !analyser_of(state).patient;
  while (loads && input.end_position() < std::min(position + count, end) && load(state)) {
  }
  return std::clamp<int64_t>(std::min(input.end_position(), end) - position, 0, count);
}

bool at_end(audio_state& state, int64_t needed) {
  return state.input.ended() || needed > analyser_of(state).dataEnd;
}

std::span<const uint8_t> peek(audio_state& state, int64_t position, header_bytes& bytes) {
  const auto count = static_cast<int32_t>(available(state, position, kAudioHeaderBytes));
  if (count > 0) state.input.copy(position, bytes.data(), count);
  return std::span<const uint8_t>(bytes).first(static_cast<size_t>(count));
}

void move_scan(audio_state& state, int64_t position) {
  state.scanPosition = position;
  if (!state.frames.empty() || analyser_of(state).keep) return;
  const int64_t drop = position - state.input.read_position();
  if (drop > 0)
    state.input.skip(static_cast<int32_t>(std::min<int64_t>(drop, state.input.filled())));
}

void enter_dtshd_file(audio_state& state) {
  constexpr auto kHeader = static_cast<int64_t>(syntax::kDtsHdChunkHeaderSize);
  constexpr uint64_t kMost = uint64_t{1} << 60;
  audio_analyser& own = analyser_of(state);
  own.dataEnd = kNoPlace;
  int64_t at = state.scanPosition;
  syntax::DtsHdChunk chunk;
  header_bytes bytes;
  if (!syntax::parseDtsHdChunk(peek(state, at, bytes), chunk)) return;
  if (chunk.identifier != syntax::kDtsHdFileChunk &&
      chunk.identifier != syntax::kDtsHdAudioHeader) {
    return;
  }
  while (chunk.identifier != syntax::kDtsHdStreamData) {
    at += kHeader + static_cast<int64_t>(std::min(chunk.size, kMost));
    if (!advance_to(state, at)) return;
    if (!syntax::parseDtsHdChunk(peek(state, at, bytes), chunk)) return;
  }
  if (!advance_to(state, at + kHeader)) return;
  own.dataEnd = at + kHeader + static_cast<int64_t>(std::min(chunk.size, kMost));
}

bool leave_dtshd_file(audio_state& state) {
  audio_analyser& own = analyser_of(state);
  while (own.transitions.empty()) {
    move_scan(state, state.input.end_position());
    if (!load(state)) return false;
  }
  own.dataEnd = kNoPlace;
  return advance_to(state, own.transitions.front());
}

}  // namespace zel::mux
