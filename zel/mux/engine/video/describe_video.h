#pragma once

#include <cstdint>

#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

/// Bits of the mask of automatic descriptors.
enum video_descriptor_mask : int32_t {
  kDescribeAvc = 1 << 5,
  kDescribeAdaptationData = 1 << 6,
};

/// Completes the stream's line in the PMT and its PES id where they are 0, after discover_video.
/// The descriptors of the configuration have to stand in `pmt` already: automatic ones come behind,
/// unless they are there. `mask` 0 adds none.
void describe_video(video_state& state, int32_t mask);

/// stream_type of ISO/IEC 13818-1, table 2-34; 0 for an unknown coding.
uint8_t video_stream_type(video_coding coding);

}  // namespace zel::mux
