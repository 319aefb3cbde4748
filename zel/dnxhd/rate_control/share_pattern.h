#pragma once

#include <cstdint>
#include <span>

// How the macroblocks of a picture are dealt out to jobs. Not in bands: each job takes a regular
// pattern, so that every job sees a like sample of the picture, and an equal share of the bits is
// fair.

namespace zel::dnxhd {

/// The patterns for one number of jobs: for each job `length` start columns, one for each row,
/// round and round. From there a job takes every `jobs`th column.
struct SharePattern {
  uint32_t jobs;
  uint32_t length;
  std::span<const uint16_t> starts;  // jobs * length

  uint32_t Start(uint32_t job, uint32_t row) const { return starts[job * length + row % length]; }
};

/// Null unless `jobs` is 1, 2, 4 or 8.
const SharePattern* FindSharePattern(uint32_t jobs);

/// Calls visit(index) for the macroblocks of a job, row by row.
template <typename Visit>
void ForEachOfShare(const SharePattern& pattern, uint32_t job, uint32_t mbRows, uint32_t mbCols,
                    Visit visit) {
  for (uint32_t row = 0; row < mbRows; ++row) {
    for (uint32_t column = pattern.Start(job, row); column < mbCols; column += pattern.jobs) {
      visit(row * mbCols + column);
    }
  }
}

}  // namespace zel::dnxhd
