#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/packet/private_data.h"
#include "zel/mux/engine/stream/buffer_model.h"
#include "zel/mux/engine/stream/fixed_ring.h"
#include "zel/mux/engine/stream/stream.h"

/// What an audio stream's analyser and its packet maker share: the analyser fills, the packet maker
/// drains.

namespace Morvalen::Zel {
struct tsm_audio;
}

namespace zel::mux {

class reporting;
struct video_state;

/// One access unit: a frame with all its dependent substreams. The bytes stand at
/// [start, start + size) of the input.
struct audio_frame {
  double pts = 0;  // 27 MHz ticks within the wrap
  int64_t start = 0;
  int32_t size = 0;
  int32_t padding = 0;         // of `size`, zeros at the end that the input doesn't have
  double bitRate = 0;          // of this frame; for E-AC-3
  bool newParameters = false;  // flag bit 0
  bool firstOfSource = false;  // flag bit 1
};

inline constexpr size_t kAudioFrames = 64;

enum class audio_kind : uint8_t { unknown = 0, ac3 = 1, mpeg = 2, dts = 3, latm = 4 };

struct audio_characteristics {
  audio_kind kind = audio_kind::unknown;
  int32_t layer = 0;  // header code: 1 layer 3, 2 layer 2, 3 layer 1, 0 ADTS; of kind mpeg
  bool eac3 = false;
  int32_t sampleRate = 0;  // Hz
  int32_t sampleRateCode = 0;
  int32_t frameSizeCode = 0;
  int32_t frameSize = 0;  // of the first frame; then of the latest
  int32_t maxFrameSize = 0;
  double averageFrameSize = 0;  // over the frames of the first reading
  double bitRate = 0;           // average over the first reading, bits per second
  double period = 0;            // of a frame, 27 MHz ticks
  int32_t channels = 0;
  bool fourChannelObject = false;  // LATM
  int32_t dtsExtension = 0;        // extension kind 0, 1 or 2 of the buffer table
};

/// What the packet maker remembers of the frame and the PES packet that it's in.
struct audio_cursor {
  int32_t frameSent = 0;      // of the front frame
  int32_t pesBytesLeft = 0;   // payload of the PES packet to come
  bool pesBegun = false;      // the first PES packet went out
  bool toldTooLarge = false;  // messages that go out once
  bool toldTooMany = false;
};

struct audio_state : stream_state {
  tsm_stream* stream = nullptr;
  const Morvalen::Zel::tsm_audio* config = nullptr;
  reporting* report = nullptr;
  video_state* firstVideo = nullptr;  // of the program, or null

  bool noEmptyAf = false;  // of the transport level

  elementary_input input;
  fixed_ring<audio_frame, kAudioFrames> frames;
  buffer_model model;
  pes_header_bytes headers;
  audio_characteristics characteristics;
  std::vector<int32_t> firstSizes;  // of the frames of the first reading
  audio_cursor cursor;
  private_data_list privateData;  // of PESPrivateDataFile

  double runningPts = 0;      // of the next frame; 27 MHz ticks within the wrap
  double firstPts = 0;        // A0
  double foundDelay90k = 0;   // delay that the first reading found
  bool followsVideo = false;  // files begin with those of the first video
  double delayToVideo = 0;    // behind the pictures that it belongs to, as configured; 27 MHz ticks
  double stopTicks = -1;      // what begins this long behind A0 isn't taken; below 0: all is
  double queuedTicks = 0;     // the duration of all frames queued
  int64_t scanPosition = 0;
  bool sourceEnded = false;  // everything is queued
  bool syncPending = false;  // AVsync has a transition to settle

  struct analyser_state {
    virtual ~analyser_state() = default;
  };
  std::unique_ptr<analyser_state> analyser;
};

/// Reads the first frames until `characteristics` is known, and rewinds. A stream without any frame
/// is fatal 19.
void discover_audio(audio_state& state);

/// Passes over the next frames as if they weren't there. Before the first scan_audio.
void leave_out_frames(audio_state& state, int64_t count);

/// Queues more frames, loading the input as needed: at least one, unless there is no room or the
/// source has ended (`sourceEnded`). Each frame gets its removal event at its PTS.
/// @return false if the source has ended and nothing was queued.
bool scan_audio(audio_state& state);

}  // namespace zel::mux
