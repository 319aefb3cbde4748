#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tests/support/transport_judge/decoder_buffers.h"
#include "tests/support/transport_judge/finding.h"
#include "tests/support/transport_judge/transport_stream.h"

namespace zel::test {

struct PesPacket {
  int64_t begin = 0;   // place of its first payload byte in the elementary stream
  int64_t packet = 0;  // where it starts
  int64_t pts = -1;    // 90 kHz, as written
  int64_t dts = -1;
};

/// What a PID carries: the elementary stream, and when its pieces come.
struct PesStream {
  std::vector<uint8_t> data;
  std::vector<PesPacket> packets;
  std::vector<Delivery> deliveries;  // times not filled in
};

PesStream readPesStream(const std::vector<TsPacket>& packets, int pid, Findings& findings);

}  // namespace zel::test
