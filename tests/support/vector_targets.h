#pragma once

// Some kernels have code for this one, too.
#define HWY_WANT_AVX3_DL
#include <hwy/targets.h>

#include <cstdint>

namespace zel::test {

/// Calls visit(name) with the vector code of each instruction set that this machine runs, one after
/// the other, and leaves the best one chosen.
template <typename Visit>
void forEachVectorTarget(Visit visit) {
  hwy::SetSupportedTargetsForTest(0);
  for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
    hwy::SetSupportedTargetsForTest(left & -left);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    visit(hwy::TargetName(left & -left));
    hwy::SetSupportedTargetsForTest(0);
  }
  hwy::GetChosenTarget().DeInit();
}

}  // namespace zel::test
