#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/mux/engine/stream/video_state.h"

/// From decoding order to the times of display. Both orderings work on the tail of the queue: units
/// whose `dts` is set and whose `timed` isn't yet.

namespace zel::mux {

using unit_queue = fixed_ring<access_unit, kAccessUnits>;

/// MPEG-1 and MPEG-2 (ISO/IEC 13818-2, 6.1.1.11): a B picture is shown when it's decoded, an anchor
/// when the next anchor is decoded.
class mpeg_display_order {
 public:
  /// `lowDelay`: the stream has no B pictures, what is decoded is shown at once.
  explicit mpeg_display_order(bool lowDelay = false) : lowDelay_(lowDelay) {}
  void set_low_delay(bool lowDelay) { lowDelay_ = lowDelay; }

  /// The newest unit of the queue is complete, its DTS is set.
  void enqueued(unit_queue& units, double framePeriod);
  /// Shows the newest unit that long after it's decoded instead of waiting for the next anchor.
  void show_newest(unit_queue& units, double delay);
  /// No more units come: what waits gets `nextDts`, the time that one more anchor would have had.
  void finish(unit_queue& units, double nextDts, double framePeriod);

 private:
  void show_anchor(unit_queue& units, size_t before, double pts, double framePeriod);

  bool lowDelay_;
  bool pairWhole_ = false;  // the newest anchor is the second field of its frame
};

/// AVC and HEVC: the pictures between two that reset the count are shown in the order of their
/// POC. A unit is timed as soon as no unit that has yet to come can be shown before it, for which
/// `maxReorder` units that are shown later have to be there.
class poc_display_order {
 public:
  /// `depth`: the delay between decoding and display in half frame periods to begin with; it grows
  /// where a unit would be shown before it's decoded. `toldFrames`: how many frames the stream says
  /// that it reorders at the most; 0: it says nothing.
  void configure(int32_t maxReorder, int32_t depth, int32_t toldFrames = 0) {
    maxReorder_ = maxReorder;
    depth_ = depth;
    toldFrames_ = toldFrames;
  }
  int32_t depth() const { return depth_; }

  /// Times what can be timed. `ended`: no more units come, all are timed. `halfPeriod` in ticks.
  /// @return how many units were timed.
  size_t sort_by_poc(unit_queue& units, double halfPeriod, bool ended);
  /// Whether the depth has grown after units were timed with a smaller one; asking clears it.
  bool take_depth_changed();

 private:
  void enter_group();
  int64_t offset_of(const unit_queue& units, size_t index, size_t groupEnd, int32_t& later) const;
  void leave_behind(const access_unit& unit);
  void learn_depth(const unit_queue& units, bool ended);

  int32_t maxReorder_ = 16;
  int32_t depth_ = 0;
  int32_t toldFrames_ = 0;
  bool anyTimed_ = false;
  bool changed_ = false;
  // Of the group that the oldest untimed unit is in, half frame periods decoded before that unit.
  int64_t decodedFields_ = 0;
  fixed_ring<int64_t, 64> recentPocs_;  // with recentFields_: timed units of the group
  fixed_ring<int32_t, 64> recentFields_;
  int64_t olderFields_ = 0;  // of timed units too old to stand in the ring: all shown before
};

}  // namespace zel::mux
