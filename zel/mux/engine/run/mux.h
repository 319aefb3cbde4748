#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/block_input.h"
#include "zel/mux/engine/run/burst_nulls.h"
#include "zel/mux/engine/run/file_writer.h"
#include "zel/mux/engine/run/null_packets.h"
#include "zel/mux/engine/run/output_writer.h"
#include "zel/mux/engine/run/reporting.h"
#include "zel/mux/engine/run/slot_choice.h"
#include "zel/mux/engine/run/variable_rate.h"
#include "zel/mux/engine/run_statistics.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

enum class stop_on_av { no, first, last };

/// What is asked of a run from outside; read once a slot.
enum class control_word : int32_t { none = 0, restart = 1, restart_on_errors = 2, end = 3 };

/// The state of one run.
struct tsm_mux {
  explicit tsm_mux(output_writer output) : writer(std::move(output)) {}
  tsm_mux(const tsm_mux&) = delete;
  tsm_mux& operator=(const tsm_mux&) = delete;

  const Morvalen::Zel::tsm_config* config = nullptr;  // outlives the run

  tsm_time now;          // of the packet being decided
  tsm_time packetTime;   // 4.0608e10 / rate, whatever the packet size is
  tsm_time endTime;      // with forceDuration
  double rate = 0;       // bits per second
  double startTime = 0;  // PCRI, 27 MHz ticks
  bool clockIsSet = false;

  Morvalen::Zel::tsm_stats stats;
  reporting reports{stats, now};
  std::vector<std::unique_ptr<tsm_stream>> streams;  // in the order of building, PSI first
  std::vector<std::unique_ptr<smoothing_buffer>> smoothingBuffers;

  stop_on_av stopOnAv = stop_on_av::no;
  bool forceDuration = false;
  bool terminate = false;
  int64_t terminatePacket = 0;
  int warnIfEndEarly = 0;  // seconds; 0 is off
  int packetCountMultiple = 0;

  Morvalen::Zel::tsm_load_callback load = nullptr;
  Morvalen::Zel::tsm_progress_callback progress = nullptr;
  void* progressUser = nullptr;
  int progressPeriod = 5000;
  int sinceProgress = 0;

  Morvalen::Zel::tsm_trace_callback trace = nullptr;
  void* traceUser = nullptr;

  slot_watch watch;
  int64_t packetsPerCall = 0;
  int slotsSinceSync = 0;
  int firstEndedPid = -1;
  tsm_time firstEndedAt;

  std::unique_ptr<block_input> blocks;  // with BlockProcess
  std::unique_ptr<variable_rate> vbr;   // null at a constant rate
  null_packets nulls;
  burst_nulls bursts;
  std::unique_ptr<file_writer> files;  // the built-in output; null with a write callback
  output_writer writer;
  /// The packet under construction: ownPacket, or its place in what the writer gathers.
  tsm_packet* packet = &ownPacket;
  tsm_packet ownPacket{};
  /// The handle's own, which outlives a restart's change of runs.
  const std::atomic<control_word>* control = nullptr;
};

}  // namespace zel::mux
