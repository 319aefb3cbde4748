#include "zel/dnxhd/encoder/job_plan.h"

#include <algorithm>
#include <bit>

namespace zel::dnxhd {

namespace {

constexpr uint32_t kMostJobs = 8;

struct RowCut {
  uint32_t frameRows;
  uint32_t jobs;
  uint8_t rows[kMostJobs];
};

// Cut so that of 68 rows the first half of the jobs has the first field.
constexpr RowCut kRowCuts[] = {
    {45, 1, {45}}, {45, 2, {23, 22}}, {45, 4, {12, 11, 11, 11}}, {45, 8, {6, 6, 6, 6, 6, 5, 5, 5}},
    {68, 1, {68}}, {68, 2, {34, 34}}, {68, 4, {17, 17, 17, 17}}, {68, 8, {9, 9, 8, 8, 9, 9, 8, 8}},
};

constexpr bool CutsAddUp() {
  for (const RowCut& cut : kRowCuts) {
    uint32_t sum = 0;
    for (const uint8_t rows : cut.rows) sum += rows;
    if (sum != cut.frameRows) return false;
  }
  return true;
}
static_assert(CutsAddUp());

std::span<const uint8_t> RowsOf(uint32_t frameRows, uint32_t jobs) {
  for (const RowCut& cut : kRowCuts) {
    if (cut.frameRows == frameRows && cut.jobs == jobs) return {cut.rows, jobs};
  }
  return {};
}

}  // namespace

bool MakeJobPlan(const PictureGeometry& geometry, int32_t threads, JobPlan& plan) {
  plan.threads = static_cast<uint32_t>(std::max(threads, 1));
  plan.searchHandlers = std::min(plan.threads, kMostJobs);
  const uint32_t powerOfTwo = std::bit_floor(plan.searchHandlers);
  const uint32_t frameRows = geometry.mbRows * geometry.pictures;
  plan.transformRows = RowsOf(frameRows, std::max(powerOfTwo, geometry.pictures));
  plan.writeRows = plan.transformRows;
  plan.searchJobs = powerOfTwo;
  plan.jobsPerField = powerOfTwo;
  if (geometry.pictures == 2) {
    if (powerOfTwo == 1) {
      plan.searchJobs = 2;
    } else {
      plan.jobsPerField = powerOfTwo / 2;
    }
  }
  return !plan.transformRows.empty();
}

}  // namespace zel::dnxhd
