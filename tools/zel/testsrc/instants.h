#pragma once

// When things happen, exactly. Frame n starts at n * denominator / numerator seconds and audio
// sample m is taken at m / sampleRate seconds; nothing here is rounded before the last step, so
// nothing drifts.
//
// A mark stands on the first frame that starts at or after each whole second, so that a picture
// flash and an audio click can share one instant at every rate. The click begins with the first
// sample at or after the frame's start: less than one sample later, never earlier.

#include <cstdint>
#include <string>

#include "tools/zel/media/rational.h"

namespace zel::testsrc {

/// Which frame carries the mark of second `second`.
uint64_t markFrame(media::Rational rate, uint64_t second);

/// Whether a frame carries a mark.
bool isMarkFrame(media::Rational rate, uint64_t frame);

/// The second in which a frame starts.
uint64_t secondOfFrame(media::Rational rate, uint64_t frame);

/// The first audio sample at or after the start of a frame. The sample rate is at most 384000.
uint64_t sampleOfFrame(media::Rational rate, uint64_t frame, uint32_t sampleRate);

/// How long so many half frames take, in seconds times 65536, rounded down.
int64_t timeOfHalfFrames(media::Rational rate, uint64_t halfFrames);

/// A time code of SMPTE ST 12-1.
struct TimeCode {
  uint32_t hours = 0;
  uint32_t minutes = 0;
  uint32_t seconds = 0;
  uint32_t frames = 0;
  bool dropFrame = false;

  /// "01:02:03:04", with a semicolon before the frames of a drop-frame code.
  std::string text() const;
};

/// The time code of a frame, starting at zero and wrapping after 24 hours. Rates of the NTSC
/// family near a multiple of 30 count drop-frame.
TimeCode timeCodeOfFrame(media::Rational rate, uint64_t frame);

}  // namespace zel::testsrc
