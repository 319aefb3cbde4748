#include "zel/mux/engine/audio/audio_analyser.h"

namespace zel::mux {
namespace {

// Warnings.
constexpr int kAc3RateChanged = 4, kAc3SizeChanged = 5;
constexpr int kLayerChanged = 6, kMpegRateChanged = 7, kMpegSizeChanged = 8;
constexpr int kDtsBlocksChanged = 42, kDtsSizeChanged = 43;
constexpr int kLatmChannelsChanged = 65, kLatmRateChanged = 66, kLatmSamplesChanged = 68;
constexpr int kVariableRate = 71;
constexpr int kNowAc3 = 82, kNowEac3 = 97;

bool tell_if(audio_state& state, bool changed, int code, int64_t value) {
  if (changed) warn(state, code, value);
  return changed;
}

// The bit rate index of MPEG audio: one change may be a splice, a second one is a variable rate.
bool tell_mpeg_size(audio_state& state, bool changed, int64_t value) {
  audio_analyser& own = analyser_of(state);
  if (!changed || own.variable) return changed;
  if (own.sizeMoved) {
    own.variable = true;
    warn(state, kVariableRate);
    return true;
  }
  own.sizeMoved = true;
  warn(state, kMpegSizeChanged, value);
  return true;
}

// At 44.1 kHz the lowest bit of frmsizecod is padding, which comes and goes in every stream.
bool is_ac3_padding(const audio_frame_header& now, const audio_frame_header& then) {
  constexpr int32_t k44100 = 1;
  return now.sampleRateCode == k44100 && then.sampleRateCode == k44100 &&
         now.frameSizeCode / 2 == then.frameSizeCode / 2;
}

}  // namespace

bool tell_changes(audio_state& state, const audio_unit& unit) {
  const audio_unit& last = analyser_of(state).last;
  const audio_frame_header& now = unit.first;
  const audio_frame_header& then = last.first;
  const bool rate = now.sampleRateCode != then.sampleRateCode;
  const bool size = now.frameSizeCode != then.frameSizeCode;
  bool told = false;
  switch (now.kind) {
    case audio_kind::ac3:
      if (now.eac3 != then.eac3) {
        warn(state, now.eac3 ? kNowEac3 : kNowAc3);
        return true;
      }
      told |= tell_if(state, rate, kAc3RateChanged, now.sampleRateCode);
      told |=
          tell_if(state, size && !is_ac3_padding(now, then), kAc3SizeChanged, now.frameSizeCode);
      return told;
    case audio_kind::mpeg:
      if (tell_if(state, now.layer != then.layer, kLayerChanged, now.layer)) return true;
      told |= tell_if(state, rate || now.sampleRate != then.sampleRate, kMpegRateChanged,
                      now.sampleRateCode);
      told |= tell_mpeg_size(state, size, now.frameSizeCode);
      return told;
    case audio_kind::dts:
      if (now.extension || then.extension) return now.extension != then.extension;
      told |= tell_if(state, size, kDtsBlocksChanged, now.frameSizeCode);
      told |= tell_if(state, now.size != then.size, kDtsSizeChanged, now.size - 1);
      return told;
    case audio_kind::latm:
      told |= tell_if(state, unit.latm.channelConfiguration != last.latm.channelConfiguration,
                      kLatmChannelsChanged, unit.latm.channelConfiguration);
      told |= tell_if(state, unit.latm.sampleRate != last.latm.sampleRate, kLatmRateChanged,
                      unit.latm.sampleRate);
      told |= tell_if(state, unit.latm.samplesPerFrame != last.latm.samplesPerFrame,
                      kLatmSamplesChanged, unit.latm.samplesPerFrame);
      return told;
    case audio_kind::unknown:
      break;
  }
  return false;
}

}  // namespace zel::mux
