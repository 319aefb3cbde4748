#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/zel/console.h"

namespace zel::tool {

/// How far a run of frames has come.
struct ProgressState {
  uint64_t done = 0;
  std::optional<uint64_t> total;  ///< nothing when the input can't tell, as a pipe
  double seconds = 0;             ///< since the start
};

/// "120 of 250 frames (48 %), 31.5 frames/s, 0:04 left". What isn't known is left out.
std::string progressText(const ProgressState& state);

/// "4:07", "1:02:03"
std::string durationText(double seconds);

/// Shows the progress of a run as the console's status line, at most ten times a second.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  Progress(Console& console, std::optional<uint64_t> total);
  /// Takes the line away.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(uint64_t done);
  /// Since the start.
  double seconds() const;

 private:
  Console& console_;
  std::optional<uint64_t> total_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point next_ = start_;
};

}  // namespace zel::tool
