#pragma once

#include <cstdint>

#include "zel/base/export.h"

/// What a run of the multiplexer tells of its streams and of its packets, besides the counters of
/// tsm_stats: for summaries, plots and tests.

namespace Morvalen::Zel {

struct tsm_handle;  // zel/mux/engine/engine.h

/// The kind of a stream of a run.
enum tsm_stream_kind : int32_t {
  tsm_stream_null = 0,  ///< stuffing; of trace events only
  tsm_stream_psi = 1,
  tsm_stream_video = 2,
  tsm_stream_audio = 3,
  tsm_stream_data = 4,
  tsm_stream_smpte302m = 5,
  tsm_stream_table = 6,
  tsm_stream_private = 7,
  tsm_stream_scte35 = 8,
  tsm_stream_pcr_only = 9,
  tsm_stream_lpcm = 12,
};

/// One stream of a run. Sizes are bytes, rates bits a second.
struct tsm_stream_stats {
  int32_t pid = 0;
  int32_t programNumber = 0;  ///< 0 for what belongs to no program
  int32_t kind = tsm_stream_null;
  int32_t streamType = 0;          ///< of the PMT line; 0 where the stream has none
  char const* coding = "";         ///< for people: "AVC", "MPEG audio layer II", "PAT"; static
  bool carriesPcr = false;         ///< the clock of its program
  int64_t packets = 0;             ///< that went out, without those of VBR's store
  double rate = 0;                 ///< of its transport packets, as scheduled
  double elementaryRate = 0;       ///< of the elementary stream, as its headers or keys say; or 0
  int64_t bufferLimit = 0;         ///< what of the decoder's buffer may be filled; 0: no model
  int64_t bufferPeak = 0;          ///< highest level of the model
  int64_t bufferLowest = 0;        ///< lowest level after a removal; negative: an underflow
  bool bufferLowestKnown = false;  ///< whether anything has been removed yet
};

/// Copies what stands of stream `index`, from 0; valid between tsm_open and tsm_close.
/// @return 0; negative when there is no such stream, and `stats` is then untouched.
ZEL_API int32_t tsm_get_stream_stats(tsm_handle const* handle, int32_t index,
                                     tsm_stream_stats* stats) noexcept;

/// A packet that takes its place on the time line.
struct tsm_trace_event {
  int64_t packet = 0;  ///< counted on the time line, from 0
  double time = 0;     ///< of its first byte, 27 MHz ticks within the 33-bit clock's wrap
  int32_t pid = 0;     ///< 0x1FFF: stuffing
  int32_t kind = tsm_stream_null;
  bool hasPcr = false;
  bool unitStart = false;    ///< payload_unit_start_indicator
  int64_t bufferLevel = -1;  ///< of the stream's decoder, with this packet in it; -1: no model
  int64_t bufferLimit = 0;
};

/// Told of every packet, on the thread of tsm_run, in the order of the time line.
typedef void (*tsm_trace_callback)(void* user, tsm_trace_event const* event);

/// Sets, or with null takes away, the trace of a run. Not while tsm_run runs. A run without a trace
/// pays one test a packet for it.
ZEL_API void tsm_set_trace(tsm_handle* handle, tsm_trace_callback trace, void* user) noexcept;

}  // namespace Morvalen::Zel
