#pragma once

#include <cstdint>
#include <vector>

#include "zel/mux/engine/stream/stream.h"

/// Sends sections on one PID, each at its own repetition.

namespace zel::mux {

struct psi_section {
  std::vector<uint8_t> bytes;  // whole, with CRC
  bool oneShot = false;        // dropped once sent
  tsm_time nextSending;
  tsm_time interval;
};

struct psi_state : stream_state {
  std::vector<psi_section> sections;
  int current = -1;     // the section that is half sent
  size_t position = 0;  // its next byte
};

/// Puts the sections that are due into a packet: the earliest, and behind it those due at the same
/// time that fit whole. A section that doesn't fit goes on in the next packet.
void psi_make_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux& mux);

/// What the repeated sections of the PID take, bits per second of sections.
double psi_rate(const psi_state& state);

}  // namespace zel::mux
