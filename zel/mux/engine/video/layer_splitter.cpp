#include "zel/mux/engine/video/layer_splitter.h"

#include <algorithm>
#include <array>

#include "zel/mux/engine/video/unit_search.h"
#include "zel/syntax/avc_nal.h"

namespace zel::mux {

namespace {

constexpr int64_t kPrefixSize = 3;
constexpr int kSlowLoads = 1000;  // empty answers of a source that hasn't ended

}  // namespace

int32_t layer_splitter::read(uint8_t* to, int32_t room) {
  for (;;) {
    const int64_t ready = known_ - raw_.read_position();
    if (ready > 0 && to_ == destination::base) {
      const auto count = static_cast<int32_t>(std::min<int64_t>(ready, room));
      raw_.take(to, count);
      basePosition_ += count;
      return count;
    }
    if (ready > 0) {
      move_to_dependent(ready);
      continue;
    }
    if (!find_unit()) return 0;
  }
}

// Learns where the next bytes go. False at the end of the source.
bool layer_splitter::find_unit() {
  for (;;) {
    int64_t resume = 0;
    const int64_t prefix = find_start_code(raw_, search_, resume);
    if (prefix < 0) {
      // The last bytes may begin a start code, with its zero byte before.
      search_ = resume;
      known_ = raw_.ended() ? raw_.end_position() : raw_.end_position() - kPrefixSize;
      if (known_ > raw_.read_position()) return true;
      if (!load_more() && raw_.ended() && raw_.filled() == 0) return false;
      continue;
    }
    const bool zeroByte = prefix > raw_.read_position() && raw_.at(prefix - 1) == 0;
    const int64_t start = zeroByte ? prefix - 1 : prefix;
    if (start > raw_.read_position()) {
      known_ = search_ = start;
      return true;
    }
    if (raw_.end_position() - prefix <= kPrefixSize) {
      if (load_more()) continue;
      known_ = search_ = raw_.end_position();
      return raw_.filled() > 0;
    }
    begin_unit(start, prefix);
    return true;
  }
}

bool layer_splitter::load_more() {
  if (raw_.room() == 0) raw_.grow(raw_.capacity() * 2);
  for (int i = 0; i < kSlowLoads && !raw_.ended(); ++i) {
    if (raw_.load()) return true;
  }
  raw_.finish();
  return false;
}

void layer_splitter::begin_unit(int64_t, int64_t prefix) {
  const int type = raw_.at(prefix + kPrefixSize) & 0x1F;
  switch (type) {
    case syntax::kAvcPrefix:
    case syntax::kAvcSubsetSps:
      to_ = destination::before_slice;
      break;
    case syntax::kAvcSliceExtension:
      to_ = destination::with_picture;
      sawExtension_ = true;
      break;
    default:
      to_ = destination::base;
      break;
  }
  known_ = search_ = prefix + kPrefixSize + 1;
}

void layer_splitter::move_to_dependent(int64_t count) {
  std::array<uint8_t, 4096> piece;
  while (count > 0) {
    const auto size = static_cast<int32_t>(std::min<int64_t>(count, piece.size()));
    if (dependent_.room() < size) dependent_.grow(dependent_.capacity() * 2 + size);
    raw_.take(piece.data(), size);
    dependent_.append({piece.data(), static_cast<size_t>(size)});
    count -= size;
  }
  const int64_t end = dependent_.end_position();
  if (!marks_.empty() && marks_.back().basePosition == basePosition_ && marks_.back().kind == to_) {
    marks_.back().dependentEnd = end;
  } else {
    marks_.push_back({basePosition_, end, to_});
  }
}

// What stands right at the end of the base layer's part belongs to the access unit if it's coded
// picture data; what prepares a slice is the next one's.
int64_t layer_splitter::dependent_end(int64_t basePosition) {
  while (!marks_.empty()) {
    const mark& next = marks_.front();
    if (next.basePosition > basePosition) break;
    if (next.basePosition == basePosition && next.kind == destination::before_slice) break;
    dependentEnd_ = next.dependentEnd;
    marks_.pop_front();
  }
  return dependentEnd_;
}

}  // namespace zel::mux
