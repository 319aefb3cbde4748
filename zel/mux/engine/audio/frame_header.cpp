#include "zel/mux/engine/audio/frame_header.h"

#include "zel/syntax/ac3.h"
#include "zel/syntax/adts.h"
#include "zel/syntax/dts.h"
#include "zel/syntax/eac3.h"
#include "zel/syntax/mpeg_audio.h"

namespace zel::mux {
namespace {

using bytes_view = std::span<const uint8_t>;

bool read_ac3(bytes_view bytes, audio_frame_header& header) {
  syntax::Ac3Header ac3;
  if (!syntax::parseAc3Header(bytes, ac3)) return false;
  header.kind = audio_kind::ac3;
  header.size = static_cast<int32_t>(ac3.frameSize);
  header.samples = syntax::kAc3FrameSamples;
  header.sampleRate = static_cast<int32_t>(ac3.sampleRate);
  header.sampleRateCode = ac3.fscod;
  header.frameSizeCode = ac3.frmsizecod;
  // Dependent substreams may follow an AC-3 frame too: its places are those of E-AC-3.
  syntax::Eac3Header places;
  places.acmod = ac3.acmod;
  places.lfeon = ac3.lfeon;
  header.channelMap = syntax::eac3ChannelMap(places);
  header.channels = syntax::eac3Channels(header.channelMap);
  header.bitRate = ac3.bitRate;
  return true;
}

bool read_eac3(bytes_view bytes, audio_frame_header& header) {
  syntax::Eac3Header eac3;
  if (!syntax::parseEac3Header(bytes, eac3)) return false;
  header.kind = audio_kind::ac3;
  header.eac3 = true;
  // Further independent substreams are other programs of the same time: an access unit begins at
  // substream 0 only (ATSC A/52 E.2.3.1.2).
  header.joins = eac3.strmtyp == syntax::kEac3Dependent || eac3.substreamid != 0;
  header.size = static_cast<int32_t>(eac3.frameSize);
  header.samples = eac3.samples;
  header.sampleRate = static_cast<int32_t>(eac3.sampleRate);
  header.sampleRateCode = eac3.fscod == 3 ? 4 + eac3.fscod2 : eac3.fscod;
  header.channelMap = syntax::eac3ChannelMap(eac3);
  header.channels = syntax::eac3Channels(header.channelMap);
  header.independent = eac3.strmtyp != syntax::kEac3Dependent;
  header.bitRate = static_cast<double>(eac3.frameSize) * eac3.sampleRate * 8 / eac3.samples + 1;
  return true;
}

bool read_mpeg(bytes_view bytes, audio_frame_header& header) {
  syntax::MpegAudioHeader mpeg;
  // The quarter rates have an eleven-bit sync word, which no transport stream carries.
  if (!syntax::parseMpegAudioHeader(bytes, mpeg) ||
      mpeg.version == syntax::MpegAudioVersion::kMpeg25 || mpeg.frameSize == 0) {
    return false;
  }
  header.kind = audio_kind::mpeg;
  header.layer = 4 - mpeg.layer;
  header.size = static_cast<int32_t>(mpeg.frameSize);
  header.samples = mpeg.samples;
  header.sampleRate = static_cast<int32_t>(mpeg.sampleRate);
  header.sampleRateCode = mpeg.sampleRateIndex;
  header.frameSizeCode = mpeg.bitRateIndex;
  header.channels = mpeg.channels;
  header.bitRate = mpeg.bitRate;
  return true;
}

bool read_adts(bytes_view bytes, audio_frame_header& header) {
  syntax::AdtsHeader adts;
  if (!syntax::parseAdtsHeader(bytes, adts)) return false;
  header.kind = audio_kind::mpeg;
  header.size = adts.frameSize;
  header.samples = adts.samples;
  header.sampleRate = static_cast<int32_t>(adts.sampleRate);
  header.sampleRateCode = adts.sampleRateIndex;
  header.channels = syntax::aacChannels(adts.channelConfiguration);
  header.bitRate = header.size * 8.0 * header.sampleRate / header.samples;
  return true;
}

bool read_dts(bytes_view bytes, audio_frame_header& header) {
  syntax::DtsCoreHeader core;
  if (!syntax::parseDtsCoreHeader(bytes, core)) return false;
  header.kind = audio_kind::dts;
  header.size = static_cast<int32_t>(core.frameSize);
  header.samples = core.samples;
  header.sampleRate = static_cast<int32_t>(core.sampleRate);
  header.sampleRateCode = core.sfreq;
  header.frameSizeCode = core.nblks;
  header.bitRate = header.size * 8.0 * header.sampleRate / header.samples;
  return true;
}

bool read_dts_extension(bytes_view bytes, audio_frame_header& header) {
  syntax::DtsExtensionHeader extension;
  if (!syntax::parseDtsExtensionHeader(bytes, extension)) return false;
  header.kind = audio_kind::dts;
  header.extension = true;
  header.joins = extension.index != 0;
  header.extensionKind = extension.wideSizes || syntax::isDtsLossless(extension) ? 2 : 1;
  header.size = static_cast<int32_t>(extension.frameSize);
  header.samples = extension.durationSamples;
  header.sampleRate = static_cast<int32_t>(extension.referenceClock);
  header.sampleRateCode = extension.refClockCode;
  if (header.samples > 0) header.bitRate = header.size * 8.0 * header.sampleRate / header.samples;
  return true;
}

bool read_latm(bytes_view bytes, audio_frame_header& header) {
  const uint32_t size = syntax::loasFrameSize(bytes);
  if (size <= syntax::kLoasHeaderSize || bytes.size() <= syntax::kLoasHeaderSize) return false;
  header.kind = audio_kind::latm;
  header.size = static_cast<int32_t>(size);
  header.needsConfig = (bytes[syntax::kLoasHeaderSize] & 0x80) == 0;  // !useSameStreamMux
  return true;
}

struct format_reader {
  audio_kind kind;
  bool (*read)(bytes_view, audio_frame_header&);
};
constexpr format_reader kReaders[] = {
    {audio_kind::ac3, read_ac3},   {audio_kind::ac3, read_eac3},
    {audio_kind::mpeg, read_mpeg}, {audio_kind::mpeg, read_adts},
    {audio_kind::dts, read_dts},   {audio_kind::dts, read_dts_extension},
    {audio_kind::latm, read_latm},
};

// Mask and value of the sync words' bytes.
struct sync_byte {
  uint8_t mask, value;
};
constexpr sync_byte kAc3Sync[] = {{0xFF, 0x0B}, {0xFF, 0x77}};
constexpr sync_byte kMpegSync[] = {{0xFF, 0xFF}, {0xF0, 0xF0}};
constexpr sync_byte kDtsSync[] = {{0xFF, 0x7F}, {0xFF, 0xFE}, {0xFF, 0x80}, {0xFF, 0x01}};
constexpr sync_byte kLatmSync[] = {{0xFF, 0x56}, {0xE0, 0xE0}};

std::span<const sync_byte> sync_of(audio_kind kind) {
  switch (kind) {
    case audio_kind::ac3:
      return kAc3Sync;
    case audio_kind::mpeg:
      return kMpegSync;
    case audio_kind::dts:
      return kDtsSync;
    case audio_kind::latm:
      return kLatmSync;
    case audio_kind::unknown:
      break;
  }
  return {};
}

}  // namespace

bool read_audio_header(bytes_view bytes, audio_kind kind, audio_frame_header& header) {
  for (const format_reader& reader : kReaders) {
    if (kind != audio_kind::unknown && kind != reader.kind) continue;
    header = {};
    if (reader.read(bytes, header)) return true;
  }
  header = {};
  return false;
}

int unmatched_sync_byte(bytes_view bytes, audio_kind kind) {
  const std::span<const sync_byte> sync = sync_of(kind);
  for (size_t i = 0; i < sync.size() && i < bytes.size(); ++i) {
    if ((bytes[i] & sync[i].mask) != sync[i].value) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace zel::mux
