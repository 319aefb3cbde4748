#include "tools/zel/testsrc/storyboard.h"

#include <algorithm>

#include "tools/zel/testsrc/fixed_math.h"

namespace zel::testsrc {
namespace {

constexpr int kKinds = 5;
constexpr int64_t kDissolve = 65536 / 2;
constexpr int64_t kFade = 65536 * 2 / 5;  // to black, and as long out of it

}  // namespace

// The kinds come in turn, with a stride of the seed's choice, so that none follows itself and five
// shots show them all; three cuts of five are plain.
void Storyboard::extend() {
  const size_t index = shots_.size();
  Draws draws(mix64(seed_, 0x73686F74, index));
  const auto start = within(mix64(seed_, 1), kKinds);
  const auto stride = 1 + within(mix64(seed_, 2), kKinds - 1);
  constexpr int kGrains[] = {0, 96, 160, 256};
  Shot shot;
  shot.kind = static_cast<SceneKind>((start + index * stride) % kKinds);
  shot.seed = draws.any();
  shot.begin = index == 0 ? 0 : shots_.back().end;
  shot.end = shot.begin + draws.between(65536 * 3 / 2, 65536 * 4);
  const uint32_t ending = draws.below(5);
  shot.ending = ending < 3    ? Transition::kCut
                : ending == 3 ? Transition::kDissolve
                              : Transition::kThroughBlack;
  shot.grain = kGrains[draws.below(std::size(kGrains))];
  shots_.push_back(shot);
}

const Shot& Storyboard::shot(size_t index) {
  while (shots_.size() <= index) extend();
  return shots_[index];
}

Moment Storyboard::at(int64_t time) {
  while (shots_.empty() || shots_.back().end <= time) extend();
  const auto found = std::partition_point(shots_.begin(), shots_.end(),
                                          [&](const Shot& each) { return each.end <= time; });
  Moment moment;
  moment.shot = static_cast<size_t>(found - shots_.begin());
  const int64_t left = found->end - time;
  const int64_t since = time - found->begin;
  if (found->ending == Transition::kDissolve && left < kDissolve) {
    moment.nextShare = static_cast<int>((kDissolve - left) * 256 / kDissolve);
  }
  if (found->ending == Transition::kThroughBlack && left < kFade) {
    moment.brightness = static_cast<int>(left * 256 / kFade);
  }
  const bool outOfBlack = moment.shot > 0 && (found - 1)->ending == Transition::kThroughBlack;
  if (outOfBlack && since < kFade) {
    moment.brightness = std::min(moment.brightness, static_cast<int>(since * 256 / kFade));
  }
  return moment;
}

}  // namespace zel::testsrc
