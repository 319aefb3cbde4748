#include <algorithm>

#include "zel/mux/engine/audio/audio_analyser.h"
#include "zel/mux/engine/audio/frame_period.h"
#include "zel/syntax/eac3.h"

namespace zel::mux {
namespace {

// Fatal messages.
constexpr int kSaw77 = 12, kSaw0B = 13, kSawF0 = 14, kSawFF = 15, kSawF0Adts = 18;
constexpr int kSawE0 = 101, kSaw56 = 102;
constexpr int kNoSyncAtStart = 16;
constexpr int kDtsLostSync = 39;
constexpr int kEac3Underflow = 91;
constexpr int kLatmError = 103;
constexpr int kNoExtensionDuration = 125;

void report_lost_sync(audio_state& state, std::span<const uint8_t> bytes) {
  const audio_kind kind = state.characteristics.kind;
  const int at = unmatched_sync_byte(bytes, kind);
  // The sync word stands but the header can't be: the byte behind the word is told.
  const size_t seen = at < 0 ? std::min<size_t>(2, bytes.size() - 1) : static_cast<size_t>(at);
  const bool second = at != 0;
  int code = kDtsLostSync;
  if (kind == audio_kind::ac3) code = second ? kSaw77 : kSaw0B;
  if (kind == audio_kind::latm) code = second ? kSawE0 : kSaw56;
  if (kind == audio_kind::mpeg) {
    const int low = state.characteristics.layer == 0 ? kSawF0Adts : kSawF0;
    code = second ? low : kSawFF;
  }
  fatal(state, code, kind == audio_kind::dts ? static_cast<int64_t>(seen) : bytes[seen]);
}

// Searches the next header from the scan position on. Where the run goes on behind a lost sync word
// one false start costs one frame, and is told.
unit_result resynchronise(audio_state& state) {
  header_bytes bytes;
  for (;;) {
    const auto view = peek(state, state.scanPosition + 1, bytes);
    if (view.size() < 4) {
      return at_end(state, state.scanPosition + 5) ? unit_result::ended : unit_result::later;
    }
    move_scan(state, state.scanPosition + 1);
    audio_frame_header header;
    if (read_audio_header(view, state.characteristics.kind, header) && !header.joins) {
      analyser_of(state).lost = false;
      return unit_result::found;
    }
  }
}

// Joins the substreams behind the first: dependent ones of E-AC-3, extensions of DTS.
bool join_substreams(audio_state& state, audio_unit& unit) {
  if (unit.first.kind != audio_kind::ac3 && unit.first.kind != audio_kind::dts) return true;
  header_bytes bytes;
  double extensionSamples = unit.first.extension ? unit.first.samples : 0;
  double clock = unit.first.extension ? unit.first.sampleRate : 0;
  uint16_t channelMap = unit.first.channelMap;
  bool firstProgramme = true;
  for (;;) {
    const int64_t next = unit.start + unit.size;
    audio_frame_header header;
    const auto view = peek(state, next, bytes);
    if (next >= next_transition(state)) break;
    if (!read_audio_header(view, unit.first.kind, header)) {
      // Where nothing more fits in now, what follows isn't known yet.
      if (view.size() == kAudioHeaderBytes || at_end(state, next + kAudioHeaderBytes)) break;
      return false;
    }
    const bool extends = header.extension && (!unit.first.extension || header.joins);
    if (!extends && !(header.joins && !header.extension)) break;
    if (available(state, next, header.size) < header.size) {
      if (!at_end(state, next + header.size)) return false;
      break;  // broken off at the end: the frame goes without it
    }
    if (next + header.size > next_transition(state)) break;  // the same, at the file's end
    unit.size += header.size;
    unit.bitRate += header.bitRate;
    firstProgramme = firstProgramme && !header.independent;
    if (firstProgramme) channelMap |= header.channelMap;
    unit.extension = unit.extension || header.extension;
    unit.extensionKind = std::max(unit.extensionKind, header.extensionKind);
    if (header.extension && extensionSamples == 0) {
      extensionSamples = header.samples;
      clock = header.sampleRate;
    }
  }
  if (channelMap != 0) unit.channels = syntax::eac3Channels(channelMap);
  if (unit.extension) {
    if (extensionSamples == 0) fatal(state, kNoExtensionDuration);
    if (extensionSamples > 0) unit.period = audio_frame_period(extensionSamples, clock);
    if (unit.period > 0) unit.bitRate = unit.size * 8.0 * 2.7e7 / unit.period;
  }
  return true;
}

// False where the frame can't be used: its configuration is broken, or not yet known.
bool read_latm_config(audio_state& state, audio_unit& unit) {
  audio_analyser& own = analyser_of(state);
  if (unit.first.needsConfig) {
    own.latmFrame.assign(static_cast<size_t>(unit.size), 0);
    state.input.copy(unit.start, own.latmFrame.data(), unit.size - unit.padding);
    if (syntax::parseLatmFrame(own.latmFrame, own.latm) != syntax::LatmResult::kConfig) {
      fatal(state, kLatmError);
      return false;
    }
    own.latmKnown = true;
  }
  if (!own.latmKnown) return false;
  unit.latm = own.latm;
  unit.first.sampleRate = static_cast<int32_t>(own.latm.sampleRate);
  unit.first.samples = own.latm.samplesPerFrame * own.latm.subFrames;
  unit.channels = own.latm.channels;
  unit.period = audio_frame_period(unit.first.samples, unit.first.sampleRate);
  unit.bitRate = unit.size * 8.0 * 2.7e7 / unit.period;
  return true;
}

// What the header of `unit`, which begins at the scan position, says of it.
void take_header(audio_unit& unit) {
  unit.size = unit.first.size;
  unit.bitRate = unit.first.bitRate;
  unit.channels = unit.first.channels;
  unit.extension = unit.first.extension;
  unit.extensionKind = unit.first.extensionKind;
  unit.period = audio_frame_period(unit.first.samples, unit.first.sampleRate);
}

// No header stands at the scan position, of which `view` is there. Finds where to read on.
unit_result pass_what_is_no_header(audio_state& state, std::span<const uint8_t> view) {
  audio_analyser& own = analyser_of(state);
  const bool cut = view.size() < kAudioHeaderBytes;
  if (cut && !at_end(state, state.scanPosition + kAudioHeaderBytes)) return unit_result::later;
  switch (search_behind_transition(state)) {
    case file_passage::passed:
      return unit_result::found;
    case file_passage::ended:
      return unit_result::ended;
    case file_passage::inside:
      break;
  }
  // A header that the end cuts off is a partial frame, which is dropped as they all are.
  const audio_kind kind = state.characteristics.kind;
  if (cut && own.known && unmatched_sync_byte(view, kind) < 0) return unit_result::ended;
  // The run comes by here again, and tells it then.
  if (own.keep) return unit_result::ended;
  if (!own.lost) {
    own.known ? report_lost_sync(state, view) : fatal(state, kNoSyncAtStart, view[0]);
  }
  own.lost = true;
  return resynchronise(state);
}

unit_result read_unit_of_file(audio_state& state, audio_unit& unit) {
  audio_analyser& own = analyser_of(state);
  header_bytes bytes;
  for (;;) {
    if (enter_next_file(state) == file_passage::ended) return unit_result::ended;
    const auto view = peek(state, state.scanPosition, bytes);
    if (view.empty())
      return at_end(state, state.scanPosition + 1) ? unit_result::ended : unit_result::later;
    unit = {};
    unit.start = state.scanPosition;
    const audio_kind kind = own.known ? state.characteristics.kind : audio_kind::unknown;
    if (!read_audio_header(view, kind, unit.first)) {
      const unit_result passed = pass_what_is_no_header(state, view);
      if (passed != unit_result::found) return passed;
      continue;
    }
    take_header(unit);
    if (unit.size >= state.input.capacity()) state.input.grow(2 * unit.size);
    switch (cross_transition(state, unit)) {
      case file_passage::passed:
        continue;
      case file_passage::ended:
        return unit_result::ended;
      case file_passage::inside:
        break;
    }
    if (unit.first.joins) {
      if (!unit.first.extension) fatal(state, kEac3Underflow);
      move_scan(state, unit.end());
      continue;
    }
    const int32_t needed = unit.size - unit.padding;
    if (available(state, unit.start, needed) < needed) {
      return at_end(state, unit.start + needed) ? unit_result::ended : unit_result::later;
    }
    if (unit.padding == 0 && !join_substreams(state, unit)) return unit_result::later;
    const bool configured = unit.first.kind != audio_kind::latm || read_latm_config(state, unit);
    if (configured && unit.period > 0) return unit_result::found;
    move_scan(state, unit.end());
  }
}

}  // namespace

unit_result read_unit(audio_state& state, audio_unit& unit) {
  for (;;) {
    const unit_result result = read_unit_of_file(state, unit);
    if (result != unit_result::ended) return result;
    // The stream of a DTS-HD file ends before the file does.
    const audio_analyser& own = analyser_of(state);
    if (own.dataEnd == kNoPlace || own.keep || !own.cleansUp) return result;
    if (leave_dtshd_file(state)) continue;
    return state.input.ended() ? unit_result::ended : unit_result::later;
  }
}

}  // namespace zel::mux
