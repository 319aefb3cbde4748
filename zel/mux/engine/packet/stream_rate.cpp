#include "zel/mux/engine/packet/stream_rate.h"

#include <algorithm>
#include <cmath>

namespace zel::mux {

namespace {

constexpr double kPacketBits = 1504;
constexpr double kPrivateFieldBytes = 18;
constexpr double kPrivateExtensionBytes = 130;

double private_bytes(bool extension) {
  return extension ? kPrivateExtensionBytes : kPrivateFieldBytes;
}

}  // namespace

double video_stream_rate(const video_rate_inputs& in) {
  const double f = in.framesPerSecond;
  const double nau = std::max(in.pesNau, 1);
  const double layers = in.secondLayer ? 2 : 1;
  const double delimiter = in.insertsDelimiters ? 6 : 0;

  const double stamps = layers * 10 * 8 * f / (std::max(in.ptsNpes, 1) * nau);
  double rate = (stamps + f * 72 / nau + in.bitRate) * kPacketOverhead;
  rate += layers * delimiter * 8 * f;
  if (in.secondLayer) rate += f * 188 / nau;
  if (in.maxPesLength > 0) rate += in.bitRate * 188 / (in.maxPesLength * 8.0);
  if (in.aligned) {
    rate += f * kPacketBits / nau;
  } else if (in.padsSmallUnits) {
    rate += kPacketBits;
  }
  if (in.quadByte) rate += 720;
  if (in.hdv) rate += f * kPacketBits;
  if (in.privateData) rate += private_bytes(in.privateExtension) * f * 8;
  return rate;
}

double audio_stream_rate(const audio_rate_inputs& in) {
  const double frame = std::max(in.frameBytes, 1.0);
  const double pes = std::max(in.pesNau, 1) * frame;
  const double headers = in.bitRate * 9 / pes + in.bitRate * 5 / (std::max(in.ptsNpes, 1) * pes);
  double rate = (in.bitRate + headers) * kPacketOverhead + 1;
  const bool startsPackets = in.aligned || in.lowLatency;
  if (!in.aligned && frame < 184) rate += headers * 184 / pes * kPacketOverhead;
  if (startsPackets) rate += in.bitRate / pes * 184;
  if (in.carriesPcr) rate += 72'000.0 / std::max(in.pcrPeriod, 1) + 1;
  if (in.hdv) rate += in.bitRate * 188 / frame;
  if (in.privateData) rate += in.bitRate * 2 / frame * private_bytes(in.privateExtension);
  return rate;
}

double rounded_audio_rate(double measured) {
  return std::ceil(measured / 100) * 100;
}

double pcr_surcharge(int pcrPeriod) {
  return std::floor(64'000.0 / std::max(pcrPeriod, 1));
}

double pcr_only_rate(int pcrPeriod) {
  return 1.504e6 / std::max(pcrPeriod, 1);
}

}  // namespace zel::mux
