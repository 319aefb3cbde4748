#include "zel/mux/engine/video/display_order.h"

#include <algorithm>

#include "zel/mux/engine/clock/tsm_time.h"

namespace zel::mux {

namespace {

constexpr int32_t kFieldsOfFrame = 2;

// Of an anchor: the fields of a B picture are shown as they come.
bool are_fields_of_one(const access_unit& first, const access_unit& second) {
  return first.fieldStructure != kWholeFrame && second.fieldStructure != kWholeFrame &&
         first.fieldStructure != second.fieldStructure && first.pictureType != kPictureB &&
         !first.timed;
}

bool begins_group(const access_unit& unit) {
  return unit.beginsOrder;
}

size_t group_end(const unit_queue& units, size_t index) {
  size_t end = index + 1;
  while (end < units.size() && !begins_group(units[end])) ++end;
  return end;
}

}  // namespace

void mpeg_display_order::show_anchor(unit_queue& units, size_t before, double pts,
                                     double framePeriod) {
  size_t index = before;
  while (index > 0 && units[index - 1].pictureType == kPictureB) --index;
  if (index == 0 || units[index - 1].timed) return;
  access_unit& anchor = units[index - 1];
  anchor.pts = pts;
  anchor.timed = true;
  if (index < 2 || !are_fields_of_one(units[index - 2], anchor)) return;
  units[index - 2].pts = pts;
  units[index - 2].timed = true;
  anchor.pts = normalise(pts + framePeriod / 2);
}

void mpeg_display_order::enqueued(unit_queue& units, double framePeriod) {
  access_unit& unit = units.back();
  unit.pts = unit.dts;
  if (unit.pictureType == kPictureB || lowDelay_) {
    unit.timed = true;
    return;
  }
  const size_t last = units.size() - 1;
  // The second field of an anchor goes with the first; both wait for the next anchor.
  pairWhole_ = !pairWhole_ && last > 0 && are_fields_of_one(units[last - 1], unit);
  if (!pairWhole_) show_anchor(units, last, unit.dts, framePeriod);
}

void mpeg_display_order::show_newest(unit_queue& units, double delay) {
  access_unit& unit = units.back();
  if (unit.timed) return;
  unit.pts = normalise(unit.dts + delay);
  unit.timed = true;
}

void mpeg_display_order::finish(unit_queue& units, double nextDts, double framePeriod) {
  show_anchor(units, units.size(), nextDts, framePeriod);
}

bool poc_display_order::take_depth_changed() {
  const bool changed = changed_;
  changed_ = false;
  return changed;
}

void poc_display_order::enter_group() {
  decodedFields_ = olderFields_ = 0;
  recentPocs_.clear();
  recentFields_.clear();
}

// The display position of a unit less its decoding position; `later` counts the units seen that are
// shown with or after it. The two fields of a frame may have the same POC (ITU-T H.264, 8.2.1):
// then they are shown as they are decoded.
int64_t poc_display_order::offset_of(const unit_queue& units, size_t index, size_t groupEnd,
                                     int32_t& later) const {
  const int64_t poc = units[index].poc;
  int64_t shown = olderFields_;
  later = 0;
  for (size_t i = 0; i < recentPocs_.size(); ++i) {
    if (recentPocs_[i] <= poc) {
      shown += recentFields_[i];
    } else {
      ++later;
    }
  }
  for (size_t i = index; i < groupEnd; ++i) {
    if (units[i].poc < poc) {
      shown += units[i].fieldCount;
    } else {
      ++later;
    }
  }
  return shown - decodedFields_;
}

void poc_display_order::leave_behind(const access_unit& unit) {
  if (recentPocs_.full()) {
    olderFields_ += recentFields_.front();
    recentPocs_.pop();
    recentFields_.pop();
  }
  recentPocs_.push(unit.poc);
  recentFields_.push(unit.fieldCount);
  decodedFields_ += unit.fieldCount;
}

// Before anything is timed: the depth that the units so far need, so that it needn't grow later.
void poc_display_order::learn_depth(const unit_queue& units, bool ended) {
  int32_t longest = kFieldsOfFrame;  // that a frame is shown
  for (size_t index = 0; index < units.size(); ++index) {
    if (begins_group(units[index])) enter_group();
    const size_t end = group_end(units, index);
    int32_t later = 0;
    const int64_t offset = offset_of(units, index, end, later);
    const bool settled = ended || end < units.size() || later > maxReorder_;
    if (settled) depth_ = std::max(depth_, static_cast<int32_t>(-offset));
    longest = std::max(longest, units[index].fieldCount);
    leave_behind(units[index]);
  }
  // A stream may begin with less reordering than it has later, pairs of B pictures before pyramids
  // of them. That it says so is believed for one frame more: many say far more than they use, and
  // those without any reordering are shown as they are decoded.
  if (depth_ > 0) {
    const int32_t seen = (depth_ + longest - 1) / longest;  // frames
    depth_ = std::max(depth_, std::min(toldFrames_, seen + 1) * longest);
  }
  enter_group();
}

size_t poc_display_order::sort_by_poc(unit_queue& units, double halfPeriod, bool ended) {
  if (!anyTimed_) {
    // The pictures of one reordering and as many behind it, which show that it is one.
    if (!ended && units.size() < 2 * static_cast<size_t>(maxReorder_) + 2) return 0;
    learn_depth(units, ended);
  }
  size_t index = 0;
  while (index < units.size() && units[index].timed) ++index;
  size_t timed = 0;
  for (; index < units.size(); ++index, ++timed) {
    access_unit& unit = units[index];
    if (begins_group(unit)) enter_group();
    const size_t end = group_end(units, index);
    int32_t later = 0;
    const int64_t offset = offset_of(units, index, end, later);
    if (!ended && end == units.size() && later <= maxReorder_) break;
    if (offset + depth_ < 0) {
      changed_ = true;
      depth_ = static_cast<int32_t>(-offset);
    }
    leave_behind(unit);
    unit.pts = normalise(unit.dts + static_cast<double>(offset + depth_) * halfPeriod);
    unit.timed = true;
    anyTimed_ = true;
  }
  return timed;
}

}  // namespace zel::mux
