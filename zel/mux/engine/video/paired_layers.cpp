#include "zel/mux/engine/video/paired_layers.h"

#include "zel/mux/engine/input/stream_source.h"

namespace zel::mux {

namespace {

constexpr int32_t kMostInput = 1 << 29;
constexpr int kSlowLoads = 1000;  // empty answers of a source that hasn't ended

}  // namespace

bool paired_layers::load_more() {
  if (dependent_.room() == 0) {
    if (dependent_.capacity() >= kMostInput) return false;
    dependent_.grow(dependent_.capacity() * 2);
  }
  for (int i = 0; i < kSlowLoads && !dependent_.ended(); ++i) {
    if (dependent_.load()) return true;
  }
  return false;
}

// Where what is decoded at that time or later begins.
int64_t paired_layers::position_of(int64_t dts90k) {
  while (true) {
    const auto found = dependent_.source()->stamp_from(dependentEnd_ - 1, dts90k);
    if (found) return found->position;
    if (!load_more()) return dependent_.end_position();
  }
}

int64_t paired_layers::dependent_end(int64_t basePosition) {
  // A zero byte in front of a start code may have been the end of the PES packet before.
  const auto next = base_.source()->stamp_at(basePosition + 1);
  const bool begins = next && next->position > unitStart_ + 1;
  unitStart_ = basePosition;
  if (begins) {
    dependentEnd_ = position_of(next->dts90k);
  } else if (base_.ended() && basePosition == base_.end_position()) {
    while (load_more()) continue;  // the last one has all the rest
    dependentEnd_ = dependent_.end_position();
  }
  return dependentEnd_;
}

}  // namespace zel::mux
