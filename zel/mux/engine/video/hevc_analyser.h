#pragma once

#include <memory>

#include "zel/mux/engine/video/video_analyser.h"

namespace zel::mux {

/// HEVC: ITU-T H.265. An access unit is a picture of the base layer, of a frame or of a field, with
/// all that belongs to it (7.4.2.4.4).
std::unique_ptr<video_analyser> make_hevc_analyser(video_state& state);

}  // namespace zel::mux
