#include "zel/mux/engine/run/stream_statistics.h"

#include <algorithm>

#include "zel/mux/engine/stream/audio_state.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {
namespace {

constexpr const char* kVideoNames[] = {"video",         "MPEG-1 video", "MPEG-2 video",
                                       "MPEG-4 part 2", "AVC",          "HEVC"};
// By the header's layer code.
constexpr const char* kMpegAudioNames[] = {"AAC in ADTS", "MPEG audio layer III",
                                           "MPEG audio layer II", "MPEG audio layer I"};

struct kind_name {
  stream_kind kind;
  const char* name;
};
constexpr kind_name kKindNames[] = {
    {stream_kind::psi, "tables"},
    {stream_kind::video, "video"},
    {stream_kind::audio, "audio"},
    {stream_kind::data, "data packets"},
    {stream_kind::smpte302m, "SMPTE 302M"},
    {stream_kind::table, "sections"},
    {stream_kind::private_stream, "private data"},
    {stream_kind::scte35, "SCTE 35"},
    {stream_kind::pcr_only, "clock"},
    {stream_kind::lpcm, "LPCM"},
};

const char* name_of(const audio_characteristics& said) {
  switch (said.kind) {
    case audio_kind::ac3:
      return said.eac3 ? "E-AC-3" : "AC-3";
    case audio_kind::mpeg:
      return kMpegAudioNames[said.layer & 3];
    case audio_kind::dts:
      return said.dtsExtension != 0 ? "DTS-HD" : "DTS";
    case audio_kind::latm:
      return "AAC in LATM";
    default:
      return "audio";
  }
}

const char* name_of(const tsm_stream& stream) {
  for (const kind_name& each : kKindNames)
    if (each.kind == stream.kind) return each.name;
  return "";
}

}  // namespace

Morvalen::Zel::tsm_stream_stats statistics_of(const tsm_stream& stream) {
  Morvalen::Zel::tsm_stream_stats stats;
  stats.pid = stream.pid();
  stats.programNumber = static_cast<int32_t>(stream.program);
  stats.kind = static_cast<int32_t>(stream.kind);
  stats.streamType = stream.pmt.listed ? stream.pmt.streamType : 0;
  stats.coding = name_of(stream);
  stats.carriesPcr = stream.has(kCarriesPcr);
  stats.packets = stream.packetsSent;
  stats.rate = stream.rate;
  if (stream.kind == stream_kind::video) {
    if (const auto* state = dynamic_cast<const video_state*>(stream.state.get())) {
      stats.coding = kVideoNames[static_cast<size_t>(state->characteristics.coding)];
      stats.elementaryRate = state->characteristics.bitRate;
    }
  }
  if (stream.kind == stream_kind::audio) {
    if (const auto* state = dynamic_cast<const audio_state*>(stream.state.get())) {
      stats.coding = name_of(state->characteristics);
      stats.elementaryRate = state->characteristics.bitRate;
    }
  }
  if (stream.buffer == nullptr) return stats;
  stats.bufferLimit = stream.buffer->limit;
  // The model notes its peak when something leaves: what is there now may be more.
  stats.bufferPeak = std::max(stream.buffer->peak, stream.buffer->level);
  stats.bufferLowest = stream.buffer->lowest;
  stats.bufferLowestKnown = stream.buffer->lowestKnown;
  return stats;
}

}  // namespace zel::mux
