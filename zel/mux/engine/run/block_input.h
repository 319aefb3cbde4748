#pragma once

#include <cstdint>
#include <vector>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/stream/stream.h"

namespace zel::mux {

struct tsm_mux;

/// BlockProcess: the input comes in blocks of a told length in time. Where a block is through, the
/// block end callback is told what it came to, with the event bytes of its packets, and answers
/// with the next one's length.
///
/// With ReverseTiming the blocks are given last one first: each block's PCRs end where those of the
/// block given before it begin, so that the blocks make one stream when they are put in their
/// order.
struct block_input {
  Morvalen::Zel::tsm_block_end_callback blockEnd = nullptr;
  void* user = nullptr;
  bool reverse = false;
  bool collectsEvents = false;

  bool isOpen = false;  // a block is under way
  double duration = 0;  // of it, 27 MHz ticks
  double passed = 0;    // of all blocks before it
  tsm_time end;
  int64_t firstPacket = 0;
  std::vector<uint8_t> events;
};

void set_up_block_input(tsm_mux& mux, Morvalen::Zel::tsm_block_end_callback blockEnd);

/// Before each slot: ends the block that is through, and begins the next. False where there is
/// none: the run is over, and warning 21 told.
bool next_block(tsm_mux& mux);

/// Notes a packet's event bytes. Fatal 62 where the block has more packets than its time has room
/// for.
void note_block_packet(tsm_mux& mux);

}  // namespace zel::mux
