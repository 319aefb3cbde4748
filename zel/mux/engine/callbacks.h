#pragma once

#include <cstdint>

/// What a run of the multiplexer tells and asks its caller: counters, blocks, callbacks. All calls
/// come on the thread that runs it.

namespace Morvalen::Zel {

struct cbuf;  // zel/mux/engine/input/circular_buffer.h

/// The engine's counters.
struct tsm_stats {
  int64_t packetsWritten = 0;
  int64_t packetsCounted = 0;  // on the time line; differs from packetsWritten in VBR mode only
  int64_t bytesWritten = 0;
  int64_t nullPackets = 0;  // of packetsWritten, those that are stuffing
  int32_t packetSize = 188;
  int32_t warnings = 0;
  int32_t errors = 0;
  int32_t streams = 0;  // elementary and PSI streams of the run
};

/// What the block end callback is told, and answers.
struct tsm_block {
  double duration = 0;              // in: of the block that ended; out: of the next, 27 MHz ticks
  int64_t packets = 0;              // packets of the block
  int64_t firstPacket = 0;          // count on the time line before it
  uint8_t const* events = nullptr;  // two event bytes a packet, borrowed for the call
  int32_t eventCount = 0;           // packets that `events` tells of
};

/// Called every few thousand packets with the live counters. Non-zero ends the run.
typedef int (*tsm_progress_callback)(void* user, tsm_stats const* stats);
/// Takes output. `packetKind` is 2 for a null packet, 3 for all else and for buffers of packets.
/// Non-zero is a failure, and ends the run with a fatal message.
typedef int (*tsm_write_callback)(void* user, uint8_t const* data, int32_t size,
                                  int32_t packetKind);
/// Takes a message: `fatal` is 1 or 0, `code` counts in the table of that kind, the text is
/// borrowed for the call.
typedef void (*tsm_error_callback)(void* user, int fatal, int32_t code, char const* text);
/// Fills an input buffer; `user` is the stream's own value. Non-zero says that the input has ended.
typedef int (*tsm_load_callback)(void* user, cbuf* buffer);
/// Called when a block of block input is through. Non-zero: there is no further block.
typedef int (*tsm_block_end_callback)(void* user, tsm_block* block);

}  // namespace Morvalen::Zel
