#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/transport_judge/elementary_units.h"
#include "tests/support/transport_judge/finding.h"

namespace zel::test {

/// The packets of one PID as they come into the decoder of ISO/IEC 13818-1, 2.4.2.
struct Delivery {
  double begin = 0;  // seconds: the first byte of the packet, and the last
  double end = 0;
  int64_t packet = 0;
  int payload = 0;     // bytes that go on from TB
  int headerSize = 0;  // bytes of a PES header that begins this payload; among `payload`
};

struct TimedUnit {
  int64_t begin = 0;  // places in the elementary stream, PES headers not counted
  int64_t end = 0;
  double decode = 0;  // seconds
  int64_t packet = -1;
};

/// Sizes and rates that the buffers of one stream have. Bytes, bits a second.
struct BufferLimits {
  double transportLeak = 2e6;
  double multiplexBuffer = 0;   // MB, video only
  double elementaryLeak = 0;    // Rbx, video only
  double elementaryBuffer = 0;  // EB of video, B of audio
  double longestDelay = 1;      // seconds
  bool lowDelay = false;
};

struct BufferPeaks {
  double transport = 0;
  double multiplex = 0;
  double elementary = 0;
  double longestDelay = 0;
  double leastMargin = 1e30;  // bytes in the buffer beyond the unit that leaves
};

enum class AudioBufferModel { kStandard, kAtsc, kDvb, kCable };

BufferLimits videoLimits(Coding coding, const StreamFacts& facts);
BufferLimits audioLimits(Coding coding, const StreamFacts& facts, AudioBufferModel model);
BufferLimits systemLimits(double transportRate);

/// Runs TB and what stands behind it; the findings have the PID.
BufferPeaks runVideoBuffers(const BufferLimits& limits, const std::vector<Delivery>& deliveries,
                            const std::vector<TimedUnit>& units, int pid, Findings& findings);
BufferPeaks runAudioBuffers(const BufferLimits& limits, const std::vector<Delivery>& deliveries,
                            const std::vector<TimedUnit>& units, int pid, Findings& findings);
BufferPeaks runSystemBuffers(const BufferLimits& limits, const std::vector<Delivery>& deliveries,
                             int pid, Findings& findings);

}  // namespace zel::test
