#pragma once

#include <memory>

#include "zel/mux/engine/video/video_analyser.h"

namespace zel::mux {

/// AVC: ITU-T H.264. An access unit is a primary coded picture, of a frame or of a field, with all
/// that belongs to it (7.4.1.2.3).
std::unique_ptr<video_analyser> make_avc_analyser(video_state& state);

}  // namespace zel::mux
