#pragma once

#include <cstdint>

namespace zel::mux {

/// The most bytes that the decoder's buffer of an MPEG-2 stream may have: ISO/IEC 13818-2, table
/// 8-14, by the fields of profile_and_level_indication. 0: a point that isn't defined.
int32_t max_vbv_bytes(bool escape, int32_t profile, int32_t level);

}  // namespace zel::mux
