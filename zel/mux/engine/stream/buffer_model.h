#pragma once

#include <cstdint>

#include "zel/mux/engine/stream/fixed_ring.h"

namespace zel::mux {

/// At `time`, in 27 MHz ticks within the wrap, `size` bytes leave the decoder's buffer.
struct removal_event {
  double time;
  int32_t size;
};

/// The transport buffer in front of every decoder (TBn and TBsys), bytes.
inline constexpr double kTransportBufferBytes = 512;

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
  /// In VBR: how many units of `removals`, the first ones, were whole in the buffer at the last
  /// PCR. Of what came since then it isn't known how late receivers take it to come.
  size_t wholeAtClock = 0;
  fixed_ring<removal_event, kRemovalEvents> removals;
};

/// PES headers that stand in a main buffer between its data, which no model of data alone sees.
/// They leave with the access unit that follows them (ISO/IEC 13818-1, 2.4.2.3).
class pes_header_bytes {
 public:
  int32_t level() const { return level_; }
  /// `data` bytes came in, behind a header of `header` bytes if that isn't 0.
  void add(int32_t header, int32_t data) {
    if (header > 0 && headers_.full()) {
      headers_.back().bytes += header;
    } else if (header > 0) {
      headers_.push({dataIn_, header});
    }
    level_ += header;
    dataIn_ += data;
  }
  /// `dataLevel` bytes of data are left in the buffer.
  void leave(int64_t dataLevel) {
    while (!headers_.empty() && headers_.front().place < dataIn_ - dataLevel) {
      level_ -= headers_.front().bytes;
      headers_.pop();
    }
  }

 private:
  struct counted_header {
    int64_t place = 0;  // in the data
    int32_t bytes = 0;
  };
  fixed_ring<counted_header, 256> headers_;
  int64_t dataIn_ = 0;
  int32_t level_ = 0;
};

}  // namespace zel::mux
