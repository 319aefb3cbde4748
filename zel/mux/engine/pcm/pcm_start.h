#pragma once

#include <cstdint>
#include <span>

#include "zel/mux/engine/audio/video_cut.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/pcm/pcm_packets.h"
#include "zel/mux/engine/run/mux.h"

/// What PCM streams of all kinds do alike before the run.

namespace zel::mux {

/// The pictures that a stream's sound goes with.
struct pcm_reference {
  const tsm_stream* video = nullptr;  // null: there are none
  int64_t period = 0;                 // 27 MHz ticks
};

inline constexpr int kNoReferenceNeeded = -1;

/// The video stream of PID `pid` in the program of `stream`; of 0 the program's first. None is
/// fatal 73 where a PID was asked for, fatal `required` where that is above 0, nothing with
/// kNoReferenceNeeded, else warning
/// 85. A
/// stream without pictures is fatal 74.
/// @return false after a fatal message that doesn't stop the run.
bool find_reference(const tsm_stream& stream, int pid, int required, tsm_mux& mux,
                    pcm_reference& reference);

struct pcm_start_inputs {
  const Morvalen::Zel::tsm_stream_record* record = nullptr;
  const pcm_reference* reference = nullptr;
  bool phased = false;  // the first unit begins with a picture
  double unitsPerSecond = 0;
  int64_t decoderBuffer = 0;  // bytes
  double sourceDelay90k = 0;  // behind the reference, in the multiplex that both came from
  video_cut cut;              // what is left of the reference; the units begin behind what isn't
};

/// What Start and End leave of the reference, if there is one.
video_cut cut_of_reference(const pcm_reference& reference, const tsm_mux& mux);

/// How far behind the reference's first picture the first unit belongs, in 90 kHz ticks, of a
/// stream that comes out of another multiplex.
double delay_in_source(const Morvalen::Zel::tsm_stream_record& record,
                       const Morvalen::Zel::TarnArray& files, elementary_input& input,
                       const pcm_reference& reference, const video_cut& cut);

/// With `state.units` made: the buffer for them, the stream's rate, its decoder's buffer and its
/// first time stamp.
/// @return false after a fatal message that doesn't stop the run.
bool start_pcm(pcm_state& state, const pcm_start_inputs& inputs, tsm_mux& mux);

/// Adds an automatic descriptor to the stream's line of the PMT, unless the same one stands there.
void add_pmt_descriptor(tsm_stream& stream, std::span<const uint8_t> descriptor);

}  // namespace zel::mux
