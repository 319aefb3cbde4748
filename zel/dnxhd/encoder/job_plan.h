#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/dnxhd/bitstream/frame_header.h"

// How a frame is cut into jobs. The cut follows the thread count, and with it the bits that each
// share of a picture gets: the same frame encoded with the same job count gives the same bytes
// whatever the threads do, but another job count may give others.

namespace zel::dnxhd {

struct JobPlan {
  uint32_t threads;         // handlers of the stages 1 and 3
  uint32_t searchHandlers;  // of stage 2
  std::span<const uint8_t>
      transformRows;                   // macroblock rows of each job of stage 1, fields in order
  uint32_t searchJobs;                 // of stage 2, all pictures
  uint32_t jobsPerField;               // of stage 2, for each picture
  std::span<const uint8_t> writeRows;  // macroblock rows of each job of stage 3
};

/// @return false for a frame that has neither 45 nor 68 macroblock rows; `threads` below 1 counts
/// as 1.
bool MakeJobPlan(const PictureGeometry& geometry, int32_t threads, JobPlan& plan);

}  // namespace zel::dnxhd
