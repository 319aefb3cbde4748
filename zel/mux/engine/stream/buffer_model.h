#pragma once

#include <cstdint>

#include "zel/mux/engine/stream/fixed_ring.h"

namespace zel::mux {

/// At `time`, in 27 MHz ticks within the wrap, `size` bytes leave the decoder's buffer.
struct removal_event {
  double time;
  int32_t size;
};

inline constexpr size_t kRemovalEvents = 1299;

/// The decoder's buffer of one stream as the engine simulates it (ISO/IEC 13818-1, 2.4.2).
struct buffer_model {
  int64_t level = 0;   // bytes in the buffer now
  int64_t limit = 0;   // what may be filled
  int64_t peak = 0;    // highest level seen, at a removal
  int64_t lowest = 0;  // lowest level seen, after a removal
  bool lowestKnown = false;
  /// In VBR: bytes removed since the last PCR. Packets may come before the place that the engine
  /// gave them, up to that PCR: they find the buffer as full as it was then.
  bool holdsBack = false;
  int64_t heldBack = 0;
  fixed_ring<removal_event, kRemovalEvents> removals;
};

}  // namespace zel::mux
