#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "zel/mux/engine/input/input_window.h"
#include "zel/mux/engine/input/source_warnings.h"
#include "zel/mux/engine/input/stream_source.h"
#include "zel/mux/engine/input/time_stamp_marks.h"
#include "zel/syntax/pes.h"

namespace zel::mux {

/// One elementary stream out of an MPEG-2 program stream (ISO/IEC 13818-1, 2.5) or an MPEG-1 system
/// stream (ISO/IEC 11172-1): what its packets carry. Damage is told and passed over.
///
/// Private streams of discs hold several streams, each of whose packets begin with the number of
/// its substream and three bytes about its frames. One is taken: that of `subtype`, or where that
/// is 0 and the packets look like those, the first of audio. Below 0 packets are taken as they
/// stand.
class program_stream_source : public stream_source {
 public:
  program_stream_source(std::unique_ptr<stream_source> bytes, int streamId, int subtype,
                        source_fault_function fault);

  int32_t read(uint8_t* to, int32_t room) override;
  int64_t first_pts90k() const override { return firstPts_; }
  std::optional<source_stamp> stamp_at(int64_t position) const override {
    return marks_.at(position);
  }
  std::optional<source_stamp> stamp_from(int64_t position, int64_t dts90k) const override {
    return marks_.from(position, dts90k);
  }
  int64_t first_dts90k() const override { return firstDts_ >= 0 ? firstDts_ : firstPts_; }

 private:
  bool next_packet();
  bool resynchronise();
  bool drop(uint64_t count);
  bool pass_pack_header();
  bool open_packet(size_t size);
  bool enters_substream(size_t& size);

  input_window window_;
  int streamId_;
  int subtype_;
  source_fault_function fault_;
  size_t left_ = 0;  // of the packet being delivered
  bool subtypeKnown_ = false;
  int64_t firstPts_ = -1;
  int64_t firstDts_ = -1;
  int64_t given_ = 0;  // bytes
  time_stamp_marks marks_;
};

}  // namespace zel::mux
