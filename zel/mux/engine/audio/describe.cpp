#include "zel/mux/engine/audio/describe.h"

#include <algorithm>
#include <array>
#include <span>

#include "zel/mux/engine/audio/descriptors.h"
#include "zel/mux/engine/audio/frame_header.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

constexpr int32_t kMaskAc3 = 1, kMaskEac3 = 2, kMaskDts = 4;

void describe_ac3(std::vector<descriptor_bytes>& list, std::span<const uint8_t> bytes, bool dvb) {
  syntax::Ac3Header header;
  if (!syntax::parseAc3Header(bytes, header)) return;
  add_automatic_descriptor(list, registration_descriptor("AC-3"));
  add_automatic_descriptor(list, dvb ? dvb_ac3_descriptor(header) : atsc_ac3_descriptor(header));
}

// The programmes of the first access unit, which begins at the scan position: the first one, then
// those that come beside it.
std::vector<eac3_programme> eac3_programmes(const audio_state& state) {
  std::vector<eac3_programme> all;
  std::array<uint8_t, kAudioHeaderBytes> bytes;
  const int64_t end =
      std::min(state.scanPosition + state.characteristics.frameSize, state.input.end_position());
  uint16_t channelMap = 0;
  for (int64_t at = state.scanPosition; at < end;) {
    const auto count = static_cast<int32_t>(std::min<int64_t>(kAudioHeaderBytes, end - at));
    state.input.copy(at, bytes.data(), count);
    syntax::Eac3Header header;
    const auto seen = std::span<const uint8_t>(bytes).first(static_cast<size_t>(count));
    if (!syntax::parseEac3Header(seen, header) || header.frameSize == 0) break;
    const bool dependent = header.strmtyp == syntax::kEac3Dependent;
    if (dependent && all.empty()) break;
    if (!dependent) {
      all.push_back({header, 0});
      channelMap = 0;
    }
    channelMap |= syntax::eac3ChannelMap(header);
    all.back().channels = syntax::eac3Channels(channelMap);
    at += header.frameSize;
  }
  return all;
}

void describe_eac3(std::vector<descriptor_bytes>& list, const audio_state& state, bool dvb) {
  const auto programmes = eac3_programmes(state);
  if (programmes.empty()) return;
  const syntax::Eac3Header& header = programmes.front().header;
  const int channels = state.characteristics.channels;
  const auto others = std::span(programmes).subspan(1);
  add_automatic_descriptor(list, registration_descriptor("EAC3"));
  add_automatic_descriptor(list, dvb ? dvb_eac3_descriptor(header, channels, others)
                                     : atsc_eac3_descriptor(header, channels, others));
}

// The older form knows no DTSH: the identifier goes by the core's frame alone, and the descriptor
// of EN 300 468 Annex G tells the rest.
void describe_dts(std::vector<descriptor_bytes>& list, std::span<const uint8_t> bytes,
                  const audio_characteristics& audio, bool legacy) {
  syntax::DtsCoreHeader core;
  const bool hasCore = syntax::parseDtsCoreHeader(bytes, core);
  const bool extended = !hasCore || audio.dtsExtension != 0;
  add_automatic_descriptor(list, registration_descriptor(dts_format_identifier(
                                     core.samples, extended && !(legacy && hasCore))));
  if (legacy && hasCore) add_automatic_descriptor(list, dvb_dts_descriptor(core));
}

}  // namespace

uint8_t audio_stream_type(const audio_characteristics& audio, bool dvb) {
  switch (audio.kind) {
    case audio_kind::ac3:
      if (dvb) return 6;
      return audio.eac3 ? 135 : 129;
    case audio_kind::mpeg:
      if (audio.layer == 0) return 15;
      return audio.layer == 1 ? 4 : 3;
    case audio_kind::latm:
      return 17;
    case audio_kind::dts:
    case audio_kind::unknown:
      break;
  }
  return 6;
}

uint8_t audio_pes_id(const audio_characteristics& audio) {
  return audio.kind == audio_kind::ac3 || audio.kind == audio_kind::dts ? 189 : 192;
}

void describe_audio(audio_state& state, int32_t mask, bool legacyDts) {
  if (state.stream == nullptr) return;
  const audio_characteristics& audio = state.characteristics;
  // What asks for a DVB receiver's buffer goes to DVB receivers.
  const bool dvb = state.config != nullptr && state.config->dvbBuf;
  pmt_description& pmt = state.stream->pmt;
  if (pmt.streamType == 0) pmt.streamType = audio_stream_type(audio, dvb);
  if (state.stream->pesId == 0) state.stream->pesId = audio_pes_id(audio);

  std::array<uint8_t, kAudioHeaderBytes> bytes;
  const auto count = static_cast<int32_t>(
      std::min<int64_t>(kAudioHeaderBytes, state.input.end_position() - state.scanPosition));
  if (count <= 0) return;
  state.input.copy(state.scanPosition, bytes.data(), count);
  const auto first = std::span<const uint8_t>(bytes).first(static_cast<size_t>(count));
  if (audio.kind == audio_kind::ac3 && !audio.eac3 && (mask & kMaskAc3) != 0) {
    describe_ac3(pmt.descriptors, first, dvb);
  }
  if (audio.kind == audio_kind::ac3 && audio.eac3 && (mask & kMaskEac3) != 0) {
    describe_eac3(pmt.descriptors, state, dvb);
  }
  if (audio.kind == audio_kind::dts && (mask & kMaskDts) != 0) {
    describe_dts(pmt.descriptors, first, audio, legacyDts);
  }
}

}  // namespace zel::mux
