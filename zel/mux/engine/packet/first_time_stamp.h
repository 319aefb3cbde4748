#pragma once

#include <cstdint>

#include "zel/mux/engine/stream/audio_state.h"
#include "zel/mux/engine/stream/video_state.h"

/// The first time stamps of a stream, D0 of video and A0 of audio, and until when a stream holds
/// off so that its decoder's buffer isn't filled before it can be drained. Pure functions; all
/// times are in 27 MHz ticks unless their name says 90k.

namespace zel::mux {

struct video_start_inputs {
  double startTime = 0;  // of the run
  double ptsi = 0;       // configured first time stamp, 0: none
  double leader90k = 0;
  double delay90k = 0;
  double streamDelay90k = 0;
  double maxDecodeDelay90k = 0;  // 0: none
  bool maxDelay = false;         // TypeDelay is Max
  bool independent = false;      // IndDelay
  int32_t index = 0;             // among the program's video streams
  double firstStreamBase = 0;    // D0 of the first one before what is added below
  bool terminated = false;
  int32_t overlap = 0;  // frames
  bool notLowDelay = false;
};

struct video_start {
  double base = 0;  // D0 before Leader, StreamDelay, snapping and the start time are added
  double dts = 0;   // D0, not normalised
  bool overlapTooLong = false;  // fatal 45
  bool holds = false;
  double holdUntil = 0;
};
video_start first_video_dts(const video_start_inputs& inputs, const video_characteristics& video,
                            int64_t limit);

struct audio_start_inputs {
  double startTime = 0;
  double ptsi = 0;
  double leader90k = 0;
  double delay90k = 0;
  double foundDelay90k = 0;
  double streamDelay90k = 0;
  bool independent = false;
  bool hasVideo = false;
  double videoFirstPts = 0;  // of the program's first video, relative to the start
  double videoStreamDelay90k = 0;
  bool dvbBuf = false;
  bool followsSource = false;    // AVsync on a remultiplexed stream
  double sourceSkew = 0;         // audio less video in the source
  bool beginsWithVideo = false;  // Start or End cut the pictures: no sound before them
  double preloadBytes = 0;       // before the first frame leaves, without video; 0: the coding's
  bool terminated = false;
  double videoFramePeriod = 0;  // to snap a terminated stream to, 0: none
  int32_t overlap = 0;
};

struct audio_start {
  double pts = 0;                 // A0, not normalised
  bool rateMissing = false;       // fatal 17
  bool adjustmentFailed = false;  // warning 54
  int64_t skewSeconds = 0;        // warning 55 when not 0
  double moved = 0;               // the first frames, which are left out
  double behindVideo = 0;         // where it stands behind the pictures, by their own time
  bool overlapTooLong = false;    // fatal 45
  bool holds = false;
  double holdUntil = 0;
};
audio_start first_audio_pts(const audio_start_inputs& inputs, const audio_characteristics& audio,
                            int64_t limit);

}  // namespace zel::mux
