#pragma once

#include <cstdint>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/stream/video_state.h"

/// Time codes of pictures, hh:mm:ss:ff with or without drop frame (SMPTE ST 12-1).

namespace zel::mux {

/// `code` moved on by `frames`, around midnight. `rounded` is the count of frames in a second; with
/// 0 or less nothing is known of the rate, and the code stays.
video_time_code advanced(const video_time_code& code, int64_t frames, int32_t rounded);

/// How many frames `to` stands behind `from`, below 0 where it stands before: by the count of
/// `from`, with or without drop frame. 0 without a frame rate.
int64_t frames_until(const video_time_code& from, const Morvalen::Zel::tsm_time_code& to,
                     int32_t rounded);

/// Whether `code` stands before the time of day that is configured. By the digits: which of the two
/// counts with drop frame makes no difference.
bool is_before(const video_time_code& code, const Morvalen::Zel::tsm_time_code& time);

inline bool is_set(const Morvalen::Zel::tsm_time_code& time) {
  return time.sign != 0;
}

}  // namespace zel::mux
