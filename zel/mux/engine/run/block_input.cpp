#include "zel/mux/engine/run/block_input.h"

#include <algorithm>
#include <cmath>

#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tsm_block;

constexpr int kNoBlock = 21;
constexpr int kBlockOverrun = 62;
constexpr double kLongestBlock = 2.7e7 * 3600;  // an hour: what `events` has to hold

tsm_block description(const tsm_mux& mux) {
  const block_input& blocks = *mux.blocks;
  tsm_block block;
  block.duration = blocks.isOpen ? blocks.duration : 0;
  block.packets = mux.stats.packetsCounted - blocks.firstPacket;
  block.firstPacket = blocks.firstPacket;
  block.events = blocks.events.data();
  block.eventCount = static_cast<int32_t>(blocks.events.size() / 2);
  return block;
}

void begin_block(tsm_mux& mux, double duration) {
  block_input& blocks = *mux.blocks;
  const tsm_time begin = blocks.isOpen ? blocks.end : mux.now;
  if (blocks.isOpen) blocks.passed += blocks.duration;
  blocks.isOpen = true;
  blocks.duration = duration;
  blocks.end = add_ticks(begin, duration);
  blocks.firstPacket = mux.stats.packetsCounted;
  blocks.events.clear();
  if (blocks.collectsEvents) {
    const double packets = duration / ticks_of(mux.packetTime);
    blocks.events.reserve(2 * (static_cast<size_t>(packets) + 2));
  }
  if (!blocks.reverse) return;
  const tsm_time offset = time_from_ticks(-2 * blocks.passed - duration);
  for (const auto& stream : mux.streams) stream->pcrOffset = offset;
}

}  // namespace

void set_up_block_input(tsm_mux& mux, Morvalen::Zel::tsm_block_end_callback blockEnd) {
  mux.blocks = std::make_unique<block_input>();
  mux.blocks->blockEnd = blockEnd;
  mux.blocks->user = mux.config->progressUser;
  mux.blocks->reverse = mux.config->reverseTiming;
  mux.blocks->collectsEvents = mux.config->eventNotify;
}

bool next_block(tsm_mux& mux) {
  block_input& blocks = *mux.blocks;
  if (blocks.isOpen && is_before(mux.now, blocks.end)) return true;
  tsm_block block = description(mux);
  const bool isMore = blocks.blockEnd != nullptr && blocks.blockEnd(blocks.user, &block) == 0;
  // A block is one packet long at least, so that the run gets on.
  const double duration = std::min(block.duration, kLongestBlock);
  if (!isMore || !(duration >= ticks_of(mux.packetTime))) {
    mux.reports.warn(kNoBlock);
    return false;
  }
  begin_block(mux, duration);
  return true;
}

void note_block_packet(tsm_mux& mux) {
  block_input& blocks = *mux.blocks;
  if (!blocks.collectsEvents) return;
  if (blocks.events.size() + 2 > blocks.events.capacity()) {
    mux.reports.fatal(kBlockOverrun);
    return;
  }
  blocks.events.push_back(mux.packet->events[0]);
  blocks.events.push_back(mux.packet->events[1]);
}

}  // namespace zel::mux
