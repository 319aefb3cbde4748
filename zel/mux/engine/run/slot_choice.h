#pragma once

#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

/// What one walk over the streams tells about a slot.
struct slot_survey {
  bool allEnded = true;               // every stream's source has ended
  bool psiDone = true;                // no PSI is due or under way
  bool stopOnAv = false;              // StopOnAV says that the run is over
  tsm_stream* earliestDue = nullptr;  // of the candidates
  tsm_stream* priority = nullptr;     // of the candidates with priority, the one of earliest time

  /// PSI competes by deadline with everything; once it's done, priority streams go first.
  tsm_stream* choice() const { return psiDone && priority != nullptr ? priority : earliestDue; }
};

slot_survey survey_streams(tsm_mux& mux);

/// Leaks both smoothing buffers of `stream` up to now. True where both have room for a packet,
/// which is then taken.
bool pass_smoothing_buffers(tsm_stream& stream, const tsm_mux& mux);

}  // namespace zel::mux
