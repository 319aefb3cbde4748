#include "zel/mux/engine/video/group_place.h"

#include <algorithm>

namespace zel::mux {

void group_place::begin_group() {
  pictures_.clear();
  olderPictures_ = olderFields_ = 0;
}

int64_t group_place::expected_fields(int64_t pictures) const {
  if (lately_.empty()) return 2 * pictures;
  int64_t sum = 0;
  for (size_t i = 0; i < lately_.size(); ++i) sum += lately_[i];
  return pictures * sum / static_cast<int64_t>(lately_.size());
}

int64_t group_place::frames_before(int32_t temporalReference, int32_t fields) {
  if (!pictures_.empty() && pictures_.back().temporalReference == temporalReference) {
    pictures_.back().fields += fields;
    lately_.back() += fields;
    return frames_;
  }
  int64_t before = olderPictures_;
  int64_t shown = olderFields_;
  for (size_t i = 0; i < pictures_.size(); ++i) {
    if (pictures_[i].temporalReference >= temporalReference) continue;
    ++before;
    shown += pictures_[i].fields;
  }
  shown += expected_fields(std::max<int64_t>(temporalReference - before, 0));
  frames_ = shown / 2;

  if (pictures_.full()) {
    ++olderPictures_;
    olderFields_ += pictures_.front().fields;
    pictures_.pop();
  }
  pictures_.push({temporalReference, fields});
  if (lately_.full()) lately_.pop();
  lately_.push(fields);
  return frames_;
}

}  // namespace zel::mux
