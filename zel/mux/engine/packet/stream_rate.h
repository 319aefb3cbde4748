#pragma once

#include <cstdint>

/// How fast a stream is offered slots: bits per second of its transport packets, from what its
/// payload and its options come to. Pure functions.

namespace zel::mux {

/// Packet bytes over payload bytes, 188 / 184.
inline constexpr double kPacketOverhead = 1.0217391304347827;

struct video_rate_inputs {
  double bitRate = 0;          // with the rate adjustment; of both layers together
  double framesPerSecond = 0;  // access units
  int ptsNpes = 1, pesNau = 1;
  bool secondLayer = false;
  bool insertsDelimiters = false;
  int maxPesLength = 0;
  bool aligned = false;
  bool padsSmallUnits = false;
  bool quadByte = false;
  bool hdv = false;
  bool privateData = false;
  bool privateExtension = false;
};
double video_stream_rate(const video_rate_inputs& inputs);

struct audio_rate_inputs {
  double bitRate = 0;
  double frameBytes = 0;
  int ptsNpes = 1, pesNau = 2;
  bool aligned = false;
  bool lowLatency = false;
  bool carriesPcr = false;
  int pcrPeriod = 90;  // ms
  bool hdv = false;
  bool privateData = false;
  bool privateExtension = false;
};
double audio_stream_rate(const audio_rate_inputs& inputs);

/// A measured audio rate as the formula takes it: rounded up to a multiple of 100 bits per second.
double rounded_audio_rate(double measured);

/// What a stream gains that carries the PCR.
double pcr_surcharge(int pcrPeriod);
/// The rate of a stream that is nothing but PCRs.
double pcr_only_rate(int pcrPeriod);

}  // namespace zel::mux
