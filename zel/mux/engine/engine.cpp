#include "zel/mux/engine/engine.h"

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/building.h"
#include "zel/mux/engine/run/engine_callbacks.h"
#include "zel/mux/engine/run/slot_loop.h"
#include "zel/mux/engine/run/stream_statistics.h"
#include "zel/mux/engine/run_statistics.h"

// The entries of the engine. Inside, a message that stops the run is an exception; none gets past
// these functions.

namespace Morvalen::Zel {

namespace {

using zel::mux::build_run;
using zel::mux::control_word;
using zel::mux::engine_callbacks;
using zel::mux::engine_stop;
using zel::mux::flush_output;
using zel::mux::slot_outcome;
using zel::mux::tsm_mux;

constexpr int kOutOfMemory = 35;
constexpr int kFileWriteFailed = 3;
constexpr int kRestarting = 121;
constexpr int kRestartFailed = 133;

// The one state that belongs to the process. A run copies it when it is opened; front ends on other
// threads may be setting the same callbacks at that moment.
class process_callbacks {
 public:
  static void set(const engine_callbacks& callbacks) {
    const std::scoped_lock lock(state().mutex_);
    state().callbacks_ = callbacks;
  }
  static engine_callbacks get() {
    const std::scoped_lock lock(state().mutex_);
    return state().callbacks_;
  }

 private:
  static process_callbacks& state() {
    static process_callbacks callbacks;
    return callbacks;
  }

  std::mutex mutex_;
  engine_callbacks callbacks_;  // under mutex_
};

}  // namespace

/// A run and what it was made from, so that a restart can make another in its place.
struct tsm_handle {
  std::unique_ptr<tsm_mux> mux;
  tsm_config* config = nullptr;
  engine_callbacks callbacks;
  std::atomic<control_word> control = control_word::none;
  int64_t packetsPerCall = 0;
  tsm_trace_callback trace = nullptr;
  void* traceUser = nullptr;
  bool finished = false;
  bool failed = false;
};

namespace {

int32_t rate_of(const tsm_mux& mux) {
  return static_cast<int32_t>(mux.rate);
}

void adopt(tsm_handle& handle, std::unique_ptr<tsm_mux> mux) {
  handle.mux = std::move(mux);
  handle.mux->control = &handle.control;
  handle.mux->packetsPerCall = handle.packetsPerCall;
  handle.mux->trace = handle.trace;
  handle.mux->traceUser = handle.traceUser;
}

void close_output(tsm_mux& mux) {
  if (mux.files != nullptr && !mux.files->close()) mux.reports.fatal(kFileWriteFailed);
}

int32_t restart(tsm_handle& handle) {
  tsm_mux& old = *handle.mux;
  old.reports.warn(kRestarting);
  // The new run opens the same files: they are closed first.
  flush_output(old);
  close_output(old);
  old.streams.clear();
  auto next = build_run(*handle.config, handle.callbacks, true);
  if (next == nullptr) {
    old.reports.fatal(kRestartFailed);
    throw engine_stop{};
  }
  control_word asked = control_word::restart;
  handle.control.compare_exchange_strong(asked, control_word::none);
  adopt(handle, std::move(next));
  return rate_of(*handle.mux);
}

int32_t run(tsm_handle& handle) {
  tsm_mux& mux = *handle.mux;
  switch (run_slots(mux)) {
    case slot_outcome::paused:
      return 0;
    case slot_outcome::ended:
      // What is made is the caller's.
      handle.finished = true;
      flush_output(mux);
      close_output(mux);
      return 0;
    case slot_outcome::restart:
      return restart(handle);
    case slot_outcome::finished:
      break;
  }
  handle.finished = true;
  close_output(mux);
  return rate_of(mux);
}

void report_out_of_memory(tsm_mux& mux) {
  try {
    mux.reports.fatal(kOutOfMemory);
  } catch (const engine_stop&) {
  } catch (const std::exception&) {
  }
}

}  // namespace

void tsm_set_callbacks(tsm_progress_callback progress, tsm_write_callback write,
                       tsm_error_callback error, tsm_load_callback load,
                       tsm_block_end_callback blockEnd) noexcept {
  process_callbacks::set({progress, write, error, load, blockEnd});
}

tsm_handle* tsm_open(tsm_config* config, int32_t* outRate) noexcept {
  if (config == nullptr) return nullptr;
  // The mask of what is described automatically; kept by the configuration, as texts are.
  if (config->autoDescrDisabled) config->autoDescrMask = 0;
  tsm_assign_pids(config);
  try {
    auto handle = std::make_unique<tsm_handle>();
    handle->config = config;
    handle->callbacks = process_callbacks::get();
    auto mux = build_run(*config, handle->callbacks, false);
    if (mux == nullptr) return nullptr;
    adopt(*handle, std::move(mux));
    if (outRate != nullptr) *outRate = rate_of(*handle->mux);
    return handle.release();
  } catch (const std::exception&) {
    return nullptr;
  }
}

int32_t tsm_run(tsm_handle* handle) noexcept {
  if (handle == nullptr || handle->failed) return -1;
  if (handle->finished) return rate_of(*handle->mux);
  try {
    return run(*handle);
  } catch (const engine_stop&) {
  } catch (const std::exception&) {
    report_out_of_memory(*handle->mux);
  }
  handle->failed = true;
  return -1;
}

bool tsm_finished(tsm_handle const* handle) noexcept {
  return handle == nullptr || handle->finished || handle->failed;
}

void tsm_get_stats(tsm_handle const* handle, tsm_stats* stats) noexcept {
  if (handle != nullptr && stats != nullptr) *stats = handle->mux->stats;
}

int32_t tsm_get_stream_stats(tsm_handle const* handle, int32_t index,
                             tsm_stream_stats* stats) noexcept {
  if (handle == nullptr || stats == nullptr || index < 0) return -1;
  const auto& streams = handle->mux->streams;
  if (static_cast<size_t>(index) >= streams.size()) return -1;
  *stats = zel::mux::statistics_of(*streams[static_cast<size_t>(index)]);
  return 0;
}

void tsm_set_trace(tsm_handle* handle, tsm_trace_callback trace, void* user) noexcept {
  if (handle == nullptr) return;
  handle->trace = trace;
  handle->traceUser = user;
  handle->mux->trace = trace;
  handle->mux->traceUser = user;
}

void tsm_close(tsm_handle* handle) noexcept {
  delete handle;
}

void tsm_set_control(tsm_handle* handle, int32_t word) noexcept {
  if (handle == nullptr || word < kTsmControlNone || word > kTsmControlEnd) return;
  handle->control.store(static_cast<control_word>(word), std::memory_order_relaxed);
}

void tsm_set_packets_per_call(tsm_handle* handle, int64_t packets) noexcept {
  if (handle == nullptr) return;
  handle->packetsPerCall = packets < 0 ? 0 : packets;
  handle->mux->packetsPerCall = handle->packetsPerCall;
}

}  // namespace Morvalen::Zel
