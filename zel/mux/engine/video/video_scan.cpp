#include <algorithm>
#include <memory>

#include "zel/mux/engine/run/reporting.h"
#include "zel/mux/engine/stream/video_state.h"
#include "zel/mux/engine/video/avc_analyser.h"
#include "zel/mux/engine/video/coding_detection.h"
#include "zel/mux/engine/video/hevc_analyser.h"
#include "zel/mux/engine/video/mpeg4_analyser.h"
#include "zel/mux/engine/video/mpeg_analyser.h"
#include "zel/mux/engine/video/unit_search.h"
#include "zel/mux/engine/video/video_analyser.h"
#include "zel/mux/engine/video/video_messages.h"

// Discovery and scanning: who analyses, and how the analyser is fed. What a coding's units mean is
// the analysers' matter.

namespace zel::mux {

namespace {

constexpr int64_t kMostJunk = 1'000'000;  // bytes before the first header
constexpr size_t kFullUnits = kAccessUnits - 1;
constexpr size_t kFullEvents = kRemovalEvents - 1;
constexpr int64_t kPrefixSize = 3;
constexpr int kSlowLoads = 1000;  // empty answers of a source that hasn't ended

video_analyser& analyser_of(video_state& state) {
  return static_cast<video_analyser&>(*state.analyser);
}

// More bytes of a source that may be slow; makes room where the buffer is too small for what has
// to be seen at once.
bool load_more(video_state& state) {
  constexpr int32_t kMostBuffer = 64 * 1024 * 1024;
  elementary_input& input = state.input;
  if (input.room() == 0 && input.capacity() < kMostBuffer) input.grow(input.capacity() * 2);
  for (int i = 0; i < kSlowLoads && !input.ended(); ++i) {
    if (input.load()) return true;
    if (input.room() == 0) return false;
  }
  return false;
}

void fill(video_state& state) {
  while (state.input.room() > 0 && state.input.load()) {
  }
}

bool looks_like_transport(const elementary_input& input) {
  constexpr int64_t kTested = 3073;
  constexpr int kPacket = 188;
  constexpr uint8_t kSync = 0x47;
  if (input.filled() < kTested) return false;
  const int64_t begin = input.read_position();
  for (int64_t first = begin; first < begin + kPacket; ++first) {
    int64_t at = first;
    while (at < begin + kTested && input.at(at) == kSync) at += kPacket;
    if (at >= begin + kTested) return true;
  }
  return false;
}

bool looks_like_pes(const elementary_input& input) {
  constexpr int64_t kTested = 2999;
  constexpr uint8_t kFirstSystemCode = 0xBA;
  if (input.filled() < kTested) return false;
  const int64_t end = input.read_position() + kTested;
  int64_t resume = 0;
  for (int64_t at = input.read_position();;) {
    at = find_start_code(input, at, resume);
    if (at < 0 || at + kPrefixSize >= end) return false;
    if (input.at(at + kPrefixSize) >= kFirstSystemCode) return true;
    at += kPrefixSize;
  }
}

std::unique_ptr<video_analyser> make_analyser(video_coding coding, video_state& state) {
  switch (coding) {
    case video_coding::mpeg1:
    case video_coding::mpeg2:
      return make_mpeg_analyser(state);
    case video_coding::avc:
      return make_avc_analyser(state);
    case video_coding::hevc:
      return make_hevc_analyser(state);
    case video_coding::mpeg4_part2:
      return make_mpeg4_analyser(state);
    case video_coding::unknown:
      break;
  }
  return nullptr;
}

// Where a four-byte start code begins.
int64_t with_zero_byte(const elementary_input& input, int64_t prefix) {
  return prefix > input.read_position() && input.at(prefix - 1) == 0 ? prefix - 1 : prefix;
}

// Goes over what stands before the stream's first header. Where its data begin, in `start`.
video_coding find_coding(video_state& state, int64_t& start) {
  elementary_input& input = state.input;
  const int64_t begin = input.read_position();
  int64_t position = begin;
  std::vector<int64_t> headers;  // prefixes of the units right before
  std::vector<uint8_t> codes;    // and their codes
  std::vector<uint8_t> unit(kTellingBytes);
  for (;;) {
    int64_t resume = 0;
    const int64_t prefix = find_start_code(input, position, resume);
    if (prefix < 0) {
      position = resume;
      if (position - begin > kMostJunk) return video_coding::unknown;
      if (headers.empty()) input.skip(static_cast<int32_t>(position - input.read_position()));
      if (!load_more(state)) return video_coding::unknown;
      continue;
    }
    if (prefix - begin > kMostJunk) return video_coding::unknown;
    const int64_t body = prefix + kPrefixSize;
    while (input.end_position() - body < kTellingBytes && load_more(state)) {
    }
    const auto count =
        static_cast<int32_t>(std::min<int64_t>(kTellingBytes, input.end_position() - body));
    if (count <= 0) return video_coding::unknown;
    input.copy(body, unit.data(), count);
    const std::span<const uint8_t> seen(unit.data(), static_cast<size_t>(count));
    video_coding coding = coding_told_by(seen);
    if (coding == video_coding::unknown && !headers.empty() && headers.back() == prefix - 4 &&
        layer_follows_object(codes.back(), seen)) {
      coding = video_coding::mpeg4_part2;
    }
    if (coding != video_coding::unknown) {
      start = prefix;
      while (!headers.empty() && may_precede(coding, codes.back())) {
        start = headers.back();
        headers.pop_back();
        codes.pop_back();
      }
      if (coding == video_coding::avc || coding == video_coding::hevc) {
        start = with_zero_byte(input, start);
      }
      return coding;
    }
    constexpr size_t kMostBefore = 8;
    if (headers.size() == kMostBefore) {
      headers.erase(headers.begin());
      codes.erase(codes.begin());
    }
    headers.push_back(prefix);
    codes.push_back(unit[0]);
    const int64_t kept = with_zero_byte(input, headers.front());
    input.skip(static_cast<int32_t>(kept - input.read_position()));
    position = body;
  }
}

void never_acquired(video_state& state) {
  state.sourceEnded = true;
  state.report->fatal(kVideoNeverAcquired, state.stream->pid());
}

}  // namespace

void discover_video(video_state& state) {
  fill(state);
  const int pid = state.stream->pid();
  if (looks_like_transport(state.input)) state.report->warn(kLooksLikeTransport, pid);
  if (looks_like_pes(state.input)) state.report->warn(kLooksLikePes, pid);

  int64_t start = 0;
  const video_coding coding = find_coding(state, start);
  if (coding == video_coding::unknown) return never_acquired(state);
  state.input.skip(static_cast<int32_t>(start - state.input.read_position()));
  auto owned = make_analyser(coding, state);
  if (owned == nullptr) return never_acquired(state);
  video_analyser& analyser = *owned;
  state.analyser = std::move(owned);
  state.scanPosition = start;

  // What is buffered anyway is looked at as well: it may tell more.
  fill(state);
  for (;;) {
    if (analyser.step() == video_analyser::progress::advanced) continue;
    const bool hadEnded = state.input.ended();
    if (analyser.characteristics_known()) break;
    if (!load_more(state) && state.input.ended() == hadEnded) break;
  }
  analyser.finish();
  if (!analyser.characteristics_known()) return never_acquired(state);
  analyser.settle();
  state.scanPosition = start;
  analyser.begin_run();
}

bool scan_video(video_state& state) {
  if (state.analyser == nullptr) state.sourceEnded = true;
  if (state.sourceEnded) return false;
  video_analyser& analyser = analyser_of(state);
  const size_t before = state.units.size();
  for (;;) {
    if (state.units.size() >= kFullUnits || state.model.removals.size() >= kFullEvents) break;
    if (analyser.is_cut_off()) {
      analyser.finish();
      break;
    }
    if (analyser.step() == video_analyser::progress::advanced) {
      if (analyser.take_timed()) break;
      continue;
    }
    // Once the end is known, a last header that is shorter than most can be read.
    const bool hadEnded = state.input.ended();
    if (state.input.load() || state.input.ended() != hadEnded) continue;
    if (hadEnded) analyser.finish();
    break;
  }
  analyser.take_timed();
  return state.units.size() > before;
}

}  // namespace zel::mux
