#pragma once

namespace zel::mux {

/// What reading PCM gives: something; nothing just now, as the input is loaded further by others;
/// or nothing any more.
enum class pcm_result { ready, later, ended };

}  // namespace zel::mux
