#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "zel/base/media_clock.h"
#include "zel/mux/engine/stream/fixed_ring.h"

/// Which time stamp belongs to which byte of a stream that is taken out of a multiplex.

namespace zel::mux {

/// A PES packet that has time stamps, 90 kHz ticks.
struct source_stamp {
  int64_t position = 0;  // of its payload, in the stream
  int64_t pts90k = 0;
  int64_t dts90k = 0;  // the PTS where it has none
};

/// Remembers the latest PES packets, and where their payloads begin: enough of them to look back
/// from where a source has been read to over what its reader holds. Allocates nothing.
class time_stamp_marks {
 public:
  void note(int64_t position, int64_t pts90k, int64_t dts90k) {
    if (pts90k < 0) return;
    if (marks_.full()) marks_.pop();
    marks_.push({position, pts90k, dts90k >= 0 ? dts90k : pts90k});
  }
  /// The last PES packet that begins at `position` or before.
  std::optional<source_stamp> at(int64_t position) const {
    for (size_t i = marks_.size(); i > 0; --i) {
      if (marks_[i - 1].position <= position) return marks_[i - 1];
    }
    return std::nullopt;
  }
  /// The first PES packet behind `position` that isn't decoded before `dts90k`.
  std::optional<source_stamp> from(int64_t position, int64_t dts90k) const {
    for (size_t i = 0; i < marks_.size(); ++i) {
      const source_stamp& each = marks_[i];
      if (each.position > position && base::difference90k(each.dts90k, dts90k) >= 0) return each;
    }
    return std::nullopt;
  }

 private:
  fixed_ring<source_stamp, 2048> marks_;
};

}  // namespace zel::mux
