#include "zel/mux/engine/run/slot_stretch.h"

#include <algorithm>

#include "zel/mux/engine/run/slot_choice.h"

namespace zel::mux {

namespace {

constexpr int kWriteFailed = 82;
// No end that a run has is further away: circular comparison needs one.
constexpr tsm_time kFar{1, 0, 0};

// Whether packets go out in the order and at the places of their slots, and nobody wants to know of
// each.
bool is_plain(const tsm_mux& mux) {
  return mux.vbr == nullptr && mux.trace == nullptr && mux.blocks == nullptr && !mux.bursts.armed();
}

bool is_free(const tsm_stream& stream) {
  return stream.planStretch != nullptr && stream.streamSB == nullptr &&
         stream.programSB == nullptr && !stream.has2(kHold);
}

}  // namespace

int64_t run_stretch(tsm_mux& mux, tsm_stream& stream, int64_t most) {
  if (!is_free(stream) || !is_plain(mux)) return 0;
  packet_stretch stretch;
  stretch.packets = std::min(most, mux.writer.packets_gathered_next());
  stretch.until = mux.forceDuration && !mux.terminate ? mux.endTime : add(mux.now, kFar);
  if (!mux.watch.leaves_alone(stream, mux.now, stretch.until)) return 0;
  const int64_t slots = stretch.packets;
  if (!stream.planStretch(stream, mux.now, stretch)) return 0;

  int64_t packets = stretch.packets;
  int64_t slot = 0;
  for (; slot < slots && is_before(mux.now, stretch.until); ++slot) {
    tsm_packet& packet = mux.writer.place_of_next(mux.ownPacket);
    if (is_before(mux.now, stream.nextTime)) {
      mux.nulls.make(packet);
    } else {
      if (--packets < 0) break;
      stream.makeInner(stream, packet);
      ++stream.packetsSent;
    }
    if (!mux.writer.put(packet, mux.stats)) mux.reports.fatal(kWriteFailed);
    mux.now = add(mux.now, mux.packetTime);
  }
  mux.packet = &mux.writer.place_of_next(mux.ownPacket);
  return slot;
}

}  // namespace zel::mux
