#include "zel/mux/engine/run/pcr_only_stream.h"

#include <cstring>

#include "zel/mux/engine/packet/stream_rate.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/stream/pcr_schedule.h"

namespace zel::mux {

namespace {

// A PCR is due at its time, not a period later as a stream's packet may be: the time between two of
// them has a limit (ISO/IEC 13818-1, 2.7.2).
void set_due(tsm_stream& stream, const tsm_mux& mux) {
  stream.dueTime = add(stream.nextTime, mux.packetTime);
}

void step(tsm_stream& stream, const tsm_mux& mux) {
  stream.nextTime = add(stream.nextTime, stream.interval);
  set_due(stream, mux);
}

}  // namespace

void make_pcr_only_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet,
                          tsm_mux& mux) {
  stream.clear(kPacketHasPcr);
  packet.events[0] = packet.events[1] = 0;
  if (!pcr_is_due(stream, stream.nextTime)) {
    packet.make_null();
    step(stream, mux);
    return;
  }
  schedule_next_pcr(stream, now, stream.nextTime);
  const int pid = stream.pid();
  packet.bytes[0] = 0x47;
  packet.bytes[1] = static_cast<uint8_t>((stream.has(kTransportPriority) ? 0x20 : 0) | pid >> 8);
  packet.bytes[2] = static_cast<uint8_t>(pid);
  packet.bytes[3] = static_cast<uint8_t>(0x20 | stream.continuity());  // it counts payload only
  packet.bytes[4] = kPacketBytes - 5;
  packet.bytes[5] = pcr_flags(stream, packet);
  std::memset(packet.bytes + kPcrPlace, 0xFF, kPacketBytes - kPcrPlace);
  step(stream, mux);
}

std::unique_ptr<tsm_stream> make_pcr_only_stream(const Morvalen::Zel::tsm_program& program,
                                                 uint32_t programIndex, const tsm_mux& mux) {
  auto stream = std::make_unique<tsm_stream>();
  stream->kind = stream_kind::pcr_only;
  stream->program = static_cast<uint32_t>(program.programNumber);
  stream->programIndex = programIndex;
  stream->makePacket = make_pcr_only_packet;
  stream->set_pid(program.pcrPid);
  stream->set(kPriority | kSourceEnded | kCarriesPcr);
  if (!mux.config->disablePcrDi) stream->set(kDiscontinuityWithPcr);
  if (program.transportPriority || mux.config->transportPriority) stream->set(kTransportPriority);
  set_up_pcr(*stream, program, mux);
  stream->rate = pcr_only_rate(static_cast<int>(stream->pcrPeriod));
  stream->interval = stream->pcrStep;
  return stream;
}

void turn_into_pcr_only(tsm_stream& stream, const tsm_mux& mux) {
  stream.clear(kNoMorePackets);
  stream.set(kPriority);
  stream.makePacket = make_pcr_only_packet;
  stream.planStretch = nullptr;
  stream.rate = pcr_only_rate(static_cast<int>(stream.pcrPeriod));
  // One packet a period. Taken from the step itself: 4.0608e10 / rate may fall short of it by a
  // rounding, and a packet that comes that much early would have to wait a whole period.
  stream.interval = stream.pcrStep;
  stream.nextTime = stream.pcrNext;
  set_due(stream, mux);
}

}  // namespace zel::mux
