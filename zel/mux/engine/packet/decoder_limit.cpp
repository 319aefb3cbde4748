#include "zel/mux/engine/packet/decoder_limit.h"

#include <algorithm>
#include <cmath>

namespace zel::mux {

namespace {

// A row holds for streams of its codec, under its choice; the first that fits counts.
struct limit_row {
  bool audio_buffer_choice::*choice;
  bool eac3;
  int64_t bytes;
};
// clang-format off
constexpr limit_row kAc3Family[] = {
    {&audio_buffer_choice::blurayDisc,  true,  18456},
    {&audio_buffer_choice::blurayDisc,  false, 18456},
    {&audio_buffer_choice::cable,       true,   2408},
    {&audio_buffer_choice::atsc,        true,   5000},
    {&audio_buffer_choice::a52Year2012, true,  25192},
    {&audio_buffer_choice::atsc,        false,  2408},
    {&audio_buffer_choice::cable,       false,  2408},
    {&audio_buffer_choice::dvb,         false,  5320},
    {&audio_buffer_choice::a52Year2012, false,  4456},
};
// clang-format on

int64_t dts_limit(const audio_buffer_choice& choice, const audio_characteristics& audio) {
  if (choice.blurayDisc) return 43'788;
  if (audio.dtsExtension == 2) return 66'248;
  if (audio.dtsExtension == 1) return 17'630;
  return 8'904;
}

int64_t latm_limit(const audio_buffer_choice& choice, const audio_characteristics& audio) {
  constexpr int64_t kStereo = 3'400;
  constexpr int64_t kEight = 8'792;
  if (choice.dvb) return audio.fourChannelObject ? kEight : kStereo;
  if (audio.channels <= 2) return kStereo;
  if (audio.channels <= 8) return kEight;
  return audio.channels <= 12 ? 12'620 : 51'032;
}

audio_limit other_limit(const audio_characteristics& audio) {
  constexpr int64_t kMostFrame = 3'584;
  const auto drained = static_cast<int64_t>(std::floor(audio.bitRate * 0.0005));
  const int64_t limit = std::max<int64_t>(3'400 - drained, 2'848);
  const int64_t needed = int64_t{audio.frameSize} + 736;
  if (needed <= limit) return {limit, false};
  if (audio.frameSize > kMostFrame) return {needed, true};
  return {std::min(needed, kMostFrame), false};
}

// The time that the frames of a PES packet stand in the buffer takes its share.
int64_t less_pes_share(int64_t limit, const audio_characteristics& audio, int pesNau) {
  const int64_t pes = int64_t{audio.frameSize} * std::max(pesNau, 1);
  if (pes <= 0) return limit;
  const int64_t quotient = limit * 14 / pes;
  // Frames of a few bytes would leave nothing, or less.
  return quotient > 80 ? std::max(limit - quotient, kLeastLimit) : limit;
}

}  // namespace

int64_t video_decoder_limit(int32_t dbSize, int32_t vbvSize, double rate) {
  if (dbSize > 0) return dbSize;
  const double limit = vbvSize * 2048.0 - 184 - rate * 0.0005;
  return std::max(static_cast<int64_t>(limit), kLeastLimit);
}

audio_limit audio_decoder_limit(const audio_buffer_choice& choice,
                                const audio_characteristics& audio, int pesNau) {
  if (choice.dbSize > 0) return {choice.dbSize, false};
  switch (audio.kind) {
    case audio_kind::ac3:
      for (const limit_row& row : kAc3Family) {
        if (row.eac3 == audio.eac3 && choice.*row.choice) return {row.bytes, false};
      }
      return other_limit(audio);
    case audio_kind::mpeg:
      if (audio.layer != 0) return other_limit(audio);
      return {std::max(audio.channels, 1) * 1'056 + 344, false};
    case audio_kind::dts: {
      const int64_t limit = dts_limit(choice, audio);
      return {audio.dtsExtension > 0 ? less_pes_share(limit, audio, pesNau) : limit, false};
    }
    case audio_kind::latm:
      return {less_pes_share(latm_limit(choice, audio), audio, pesNau), false};
    case audio_kind::unknown:
      break;
  }
  return other_limit(audio);
}

}  // namespace zel::mux
