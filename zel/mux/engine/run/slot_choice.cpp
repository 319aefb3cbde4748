#include "zel/mux/engine/run/slot_choice.h"

#include <algorithm>
#include <cmath>

#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

namespace {

bool is_audio_or_video(stream_kind kind) {
  return kind == stream_kind::video || kind == stream_kind::audio ||
         kind == stream_kind::smpte302m || kind == stream_kind::lpcm;
}

bool leak_and_test(smoothing_buffer& buffer, const tsm_mux& mux) {
  const double ticks = difference_ticks(mux.now, buffer.leakedAt);
  buffer.leakedAt = mux.now;
  buffer.level = std::max(0.0, buffer.level - std::floor(buffer.leakRate * ticks / kByteTicks));
  if (buffer.leakRate >= mux.rate) return true;
  return (mux.rate - buffer.leakRate) * 188 / mux.rate + buffer.level < buffer.size;
}

}  // namespace

void slot_watch::look_at_all(tsm_mux& mux) {
  isValid_ = true;
  anyRests_ = false;
  lasting_ = {};
  awake_.clear();
  bool sawAv = false;
  bool anyAvEnded = false;
  bool allAvEnded = true;
  for (const auto& owned : mux.streams) {
    tsm_stream& stream = *owned;
    if (is_candidate(stream, mux.now)) {
      // A PSI stream rests between its cycles; due again, it competes again.
      if (stream.has(kPsiStream)) stream.clear(kSourceEnded);
      awake_.push_back({&stream, stream.has(kSourceEnded)});
    } else if (!stream.has(kNoMorePackets)) {
      if (!anyRests_ || is_before(stream.nextTime, wakeTime_)) wakeTime_ = stream.nextTime;
      anyRests_ = true;
    }
    const bool ended = stream.has(kSourceEnded);
    lasting_.allEnded &= ended;
    if (stream.has(kPsiStream)) lasting_.psiDone &= ended;
    if (is_audio_or_video(stream.kind)) {
      sawAv = true;
      anyAvEnded |= ended;
      allAvEnded &= ended;
    }
  }
  if (mux.stopOnAv == stop_on_av::first) lasting_.stopOnAv = anyAvEnded;
  if (mux.stopOnAv == stop_on_av::last) lasting_.stopOnAv = sawAv && allAvEnded;
}

bool pass_smoothing_buffers(tsm_stream& stream, const tsm_mux& mux) {
  bool roomy = true;
  if (stream.streamSB != nullptr) roomy &= leak_and_test(*stream.streamSB, mux);
  if (stream.programSB != nullptr) roomy &= leak_and_test(*stream.programSB, mux);
  if (!roomy) return false;
  if (stream.streamSB != nullptr) stream.streamSB->level += 188;
  if (stream.programSB != nullptr) stream.programSB->level += 188;
  return true;
}

}  // namespace zel::mux
