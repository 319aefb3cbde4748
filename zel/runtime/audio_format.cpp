#include "zel/runtime/audio_format.h"

namespace Morvalen::Zel {

// The values stand in the class, where callers' compilers see them; this makes them data that the
// library exports.
#define ZEL_AUDIO_FORMAT(name, code) const unsigned int AudioFormat::name;
#include "zel/runtime/vocabulary/audio_formats.def"
#undef ZEL_AUDIO_FORMAT

}  // namespace Morvalen::Zel
