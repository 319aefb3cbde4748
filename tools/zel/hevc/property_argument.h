#pragma once

#include <string>

#include "tools/zel/hevc/encoder_settings.h"

namespace zel::tool {

/// Reads the argument of --property: KEY=VALUE for a key that the encoder reads, whose type is
/// known; KEY=TYPE:VALUE for any key, with TYPE one of bool, u8, i16, u16, i32, u32, i64, u64, f32,
/// f64, four (a four-character code), text and hex (the bytes in hexadecimal). For a known key with
/// a value that opens with a type, the type counts; "text:" gives text that opens so.
///
/// KEY is the key itself, "x265_compressor.preset", or the constant's name, "X265Preset".
/// Throws WrongUsage for an argument that makes no sense.
EncoderProperty parsePropertyArgument(const std::string& argument);

}  // namespace zel::tool
