// Finds the frames of an audio stream in its input: hops from header to header, so that only
// headers are ever looked at. Frames stay in the input until the packet maker takes them.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "zel/base/media_clock.h"
#include "zel/mux/engine/audio/frame_header.h"
#include "zel/mux/engine/audio/frame_period.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/reporting.h"
#include "zel/mux/engine/stream/audio_state.h"
#include "zel/syntax/dts.h"
#include "zel/syntax/eac3.h"

namespace zel::mux {
namespace {

// Fatal messages.
constexpr int kSkipFramesNegative = 8;
constexpr int kTooManyRemovals = 11;
constexpr int kSaw77 = 12, kSaw0B = 13, kSawF0 = 14, kSawFF = 15, kSawF0Adts = 18;
constexpr int kSawE0 = 101, kSaw56 = 102;
constexpr int kNoSyncAtStart = 16;
constexpr int kNeverAcquired = 19;
constexpr int kDtsLostSync = 39;
constexpr int kEac3Underflow = 91;
constexpr int kLatmError = 103;
constexpr int kNoExtensionDuration = 125;
// Warnings.
constexpr int kAc3RateChanged = 4, kAc3SizeChanged = 5;
constexpr int kLayerChanged = 6, kMpegRateChanged = 7, kMpegSizeChanged = 8;
constexpr int kDtsBlocksChanged = 42, kDtsSizeChanged = 43;
constexpr int kLatmChannelsChanged = 65, kLatmRateChanged = 66, kLatmSamplesChanged = 68;
constexpr int kVariableRate = 71;
constexpr int kNowAc3 = 82, kNowEac3 = 97;

// What the discovery averages over. A caller's loader isn't asked for more than half of the frames
// that can be queued: it may wait for other streams to be read. What is there anyway is looked at,
// and of a file half of the input buffer, so that loud passages count.
constexpr int kDiscoveryFrames = 32;
constexpr int kMostDiscoveryFrames = 1000;

struct access_unit {
  audio_frame_header first;
  int64_t start = 0;
  int32_t size = 0;
  double bitRate = 0;
  double period = 0;
  int32_t channels = 0;
  int32_t extensionKind = 0;
  bool extension = false;  // DTS: with extension substreams, or of nothing else
  syntax::LatmConfig latm;
};

struct analyser final : audio_state::analyser_state {
  bool begun = false;
  bool patient = false;  // what isn't loaded stays so
  bool keep = false;     // looking ahead: nothing leaves the input
  bool lost = false;     // a lost sync was told, and the next frame isn't found yet
  bool queued = false;   // a frame was queued
  bool loud = false;     // messages of what the stream does go out: not in the discovery
  int skipLeft = 0;
  int64_t dataEnd = std::numeric_limits<int64_t>::max();  // of a DTS-HD file's stream chunk
  bool known = false;                                     // `last` holds an access unit
  access_unit last;
  bool sizeMoved = false;
  bool variable = false;
  syntax::LatmConfig latm;
  bool latmKnown = false;
  std::vector<uint8_t> latmFrame;
};

analyser& analyser_of(audio_state& state) {
  if (state.analyser == nullptr) state.analyser = std::make_unique<analyser>();
  return static_cast<analyser&>(*state.analyser);
}

int pid_of(const audio_state& state) {
  return state.stream != nullptr ? state.stream->pid() : no_pid;
}
void warn(audio_state& state, int code, int64_t argument = 0) {
  if (analyser_of(state).loud) state.report->warn(code, pid_of(state), argument);
}
void fatal(audio_state& state, int code, int64_t argument = 0) {
  state.report->fatal(code, pid_of(state), argument);
}

enum class unit_result { found, later, ended };

// Loads until `count` bytes from `position` on are there, or can't be. Gives how many are.
int64_t available(audio_state& state, int64_t position, int64_t count) {
  elementary_input& input = state.input;
  const int64_t end = analyser_of(state).dataEnd;
  const bool loads = !analyser_of(state).patient;
  while (loads && input.end_position() < std::min(position + count, end) && input.load()) {
  }
  return std::clamp<int64_t>(std::min(input.end_position(), end) - position, 0, count);
}

// Nothing can come any more: the source ended, or the stream's chunk.
bool at_end(audio_state& state, int64_t needed) {
  return state.input.ended() || needed > analyser_of(state).dataEnd;
}

using header_bytes = std::array<uint8_t, kAudioHeaderBytes>;

std::span<const uint8_t> peek(audio_state& state, int64_t position, header_bytes& bytes) {
  const auto count = static_cast<int32_t>(available(state, position, kAudioHeaderBytes));
  if (count > 0) state.input.copy(position, bytes.data(), count);
  return std::span<const uint8_t>(bytes).first(static_cast<size_t>(count));
}

// Bytes before the first queued frame are nobody's; those behind it leave with the packets.
void move_scan(audio_state& state, int64_t position) {
  state.scanPosition = position;
  if (!state.frames.empty() || analyser_of(state).keep) return;
  const int64_t drop = position - state.input.read_position();
  if (drop > 0)
    state.input.skip(static_cast<int32_t>(std::min<int64_t>(drop, state.input.filled())));
}

// A DTS-HD file begins with "DTSHDHDR" and is chunks throughout; the stream stands in one of them.
void enter_dtshd_file(audio_state& state) {
  analyser& own = analyser_of(state);
  int64_t at = state.input.read_position();
  syntax::DtsHdChunk chunk;
  header_bytes bytes;
  if (!syntax::parseDtsHdChunk(peek(state, at, bytes), chunk)) return;
  if (chunk.identifier != syntax::kDtsHdFileChunk &&
      chunk.identifier != syntax::kDtsHdAudioHeader) {
    return;
  }
  constexpr auto kHeader = static_cast<int64_t>(syntax::kDtsHdChunkHeaderSize);
  constexpr uint64_t kMost = uint64_t{1} << 60;
  while (chunk.identifier != syntax::kDtsHdStreamData) {
    int64_t left = kHeader + static_cast<int64_t>(std::min(chunk.size, kMost));
    while (left > 0) {
      const int64_t got = std::min<int64_t>(left, state.input.filled());
      if (got == 0 && !state.input.load()) return;
      state.input.skip(static_cast<int32_t>(got));
      left -= got;
    }
    at = state.input.read_position();
    if (!syntax::parseDtsHdChunk(peek(state, at, bytes), chunk)) return;
  }
  state.input.skip(static_cast<int32_t>(kHeader));
  own.dataEnd = at + kHeader + static_cast<int64_t>(std::min(chunk.size, kMost));
}

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
bool join_substreams(audio_state& state, access_unit& unit) {
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
bool read_latm_config(audio_state& state, access_unit& unit) {
  analyser& own = analyser_of(state);
  if (unit.first.needsConfig) {
    own.latmFrame.resize(static_cast<size_t>(unit.size));
    state.input.copy(unit.start, own.latmFrame.data(), unit.size);
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

// The access unit at the scan position, whole in the input.
unit_result read_unit(audio_state& state, access_unit& unit) {
  analyser& own = analyser_of(state);
  header_bytes bytes;
  for (;;) {
    const auto view = peek(state, state.scanPosition, bytes);
    if (view.empty())
      return at_end(state, state.scanPosition + 1) ? unit_result::ended : unit_result::later;
    unit = {};
    unit.start = state.scanPosition;
    const audio_kind kind = own.known ? state.characteristics.kind : audio_kind::unknown;
    if (!read_audio_header(view, kind, unit.first)) {
      const bool cut = view.size() < kAudioHeaderBytes;
      if (cut && !at_end(state, state.scanPosition + kAudioHeaderBytes)) return unit_result::later;
      // A header that the end cuts off is a partial frame, which is dropped as they all are.
      if (cut && own.known && unmatched_sync_byte(view, kind) < 0) return unit_result::ended;
      // The run comes by here again, and tells it then.
      if (own.keep) return unit_result::ended;
      if (!own.lost) {
        own.known ? report_lost_sync(state, view) : fatal(state, kNoSyncAtStart, view[0]);
      }
      own.lost = true;
      const unit_result searched = resynchronise(state);
      if (searched != unit_result::found) return searched;
      continue;
    }
    if (unit.first.joins) {
      if (!unit.first.extension) fatal(state, kEac3Underflow);
      move_scan(state, state.scanPosition + unit.first.size);
      continue;
    }
    unit.size = unit.first.size;
    if (unit.size >= state.input.capacity()) state.input.grow(2 * unit.size);
    if (available(state, unit.start, unit.size) < unit.size) {
      return at_end(state, unit.start + unit.size) ? unit_result::ended : unit_result::later;
    }
    unit.bitRate = unit.first.bitRate;
    unit.channels = unit.first.channels;
    unit.extension = unit.first.extension;
    unit.extensionKind = unit.first.extensionKind;
    unit.period = audio_frame_period(unit.first.samples, unit.first.sampleRate);
    if (!join_substreams(state, unit)) return unit_result::later;
    if (unit.first.kind == audio_kind::latm && !read_latm_config(state, unit)) {
      move_scan(state, unit.start + unit.size);
      continue;
    }
    if (unit.period <= 0) {
      move_scan(state, unit.start + unit.size);
      continue;
    }
    return unit_result::found;
  }
}

bool tell_if(audio_state& state, bool changed, int code, int64_t value) {
  if (changed) warn(state, code, value);
  return changed;
}

// The bit rate index of MPEG audio: one change may be a splice, a second one is a variable rate.
bool tell_mpeg_size(audio_state& state, bool changed, int64_t value) {
  analyser& own = analyser_of(state);
  if (!changed || own.variable) return changed;
  if (own.sizeMoved) {
    own.variable = true;
    warn(state, kVariableRate);
    return true;
  }
  own.sizeMoved = true;
  warn(state, kMpegSizeChanged, value);
  return true;
}

// At 44.1 kHz the lowest bit of frmsizecod is padding, which comes and goes in every stream.
bool is_ac3_padding(const audio_frame_header& now, const audio_frame_header& then) {
  constexpr int32_t k44100 = 1;
  return now.sampleRateCode == k44100 && then.sampleRateCode == k44100 &&
         now.frameSizeCode / 2 == then.frameSizeCode / 2;
}

// Warns of what differs from the unit before. Gives whether anything did.
bool tell_changes(audio_state& state, const access_unit& unit) {
  const access_unit& last = analyser_of(state).last;
  const audio_frame_header& now = unit.first;
  const audio_frame_header& then = last.first;
  const bool rate = now.sampleRateCode != then.sampleRateCode;
  const bool size = now.frameSizeCode != then.frameSizeCode;
  bool told = false;
  switch (now.kind) {
    case audio_kind::ac3:
      if (now.eac3 != then.eac3) {
        warn(state, now.eac3 ? kNowEac3 : kNowAc3);
        return true;
      }
      told |= tell_if(state, rate, kAc3RateChanged, now.sampleRateCode);
      told |=
          tell_if(state, size && !is_ac3_padding(now, then), kAc3SizeChanged, now.frameSizeCode);
      return told;
    case audio_kind::mpeg:
      if (tell_if(state, now.layer != then.layer, kLayerChanged, now.layer)) return true;
      told |= tell_if(state, rate || now.sampleRate != then.sampleRate, kMpegRateChanged,
                      now.sampleRateCode);
      told |= tell_mpeg_size(state, size, now.frameSizeCode);
      return told;
    case audio_kind::dts:
      if (now.extension || then.extension) return now.extension != then.extension;
      told |= tell_if(state, size, kDtsBlocksChanged, now.frameSizeCode);
      told |= tell_if(state, now.size != then.size, kDtsSizeChanged, now.size - 1);
      return told;
    case audio_kind::latm:
      told |= tell_if(state, unit.latm.channelConfiguration != last.latm.channelConfiguration,
                      kLatmChannelsChanged, unit.latm.channelConfiguration);
      told |= tell_if(state, unit.latm.sampleRate != last.latm.sampleRate, kLatmRateChanged,
                      unit.latm.sampleRate);
      told |= tell_if(state, unit.latm.samplesPerFrame != last.latm.samplesPerFrame,
                      kLatmSamplesChanged, unit.latm.samplesPerFrame);
      return told;
    case audio_kind::unknown:
      break;
  }
  return false;
}

void note_characteristics(audio_state& state, const access_unit& unit) {
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
bool accept(audio_state& state, const access_unit& unit) {
  analyser& own = analyser_of(state);
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

bool add_frame(audio_state& state, const access_unit& unit, bool newParameters, bool first) {
  if (state.model.removals.full()) {
    fatal(state, kTooManyRemovals, static_cast<int64_t>(kRemovalEvents));
    return false;
  }
  state.frames.push({state.runningPts, unit.start, unit.size, unit.bitRate, newParameters, first});
  state.model.removals.push({state.runningPts, unit.size});
  state.runningPts = wrapped(state.runningPts + unit.period);
  return true;
}

void begin(audio_state& state) {
  analyser& own = analyser_of(state);
  if (own.begun) return;
  own.begun = true;
  if (state.config != nullptr) {
    if (state.config->skipFrames < 0) fatal(state, kSkipFramesNegative, state.config->skipFrames);
    own.skipLeft = std::max(state.config->skipFrames, 0);
  }
  enter_dtshd_file(state);
  state.scanPosition = state.input.read_position();
  for (access_unit unit; own.skipLeft > 0; --own.skipLeft) {
    if (read_unit(state, unit) != unit_result::found) break;
    accept(state, unit);
    move_scan(state, unit.start + unit.size);
  }
}

}  // namespace

void discover_audio(audio_state& state) {
  begin(state);
  analyser& own = analyser_of(state);
  audio_characteristics& audio = state.characteristics;
  const int64_t from = state.scanPosition;
  double bytes = 0;
  double ticks = 0;
  int32_t count = 0;
  access_unit unit;
  access_unit first;
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
    state.scanPosition = unit.start + unit.size;
    if (unit.start + unit.size - state.input.read_position() > state.input.capacity() / 2) break;
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

bool scan_audio(audio_state& state) {
  if (state.sourceEnded) return false;
  begin(state);
  if (state.frames.full()) return true;
  access_unit unit;
  switch (read_unit(state, unit)) {
    case unit_result::later:
      return true;
    case unit_result::ended:
      state.sourceEnded = true;
      return false;
    case unit_result::found:
      break;
  }
  const bool first = !analyser_of(state).queued;
  analyser_of(state).queued = true;
  const bool changed = accept(state, unit);
  if (add_frame(state, unit, changed, first)) state.scanPosition = unit.start + unit.size;
  return true;
}

}  // namespace zel::mux
