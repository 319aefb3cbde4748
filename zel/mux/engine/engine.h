#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/mux/engine/callbacks.h"

/// The engine that multiplexes a configuration into an MPEG-2 transport stream (ISO/IEC 13818-1).
/// It simulates the receivers' buffers packet by packet, so that what comes out obeys the T-STD.
/// One run is one handle: tsm_open, tsm_run until it is done, tsm_get_stats, tsm_close, all on one
/// thread. Several handles may run at once on several threads; only the callbacks and the read
/// granularity belong to the process.

namespace Morvalen::Zel {

struct tsm_config;  // zel/mux/engine/configuration/configuration.h
struct tsm_handle;  // one run

/// Installs the callbacks of the process. Null selects the built-in: a writer of the configured
/// files, a printer on standard error, a reader of the streams' files; no progress, no block end.
/// A run takes them when it is opened. May be called on any thread; a run that is being opened
/// takes the former callbacks or these.
ZEL_API void tsm_set_callbacks(tsm_progress_callback progress, tsm_write_callback write,
                               tsm_error_callback error, tsm_load_callback load,
                               tsm_block_end_callback blockEnd) noexcept;

/// Builds a run: opens inputs, reads the streams' heads, works out rates and PSI. `config` is
/// borrowed until tsm_close. The transport rate in bits per second goes to `outRate` unless null.
/// @return null after a fatal message.
ZEL_API tsm_handle* tsm_open(tsm_config* config, int32_t* outRate) noexcept;

/// Multiplexes to the end; or to the packets-per-call limit or an internal restart, after both of
/// which it is called again.
/// @return negative after a fatal message, after which only tsm_close is valid; 0 where the run
/// was ended or paused from outside; else the transport rate.
ZEL_API int32_t tsm_run(tsm_handle* handle) noexcept;

/// Whether the run is over: a further tsm_run would do nothing.
ZEL_API bool tsm_finished(tsm_handle const* handle) noexcept;

/// Copies the counters.
ZEL_API void tsm_get_stats(tsm_handle const* handle, tsm_stats* stats) noexcept;

/// Closes files and frees the run, not the configuration. Null is fine.
ZEL_API void tsm_close(tsm_handle* handle) noexcept;

/// What may be asked of a run from outside.
enum tsm_control_word : int32_t {
  kTsmControlNone = 0,
  kTsmControlRestart = 1,
  kTsmControlRestartOnErrors = 2,
  kTsmControlEnd = 3,
};

/// Sets the control word, from any thread; the run reads it once a packet slot.
ZEL_API void tsm_set_control(tsm_handle* handle, int32_t word) noexcept;

/// Makes tsm_run return 0 after this many packets, to be called again; 0 is no limit.
ZEL_API void tsm_set_packets_per_call(tsm_handle* handle, int64_t packets) noexcept;

}  // namespace Morvalen::Zel
