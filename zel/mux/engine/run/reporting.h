#pragma once

#include <cstdint>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/messages/message.h"

/// The one way in which the engine speaks: it composes a message from its table text and where the
/// run is, counts it, hands it to the error callback, and leaves the run where the configuration
/// says that a message of its kind stops it.

namespace zel::mux {

/// Leaves the run for the entry of the engine that the caller came in by, which catches it.
struct engine_stop {};

inline constexpr int no_pid = -1;

class reporting {
 public:
  /// `stats` and `now` are the run's and outlive this: the text tells the packet and the time, and
  /// the counts of warnings and errors are kept there.
  reporting(Morvalen::Zel::tsm_stats& stats, const tsm_time& now) : stats_(stats), now_(now) {}
  reporting(const reporting&) = delete;
  reporting& operator=(const reporting&) = delete;

  /// Null prints on standard error.
  void deliver_to(Morvalen::Zel::tsm_error_callback error, void* user);
  void stop_on(bool warnings, bool errors) {
    stopOnWarning_ = warnings;
    stopOnError_ = errors;
  }

  /// Returns, unless StopOnWarning is set.
  void warn(int code, int pid = no_pid, const message_argument& argument = {});
  /// Returns only where StopOnError is off: the caller then carries on as best it can.
  void fatal(int code, int pid = no_pid, const message_argument& argument = {});

 private:
  void deliver(bool isFatal, int code, int pid, const message_argument& argument);

  Morvalen::Zel::tsm_stats& stats_;
  const tsm_time& now_;
  Morvalen::Zel::tsm_error_callback error_ = nullptr;
  void* user_ = nullptr;
  bool stopOnWarning_ = false;
  bool stopOnError_ = true;
};

}  // namespace zel::mux
