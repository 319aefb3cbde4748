#pragma once

#include <memory>

#include "zel/mux/engine/video/video_analyser.h"

namespace zel::mux {

/// MPEG-1 and MPEG-2 video: ISO/IEC 11172-2 and 13818-2. An access unit is a picture, of a frame or
/// of a field, with the headers before it.
std::unique_ptr<video_analyser> make_mpeg_analyser(video_state& state);

}  // namespace zel::mux
