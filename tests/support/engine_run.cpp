#include "tests/support/engine_run.h"

#include <algorithm>
#include <cstring>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/input/circular_buffer.h"

namespace zel::test {

using namespace Morvalen::Zel;

int MemoryInput::load(void* user, cbuf* buffer) {
  MemoryInput& self = *static_cast<MemoryInput*>(user);
  size_t left = self.bytes.size() - self.place;
  if (left == 0) return 1;
  if (self.mostAtOnce > 0) left = std::min(left, self.mostAtOnce);
  while (left > 0) {
    const uint8_t* const stop = buffer->read == buffer->start ? buffer->end - 1 : buffer->end;
    const uint8_t* const end = buffer->write < buffer->read ? buffer->read - 1 : stop;
    const size_t span = std::min(left, static_cast<size_t>(end - buffer->write));
    if (span == 0) break;
    std::memcpy(buffer->write, self.bytes.data() + self.place, span);
    self.place += span;
    left -= span;
    buffer->write += span;
    if (buffer->write == buffer->end) buffer->write = buffer->start;
  }
  return 0;
}

EngineRun::EngineRun() : config(tsm_config_new()) {
  config->writeUser = this;
  config->progressUser = this;
  config->errorUser = this;
}

EngineRun::~EngineRun() {
  close();
  tsm_config_free(config);
}

tsm_program* EngineRun::addProgram() {
  return tsm_add_program(config);
}

int EngineRun::progress(void* user, const tsm_stats*) {
  EngineRun& self = *static_cast<EngineRun*>(user);
  return ++self.progressCalls == self.stopAtProgress ? 1 : 0;
}

int EngineRun::write(void* user, const uint8_t* data, int32_t size, int32_t packetKind) {
  EngineRun& self = *static_cast<EngineRun*>(user);
  self.writes.push_back(size);
  self.kinds.push_back(packetKind);
  if (static_cast<int>(self.writes.size()) == self.failAtWrite) return 1;
  self.bytes.insert(self.bytes.end(), data, data + size);
  return 0;
}

void EngineRun::error(void* user, int fatal, int32_t code, const char* text) {
  EngineRun& self = *static_cast<EngineRun*>(user);
  self.said.push_back(fatal != 0 ? 'F' : 'W');
  self.said.append(std::to_string(code)).push_back(' ');
  self.texts += text;
}

bool EngineRun::open() {
  tsm_set_callbacks(usesProgress ? progress : nullptr, intoFiles ? nullptr : write, error,
                    MemoryInput::load, blockEnd);
  handle = tsm_open(config, &rate);
  return handle != nullptr;
}

int32_t EngineRun::runOnce() {
  const int32_t result = tsm_run(handle);
  tsm_get_stats(handle, &stats);
  return result;
}

void EngineRun::close() {
  tsm_close(handle);
  handle = nullptr;
}

int32_t EngineRun::multiplex() {
  if (!open()) return -2;
  int32_t result = 0;
  do {
    result = runOnce();
  } while (result >= 0 && !tsm_finished(handle));
  close();
  return result;
}

int EngineRun::packetsOf(int pid) const {
  int count = 0;
  for (size_t at = 0; at + 188 <= bytes.size(); at += 188) {
    if (((bytes[at + 1] & 0x1F) << 8 | bytes[at + 2]) == pid) ++count;
  }
  return count;
}

std::vector<uint8_t> rawPackets(int pid, int count) {
  std::vector<uint8_t> bytes(static_cast<size_t>(count) * 188, 0xFF);
  for (int i = 0; i < count; ++i) {
    uint8_t* packet = bytes.data() + static_cast<size_t>(i) * 188;
    packet[0] = 0x47;
    packet[1] = static_cast<uint8_t>(pid >> 8);
    packet[2] = static_cast<uint8_t>(pid);
    packet[3] = static_cast<uint8_t>(0x10 | (i & 15));
    for (int k = 0; k < 4; ++k) packet[4 + k] = static_cast<uint8_t>(i >> 8 * k);
  }
  return bytes;
}

}  // namespace zel::test
