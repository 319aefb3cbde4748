#include "zel/mux/engine/video/coding_detection.h"

#include <vector>

#include "zel/base/annex_b.h"
#include "zel/syntax/avc_nal.h"
#include "zel/syntax/avc_parameter_sets.h"
#include "zel/syntax/hevc_nal.h"
#include "zel/syntax/hevc_parameter_sets.h"
#include "zel/syntax/mpeg4_part2.h"
#include "zel/syntax/mpeg_video.h"

namespace zel::mux {

namespace {

// ITU-T H.264, Annex A, G and H.
constexpr uint8_t kAvcProfiles[] = {66, 77, 88, 100, 110, 122, 244, 44, 83, 86, 118, 128, 134, 138};

std::vector<uint8_t> rbsp_of(std::span<const uint8_t> unit, size_t headerSize) {
  std::vector<uint8_t> rbsp;
  const size_t end = base::findStartCode(unit);
  base::removeEmulationPrevention(unit.subspan(headerSize, end - headerSize), rbsp);
  return rbsp;
}

bool is_avc_sps(std::span<const uint8_t> unit) {
  syntax::AvcNalHeader nal;
  if (!syntax::parseAvcNalHeader(unit, nal) || nal.type != syntax::kAvcSps || nal.refIdc == 0) {
    return false;
  }
  syntax::AvcSps sps;
  if (!syntax::parseAvcSps(rbsp_of(unit, nal.size), sps)) return false;
  for (const uint8_t profile : kAvcProfiles) {
    if (profile == sps.profileIdc) return true;
  }
  return false;
}

bool is_hevc_set(std::span<const uint8_t> unit) {
  syntax::HevcNalHeader nal;
  if (!syntax::parseHevcNalHeader(unit, nal) || nal.layerId != 0 || nal.temporalId != 0) {
    return false;
  }
  if (nal.type == syntax::kHevcVps) {
    syntax::HevcVps vps;
    return syntax::parseHevcVps(rbsp_of(unit, syntax::kHevcNalHeaderSize), vps);
  }
  syntax::HevcSps sps;
  return nal.type == syntax::kHevcSps &&
         syntax::parseHevcSps(rbsp_of(unit, syntax::kHevcNalHeaderSize), sps);
}

// The same code is a group's in MPEG-4 part 2: a sequence has a size, and a marker behind its rate.
bool is_mpeg_sequence(std::span<const uint8_t> unit) {
  constexpr size_t kFixedBytes = 9;
  constexpr uint8_t kMarker = 0x20;
  if (unit.size() < kFixedBytes || unit[0] != syntax::kMpegSequenceHeader) return false;
  const bool hasSize = unit[1] != 0 || unit[2] != 0 || unit[3] != 0;
  return hasSize && (unit[7] & kMarker) != 0;
}

}  // namespace

video_coding coding_told_by(std::span<const uint8_t> unit) {
  if (unit.empty()) return video_coding::unknown;
  if (is_mpeg_sequence(unit)) return video_coding::mpeg2;
  if (unit[0] == syntax::kMpeg4ObjectSequence) return video_coding::mpeg4_part2;
  if (is_avc_sps(unit)) return video_coding::avc;
  if (is_hevc_set(unit)) return video_coding::hevc;
  return video_coding::unknown;
}

bool layer_follows_object(uint8_t codeBefore, std::span<const uint8_t> unit) {
  if (codeBefore > syntax::kMpeg4LastObject || unit.empty()) return false;
  syntax::Mpeg4ObjectLayer layer;
  return syntax::isMpeg4ObjectLayer(unit[0]) &&
         syntax::parseMpeg4ObjectLayer(unit.subspan(1), 1, layer);
}

bool may_precede(video_coding coding, uint8_t code) {
  switch (coding) {
    case video_coding::avc: {
      const int type = code & 0x1F;
      return type == syntax::kAvcDelimiter || type == syntax::kAvcSei;
    }
    case video_coding::hevc: {
      const int type = code >> 1 & 0x3F;
      return type == syntax::kHevcDelimiter || type == syntax::kHevcVps ||
             type == syntax::kHevcPrefixSei;
    }
    case video_coding::mpeg4_part2:
      return code <= syntax::kMpeg4LastObjectLayer || code == syntax::kMpeg4VisualObject;
    case video_coding::mpeg1:
    case video_coding::mpeg2:
    case video_coding::unknown:
      break;
  }
  return false;
}

}  // namespace zel::mux
