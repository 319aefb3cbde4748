#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/mux/engine/stream/fixed_ring.h"

/// Which time stamp belongs to which byte of a stream that is taken out of a multiplex.

namespace zel::mux {

/// Remembers the PTS of the latest PES packets, and where their payloads begin: enough of them to
/// look back from where a source has been read to over what its reader holds. Allocates nothing.
class time_stamp_marks {
 public:
  void note(int64_t position, int64_t pts90k) {
    if (pts90k < 0) return;
    if (marks_.full()) marks_.pop();
    marks_.push({position, pts90k});
  }
  /// The PTS of the last PES packet that begins at `position` or before; -1 where none is known.
  int64_t at(int64_t position) const {
    for (size_t i = marks_.size(); i > 0; --i) {
      if (marks_[i - 1].position <= position) return marks_[i - 1].pts90k;
    }
    return -1;
  }

 private:
  struct mark {
    int64_t position = 0;
    int64_t pts90k = 0;
  };
  fixed_ring<mark, 2048> marks_;
};

}  // namespace zel::mux
