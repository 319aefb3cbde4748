#pragma once

#include <memory>

#include "zel/mux/engine/video/video_analyser.h"

namespace zel::mux {

/// MPEG-4 part 2 video: ISO/IEC 14496-2. An access unit is a VOP with the headers before it.
std::unique_ptr<video_analyser> make_mpeg4_analyser(video_state& state);

}  // namespace zel::mux
