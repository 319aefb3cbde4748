#include "zel/mux/engine/audio/buffer_limit.h"

#include <algorithm>

#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_audio;

// 0: no row of these applies.
int64_t ac3_limit(const audio_characteristics& audio, const tsm_audio& config) {
  if (config.bdBuf) return 18456;
  if (audio.eac3) {
    if (config.clBuf) return 2408;
    if (config.atscBuf) return 5000;
    return config.a52Y2012Buf ? 25192 : 0;
  }
  if (config.atscBuf || config.clBuf) return 2408;
  if (config.dvbBuf) return 5320;
  return config.a52Y2012Buf ? 4456 : 0;
}

int64_t dts_limit(const audio_characteristics& audio, const tsm_audio& config) {
  if (config.bdBuf) return 43788;
  if (audio.dtsExtension == 2) return 66248;
  return audio.dtsExtension == 1 ? 17630 : 8904;
}

int64_t latm_limit(const audio_characteristics& audio, const tsm_audio& config) {
  if (config.dvbBuf) return audio.fourChannelObject ? 8792 : 3400;
  if (audio.channels <= 2) return 3400;
  if (audio.channels <= 8) return 8792;
  return audio.channels <= 12 ? 12620 : 51032;
}

int64_t table_limit(const audio_characteristics& audio, const tsm_audio& config) {
  switch (audio.kind) {
    case audio_kind::ac3:
      return ac3_limit(audio, config);
    case audio_kind::dts:
      return dts_limit(audio, config);
    case audio_kind::latm:
      return latm_limit(audio, config);
    case audio_kind::mpeg:
      return audio.layer == 0 ? int64_t{std::max(audio.channels, 1)} * 1056 + 344 : 0;
    case audio_kind::unknown:
      break;
  }
  return 0;
}

// The standard decoder's buffer less what half a millisecond brings, but enough for a frame and the
// transport packets that it comes in.
audio_buffer_limit standard_limit(const audio_characteristics& audio) {
  constexpr int64_t kLeast = 2848;
  constexpr int64_t kMost = 3584;
  const int64_t limit = std::max(3400 - static_cast<int64_t>(audio.bitRate * 0.0005), kLeast);
  const int64_t needed = int64_t{audio.frameSize} + 736;
  if (needed <= limit) return {limit, false};
  if (audio.frameSize > kMost) return {limit, true};
  return {std::min(needed, kMost), false};
}

// Many small frames wait in the large buffers, and each has its share of packet headers.
int64_t header_correction(const audio_characteristics& audio, const tsm_audio& config,
                          int64_t limit) {
  const bool applies =
      audio.kind == audio_kind::latm || (audio.kind == audio_kind::dts && audio.dtsExtension != 0);
  const int64_t frames = int64_t{audio.frameSize} * config.pesNau;
  if (!applies || frames <= 0) return 0;
  const int64_t quotient = limit * 14 / frames;
  return quotient > 80 ? quotient : 0;
}

}  // namespace

audio_buffer_limit find_audio_buffer_limit(const audio_characteristics& audio,
                                           const tsm_audio& config) {
  if (config.dbSize > 0) return {config.dbSize, false};
  const int64_t limit = table_limit(audio, config);
  if (limit == 0) return standard_limit(audio);
  // Frames of a few bytes would take the whole away.
  return {std::max<int64_t>(limit - header_correction(audio, config, limit), 0), false};
}

}  // namespace zel::mux
