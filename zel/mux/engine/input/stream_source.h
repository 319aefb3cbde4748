#pragma once

#include <cstdint>
#include <optional>

#include "zel/mux/engine/input/source_tables.h"
#include "zel/mux/engine/input/time_stamp_marks.h"

namespace zel::mux {

/// Where the bytes of one elementary stream come from: files, or one stream of a transport or
/// program stream. One source feeds one buffer; calls come on the run's thread.
class stream_source {
 public:
  virtual ~stream_source() = default;

  /// Puts up to `room` bytes of elementary stream at `to`. 0 only at the true end; room is above 0.
  virtual int32_t read(uint8_t* to, int32_t room) = 0;

  /// How many bytes a read may well ask for, as far as there is room, because so many come at once
  /// and cost less than in pieces. 0: no more than is needed, since they may have to be waited for.
  virtual int32_t ready_bytes() const { return 0; }

  /// Where, in the bytes that were read, a file began behind another one. Each place is told once,
  /// in order; -1: no further.
  virtual int64_t take_transition() { return -1; }

  /// The first time stamp of the stream in its source, in 90 kHz ticks, or -1: elementary files
  /// have none. Valid after the first read.
  virtual int64_t first_pts90k() const { return -1; }
  /// The PES packet that what begins at byte `position` of the stream came in: the last one that
  /// begins there or before. Nothing where it isn't known any more, or never was.
  virtual std::optional<source_stamp> stamp_at(int64_t position) const {
    static_cast<void>(position);
    return std::nullopt;
  }
  /// The first PES packet behind byte `position` that isn't decoded before `dts90k`, as far as the
  /// source has been read.
  virtual std::optional<source_stamp> stamp_from(int64_t position, int64_t dts90k) const {
    static_cast<void>(position);
    static_cast<void>(dts90k);
    return std::nullopt;
  }
  /// What the multiplex says of the stream, as far as it has been looked at. After the first read.
  virtual std::optional<source_description> description() { return std::nullopt; }
  /// The stream's first DTS in its source, where it has one; otherwise the PTS.
  virtual int64_t first_dts90k() const { return first_pts90k(); }
};

}  // namespace zel::mux
