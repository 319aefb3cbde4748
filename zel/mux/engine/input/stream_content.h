#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/base/export.h"

/// What a file holds, by its bytes and not by its name: which kind of section of a configuration it
/// belongs to.

namespace Morvalen::Zel {

enum class tsm_content : int32_t {
  unknown,
  mpeg1_video,
  mpeg2_video,
  mpeg4_video,  ///< part 2
  avc,
  hevc,
  mpeg_audio,  ///< layers I to III
  adts,
  latm,
  ac3,
  eac3,
  dts,
  wave,  ///< RIFF or RF64: PCM, for SMPTE 302M or LPCM
  transport_stream,
  program_stream,
  xml,  ///< sections of tables
};

/// The bytes of a file's beginning that tsm_recognise makes good use of; more is of no use.
inline constexpr size_t tsm_content_bytes = 256 * 1024;

/// Tells what the file is that begins with `beginning`. Video is known by parameter sets or headers
/// that parse, audio by three frames on end, of which the first may lie some way into the file (by
/// fewer when the file ends there). A few hundred bytes of noise in front do no harm.
/// @return unknown for what is none of these: raw PCM has no mark.
ZEL_API tsm_content tsm_recognise(std::span<const uint8_t> beginning) noexcept;

/// For people: "AVC video", "AC-3 audio", "a transport stream". Static.
ZEL_API char const* tsm_content_name(tsm_content content) noexcept;

}  // namespace Morvalen::Zel
