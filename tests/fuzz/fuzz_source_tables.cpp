// Any packets as those of a transport stream whose tables are read: no crash, no over-read, and no
// descriptor that isn't whole.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "zel/mux/engine/input/source_tables.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kPacket = 188;
  zel::mux::source_tables tables;
  for (size_t at = 0; at + kPacket <= size; at += kPacket) {
    tables.take_packet(std::span<const uint8_t, kPacket>(data + at, kPacket));
  }
  for (int pid = 0; pid < 8192; ++pid) {
    const auto found = tables.find(pid);
    if (!found) continue;
    for (const auto& each : found->descriptors) {
      if (each.size() < 2 || each.size() != 2u + each[1]) std::abort();
    }
  }
  return 0;
}
