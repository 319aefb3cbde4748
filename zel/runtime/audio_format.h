#pragma once

#include "zel/base/export.h"
#include "zel/runtime/four_character_code.h"

#define ZEL_AUDIO_FORMAT(name, code) static const unsigned int name = FourCharacterCode(code);

namespace Morvalen::Zel {

/// The codes of audio sample formats: four ASCII characters read as a big-endian number, so that
/// codes compare as numbers, or a plain number for the few that are no text. The constants stand
/// alone: there is no table of kinds and aliases as there is for video. `Unknown` is 0.
/// zel/runtime/vocabulary.h enumerates them with their names.
class ZEL_API AudioFormat {
 public:
  AudioFormat() = delete;

#include "zel/runtime/vocabulary/audio_formats.def"
};

}  // namespace Morvalen::Zel

#undef ZEL_AUDIO_FORMAT
