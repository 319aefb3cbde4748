#pragma once

#include <cstdint>
#include <vector>

namespace zel::test {

/// A small, correct transport stream for tests of what reads them: one programme with MPEG-2 video
/// (Main at Main, 25 pictures a second, filled with nothing that decodes) and MPEG audio (layer II,
/// 48 kHz), at a constant rate, every decoder buffer far from its limits.
struct PlainStreamSettings {
  double seconds = 3;
  int64_t rate = 4000000;
  int pictureBytes = 10000;
  double delay = 0.2;       // from the arrival of a unit's first byte to its decoding
  double pcrPeriod = 0.04;  // seconds
  double tablePeriod = 0.1;
  int64_t startTicks = 0;  // the clock at the first byte, 27 MHz
};

struct PlainStream {
  static constexpr int kPmtPid = 32;
  static constexpr int kVideoPid = 33;
  static constexpr int kAudioPid = 36;

  std::vector<uint8_t> bytes;
  std::vector<uint8_t> video;  // the elementary streams in it
  std::vector<uint8_t> audio;
};

PlainStream makePlainTransportStream(const PlainStreamSettings& settings = {});

}  // namespace zel::test
