#pragma once

#include <cstdint>
#include <span>

#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

/// How much of a unit has to be seen to tell a coding by it.
inline constexpr int32_t kTellingBytes = 512;

/// What a unit says of the stream that it stands in, from the code's byte on: a sequence header or
/// parameter set that can be one tells the coding. unknown: it tells nothing. The two kinds of MPEG
/// are told apart later; mpeg2 stands for both.
video_coding coding_told_by(std::span<const uint8_t> unit);

/// Whether an object layer of MPEG-4 part 2 stands right behind an object: streams may begin so.
bool layer_follows_object(uint8_t codeBefore, std::span<const uint8_t> unit);

/// Units that may stand between the start of an access unit and the one that tells the coding: the
/// stream's data begin with them.
bool may_precede(video_coding coding, uint8_t code);

}  // namespace zel::mux
