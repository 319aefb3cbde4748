#pragma once

#include <cstddef>
#include <vector>

#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

struct tsm_mux;

/// What a look at the streams tells about a slot.
struct slot_survey {
  bool allEnded = true;               // every stream's source has ended
  bool psiDone = true;                // no PSI is due or under way
  bool stopOnAv = false;              // StopOnAV says that the run is over
  tsm_stream* earliestDue = nullptr;  // of the candidates
  tsm_stream* priority = nullptr;     // of the candidates with priority, the one of earliest time

  /// PSI competes by deadline with everything; once it's done, priority streams go first.
  tsm_stream* choice() const { return psiDone && priority != nullptr ? priority : earliestDue; }

  bool operator==(const slot_survey&) const = default;
};

/// Surveys the streams of a run, slot by slot.
///
/// Most streams rest most of the time, until a time of their own, and a stream changes only when it
/// is asked, which only candidates are. So between two looks at all of them those that rested at
/// the first aren't looked at, until the earliest of their times.
class slot_watch {
 public:
  /// Makes room for a run with so many streams.
  void prepare(size_t streams) { awake_.reserve(streams); }
  /// The slot at `now`, which is mux.now.
  slot_survey survey(const tsm_time& now, tsm_mux& mux);
  /// Whether no stream but `alone`, which the last survey told, is a candidate at `now`. `until` is
  /// brought forward to where another may be. So long surveys tell nothing but that stream.
  bool leaves_alone(const tsm_stream& alone, const tsm_time& now, tsm_time& until) const;
  /// Has to be called where the clock was set, or a stream was asked that the survey hadn't told.
  void forget() { isValid_ = false; }

 private:
  struct awake_stream {
    tsm_stream* stream;
    bool ended;  // kSourceEnded; all else that may change is looked at each time
  };

  static bool is_candidate(const tsm_stream& stream, const tsm_time& now) {
    return !stream.has(kNoMorePackets) && !is_before(now, stream.nextTime);
  }
  bool holds(const tsm_time& now) const;
  void look_at_all(tsm_mux& mux);

  bool isValid_ = false;
  bool anyRests_ = false;
  tsm_time wakeTime_;                // the earliest of those that rest
  slot_survey lasting_;              // what is the same as long as this holds
  std::vector<awake_stream> awake_;  // in the order of the list
};

inline bool slot_watch::holds(const tsm_time& now) const {
  if (!isValid_ || (anyRests_ && !is_before(now, wakeTime_))) return false;
  for (const awake_stream& each : awake_) {
    if (each.stream->has(kSourceEnded) != each.ended) return false;
  }
  return true;
}

inline slot_survey slot_watch::survey(const tsm_time& now, tsm_mux& mux) {
  if (!holds(now)) look_at_all(mux);
  slot_survey survey = lasting_;
  for (const awake_stream& each : awake_) {
    tsm_stream& stream = *each.stream;
    if (!is_candidate(stream, now)) continue;
    if (survey.earliestDue == nullptr || is_before(stream.dueTime, survey.earliestDue->dueTime)) {
      survey.earliestDue = &stream;
    }
    if (stream.has(kPriority) &&
        (survey.priority == nullptr || is_before(stream.nextTime, survey.priority->nextTime))) {
      survey.priority = &stream;
    }
  }
  return survey;
}

inline bool slot_watch::leaves_alone(const tsm_stream& alone, const tsm_time& now,
                                     tsm_time& until) const {
  if (!holds(now)) return false;
  for (const awake_stream& each : awake_) {
    const tsm_stream& stream = *each.stream;
    if (&stream == &alone || stream.has(kNoMorePackets)) continue;
    if (is_candidate(stream, now)) return false;
    until = earlier(until, stream.nextTime);
  }
  if (anyRests_) until = earlier(until, wakeTime_);
  return true;
}

/// Leaks both smoothing buffers of `stream` up to now. True where both have room for a packet,
/// which is then taken.
bool pass_smoothing_buffers(tsm_stream& stream, const tsm_mux& mux);

}  // namespace zel::mux
