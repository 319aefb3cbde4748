#pragma once

namespace zel::mux {

/// The time that a frame lasts, in 27 MHz ticks; 0 where the rate is 0. Fractions count: at 44.1
/// kHz no frame is a whole number of ticks.
constexpr double audio_frame_period(double samples, double sampleRate) {
  return sampleRate > 0 ? samples * 2.7e7 / sampleRate : 0;
}

}  // namespace zel::mux
