#include "zel/mux/engine/input/stream_content.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "zel/base/annex_b.h"
#include "zel/base/byte_order.h"
#include "zel/syntax/ac3.h"
#include "zel/syntax/adts.h"
#include "zel/syntax/avc_nal.h"
#include "zel/syntax/avc_parameter_sets.h"
#include "zel/syntax/dts.h"
#include "zel/syntax/eac3.h"
#include "zel/syntax/hevc_nal.h"
#include "zel/syntax/hevc_parameter_sets.h"
#include "zel/syntax/latm.h"
#include "zel/syntax/mpeg_audio.h"
#include "zel/syntax/mpeg_video.h"

// Containers are asked for first, since they hold what the others look for; then audio, whose
// frames have to stand end to end; then video, by headers. Chance finds a start code in any 16 MB,
// and an audio sync word of 11 bits every few kilobytes: neither is believed alone.

namespace zel::mux {
namespace {

using Morvalen::Zel::tsm_content;
using Bytes = std::span<const uint8_t>;

bool begins_with(Bytes bytes, std::string_view text) {
  return bytes.size() >= text.size() && std::memcmp(bytes.data(), text.data(), text.size()) == 0;
}

// ISO/IEC 13818-1, 2.4.3.2; 192 bytes with a stamp in front, 204 with parity behind.
bool is_transport_stream(Bytes bytes) {
  constexpr size_t kSizes[] = {188, 192, 204};
  constexpr size_t kPackets = 5;
  for (const size_t size : kSizes) {
    for (size_t first = 0; first < size; ++first) {
      size_t place = first;
      size_t found = 0;
      while (place < bytes.size() && bytes[place] == 0x47 && found < kPackets) {
        ++found;
        place += size;
      }
      if (found == kPackets || (found >= 2 && first == 0 && place >= bytes.size())) return true;
    }
  }
  return false;
}

bool is_xml(Bytes bytes) {
  size_t place = begins_with(bytes, "\xEF\xBB\xBF") ? 3 : 0;
  while (place < bytes.size() && std::strchr(" \t\r\n", bytes[place]) != nullptr &&
         bytes[place] != 0)
    ++place;
  const Bytes rest = bytes.subspan(place);
  return begins_with(rest, "<?xml") || begins_with(rest, "<!--") ||
         (rest.size() > 1 && rest[0] == '<' && std::isalpha(rest[1]) != 0);
}

// How long the frame is that begins here, and of which coding. 0: none begins here.
struct frame {
  tsm_content content = tsm_content::unknown;
  size_t size = 0;
};

frame mpeg_audio_frame(Bytes bytes) {
  syntax::MpegAudioHeader header;
  if (!syntax::parseMpegAudioHeader(bytes, header) || header.frameSize == 0) return {};
  return {tsm_content::mpeg_audio, header.frameSize};
}
frame adts_frame(Bytes bytes) {
  syntax::AdtsHeader header;
  if (!syntax::parseAdtsHeader(bytes, header)) return {};
  return {tsm_content::adts, header.frameSize};
}
frame latm_frame(Bytes bytes) {
  return {tsm_content::latm, syntax::loasFrameSize(bytes)};
}
frame ac3_frame(Bytes bytes) {
  syntax::Ac3Header header;
  if (syntax::parseAc3Header(bytes, header)) return {tsm_content::ac3, header.frameSize};
  syntax::Eac3Header enhanced;
  if (syntax::parseEac3Header(bytes, enhanced)) return {tsm_content::eac3, enhanced.frameSize};
  return {};
}
frame dts_frame(Bytes bytes) {
  syntax::DtsCoreHeader core;
  if (syntax::parseDtsCoreHeader(bytes, core)) return {tsm_content::dts, core.frameSize};
  syntax::DtsExtensionHeader extension;
  if (syntax::parseDtsExtensionHeader(bytes, extension))
    return {tsm_content::dts, extension.frameSize};
  return {};
}

using frame_reader = frame (*)(Bytes);
constexpr frame_reader kFrameReaders[] = {mpeg_audio_frame, adts_frame, latm_frame, ac3_frame,
                                          dts_frame};

// A header of E-AC-3 or LATM doesn't tell chance from a frame where the bytes end in it.
constexpr size_t kHeaderReach = 64;
constexpr size_t kFrames = 3;

// Whether frames stand end to end from here on: three, or all there is.
tsm_content chain_at(Bytes bytes, size_t first, frame_reader read) {
  size_t place = first;
  tsm_content content = tsm_content::unknown;
  for (size_t count = 0; count < kFrames; ++count) {
    if (count > 0 && bytes.size() - place < kHeaderReach) {
      return first == 0 || count > 1 ? content : tsm_content::unknown;
    }
    const frame next = read(bytes.subspan(place));
    if (next.size == 0) return tsm_content::unknown;
    // The first names the stream: AC-3 may have E-AC-3 frames between its own.
    if (count == 0) content = next.content;
    if (next.size > bytes.size() - place) return first == 0 ? content : tsm_content::unknown;
    place += next.size;
  }
  return content;
}

tsm_content audio_in(Bytes bytes) {
  if (begins_with(bytes, "DTSHDHDR")) return tsm_content::dts;
  // An ID3 tag may stand in front of MPEG audio; its own length is the way past it.
  constexpr size_t kTagHeader = 10;
  if (begins_with(bytes, "ID3") && bytes.size() > kTagHeader) {
    const size_t size =
        size_t{bytes[6]} << 21 | size_t{bytes[7]} << 14 | size_t{bytes[8]} << 7 | size_t{bytes[9]};
    bytes = bytes.subspan(std::min(bytes.size(), size + kTagHeader));
  }
  constexpr size_t kSearched = 16 * 1024;
  const size_t end = std::min(bytes.size(), kSearched);
  for (size_t first = 0; first < end; ++first) {
    // Every sync word begins with one of these.
    const uint8_t byte = bytes[first];
    if (byte != 0xFF && byte != 0x56 && byte != 0x0B && byte != 0x7F && byte != 0x64) continue;
    for (const frame_reader read : kFrameReaders) {
      const tsm_content content = chain_at(bytes, first, read);
      if (content != tsm_content::unknown) return content;
    }
  }
  return tsm_content::unknown;
}

struct video_signs {
  bool sequence = false;   // MPEG-1/2: a sequence header that makes sense
  bool extension = false;  // MPEG-2: a sequence extension behind it
  bool picture = false;    // MPEG-1/2
  bool object = false;     // MPEG-4 part 2: sequence, object or layer header
  bool plane = false;      // MPEG-4 part 2: a picture
  bool avcParameters = false;
  bool hevcParameters = false;
};

// ISO/IEC 13818-2, table 6-1, and ISO/IEC 14496-2, table 6-3. From 0x80 up no NAL unit begins so.
enum start_code : uint8_t {
  kPicture = 0x00,
  kVideoObjectLayer = 0x20,
  kVideoObjectLayerLast = 0x2F,
  kVisualSequence = 0xB0,
  kSequence = 0xB3,
  kExtension = 0xB5,
  kVideoObjectPlane = 0xB6,
};
constexpr uint8_t kSequenceExtensionId = 1;

bool is_avc_parameter_set(Bytes unit, std::vector<uint8_t>& rbsp) {
  syntax::AvcNalHeader header;
  constexpr uint8_t kSps = 7;
  if ((unit[0] & 0x1F) != kSps || (unit[0] & 0x60) == 0 || !syntax::parseAvcNalHeader(unit, header))
    return false;
  base::removeEmulationPrevention(unit.subspan(1), rbsp);
  syntax::AvcSps sps;
  return syntax::parseAvcSps(rbsp, sps);
}

bool is_hevc_parameter_set(Bytes unit, std::vector<uint8_t>& rbsp) {
  syntax::HevcNalHeader header;
  constexpr uint8_t kSps = 33;
  if ((unit[0] >> 1 & 0x3F) != kSps || !syntax::parseHevcNalHeader(unit, header)) return false;
  base::removeEmulationPrevention(unit.subspan(2), rbsp);
  syntax::HevcSps sps;
  return syntax::parseHevcSps(rbsp, sps);
}

void note(Bytes unit, video_signs& signs, std::vector<uint8_t>& rbsp) {
  const uint8_t code = unit[0];
  const Bytes payload = unit.subspan(1);
  syntax::MpegSequenceHeader sequence;
  if (code == kSequence && syntax::parseMpegSequenceHeader(payload, sequence))
    signs.sequence = true;
  if (code == kExtension && signs.sequence && !payload.empty() &&
      payload[0] >> 4 == kSequenceExtensionId)
    signs.extension = true;
  signs.picture |= code == kPicture && signs.sequence;
  signs.object |= code == kVisualSequence ||
                  (code >= kVideoObjectLayer && code <= kVideoObjectLayerLast && !signs.sequence);
  signs.plane |= code == kVideoObjectPlane;
  if ((code & 0x80) != 0) return;
  signs.avcParameters |= is_avc_parameter_set(unit, rbsp);
  signs.hevcParameters |= is_hevc_parameter_set(unit, rbsp);
}

tsm_content video_in(Bytes bytes) {
  // Far into a file, start codes are those of a container's payload, or chance.
  constexpr size_t kLongestLead = 4096;
  const auto data =
      std::find_if(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte != 0; });
  if (base::findStartCode(bytes) > static_cast<size_t>(data - bytes.begin()) + kLongestLead)
    return tsm_content::unknown;
  video_signs signs;
  std::vector<uint8_t> rbsp;
  for (const base::NalUnit& unit : base::NalUnits(bytes)) {
    note(unit.bytes, signs, rbsp);
    // Parameter sets of the one don't parse as those of the other, and stand at the beginning.
    if (signs.hevcParameters) return tsm_content::hevc;
    if (signs.avcParameters && !signs.plane && !signs.sequence) return tsm_content::avc;
    if (signs.sequence && signs.picture)
      return signs.extension ? tsm_content::mpeg2_video : tsm_content::mpeg1_video;
    if (signs.object && signs.plane && !signs.sequence) return tsm_content::mpeg4_video;
  }
  return tsm_content::unknown;
}

tsm_content recognise(Bytes bytes) {
  if ((begins_with(bytes, "RIFF") || begins_with(bytes, "RF64")) && bytes.size() >= 12 &&
      begins_with(bytes.subspan(8), "WAVE"))
    return tsm_content::wave;
  constexpr uint32_t kPackStartCode = 0x000001BA;  // ISO/IEC 13818-1, 2.5.3.3
  if (bytes.size() >= 4 && base::loadBig32(bytes.data()) == kPackStartCode)
    return tsm_content::program_stream;
  if (is_xml(bytes)) return tsm_content::xml;
  if (is_transport_stream(bytes)) return tsm_content::transport_stream;
  // What begins with a start code is no audio, whatever stands in its slices.
  const size_t lead = static_cast<size_t>(
      std::find_if(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte != 0; }) -
      bytes.begin());
  const bool startsWithCode = lead >= 2 && lead < bytes.size() && bytes[lead] == 1;
  if (startsWithCode) return video_in(bytes);
  const tsm_content audio = audio_in(bytes);
  return audio != tsm_content::unknown ? audio : video_in(bytes);
}

}  // namespace
}  // namespace zel::mux

namespace Morvalen::Zel {

tsm_content tsm_recognise(std::span<const uint8_t> beginning) noexcept {
  try {
    return zel::mux::recognise(beginning.first(std::min(beginning.size(), tsm_content_bytes)));
  } catch (const std::bad_alloc&) {
    return tsm_content::unknown;
  }
}

char const* tsm_content_name(tsm_content content) noexcept {
  constexpr const char* kNames[] = {"nothing that is known",
                                    "MPEG-1 video",
                                    "MPEG-2 video",
                                    "MPEG-4 part 2 video",
                                    "AVC video",
                                    "HEVC video",
                                    "MPEG audio",
                                    "AAC audio in ADTS",
                                    "AAC audio in LATM",
                                    "AC-3 audio",
                                    "E-AC-3 audio",
                                    "DTS audio",
                                    "a Wave file",
                                    "a transport stream",
                                    "a program stream",
                                    "an XML file"};
  return kNames[static_cast<size_t>(content)];
}

}  // namespace Morvalen::Zel
