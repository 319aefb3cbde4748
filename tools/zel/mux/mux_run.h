#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "tools/zel/mux/engine_message.h"
#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run_statistics.h"

namespace zel::tool {

/// Where a run's output and news go. What is thrown by one of these ends the run, and is thrown
/// again by `multiplex`.
struct MuxSink {
  std::function<void(std::span<const uint8_t>)> write;  ///< empty: the engine writes its own files
  std::function<void(const Morvalen::Zel::tsm_stats&, int32_t rate)> progress;
  std::function<void(const Morvalen::Zel::tsm_trace_event&)> trace;
};

struct MuxResult {
  bool done = false;  ///< ran to its end; otherwise messages.failure() says why not
  int32_t rate = 0;   ///< of the transport stream, bits a second
  Morvalen::Zel::tsm_stats stats;
  std::vector<Morvalen::Zel::tsm_stream_stats> streams;
  MessageLog messages;

  double seconds() const {
    constexpr double kPacketBits = 188 * 8;
    return rate > 0 ? static_cast<double>(stats.packetsCounted) * kPacketBits / rate : 0;
  }
};

/// One run of the engine over a configuration. The engine's callbacks are the process's: one run at
/// a time.
MuxResult multiplex(Morvalen::Zel::tsm_config& config, const MuxSink& sink);

/// What a run that underflowed asks of the next one: for each video stream that was late, more
/// rate. Nothing underflowed: nothing.
struct NextPass {
  bool needed = false;
  bool possible = false;  ///< whether there is a stream that more room would help
};
/// Raises RateAdjustment of the video streams whose decoders underflowed in `last`.
NextPass prepareNextPass(const MuxResult& last, Morvalen::Zel::tsm_config& config);

}  // namespace zel::tool
