// Any bytes as an audio stream, from discovery to its last packet: no crash, no endless loop, and
// the packets that come out are whole.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "zel/mux/engine/audio/open_audio.h"
#include "zel/mux/engine/input/circular_buffer.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/stream/audio_state.h"

namespace {

using namespace Morvalen::Zel;
using namespace zel::mux;

struct input {
  const uint8_t* data;
  size_t left;
  size_t piece;
};

int load(void* user, cbuf* buffer) {
  auto& from = *static_cast<input*>(user);
  if (from.left == 0) return 1;
  for (size_t count = from.piece; count > 0 && from.left > 0; --count) {
    uint8_t* const next = buffer->write + 1 == buffer->end ? buffer->start : buffer->write + 1;
    if (next == buffer->read) break;
    *buffer->write = *from.data++;
    buffer->write = next;
    --from.left;
  }
  return 0;
}

int write_nothing(void*, const uint8_t*, int32_t, int32_t) {
  return 0;
}

void check(const tsm_packet& packet) {
  if (packet.bytes[0] != 0x47) std::abort();
  const bool field = (packet.bytes[3] & 0x20) != 0;
  if (field && packet.bytes[4] > ((packet.bytes[3] & 0x10) != 0 ? 182 : 183)) std::abort();
}

}  // namespace

// The first byte chooses the options, the second the size of the pieces that are loaded.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::unique_ptr<tsm_config, void (*)(tsm_config*)> config(tsm_config_new(),
                                                                  tsm_config_free);
  tsm_program* const program = tsm_add_program(config.get());
  tsm_audio* const record = tsm_add_audio(program);
  input from{data + 2, size - 2, size_t{data[1]} * 16 + 1};
  record->user = &from;
  record->pid = program->pcrPid = 0x24;
  record->pesAlign = (data[0] & 1) != 0;
  record->lowLatency = (data[0] & 2) != 0;
  record->pesNau = 1 + (data[0] >> 2 & 15);
  config->noEmptyAf = (data[0] & 0x40) != 0;
  record->avSync = (data[0] & 0x80) != 0;

  tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
  mux.config = config.get();
  mux.reports.stop_on(false, false);
  mux.reports.deliver_to([](void*, int, int32_t, const char*) {}, nullptr);
  const auto stream = open_audio(*record, *program, load, mux);
  if (stream == nullptr) std::abort();
  set_up_stream(*stream, *record, program, mux);
  start_audio(*stream, mux);
  // A stream that can't keep up is late by a slot or more a frame; every frame has its end.
  for (int slot = 0; !stream->has(kNoMorePackets); ++slot) {
    tsm_packet packet{};
    stream->makePacket(*stream, stream->nextTime, packet, mux);
    check(packet);
    if (slot > 5'000'000) std::abort();
  }
  return 0;
}
