#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/pcm/pcm_units.h"
#include "zel/mux/engine/stream/buffer_model.h"
#include "zel/mux/engine/stream/stream.h"

/// Streams of PCM audio: each unit is a PES packet, aligned with transport packets, with a PTS.

namespace zel::mux {

class reporting;

struct pcm_state : stream_state {
  tsm_stream* stream = nullptr;
  reporting* report = nullptr;
  bool noEmptyAf = false;  // of the transport level
  std::unique_ptr<pcm_units> units;
  int32_t sampleRate = 48'000;
  buffer_model model;

  double basePts = 0;  // of frame 0; 27 MHz ticks within the wrap
  int64_t framesBefore = 0;
  int64_t mostFrames = -1;       // no unit begins behind them; below 0: no limit
  std::vector<uint8_t> payload;  // of the unit being sent
  pcm_unit unit;
  size_t sent = 0;
  double pts = 0;        // of the unit
  bool hasUnit = false;  // it isn't sent whole
};

/// What a run of PES packets takes as transport packets, in bits per second: `bytes` of payload
/// each, `perSecond` of them.
double pcm_stream_rate(const tsm_stream& stream, size_t bytes, double perSecond, bool noEmptyAf);

/// The makePacket of a stream whose `state` is a pcm_state. Allocates nothing.
void make_pcm_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux& mux);

/// For VBR: how many units with removal events aren't sent whole.
size_t pcm_units_to_send(const tsm_stream& stream);

}  // namespace zel::mux
