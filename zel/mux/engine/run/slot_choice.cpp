#include "zel/mux/engine/run/slot_choice.h"

#include <algorithm>
#include <cmath>

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

slot_survey survey_streams(tsm_mux& mux) {
  slot_survey survey;
  bool sawAv = false;
  bool anyAvEnded = false;
  bool allAvEnded = true;
  for (const auto& owned : mux.streams) {
    tsm_stream& stream = *owned;
    const bool isCandidate = !stream.has(kNoMorePackets) && !is_before(mux.now, stream.nextTime);
    // A PSI stream rests between its cycles; due again, it competes again.
    if (isCandidate && stream.has(kPsiStream)) stream.clear(kSourceEnded);

    const bool ended = stream.has(kSourceEnded);
    survey.allEnded &= ended;
    if (stream.has(kPsiStream)) survey.psiDone &= ended;
    if (is_audio_or_video(stream.kind)) {
      sawAv = true;
      anyAvEnded |= ended;
      allAvEnded &= ended;
    }
    if (!isCandidate) continue;
    if (survey.earliestDue == nullptr || is_before(stream.dueTime, survey.earliestDue->dueTime)) {
      survey.earliestDue = &stream;
    }
    if (stream.has(kPriority) &&
        (survey.priority == nullptr || is_before(stream.nextTime, survey.priority->nextTime))) {
      survey.priority = &stream;
    }
  }
  if (mux.stopOnAv == stop_on_av::first) survey.stopOnAv = anyAvEnded;
  if (mux.stopOnAv == stop_on_av::last) survey.stopOnAv = sawAv && allAvEnded;
  return survey;
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
