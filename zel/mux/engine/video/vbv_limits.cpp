#include "zel/mux/engine/video/vbv_limits.h"

namespace zel::mux {

namespace {

struct vbv_row {
  int32_t indication;  // profile_and_level_indication as a byte
  int32_t bytes;
};

// clang-format off
constexpr vbv_row kLimits[] = {
    {0x58,  229376},                                                  // Simple
    {0x44, 1222656}, {0x46,  917504}, {0x48,  229376}, {0x4A,  59392},  // Main
    {0x38,  229376}, {0x3A,   59392},                                 // SNR scalable
    {0x26,  917504},                                                  // spatially scalable
    {0x14, 1527808}, {0x16, 1222656}, {0x18,  305152},                // High
    // With the escape bit: 4:2:2 and multi-view.
    {0x82, 5898240}, {0x85, 1179648},
    {0x8A, 1987310}, {0x8B, 1527808}, {0x8D,  380928}, {0x8E, 118784},
};
// clang-format on

}  // namespace

int32_t max_vbv_bytes(bool escape, int32_t profile, int32_t level) {
  const int32_t indication = (escape ? 0x80 : 0) | (profile & 7) << 4 | (level & 15);
  for (const vbv_row& row : kLimits) {
    if (row.indication == indication) return row.bytes;
  }
  return 0;
}

}  // namespace zel::mux
